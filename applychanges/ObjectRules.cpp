#include "applychanges/ObjectRules.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcmetinf.h"
#include "dcmtk/dcmdata/dcuid.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

// A DICOMDIR's records point into it by byte offsets: rewriting it would break them.
bool isMediaStorageDirectory(DcmFileFormat& file)
{
    OFString sopClass;
    if (file.getMetaInfo()->findAndGetOFString(DCM_MediaStorageSOPClassUID, sopClass).good() &&
        sopClass == UID_MediaStorageDirectoryStorage)
        return true;
    return file.getDataset()->tagExists(DCM_DirectoryRecordSequence, OFFalse);
}

ObjectDecision decided(ObjectDecision::VERDICT verdict, const std::string& line)
{
    ObjectDecision decision;
    decision.verdict = verdict;
    decision.line = line;
    return decision;
}

} // namespace

std::string fileKind(const struct stat& status)
{
    if (S_ISFIFO(status.st_mode))
        return "a FIFO";
    if (S_ISCHR(status.st_mode))
        return "a character device";
    if (S_ISBLK(status.st_mode))
        return "a block device";
    if (S_ISSOCK(status.st_mode))
        return "a socket";
    if (S_ISDIR(status.st_mode))
        return "a directory";
    return "a special file";
}

ObjectRules::ObjectRules(const struct stat& kqr) : m_kqr(kqr) {}

bool ObjectRules::isKqRFile(const struct stat& status) const
{
    return status.st_dev == m_kqr.st_dev && status.st_ino == m_kqr.st_ino && m_kqr.st_ino != 0;
}

ObjectDecision ObjectRules::byEntry(const std::string& name, unsigned char type) const
{
    if (name[0] == '.')
        return decided(ObjectDecision::OD_SKIP, "Skipping " + name);
    if (type == DT_DIR)
        return decided(ObjectDecision::OD_SKIP, "Skipping directory " + name);
    if (name.compare(0, 4, "KqR.") == 0)
        return decided(ObjectDecision::OD_SKIP, "Skipping " + name);
    return ObjectDecision();
}

ObjectDecision ObjectRules::byStatus(const std::string& name, const struct stat& status, bool throughLink,
                                     bool inDirectory) const
{
    // A directory reached by its own entry goes on to fail loading, as any entry of unknown type
    // that is not an object; one reached through a link is passed over like a directory.
    if (S_ISDIR(status.st_mode))
        return throughLink && inDirectory ? decided(ObjectDecision::OD_SKIP, "Skipping directory " + name)
                                          : ObjectDecision();
    if (!S_ISREG(status.st_mode))
    {
        const std::string reason = "it is not a regular file (" + fileKind(status) + ")";
        return inDirectory ? decided(ObjectDecision::OD_SKIP, "Skipping " + name + ": " + reason.substr(6))
                           : decided(ObjectDecision::OD_REFUSE, reason);
    }
    if (inDirectory && isKqRFile(status))
        return decided(ObjectDecision::OD_SKIP, "Skipping " + name); // the run's KqR file under another name
    return ObjectDecision();
}

ObjectDecision ObjectRules::byContent(const std::string& name, DcmFileFormat& file, bool inDirectory) const
{
    if (!isMediaStorageDirectory(file))
        return ObjectDecision();
    return inDirectory ? decided(ObjectDecision::OD_SKIP, "Skipping " + name)
                       : decided(ObjectDecision::OD_REFUSE, "a DICOMDIR (Media Storage Directory) is never modified");
}

std::string ObjectRules::refusal(int fd, const struct stat& status) const
{
    if (isKqRFile(status))
        return "it is the KqR file of this run";
    if (!S_ISREG(status.st_mode))
        return std::string(); // loading has already failed for it
    if (status.st_nlink > 1)
        return "it has " + std::to_string(status.st_nlink) +
               " hard links, and replacing it would split it from its other names";
    // The permission of the file read, through its descriptor. A file marked read-only for
    // everyone is respected even by a privileged process.
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    if ((status.st_mode & 0222) == 0 ||
        (faccessat(AT_FDCWD, self.c_str(), W_OK, AT_EACCESS) != 0 && (errno == EACCES || errno == EROFS)))
        return "it is read-only (no write permission)";
    return std::string();
}
