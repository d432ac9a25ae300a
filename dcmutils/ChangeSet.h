// A KqR file's change set as a run applies it to object after object: in each object's character
// set, at each object's UTC offset, its items found through an index, and counted.
#ifndef DCMUTILS_CHANGESET_H
#define DCMUTILS_CHANGESET_H

#include "dcmutils/ChangeSetCharset.h"
#include "dcmutils/ChangeSetIndex.h"
#include "dcmutils/softedit.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

/** The one engine of applyChanges and its preview: for each object, the change dataset in the
 *  object's Specific Character Set (ChangeSetCharset), then applySoftEdit() with an index of its
 *  items made once per change dataset; every series and instance item counts the objects it
 *  applied to. Prints nothing. Borrows the KqR dataset, which must outlive it.
 */
class ChangeSet
{
public:
    /** A series or instance item of the change set and the objects it applied to. */
    struct Item
    {
        /// true for an instance item (of the series seriesUID), false for a series item
        bool instance = false;
        std::string seriesUID;
        /// the item's own UID (SOP Instance UID, or Series Instance UID)
        std::string uid;
        /// the objects it applied to so far
        unsigned long matches = 0;
    };

    /** Borrows the KqR dataset and lists its series and instance items. */
    explicit ChangeSet(DcmDataset& changes);

    /** Applies the change set to target, converted to the target's Specific Character Set.
     *  @param outcome filled (see applySoftEdit()); set its describe field for the values
     *  @param refusal set to one line (naming the attribute and the character sets) when a value
     *    cannot be represented in the target's character set; nothing is applied then
     *  @return applySoftEdit()'s condition; EC_Normal with a refusal set */
    OFCondition apply(DcmDataset& target, SoftEditOutcome& outcome, std::string& refusal);

    /** The series and instance items in the order of the KqR file, with their counts. */
    const std::vector<Item>& items() const { return m_items; }

private:
    ChangeSetCharset m_charset;
    /// an index for each change dataset handed out by m_charset
    std::map<DcmDataset*, std::unique_ptr<ChangeSetIndex>> m_indexes;
    std::vector<Item> m_items;
    /// where the items of a series item (by position) start in m_items
    std::vector<size_t> m_seriesAt;
};

#endif
