#include "applychanges/ObjectDirectory.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

ObjectDirectory::ObjectDirectory() : m_fd(-1) {}

ObjectDirectory::~ObjectDirectory()
{
    if (m_fd >= 0)
        close(m_fd);
}

bool ObjectDirectory::open(const std::string& path)
{
    m_path = path;
    m_fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return m_fd >= 0;
}

std::string ObjectDirectory::reach(const std::string& name) const
{
    static const bool hasProc = access("/proc/self/fd", X_OK) == 0;
    return (hasProc ? "/proc/self/fd/" + std::to_string(m_fd) : m_path) + "/" + name;
}

DIR* ObjectDirectory::list() const
{
    const int listing = openat(m_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* dir = listing >= 0 ? fdopendir(listing) : nullptr;
    if (!dir && listing >= 0)
    {
        const int error = errno;
        close(listing);
        errno = error;
    }
    return dir;
}
