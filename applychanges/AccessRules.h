// The access rules of an object handed on to the edited copy that replaces it.
#ifndef APPLYCHANGES_ACCESSRULES_H
#define APPLYCHANGES_ACCESSRULES_H

#include <sys/stat.h>

#include <string>

/** Gives a new file the owner, group, mode, POSIX access control list and extended attributes of
 *  the file it is to replace, with libacl (perm_copy_fd) and libattr (attr_copy_fd), so that
 *  the archive's access rules survive an edit exactly. A process that may not give the file to
 *  the original owner (not privileged) keeps what it can (the group, when it is a member); the
 *  copy is refused when that would lock the original owner or group out of their object.
 */
class AccessRules
{
public:
    /** Copies the rules of original (open, with its status) onto copy (open for writing).
     *  @return empty on success; otherwise why the copy may not replace the original, to print
     *    after "Refusing to edit <object>: " */
    static std::string copy(int originalFd, const struct stat& original, int copyFd);

    /** The permission bits (rwx, 0-7) that user uid has on a file of this status by its mode
     *  bits: the owner's, the group's for a member of the file's group, the others'. */
    static unsigned accessOf(uid_t uid, const struct stat& status);
};

#endif
