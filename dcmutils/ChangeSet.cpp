#include "dcmutils/ChangeSet.h"

#include "privatetags/KQItem.h"

#include "dcmtk/dcmdata/dcdeftag.h"

namespace {

// The nested change sequence of an item (element number e of its "KQ group A" block), or null.
DcmSequenceOfItems* nestedSequence(DcmItem& item, unsigned short e)
{
    KQItem kq(item);
    kq.calcPrivateBlock(false);
    for (DcmObject* obj = item.nextInContainer(nullptr); obj; obj = item.nextInContainer(obj))
        if (kq.isObjectOurPrivateElement(obj, e) && obj->ident() == EVR_SQ)
            return OFstatic_cast(DcmSequenceOfItems*, obj);
    return nullptr;
}

std::string uidOf(DcmItem& item, const DcmTagKey& key)
{
    OFString uid;
    item.findAndGetOFString(key, uid, 0, OFFalse);
    return uid.c_str();
}

} // namespace

ChangeSet::ChangeSet(DcmDataset& changes) : m_charset(changes)
{
    KQItem kq(changes);
    DcmItem* changeItem = nullptr;
    if (kq.findAndGetKQSequenceItem(KQ_CHANGE_SEQUENCE, changeItem, 0).bad() || !changeItem)
        return;
    DcmSequenceOfItems* series = nestedSequence(*changeItem, KQ_SERIES_SEQUENCE);
    for (DcmObject* s = series ? series->nextInContainer(nullptr) : nullptr; s; s = series->nextInContainer(s))
    {
        DcmItem& seriesItem = *OFstatic_cast(DcmItem*, s);
        Item item;
        item.uid = item.seriesUID = uidOf(seriesItem, DCM_SeriesInstanceUID);
        m_seriesAt.push_back(m_items.size());
        m_items.push_back(item);
        DcmSequenceOfItems* instances = nestedSequence(seriesItem, KQ_INSTANCE_SEQUENCE);
        for (DcmObject* i = instances ? instances->nextInContainer(nullptr) : nullptr; i;
             i = instances->nextInContainer(i))
        {
            Item instance;
            instance.instance = true;
            instance.seriesUID = item.seriesUID;
            instance.uid = uidOf(*OFstatic_cast(DcmItem*, i), DCM_SOPInstanceUID);
            m_items.push_back(instance);
        }
    }
}

OFCondition ChangeSet::apply(DcmDataset& target, SoftEditOutcome& outcome, std::string& refusal)
{
    OFString targetCharset;
    target.findAndGetOFStringArray(DCM_SpecificCharacterSet, targetCharset, OFFalse);
    DcmDataset* changes = m_charset.changesFor(targetCharset, refusal);
    if (!changes)
        return EC_Normal;
    std::unique_ptr<ChangeSetIndex>& index = m_indexes[changes];
    if (!index)
        index.reset(new ChangeSetIndex);
    const OFCondition cond = applySoftEdit(target, *changes, index.get(), outcome);
    if (outcome.seriesItem >= 0 && size_t(outcome.seriesItem) < m_seriesAt.size())
    {
        const size_t series = m_seriesAt[size_t(outcome.seriesItem)];
        ++m_items[series].matches;
        if (outcome.instanceItem >= 0 && series + 1 + size_t(outcome.instanceItem) < m_items.size())
            ++m_items[series + 1 + size_t(outcome.instanceItem)].matches;
    }
    return cond;
}
