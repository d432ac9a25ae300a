// The handlers of one private creator in one odd group of the tag handler registry.
#ifndef DICOMTAGPRIVATEGROUPDATA_H
#define DICOMTAGPRIVATEGROUPDATA_H

#include "common/imgproc/src/dicomtaggroupdata.h"

/// The walk's cursor in a private group node: the public cursor and the matched block.
struct SDicomTagParserPrivateGroupDataDynData : public SDicomTagParserGroupDataDynData
{
    /// Low byte of the creator element whose value matched, 0xFFFFFFFF while none has.
    unsigned int m_block = 0xFFFFFFFFu;
};

/** All handlers of one private creator in one odd group. Entries are keyed by the element's
 *  offset in the block (its low byte). Data elements of the group are dispatched once a creator
 *  element of the group carrying m_creator has been visited in the walk. */
class SDicomTagParserPrivateGroupData : public SDicomTagParserGroupData
{
public:
    /// creator is kept by pointer and must outlive the node (the program passes literals).
    SDicomTagParserPrivateGroupData(unsigned short group, unsigned int groupCount, const char* creator);

    /** Creator elements (element high byte 0) are compared with m_creator; data elements are
     *  dispatched by their low byte once a creator matched. */
    bool CheckTag(unsigned int tag, IDicomTagParser2* parser, void* dynData) override;
    /// A new SDicomTagParserPrivateGroupDataDynData, owned by the caller.
    void* InitTag() override;
    /// Deletes a cursor made by InitTag() (null allowed).
    void ReleaseTagData(void* dynData) override;
    /// True for even groups.
    bool FilteredTag(unsigned int tag) override;

    /// The private creator of this node (not copied).
    const char* m_creator;
};

#endif
