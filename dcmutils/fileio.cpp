#include "dcmutils/fileio.h"

#include "dcmutils/DescriptorOutputStream.h"
#include "dcmutils/BufferOutputStream.h"

#include "dcmtk/dcmdata/dcwcache.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

OFCondition systemError(int error)
{
    return makeOFCondition(OFM_dcmdata, 19, OF_error, strerror(error != 0 ? error : EIO));
}

bool syncDirectoryDescriptor(int fd)
{
    if (fsync(fd) == 0)
        return true;
    // Some file systems cannot sync directories; nothing more can be done there.
    return errno == EINVAL || errno == EROFS;
}

namespace {

// Writes the object into the stream and flushes it; the consumer may still hold the last bytes.
OFCondition encode(DcmFileFormat& file, DcmOutputStream& stream, E_TransferSyntax xfer, E_EncodingType encoding,
                   E_GrpLenEncoding groupLength, E_PaddingEncoding padding, Uint32 padLength, Uint32 subPadLength,
                   E_FileWriteMode writeMode)
{
    DcmWriteCache cache;
    file.transferInit();
    OFCondition status =
        file.write(stream, xfer, encoding, &cache, groupLength, padding, padLength, subPadLength, 0, writeMode);
    file.transferEnd();
    // a compressing stream (deflated transfer syntax) still holds the end of the data
    if (status.good())
        stream.flush();
    return status;
}

} // namespace

OFCondition createNewFile(const char* path, int& fd)
{
    return createNewFileAt(AT_FDCWD, path, fd);
}

OFCondition createNewFileAt(int directoryFd, const char* name, int& fd)
{
    fd = -1;
    if (name == NULL || *name == '\0')
        return EC_InvalidFilename;
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    fd = openat(directoryFd, name, flags, 0666);
    // a stale entry (a file left by a killed process, a planted link) is removed, never opened
    if (fd < 0 && errno == EEXIST)
    {
        if (unlinkat(directoryFd, name, 0) != 0 && errno != ENOENT)
            return systemError(errno);
        fd = openat(directoryFd, name, flags, 0666);
    }
    return fd < 0 ? systemError(errno) : EC_Normal;
}

OFCondition writeFileFormat(DcmFileFormat& file, int fd, E_TransferSyntax xfer, E_EncodingType encoding,
                            E_GrpLenEncoding groupLength, E_PaddingEncoding padding, Uint32 padLength,
                            Uint32 subPadLength, E_FileWriteMode writeMode)
{
    DescriptorOutputStream stream(fd);
    const OFCondition status =
        encode(file, stream, xfer, encoding, groupLength, padding, padLength, subPadLength, writeMode);
    stream.drain();
    // a failed write shows only as a stream suspension; the system's reason is clearer
    if (stream.writeStatus().bad())
        return stream.writeStatus();
    if (status.bad())
        return status;
    return stream.allWritten() ? EC_Normal : systemError(EIO);
}

OFCondition encodeFileFormat(DcmFileFormat& file, ByteBuffer& bytes, E_TransferSyntax xfer,
                             E_EncodingType encoding, E_GrpLenEncoding groupLength, E_PaddingEncoding padding,
                             Uint32 padLength, Uint32 subPadLength, E_FileWriteMode writeMode)
{
    BufferOutputStream stream(bytes);
    return encode(file, stream, xfer, encoding, groupLength, padding, padLength, subPadLength, writeMode);
}

OFCondition writeAll(int fd, const char* data, size_t size)
{
    size_t written = 0;
    while (written < size)
    {
        const ssize_t n = write(fd, data + written, size - written);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return systemError(n < 0 ? errno : ENOSPC);
        written += n;
    }
    return EC_Normal;
}

std::string temporaryNameBeside(const std::string& path, const std::string& prefix)
{
    const std::string::size_type slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::string head = "." + prefix + std::to_string(getpid()) + ".";
    static unsigned counter = 0;
    if (head.size() + name.size() > NAME_MAX)
        name = std::to_string(++counter) + "." + name.substr(0, NAME_MAX - head.size() - 12);
    return dir + head + name;
}

OFCondition replaceFile(const std::string& path, const std::string& temporary,
                        const std::function<OFCondition(int fd)>& content, REPLACE_STEP& failed)
{
    failed = RS_CREATE;
    int fd = -1;
    OFCondition status = createNewFile(temporary.c_str(), fd);
    if (status.bad())
        return status;
    failed = RS_WRITE;
    status = content(fd);
    // the content must be on disk before the rename makes it the target
    if (status.good() && fsync(fd) != 0)
        status = systemError(errno);
    if (fd >= 0 && close(fd) != 0 && status.good())
        status = systemError(errno);
    if (status.good() && rename(temporary.c_str(), path.c_str()) != 0)
    {
        status = systemError(errno);
        failed = RS_RENAME;
    }
    if (status.bad())
    {
        unlink(temporary.c_str());
        return status;
    }
    failed = RS_DONE;
    // the target is wholly replaced now; the directory sync only makes the rename durable
    const std::string::size_type slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    const int dirFd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd >= 0)
    {
        syncDirectoryDescriptor(dirFd);
        close(dirFd);
    }
    return EC_Normal;
}

OFCondition replaceFileThroughStream(const std::string& path, const std::string& temporary,
                                     const std::function<bool(FILE* stream)>& write, REPLACE_STEP& failed)
{
    return replaceFile(
        path, temporary,
        [&](int fd) {
            const int own = dup(fd);
            FILE* stream = own >= 0 ? fdopen(own, "wb") : nullptr;
            if (stream == nullptr)
            {
                const int error = errno;
                if (own >= 0)
                    close(own);
                return systemError(error);
            }
            errno = 0;
            bool ok = write(stream);
            const int error = errno;
            ok = fclose(stream) == 0 && ok;
            return ok ? OFCondition(EC_Normal) : systemError(error ? error : errno);
        },
        failed);
}
