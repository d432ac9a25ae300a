// A directory holding objects, opened once: every object in it is reached through the open
// directory, so that it stays the directory that was checked even if its path changes.
#ifndef APPLYCHANGES_OBJECTDIRECTORY_H
#define APPLYCHANGES_OBJECTDIRECTORY_H

#include <dirent.h>

#include <string>

/** Owns an open directory descriptor. */
class ObjectDirectory
{
public:
    ObjectDirectory();
    /** Closes the directory. */
    ~ObjectDirectory();

    /** Opens the directory at path.
     *  @return true on success; false with errno set */
    bool open(const std::string& path);

    /** The path it was opened with, for messages. */
    const std::string& path() const { return m_path; }
    /** The open directory, for the *at() calls. */
    int fd() const { return m_fd; }
    /** A path that reaches name in this directory wherever the directory has gone since it was
     *  opened (through /proc/self/fd where the system has it, else by the path). */
    std::string reach(const std::string& name) const;
    /** A listing of this very directory (readdir), owned by the caller (closedir), or null with
     *  errno set. */
    DIR* list() const;

private:
    ObjectDirectory(const ObjectDirectory&) = delete;
    ObjectDirectory& operator=(const ObjectDirectory&) = delete;

    std::string m_path;
    int m_fd;
};

#endif
