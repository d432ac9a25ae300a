// A DCMTK output stream over an open file descriptor, writing in large pieces.
#ifndef DCMUTILS_DESCRIPTOROUTPUTSTREAM_H
#define DCMUTILS_DESCRIPTOROUTPUTSTREAM_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcostrma.h"

#include <sys/types.h>

#include <vector>

/** The consumer behind DescriptorOutputStream: collects the stream's bytes in a buffer of 1 MiB
 *  and writes it with write(2), so that a file is written in few system calls; the write-out of a
 *  long file to the disk is started as it grows (sync_file_range, every 32 MiB). The first failed
 *  write is kept as the status, with the system's error text.
 */
class DescriptorConsumer : public DcmConsumer
{
public:
    /** Borrows fd, which stays open. */
    explicit DescriptorConsumer(int fd);
    OFBool good() const override;
    OFCondition status() const override;
    OFBool isFlushed() const override;
    offile_off_t avail() const override;
    offile_off_t write(const void* buf, offile_off_t buflen) override;
    void flush() override;

private:
    /// counts written bytes and starts the write-out of each full step
    void wrote(size_t count);

    int m_fd;
    std::vector<char> m_buffer;
    size_t m_used;
    OFCondition m_status;
    /// the file position, and up to where the write-out was started (-1: not a seekable file)
    off_t m_position;
    off_t m_writtenOut;
};

/** An output stream for DcmFileFormat::write onto a descriptor (the descriptor is not closed). */
class DescriptorOutputStream : public DcmOutputStream
{
public:
    explicit DescriptorOutputStream(int fd);

    /** Writes out what the consumer still holds; the stream's own flush reaches the consumer
     *  only through a compression filter's buffer. */
    void drain() { m_consumer.flush(); }

    /** The first failed write, with the system's error text; EC_Normal while all went well. */
    OFCondition writeStatus() const { return m_consumer.status(); }

    /** True when every byte given to the stream has reached the descriptor. */
    bool allWritten() const { return m_consumer.isFlushed(); }

private:
    DescriptorConsumer m_consumer;
};

#endif
