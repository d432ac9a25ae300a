// One opened file as the source of a DICOM parse: read through its descriptor (never reopened by
// name) or from a copy of its bytes in memory, and never beyond the size it had when it was opened.
#ifndef DCMUTILS_INPUTFILE_H
#define DCMUTILS_INPUTFILE_H

#include "dcmutils/ByteBuffer.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/ofcond.h"

#include <memory>

/** The bytes of one file for DescriptorInputStream and the stream factories that the toolkit
 *  keeps for values it loads later. Shared (std::shared_ptr) by every stream and factory made
 *  from it, so the descriptor stays open, and the file it names readable, as long as any
 *  element may still load a value from it, even after the file's name was replaced or removed.
 *  Reads are positional (pread), so several threads may read at once.
 */
class InputFile
{
public:
    /** Takes ownership of an open descriptor (closed with the last reference).
     *  @param fd the open file
     *  @param size the bytes that belong to the file: its size when it was opened */
    InputFile(int fd, unsigned long long size);
    /** Bytes already in memory (moved in), with no descriptor behind them. */
    explicit InputFile(ByteBuffer&& bytes);
    /** Closes the descriptor. */
    ~InputFile();

    /** Reads the whole file into memory, so that later reads cost no system call. Must be called
     *  before the file is shared with streams. A file found shorter than its size at open counts
     *  as that shorter file.
     *  @return EC_Normal, or a condition with the system's error text */
    OFCondition readWhole();

    /** Copies up to count bytes at offset into buffer, never past size().
     *  @param endReached set to true when the end of the file was met (not on a read error)
     *  @return the bytes copied; fewer than asked at the end of the file or on a read error */
    size_t read(unsigned long long offset, void* buffer, size_t count, bool& endReached) const;

    /** The file's size in bytes, as opened (or as read whole). */
    unsigned long long size() const { return m_size; }
    /** The descriptor, -1 for bytes held only in memory; owned by this object. */
    int fd() const { return m_fd; }
    /** True when the bytes are held in memory. */
    bool inMemory() const { return m_bytes.data() != nullptr || m_size == 0; }
    /** The bytes in memory (null unless inMemory()). */
    const char* bytes() const { return m_bytes.data(); }

private:
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    int m_fd;
    unsigned long long m_size;
    ByteBuffer m_bytes;
};

#endif
