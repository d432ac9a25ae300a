/** @file softedit.h
 *  Applies a soft edit, the study-, series- and instance-level attribute changes recorded in a
 *  KqR change dataset, to one dataset in memory.
 *
 *  The change dataset holds, in its "KQ group A" block (group F215, see KQItem), item 0 of the
 *  change sequence KQ_CHANGE_SEQUENCE: the study-level attributes. That item's sequence
 *  KQ_SERIES_SEQUENCE holds one item per series, matched by Series Instance UID (0020,000E);
 *  each series item's sequence KQ_INSTANCE_SEQUENCE holds one item per instance, matched by
 *  SOP Instance UID (0008,0018). Each item settles its own private block. A soft edit only
 *  inserts or replaces attributes; every attribute of an applying item is copied (its matching
 *  UID included), except its nested change sequence and its private creator elements: a private
 *  element goes into the target's own block of its creator.
 *
 *  Nothing is printed here; callers report the returned conditions. A failure part way leaves
 *  the target partly changed: callers then write nothing. No pointer handed out is owned by
 *  the caller: the sequences returned point into the change dataset.
 */
#ifndef SOFTEDIT_H
#define SOFTEDIT_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcsequen.h"

#include <list>
#include <string>
#include <vector>

/// Element number (in the "KQ group A" block) of the change sequence of a KqR dataset.
#define KQ_CHANGE_SEQUENCE 0x62
/// Element number of the series sequence inside the change item.
#define KQ_SERIES_SEQUENCE 0x63
/// Element number of the instance sequence inside a series item.
#define KQ_INSTANCE_SEQUENCE 0x64

class ChangeSetIndex;

/// One attribute a soft edit wrote into a target.
struct SoftEditChange
{
    /// the key written (a private element: in the target's own block of its creator)
    DcmTagKey key;
    /// the value the target held (DCMTK's string form; empty when it had none) and the one written
    std::string before;
    std::string after;
    /// true when the target held the attribute
    bool existed = false;
    /// true when what was written differs from what the target held (value or VR)
    bool changed = false;
};

/// What applying a change set did to one target; filled by applySoftEdit().
struct SoftEditOutcome
{
    /// every key written, in the order written (a key may appear more than once)
    std::list<DcmTagKey> modified;
    /// every attribute written, in the order written
    std::vector<SoftEditChange> changes;
    /// ask for the values before and after in changes (a report); without it only the keys and
    /// whether each value changed are recorded
    bool describe = false;
    /// true when the change set holds a change item (study level applies to every object)
    bool studyLevel = false;
    /// the series item and the instance item that applied: position in their sequence (-1 for
    /// none) and UID
    long seriesItem = -1;
    OFString seriesUID;
    long instanceItem = -1;
    OFString instanceUID;

    /** True when some attribute's value changed: a target for which it is false would be
     *  written back as it was. */
    bool changed() const;
};

/** Applies the soft edit of a change dataset to a target as applyModifications() does, and tells
 *  what it did: every attribute written with its value before and after, and which items
 *  applied. Private elements of the change set go into the target's own block of their creator
 *  (see applyModifications()).
 *  @param index finds the series and instance items of this change dataset; the caller keeps it
 *    over a run (null: the items are looked up by a walk over them)
 *  @param outcome filled; owned by the caller
 *  @return as applyModifications() */
OFCondition applySoftEdit(DcmDataset& target, DcmDataset& changes, ChangeSetIndex* index, SoftEditOutcome& outcome);

/** Applies the soft edit of a change dataset to a target dataset. The change dataset's dates
 *  and times are first brought to the target's Timezone Offset From UTC (0008,0201) (see
 *  kqtz::OffsetAdjustedDataset; this changes the change dataset, and its result is not
 *  examined), then the study level, the matching series item and the matching instance item
 *  are applied in that order. Objects of the non-image SOP classes (SR, presentation states,
 *  registrations, encapsulated PDF, ...) keep their own Modality at every level. A private
 *  element goes into the target's block of its private creator (the block already holding that
 *  creator, or the first free one from 0x10, whose creator element is then written and recorded
 *  too); the change set's own creator elements are not copied, so that no private element of the
 *  target ever changes owner.
 *  @param target the dataset to change
 *  @param changes the KqR dataset; its dates and times may be rewritten
 *  @param modified when not null, receives the key of every attribute written, in the order
 *    written (a key may appear more than once); the list is owned by the caller
 *  @return EC_Normal when applied or when there is nothing to apply (no change sequence or no
 *    item 0); EC_CorruptedData for an attribute that cannot be copied (see copyElement()) or
 *    a nested change sequence of another VR; EC_TagNotFound (or another read error) for a
 *    series or instance item without its matching UID; the failed insertion's or KQItem's
 *    condition otherwise
 */
OFCondition applyModifications(DcmDataset& target, DcmDataset& changes, std::list<DcmTagKey>* modified);

/// applyModifications() without a list of modified keys.
OFCondition applyModifications(DcmDataset& target, DcmDataset& changes);

/** Applies the study level: every attribute of the change item.
 *  @param seriesSequence receives the change item's series sequence, or stays null
 *  @param nonImage true to skip Modality (0008,0060)
 *  @return as applyModifications()
 */
OFCondition applyStudyModification(DcmDataset& target, DcmItem& changeItem, DcmSequenceOfItems*& seriesSequence,
                                   std::list<DcmTagKey>* modified, bool nonImage);

/** Applies the first series item whose Series Instance UID equals the target's. A target
 *  without Series Instance UID is left alone (EC_Normal).
 *  @param instanceSequence receives the matching item's instance sequence, or stays null
 *  @return as applyModifications()
 */
OFCondition applySeriesModification(DcmDataset& target, DcmSequenceOfItems& seriesSequence,
                                    DcmSequenceOfItems*& instanceSequence, std::list<DcmTagKey>* modified,
                                    bool nonImage);

/** Applies the first instance item whose SOP Instance UID equals the target's. A target
 *  without SOP Instance UID is left alone (EC_Normal).
 *  @return as applyModifications()
 */
OFCondition applyInstanceModification(DcmDataset& target, DcmSequenceOfItems& instanceSequence,
                                      std::list<DcmTagKey>* modified, bool nonImage);

/** True for the ten non-image SOP classes whose objects keep their own Modality under a soft
 *  edit (Basic Text, Enhanced, Comprehensive and Mammography CAD SR, Key Object Selection,
 *  Grayscale Softcopy Presentation State, Encapsulated PDF, Spatial Registration, Deformable
 *  Spatial Registration, Spatial Fiducials). False for null.
 */
bool isNonImageSOPClass(const char* sopClassUID);

#endif
