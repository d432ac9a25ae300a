// One decoded frame held by the comparison.
#ifndef MEMORYBLOCK_H
#define MEMORYBLOCK_H

/** The buffer of one frame: a byte array owned by the block and the length of its content.
 *  The image pipeline allocates it once, then declares the final length (never more than
 *  was allocated); the block keeps the bytes until it is destroyed. */
class MemoryBlock
{
public:
    /// An empty block: no data, length 0.
    MemoryBlock();
    /// Frees the data.
    ~MemoryBlock();

    /** Allocates size bytes (content undefined) and records size as the length; null when the
     *  block already has data or no memory is available. The block keeps the array. */
    char* allocate(unsigned int size);
    /// Lowers the recorded length to size when it is larger; returns the data (null if none).
    char* chunk(unsigned int size);
    /// Nothing: the data lives as long as the block.
    void release();

    /// The bytes (owned by the block), null before allocate().
    char* getData() const { return m_data; }
    /// Bytes of content.
    unsigned int getLength() const { return m_length; }

private:
    char* m_data;
    unsigned int m_length;
    /// Bytes mapped from the system for a large frame (0: m_data came from new[]).
    unsigned long m_mapped;

    MemoryBlock(const MemoryBlock&);
    MemoryBlock& operator=(const MemoryBlock&);
};

#endif
