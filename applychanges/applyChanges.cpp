// applyChanges: applies the soft edit changes of a KqR file to one DICOM object or to every
// object of a study directory. Each object is changed in memory, written to a temporary file,
// verified attribute by attribute against the original and only then renamed into place.

#include "objdiff/IgnoreTags.h"
#include "privatetags/KQDictionary.h"
#include "privatetags/KQItem.h"
#include "objdiff/ObjDiff.h"
#include "dcmutils/dcmutils.h"
#include "dcmutils/softedit.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <dirent.h>
#include <libgen.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <list>
#include <string>

static bool verbose = false;
static char processId[16];

int printUsage(int status)
{
    std::cerr << "applyChanges [-h] [-v] -p <kqrfile> { -d <studydir> | -o <objectname> } " << std::endl
              << std::endl
              << "    -h               : prints this usage information" << std::endl
              << "    -v               : print verbose messages" << std::endl
              << "    -p <kqrfile>     : path to the KqR file changes to be taken from" << std::endl
              << "    -d <studydir>    : path to directory study objects reside" << std::endl
              << "                       changes will be applied to all objects in the study directory" << std::endl
              << "    -o <objectname>  : path to DICOM object the changes to be applied to" << std::endl
              << "                       changes will be applied to the specified DICOM object only" << std::endl
              << std::endl
              << "    The -d and -o options are exclusive: exactly one of them need to be specified" << std::endl
              << std::endl;
    return status;
}

bool compareObjects(const char* objectPath, const char* modifiedPath, IgnoreTags& ignore)
{
    ObjectComparator comparator(ignore);
    comparator.verbose = verbose;
    return comparator.compareObjects(objectPath, nullptr, modifiedPath, nullptr, OC_MODE_BINARY);
}

// Makes the renames of a study directory run durable, all at once at its end.
static void syncReplacements(const char* studyDir, unsigned long replaced)
{
    if (replaced > 0)
        syncDirectory(studyDir);
}

// Gives the replacement the object's permissions and, where the process may, its owner, so
// that the archive's access rules survive the edit.
static void keepModeAndOwner(const char* objectPath, const char* tempPath)
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

bool applyToObject(DcmDataset& changes, const char* objectPath, const char* tempPath)
{
    if (verbose)
        std::cout << "Apply soft edit changes to " << objectPath << std::endl;

    DcmFileFormat object;
    OFCondition cond = object.loadFile(objectPath, EXS_Unknown, EGL_noChange, DCM_MaxReadLength, ERM_autoDetect);
    if (cond.bad())
    {
        std::cerr << "Error loading " << objectPath << " [" << cond.text() << "]" << std::endl;
        return false;
    }
    cond = object.loadAllDataIntoMemory();
    if (cond.bad())
    {
        std::cerr << "Error reading " << objectPath << " [" << cond.text() << "]" << std::endl;
        return false;
    }

    IgnoreTags ignore;
    std::list<DcmTagKey> modified;
    cond = applyModifications(*object.getDataset(), changes, &modified);
    if (cond.bad())
    {
        std::cerr << "Error applying soft edit changes to " << objectPath << " [" << cond.text() << "]"
                  << std::endl;
        return false;
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
        return false;
    }

    if (!compareObjects(objectPath, tempPath, ignore))
    {
        std::cerr << "Objects differ after applying soft edit changes for " << objectPath << "[" << tempPath << "]"
                  << std::endl;
        unlink(tempPath);
        return false;
    }

    keepModeAndOwner(objectPath, tempPath);
    if (rename(tempPath, objectPath) != 0)
    {
        std::cerr << "Error moving modified file to it's final place for " << objectPath << std::endl;
        unlink(tempPath);
        return false;
    }
    // The rename is made durable by the caller's sync of the directory: once per run, as
    // each sync waits for a flush of the disk's cache.
    return true;
}

static bool makeTemporaryDirectory(const std::string& tempDir)
{
    if (mkdir(tempDir.c_str(), 0755) != 0 && errno != EEXIST)
    {
        std::cerr << "Temporary directory could not be created: " << tempDir << std::endl;
        return false;
    }
    return true;
}

static int applyToSingleObject(DcmDataset& changes, const char* objectName)
{
    std::string dirCopy(objectName);
    std::string baseCopy(objectName);
    const std::string directory = dirname(&dirCopy[0]);
    const std::string base = basename(&baseCopy[0]);
    const std::string tempDir = directory + "/.tmp";
    if (!makeTemporaryDirectory(tempDir))
        return 1;
    const std::string tempFile = tempDir + "/.applychanges" + processId + "." + base;
    if (!applyToObject(changes, objectName, tempFile.c_str()))
    {
        std::cerr << "Applying soft edit changes to object failed: " << objectName << std::endl;
        return 1;
    }
    // make the rename durable
    syncDirectory(directory.c_str());
    return 0;
}

static int applyToStudyDirectory(DcmDataset& changes, const char* studyDir)
{
    DIR* dir = opendir(studyDir);
    if (!dir)
    {
        std::cerr << "Study directory could not be opened: " << studyDir << std::endl;
        return 1;
    }
    const std::string tempDir = std::string(studyDir) + "/.tmp";
    if (!makeTemporaryDirectory(tempDir))
    {
        closedir(dir);
        return 1;
    }
    if (verbose)
        std::cout << "Iterating through files in " << studyDir << std::endl;

    unsigned long replaced = 0;
    errno = 0;
    while (struct dirent* entry = readdir(dir))
    {
        const char* name = entry->d_name;
        if (name[0] == '.')
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
        if (strncmp(name, "KqR.", 4) == 0)
        {
            if (verbose)
                std::cout << "Skipping " << name << std::endl;
            continue;
        }
        const std::string objectPath = std::string(studyDir) + "/" + name;
        const std::string tempFile = tempDir + "/.applychanges" + processId + "." + name;
        if (!applyToObject(changes, objectPath.c_str(), tempFile.c_str()))
        {
            std::cerr << "Applying soft edit changes to object failed: " << objectPath << std::endl;
            closedir(dir);
            syncReplacements(studyDir, replaced);
            return 1;
        }
        ++replaced;
        errno = 0;
    }
    if (errno != 0)
    {
        std::cerr << "An error occured while iterating through on files in " << studyDir << std::endl;
        closedir(dir);
        syncReplacements(studyDir, replaced);
        return 1;
    }
    closedir(dir);
    syncReplacements(studyDir, replaced);
    return 0;
}

int main(int argc, char** argv)
{
    snprintf(processId, sizeof(processId), "%d", int(getpid()));
    KQDictionary::registerEntries();

    const char* kqrFile = nullptr;
    const char* studyDir = nullptr;
    const char* objectName = nullptr;
    int option;
    while ((option = getopt(argc, argv, "hvd:o:p:")) != -1)
    {
        switch (option)
        {
        case 'h':
            return printUsage(0);
        case 'v':
            verbose = true;
            break;
        case 'd':
            studyDir = optarg;
            break;
        case 'o':
            objectName = optarg;
            break;
        case 'p':
            kqrFile = optarg;
            break;
        default:
            std::cerr << "Invalid argument : " << char(option) << std::endl << std::endl;
            return printUsage(1);
        }
    }
    if (!kqrFile)
    {
        std::cerr << "KqR File was not specified (-p)" << std::endl;
        return printUsage(1);
    }
    if (studyDir && objectName)
    {
        std::cerr << "-o and -d options are exclusive, only one of them can be specified" << std::endl << std::endl;
        return printUsage(1);
    }
    if (!studyDir && !objectName)
    {
        std::cerr << "Neither -o nor -d options were specified" << std::endl << std::endl;
        return printUsage(1);
    }

    DcmFileFormat kqr;
    if (kqr.loadFile(kqrFile, EXS_Unknown, EGL_noChange, DCM_MaxReadLength, ERM_autoDetect).bad())
    {
        std::cerr << "Error loading KqR file " << kqrFile << std::endl;
        return 1;
    }
    if (kqr.loadAllDataIntoMemory().bad())
    {
        std::cerr << "Error reading KqR file " << kqrFile << std::endl;
        return 1;
    }
    DcmDataset& changes = *kqr.getDataset();
    DcmItem* changeItem = nullptr;
    KQItem kq(changes);
    const OFCondition cond = kq.findAndGetKQSequenceItem(KQ_CHANGE_SEQUENCE, changeItem, 0);
    if (cond.bad() && cond != EC_TagNotFound)
    {
        std::cerr << "Error checking soft edit changes in KqR file " << kqrFile << std::endl;
        return 1;
    }
    if (!changeItem || changeItem->card() == 0)
        return 0;

    if (objectName)
        return applyToSingleObject(changes, objectName);
    return applyToStudyDirectory(changes, studyDir);
}
