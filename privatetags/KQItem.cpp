// KQItem: finding and reserving the block, tag functions, typed accessors and insertion.
#include "privatetags/KQItem.h"
#include "privatetags/KQLog.h"
#include "privatetags/KQPrivateTagUtil.h"

#include "dcmtk/dcmdata/dcelem.h"

makeOFConditionConst(EC_KQPrivateTagProblem, 1051, 3840, OF_error, "KQItem Private Tag Relocation Error");

using namespace kqprivate;

namespace {

const unsigned short firstCreatorSlot = 0x10;
const unsigned short lastCreatorSlot = 0xFF;

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
        for (DcmObject* entry = seq->nextInContainer(NULL); entry != NULL; entry = seq->nextInContainer(entry))
        {
            DcmItem* sub = OFstatic_cast(DcmItem*, entry);
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
    KQLog::message("%s", message);
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

    // A legacy element of a block that is ours goes in under its canonical number; a refused
    // element goes back to the caller as it came.
    // Retagged before inserting: retagging an inserted element could leave two elements with one tag.
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
        for (DcmObject* obj = seq->nextInContainer(NULL); obj != NULL; obj = seq->nextInContainer(obj))
            handlePrivateTags(OFstatic_cast(DcmItem*, obj));
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

