#include "applychanges/TemporaryDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace {
char processIdText[16];
}

TemporaryDirectory::TemporaryDirectory() : m_directoryFd(-1), m_fd(-1) {}

TemporaryDirectory::~TemporaryDirectory()
{
    if (m_fd >= 0)
        close(m_fd);
    if (m_directoryFd >= 0)
        close(m_directoryFd);
}

void TemporaryDirectory::setProcessId(int pid)
{
    snprintf(processIdText, sizeof(processIdText), "%d", pid);
}

bool TemporaryDirectory::open(const std::string& directory, std::ostream& err)
{
    m_directory = directory;
    m_path = directory + "/.tmp";
    m_directoryFd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_directoryFd < 0 || (mkdirat(m_directoryFd, ".tmp", 0755) != 0 && errno != EEXIST))
    {
        err << "Temporary directory could not be created: " << m_path << std::endl;
        return false;
    }
    // A link planted at ".tmp" would send every temporary file elsewhere.
    m_fd = openat(m_directoryFd, ".tmp", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (m_fd < 0)
    {
        err << "Temporary directory is not a directory (a symbolic link or a file is in its place): " << m_path
            << std::endl;
        return false;
    }
    // File systems without locks (ENOLCK, EOPNOTSUPP) run unguarded, as they always did.
    if (flock(m_fd, LOCK_EX | LOCK_NB) != 0 && errno != ENOLCK && errno != EOPNOTSUPP)
    {
        if (errno == EWOULDBLOCK)
            err << "Another applyChanges run is working in " << directory << " (" << m_path
                << " is locked); try again when it has finished" << std::endl;
        else
            err << "Temporary directory could not be locked: " << m_path << std::endl;
        close(m_fd);
        m_fd = -1;
        return false;
    }
    return true;
}

std::string TemporaryDirectory::nameFor(const std::string& baseName) const
{
    return std::string(".applychanges") + processIdText + "." + baseName;
}

namespace {

std::string throughDescriptor(int fd, const std::string& fallback, const std::string& name)
{
    static const bool hasProc = access("/proc/self/fd", X_OK) == 0;
    return (hasProc ? "/proc/self/fd/" + std::to_string(fd) : fallback) + "/" + name;
}

} // namespace

std::string TemporaryDirectory::objectPath(const std::string& baseName) const
{
    return throughDescriptor(m_directoryFd, m_directory, baseName);
}

std::string TemporaryDirectory::temporaryPath(const std::string& name) const
{
    return throughDescriptor(m_fd, m_path, name);
}

bool TemporaryDirectory::syncDirectory() const
{
    if (fsync(m_directoryFd) == 0)
        return true;
    // Some file systems cannot sync directories; nothing more can be done there.
    return errno == EINVAL || errno == EROFS;
}
