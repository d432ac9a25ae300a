#include "common/imgproc/src/encapsulateddocument.h"

#include <cstring>

CEncapsulatedDocument::CEncapsulatedDocument(CImageProcess* process, DOCUMENT_TYPE type, unsigned int length)
  : CExtractedData(process, EXTRACTED_DOCUMENT)
  , m_documentType(type)
{
    m_length = length;
}

bool CEncapsulatedDocument::init()
{
    return allocateBuffer(m_length, static_cast<int>(m_kind));
}

int CEncapsulatedDocument::postProcess()
{
    if (m_buffer == nullptr)
        return 1;
    return m_documentType != DOCUMENT_TYPE_NONE ? 0 : 1;
}

void CEncapsulatedDocument::addContent(const unsigned char* bytes, unsigned int n)
{
    if (m_buffer != nullptr && bytes != nullptr && n == m_length)
        memcpy(m_buffer, bytes, n);
}
