#include "dcmutils/softedit.h"

#include "datetime/OffsetAdjustedDataset.h"
#include "dcmutils/ChangeSetIndex.h"
#include "dcmutils/dcmutils.h"
#include "privatetags/KQItem.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcvrlo.h"

#include <cstdio>
#include <cstring>

namespace {

// Objects of these SOP classes keep their own Modality (SR, PR, REG, ...) under a soft edit.
const char* const nonImageSOPClasses[] = {
    "1.2.840.10008.5.1.4.1.1.88.11", // Basic Text SR
    "1.2.840.10008.5.1.4.1.1.88.33", // Comprehensive SR
    "1.2.840.10008.5.1.4.1.1.66.3",  // Deformable Spatial Registration
    "1.2.840.10008.5.1.4.1.1.104.1", // Encapsulated PDF
    "1.2.840.10008.5.1.4.1.1.88.22", // Enhanced SR
    "1.2.840.10008.5.1.4.1.1.11.1",  // Grayscale Softcopy Presentation State
    "1.2.840.10008.5.1.4.1.1.88.59", // Key Object Selection Document
    "1.2.840.10008.5.1.4.1.1.88.50", // Mammography CAD SR
    "1.2.840.10008.5.1.4.1.1.66.1",  // Spatial Registration
    "1.2.840.10008.5.1.4.1.1.66.2",  // Spatial Fiducials
};

} // namespace

makeOFConditionConst(EC_NoFreePrivateBlock, OFM_dcmdata, 0x7f01, OF_error,
                     "no free private block for the creator of a private element");

namespace {

// Where the applied attributes are recorded; either list may be absent.
struct Record
{
    std::list<DcmTagKey>* modified = nullptr;
    std::vector<SoftEditChange>* changes = nullptr;
    bool describe = false;
};

// A value as text for a report: the string form, or the number of items of a sequence.
std::string valueText(DcmElement* element)
{
    if (!element)
        return std::string();
    if (element->ident() == EVR_SQ)
        return "(" + std::to_string(OFstatic_cast(DcmSequenceOfItems*, element)->card()) + " items)";
    OFString text;
    if (element->isaString() || element->ident() == EVR_US || element->ident() == EVR_SS ||
        element->ident() == EVR_UL || element->ident() == EVR_SL || element->ident() == EVR_FL ||
        element->ident() == EVR_FD || element->ident() == EVR_AT)
        element->getOFStringArray(text);
    else
        text = ("(" + std::to_string(element->getLength()) + " bytes)").c_str();
    return text.c_str();
}

// Inserts element into the target in place of what it holds under the same key, and records it.
OFCondition insertAndRecord(DcmDataset& target, DcmElement* element, Record& record)
{
    DcmElement* existing = nullptr;
    target.findAndGetElement(element->getTag(), existing, OFFalse);
    SoftEditChange change;
    change.key = element->getTag();
    change.existed = existing != nullptr;
    if (record.describe)
    {
        change.before = valueText(existing);
        change.after = valueText(element);
    }
    change.changed = !existing || existing->ident() != element->ident() || existing->compare(*element) != 0;
    const OFCondition cond = target.insert(element, OFTrue, OFFalse);
    if (cond.bad())
        return cond;
    if (record.modified)
        record.modified->push_back(change.key);
    if (record.changes)
        record.changes->push_back(change);
    return EC_Normal;
}

// The element number of a private element of the change set in the target: the target's block
// of the same creator in that group, the one already holding it or else the first free slot from
// 0x10, whose creator element is then inserted (and recorded). A private element is so never put
// into a block of another creator, whatever block number the change set used for it.
OFCondition placePrivateElement(DcmDataset& target, DcmElement& copy, Record& record)
{
    const DcmTagKey key = copy.getTag();
    const char* named = copy.getTag().getPrivateCreator();
    if (!named || !*named)
        return EC_CorruptedData; // without its creator it has no place
    // a copy: the tag's own string goes when the tag is changed below
    const OFString creator(named);
    Uint16 block = 0;
    Uint16 free = 0;
    for (Uint16 slot = 0x10; slot <= 0xff && !block; ++slot)
    {
        OFString holder;
        if (target.findAndGetOFString(DcmTagKey(key.getGroup(), slot), holder, 0, OFFalse).bad())
        {
            if (!free && !target.tagExists(DcmTagKey(key.getGroup(), slot), OFFalse))
                free = slot;
        }
        else if (holder == creator)
            block = slot;
    }
    if (!block)
    {
        if (!free)
            return EC_NoFreePrivateBlock;
        block = free;
        DcmElement* reservation = new DcmLongString(DcmTag(key.getGroup(), block, EVR_LO));
        reservation->putString(creator.c_str());
        const OFCondition cond = insertAndRecord(target, reservation, record);
        if (cond.bad())
        {
            delete reservation;
            return cond;
        }
    }
    // the tag is a plain member of the element; DCMTK offers no setter for the element number
    DcmTag& tag = OFconst_cast(DcmTag&, copy.getTag());
    tag.setElement(OFstatic_cast(Uint16, (block << 8) | (key.getElement() & 0xff)));
    tag.setPrivateCreator(creator.c_str());
    return EC_Normal;
}

// Copies every element of a change item into the target, replacing what is there. The item's
// nested change sequence (element number nestedElement of its block, 0 for none) is not copied
// but handed back through nested.
OFCondition copyItemElements(DcmDataset& target, DcmItem& changeItem, KQItem* kq, unsigned short nestedElement,
                             DcmSequenceOfItems*& nested, Record& record, bool nonImage)
{
    for (DcmObject* obj = changeItem.nextInContainer(nullptr); obj; obj = changeItem.nextInContainer(obj))
    {
        if (kq && kq->isObjectOurPrivateElement(obj, nestedElement))
        {
            // A damaged KqR file may carry this tag with another VR, which must not be read as a sequence.
            if (obj->ident() != EVR_SQ)
                return EC_CorruptedData;
            nested = OFstatic_cast(DcmSequenceOfItems*, obj);
            continue;
        }
        if (nonImage && obj->getTag() == DCM_Modality)
            continue;
        // Creator elements are written where a private element needs one: copied as they are, they
        // would give the target's own private elements of that block to another creator.
        if (obj->getTag().isPrivateReservation())
            continue;
        DcmElement* copy = copyElement(OFstatic_cast(DcmElement*, obj));
        if (!copy)
            return EC_CorruptedData;
        OFCondition cond = copy->getTag().isPrivate() ? placePrivateElement(target, *copy, record) : EC_Normal;
        if (cond.good())
            cond = insertAndRecord(target, copy, record);
        if (cond.bad())
        {
            delete copy;
            return cond;
        }
    }
    return EC_Normal;
}

// Finds the first item of seq whose uidKey equals the target's, through the index when there is
// one; none gives a null match.
OFCondition findMatchingItem(DcmDataset& target, DcmSequenceOfItems& seq, const DcmTagKey& uidKey,
                             ChangeSetIndex* index, ChangeSetIndex::Match& match, OFString& targetUID)
{
    match = ChangeSetIndex::Match();
    OFCondition cond = target.findAndGetOFString(uidKey, targetUID, 0, OFFalse);
    if (cond == EC_TagNotFound)
        return EC_Normal;
    if (cond.bad())
        return cond;
    if (index)
        return index->find(seq, uidKey, targetUID, match);
    ChangeSetIndex walk;
    return walk.find(seq, uidKey, targetUID, match);
}

OFCondition applySeries(DcmDataset& target, DcmSequenceOfItems& seriesSequence, DcmSequenceOfItems*& instanceSequence,
                        Record& record, bool nonImage, ChangeSetIndex* index, SoftEditOutcome* outcome)
{
    ChangeSetIndex::Match match;
    OFString uid;
    OFCondition cond = findMatchingItem(target, seriesSequence, DCM_SeriesInstanceUID, index, match, uid);
    if (cond.bad() || !match.item)
        return cond;
    if (outcome)
    {
        outcome->seriesItem = match.position;
        outcome->seriesUID = uid;
    }
    KQItem kq(*match.item);
    kq.calcPrivateBlock(false);
    return copyItemElements(target, *match.item, &kq, KQ_INSTANCE_SEQUENCE, instanceSequence, record, nonImage);
}

OFCondition applyInstance(DcmDataset& target, DcmSequenceOfItems& instanceSequence, Record& record, bool nonImage,
                          ChangeSetIndex* index, SoftEditOutcome* outcome)
{
    ChangeSetIndex::Match match;
    OFString uid;
    OFCondition cond = findMatchingItem(target, instanceSequence, DCM_SOPInstanceUID, index, match, uid);
    if (cond.bad() || !match.item)
        return cond;
    if (outcome)
    {
        outcome->instanceItem = match.position;
        outcome->instanceUID = uid;
    }
    DcmSequenceOfItems* none = nullptr;
    return copyItemElements(target, *match.item, nullptr, 0, none, record, nonImage);
}

OFCondition applyStudy(DcmDataset& target, DcmItem& changeItem, DcmSequenceOfItems*& seriesSequence, Record& record,
                       bool nonImage)
{
    KQItem kq(changeItem);
    kq.calcPrivateBlock(false);
    return copyItemElements(target, changeItem, &kq, KQ_SERIES_SEQUENCE, seriesSequence, record, nonImage);
}

} // namespace

bool SoftEditOutcome::changed() const
{
    for (const SoftEditChange& change : changes)
        if (change.changed)
            return true;
    return false;
}

bool isNonImageSOPClass(const char* sopClassUID)
{
    if (!sopClassUID)
        return false;
    for (const char* uid : nonImageSOPClasses)
        if (strcmp(uid, sopClassUID) == 0)
            return true;
    return false;
}

OFCondition applyStudyModification(DcmDataset& target, DcmItem& changeItem, DcmSequenceOfItems*& seriesSequence,
                                   std::list<DcmTagKey>* modified, bool nonImage)
{
    Record record;
    record.modified = modified;
    return applyStudy(target, changeItem, seriesSequence, record, nonImage);
}

OFCondition applySeriesModification(DcmDataset& target, DcmSequenceOfItems& seriesSequence,
                                    DcmSequenceOfItems*& instanceSequence, std::list<DcmTagKey>* modified,
                                    bool nonImage)
{
    Record record;
    record.modified = modified;
    return applySeries(target, seriesSequence, instanceSequence, record, nonImage, nullptr, nullptr);
}

OFCondition applyInstanceModification(DcmDataset& target, DcmSequenceOfItems& instanceSequence,
                                      std::list<DcmTagKey>* modified, bool nonImage)
{
    Record record;
    record.modified = modified;
    return applyInstance(target, instanceSequence, record, nonImage, nullptr, nullptr);
}

OFCondition applySoftEdit(DcmDataset& target, DcmDataset& changes, ChangeSetIndex* index, SoftEditOutcome& outcome)
{
    KQItem kq(changes);
    DcmItem* changeItem = nullptr;
    OFCondition cond = kq.findAndGetKQSequenceItem(KQ_CHANGE_SEQUENCE, changeItem, 0);
    if (cond == EC_TagNotFound)
        return EC_Normal;
    if (cond.bad())
        return cond;
    if (!changeItem)
        return EC_Normal;
    outcome.studyLevel = true;

    // Bring the change dataset's dates and times to the target's UTC offset; the result is not
    // examined, and the adjuster (which puts TZ back) lives until this call returns.
    kqtz::OffsetAdjustedDataset adjuster(&changes);
    adjuster.adjust(target);

    OFString sopClass;
    target.findAndGetOFString(DCM_SOPClassUID, sopClass, 0, OFFalse);
    const bool nonImage = isNonImageSOPClass(sopClass.c_str());

    Record record;
    record.modified = &outcome.modified;
    record.changes = &outcome.changes;
    record.describe = outcome.describe;
    DcmSequenceOfItems* seriesSequence = nullptr;
    cond = applyStudy(target, *changeItem, seriesSequence, record, nonImage);
    if (cond.bad() || !seriesSequence)
        return cond;
    DcmSequenceOfItems* instanceSequence = nullptr;
    cond = applySeries(target, *seriesSequence, instanceSequence, record, nonImage, index, &outcome);
    if (cond.bad() || !instanceSequence)
        return cond;
    return applyInstance(target, *instanceSequence, record, nonImage, index, &outcome);
}

OFCondition applyModifications(DcmDataset& target, DcmDataset& changes, std::list<DcmTagKey>* modified)
{
    SoftEditOutcome outcome;
    const OFCondition cond = applySoftEdit(target, changes, nullptr, outcome);
    if (modified)
        modified->splice(modified->end(), outcome.modified);
    return cond;
}

OFCondition applyModifications(DcmDataset& target, DcmDataset& changes)
{
    return applyModifications(target, changes, nullptr);
}
