// A DCMTK output stream into memory.
#ifndef DCMUTILS_BUFFEROUTPUTSTREAM_H
#define DCMUTILS_BUFFEROUTPUTSTREAM_H

#include "dcmutils/ByteBuffer.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcostrma.h"

/** The consumer behind BufferOutputStream: appends every byte to a borrowed buffer. */
class BufferConsumer : public DcmConsumer
{
public:
    /** Borrows target, which must outlive the consumer. */
    explicit BufferConsumer(ByteBuffer& target) : m_target(target) {}
    OFBool good() const override { return OFTrue; }
    OFCondition status() const override { return EC_Normal; }
    OFBool isFlushed() const override { return OFTrue; }
    offile_off_t avail() const override { return OFstatic_cast(offile_off_t, 1) << 30; }
    offile_off_t write(const void* buf, offile_off_t buflen) override
    {
        m_target.append(buf, OFstatic_cast(size_t, buflen));
        return buflen;
    }
    void flush() override {}

private:
    ByteBuffer& m_target;
};

/** An output stream for DcmFileFormat::write that collects the encoded object in memory, so that
 *  it can be written to its file in one piece and read back without touching the disk. */
class BufferOutputStream : public DcmOutputStream
{
public:
    /** Borrows target; what is written is appended to it. */
    explicit BufferOutputStream(ByteBuffer& target) : DcmOutputStream(&m_consumer), m_consumer(target) {}

private:
    BufferConsumer m_consumer;
};

#endif
