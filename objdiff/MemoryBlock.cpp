#include "objdiff/MemoryBlock.h"

#include <sys/mman.h>

#include <new>

namespace {

// Frames from this size on are mapped with their pages already in place: one system call
// instead of a page fault for every 4 KiB that the decoder then writes.
const unsigned int MAPPED_SIZE = 256 * 1024;

} // namespace

MemoryBlock::MemoryBlock()
  : m_data(nullptr)
  , m_length(0)
  , m_mapped(0)
{
}

MemoryBlock::~MemoryBlock()
{
    if (m_mapped != 0)
        munmap(m_data, m_mapped);
    else
        delete[] m_data;
}

char* MemoryBlock::allocate(unsigned int size)
{
    if (m_data != nullptr)
        return nullptr;
    if (size >= MAPPED_SIZE)
    {
        void* mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
        if (mapped != MAP_FAILED)
        {
            m_data = static_cast<char*>(mapped);
            m_mapped = size;
        }
    }
    if (m_data == nullptr)
        m_data = new (std::nothrow) char[size];
    m_length = m_data != nullptr ? size : 0;
    return m_data;
}

char* MemoryBlock::chunk(unsigned int size)
{
    if (m_length > size)
        m_length = size;
    return m_data;
}

void MemoryBlock::release()
{
}
