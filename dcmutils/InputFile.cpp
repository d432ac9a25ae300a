#include "dcmutils/InputFile.h"

#include "dcmutils/fileio.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

InputFile::InputFile(int fd, unsigned long long size) : m_fd(fd), m_size(size) {}

InputFile::InputFile(ByteBuffer&& bytes) : m_fd(-1), m_size(bytes.size()), m_bytes(std::move(bytes)) {}

InputFile::~InputFile()
{
    if (m_fd >= 0)
        close(m_fd);
}

OFCondition InputFile::readWhole()
{
    if (inMemory() || m_fd < 0)
        return EC_Normal;
    m_bytes.resize(size_t(m_size));
    size_t done = 0;
    while (done < m_size)
    {
        const ssize_t n = pread(m_fd, m_bytes.data() + done, size_t(m_size) - done, off_t(done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
        {
            const int error = errno;
            m_bytes.release();
            return systemError(error);
        }
        if (n == 0)
            break; // shorter than when it was opened
        done += size_t(n);
    }
    m_bytes.resize(done);
    m_size = done;
    return EC_Normal;
}

size_t InputFile::read(unsigned long long offset, void* buffer, size_t count, bool& endReached) const
{
    endReached = false;
    if (offset >= m_size)
    {
        endReached = true;
        return 0;
    }
    if (count > m_size - offset)
    {
        count = size_t(m_size - offset);
        endReached = true;
    }
    if (m_bytes.data())
    {
        memcpy(buffer, m_bytes.data() + offset, count);
        return count;
    }
    size_t done = 0;
    while (done < count)
    {
        const ssize_t n = pread(m_fd, static_cast<char*>(buffer) + done, count - done, off_t(offset + done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
        {
            endReached = n == 0;
            break;
        }
        done += size_t(n);
    }
    return done;
}
