// A DCMTK input stream over an InputFile, with the producer and the stream factory behind it.
#ifndef DCMUTILS_DESCRIPTORINPUTSTREAM_H
#define DCMUTILS_DESCRIPTORINPUTSTREAM_H

#include "dcmutils/InputFile.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcistrma.h"

#include <memory>

/** Produces an InputFile's bytes as the toolkit's file producer produces a file's: the end of
 *  the stream is the end of the file (never a suspension), a skip stops at the end, and a put
 *  back before the start fails. So a parse from it reports what DcmFileFormat::loadFile would
 *  report for that file, with the same log lines.
 */
class DescriptorProducer : public DcmProducer
{
public:
    /** Starts at offset of the shared file. */
    DescriptorProducer(std::shared_ptr<const InputFile> file, offile_off_t offset);
    OFBool good() const override;
    OFCondition status() const override;
    OFBool eos() override;
    offile_off_t avail() override;
    offile_off_t read(void* buf, offile_off_t buflen) override;
    offile_off_t skip(offile_off_t skiplen) override;
    void putback(offile_off_t num) override;

private:
    std::shared_ptr<const InputFile> m_file;
    unsigned long long m_position;
    bool m_endReached;
    OFCondition m_status;
};

/** An input stream reading an InputFile from an offset; the factories it hands out (for values
 *  loaded later) read the same file through the same descriptor. */
class DescriptorInputStream : public DcmInputStream
{
public:
    /** Shares file; reading starts at offset. */
    DescriptorInputStream(std::shared_ptr<const InputFile> file, offile_off_t offset = 0);
    /** A factory for a stream at the current position, or null while a filter (inflation) is
     *  installed, as for the toolkit's file streams. The caller owns it. */
    DcmInputStreamFactory* newFactory() const override;

private:
    DescriptorProducer m_producer;
    std::shared_ptr<const InputFile> m_file;
    offile_off_t m_offset;
};

/** Makes DescriptorInputStreams at one offset of a shared InputFile. */
class DescriptorInputStreamFactory : public DcmInputStreamFactory
{
public:
    /** Shares file. */
    DescriptorInputStreamFactory(std::shared_ptr<const InputFile> file, offile_off_t offset);
    /** A new stream at the factory's offset; the caller owns it. */
    DcmInputStream* create() const override;
    /** A copy; the caller owns it. */
    DcmInputStreamFactory* clone() const override;
    /** Reported as a file stream factory, which it stands in for. */
    DcmInputStreamFactoryType ident() const override { return DFT_DcmInputFileStreamFactory; }

private:
    std::shared_ptr<const InputFile> m_file;
    offile_off_t m_offset;
};

/** Parses file into fileFormat exactly as DcmFileFormat::loadFile(path, EXS_Unknown,
 *  EGL_noChange, DCM_MaxReadLength, ERM_autoDetect) parses the file at path: values over 4096
 *  bytes stay in the file (read later through file's descriptor or memory), and every failure
 *  and log line is the one loadFile gives. fileFormat must use the default read mode.
 *  @return EC_Normal, or loadFile's condition for that file
 */
OFCondition loadFileFormat(DcmFileFormat& fileFormat, const std::shared_ptr<const InputFile>& file);

#endif
