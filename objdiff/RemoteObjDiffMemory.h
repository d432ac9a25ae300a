// A frame memory that reuses one buffer, for processing one frame at a time.
#ifndef REMOTEOBJDIFFMEMORY_H
#define REMOTEOBJDIFFMEMORY_H

#include "common/imgproc/src/imagememory.h"

/** A CImageMemory with one reusable buffer: a frame borrows it and gives it back with
 *  release(), and the next frame gets it again (enlarged when needed). A request made while
 *  the buffer is lent gets a separate array, freed by its release(). The buffer belongs to
 *  the memory; frames are not kept. */
class RemoteObjDiffMemory : public CImageMemory
{
public:
    /// No buffer yet.
    RemoteObjDiffMemory();
    /// Frees the buffer.
    ~RemoteObjDiffMemory() override;

    /** size bytes: the kept buffer when it is free (replaced by a larger one when too small),
     *  otherwise a separate array; null when memory is short. */
    char* allocate(unsigned int size, int index) override;
    /// The kept buffer becomes free again; any other array is freed.
    void release(char* data, unsigned int size, int index) override;
    /// data, unchanged.
    char* chunk(char* data, unsigned int offset, unsigned int size, int index) override;

    /// Bytes of the kept buffer (0 before the first allocation).
    unsigned int getCapacity() const { return m_capacity; }
    /// Whether the kept buffer is lent.
    bool isInUse() const { return m_inUse; }

private:
    char* m_buffer;
    unsigned int m_capacity;
    bool m_inUse;

    RemoteObjDiffMemory(const RemoteObjDiffMemory&);
    RemoteObjDiffMemory& operator=(const RemoteObjDiffMemory&);
};

#endif
