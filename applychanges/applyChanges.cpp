// applyChanges: applies the soft edit changes of a KqR file to one DICOM object or to every
// object of a study directory. Each object is changed in memory, written to a temporary file,
// verified attribute by attribute against the original and only then put in its place.

#include "applychanges/KqRFile.h"
#include "applychanges/ObjectReport.h"
#include "applychanges/ObjectRules.h"
#include "applychanges/RunSignals.h"
#include "applychanges/SoftEditRun.h"
#include "applychanges/TemporaryDirectory.h"
#include "dcmutils/DescriptorInputStream.h"
#include "dcmutils/DicomStreamScan.h"
#include "dcmutils/softedit.h"
#include "privatetags/KQDictionary.h"
#include "privatetags/KQItem.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iostream>

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


int main(int argc, char** argv)
{
    // Object after object allocates and frees buffers of the objects' size: keep freed memory in
    // the process instead of returning it to the system and faulting it in again each time.
    mallopt(M_MMAP_THRESHOLD, 64 << 20);
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
    TemporaryDirectory::setProcessId(int(getpid()));
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
    RunSignals::install();
    ReportLog::install();

    DcmFileFormat kqr;
    struct stat kqrStatus;
    if (!loadKqRFile(kqrFile, kqr, kqrStatus, std::cerr))
        return 1;
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

    SoftEditRun run(changes, kqrFile, kqrStatus);
    if (!run.checkChanges())
        return 1;
    if (objectName)
        return run.applyToSingleObject(objectName);
    return run.applyToStudyDirectory(studyDir);
}
