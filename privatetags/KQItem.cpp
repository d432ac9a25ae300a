#include "privatetags/KQItem.h"
#include "privatetags/KQLog.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcelem.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <cstring>
#include <unistd.h>

makeOFConditionConst(EC_KQPrivateTagProblem, 1051, 3840, OF_error, "KQItem Private Tag Relocation Error");

std::map<DcmTagKey, unsigned short> KQItem::m_privateKeyMap;
bool KQItem::m_isMapCreated = false;

namespace {

const unsigned short legacyBlockBA = 0xBA;
const unsigned short legacyBlockDA = 0xDA;
const unsigned short firstCreatorSlot = 0x10;
const unsigned short lastCreatorSlot = 0xFF;

struct LegacyEntry
{
    Uint16 element;
    unsigned short canonic;
};

// Legacy element numbers in group F215 and the canonical numbers they stand for.
// The numbering of the old releases is irregular; the table keeps it as it was.
const LegacyEntry legacyEntries[] = {
    // block BA
    {0xBA00, 0x10}, {0xBA01, 0x01}, {0xBA02, 0x02}, {0xBA03, 0x03}, {0xBA04, 0x04}, {0xBA05, 0x05},
    {0xBA06, 0x06}, {0xBA07, 0x07}, {0xBA11, 0x11}, {0xBA12, 0x12}, {0xBA21, 0x13}, {0xBA22, 0x14},
    {0xBA31, 0x0E}, {0xBA41, 0x1A}, {0xBA42, 0x1B}, {0xBA51, 0x15}, {0xBA52, 0x16}, {0xBA53, 0x17},
    {0xBA54, 0x18}, {0xBA61, 0x2A}, {0xBA62, 0x2B}, {0xBA71, 0x21}, {0xBA72, 0x22}, {0xBA73, 0x23},
    {0xBA74, 0x24}, {0xBA75, 0x25}, {0xBA81, 0x31}, {0xBA82, 0x32}, {0xBA83, 0x33}, {0xBA91, 0x34},
    {0xBA92, 0x35}, {0xBA93, 0x36}, {0xBA94, 0x94}, {0xBAA0, 0x37}, {0xBAA1, 0x38}, {0xBABA, 0x1D},
    // block DA
    {0xDA01, 0x41}, {0xDA02, 0x42}, {0xDA03, 0x43}, {0xDA04, 0x44}, {0xDA11, 0x51}, {0xDA12, 0x52},
    {0xDA13, 0x53}, {0xDA14, 0x54}, {0xDA15, 0x55}, {0xDA21, 0x61}, {0xDA31, 0x62}, {0xDA32, 0x63},
    {0xDA33, 0x64}, {0xDA38, 0x65}, {0xDA41, 0x6A}, {0xDA42, 0x6B}, {0xDA43, 0x6C}, {0xDA51, 0x71},
    {0xDA52, 0x72}, {0xDA53, 0x73}, {0xDA61, 0x76}, {0xDA62, 0x7A}, {0xDA63, 0x7B}, {0xDA71, 0x0A},
    {0xDA72, 0x0B}, {0xDA73, 0x0C}, {0xDA74, 0x0D}, {0xDA80, 0x3A}, {0xDADA, 0x1E},
    // canonical block 10
    {0x10A5, 0xA5}, {0x10A6, 0xA6}, {0x10A8, 0xA8},
};

unsigned short blockOf(const DcmTagKey& key)
{
    return key.getElement() >> 8;
}

bool isLegacyBlock(unsigned short block)
{
    return block == legacyBlockBA || block == legacyBlockDA;
}

// Canonical number of a legacy key; false when the key is not in the map.
bool findCanonic(const DcmTagKey& key, unsigned short& canonic)
{
    KQItem::createMap();
    std::map<DcmTagKey, unsigned short>::const_iterator it = KQItem::m_privateKeyMap.find(key);
    if (it == KQItem::m_privateKeyMap.end())
        return false;
    canonic = it->second;
    return true;
}

// Gives an element a new element number in our block. The element must not be inside an
// item at that moment, since items keep their elements sorted by tag.
void retag(DcmObject& object, Uint16 element)
{
    // The tag is a plain member of the element; DCMTK offers no setter for the element number.
    DcmTag& tag = OFconst_cast(DcmTag&, object.getTag());
    tag.setElement(element);
    tag.setPrivateCreator(KQ_PRIVATE_CREATOR);
}

bool readsAsCreator(const char* value, const char* creator)
{
    return value != NULL && strcmp(value, creator) == 0;
}

// Runs a look-up in every item of every top-level sequence of an item, each over its own
// block, until one gives anything but "not found".
template <class Lookup>
OFCondition searchSubItems(DcmItem& item, Lookup lookup)
{
    for (DcmObject* obj = item.nextInContainer(NULL); obj != NULL; obj = item.nextInContainer(obj))
    {
        if (obj->ident() != EVR_SQ)
            continue;
        DcmSequenceOfItems* seq = OFstatic_cast(DcmSequenceOfItems*, obj);
        for (unsigned long i = 0; i < seq->card(); ++i)
        {
            DcmItem* sub = seq->getItem(i);
            if (sub == NULL)
                continue;
            KQItem subItem(*sub);
            OFCondition cond = lookup(subItem);
            if (cond != EC_TagNotFound)
                return cond;
        }
    }
    return EC_TagNotFound;
}

} // namespace

KQItem::KQItem(DcmItem& item)
    : m_item(item)
    , m_base(0)
    , m_reserved(false)
    , m_calculated(false)
{
    createMap();
}

DcmTag KQItem::blockTag(unsigned short e) const
{
    return DcmTag(KQ_PRIVATE_GROUP, OFstatic_cast(Uint16, m_base | e), KQ_PRIVATE_CREATOR);
}

// --- block management ---

bool KQItem::calcPrivateBlock(bool relocateCanonic)
{
    if (m_calculated)
        return true;
    for (unsigned short block = firstCreatorSlot; block <= lastCreatorSlot; ++block)
    {
        const char* value = NULL;
        OFCondition cond = m_item.findAndGetString(DcmTagKey(KQ_PRIVATE_GROUP, block), value, OFFalse);
        if (cond == EC_TagNotFound)
        {
            // first free slot: ours, written on the first write
            m_base = OFstatic_cast(unsigned short, block << 8);
            m_calculated = true;
            return relocateLegacyPrivateTags(relocateCanonic);
        }
        if (cond.bad())
            return false;
        if (readsAsCreator(value, KQ_PRIVATE_CREATOR))
        {
            m_base = OFstatic_cast(unsigned short, block << 8);
            m_reserved = true;
            m_calculated = true;
            return relocateLegacyPrivateTags(relocateCanonic);
        }
    }
    return false;
}

bool KQItem::checkAndReservePrivateBlock()
{
    if (m_reserved)
        return true;
    if (!m_calculated)
        return false;
    DcmTag creator(KQ_PRIVATE_GROUP, OFstatic_cast(Uint16, m_base >> 8));
    m_reserved = m_item.putAndInsertString(creator, KQ_PRIVATE_CREATOR, OFTrue).good();
    return m_reserved;
}

int KQItem::checkPrivateCreatorElement(DcmObject* obj)
{
    if (m_calculated)
        return 1;
    if (obj == NULL)
        return 0;
    const DcmTag& tag = obj->getTag();
    if (tag.getGroup() != KQ_PRIVATE_GROUP || tag.getElement() >= 0x100)
        return 0;
    DcmElement* element = dynamic_cast<DcmElement*>(obj);
    char* value = NULL;
    if (element == NULL || element->getString(value).bad())
        return 0;
    if (!readsAsCreator(value, KQ_PRIVATE_CREATOR))
        return 3;
    m_base = OFstatic_cast(unsigned short, tag.getElement() << 8);
    m_reserved = true;
    m_calculated = true;
    return 2;
}

bool KQItem::isOldBlockOurs(int block)
{
    const char* value = NULL;
    OFCondition cond =
        m_item.findAndGetString(DcmTagKey(KQ_PRIVATE_GROUP, OFstatic_cast(Uint16, block)), value, OFFalse);
    // Only a readable creator naming someone else makes the block foreign.
    return !(cond.good() && value != NULL && strcmp(value, KQ_LEGACY_CREATOR) != 0);
}

bool KQItem::relocateLegacyPrivateTags(bool relocateCanonic)
{
    const bool blockBA = isOldBlockOurs(legacyBlockBA);
    const bool blockDA = isOldBlockOurs(legacyBlockDA);
    DcmItem moved;

    DcmObject* obj = m_item.nextInContainer(NULL);
    while (obj != NULL)
    {
        DcmObject* next = m_item.nextInContainer(obj);
        const DcmTagKey key = obj->getTag();
        if (key.getGroup() == KQ_PRIVATE_GROUP)
        {
            const unsigned short block = blockOf(key);
            if ((block == legacyBlockBA && blockBA) || (block == legacyBlockDA && blockDA))
            {
                DcmElement* element = m_item.remove(obj);
                unsigned short canonic = 0;
                if (element != NULL && findCanonic(key, canonic))
                {
                    retag(*element, OFstatic_cast(Uint16, m_base | canonic));
                    if (moved.insert(element, OFFalse, OFFalse).bad())
                        delete element;
                }
                else
                {
                    // no canonical number: the element has no place in the current block
                    delete element;
                }
            }
            else if (block == KQ_CANONICAL_BLOCK && relocateCanonic)
            {
                DcmElement* element = m_item.remove(obj);
                if (element != NULL)
                {
                    retag(*element, OFstatic_cast(Uint16, (key.getElement() & 0xFF) | m_base));
                    if (moved.insert(element, OFFalse, OFFalse).bad())
                        delete element;
                }
            }
        }
        obj = next;
    }

    if (blockBA)
        delete m_item.remove(DcmTagKey(KQ_PRIVATE_GROUP, legacyBlockBA));
    if (blockDA)
        delete m_item.remove(DcmTagKey(KQ_PRIVATE_GROUP, legacyBlockDA));

    if (moved.card() > 0)
    {
        if (!checkAndReservePrivateBlock())
            return false;
        while (moved.card() > 0)
        {
            DcmElement* element = moved.remove(0UL);
            // an element already present under the new tag wins; the moved one is dropped
            if (m_item.insert(element, OFFalse, OFFalse).bad())
                delete element;
        }
    }
    return true;
}

void KQItem::nukePrivateTags()
{
    if (!calcPrivateBlock(false) || m_base == 0)
        return;
    DcmObject* obj = m_item.nextInContainer(NULL);
    while (obj != NULL)
    {
        DcmObject* next = m_item.nextInContainer(obj);
        if (obj->getTag().getGroup() == KQ_PRIVATE_GROUP)
            delete m_item.remove(obj);
        obj = next;
    }
    m_base = 0;
}

// --- tag functions ---

DcmTag KQItem::canonicTag(unsigned short e)
{
    return DcmTag(KQ_PRIVATE_GROUP, OFstatic_cast(Uint16, e | 0x1000), KQ_PRIVATE_CREATOR);
}

bool KQItem::isOurPrivateCreator(const DcmTag& tag)
{
    return tag.getGroup() == KQ_PRIVATE_GROUP && tag.getElement() >= 0x0010 && tag.getElement() <= 0x00FF;
}

bool KQItem::isOurPrivateTagKey(const DcmTagKey& key)
{
    return key.getGroup() == KQ_PRIVATE_GROUP && key.getElement() > 0x0FFF;
}

bool KQItem::isOurPrivateTag(const DcmTag& tag)
{
    const Uint16 group = tag.getGroup();
    // any odd group: a "KQ group A" element is ours wherever its creator put it
    return (group & 1) != 0 && group >= 0x0009 && group <= 0xFFFE &&
           readsAsCreator(tag.getPrivateCreator(), KQ_PRIVATE_CREATOR);
}

DcmElement* KQItem::createNewDicomElement(const DcmTagKey& key)
{
    return DcmItem::newDicomElement(key, KQ_PRIVATE_CREATOR);
}

bool KQItem::isObjectOurPrivateElement(DcmObject* obj, unsigned short e)
{
    if (obj == NULL)
        return false;
    const DcmTag& tag = obj->getTag();
    return tag.getGroup() == KQ_PRIVATE_GROUP && tag.getElement() == (m_base | e);
}

DcmTag KQItem::getTag(unsigned short e)
{
    calcPrivateBlock(false);
    checkAndReservePrivateBlock();
    return blockTag(e);
}

OFCondition KQItem::getTag(unsigned short e, DcmTag& tag)
{
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    if (!reserveOrLog("couldn't reserve"))
        return EC_KQPrivateTagProblem;
    tag = blockTag(e);
    return EC_Normal;
}

// --- typed accessors ---

// Settles the block, logging "couldn't calc" when that is impossible.
bool KQItem::calcOrLog()
{
    if (calcPrivateBlock(false))
        return true;
    KQLog::message("couldn't calc");
    return false;
}

// Makes sure the creator element exists, logging the caller's message when it cannot.
bool KQItem::reserveOrLog(const char* message)
{
    if (checkAndReservePrivateBlock())
        return true;
    KQLog::message(message);
    return false;
}

OFCondition KQItem::findAndGetKQString(unsigned short e, const char*& value, bool searchIntoSub)
{
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    OFCondition cond = m_item.findAndGetString(blockTag(e), value, OFFalse);
    if (cond == EC_TagNotFound && searchIntoSub)
        cond = searchSubItems(m_item, [e, &value](KQItem& sub) { return sub.findAndGetKQString(e, value, true); });
    return cond;
}

OFCondition KQItem::findAndGetKQElement(unsigned short e, DcmElement*& element, bool searchIntoSub)
{
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    OFCondition cond = m_item.findAndGetElement(blockTag(e), element, OFFalse);
    if (cond == EC_TagNotFound && searchIntoSub)
        cond = searchSubItems(m_item,
                              [e, &element](KQItem& sub) { return sub.findAndGetKQElement(e, element, true); });
    return cond;
}

OFCondition KQItem::findAndGetKQSequence(unsigned short e, DcmSequenceOfItems*& seq, bool searchIntoSub)
{
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    OFCondition cond = m_item.findAndGetSequence(blockTag(e), seq, OFFalse);
    if (cond == EC_TagNotFound && searchIntoSub)
        cond = searchSubItems(m_item, [e, &seq](KQItem& sub) { return sub.findAndGetKQSequence(e, seq, true); });
    return cond;
}

OFCondition KQItem::findAndGetKQSequenceItem(unsigned short e, DcmItem*& item, long itemNum)
{
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    return m_item.findAndGetSequenceItem(blockTag(e), item, itemNum, OFFalse);
}

OFCondition KQItem::findOrCreateKQSequenceItem(unsigned short e, DcmItem*& item, long itemNum)
{
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    if (!reserveOrLog("couldn't reserve"))
        return EC_KQPrivateTagProblem;
    return m_item.findOrCreateSequenceItem(blockTag(e), item, itemNum);
}

OFCondition KQItem::putAndInsertKQString(unsigned short e, const char* value, bool replaceOld)
{
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    if (!reserveOrLog("couln't reserve"))
        return EC_KQPrivateTagProblem;
    return m_item.putAndInsertString(blockTag(e), value, replaceOld);
}

OFCondition KQItem::putAndInsertKQUint8Array(unsigned short e, const Uint8* data, unsigned long count,
                                             bool replaceOld)
{
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    if (!reserveOrLog("couldn't reserve"))
        return EC_KQPrivateTagProblem;
    return m_item.putAndInsertUint8Array(blockTag(e), data, count, replaceOld);
}

OFCondition KQItem::putAndInsertKQUint16Array(unsigned short e, const Uint16* data, unsigned long count,
                                              bool replaceOld)
{
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    if (!reserveOrLog("couldn't reserve"))
        return EC_KQPrivateTagProblem;
    return m_item.putAndInsertUint16Array(blockTag(e), data, count, replaceOld);
}

OFCondition KQItem::insertKQEmptyElement(unsigned short e, bool replaceOld)
{
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    if (!reserveOrLog("couldn't reserve"))
        return EC_KQPrivateTagProblem;
    return m_item.insertEmptyElement(blockTag(e), replaceOld);
}

DcmElement* KQItem::removeKQ(unsigned short e)
{
    if (!calcPrivateBlock(false))
    {
        KQLog::message("couldn't calc");
        return NULL;
    }
    return m_item.remove(blockTag(e));
}

// --- element insertion ---

OFCondition KQItem::insertKQ(DcmElement* element, bool replaceOld, bool checkInsertOrder)
{
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    if (!reserveOrLog("couldn't reserve"))
        return EC_KQPrivateTagProblem;
    if (element == NULL)
        return m_item.insert(element, replaceOld, checkInsertOrder);

    // A legacy element of a block that is ours goes in under its canonical number. The new
    // tag is given before the insertion so that the item stays in tag order; a refused
    // element goes back to the caller as it came.
    const DcmTag original = element->getTag();
    unsigned short canonic = 0;
    const bool relocate = original.getGroup() == KQ_PRIVATE_GROUP && isLegacyBlock(blockOf(original)) &&
                          isOldBlockOurs(blockOf(original)) && findCanonic(original, canonic);
    if (relocate)
        retag(*element, OFstatic_cast(Uint16, m_base | canonic));
    OFCondition cond = m_item.insert(element, replaceOld, checkInsertOrder);
    if (relocate && cond.bad())
        OFconst_cast(DcmTag&, element->getTag()) = original;
    return cond;
}

OFCondition KQItem::copyPrivateElement(DcmElement& source, bool replaceOld)
{
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    DcmElement* clone = OFstatic_cast(DcmElement*, source.clone());
    if (clone == NULL)
    {
        KQLog::message("couldn't clone");
        return EC_KQPrivateTagProblem;
    }
    const DcmTagKey key = clone->getTag();
    if (key.getGroup() == KQ_PRIVATE_GROUP)
    {
        if (!checkAndReservePrivateBlock())
        {
            KQLog::message("couln't reserve");
            delete clone;
            return EC_KQPrivateTagProblem;
        }
        unsigned short canonic = 0;
        if (findCanonic(key, canonic))
            retag(*clone, OFstatic_cast(Uint16, m_base | canonic));
    }
    if (m_item.insert(clone, replaceOld, OFFalse).bad())
    {
        // an existing element is kept when replacing is not wanted
        delete clone;
        return EC_Normal;
    }
    if (clone->ident() == EVR_SQ)
    {
        DcmSequenceOfItems* seq = OFstatic_cast(DcmSequenceOfItems*, clone);
        for (unsigned long i = 0; i < seq->card(); ++i)
            handlePrivateTags(seq->getItem(i));
    }
    return EC_Normal;
}

OFCondition KQItem::adjustPrivateTag(DcmTagKey& key)
{
    if (key.getGroup() != KQ_PRIVATE_GROUP)
        return EC_Normal;
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    if (!reserveOrLog("couldn't reserve"))
        return EC_KQPrivateTagProblem;
    key.setElement(OFstatic_cast(Uint16, key.getElement() | m_base));
    return EC_Normal;
}

// --- canonical map and legacy relocation ---

void KQItem::createMap()
{
    if (m_isMapCreated)
        return;
    for (const LegacyEntry& entry : legacyEntries)
        m_privateKeyMap[DcmTagKey(KQ_PRIVATE_GROUP, entry.element)] = entry.canonic;
    m_isMapCreated = true;
}

DcmTagKey KQItem::getCanonicKey(const DcmTag& tag)
{
    DcmTagKey key = tag.getXTag();
    if (key.getGroup() != KQ_PRIVATE_GROUP)
        return key;
    if (!isLegacyBlock(blockOf(key)))
        return DcmTagKey(KQ_PRIVATE_GROUP, OFstatic_cast(Uint16, (key.getElement() & 0xFF) | 0x1000));
    unsigned short canonic = 0;
    if (findCanonic(key, canonic))
        return DcmTagKey(KQ_PRIVATE_GROUP, OFstatic_cast(Uint16, canonic | 0x1000));
    return key;
}

OFCondition KQItem::convertTag(DcmTag& tag)
{
    if (tag.getGroup() != KQ_PRIVATE_GROUP || !isLegacyBlock(blockOf(tag)))
        return EC_Normal;
    if (!calcOrLog())
        return EC_KQPrivateTagProblem;
    if (!reserveOrLog("couln't reserve"))
        return EC_KQPrivateTagProblem;
    unsigned short canonic = 0;
    if (findCanonic(tag, canonic))
    {
        tag.setElement(OFstatic_cast(Uint16, m_base | canonic));
        tag.setPrivateCreator(KQ_PRIVATE_CREATOR);
        tag.lookupVRinDictionary();
    }
    return EC_Normal;
}

void KQItem::checkAndUpdateCanonicPrivateTag(DcmItem* item, unsigned short group, unsigned short& element)
{
    if (item == NULL || group != KQ_PRIVATE_GROUP || (element & 0xFF00) != 0x1000)
        return;
    KQItem kq(*item);
    DcmTag tag;
    if (kq.getTag(element & 0xFF, tag).good())
        element = tag.getElement();
}

void KQItem::checkAndUpdateCanonicPrivateTag(DcmItem* item, DcmTag& tag)
{
    if (item == NULL || tag.getGroup() != KQ_PRIVATE_GROUP || (tag.getElement() & 0xFF00) != 0x1000)
        return;
    KQItem kq(*item);
    DcmTag blockTag;
    if (kq.getTag(tag.getElement() & 0xFF, blockTag).good())
    {
        tag.setElement(blockTag.getElement());
        tag.setPrivateCreator(KQ_PRIVATE_CREATOR);
        tag.lookupVRinDictionary();
    }
}

namespace {

// Settles the block of an item and of every item nested in it, each on its own.
void relocateTree(DcmItem* item, bool relocateCanonic)
{
    if (item == NULL)
        return;
    KQItem kq(*item);
    if (!kq.calcPrivateBlock(relocateCanonic))
        KQLog::message("Error: couldn't calculate private block");
    for (DcmObject* obj = item->nextInContainer(NULL); obj != NULL; obj = item->nextInContainer(obj))
    {
        if (obj->ident() != EVR_SQ)
            continue;
        DcmSequenceOfItems* seq = OFstatic_cast(DcmSequenceOfItems*, obj);
        for (unsigned long i = 0; i < seq->card(); ++i)
            relocateTree(seq->getItem(i), relocateCanonic);
    }
}

} // namespace

void KQItem::handlePrivateTags(DcmItem* item)
{
    relocateTree(item, false);
}

void KQItem::handleCanonicAndOldPrivateTags(DcmItem* item)
{
    relocateTree(item, true);
}

bool KQItem::convertFilePrivateTags(const char* inFile, const char* outFile)
{
    if (inFile == NULL || access(inFile, R_OK) != 0)
    {
        KQLog::message("Error: couldn't access file:%s", inFile ? inFile : "");
        return false;
    }
    DcmFileFormat file;
    // long values stay in the file until loadAllDataIntoMemory() below
    if (file.loadFile(inFile, EXS_Unknown, EGL_noChange, 4096, ERM_autoDetect).bad())
    {
        KQLog::message("Error: file not loaded!");
        return false;
    }
    if (file.loadAllDataIntoMemory().bad())
    {
        KQLog::message("Error: file not loaded!");
        return false;
    }
    handlePrivateTags(file.getDataset());
    if (outFile == NULL || file.saveFile(outFile, EXS_Unknown, EET_ExplicitLength, EGL_recalcGL, EPD_noChange, 0, 0,
                                         EWM_createNewMeta)
                               .bad())
    {
        KQLog::message("Error: couldn't create file:%s", outFile ? outFile : "");
        return false;
    }
    return true;
}
