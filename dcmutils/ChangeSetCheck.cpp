#include "dcmutils/ChangeSetCheck.h"

#include "datetime/dtregistry.h"
#include "dcmutils/softedit.h"
#include "privatetags/KQItem.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcdict.h"
#include "dcmtk/dcmdata/dcdicent.h"
#include "dcmtk/dcmdata/dcsequen.h"

#include <algorithm>
#include <cstring>

namespace {

// Whether a VR read from a file fits one of the dictionary's VRs, including its "or" forms.
bool fitsDictionaryVR(DcmEVR actual, DcmEVR dictionary)
{
    if (actual == dictionary)
        return true;
    switch (dictionary)
    {
    case EVR_xs: // US or SS
        return actual == EVR_US || actual == EVR_SS;
    case EVR_ox: // OB or OW
    case EVR_px:
        return actual == EVR_OB || actual == EVR_OW;
    case EVR_lt: // US, SS or OW (lookup table data)
        return actual == EVR_US || actual == EVR_SS || actual == EVR_OW;
    case EVR_up: // UL in files
        return actual == EVR_UL;
    case EVR_PixelData:
    case EVR_OverlayData:
        return actual == EVR_OB || actual == EVR_OW;
    default:
        return false;
    }
}

std::string refusal(const DcmTagKey& key, const char* reason)
{
    return tagName(key) + ": " + reason;
}

// The attributes that describe the stored pixel data, which a soft edit leaves as it is.
const DcmTagKey pixelDescription[] = {DCM_SamplesPerPixel, DCM_PhotometricInterpretation, DCM_PlanarConfiguration,
                                      DCM_NumberOfFrames,  DCM_Rows,                      DCM_Columns,
                                      DCM_BitsAllocated,   DCM_BitsStored,                DCM_HighBit,
                                      DCM_PixelRepresentation};

// The Type 1 identifiers every object needs a value of.
const DcmTagKey identifiers[] = {DCM_StudyInstanceUID, DCM_SeriesInstanceUID, DCM_SOPInstanceUID, DCM_SOPClassUID};

bool isOneOf(const DcmTagKey& key, const DcmTagKey* keys, size_t count)
{
    return std::find(keys, keys + count, key) != keys + count;
}

// Why an attribute of the change set with this value length may not be set, or empty.
std::string valueRefusal(const DcmTagKey& key, bool empty)
{
    if (empty && isOneOf(key, identifiers, sizeof(identifiers) / sizeof(identifiers[0])))
        return refusal(key, "cannot be made empty (every object needs its value)");
    return std::string();
}

std::string vrRefusal(const DcmTagKey& key, DcmEVR vr)
{
    if (hasDictionaryVR(key, vr))
        return std::string();
    const DcmTag tag(key);
    return tagName(key) + ": VR " + DcmVR(vr).getVRName() + " contradicts the data dictionary's " +
           tag.getVR().getVRName();
}

// Checks the elements of one item at a level; the item's nested change sequence (element
// number nested in its "KQ group A" block, 0 for none) is left to the caller.
bool checkLevelItem(DcmItem& item, CHANGE_LEVEL level, unsigned short nested, std::string& reason);

// The VR of every public attribute nested in a sequence.
bool checkNestedVRs(DcmSequenceOfItems& seq, std::string& reason)
{
    for (DcmObject* itemObject = seq.nextInContainer(nullptr); itemObject; itemObject = seq.nextInContainer(itemObject))
    {
        DcmItem* item = OFstatic_cast(DcmItem*, itemObject);
        for (DcmObject* obj = item->nextInContainer(nullptr); obj; obj = item->nextInContainer(obj))
        {
            reason = vrRefusal(obj->getTag(), obj->ident());
            if (!reason.empty())
                return false;
            if (obj->ident() == EVR_SQ && !checkNestedVRs(*OFstatic_cast(DcmSequenceOfItems*, obj), reason))
                return false;
        }
    }
    return true;
}

bool checkLevelItem(DcmItem& item, CHANGE_LEVEL level, unsigned short nested, std::string& reason)
{
    KQItem kq(item);
    if (nested)
        kq.calcPrivateBlock(false);
    for (DcmObject* obj = item.nextInContainer(nullptr); obj; obj = item.nextInContainer(obj))
    {
        if (nested && kq.isObjectOurPrivateElement(obj, nested))
        {
            if (obj->ident() != EVR_SQ)
                continue; // applyModifications reports it as corrupted data
            DcmSequenceOfItems* seq = OFstatic_cast(DcmSequenceOfItems*, obj);
            const CHANGE_LEVEL inner = level == CL_STUDY ? CL_SERIES : CL_INSTANCE;
            const unsigned short innerNested = level == CL_STUDY ? KQ_INSTANCE_SEQUENCE : 0;
            for (DcmObject* i = seq->nextInContainer(nullptr); i; i = seq->nextInContainer(i))
                if (!checkLevelItem(*OFstatic_cast(DcmItem*, i), inner, innerNested, reason))
                    return false;
            continue;
        }
        reason = changeRefusal(obj->getTag(), obj->ident(), level);
        if (reason.empty())
            reason = valueRefusal(obj->getTag(), obj->getLength() == 0);
        if (reason.empty() && obj->getTag().isPrivate() && !obj->getTag().isPrivateReservation() &&
            !obj->getTag().getPrivateCreator())
            reason = refusal(obj->getTag(), "private element without its private creator (it has no block to go in)");
        if (!reason.empty())
            return false;
        if (obj->ident() == EVR_SQ && !checkNestedVRs(*OFstatic_cast(DcmSequenceOfItems*, obj), reason))
            return false;
    }
    return true;
}

} // namespace

std::string tagName(const DcmTagKey& key)
{
    DcmTag tag(key);
    std::string text = key.toString().c_str();
    const char* name = tag.getTagName();
    if (name && strcmp(name, DcmTag_ERROR_TagName) != 0)
        text += std::string(" ") + name;
    return text;
}

bool hasDictionaryVR(const DcmTagKey& key, DcmEVR vr)
{
    if (key.isPrivate() || key.getElement() == 0 || vr == EVR_UN || vr == EVR_UNKNOWN || vr == EVR_UNKNOWN2B)
        return true;
    const DcmDataDictionary& dict = dcmDataDict.rdlock();
    const DcmDictEntry* entry = dict.findEntry(key, nullptr);
    const DcmEVR expected = entry ? entry->getEVR() : EVR_UNKNOWN;
    dcmDataDict.rdunlock();
    if (expected == EVR_UNKNOWN || expected == EVR_UNKNOWN2B || expected == EVR_na)
        return true;
    return fitsDictionaryVR(vr, expected);
}

std::string changeRefusal(const DcmTagKey& key, DcmEVR vr, CHANGE_LEVEL level)
{
    if (key.getGroup() == 0x0000)
        return refusal(key, "command elements do not belong in a stored object");
    if (key.getGroup() == 0x0002)
        return refusal(key, "file meta information cannot be changed by a soft edit");
    if (key.getGroup() == 0x7fe0)
        return refusal(key, "pixel data cannot be changed by a soft edit");
    if (isOneOf(key, pixelDescription, sizeof(pixelDescription) / sizeof(pixelDescription[0])))
        return refusal(key, "describes the stored pixel data, which a soft edit leaves as it is (they would no "
                            "longer match)");
    if (key == DCM_SpecificCharacterSet)
        return refusal(key, "would relabel the object's values without converting them (the KqR file's values are "
                            "converted to each object's character set)");
    if (key == DCM_SOPInstanceUID && level != CL_INSTANCE)
        return refusal(key, "can be changed at instance level only (it would give many objects one identity)");
    if (key == DCM_SeriesInstanceUID && level == CL_STUDY)
        return refusal(key, "can be changed at series or instance level only (it would merge every series of the "
                            "study into one)");
    return vrRefusal(key, vr);
}

bool checkChangeSet(DcmDataset& changes, std::string& reason)
{
    reason.clear();
    KQItem kq(changes);
    DcmItem* changeItem = nullptr;
    if (kq.findAndGetKQSequenceItem(KQ_CHANGE_SEQUENCE, changeItem, 0).bad() || !changeItem)
        return true;
    return checkLevelItem(*changeItem, CL_STUDY, KQ_SERIES_SEQUENCE, reason);
}

std::string assignmentRefusal(const DcmTagKey& key, const char* value, CHANGE_LEVEL level)
{
    DcmTag tag(key);
    std::string reason = changeRefusal(key, tag.getEVR(), level);
    if (!reason.empty())
        return reason;
    if (key.isPrivateReservation())
        return refusal(key, "private creator elements cannot be set (the KqR file's private blocks are its own)");
    if ((key == DCM_SeriesInstanceUID && level == CL_SERIES) || (key == DCM_SOPInstanceUID && level == CL_INSTANCE))
        return refusal(key, "is the key this level's item is matched by (changed, the item would match no object)");
    reason = valueRefusal(key, *value == '\0');
    if (!reason.empty())
        return reason;
    const DcmVR vr(tag.getEVR());
    if (vr.getEVR() == EVR_PN)
    {
        // each component group (alphabetic, ideographic, phonetic) of each value: 64 characters
        size_t characters = 0;
        for (const char* c = value;; ++c)
        {
            if (*c == '\\' || *c == '=' || *c == '\0')
                characters = 0;
            else if ((OFstatic_cast(unsigned char, *c) & 0xc0) != 0x80 && ++characters > 64)
                return tagName(key) + ": \"" + value + "\" has a name component group longer than a PN value's " +
                       "may be (64 characters)";
            if (*c == '\0')
                break;
        }
    }
    // person names are limited per component group (above)
    if (vr.isaString() && vr.getEVR() != EVR_PN && vr.getMaxValueLength() < 1024)
    {
        const std::string text(value);
        const bool multiValued = vr.getEVR() != EVR_ST && vr.getEVR() != EVR_LT && vr.getEVR() != EVR_UT;
        size_t start = 0;
        while (start <= text.size())
        {
            size_t end = multiValued ? text.find('\\', start) : std::string::npos;
            if (end == std::string::npos)
                end = text.size();
            size_t characters = 0;
            for (size_t i = start; i < end; ++i)
                characters += (OFstatic_cast(unsigned char, text[i]) & 0xc0) != 0x80;
            if (characters > vr.getMaxValueLength())
                return tagName(key) + ": \"" + value + "\" is longer than a " + vr.getVRName() + " value may be (" +
                       std::to_string(vr.getMaxValueLength()) + " characters)";
            start = end + 1;
        }
    }
    DcmElement* element = nullptr;
    if (DcmItem::newDicomElement(element, tag).bad() || !element)
        return std::string(); // no element class to check the value with; the writer reports it
    OFCondition cond = element->putString(value);
    if (cond.good())
        cond = element->checkValue();
    const unsigned long count = element->getVM();
    delete element;
    const DcmDataDictionary& dict = dcmDataDict.rdlock();
    const DcmDictEntry* entry = dict.findEntry(key, nullptr);
    const int vmMax = entry ? entry->getVMMax() : DcmVariableVM;
    dcmDataDict.rdunlock();
    if (cond.good() && vmMax != DcmVariableVM && count > OFstatic_cast(unsigned long, vmMax))
        return tagName(key) + ": \"" + value + "\" has " + std::to_string(count) +
               " values, more than the data dictionary allows (" + std::to_string(vmMax) + ")";
    if (cond.good())
        return std::string();
    return tagName(key) + ": \"" + value + "\" is not a valid " + tag.getVR().getVRName() + " value (" +
           cond.text() + ")";
}

bool dateTimePartner(const DcmTagKey& key, DcmTagKey& partner)
{
    for (const kqtz::DateTimeTagPair& pair : kqtz::dtregistry)
    {
        if (pair.date() == key && pair.time() != DcmTagKey())
            partner = pair.time();
        else if (pair.time() == key && pair.date() != DcmTagKey())
            partner = pair.date();
        else
            continue;
        return true;
    }
    return false;
}
