// objdiff: compares two DICOM objects attribute by attribute (and by stored or decoded pixel
// data), optionally after applying the soft edit changes of a KqR file to either of them;
// writes the image dumps of an object, and compares two image dumps.

#include "privatetags/KQDictionary.h"
#include "objdiff/ObjDiff.h"

#include "dcmtk/config/osconfig.h"

#include <libgen.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

static const char* const usageText =
    "objdiff [-h] [-v] [-m mode] [-i ignoretagsfile] [-k kqr1] [-K kqr2] <file1> <file2>\n"
    "objdiff [-i ignoretagsfile] [-k kqr] -w <prefix> <file>\n"
    "objdiff -c <dump1> <dump2>\n"
    "\n"
    "    -h                  : prints this usage information\n"
    "    -v                  : print verbose messages\n"
    "    -m <mode>           : 0 compares the pixel data as stored (default),\n"
    "                          1 compares the decoded frames: byte for byte when both objects\n"
    "                          are in a lossless transfer syntax, otherwise by a peak-error\n"
    "                          measure (and the lossy compression attributes are ignored)\n"
    "    -i <ignoretagsfile> : file naming the attributes to ignore, one \"(gggg,eeee)\" a line,\n"
    "                          \".\" standing for any hexadecimal digit\n"
    "    -k <kqr1>           : KqR file whose soft edit changes are applied to <file1> first\n"
    "    -K <kqr2>           : KqR file whose soft edit changes are applied to <file2> first\n"
    "    -w <prefix>         : prints the attributes of <file> and writes a 4096-byte image dump\n"
    "                          of each frame: <prefix>.dump.wavelet, or\n"
    "                          <prefix>.frame-<n>.dump.wavelet when the object has several frames\n"
    "    -c                  : compares two image dump files (as written by -w) by size and\n"
    "                          peak-error measure\n"
    "\n"
    "    Exit status: 0 when equal (or the dumps are written), 1 when different, 2 on trouble\n"
    "    (bad option, file that cannot be read, pixel data that cannot be decoded).\n"
    "    Examples:\n"
    "      objdiff -k edit.kqr obj obj          shows what the edit would change in obj\n"
    "      objdiff -m 1 obj obj.j2k             compares obj with a re-encoding, frame by frame\n"
    "      objdiff -w /tmp/obj obj              writes /tmp/obj.dump.wavelet\n"
    "      objdiff -c a.dump.wavelet b.dump.wavelet\n";

enum ExitStatus
{
    EXIT_EQUAL = 0,
    EXIT_DIFFERENT = 1,
    EXIT_TROUBLE = 2
};

static int usageError(const std::string& message)
{
    fprintf(stderr, "objdiff: %s\n", message.c_str());
    fputs(usageText, stderr);
    return EXIT_TROUBLE;
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
    KQDictionary::registerEntries();

    bool verbose = false;
    OC_MODE mode = OC_MODE_BINARY;
    const char* ignoreFile = NULL;
    const char* kqr1 = NULL;
    const char* kqr2 = NULL;
    const char* prefix = NULL;
    bool compareDumps = false;
    std::string pairOptions; // options that only a comparison of two objects takes

    opterr = 0;
    int option;
    while ((option = getopt(argc, argv, ":hvm:i:k:K:w:c")) != -1)
    {
        switch (option)
        {
        case 'h':
            fputs(usageText, stdout);
            return EXIT_EQUAL;
        case 'v':
            verbose = true;
            break;
        case 'm':
            if (!parseMode(optarg, mode))
                return usageError(std::string("invalid mode \"") + optarg + "\" (0 or 1 expected)");
            pairOptions += 'm';
            break;
        case 'i':
            ignoreFile = optarg;
            break;
        case 'k':
            kqr1 = optarg;
            break;
        case 'K':
            kqr2 = optarg;
            pairOptions += 'K';
            break;
        case 'w':
            prefix = optarg;
            break;
        case 'c':
            compareDumps = true;
            break;
        case ':':
            return usageError(std::string("option -") + char(optopt) + " needs an argument");
        default:
            return usageError(std::string("unknown option -") + char(optopt ? optopt : '?'));
        }
    }
    const int files = argc - optind;

    if (compareDumps)
    {
        if (prefix != NULL || !pairOptions.empty() || ignoreFile != NULL || kqr1 != NULL)
            return usageError("-c takes no other option than -v");
        if (files != 2)
            return usageError(files < 2 ? "two dump files expected" : std::string("unexpected argument: ") + argv[optind + 2]);
        IgnoreTags none;
        ObjectComparator comparator(none);
        comparator.verbose = verbose;
        const bool equal = comparator.compareDumps(argv[optind], argv[optind + 1]);
        return equal ? EXIT_EQUAL : comparator.hadTrouble() ? EXIT_TROUBLE : EXIT_DIFFERENT;
    }
    if (prefix != NULL)
    {
        if (!pairOptions.empty())
            return usageError(std::string("option -") + pairOptions[0] + " cannot be used with -w");
        if (files != 1)
            return usageError(files < 1 ? "one DICOM file expected" : std::string("unexpected argument: ") + argv[optind + 1]);
    }
    else if (files != 2)
        return usageError(files < 2 ? "two DICOM files expected" : std::string("unexpected argument: ") + argv[optind + 2]);

    if (ignoreFile != NULL && access(ignoreFile, R_OK) != 0)
    {
        // comparing without the rules asked for would report differences meant to be ignored
        fprintf(stderr, "objdiff: cannot read ignoretags file %s\n", ignoreFile);
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
            fprintf(stderr, "objdiff: cannot write image dumps in %s\n", directory.c_str());
            return EXIT_TROUBLE;
        }
        return comparator.dumpObject(argv[optind], kqr1, prefix) ? EXIT_EQUAL : EXIT_TROUBLE;
    }

    const bool equal = comparator.compareObjects(argv[optind], kqr1, argv[optind + 1], kqr2, mode);
    return equal ? EXIT_EQUAL : comparator.hadTrouble() ? EXIT_TROUBLE : EXIT_DIFFERENT;
}
