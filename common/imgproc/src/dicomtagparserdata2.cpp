#include "common/imgproc/src/dicomtagparserdata2.h"

SDicomTagParserData2::SDicomTagParserData2(unsigned int start, unsigned int count, const DcmTagKey& key,
                                           DicomTagHandler handler)
  : m_handler(handler)
{
    m_start = start;
    m_end = start + count;
    m_key = key;
}

bool SDicomTagParserData2::CheckTag(unsigned int element, IDicomTagParser2* parser, void* /* dynData */)
{
    if (m_start > element)
        return true;
    if (m_end <= element)
        return false;
    if (m_handler)
        m_handler(parser);
    return m_end != element + 1;
}

void* SDicomTagParserData2::InitTag()
{
    return nullptr;
}

void SDicomTagParserData2::ReleaseTagData(void* /* dynData */)
{
}
