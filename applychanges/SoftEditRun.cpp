#include "applychanges/SoftEditRun.h"

#include "applychanges/WrittenObjectCheck.h"
#include "dcmutils/ChangeSetCheck.h"
#include "dcmutils/dcmutils.h"
#include "dcmutils/fileio.h"
#include "dcmutils/softedit.h"
#include "objdiff/ObjDiff.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcmetinf.h"
#include "dcmtk/dcmdata/dcuid.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <set>

bool verbose = false;

namespace {

// Objects up to this size are read whole, edited, encoded and verified in memory: one read and
// one write each, and verification parses the very bytes written instead of reading both files
// again. Larger ones keep their values in their files while they are compared, so that memory
// stays near one copy of the object.
const unsigned long long IN_MEMORY_LIMIT = 16ull << 20;
// A batch of verified objects is made durable together.
const unsigned long BATCH_OBJECTS = 64;
const unsigned long long BATCH_BYTES = 256ull << 20;
// The comparison leaves values over 4096 bytes in their files and compares them piece by piece.
const Uint32 LAZY_READ_LENGTH = 4096;

// A DICOMDIR's records point into it by byte offsets: rewriting it would break them.
bool isMediaStorageDirectory(DcmFileFormat& file)
{
    OFString sopClass;
    if (file.getMetaInfo()->findAndGetOFString(DCM_MediaStorageSOPClassUID, sopClass).good() &&
        sopClass == UID_MediaStorageDirectoryStorage)
        return true;
    return file.getDataset()->tagExists(DCM_DirectoryRecordSequence, OFFalse);
}

std::string realDirectory(const std::string& directory)
{
    char* resolved = realpath(directory.c_str(), nullptr);
    if (!resolved)
        return directory;
    std::string result(resolved);
    free(resolved);
    return result;
}

bool usesMoreThanOneCore()
{
    cpu_set_t set;
    return sched_getaffinity(0, sizeof(set), &set) == 0 && CPU_COUNT(&set) > 1;
}

// A recycled file is overwritten in place: it is cut to what was written. Then the disk starts
// writing, and the batch's sync of the file system only waits for what is left.
OFCondition finishTemporaryFile(int fd)
{
    if (ftruncate(fd, lseek(fd, 0, SEEK_CUR)) != 0)
        return systemError(errno);
    sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
    return EC_Normal;
}

void refuse(EditedObject& object, const std::string& reason)
{
    object.m_err << "Refusing to edit " << object.m_target.path() << ": " << reason << std::endl;
}

} // namespace

SoftEditRun::SoftEditRun(DcmDataset& changes, const char* kqrPath)
    : m_changes(changes)
    , m_kqrPath(kqrPath)
    , m_charset(changes)
    , m_verifying(nullptr)
    , m_worker(usesMoreThanOneCore())
    , m_pendingObjects(0)
    , m_pendingBytes(0)
{
    if (stat(kqrPath, &m_kqrStat) != 0)
        memset(&m_kqrStat, 0, sizeof(m_kqrStat));
}

bool SoftEditRun::checkChanges()
{
    std::string reason;
    if (checkChangeSet(m_changes, reason))
        return true;
    std::cerr << "Refusing the soft edit changes of KqR file " << m_kqrPath << ": " << reason << std::endl;
    return false;
}

TemporaryDirectory* SoftEditRun::temporaryDirectoryFor(const std::string& directory, std::ostream& err)
{
    auto named = m_temporaryDirectoryNames.find(directory);
    if (named != m_temporaryDirectoryNames.end())
        return named->second;
    const std::string key = realDirectory(directory);
    auto found = m_temporaryDirectories.find(key);
    if (found != m_temporaryDirectories.end())
        return m_temporaryDirectoryNames[directory] = found->second.get();
    std::unique_ptr<TemporaryDirectory> created(new TemporaryDirectory);
    if (!created->open(directory, err))
        return nullptr;
    TemporaryDirectory* result = created.get();
    m_temporaryDirectories[key] = std::move(created);
    return m_temporaryDirectoryNames[directory] = result;
}

void SoftEditRun::applyToObject(EditedObject& object, bool inDirectory)
{
    const ObjectTarget& target = object.m_target;
    const char* objectPath = target.path().c_str();
    std::ostream& out = object.m_out;
    std::ostream& err = object.m_err;
    object.m_state = EditedObject::EO_FAILED;
    object.m_size = target.status() ? target.status()->st_size : 0;
    object.m_inMemory = target.status() && object.m_size <= IN_MEMORY_LIMIT;
    TemporaryDirectory* temporaryDirectory = temporaryDirectoryFor(target.directory(), err);
    if (!temporaryDirectory)
        return;
    // read, like everything else, through the directory opened at the start
    object.m_temporaryDirectory = temporaryDirectory;
    object.m_filePath = temporaryDirectory->objectPath(target.baseName());
    const char* filePath = object.m_filePath.c_str();

    DcmFileFormat file;
    OFCondition cond;
    if (object.m_inMemory)
    {
        cond = readWholeFile(filePath, object.m_original);
        if (cond.good())
            cond = loadFileFormat(file, object.m_original.data(), object.m_original.size());
    }
    else
        cond = file.loadFile(filePath, EXS_Unknown, EGL_noChange, DCM_MaxReadLength, ERM_autoDetect);
    if (cond.good() && isMediaStorageDirectory(file))
    {
        if (inDirectory)
        {
            if (verbose)
                out << "Skipping " << object.m_entryName << std::endl;
            object.m_state = EditedObject::EO_SKIPPED;
            return;
        }
        if (verbose)
            out << "Apply soft edit changes to " << objectPath << std::endl;
        refuse(object, "a DICOMDIR (Media Storage Directory) is never modified");
        return;
    }
    if (verbose)
        out << "Apply soft edit changes to " << objectPath << std::endl;
    if (cond.bad())
    {
        err << "Error loading " << objectPath << " [" << cond.text() << "]" << std::endl;
        return;
    }
    const std::string refusal = target.refusal(m_kqrStat);
    if (!refusal.empty())
        return refuse(object, refusal);
    if (!object.m_inMemory)
    {
        cond = file.loadAllDataIntoMemory();
        if (cond.bad())
        {
            err << "Error reading " << objectPath << " [" << cond.text() << "]" << std::endl;
            return;
        }
    }
    object.m_tempName = temporaryDirectory->nameFor(target.baseName());
    object.m_tempPath = temporaryDirectory->fileFor(target.baseName());
    const char* tempPath = object.m_tempPath.c_str();

    DcmDataset& dataset = *file.getDataset();
    OFString objectCharset;
    dataset.findAndGetOFStringArray(DCM_SpecificCharacterSet, objectCharset, OFFalse);
    std::string reason;
    DcmDataset* changes = m_charset.changesFor(objectCharset, reason);
    if (!changes)
        return refuse(object, reason);

    cond = applyModifications(dataset, *changes, &object.m_modified);
    if (cond.bad())
    {
        err << "Error applying soft edit changes to " << objectPath << " [" << cond.text() << "]" << std::endl;
        return;
    }
    for (const DcmTagKey& key : object.m_modified)
    {
        if (verbose)
            out << "   Modified key: " << key << std::endl;
        object.m_ignore.tags.insert(key);
    }
    object.m_ignore.patterns.insert("....0000");

    // The temporary file is created new and gets the object's permissions and, where the process
    // may, its owner, so that the archive's access rules survive the edit.
    cond = temporaryDirectory->createFile(object.m_tempName, object.m_fd);
    if (cond.good() && target.status())
    {
        fchmod(object.m_fd, target.status()->st_mode & 07777);
        if (fchown(object.m_fd, target.status()->st_uid, target.status()->st_gid) != 0)
        {
            // only a privileged process may give a file away; the mode still applies
        }
    }
    // sequences with undefined length, group lengths recalculated, a new meta header; a write that
    // fails late (full disk, file size limit) is reported, and its partial file is kept
    if (cond.good() && object.m_inMemory)
    {
        // an edit changes a few attributes: room for the object as it was and some more
        object.m_written.reserve(object.m_original.size() + 65536);
        cond = encodeFileFormat(file, object.m_written, EXS_Unknown, EET_UndefinedLength, EGL_recalcGL,
                                EPD_noChange, 0, 0, EWM_createNewMeta); // written by the second core
    }
    else if (cond.good())
    {
        cond = writeFileFormat(file, object.m_fd, EXS_Unknown, EET_UndefinedLength, EGL_recalcGL, EPD_noChange, 0,
                               0, EWM_createNewMeta);
        if (cond.good())
            cond = finishTemporaryFile(object.m_fd);
        if (cond.good())
            object.closeTemporaryFile();
    }
    if (cond.bad())
    {
        err << "Error saving to temp file " << tempPath << " [" << cond.text() << "]" << std::endl;
        return;
    }
    object.m_state = EditedObject::EO_WRITTEN;
}

bool SoftEditRun::writeAndCompare(EditedObject& object)
{
    if (object.m_inMemory)
    {
        OFCondition cond = writeAll(object.m_fd, object.m_written.data(), object.m_written.size());
        if (cond.good())
            cond = finishTemporaryFile(object.m_fd);
        if (cond.bad())
        {
            object.m_err << "Error saving to temp file " << object.m_tempPath << " [" << cond.text() << "]"
                         << std::endl;
            object.m_keepTemporaryFile = true;
            return false;
        }
        object.closeTemporaryFile();
    }
    return compareObjects(object);
}

bool SoftEditRun::compareObjects(EditedObject& object)
{
    ObjectComparator comparator(object.m_ignore);
    comparator.verbose = verbose;
    comparator.setOutput(object.m_out, object.m_err);
    const char* objectPath = object.m_target.path().c_str();
    const char* tempPath = object.m_tempPath.c_str();
    DcmFileFormat original;
    DcmFileFormat written;
    bool equal;
    if (object.m_inMemory)
    {
        OFCondition cond = loadFileFormat(original, object.m_original.data(), object.m_original.size());
        if (cond.bad())
            object.m_err << "Error loading " << objectPath << "(" << cond.text() << ")" << std::endl;
        else if ((cond = loadFileFormat(written, object.m_written.data(), object.m_written.size())).bad())
            object.m_err << "Error loading " << tempPath << "(" << cond.text() << ")" << std::endl;
        equal = cond.good();
    }
    else
    {
        // values stay in the files, read through the directories opened at the start
        const std::string writtenPath = object.m_temporaryDirectory->temporaryPath(object.m_tempName);
        OFCondition cond = original.loadFile(object.m_filePath.c_str(), EXS_Unknown, EGL_noChange, LAZY_READ_LENGTH,
                                             ERM_autoDetect);
        if (cond.bad())
            object.m_err << "Error loading " << objectPath << "(" << cond.text() << ")" << std::endl;
        else if ((cond = written.loadFile(writtenPath.c_str(), EXS_Unknown, EGL_noChange, LAZY_READ_LENGTH,
                                          ERM_autoDetect))
                     .bad())
            object.m_err << "Error loading " << tempPath << "(" << cond.text() << ")" << std::endl;
        equal = cond.good();
    }
    equal = equal && comparator.compareObjects(original.getDataset(), written.getDataset(), OC_MODE_BINARY) &&
            checkWrittenObject(original, written, object.m_modified, object.m_err);
    object.m_original.release();
    object.m_written.release();
    if (!equal)
        object.m_err << "Objects differ after applying soft edit changes for " << objectPath << "[" << tempPath
                     << "]" << std::endl;
    return equal;
}

void SoftEditRun::writeReports()
{
    while (!m_queue.empty() && (m_queue.front()->m_state == EditedObject::EO_SKIPPED ||
                                m_queue.front()->m_state == EditedObject::EO_COMMITTED))
    {
        std::cout << m_queue.front()->m_out.str() << std::flush;
        std::cerr << m_queue.front()->m_err.str() << std::flush;
        m_queue.pop_front();
    }
}

bool SoftEditRun::failAt(EditedObject* failed)
{
    m_failedPath = failed->m_target.path();
    // what came before the failure is committed (that may itself fail earlier) and made durable
    if (!commit(failed))
        return false;
    syncReplacements();
    if (m_worker.pending())
        m_worker.wait();
    m_verifying = nullptr;
    bool after = false;
    while (!m_queue.empty())
    {
        std::unique_ptr<EditedObject> entry = std::move(m_queue.front());
        m_queue.pop_front();
        if (after)
        {
            // never reported: the run stopped before it
            if (entry->m_state == EditedObject::EO_WRITTEN || entry->m_state == EditedObject::EO_VERIFIED)
                entry->discardTemporaryFile();
            continue;
        }
        std::cout << entry->m_out.str() << std::flush;
        std::cerr << entry->m_err.str() << std::flush;
        after = entry.get() == failed;
    }
    return false;
}

bool SoftEditRun::settleVerification()
{
    EditedObject* object = m_verifying;
    if (!object)
        return true;
    const bool equal = m_worker.wait();
    m_verifying = nullptr;
    if (!equal)
    {
        // a verification that failed removes its file; a write that failed keeps it
        if (object->m_keepTemporaryFile)
            object->closeTemporaryFile();
        else
            object->discardTemporaryFile();
        object->m_state = EditedObject::EO_FAILED;
        return failAt(object);
    }
    object->m_state = EditedObject::EO_VERIFIED;
    ++m_pendingObjects;
    m_pendingBytes += object->m_size;
    return true;
}

bool SoftEditRun::commit(const EditedObject* stopAt)
{
    std::vector<EditedObject*> batch;
    for (auto& entry : m_queue)
    {
        if (entry.get() == stopAt)
            break;
        if (entry->m_state == EditedObject::EO_VERIFIED)
            batch.push_back(entry.get());
    }
    m_pendingObjects = 0;
    m_pendingBytes = 0;

    // every temporary file of the batch on disk before the first replacement: one sync of each
    // file system for the whole batch, rather than one per object (each waits for a flush of the
    // disk's cache)
    std::set<TemporaryDirectory*> directories;
    for (EditedObject* object : batch)
        directories.insert(object->m_temporaryDirectory);
    EditedObject* failed = nullptr;
    for (TemporaryDirectory* directory : directories)
        if (!failed && !directory->syncFileSystem())
        {
            failed = batch.front();
            failed->m_err << "Error saving to temp file " << failed->m_tempPath << " [" << strerror(errno) << "]"
                          << std::endl;
            failed->m_state = EditedObject::EO_FAILED;
        }
    for (size_t i = 0; i < batch.size() && !failed; ++i)
    {
        EditedObject* object = batch[i];
        TemporaryDirectory* directory = object->m_temporaryDirectory;
        if (!directory->replace(object->m_tempName, object->m_target.baseName()))
        {
            object->m_err << "Error moving modified file to it's final place for " << object->m_target.path()
                          << std::endl;
            object->discardTemporaryFile();
            object->m_state = EditedObject::EO_FAILED;
            failed = object;
            break;
        }
        object->m_state = EditedObject::EO_COMMITTED;
        m_replacedIn.insert(directory);
    }
    // the replacements on disk, their originals serve the next batch instead of new files
    syncReplacements();
    if (failed)
        return failAt(failed);
    writeReports();
    return true;
}

bool SoftEditRun::submit(std::unique_ptr<EditedObject> object)
{
    EditedObject* entry = object.get();
    m_queue.push_back(std::move(object));
    if (!settleVerification())
        return false;
    if (entry->m_state == EditedObject::EO_FAILED)
        return failAt(entry);
    if (entry->m_state == EditedObject::EO_WRITTEN)
    {
        m_verifying = entry;
        m_worker.start([this, entry] { return writeAndCompare(*entry); });
    }
    if (m_pendingObjects >= BATCH_OBJECTS || m_pendingBytes >= BATCH_BYTES)
        return commit(nullptr);
    writeReports();
    return true;
}

bool SoftEditRun::isPending(const ObjectTarget& target) const
{
    for (const auto& entry : m_queue)
        if (entry->m_target.status() && target.isSameFileAs(*entry->m_target.status()) &&
            (entry->m_state == EditedObject::EO_WRITTEN || entry->m_state == EditedObject::EO_VERIFIED))
            return true;
    return false;
}

bool SoftEditRun::finish()
{
    const bool done = settleVerification() && commit(nullptr);
    syncReplacements();
    return done;
}

void SoftEditRun::syncReplacements()
{
    for (TemporaryDirectory* directory : m_replacedIn)
        directory->syncDirectory();
    m_replacedIn.clear();
}

int SoftEditRun::applyToSingleObject(const char* objectName)
{
    std::unique_ptr<EditedObject> object(new EditedObject(objectName, ""));
    object->m_entryName = object->m_target.baseName();
    if (!temporaryDirectoryFor(object->m_target.directory(), std::cerr))
        return 1;
    applyToObject(*object, false);
    if (!submit(std::move(object)) || !finish())
    {
        std::cerr << "Applying soft edit changes to object failed: " << objectName << std::endl;
        return 1;
    }
    return 0;
}

int SoftEditRun::applyToStudyDirectory(const char* studyDir)
{
    DIR* dir = opendir(studyDir);
    if (!dir)
    {
        std::cerr << "Study directory could not be opened: " << studyDir << std::endl;
        return 1;
    }
    if (!temporaryDirectoryFor(studyDir, std::cerr))
    {
        closedir(dir);
        return 1;
    }
    if (verbose)
        std::cout << "Iterating through files in " << studyDir << std::endl;

    bool ok = true;
    errno = 0;
    while (struct dirent* entry = readdir(dir))
    {
        const char* name = entry->d_name;
        std::unique_ptr<EditedObject> object(new EditedObject(std::string(studyDir) + "/" + name, name));
        if (name[0] == '.' || strncmp(name, "KqR.", 4) == 0)
        {
            if (verbose)
                object->m_out << "Skipping " << name << std::endl;
            object->m_state = EditedObject::EO_SKIPPED;
        }
        else if (entry->d_type == DT_DIR || (entry->d_type == DT_LNK && object->m_target.isDirectory()))
        {
            if (verbose)
                object->m_out << "Skipping directory " << name << std::endl;
            object->m_state = EditedObject::EO_SKIPPED;
        }
        else if (object->m_target.isSameFileAs(m_kqrStat))
        {
            // the run's own KqR file, under another name
            if (verbose)
                object->m_out << "Skipping " << name << std::endl;
            object->m_state = EditedObject::EO_SKIPPED;
        }
        else
        {
            // a second name of an object still on its way (a link to it): that one is finished
            // first, so that the two edits follow each other as they would one at a time
            if (isPending(object->m_target) && !finish())
            {
                ok = false;
                break;
            }
            applyToObject(*object, true);
        }
        if (!submit(std::move(object)))
        {
            ok = false;
            break;
        }
        errno = 0;
    }
    const int walkError = errno;
    closedir(dir);
    if (ok && !finish())
        ok = false;
    if (!ok)
    {
        std::cerr << "Applying soft edit changes to object failed: " << m_failedPath << std::endl;
        return 1;
    }
    if (walkError != 0)
    {
        std::cerr << "An error occured while iterating through on files in " << studyDir << std::endl;
        return 1;
    }
    return 0;
}
