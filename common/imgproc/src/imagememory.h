// The buffer provider of the image pipeline.
#ifndef IMAGEMEMORY_H
#define IMAGEMEMORY_H

/** Supplies the buffers of the image pipeline: decoded frames (index = frame number, 1 for the
 *  first frame) and extracted objects (index = the object's kind, e.g. 1 for a document).
 *  Buffers belong to the memory object; the pipeline only borrows them. A process never frees
 *  its memory object: whoever installs it keeps it alive for the process's lifetime.
 *
 *  The raw image of a frame calls, in order: allocate() once with the largest size the frame
 *  can need, chunk() once with the final length of its content (offset 0), and release() when
 *  it is done with the buffer. */
class CImageMemory
{
public:
    /// Nothing to release here.
    virtual ~CImageMemory() {}
    /// A buffer of at least size bytes for the frame or object index; null when none can be had.
    virtual char* allocate(unsigned int size, int index) = 0;
    /// The pipeline is done with data (size bytes, as allocated for index).
    virtual void release(char* data, unsigned int size, int index) = 0;
    /** The content of data is size bytes from offset: a memory that keeps buffers may shorten
     *  the recorded length. Returns the buffer to go on with (data unless the memory moves it). */
    virtual char* chunk(char* data, unsigned int offset, unsigned int size, int index) = 0;
};

#endif
