#include "applychanges/TemporaryDirectory.h"

#include "dcmutils/fileio.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>

namespace {
char processIdText[16];
}

TemporaryDirectory::TemporaryDirectory() : m_directoryFd(-1), m_fd(-1) {}

TemporaryDirectory::~TemporaryDirectory()
{
    removeSpares();
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

OFCondition TemporaryDirectory::createFile(const std::string& name, int& fd)
{
    // a spare of that very name first: renaming another one onto it would lose track of it
    auto own = std::find(m_spares.begin(), m_spares.end(), name);
    if (own != m_spares.end())
        std::iter_swap(own, m_spares.end() - 1);
    while (!m_spares.empty())
    {
        const std::string spare = m_spares.back();
        m_spares.pop_back();
        // our own file, by its name in our locked directory; still, only a plain file of ours
        // with one link is written to
        fd = openat(m_fd, spare.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC);
        struct stat st;
        if (fd >= 0 && fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_nlink == 1 &&
            (st.st_uid == geteuid() || geteuid() == 0) &&
            (spare == name || renameat(m_fd, spare.c_str(), m_fd, name.c_str()) == 0))
            return EC_Normal;
        if (fd >= 0)
            close(fd);
        fd = -1;
        unlinkat(m_fd, spare.c_str(), 0);
    }
    return createNewFileAt(m_fd, name.c_str(), fd);
}

bool TemporaryDirectory::replace(const std::string& name, const std::string& baseName)
{
    // the original takes the temporary name: a spare once the exchange is on disk
    if (renameat2(m_fd, name.c_str(), m_directoryFd, baseName.c_str(), RENAME_EXCHANGE) == 0)
    {
        m_exchanged.push_back(name);
        return true;
    }
    // file systems that cannot exchange, and objects gone meanwhile: a plain rename
    if (errno != EINVAL && errno != ENOENT)
        return false;
    return renameat(m_fd, name.c_str(), m_directoryFd, baseName.c_str()) == 0;
}

bool TemporaryDirectory::syncFileSystem()
{
    if (syncfs(m_fd) != 0)
        return false;
    spareTheExchanged();
    return true;
}

bool TemporaryDirectory::syncDirectory()
{
    if (!syncDirectoryDescriptor(m_directoryFd))
        return false; // the originals stay as they are: an exchange may not be on disk
    spareTheExchanged();
    return true;
}

void TemporaryDirectory::spareTheExchanged()
{
    m_spares.insert(m_spares.end(), m_exchanged.begin(), m_exchanged.end());
    m_exchanged.clear();
}

void TemporaryDirectory::removeSpares()
{
    for (const std::string& spare : m_spares)
        unlinkat(m_fd, spare.c_str(), 0);
    for (const std::string& spare : m_exchanged)
        unlinkat(m_fd, spare.c_str(), 0);
    m_spares.clear();
    m_exchanged.clear();
}
