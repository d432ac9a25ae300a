#include "applychanges/SoftEditRun.h"

#include "applychanges/WrittenObjectCheck.h"
#include "dcmutils/ChangeSetCheck.h"
#include "dcmutils/dcmutils.h"
#include "dcmutils/softedit.h"
#include "objdiff/ObjDiff.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcmetinf.h"
#include "dcmtk/dcmdata/dcuid.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iostream>

bool verbose = false;

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

// Gives the replacement the object's permissions and, where the process may, its owner, so
// that the archive's access rules survive the edit.
void keepModeAndOwner(const char* objectPath, const char* tempPath)
{
    struct stat st;
    if (stat(objectPath, &st) != 0)
        return;
    chmod(tempPath, st.st_mode & 07777);
    if (chown(tempPath, st.st_uid, st.st_gid) != 0)
    {
        // only a privileged process may give a file away; the mode still applies
    }
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

void refuse(const std::string& path, const std::string& reason)
{
    std::cerr << "Refusing to edit " << path << ": " << reason << std::endl;
}

} // namespace

SoftEditRun::SoftEditRun(DcmDataset& changes, const char* kqrPath)
    : m_changes(changes), m_kqrPath(kqrPath), m_charset(changes)
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

TemporaryDirectory* SoftEditRun::temporaryDirectoryFor(const std::string& directory)
{
    const std::string key = realDirectory(directory);
    auto found = m_temporaryDirectories.find(key);
    if (found != m_temporaryDirectories.end())
        return found->second.get();
    std::unique_ptr<TemporaryDirectory> created(new TemporaryDirectory);
    if (!created->open(directory))
        return nullptr;
    TemporaryDirectory* result = created.get();
    m_temporaryDirectories[key] = std::move(created);
    return result;
}

void SoftEditRun::syncReplacements()
{
    // once per run rather than per object: each sync waits for a flush of the disk's cache
    for (const std::string& directory : m_directoriesToSync)
        syncDirectory(directory.c_str());
    m_directoriesToSync.clear();
}

bool SoftEditRun::compareObjects(const char* objectPath, const char* modifiedPath, IgnoreTags& ignore,
                                 const std::list<DcmTagKey>& modified)
{
    ObjectComparator comparator(ignore);
    comparator.verbose = verbose;
    DcmFileFormat original;
    DcmFileFormat written;
    if (!comparator.loadObjectAndKqR(original, objectPath, nullptr) ||
        !comparator.loadObjectAndKqR(written, modifiedPath, nullptr))
        return false;
    return comparator.compareObjects(original.getDataset(), written.getDataset(), OC_MODE_BINARY) &&
           checkWrittenObject(original, written, modified);
}

SoftEditRun::OBJECT_RESULT SoftEditRun::applyToObject(const ObjectTarget& target, const std::string& entryName,
                                                      bool inDirectory)
{
    const char* objectPath = target.path().c_str();
    const char* filePath = target.filePath().c_str();
    DcmFileFormat object;
    OFCondition cond = object.loadFile(filePath, EXS_Unknown, EGL_noChange, DCM_MaxReadLength, ERM_autoDetect);
    if (cond.good() && isMediaStorageDirectory(object))
    {
        if (inDirectory)
        {
            if (verbose)
                std::cout << "Skipping " << entryName << std::endl;
            return OR_SKIPPED;
        }
        if (verbose)
            std::cout << "Apply soft edit changes to " << objectPath << std::endl;
        refuse(objectPath, "a DICOMDIR (Media Storage Directory) is never modified");
        return OR_FAILED;
    }
    if (verbose)
        std::cout << "Apply soft edit changes to " << objectPath << std::endl;
    if (cond.bad())
    {
        std::cerr << "Error loading " << objectPath << " [" << cond.text() << "]" << std::endl;
        return OR_FAILED;
    }
    const std::string refusal = target.refusal(m_kqrStat);
    if (!refusal.empty())
    {
        refuse(objectPath, refusal);
        return OR_FAILED;
    }
    cond = object.loadAllDataIntoMemory();
    if (cond.bad())
    {
        std::cerr << "Error reading " << objectPath << " [" << cond.text() << "]" << std::endl;
        return OR_FAILED;
    }
    TemporaryDirectory* temporaryDirectory = temporaryDirectoryFor(target.directory());
    if (!temporaryDirectory)
        return OR_FAILED;
    const std::string tempFile = temporaryDirectory->fileFor(target.baseName());
    const char* tempPath = tempFile.c_str();

    DcmDataset& dataset = *object.getDataset();
    OFString objectCharset;
    dataset.findAndGetOFStringArray(DCM_SpecificCharacterSet, objectCharset, OFFalse);
    std::string reason;
    DcmDataset* changes = m_charset.changesFor(objectCharset, reason);
    if (!changes)
    {
        refuse(objectPath, reason);
        return OR_FAILED;
    }

    IgnoreTags ignore;
    std::list<DcmTagKey> modified;
    cond = applyModifications(dataset, *changes, &modified);
    if (cond.bad())
    {
        std::cerr << "Error applying soft edit changes to " << objectPath << " [" << cond.text() << "]"
                  << std::endl;
        return OR_FAILED;
    }
    for (const DcmTagKey& key : modified)
    {
        if (verbose)
            std::cout << "   Modified key: " << key << std::endl;
        ignore.tags.insert(key);
    }
    ignore.patterns.insert("....0000");

    // saveFile with the same parameters, but a write that fails late (full disk, file size
    // limit) is reported here instead of leaving a silently truncated temporary file
    cond = saveFileSynced(object, tempPath, EXS_Unknown, EET_UndefinedLength, EGL_recalcGL, EPD_noChange, 0, 0,
                          EWM_createNewMeta);
    if (cond.bad())
    {
        std::cerr << "Error saving to temp file " << tempPath << " [" << cond.text() << "]" << std::endl;
        return OR_FAILED;
    }

    if (!compareObjects(filePath, tempPath, ignore, modified))
    {
        std::cerr << "Objects differ after applying soft edit changes for " << objectPath << "[" << tempPath << "]"
                  << std::endl;
        unlink(tempPath);
        return OR_FAILED;
    }

    keepModeAndOwner(filePath, tempPath);
    if (rename(tempPath, filePath) != 0)
    {
        std::cerr << "Error moving modified file to it's final place for " << objectPath << std::endl;
        unlink(tempPath);
        return OR_FAILED;
    }
    m_directoriesToSync.insert(target.directory());
    return OR_REPLACED;
}

int SoftEditRun::applyToSingleObject(const char* objectName)
{
    const ObjectTarget target(objectName);
    if (!temporaryDirectoryFor(target.directory()))
        return 1;
    const OBJECT_RESULT result = applyToObject(target, target.baseName(), false);
    syncReplacements();
    if (result != OR_REPLACED)
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
    if (!temporaryDirectoryFor(studyDir))
    {
        closedir(dir);
        return 1;
    }
    if (verbose)
        std::cout << "Iterating through files in " << studyDir << std::endl;

    int status = 0;
    errno = 0;
    while (struct dirent* entry = readdir(dir))
    {
        const char* name = entry->d_name;
        const std::string objectPath = std::string(studyDir) + "/" + name;
        if (name[0] == '.' || strncmp(name, "KqR.", 4) == 0)
        {
            if (verbose)
                std::cout << "Skipping " << name << std::endl;
            continue;
        }
        if (entry->d_type == DT_DIR)
        {
            if (verbose)
                std::cout << "Skipping directory " << name << std::endl;
            continue;
        }
        const ObjectTarget target(objectPath);
        if (entry->d_type == DT_LNK && target.isDirectory())
        {
            if (verbose)
                std::cout << "Skipping directory " << name << std::endl;
            errno = 0;
            continue;
        }
        struct stat st;
        if (stat(target.filePath().c_str(), &st) == 0 && st.st_dev == m_kqrStat.st_dev &&
            st.st_ino == m_kqrStat.st_ino)
        {
            // the run's own KqR file, under another name
            if (verbose)
                std::cout << "Skipping " << name << std::endl;
            errno = 0;
            continue;
        }
        if (applyToObject(target, name, true) == OR_FAILED)
        {
            std::cerr << "Applying soft edit changes to object failed: " << objectPath << std::endl;
            status = 1;
            break;
        }
        errno = 0;
    }
    if (status == 0 && errno != 0)
    {
        std::cerr << "An error occured while iterating through on files in " << studyDir << std::endl;
        status = 1;
    }
    closedir(dir);
    syncReplacements();
    return status;
}
