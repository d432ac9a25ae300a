#include "applychanges/ObjectWriter.h"

#include "applychanges/AccessRules.h"
#include "dcmutils/fileio.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

// A save that failed keeps its partly written file. The entry's state is the main thread's to set.
void reportSaveFailure(EditedObject& object, const OFCondition& cond)
{
    object.m_report.err() << "Error saving to temp file " << object.m_tempPath << " [" << cond.text() << "]"
                          << std::endl;
    object.m_keepTemporaryFile = true;
}

void saveFailed(EditedObject& object, const OFCondition& cond)
{
    reportSaveFailure(object, cond);
    object.m_state = EditedObject::EO_FAILED;
}

// The disk starts writing at once; the batch's sync of the file system then waits only for the rest.
void startWriteOut(int fd)
{
    sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
}

} // namespace

void ObjectWriter::prepare(EditedObject& object)
{
    TemporaryDirectory& temporary = *object.m_temporaryDirectory;
    object.m_tempName = temporary.nameFor(object.m_baseName);
    object.m_tempPath = temporary.pathFor(object.m_tempName);
    OFCondition cond = temporary.createFile(object.m_tempName, object.m_tempFd);
    if (cond.bad())
        return saveFailed(object, cond);
    const std::string refusal =
        AccessRules::copy(object.m_original->fd(), object.m_identity.status(), object.m_tempFd);
    if (!refusal.empty())
    {
        object.discardTemporaryFile();
        return object.refuse(refusal);
    }
    DcmFileFormat& file = *object.m_file;
    if (object.m_inMemory)
    {
        // an edit changes a few attributes: room for the object as it was and some more
        object.m_encoded.reserve(size_t(object.m_original->size()) + 65536);
        cond = encodeFileFormat(file, object.m_encoded, EXS_Unknown, EET_UndefinedLength, EGL_recalcGL,
                                EPD_noChange, 0, 0, EWM_createNewMeta);
        object.m_file.reset();
        if (cond.bad())
            return saveFailed(object, cond);
        object.m_state = EditedObject::EO_EDITED;
        return;
    }
    cond = writeFileFormat(file, object.m_tempFd, EXS_Unknown, EET_UndefinedLength, EGL_recalcGL, EPD_noChange, 0,
                           0, EWM_createNewMeta);
    object.m_file.reset();
    if (cond.bad())
        return saveFailed(object, cond);
    object.m_writtenSize = (unsigned long long)lseek(object.m_tempFd, 0, SEEK_CUR);
    startWriteOut(object.m_tempFd);
    object.m_state = EditedObject::EO_WRITTEN;
}

bool ObjectWriter::writeEncoded(EditedObject& object)
{
    const OFCondition cond = writeAll(object.m_tempFd, object.m_encoded.data(), object.m_encoded.size());
    if (cond.bad())
    {
        reportSaveFailure(object, cond);
        return false;
    }
    object.m_writtenSize = object.m_encoded.size();
    startWriteOut(object.m_tempFd);
    return true;
}
