// The comparison's frame memory: every decoded frame kept until the memory goes.
#ifndef LOCALOBJDIFFMEMORY_H
#define LOCALOBJDIFFMEMORY_H

#include "common/imgproc/src/imagememory.h"
#include "objdiff/MemoryBlock.h"

#include <map>

/** A CImageMemory that keeps one MemoryBlock per frame index (1 for the first frame) for as
 *  long as it lives, so that the frames of a whole object can be read after the image process
 *  has finished. The blocks belong to the memory. */
class LocalObjDiffMemory : public CImageMemory
{
public:
    /// Frame index to its block (owned by the memory).
    typedef std::map<int, MemoryBlock*> FrameMap;

    /// No frames yet.
    LocalObjDiffMemory();
    /// Deletes every block.
    ~LocalObjDiffMemory() override;

    /** The buffer of frame index, size bytes, from a new block; null when the frame already
     *  has one or memory is short. */
    char* allocate(unsigned int size, int index) override;
    /// Nothing: frames are kept until the memory is destroyed.
    void release(char* data, unsigned int size, int index) override;
    /** Records size as the final length of frame index (an unknown index gets an empty
     *  block); returns the frame's data, null when it has none. */
    char* chunk(char* data, unsigned int offset, unsigned int size, int index) override;

    /// The frames held, by index.
    const FrameMap& getFrames() const { return m_frames; }

private:
    MemoryBlock* blockFor(int index);

    FrameMap m_frames;

    LocalObjDiffMemory(const LocalObjDiffMemory&);
    LocalObjDiffMemory& operator=(const LocalObjDiffMemory&);
};

#endif
