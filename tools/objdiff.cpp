// objdiff: compares two DICOM objects attribute by attribute, optionally after applying the
// soft edit changes of a KqR file to either of them.

#include "privatetags/KQDictionary.h"
#include "objdiff/ObjDiff.h"

#include "dcmtk/config/osconfig.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

static const char* const usageText =
    "objdiff [-h] [-v] [-m mode] [-i ignoretagsfile] [-k kqr1] [-K kqr2] <file1> <file2>\n"
    "\n"
    "    -h                  : prints this usage information\n"
    "    -v                  : print verbose messages\n"
    "    -m <mode>           : 0 compares the pixel data as stored (default),\n"
    "                          1 compares the decoded frames\n"
    "    -i <ignoretagsfile> : file naming the attributes to ignore, one \"(gggg,eeee)\" a line,\n"
    "                          \".\" standing for any hexadecimal digit\n"
    "    -k <kqr1>           : KqR file whose soft edit changes are applied to <file1> first\n"
    "    -K <kqr2>           : KqR file whose soft edit changes are applied to <file2> first\n"
    "\n"
    "    Exit status 0 when the objects are equal, 1 when they differ or on failure.\n"
    "    Example: objdiff -k edit.kqr object object   shows what the edit would change\n";

static int usageError(const std::string& message)
{
    fprintf(stderr, "objdiff: %s\n", message.c_str());
    fputs(usageText, stderr);
    return 1;
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

int main(int argc, char** argv)
{
    KQDictionary::registerEntries();

    bool verbose = false;
    OC_MODE mode = OC_MODE_BINARY;
    const char* ignoreFile = NULL;
    const char* kqr1 = NULL;
    const char* kqr2 = NULL;

    opterr = 0;
    int option;
    while ((option = getopt(argc, argv, ":hvm:i:k:K:")) != -1)
    {
        switch (option)
        {
        case 'h':
            fputs(usageText, stdout);
            return 0;
        case 'v':
            verbose = true;
            break;
        case 'm':
            if (!parseMode(optarg, mode))
                return usageError(std::string("invalid mode \"") + optarg + "\" (0 or 1 expected)");
            break;
        case 'i':
            ignoreFile = optarg;
            break;
        case 'k':
            kqr1 = optarg;
            break;
        case 'K':
            kqr2 = optarg;
            break;
        case ':':
            return usageError(std::string("option -") + char(optopt) + " needs an argument");
        default:
            return usageError(std::string("unknown option -") + char(optopt ? optopt : '?'));
        }
    }
    if (argc - optind != 2)
        return usageError(argc - optind < 2 ? "two DICOM files expected"
                                            : std::string("unexpected argument: ") + argv[optind + 2]);
    const char* file1 = argv[optind];
    const char* file2 = argv[optind + 1];

    if (ignoreFile != NULL && access(ignoreFile, R_OK) != 0)
    {
        // comparing without the rules asked for would report differences meant to be ignored
        fprintf(stderr, "objdiff: cannot read ignoretags file %s\n", ignoreFile);
        return 1;
    }
    IgnoreTags ignore = ignoreFile ? IgnoreTags(ignoreFile) : IgnoreTags();

    ObjectComparator comparator(ignore);
    comparator.verbose = verbose;
    const bool equal = comparator.compareObjects(file1, kqr1, file2, kqr2, mode);
    return equal ? 0 : 1;
}
