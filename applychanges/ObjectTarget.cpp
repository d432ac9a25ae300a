#include "applychanges/ObjectTarget.h"

#include <fcntl.h>
#include <libgen.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <vector>

namespace {

std::string directoryOf(const std::string& path)
{
    std::vector<char> copy(path.begin(), path.end());
    copy.push_back('\0');
    return dirname(copy.data());
}

std::string baseOf(const std::string& path)
{
    std::vector<char> copy(path.begin(), path.end());
    copy.push_back('\0');
    return basename(copy.data());
}

} // namespace

ObjectTarget::ObjectTarget(const std::string& path)
    : m_path(path), m_filePath(path), m_statOK(false)
{
    struct stat link;
    if (lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode))
    {
        char* resolved = realpath(path.c_str(), nullptr);
        if (resolved)
        {
            m_filePath = resolved;
            free(resolved);
        }
    }
    m_directory = directoryOf(m_filePath);
    m_baseName = baseOf(m_filePath);
    m_statOK = stat(m_filePath.c_str(), &m_stat) == 0;
}

std::string ObjectTarget::refusal(const struct stat& kqr) const
{
    if (!m_statOK)
        return std::string(); // loading reports a missing or unreadable file
    if (isSameFileAs(kqr))
        return "it is the KqR file of this run";
    if (S_ISREG(m_stat.st_mode) && m_stat.st_nlink > 1)
        return "it has " + std::to_string(m_stat.st_nlink) +
               " hard links, and replacing it would split it from its other names";
    // A file marked read-only for everyone is respected even by a privileged process.
    if (S_ISREG(m_stat.st_mode) &&
        ((m_stat.st_mode & 0222) == 0 ||
         (faccessat(AT_FDCWD, m_filePath.c_str(), W_OK, AT_EACCESS) != 0 && (errno == EACCES || errno == EROFS))))
        return "it is read-only (no write permission)";
    return std::string();
}
