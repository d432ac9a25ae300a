// The ".tmp" directory beside the objects of one directory, where edited objects are written
// before they replace the originals, and the lock that keeps two runs apart there.
#ifndef APPLYCHANGES_TEMPORARYDIRECTORY_H
#define APPLYCHANGES_TEMPORARYDIRECTORY_H

#include "applychanges/FileIdentity.h"
#include "applychanges/ObjectDirectory.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/ofcond.h"

#include <ostream>
#include <string>
#include <vector>

/** Owns the open ".tmp" directory of an ObjectDirectory and, while it is open, an exclusive
 *  advisory lock (flock) on it: a second run on the same directory is refused instead of losing
 *  one of the two edits. The lock goes with the process, so a killed run leaves none, and the
 *  holder of the lock knows that every temporary file it finds was left by a run that has ended.
 *
 *  An object is replaced by exchanging it with its temporary file, only after checking that the
 *  name still holds the very file that was read, unchanged; the original then waits under the
 *  temporary name until the exchange is on disk and is removed (never written to: a process that
 *  holds it open keeps reading the original bytes).
 */
class TemporaryDirectory
{
public:
    /** What replace() did. */
    enum REPLACEMENT
    {
        /// the edited file is in place
        RP_DONE,
        /// not replaced: another process changed or removed the object (reason given)
        RP_CHANGED,
        /// the system refused (errno set), or an undone exchange left things elsewhere (reason)
        RP_FAILED
    };

    /** Borrows the directory of the objects, which outlives this object. */
    explicit TemporaryDirectory(ObjectDirectory& objects);
    /** Releases the lock. */
    ~TemporaryDirectory();

    /** Creates ".tmp" in the object directory with mode 0755 (an existing directory is
     *  accepted), makes sure that it is a real directory and not a link, and takes the lock.
     *  @param err where the one-line error goes
     *  @return true on success; otherwise false after one line on err */
    bool open(std::ostream& err);

    /** Removes the temporary files that ended runs left (edited copies never put in place,
     *  originals already replaced, partly written files of failed saves): the lock proves that no
     *  run is using them. One "Removing ..." line each on out when verbose. */
    void removeLeftovers(std::ostream& out, bool verbose);

    /** The temporary file name for an object: ".applychanges" + process id + "." + base name;
     *  where that would exceed the file system's name limit, the base name is shortened and
     *  preceded by a hash of the whole name, so that the name stays unique. */
    std::string nameFor(const std::string& baseName) const;
    /** The ".tmp" path + "/" + name, for messages. */
    std::string pathFor(const std::string& name) const { return m_path + "/" + name; }
    /** A path that reaches name in ".tmp" wherever the directory has gone since it was opened. */
    std::string reach(const std::string& name) const;

    /** Creates name new for reading and writing, readable by this process only until the object's
     *  access rules are given to it (a stale entry of that name is removed first; never opened
     *  through a link).
     *  @param fd set to the open descriptor, which the caller closes
     *  @return EC_Normal, or a condition with the system's error text */
    OFCondition createFile(const std::string& name, int& fd);

    /** Puts the temporary file name in the place of the object baseName, if the object is still
     *  the file it was (original): the name is checked, the two are exchanged, and what the
     *  exchange displaced is checked again (the exchange is undone when it is not the original,
     *  so that another process's newer file stays in place). A file system that cannot exchange
     *  gets a plain rename right after the check.
     *  @param why set to the reason for RP_CHANGED, and for an RP_FAILED that has one
     *  @return RP_DONE, RP_CHANGED (the temporary file is still at name), or RP_FAILED */
    REPLACEMENT replace(const std::string& name, const std::string& baseName, const FileIdentity& original,
                        std::string& why);

    /** Flushes the whole file system of ".tmp" to stable storage (syncfs): every temporary file
     *  written so far, with one flush of the disk's cache for all of them.
     *  @return true on success; false with errno set (a write-out that failed) */
    bool syncFileSystem();

    /** Flushes the object directory, so that the replacements in it survive a power loss, then
     *  removes the originals they displaced. True on success and where the file system cannot
     *  sync directories; on failure the originals stay (a later run removes them). */
    bool syncObjectDirectory();

    /** Removes name from ".tmp". */
    void removeFile(const std::string& name);

    /** The open ".tmp" directory, for the *at() calls. */
    int fd() const { return m_fd; }
    /** The directory of the objects. */
    ObjectDirectory& objects() { return m_objects; }

    /** The process id text that makes temporary names unique per run; set once at start. */
    static void setProcessId(int pid);

private:
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    ObjectDirectory& m_objects;
    std::string m_path;
    int m_fd;
    long m_nameMax;
    /// originals under temporary names, exchanged but not yet synced into place
    std::vector<std::string> m_displaced;
};

#endif
