#include "dcmutils/softedit.h"

#include "privatetags/KQItem.h"
#include "datetime/OffsetAdjustedDataset.h"
#include "dcmutils/dcmutils.h"

#include "dcmtk/dcmdata/dcdeftag.h"

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

// Copies every element of a change item into the target, replacing what is there. The item's
// nested change sequence (element number nestedElement of its block, 0 for none) is not copied
// but handed back through nested.
OFCondition copyItemElements(DcmDataset& target, DcmItem& changeItem, KQItem* kq, unsigned short nestedElement,
                             DcmSequenceOfItems*& nested, std::list<DcmTagKey>* modified, bool nonImage)
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
        DcmElement* copy = copyElement(OFstatic_cast(DcmElement*, obj));
        if (!copy)
            return EC_CorruptedData;
        const OFCondition cond = target.insert(copy, OFTrue, OFFalse);
        if (cond.bad())
        {
            delete copy;
            return cond;
        }
        if (modified)
            modified->push_back(obj->getTag());
    }
    return EC_Normal;
}

// Finds the first item of seq whose uidKey equals the target's; none gives a null match.
OFCondition findMatchingItem(DcmDataset& target, DcmSequenceOfItems& seq, const DcmTagKey& uidKey,
                             DcmItem*& match)
{
    match = nullptr;
    OFString targetUID;
    OFCondition cond = target.findAndGetOFString(uidKey, targetUID, 0, OFFalse);
    if (cond == EC_TagNotFound)
        return EC_Normal;
    if (cond.bad())
        return cond;
    for (unsigned long i = 0; i < seq.card(); ++i)
    {
        DcmItem* item = seq.getItem(i);
        OFString uid;
        cond = item->findAndGetOFString(uidKey, uid, 0, OFFalse);
        if (cond.bad())
            return cond;
        if (uid == targetUID)
        {
            match = item;
            return EC_Normal;
        }
    }
    return EC_Normal;
}

} // namespace

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
    KQItem kq(changeItem);
    kq.calcPrivateBlock(false);
    return copyItemElements(target, changeItem, &kq, KQ_SERIES_SEQUENCE, seriesSequence, modified, nonImage);
}

OFCondition applySeriesModification(DcmDataset& target, DcmSequenceOfItems& seriesSequence,
                                    DcmSequenceOfItems*& instanceSequence, std::list<DcmTagKey>* modified,
                                    bool nonImage)
{
    DcmItem* match = nullptr;
    OFCondition cond = findMatchingItem(target, seriesSequence, DCM_SeriesInstanceUID, match);
    if (cond.bad() || !match)
        return cond;
    KQItem kq(*match);
    kq.calcPrivateBlock(false);
    return copyItemElements(target, *match, &kq, KQ_INSTANCE_SEQUENCE, instanceSequence, modified, nonImage);
}

OFCondition applyInstanceModification(DcmDataset& target, DcmSequenceOfItems& instanceSequence,
                                      std::list<DcmTagKey>* modified, bool nonImage)
{
    DcmItem* match = nullptr;
    OFCondition cond = findMatchingItem(target, instanceSequence, DCM_SOPInstanceUID, match);
    if (cond.bad() || !match)
        return cond;
    DcmSequenceOfItems* none = nullptr;
    return copyItemElements(target, *match, nullptr, 0, none, modified, nonImage);
}

OFCondition applyModifications(DcmDataset& target, DcmDataset& changes, std::list<DcmTagKey>* modified)
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

    // Bring the change dataset's dates and times to the target's UTC offset; the result is not
    // examined, and the adjuster (which puts TZ back) lives until this call returns.
    kqtz::OffsetAdjustedDataset adjuster(&changes);
    adjuster.adjust(target);

    OFString sopClass;
    target.findAndGetOFString(DCM_SOPClassUID, sopClass, 0, OFFalse);
    const bool nonImage = isNonImageSOPClass(sopClass.c_str());

    DcmSequenceOfItems* seriesSequence = nullptr;
    cond = applyStudyModification(target, *changeItem, seriesSequence, modified, nonImage);
    if (cond.bad() || !seriesSequence)
        return cond;
    DcmSequenceOfItems* instanceSequence = nullptr;
    cond = applySeriesModification(target, *seriesSequence, instanceSequence, modified, nonImage);
    if (cond.bad() || !instanceSequence)
        return cond;
    return applyInstanceModification(target, *instanceSequence, modified, nonImage);
}

OFCondition applyModifications(DcmDataset& target, DcmDataset& changes)
{
    return applyModifications(target, changes, nullptr);
}
