// The series and instance items of one KqR change dataset, found by their UIDs through maps made
// once, so that applying a change set to every object of a large study costs no walk over its
// items per object.
#ifndef DCMUTILS_CHANGESETINDEX_H
#define DCMUTILS_CHANGESETINDEX_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcitem.h"
#include "dcmtk/dcmdata/dcsequen.h"
#include "dcmtk/ofstd/ofcond.h"

#include <map>
#include <memory>
#include <string>

/** Finds the item of a series or instance sequence that applies to a UID exactly as a walk over
 *  the items in their order would: the first item with an equal UID wins (later duplicates are
 *  ignored), and an item whose UID cannot be read before it (or anywhere, when none matches)
 *  fails the look-up with that item's read condition. Borrows the sequences, which must outlive
 *  the index; their values are not changed by it.
 */
class ChangeSetIndex
{
public:
    /** Where a look-up ended. */
    struct Match
    {
        /// the applying item (null: none applies), borrowed from the sequence
        DcmItem* item = nullptr;
        /// its position in the sequence, -1 for none
        long position = -1;
    };

    ChangeSetIndex();

    /** The item of seq whose (uidKey) value equals uid.
     *  @param seq a series (key SeriesInstanceUID) or instance (key SOPInstanceUID) sequence
     *  @param match set to the applying item, or left empty when none applies
     *  @return EC_Normal, or the read failure of an item without its UID met first */
    OFCondition find(DcmSequenceOfItems& seq, const DcmTagKey& uidKey, const OFString& uid, Match& match);

private:
    /// the map of one sequence: first position of each UID, and the first unreadable item
    struct SequenceMap
    {
        std::map<std::string, std::pair<long, DcmItem*>> first;
        long unreadable = -1;
        OFCondition unreadableCondition;
    };

    std::map<DcmSequenceOfItems*, std::unique_ptr<SequenceMap>> m_maps;
};

#endif
