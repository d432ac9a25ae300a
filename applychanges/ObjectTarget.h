// One object named on the command line or met in a study directory, resolved to the file that
// is read and replaced, with the reasons that forbid editing it.
#ifndef APPLYCHANGES_OBJECTTARGET_H
#define APPLYCHANGES_OBJECTTARGET_H

#include <sys/stat.h>

#include <string>

/** An object path and the file behind it. A symbolic link is edited at the file it names: the
 *  link stays a link, and the temporary file is made in the ".tmp" directory beside that file.
 */
class ObjectTarget
{
public:
    /** Resolves path; a link that cannot be resolved is kept as it is (loading it then fails). */
    explicit ObjectTarget(const std::string& path);

    /** The path as named: used in every message. */
    const std::string& path() const { return m_path; }
    /** The file that is read and replaced. */
    const std::string& filePath() const { return m_filePath; }
    /** The directory holding filePath(), where ".tmp" is made. */
    const std::string& directory() const { return m_directory; }
    /** filePath()'s base name, part of the temporary file's name. */
    const std::string& baseName() const { return m_baseName; }
    /** True when the path names a directory (through a link: a plain directory entry is
     *  recognised by the directory walk itself). */
    bool isDirectory() const { return m_statOK && S_ISDIR(m_stat.st_mode); }
    /** The file's status when it could be read when resolving, else null. */
    const struct stat* status() const { return m_statOK ? &m_stat : nullptr; }

    /** True when the file behind the path is the file with this status (another name of it). */
    bool isSameFileAs(const struct stat& other) const
    {
        return m_statOK && m_stat.st_dev == other.st_dev && m_stat.st_ino == other.st_ino;
    }

    /** Why this object may not be edited, or empty when it may: a file with more than one hard
     *  link (replacing it would split it from its other names), a file without write permission
     *  (it is not replaced behind its owner's back), or the run's own KqR file.
     *  @param kqr the KqR file's status, to recognise it under any name
     */
    std::string refusal(const struct stat& kqr) const;

private:
    std::string m_path;
    std::string m_filePath;
    std::string m_directory;
    std::string m_baseName;
    struct stat m_stat;
    bool m_statOK;
};

#endif
