// Reading DICOM files whole, writing them safely through a temporary file, syncing directories.
#include "dcmutils/dcmutils.h"
#include "dcmutils/dcmcounter.h"

#include "dcmtk/dcmdata/dcostrmf.h"
#include "dcmtk/dcmdata/dcwcache.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <libgen.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// Flushes a file's content to stable storage; false with errno set on failure.
bool syncPath(const char* path, int flags)
{
    int fd = open(path, flags);
    if (fd < 0)
        return false;
    int rc = fsync(fd);
    int saved = errno;
    close(fd);
    errno = saved;
    return rc == 0;
}

} // namespace

bool syncDirectory(const char* path)
{
    if (path == NULL)
        return false;
    if (syncPath(path, O_RDONLY | O_DIRECTORY))
        return true;
    // Some file systems cannot sync directories; nothing more can be done there.
    return errno == EINVAL || errno == EROFS;
}

DcmFileFormat* readExistingDicomFile(const char* path)
{
    if (path == NULL)
        return NULL;
    DcmFileFormat* file = new DcmFileFormat();
    if (file->loadFile(path, EXS_Unknown, EGL_noChange, 4096, ERM_autoDetect).bad() ||
        file->loadAllDataIntoMemory().bad())
    {
        delete file;
        return NULL;
    }
    return file;
}

DcmFileFormat* readOrCreateDicomFile(const char* path)
{
    if (path == NULL)
        return NULL;
    DcmFileFormat* file = new DcmFileFormat();
    errno = 0;
    if (file->loadFile(path, EXS_Unknown, EGL_noChange, 4096, ERM_autoDetect).bad())
    {
        if (errno == ENOENT)
            return file; // a file to be created
        delete file;
        return NULL;
    }
    if (file->loadAllDataIntoMemory().bad())
    {
        delete file;
        return NULL;
    }
    return file;
}

bool writeDicomFile(const char* path, DcmFileFormat* file)
{
    if (path == NULL || file == NULL)
        return false;
    char suffix[64];
    snprintf(suffix, sizeof(suffix), ".wtmp.%d.%d", OFstatic_cast(int, getpid()), nextCounter());
    const std::string temporary = std::string(path) + suffix;

    E_TransferSyntax xfer = file->getDataset()->getOriginalXfer();
    if (xfer == EXS_Unknown)
        xfer = EXS_LittleEndianExplicit;

    // The content must be on disk before the rename makes it the target.
    OFCondition status = saveFileSynced(*file, temporary.c_str(), xfer, EET_ExplicitLength, EGL_recalcGL,
                                        EPD_noChange, 0, 0, EWM_createNewMeta);
    if (status.bad())
    {
        errmsg("writeDicomFile", "error writing temporary file: %s: %s", temporary.c_str(), status.text());
        unlink(temporary.c_str());
        return false;
    }
    if (rename(temporary.c_str(), path) != 0)
    {
        errmsg("writeDicomFile", "error moving temporary file %s to %s", temporary.c_str(), path);
        unlink(temporary.c_str());
        return false;
    }
    // The target is wholly replaced now; the directory sync only makes the rename durable.
    std::vector<char> copy(path, path + strlen(path) + 1);
    syncDirectory(dirname(copy.data()));
    return true;
}

static OFCondition systemError(int error)
{
    return makeOFCondition(OFM_dcmdata, 19, OF_error, strerror(error != 0 ? error : EIO));
}

OFCondition saveFileSynced(DcmFileFormat& file, const char* path, E_TransferSyntax xfer, E_EncodingType encoding,
                           E_GrpLenEncoding groupLength, E_PaddingEncoding padding, Uint32 padLength,
                           Uint32 subPadLength, E_FileWriteMode writeMode)
{
    if (path == NULL || *path == '\0')
        return EC_InvalidFilename;
    // The file is created new: a stale entry of that name (left by a killed run whose process id
    // came round again, or a link planted there) is removed first, and links are not followed, so
    // nothing is ever written through a link into another file.
    if (unlink(path) != 0 && errno != ENOENT)
        return systemError(errno);
    const int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0)
        return systemError(errno);
    FILE* out = fdopen(fd, "wb");
    if (out == NULL)
    {
        const int error = errno;
        close(fd);
        return systemError(error);
    }
    // The stream closes the file when it goes; everything is flushed and synced before that.
    DcmOutputFileStream stream(out);
    DcmWriteCache cache;
    errno = 0;
    file.transferInit();
    OFCondition status =
        file.write(stream, xfer, encoding, &cache, groupLength, padding, padLength, subPadLength, 0, writeMode);
    file.transferEnd();
    // A compressing stream (deflated transfer syntax) still holds the end of the data: write it
    // out now rather than in the stream's destructor, where a failure would go unnoticed.
    if (status.good())
        stream.flush();
    // A short write shows only as a stream suspension; the system's reason is clearer.
    if (ferror(out))
        status = systemError(errno);
    else if (status.good() && !stream.isFlushed())
        status = systemError(EIO);
    else if (status.good() && fflush(out) != 0)
        status = systemError(errno);
    else if (status.good() && fsync(fileno(out)) != 0)
        status = systemError(errno);
    return status;
}

