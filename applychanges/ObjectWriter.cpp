#include "applychanges/ObjectWriter.h"

#include "applychanges/AccessRules.h"
#include "dcmutils/ByteBuffer.h"
#include "dcmutils/fileio.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

// The disk starts writing at once; the batch's sync of the file system then waits only for the rest.
void startWriteOut(int fd)
{
    sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
}

} // namespace

void ObjectWriter::saveFailed(EditedObject& object, const OFCondition& cond)
{
    object.m_report.err() << "Error saving to temp file " << object.m_tempPath << " [" << cond.text() << "]"
                          << std::endl;
    object.m_keepTemporaryFile = true;
    object.m_state = EditedObject::EO_FAILED;
}

namespace {

// A new temporary file with the original's access rules; a refusal of those leaves none.
OFCondition createTemporaryFile(EditedObject& object, std::string& refusal)
{
    const OFCondition cond = object.m_temporaryDirectory->createFile(object.m_tempName, object.m_tempFd);
    if (cond.bad())
        return cond;
    refusal = AccessRules::copy(object.m_original->fd(), object.m_identity.status(), object.m_tempFd);
    if (!refusal.empty())
        object.discardTemporaryFile();
    return EC_Normal;
}

} // namespace

void ObjectWriter::prepare(EditedObject& object)
{
    TemporaryDirectory& temporary = *object.m_temporaryDirectory;
    object.m_tempName = temporary.nameFor(object.m_baseName);
    object.m_tempPath = temporary.pathFor(object.m_tempName);
    DcmFileFormat& file = *object.m_file;
    OFCondition cond;
    std::string refusal;
    if (object.m_inMemory)
    {
        // an edit changes a few attributes: room for the object as it was and some more
        ByteBuffer encoded;
        encoded.reserve(size_t(object.m_original->size()) + 65536);
        cond = encodeFileFormat(file, encoded, EXS_Unknown, EET_UndefinedLength, EGL_recalcGL, EPD_noChange, 0, 0,
                                EWM_createNewMeta);
        object.m_file.reset();
        if (cond.bad())
        {
            // as a save that failed: its file is there, and stays
            temporary.createFile(object.m_tempName, object.m_tempFd);
            return saveFailed(object, cond);
        }
        object.m_writtenSize = encoded.size();
        object.m_encoded.reset(new InputFile(std::move(encoded)));
        object.m_state = EditedObject::EO_EDITED; // the writer thread makes and writes its file
        return;
    }
    cond = createTemporaryFile(object, refusal);
    if (cond.bad())
        return saveFailed(object, cond);
    if (!refusal.empty())
        return object.refuse(refusal);
    cond = writeFileFormat(file, object.m_tempFd, EXS_Unknown, EET_UndefinedLength, EGL_recalcGL, EPD_noChange, 0,
                           0, EWM_createNewMeta);
    object.m_file.reset();
    if (cond.bad())
        return saveFailed(object, cond);
    object.m_writtenSize = (unsigned long long)lseek(object.m_tempFd, 0, SEEK_CUR);
    startWriteOut(object.m_tempFd);
    object.m_state = EditedObject::EO_WRITTEN;
}

OFCondition ObjectWriter::writeEncoded(EditedObject& object)
{
    OFCondition cond = createTemporaryFile(object, object.m_writeRefusal);
    if (cond.bad() || !object.m_writeRefusal.empty())
        return cond;
    cond = writeAll(object.m_tempFd, object.m_encoded->bytes(), size_t(object.m_encoded->size()));
    if (cond.good())
        startWriteOut(object.m_tempFd);
    object.closeTemporaryFile();
    return cond;
}
