// A DCMTK output stream into memory.
#ifndef DCMUTILS_STRINGOUTPUTSTREAM_H
#define DCMUTILS_STRINGOUTPUTSTREAM_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcostrma.h"

#include <string>

/** The consumer behind StringOutputStream: appends every byte to a borrowed string. */
class StringConsumer : public DcmConsumer
{
public:
    /** Borrows target, which must outlive the consumer. */
    explicit StringConsumer(std::string& target);
    OFBool good() const override { return OFTrue; }
    OFCondition status() const override { return EC_Normal; }
    OFBool isFlushed() const override { return OFTrue; }
    offile_off_t avail() const override;
    offile_off_t write(const void* buf, offile_off_t buflen) override;
    void flush() override {}

private:
    std::string& m_target;
};

/** An output stream for DcmFileFormat::write that collects the encoded object in a string, so
 *  that it can be written to its file in one piece and read back without touching the disk. */
class StringOutputStream : public DcmOutputStream
{
public:
    /** Borrows target; what is written is appended to it. */
    explicit StringOutputStream(std::string& target);

private:
    StringConsumer m_consumer;
};

#endif
