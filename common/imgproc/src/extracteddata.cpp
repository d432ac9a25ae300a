#include "common/imgproc/src/extracteddata.h"
#include "common/imgproc/src/imagememory.h"
#include "common/imgproc/src/imageprocess.h"

CExtractedData::CExtractedData(CImageProcess* process, unsigned int kind)
  : m_process(process)
  , m_buffer(nullptr)
  , m_length(0)
  , m_kind(kind)
  , m_capacity(0)
  , m_memoryIndex(0)
{
}

CExtractedData::~CExtractedData()
{
    CImageMemory* memory = m_process ? m_process->getImageMemory() : nullptr;
    if (m_buffer != nullptr && memory != nullptr)
        memory->release(reinterpret_cast<char*>(m_buffer), m_capacity, m_memoryIndex);
}

bool CExtractedData::allocateBuffer(unsigned int size, int index)
{
    CImageMemory* memory = m_process ? m_process->getImageMemory() : nullptr;
    if (memory == nullptr || m_buffer != nullptr)
        return false;
    m_buffer = reinterpret_cast<unsigned char*>(memory->allocate(size, index));
    if (m_buffer == nullptr)
        return false;
    m_capacity = size;
    m_memoryIndex = index;
    return true;
}
