// The ".tmp" directory beside the objects of one directory, where edited objects are written
// before they replace the originals, and the lock that keeps two runs apart there.
#ifndef APPLYCHANGES_TEMPORARYDIRECTORY_H
#define APPLYCHANGES_TEMPORARYDIRECTORY_H

#include <ostream>
#include <string>

/** Owns an open object directory, its open ".tmp" directory and, while they are open, an
 *  exclusive advisory lock (flock) on ".tmp": a second run on the same directory is refused
 *  instead of losing one of the two edits. The lock goes with the process, so a killed run
 *  leaves none. Temporary files are made, renamed and removed relative to the open directories,
 *  so they stay where they were checked even if a path changes during the run.
 */
class TemporaryDirectory
{
public:
    TemporaryDirectory();
    /** Releases the lock. */
    ~TemporaryDirectory();

    /** Opens directory, creates directory + "/.tmp" with mode 0755 (an existing directory is
     *  accepted), makes sure that it is a real directory and not a symbolic link, and takes the
     *  lock.
     *  @param directory the directory holding the objects
     *  @param err where the one-line error goes
     *  @return true on success; otherwise false after one line on err
     */
    bool open(const std::string& directory, std::ostream& err);

    /** The temporary file name for an object: ".applychanges" + process id + "." + base name. */
    std::string nameFor(const std::string& baseName) const;
    /** The temporary file's path, for messages: the ".tmp" path + "/" + nameFor(baseName). */
    std::string fileFor(const std::string& baseName) const { return m_path + "/" + nameFor(baseName); }

    /** A path that reaches baseName in the opened object directory (through /proc/self/fd, where
     *  the system has it), wherever the directory has gone since it was opened. */
    std::string objectPath(const std::string& baseName) const;
    /** The same for a name in the opened ".tmp" directory. */
    std::string temporaryPath(const std::string& name) const;

    /** The open ".tmp" directory, for the *at() calls. */
    int fd() const { return m_fd; }
    /** The open object directory, for the *at() calls. */
    int directoryFd() const { return m_directoryFd; }

    /** Flushes the object directory to stable storage, so that the renames in it survive a power
     *  loss; true on success and where the file system cannot sync directories. */
    bool syncDirectory() const;

    /** The process id text that makes temporary names unique per run; set once at start. */
    static void setProcessId(int pid);

private:
    TemporaryDirectory(const TemporaryDirectory&);
    TemporaryDirectory& operator=(const TemporaryDirectory&);

    std::string m_directory;
    std::string m_path;
    int m_directoryFd;
    int m_fd;
};

#endif
