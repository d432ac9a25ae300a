#include "dcmutils/DescriptorOutputStream.h"

#include "dcmutils/fileio.h"

#include "dcmtk/dcmdata/dcerror.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {
const size_t BUFFER_SIZE = 1 << 20;
// A long file's write-out is started every this many bytes, so that the disk writes while the
// rest is produced instead of all at the end.
const off_t WRITE_OUT_STEP = 32 << 20;
}

DescriptorConsumer::DescriptorConsumer(int fd)
    : m_fd(fd), m_buffer(BUFFER_SIZE), m_used(0), m_status(EC_Normal), m_position(lseek(fd, 0, SEEK_CUR)),
      m_writtenOut(m_position)
{
}

void DescriptorConsumer::wrote(size_t count)
{
    m_position += off_t(count);
    if (m_position >= 0 && m_writtenOut >= 0 && m_position - m_writtenOut >= WRITE_OUT_STEP)
    {
        sync_file_range(m_fd, m_writtenOut, m_position - m_writtenOut, SYNC_FILE_RANGE_WRITE);
        m_writtenOut = m_position;
    }
}

OFBool DescriptorConsumer::good() const
{
    return m_status.good();
}

OFCondition DescriptorConsumer::status() const
{
    return m_status;
}

OFBool DescriptorConsumer::isFlushed() const
{
    return m_used == 0;
}

offile_off_t DescriptorConsumer::avail() const
{
    // all that the stream wants to give: a full buffer is written out first
    return m_status.good() ? OFstatic_cast(offile_off_t, 1) << 30 : 0;
}

offile_off_t DescriptorConsumer::write(const void* buf, offile_off_t buflen)
{
    if (m_status.bad())
        return 0;
    const char* data = OFstatic_cast(const char*, buf);
    offile_off_t done = 0;
    if (OFstatic_cast(size_t, buflen) >= m_buffer.size())
    {
        // a long value goes to the descriptor straight from where it is, after what came before
        flush();
        while (m_status.good() && done < buflen)
        {
            const ssize_t n = ::write(m_fd, data + done, OFstatic_cast(size_t, buflen - done));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                m_status = systemError(n < 0 ? errno : ENOSPC);
            else
            {
                done += n;
                wrote(size_t(n));
            }
        }
        return done;
    }
    while (done < buflen)
    {
        if (m_used == m_buffer.size())
        {
            flush();
            if (m_status.bad())
                return done;
        }
        const size_t count = std::min(m_buffer.size() - m_used, OFstatic_cast(size_t, buflen - done));
        memcpy(m_buffer.data() + m_used, data + done, count);
        m_used += count;
        done += count;
    }
    return done;
}

void DescriptorConsumer::flush()
{
    size_t written = 0;
    while (m_status.good() && written < m_used)
    {
        const ssize_t n = ::write(m_fd, m_buffer.data() + written, m_used - written);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
        {
            const int error = n < 0 ? errno : ENOSPC;
            m_status = systemError(error);
            break;
        }
        written += n;
        wrote(size_t(n));
    }
    if (m_status.good())
        m_used = 0;
}

DescriptorOutputStream::DescriptorOutputStream(int fd) : DcmOutputStream(&m_consumer), m_consumer(fd) {}
