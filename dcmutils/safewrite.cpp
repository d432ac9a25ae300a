// Reading DICOM files whole and writing them safely through a temporary file (replaceFile).
#include "dcmutils/dcmutils.h"
#include "dcmutils/dcmcounter.h"
#include "dcmutils/fileio.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <libgen.h>
#include <string>
#include <unistd.h>
#include <vector>

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

    REPLACE_STEP failed = RS_DONE;
    const OFCondition status = replaceFile(
        path, temporary,
        [&](int fd) {
            return writeFileFormat(*file, fd, xfer, EET_ExplicitLength, EGL_recalcGL, EPD_noChange, 0, 0,
                                   EWM_createNewMeta);
        },
        failed);
    if (failed == RS_CREATE || failed == RS_WRITE)
        errmsg("writeDicomFile", "error writing temporary file: %s: %s", temporary.c_str(), status.text());
    else if (failed == RS_RENAME)
        errmsg("writeDicomFile", "error moving temporary file %s to %s", temporary.c_str(), path);
    return status.good();
}

