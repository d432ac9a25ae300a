#include "applychanges/TemporaryDirectory.h"

#include "dcmutils/fileio.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

char processIdText[16];
const char PREFIX[] = ".applychanges";

// FNV-1a: a short, stable digest that keeps shortened names of different objects apart.
std::string nameHash(const std::string& name)
{
    unsigned long long hash = 14695981039346656037ull;
    for (unsigned char c : name)
        hash = (hash ^ c) * 1099511628211ull;
    char text[17];
    snprintf(text, sizeof(text), "%016llx", hash);
    return text;
}

} // namespace

TemporaryDirectory::TemporaryDirectory(ObjectDirectory& objects)
    : m_objects(objects), m_path(objects.path() + "/.tmp"), m_fd(-1), m_nameMax(255)
{
}

TemporaryDirectory::~TemporaryDirectory()
{
    if (m_fd >= 0)
        close(m_fd);
}

void TemporaryDirectory::setProcessId(int pid)
{
    snprintf(processIdText, sizeof(processIdText), "%d", pid);
}

bool TemporaryDirectory::open(std::ostream& err)
{
    if (m_objects.fd() < 0 || (mkdirat(m_objects.fd(), ".tmp", 0755) != 0 && errno != EEXIST))
    {
        err << "Temporary directory could not be created: " << m_path << std::endl;
        return false;
    }
    // A link planted at ".tmp" would send every temporary file elsewhere.
    m_fd = openat(m_objects.fd(), ".tmp", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
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
            err << "Another applyChanges run is working in " << m_objects.path() << " (" << m_path
                << " is locked); try again when it has finished" << std::endl;
        else
            err << "Temporary directory could not be locked: " << m_path << std::endl;
        close(m_fd);
        m_fd = -1;
        return false;
    }
    const long nameMax = fpathconf(m_fd, _PC_NAME_MAX);
    if (nameMax > 0)
        m_nameMax = nameMax;
    return true;
}

void TemporaryDirectory::removeLeftovers(std::ostream& out, bool verbose)
{
    const int listing = openat(m_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* dir = listing >= 0 ? fdopendir(listing) : nullptr;
    if (!dir)
    {
        if (listing >= 0)
            close(listing);
        return;
    }
    std::vector<std::string> names;
    while (struct dirent* entry = readdir(dir))
        if (strncmp(entry->d_name, PREFIX, sizeof(PREFIX) - 1) == 0)
            names.push_back(entry->d_name);
    closedir(dir);
    for (const std::string& name : names)
    {
        struct stat st;
        if (fstatat(m_fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || S_ISDIR(st.st_mode))
            continue;
        if (unlinkat(m_fd, name.c_str(), 0) == 0 && verbose)
            out << "Removing " << pathFor(name) << " left by an earlier run" << std::endl;
    }
}

std::string TemporaryDirectory::nameFor(const std::string& baseName) const
{
    std::string name = std::string(PREFIX) + processIdText + "." + baseName;
    if (long(name.size()) <= m_nameMax)
        return name;
    // a legal object name whose temporary name would be too long: shortened, still unique
    std::string shortened = std::string(PREFIX) + processIdText + "." + nameHash(baseName) + ".";
    size_t keep = size_t(m_nameMax) > shortened.size() ? size_t(m_nameMax) - shortened.size() : 0;
    while (keep > 0 && keep < baseName.size() && (static_cast<unsigned char>(baseName[keep]) & 0xC0) == 0x80)
        --keep; // not in the middle of a UTF-8 character
    return shortened + baseName.substr(0, keep);
}

std::string TemporaryDirectory::reach(const std::string& name) const
{
    static const bool hasProc = access("/proc/self/fd", X_OK) == 0;
    return (hasProc ? "/proc/self/fd/" + std::to_string(m_fd) : m_path) + "/" + name;
}

OFCondition TemporaryDirectory::createFile(const std::string& name, int& fd)
{
    const int flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    fd = openat(m_fd, name.c_str(), flags, 0600);
    // a stale entry of that name (a planted link, a file of an earlier process) is removed, never
    // opened; the usual new name costs one call
    if (fd < 0 && errno == EEXIST)
    {
        if (unlinkat(m_fd, name.c_str(), 0) != 0 && errno != ENOENT)
            return systemError(errno);
        fd = openat(m_fd, name.c_str(), flags, 0600);
    }
    return fd < 0 ? systemError(errno) : EC_Normal;
}

TemporaryDirectory::REPLACEMENT TemporaryDirectory::replace(const std::string& name, const std::string& baseName,
                                                            const FileIdentity& original, std::string& why)
{
    struct stat now;
    if (fstatat(m_objects.fd(), baseName.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0)
    {
        if (errno != ENOENT)
            return RP_FAILED;
        why = "another process deleted it"; // never brought back
        return RP_CHANGED;
    }
    why = original.changeFrom(now, false);
    if (!why.empty())
        return RP_CHANGED;

    if (renameat2(m_fd, name.c_str(), m_objects.fd(), baseName.c_str(), RENAME_EXCHANGE) != 0)
    {
        const int error = errno;
        struct stat ours;
        if (error == ENOENT && fstatat(m_fd, name.c_str(), &ours, AT_SYMLINK_NOFOLLOW) == 0)
        {
            why = "another process deleted it";
            return RP_CHANGED;
        }
        errno = error;
        if (error != EINVAL)
            return RP_FAILED; // the temporary file itself may be gone
        // a file system that cannot exchange: a rename right after the check
        return renameat(m_fd, name.c_str(), m_objects.fd(), baseName.c_str()) == 0 ? RP_DONE : RP_FAILED;
    }
    // Between the check and the exchange another process may have put its file at the name, or
    // written into the original: then the exchange displaced something that must stay.
    struct stat displaced;
    if (fstatat(m_fd, name.c_str(), &displaced, AT_SYMLINK_NOFOLLOW) == 0)
        why = original.changeFrom(displaced, true);
    else
        why = "another process replaced it";
    if (why.empty())
    {
        m_displaced.push_back(name);
        return RP_DONE;
    }
    if (renameat2(m_fd, name.c_str(), m_objects.fd(), baseName.c_str(), RENAME_EXCHANGE) == 0)
        return RP_CHANGED;
    why += "; what it had put in place of the object is at " + pathFor(name) + " (" + strerror(errno) + ")";
    return RP_FAILED;
}

bool TemporaryDirectory::syncFileSystem()
{
    return syncfs(m_fd) == 0;
}

bool TemporaryDirectory::syncObjectDirectory()
{
    if (!syncDirectoryDescriptor(m_objects.fd()))
        return false; // the originals stay: an exchange may not be on disk
    for (const std::string& name : m_displaced)
        unlinkat(m_fd, name.c_str(), 0);
    m_displaced.clear();
    return true;
}

void TemporaryDirectory::removeFile(const std::string& name)
{
    unlinkat(m_fd, name.c_str(), 0);
}
