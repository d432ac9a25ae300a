#include "applychanges/FileIdentity.h"

#include <cstring>

namespace {

bool sameTime(const struct timespec& a, const struct timespec& b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

} // namespace

FileIdentity::FileIdentity() : m_valid(false)
{
    memset(&m_status, 0, sizeof(m_status));
}

FileIdentity::FileIdentity(const struct stat& status) : m_status(status), m_valid(true) {}

bool FileIdentity::isFile(const struct stat& status) const
{
    return m_valid && status.st_dev == m_status.st_dev && status.st_ino == m_status.st_ino;
}

std::string FileIdentity::changeFrom(const struct stat& now, bool renamedSince) const
{
    if (!isFile(now))
        return "another process replaced it";
    if (now.st_size != m_status.st_size || !sameTime(now.st_mtim, m_status.st_mtim))
        return "another process wrote to it";
    if (now.st_mode != m_status.st_mode || now.st_uid != m_status.st_uid || now.st_gid != m_status.st_gid)
        return "another process changed its mode or owner";
    if (now.st_nlink != m_status.st_nlink)
        return "another process added or removed a link to it";
    // access control lists and extended attributes show only in the change time
    if (!renamedSince && !sameTime(now.st_ctim, m_status.st_ctim))
        return "another process changed its attributes";
    return std::string();
}
