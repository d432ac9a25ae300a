#include "applychanges/AccessRules.h"

#include <acl/libacl.h>
#include <attr/error_context.h>
#include <attr/libattr.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

// The first message of libacl or libattr, kept for the refusal.
struct CopyErrors
{
    struct error_context context;
    std::string message;
};

void keepError(struct error_context* context, const char* format, ...)
{
    CopyErrors* errors = reinterpret_cast<CopyErrors*>(context);
    if (!errors->message.empty())
        return;
    char text[512];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    errors->message = text;
    if (errno != 0)
        errors->message += std::string(": ") + strerror(errno);
}

const char* noQuote(struct error_context*, const char* name)
{
    return name;
}

void noFree(struct error_context*, const char*) {}

bool isMember(uid_t uid, gid_t gid)
{
    struct passwd* user = getpwuid(uid);
    if (!user)
        return false;
    if (user->pw_gid == gid)
        return true;
    int count = 64;
    std::vector<gid_t> groups(64);
    if (getgrouplist(user->pw_name, user->pw_gid, groups.data(), &count) < 0)
    {
        groups.resize(size_t(count));
        if (getgrouplist(user->pw_name, user->pw_gid, groups.data(), &count) < 0)
            return false;
    }
    for (int i = 0; i < count; ++i)
        if (groups[size_t(i)] == gid)
            return true;
    return false;
}

} // namespace

unsigned AccessRules::accessOf(uid_t uid, const struct stat& status)
{
    if (uid == status.st_uid)
        return (status.st_mode >> 6) & 7;
    if (isMember(uid, status.st_gid))
        return (status.st_mode >> 3) & 7;
    return status.st_mode & 7;
}

std::string AccessRules::copy(int originalFd, const struct stat& original, int copyFd)
{
    // The owner first: a change of owner clears the set-id bits that the mode then restores.
    if (fchown(copyFd, original.st_uid, original.st_gid) != 0 && fchown(copyFd, uid_t(-1), original.st_gid) != 0)
    {
        // not a member of the object's group either: the copy keeps this process's group
    }
    CopyErrors errors;
    errors.context.error = keepError;
    errors.context.quote = noQuote;
    errors.context.quote_free = noFree;
    errno = 0;
    if (perm_copy_fd("the object", originalFd, "its edited copy", copyFd, &errors.context) != 0)
        return "its access control list could not be given to the edited copy (" + errors.message + ")";
    if ((original.st_mode & 07000) != 0 && fchmod(copyFd, original.st_mode & 07777) != 0)
        return std::string("its mode could not be given to the edited copy (") + strerror(errno) + ")";
    errno = 0;
    if (attr_copy_fd("the object", originalFd, "its edited copy", copyFd, nullptr, &errors.context) != 0)
        return "its extended attributes could not be given to the edited copy (" + errors.message + ")";

    struct stat copied;
    if (fstat(copyFd, &copied) != 0)
        return std::string("its edited copy could not be checked (") + strerror(errno) + ")";
    if (copied.st_uid == original.st_uid && copied.st_gid == original.st_gid)
        return std::string();
    // Not privileged: what the owner and the group keep of their access.
    const unsigned ownerBefore = (original.st_mode >> 6) & 7;
    if (original.st_uid != 0 && (ownerBefore & ~accessOf(original.st_uid, copied)) != 0)
        return "it belongs to user " + std::to_string(original.st_uid) +
               ", to whom this process cannot give the edited copy, and who would lose access to it";
    const unsigned groupBefore = (original.st_mode >> 3) & 7;
    const unsigned groupAfter = copied.st_gid == original.st_gid ? (copied.st_mode >> 3) & 7 : copied.st_mode & 7;
    if ((groupBefore & ~groupAfter) != 0)
        return "its group " + std::to_string(original.st_gid) +
               " cannot be given to the edited copy, and would lose access to it";
    return std::string();
}
