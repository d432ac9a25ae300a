// The tag handler registry: group nodes sorted by their first tag.
#ifndef DICOMTAGGROUPLIST_H
#define DICOMTAGGROUPLIST_H

#include "common/imgproc/src/dicomtagparserdata.h"

class SDicomTagParserGroupData;

/** Registry of tag handlers, built once and used by any number of walks
 *  (CDicomTagParser2::parseTags). Owns its group nodes. */
class SDicomTagGroupList
{
public:
    /// An empty registry; calls initFunction(), which reaches only the empty version here.
    SDicomTagGroupList();
    /// Deletes every node (ReleaseTags()).
    virtual ~SDicomTagGroupList();
    /// Registers the table of a derived registry; empty here. Derived classes call it from
    /// their own constructor.
    virtual void initFunction();

    /** Registers handler for key. flags: low 16 bits = number of consecutive elements from
     *  key's element, high 16 bits = number of consecutive groups the group node covers (used
     *  only when the node is created). creator is the private creator of an odd group (kept by
     *  pointer, must outlive the registry) and is ignored for even groups. For odd groups the
     *  element is reduced to its low byte: (F215,001D) and (F215,101D) register alike. */
    void addTag(const DcmTagKey& key, DicomTagHandler handler, const char* creator, unsigned int flags);
    /// Deletes all group nodes and their entries; the registry is empty afterwards.
    void ReleaseTags();

    /// Head of the group node list, sorted by ascending start.
    SDicomTagParserGroupData* m_groups;

private:
    SDicomTagGroupList(const SDicomTagGroupList&);
    SDicomTagGroupList& operator=(const SDicomTagGroupList&);
};

#endif
