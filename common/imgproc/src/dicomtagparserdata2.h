// One registered tag handler: a leaf of a group node of the tag handler registry.
#ifndef DICOMTAGPARSERDATA2_H
#define DICOMTAGPARSERDATA2_H

#include "common/imgproc/src/dicomtagparserdata.h"

/** A handler for the element numbers [m_start, m_end) of its group node. For a private group
 *  the range holds element offsets inside the creator's block (the low byte). */
class SDicomTagParserData2 : public IDicomTagParserData
{
public:
    /// Handler for elements start .. start + count - 1; key is the tag as registered.
    SDicomTagParserData2(unsigned int start, unsigned int count, const DcmTagKey& key, DicomTagHandler handler);

    /** element is the element number alone. Before the range: true, nothing called; past it:
     *  false. Inside it: calls the handler and returns whether elements of the range remain
     *  after this one. dynData is ignored. */
    bool CheckTag(unsigned int element, IDicomTagParser2* parser, void* dynData) override;
    /// Leaves need no cursor: null.
    void* InitTag() override;
    /// Nothing to release.
    void ReleaseTagData(void* dynData) override;

    /// The registered handler.
    DicomTagHandler m_handler;
};

#endif
