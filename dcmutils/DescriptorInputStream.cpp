#include "dcmutils/DescriptorInputStream.h"

#include "dcmtk/dcmdata/dcerror.h"

DescriptorProducer::DescriptorProducer(std::shared_ptr<const InputFile> file, offile_off_t offset)
    : m_file(std::move(file)), m_position(0), m_endReached(false), m_status(EC_Normal)
{
    if (offset > 0)
        m_position = (unsigned long long)offset;
}

OFBool DescriptorProducer::good() const
{
    return m_status.good();
}

OFCondition DescriptorProducer::status() const
{
    return m_status;
}

OFBool DescriptorProducer::eos()
{
    return m_endReached || m_position >= m_file->size();
}

offile_off_t DescriptorProducer::avail()
{
    return m_position >= m_file->size() ? 0 : offile_off_t(m_file->size() - m_position);
}

offile_off_t DescriptorProducer::read(void* buf, offile_off_t buflen)
{
    if (m_status.bad() || !buf || buflen <= 0)
        return 0;
    bool endReached = false;
    const size_t count = m_file->read(m_position, buf, size_t(buflen), endReached);
    m_position += count;
    if (endReached)
        m_endReached = true; // as a file read that met the end; a read error is no end
    return offile_off_t(count);
}

offile_off_t DescriptorProducer::skip(offile_off_t skiplen)
{
    if (m_status.bad() || skiplen <= 0)
        return 0;
    const offile_off_t result = avail() < skiplen ? avail() : skiplen;
    m_position += (unsigned long long)result;
    return result;
}

void DescriptorProducer::putback(offile_off_t num)
{
    if (m_status.bad() || num <= 0)
        return;
    if ((unsigned long long)num <= m_position)
    {
        m_position -= (unsigned long long)num;
        m_endReached = false;
    }
    else
        m_status = EC_PutbackFailed; // before the start of the file
}

DescriptorInputStream::DescriptorInputStream(std::shared_ptr<const InputFile> file, offile_off_t offset)
    : DcmInputStream(&m_producer) // the base only keeps the pointer
    , m_producer(file, offset)
    , m_file(std::move(file))
    , m_offset(offset)
{
}

DcmInputStreamFactory* DescriptorInputStream::newFactory() const
{
    if (currentProducer() != &m_producer)
        return nullptr; // values of an inflated stream cannot be read again from the file
    return new DescriptorInputStreamFactory(m_file, m_offset + tell());
}

DescriptorInputStreamFactory::DescriptorInputStreamFactory(std::shared_ptr<const InputFile> file,
                                                           offile_off_t offset)
    : m_file(std::move(file)), m_offset(offset)
{
}

DcmInputStream* DescriptorInputStreamFactory::create() const
{
    return new DescriptorInputStream(m_file, m_offset);
}

DcmInputStreamFactory* DescriptorInputStreamFactory::clone() const
{
    return new DescriptorInputStreamFactory(m_file, m_offset);
}

OFCondition loadFileFormat(DcmFileFormat& fileFormat, const std::shared_ptr<const InputFile>& file)
{
    DescriptorInputStream stream(file);
    OFCondition status = stream.status();
    if (status.good())
        status = fileFormat.clear();
    if (status.bad())
        return status;
    fileFormat.transferInit();
    status = fileFormat.read(stream, EXS_Unknown, EGL_noChange, DCM_MaxReadLength);
    fileFormat.transferEnd();
    return status;
}
