#include "objdiff/LocalObjDiffMemory.h"

#include <new>

LocalObjDiffMemory::LocalObjDiffMemory()
{
}

LocalObjDiffMemory::~LocalObjDiffMemory()
{
    for (FrameMap::value_type& entry : m_frames)
        delete entry.second;
}

MemoryBlock* LocalObjDiffMemory::blockFor(int index)
{
    FrameMap::iterator found = m_frames.find(index);
    if (found != m_frames.end())
        return found->second;
    MemoryBlock* block = new (std::nothrow) MemoryBlock();
    if (block != nullptr)
        m_frames[index] = block;
    return block;
}

char* LocalObjDiffMemory::allocate(unsigned int size, int index)
{
    MemoryBlock* block = blockFor(index);
    return block != nullptr ? block->allocate(size) : nullptr;
}

void LocalObjDiffMemory::release(char* /* data */, unsigned int /* size */, int /* index */)
{
}

char* LocalObjDiffMemory::chunk(char* /* data */, unsigned int /* offset */, unsigned int size, int index)
{
    MemoryBlock* block = blockFor(index);
    return block != nullptr ? block->chunk(size) : nullptr;
}
