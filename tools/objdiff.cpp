// objdiff: compares two DICOM objects attribute by attribute (and by stored or decoded pixel
// data), optionally after applying the soft edit changes of a KqR file to either of them;
// writes the image dumps of an object, and compares two image dumps.

#include "privatetags/KQDictionary.h"
#include "objdiff/ObjDiff.h"
#include "tools/options/ProgramOptions.h"

#include "dcmtk/config/osconfig.h"

#include <libgen.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

static const char* const helpEpilogue =
    "Without -w and -c the two objects are compared as applyChanges verifies an edit: attribute\n"
    "by attribute, differences as \"! \" lines on standard error.\n"
    "\n"
    "exit status:\n"
    "  0  equal (or the dumps are written)\n"
    "  1  different\n"
    "  2  trouble: a bad option, a file that cannot be read, pixel data that cannot be\n"
    "     decoded, dumps that cannot be written\n"
    "\n"
    "examples:\n"
    "  objdiff -k edit.kqr obj obj          shows what the edit would change in obj\n"
    "  objdiff -m 1 obj obj.j2k             compares obj with a re-encoding, frame by frame\n"
    "  objdiff -w /tmp/obj obj              writes /tmp/obj.dump.wavelet\n"
    "  objdiff -c a.dump.wavelet b.dump.wavelet\n";

enum ExitStatus
{
    EXIT_EQUAL = 0,
    EXIT_DIFFERENT = 1,
    EXIT_TROUBLE = 2
};

// The program's options and messages; set up first thing in main.
static ProgramOptions* options = NULL;

static int usageError(const std::string& message)
{
    return options->usageError(message);
}

static bool parseMode(const char* text, OC_MODE& mode)
{
    if (strcmp(text, "0") == 0)
        mode = OC_MODE_BINARY;
    else if (strcmp(text, "1") == 0)
        mode = OC_MODE_FRAMES;
    else
        return false;
    return true;
}

// The directory that the dumps of prefix go to.
static std::string dumpDirectory(const char* prefix)
{
    std::vector<char> copy(prefix, prefix + strlen(prefix) + 1);
    return dirname(copy.data());
}

int main(int argc, char** argv)
{
    ProgramOptions programOptions("objdiff", "Compare two DICOM objects as applyChanges verifies them",
                                  OFLogger::WARN_LOG_LEVEL);
    options = &programOptions;
    programOptions.setUsageErrorStatus(EXIT_TROUBLE);
    OFCommandLine& cmd = programOptions.commandLine();
    cmd.addParam("file-1", "first DICOM object (the object with -w, a dump with -c)");
    cmd.addParam("file-2", "second DICOM object (a dump with -c)", OFCmdParam::PM_Optional);
    programOptions.addGroup("comparison options:");
    cmd.addOption("--mode", "-m", 1, "[m]ode: 0 or 1",
                  "0: compare the pixel data as stored (default)\n"
                  "1: compare the decoded frames: byte for byte when\n"
                  "both objects are in a lossless transfer syntax,\n"
                  "otherwise by a peak-error measure (and the lossy\n"
                  "compression attributes are ignored)");
    cmd.addOption("--ignore-tags", "-i", 1, "[f]ilename: string",
                  "file naming the attributes to ignore, one\n"
                  "\"(gggg,eeee)\" a line in lower-case hexadecimal,\n"
                  "\".\" for any digit");
    cmd.addOption("--kqr-1", "-k", 1, "[f]ilename: string", "KqR file whose soft edit changes are applied\nto file-1 first");
    cmd.addOption("--kqr-2", "-K", 1, "[f]ilename: string", "KqR file whose soft edit changes are applied\nto file-2 first");
    programOptions.addGroup("image dump options:");
    cmd.addOption("--write-dumps", "-w", 1, "[p]refix: string",
                  "print the attributes of file-1 and write a\n"
                  "4096-byte image dump of each frame:\n"
                  "prefix.dump.wavelet, or prefix.frame-n.dump.wavelet\n"
                  "when the object has several frames");
    cmd.addOption("--compare-dumps", "-c", "compare two image dumps (as -w writes them)\nby size and peak-error measure");
    programOptions.setHelpEpilogue(helpEpilogue);
    int status = 0;
    if (!programOptions.parse(argc, argv, status))
        return status;
    // with -q nothing is printed, as by cmp -s: the exit status tells
    if (programOptions.quiet() &&
        (freopen("/dev/null", "w", stdout) == NULL || freopen("/dev/null", "w", stderr) == NULL))
        return EXIT_TROUBLE;

    KQDictionary::registerEntries();

    const bool verbose = programOptions.verbose();
    OC_MODE mode = OC_MODE_BINARY;
    const char* ignoreFile = NULL;
    const char* kqr1 = NULL;
    const char* kqr2 = NULL;
    const char* prefix = NULL;
    const char* modeText = NULL;
    if (cmd.findOption("--mode"))
    {
        cmd.getValue(modeText);
        if (!parseMode(modeText, mode))
            return usageError(std::string("invalid mode \"") + modeText + "\", expected 0 or 1");
    }
    if (cmd.findOption("--ignore-tags"))
        cmd.getValue(ignoreFile);
    if (cmd.findOption("--kqr-1"))
        cmd.getValue(kqr1);
    if (cmd.findOption("--kqr-2"))
        cmd.getValue(kqr2);
    if (cmd.findOption("--write-dumps"))
        cmd.getValue(prefix);
    const bool compareDumps = cmd.findOption("--compare-dumps");
    // the options that only a comparison of two objects takes
    const char* pairOption = modeText != NULL ? "-m" : (kqr2 != NULL ? "-K" : NULL);
    const int files = cmd.getParamCount();
    const char* file1 = NULL;
    const char* file2 = NULL;
    cmd.getParam(1, file1);
    if (files > 1)
        cmd.getParam(2, file2);

    if (compareDumps)
    {
        if (prefix != NULL || pairOption != NULL || ignoreFile != NULL || kqr1 != NULL)
            return usageError("-c takes no other option than -v");
        if (files != 2)
            return usageError("missing parameter file-2 (a second dump)");
        IgnoreTags none;
        ObjectComparator comparator(none);
        comparator.verbose = verbose;
        const bool equal = comparator.compareDumps(file1, file2);
        return equal ? EXIT_EQUAL : comparator.hadTrouble() ? EXIT_TROUBLE : EXIT_DIFFERENT;
    }
    if (prefix != NULL)
    {
        if (pairOption != NULL)
            return usageError(std::string("option ") + pairOption + " cannot be used with -w");
        if (files != 1)
            return usageError(std::string("unexpected parameter ") + file2 + " (-w takes one object)");
    }
    else if (files != 2)
        return usageError("missing parameter file-2");

    if (ignoreFile != NULL && access(ignoreFile, R_OK) != 0)
    {
        // comparing without the rules asked for would report differences meant to be ignored
        programOptions.error(std::string("cannot read ignoretags file ") + ignoreFile);
        return EXIT_TROUBLE;
    }
    IgnoreTags ignore = ignoreFile ? IgnoreTags(ignoreFile) : IgnoreTags();
    ObjectComparator comparator(ignore);
    comparator.verbose = verbose;

    if (prefix != NULL)
    {
        // the library skips a dump it cannot create: say so before anything is written
        const std::string directory = dumpDirectory(prefix);
        if (*prefix == '\0' || access(directory.c_str(), W_OK | X_OK) != 0)
        {
            programOptions.error("cannot write image dumps in " + directory);
            return EXIT_TROUBLE;
        }
        return comparator.dumpObject(file1, kqr1, prefix) ? EXIT_EQUAL : EXIT_TROUBLE;
    }

    const bool equal = comparator.compareObjects(file1, kqr1, file2, kqr2, mode);
    return equal ? EXIT_EQUAL : comparator.hadTrouble() ? EXIT_TROUBLE : EXIT_DIFFERENT;
}
