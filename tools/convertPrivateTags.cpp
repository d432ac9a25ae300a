// convertPrivateTags: rewrites a DICOM file with its legacy private elements moved into the
// "KQ group A" block. The result is written beside the output under a temporary name and
// renamed into place, so a failed run leaves no output and an existing output untouched.
#include "privatetags/KQDictionary.h"
#include "privatetags/KQItem.h"

#include "dcmtk/oflog/oflog.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

const char* const programName = "convertPrivateTags";

void printUsage(FILE* stream)
{
    fprintf(stream, "Usage: %s [-h] <in> <out>\n", programName);
}

// Temporary name in the directory of the output: <dir>/.convertPrivateTags<pid>.<name>
std::string temporaryName(const std::string& out)
{
    const std::string::size_type slash = out.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string() : out.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? out : out.substr(slash + 1);
    return dir + "." + programName + std::to_string(getpid()) + "." + name;
}

int fail(const char* in, const char* out)
{
    fprintf(stderr, "%s: cannot convert %s to %s\n", programName, in, out);
    return 1;
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc == 2 && (strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "--help") == 0))
    {
        printUsage(stdout);
        return 0;
    }
    if (argc != 3 || argv[1][0] == '-' || argv[2][0] == '-' || argv[1][0] == '\0' || argv[2][0] == '\0')
    {
        printUsage(stderr);
        return 1;
    }
    const char* in = argv[1];
    const char* out = argv[2];

    // The program reports failures itself, in one line; the toolkit's own diagnostics stay quiet.
    OFLog::configure(OFLogger::FATAL_LOG_LEVEL);
    KQDictionary::registerEntries();

    const std::string temporary = temporaryName(out);
    if (!KQItem::convertFilePrivateTags(in, temporary.c_str()))
    {
        unlink(temporary.c_str());
        return fail(in, out);
    }
    if (rename(temporary.c_str(), out) != 0)
    {
        unlink(temporary.c_str());
        return fail(in, out);
    }
    return 0;
}
