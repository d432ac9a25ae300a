// previewChanges: shows what applyChanges would do to a study or an object with a KqR file,
// object by object, without writing anything.

#include "applychanges/ChangePreview.h"
#include "applychanges/KqRFile.h"
#include "applychanges/ObjectReport.h"
#include "applychanges/PreviewReport.h"
#include "dcmutils/softedit.h"
#include "privatetags/KQDictionary.h"
#include "privatetags/KQItem.h"
#include "tools/options/ProgramOptions.h"

#include "dcmtk/dcmdata/dcfilefo.h"

#include <iostream>

static const char* const helpEpilogue =
    "The objects are taken as applyChanges takes them (the same order, skip rules and\n"
    "refusals); each is edited in memory only. Nothing is written: no .tmp, no file.\n"
    "\n"
    "exit status:\n"
    "  0  a run would succeed\n"
    "  1  a run would stop: its change set refused, or an object refused or failing\n"
    "  2  trouble: bad arguments, an unreadable KqR file or study directory\n";

int main(int argc, char** argv)
{
    ProgramOptions options("previewChanges", "Show what a KqR file's soft edit would change",
                           OFLogger::FATAL_LOG_LEVEL, false);
    options.setUsageErrorStatus(2);
    OFCommandLine& cmd = options.commandLine();
    options.addGroup("input options:");
    cmd.addOption("--kqr-file", "-p", 1, "[f]ilename: string", "KqR file the changes are taken from (required)");
    cmd.addOption("--study-dir", "-d", 1, "[d]irectory: string", "every object of this study directory");
    cmd.addOption("--object", "-o", 1, "[f]ilename: string", "this object only");
    options.addGroup("output options:");
    cmd.addOption("--json", "-j", "one JSON document instead of text");
    options.setHelpEpilogue(helpEpilogue);
    int status = 0;
    if (!options.parse(argc, argv, status))
        return status;
    const char* kqrFile = nullptr;
    const char* studyDir = nullptr;
    const char* objectName = nullptr;
    if (cmd.findOption("--kqr-file"))
        cmd.getValue(kqrFile);
    if (cmd.findOption("--study-dir"))
        cmd.getValue(studyDir);
    if (cmd.findOption("--object"))
        cmd.getValue(objectName);
    const bool json = cmd.findOption("--json");
    if (!kqrFile)
    {
        options.error("no KqR file given (-p)");
        return 2;
    }
    if ((studyDir != nullptr) == (objectName != nullptr))
    {
        options.error("exactly one of -d and -o must be given");
        return 2;
    }

    KQDictionary::registerEntries();
    ReportLog::install();
    DcmFileFormat kqr;
    struct stat kqrStatus;
    if (!loadKqRFile(kqrFile, kqr, kqrStatus, std::cerr))
        return 2;
    ChangePreview preview(*kqr.getDataset(), kqrStatus);
    const std::string refusal = preview.changeSetRefusal();
    if (refusal.empty())
    {
        if (objectName)
            preview.previewObject(objectName);
        else if (!preview.previewStudyDirectory(studyDir))
        {
            options.error(std::string("cannot open study directory ") + studyDir);
            return 2;
        }
    }
    const PreviewReport report(preview, kqrFile, refusal);
    if (json)
        report.writeJson(std::cout);
    else
        report.writeText(std::cout);
    std::cout.flush();
    if (!std::cout)
    {
        options.error("cannot write the preview");
        return 2;
    }
    return report.runWouldSucceed() ? 0 : 1;
}
