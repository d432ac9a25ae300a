// What a file was when it was opened, to tell at the moment of its replacement whether another
// process has replaced, removed, written or re-permissioned it since.
#ifndef APPLYCHANGES_FILEIDENTITY_H
#define APPLYCHANGES_FILEIDENTITY_H

#include <sys/stat.h>

#include <string>

/** A snapshot of one file's status (fstat of the descriptor it was read through). */
class FileIdentity
{
public:
    /** An identity that matches no file. */
    FileIdentity();
    /** The identity of the file with this status. */
    explicit FileIdentity(const struct stat& status);

    /** True when status belongs to the same file (device and inode). */
    bool isFile(const struct stat& status) const;

    /** Why the file is no longer what it was, or empty when it is unchanged.
     *  @param now the status found now: of the name (replaced?) or of the descriptor (written?)
     *  @param renamedSince true when the file has been renamed since (a rename changes its change
     *    time, so only its content, size, mode, owner and links are compared)
     *  @return a reason to print after "it changed during the edit (", such as
     *    "another process replaced it" */
    std::string changeFrom(const struct stat& now, bool renamedSince) const;

    /** The status as it was taken. */
    const struct stat& status() const { return m_status; }

private:
    struct stat m_status;
    bool m_valid;
};

#endif
