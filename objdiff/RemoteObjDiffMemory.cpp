#include "objdiff/RemoteObjDiffMemory.h"

#include <new>

RemoteObjDiffMemory::RemoteObjDiffMemory()
  : m_buffer(nullptr)
  , m_capacity(0)
  , m_inUse(false)
{
}

RemoteObjDiffMemory::~RemoteObjDiffMemory()
{
    delete[] m_buffer;
}

char* RemoteObjDiffMemory::allocate(unsigned int size, int /* index */)
{
    if (m_buffer != nullptr && m_inUse)
        return new (std::nothrow) char[size];
    if (m_buffer != nullptr && m_capacity >= size)
    {
        m_inUse = true;
        return m_buffer;
    }
    delete[] m_buffer;
    m_buffer = new (std::nothrow) char[size];
    m_capacity = m_buffer != nullptr ? size : 0;
    m_inUse = m_buffer != nullptr;
    return m_buffer;
}

void RemoteObjDiffMemory::release(char* data, unsigned int /* size */, int /* index */)
{
    if (data == m_buffer)
        m_inUse = false;
    else
        delete[] data;
}

char* RemoteObjDiffMemory::chunk(char* data, unsigned int /* offset */, unsigned int /* size */, int /* index */)
{
    return data;
}
