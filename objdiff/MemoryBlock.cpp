#include "objdiff/MemoryBlock.h"

#include <new>

MemoryBlock::MemoryBlock()
  : m_data(nullptr)
  , m_length(0)
{
}

MemoryBlock::~MemoryBlock()
{
    delete[] m_data;
}

char* MemoryBlock::allocate(unsigned int size)
{
    if (m_data != nullptr)
        return nullptr;
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
