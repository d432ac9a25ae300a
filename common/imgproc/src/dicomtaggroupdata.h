// The handlers of one run of public groups in the tag handler registry, with its per-walk cursor.
#ifndef DICOMTAGGROUPDATA_H
#define DICOMTAGGROUPDATA_H

#include "common/imgproc/src/dicomtagparserdata.h"

class SDicomTagParserData2;

/// Where a walk stands in a group node's entries; made by InitTag(), one per walk.
struct SDicomTagParserGroupDataDynData
{
    /// Entry where the scan stands (null once all entries are passed).
    SDicomTagParserData2* m_current = nullptr;
    /// Entry whose element range is still open, or null.
    SDicomTagParserData2* m_active = nullptr;
    /// Copy of the current entry's range.
    unsigned int m_currentStart = 0;
    unsigned int m_currentEnd = 0;
    /// Group part of the last tag seen (its low 16 bits clear); 0 at first.
    unsigned int m_group = 0;
};

/** All handlers registered for the groups [m_start >> 16, m_end >> 16) (one node can cover a
 *  run of groups, e.g. the overlay groups 6000-60FF). Owns its entries, kept sorted by element
 *  with registration order kept among equal elements. Odd groups inside the range are ignored. */
class SDicomTagParserGroupData : public IDicomTagParserData
{
public:
    /// A node for groupCount groups from group.
    SDicomTagParserGroupData(unsigned short group, unsigned int groupCount);
    /// Deletes every entry (removeAllTags()).
    ~SDicomTagParserGroupData() override;

    /** Adds one handler leaf for the elements [key & 0xFFFF, + count); tag is kept as the
     *  leaf's key, name is not stored. The leaf goes after every entry with a start at or
     *  below its own. */
    void addTag(unsigned int key, const DcmTagKey& tag, DicomTagHandler handler, const char* name, unsigned int count);
    /// Deletes every entry; the node is empty afterwards.
    void removeAllTags();

    /** Dispatches tag to the entries covering its element; dynData is this walk's cursor.
     *  Returns false once the node's range is over for this walk. */
    bool CheckTag(unsigned int tag, IDicomTagParser2* parser, void* dynData) override;
    /// A new SDicomTagParserGroupDataDynData, owned by the caller.
    void* InitTag() override;
    /// Deletes a cursor made by InitTag() (null allowed).
    void ReleaseTagData(void* dynData) override;
    /// True for tags that the node ignores although they lie in its range: odd groups.
    virtual bool FilteredTag(unsigned int tag);

    /// Head of the sorted entry list.
    SDicomTagParserData2* m_entries;

protected:
    /// Puts the cursor at the first entry for the group of tag.
    void resetCursor(SDicomTagParserGroupDataDynData& cursor, unsigned int tag);

private:
    /// Steps through the entries up to the element of tag, calling those that cover it.
    bool scanEntries(unsigned int tag, IDicomTagParser2* parser, SDicomTagParserGroupDataDynData& cursor);
    /// Whether groups of the range remain after the group of tag.
    bool moreGroups(unsigned int tag) const;
};

#endif
