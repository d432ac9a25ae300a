// The ".tmp" directory beside the objects of one directory, where edited objects are written
// before they replace the originals, and the lock that keeps two runs apart there.
#ifndef APPLYCHANGES_TEMPORARYDIRECTORY_H
#define APPLYCHANGES_TEMPORARYDIRECTORY_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/ofcond.h"

#include <ostream>
#include <string>
#include <vector>

/** Owns an open object directory, its open ".tmp" directory and, while they are open, an
 *  exclusive advisory lock (flock) on ".tmp": a second run on the same directory is refused
 *  instead of losing one of the two edits. The lock goes with the process, so a killed run
 *  leaves none. Temporary files are made, renamed and removed relative to the open directories,
 *  so they stay where they were checked even if a path changes during the run.
 *
 *  Files are recycled: an object is replaced by exchanging it with its temporary file, and once
 *  the exchange is on disk (after syncFileSystem or syncDirectory), the original's file, now under the temporary
 *  name, becomes a spare that a later temporary file reuses (a killed run may leave such
 *  originals behind, under the temporary names). A run thus creates and frees few
 *  files, where a file system that scans past recently freed files for every new one (ext4 without
 *  a journal) would otherwise slow down object after object.
 */
class TemporaryDirectory
{
public:
    TemporaryDirectory();
    /** Removes the spares and releases the lock. */
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

    /** Creates the temporary file name for writing: a spare of this run renamed to it, to be
     *  overwritten from its start and cut to length (which reuses its blocks), or a new file
     *  (createNewFileAt: never through a link).
     *  @param fd set to the open descriptor, which the caller closes
     *  @return EC_Normal, or a condition with the system's error text */
    OFCondition createFile(const std::string& name, int& fd);

    /** Puts the temporary file name in the place of the object baseName: exchanged with it where
     *  the file system can, else renamed over it.
     *  @return true on success; false with errno set */
    bool replace(const std::string& name, const std::string& baseName);

    /** Flushes the whole file system of ".tmp" to stable storage (syncfs): every temporary file
     *  written so far, with one flush of the disk's cache for all of them, and the exchanges made
     *  before, whose originals then become spares.
     *  @return true on success; false with errno set (a write-out that failed) */
    bool syncFileSystem();

    /** Flushes the object directory to stable storage, so that the replacements in it survive a
     *  power loss; then their originals become spares. True on success and where the file system
     *  cannot sync directories. */
    bool syncDirectory();

    /** Removes the spare files (the originals of replaced objects) of this run. */
    void removeSpares();

    /** The process id text that makes temporary names unique per run; set once at start. */
    static void setProcessId(int pid);

private:
    TemporaryDirectory(const TemporaryDirectory&);
    /// the exchanges are on disk: their originals may be reused
    void spareTheExchanged();
    TemporaryDirectory& operator=(const TemporaryDirectory&);

    std::string m_directory;
    std::string m_path;
    int m_directoryFd;
    int m_fd;
    /// originals under temporary names: exchanged but not yet synced, and free for reuse
    std::vector<std::string> m_exchanged;
    std::vector<std::string> m_spares;
};

#endif
