#include "dcmutils/ChangeSetCheck.h"

#include "datetime/dtregistry.h"
#include "dcmutils/softedit.h"
#include "privatetags/KQItem.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcdict.h"
#include "dcmtk/dcmdata/dcdicent.h"
#include "dcmtk/dcmdata/dcsequen.h"

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
    for (unsigned long i = 0; i < seq.card(); ++i)
    {
        DcmItem* item = seq.getItem(i);
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
            for (unsigned long i = 0; i < seq->card(); ++i)
                if (!checkLevelItem(*seq->getItem(i), inner, innerNested, reason))
                    return false;
            continue;
        }
        reason = changeRefusal(obj->getTag(), obj->ident(), level);
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
    if (key.getGroup() == 0x0002)
        return refusal(key, "file meta information cannot be changed by a soft edit");
    if (key.getGroup() == 0x7fe0)
        return refusal(key, "pixel data cannot be changed by a soft edit");
    if (key == DCM_SOPInstanceUID && level != CL_INSTANCE)
        return refusal(key, "can be changed at instance level only (it would give many objects one identity)");
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
    const DcmVR vr(tag.getEVR());
    // person names are limited per component group, which the value check below covers
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
    delete element;
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
