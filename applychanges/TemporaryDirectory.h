// The ".tmp" directory beside the objects of one directory, where edited objects are written
// before they replace the originals, and the lock that keeps two runs apart there.
#ifndef APPLYCHANGES_TEMPORARYDIRECTORY_H
#define APPLYCHANGES_TEMPORARYDIRECTORY_H

#include <string>

/** Owns the open ".tmp" directory of one object directory and, while it is open, an exclusive
 *  advisory lock (flock) on it: a second run on the same directory is refused instead of
 *  losing one of the two edits. The lock goes with the process, so a killed run leaves none.
 */
class TemporaryDirectory
{
public:
    TemporaryDirectory();
    /** Releases the lock. */
    ~TemporaryDirectory();

    /** Creates directory + "/.tmp" with mode 0755 (an existing directory is accepted), makes sure
     *  that it is a real directory and not a symbolic link, and takes the lock.
     *  @param directory the directory holding the objects
     *  @return true on success; otherwise false after one line on standard error
     */
    bool open(const std::string& directory);

    /** The temporary file for an object: ".tmp/.applychanges" + process id + "." + base name. */
    std::string fileFor(const std::string& baseName) const;

    /** The ".tmp" directory's path. */
    const std::string& path() const { return m_path; }

    /** The process id text that makes temporary names unique per run; set once at start. */
    static void setProcessId(int pid);

private:
    TemporaryDirectory(const TemporaryDirectory&);
    TemporaryDirectory& operator=(const TemporaryDirectory&);

    std::string m_path;
    int m_fd;
};

#endif
