// Low-level file input and output for DICOM objects: files created new and never through a link,
// objects encoded onto a descriptor or into memory in large pieces, and objects read whole and
// parsed from memory. The safe writer and the run driver build on these.
#ifndef DCMUTILS_FILEIO_H
#define DCMUTILS_FILEIO_H

#include "dcmutils/ByteBuffer.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <functional>
#include <string>

/** A condition carrying the system's text for an errno value (EIO for 0). */
OFCondition systemError(int error);

/** Flushes an open directory to stable storage, so that renames in it survive a power loss.
 *  @return true on success and where the file system cannot sync directories; false with
 *    errno set otherwise */
bool syncDirectoryDescriptor(int fd);

/** Creates path as a new file for writing. A stale entry of that name (a file left by a killed
 *  process, or a link planted there) is removed first, and the file is opened with O_CREAT,
 *  O_EXCL and O_NOFOLLOW, so that nothing is ever written through a link into another file.
 *  @param path the file to create
 *  @param fd set to the open descriptor, which the caller closes
 *  @return EC_Normal, or a condition with the system's error text
 */
OFCondition createNewFile(const char* path, int& fd);

/** createNewFile for a name relative to an open directory (as openat(2)), so that the file lands
 *  in that very directory even if its path has changed since it was opened. */
OFCondition createNewFileAt(int directoryFd, const char* name, int& fd);

/** Writes file onto an open descriptor as DcmFileFormat::saveFile would write it with these
 *  parameters, in pieces of 1 MiB. The descriptor stays open and is not synced.
 *  @return EC_Normal, or a condition with the system's error text (full disk, file size limit)
 */
OFCondition writeFileFormat(DcmFileFormat& file, int fd, E_TransferSyntax xfer, E_EncodingType encoding,
                            E_GrpLenEncoding groupLength, E_PaddingEncoding padding, Uint32 padLength,
                            Uint32 subPadLength, E_FileWriteMode writeMode);

/** Encodes file as DcmFileFormat::saveFile would write it with these parameters, appending the
 *  bytes to bytes. */
OFCondition encodeFileFormat(DcmFileFormat& file, ByteBuffer& bytes, E_TransferSyntax xfer,
                             E_EncodingType encoding, E_GrpLenEncoding groupLength, E_PaddingEncoding padding,
                             Uint32 padLength, Uint32 subPadLength, E_FileWriteMode writeMode);

/** The temporary name beside path for a program's output: "<dir>/.<prefix><pid>.<name>", the
 *  name shortened (and a counter added) where it would pass the file system's name limit. */
std::string temporaryNameBeside(const std::string& path, const std::string& prefix);

/// Where replaceFile() failed.
enum REPLACE_STEP
{
    /// making the temporary file (its directory missing or not writable, ...)
    RS_CREATE,
    /// writing it (content's condition, or the sync's)
    RS_WRITE,
    /// renaming it over the target
    RS_RENAME,
    /// nothing failed
    RS_DONE
};

/** The one way the programs write an output: a new temporary file (createNewFile: never through
 *  a link), filled by content, synced and closed, renamed over path, the directory synced. A
 *  reader sees the old file or the new one whole; a failure removes the temporary file and leaves
 *  path as it was.
 *  @param temporary the temporary file's path, beside path (see temporaryNameBeside())
 *  @param content writes the file onto the descriptor it is given (not closed there)
 *  @param failed set to the step that failed, RS_DONE on success
 *  @return EC_Normal, content's condition or a condition with the system's error text */
OFCondition replaceFile(const std::string& path, const std::string& temporary,
                        const std::function<OFCondition(int fd)>& content, REPLACE_STEP& failed);

/** replaceFile() for content written through a stdio stream: write is given a stream on the
 *  new temporary file and returns false (errno set) when it could not write everything. */
OFCondition replaceFileThroughStream(const std::string& path, const std::string& temporary,
                                     const std::function<bool(FILE* stream)>& write, REPLACE_STEP& failed);

/** Writes size bytes of data to fd, resuming after short writes.
 *  @return EC_Normal, or a condition with the system's error text */
OFCondition writeAll(int fd, const char* data, size_t size);

#endif
