#include "applychanges/TemporaryDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>

namespace {
char processIdText[16];
}

TemporaryDirectory::TemporaryDirectory() : m_fd(-1) {}

TemporaryDirectory::~TemporaryDirectory()
{
    if (m_fd >= 0)
        close(m_fd);
}

void TemporaryDirectory::setProcessId(int pid)
{
    snprintf(processIdText, sizeof(processIdText), "%d", pid);
}

bool TemporaryDirectory::open(const std::string& directory)
{
    m_path = directory + "/.tmp";
    if (mkdir(m_path.c_str(), 0755) != 0 && errno != EEXIST)
    {
        std::cerr << "Temporary directory could not be created: " << m_path << std::endl;
        return false;
    }
    // A link planted at ".tmp" would send every temporary file elsewhere.
    m_fd = ::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (m_fd < 0)
    {
        std::cerr << "Temporary directory is not a directory (a symbolic link or a file is in its place): "
                  << m_path << std::endl;
        return false;
    }
    // File systems without locks (ENOLCK, EOPNOTSUPP) run unguarded, as they always did.
    if (flock(m_fd, LOCK_EX | LOCK_NB) != 0 && errno != ENOLCK && errno != EOPNOTSUPP)
    {
        if (errno == EWOULDBLOCK)
            std::cerr << "Another applyChanges run is working in " << directory << " (" << m_path
                      << " is locked); try again when it has finished" << std::endl;
        else
            std::cerr << "Temporary directory could not be locked: " << m_path << std::endl;
        close(m_fd);
        m_fd = -1;
        return false;
    }
    return true;
}

std::string TemporaryDirectory::fileFor(const std::string& baseName) const
{
    return m_path + "/.applychanges" + processIdText + "." + baseName;
}
