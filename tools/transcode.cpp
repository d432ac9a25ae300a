// transcode: re-encodes the pixel data of a DICOM file into another transfer syntax through
// the archive's codec registry. JPEG 2000 lossy output takes the rate configured for the
// object's modality in $CONF/jpeg2000lossy.conf. The result is written beside the output under
// a temporary name, synced and renamed into place, so a failed run leaves no output behind and a
// finished one survives a crash.
#include "dcmutils/codec/CodecRegistry.h"
#include "dcmutils/dcmutils.h"
#include "dcmutils/codec/JPEG2000LossyRates.h"
#include "privatetags/KQDictionary.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcxfer.h"
#include "dcmtk/oflog/oflog.h"

#include <libgen.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

const char* const programName = "transcode";

void printUsage(FILE* stream)
{
    fprintf(stream,
            "Usage: %s [-h] [-v] -x <transfer syntax UID> <in> <out>\n"
            "    -h        : prints this usage information\n"
            "    -v        : print verbose messages\n"
            "    -x <uid>  : transfer syntax the pixel data is re-encoded into\n",
            programName);
}

// Temporary name in the directory of the output: <dir>/.transcode<pid>.<name>
std::string temporaryName(const std::string& out)
{
    const std::string::size_type slash = out.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string() : out.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? out : out.substr(slash + 1);
    return dir + "." + programName + std::to_string(getpid()) + "." + name;
}

int fail(const std::string& message, const OFCondition& cond = EC_Normal)
{
    if (cond.bad())
        fprintf(stderr, "%s: %s [%s]\n", programName, message.c_str(), cond.text());
    else
        fprintf(stderr, "%s: %s\n", programName, message.c_str());
    return 1;
}

// Re-encodes the loaded file into xfer and writes it to temporary, the stand-in for out.
int transcode(DcmFileFormat& file, const char* in, const char* out, E_TransferSyntax xfer, const std::string& temporary,
              bool verbose)
{
    DcmDataset* dataset = file.getDataset();
    const DcmXfer from(dataset->getOriginalXfer());
    const DcmXfer to(xfer);
    if (verbose)
        printf("Transcoding %s from %s to %s\n", in, from.getXferName(), to.getXferName());

    CodecRegistry registry;
    DcmRepresentationParameter* parameter = registry.getRepresentationParameter(*dataset, xfer);
    if (verbose && (xfer == EXS_JPEG2000 || xfer == EXS_JPEG2000LosslessOnly))
    {
        const char* modality = NULL;
        dataset->findAndGetString(DCM_Modality, modality);
        const double rate = xfer == EXS_JPEG2000 ? getJPEG2000LossyCompressionRate(*dataset) : 1.0;
        printf("JPEG 2000 rate %g for modality %s%s\n", rate, modality ? modality : "(none)",
               rate == 1.0 ? " (lossless)" : "");
    }
    OFCondition cond = dataset->chooseRepresentation(xfer, parameter);
    delete parameter;
    if (cond.good() && !dataset->canWriteXfer(xfer))
        cond = EC_CannotChangeRepresentation;
    if (cond.bad())
        return fail(std::string("cannot encode ") + in + " as " + to.getXferName(), cond);

    // created new (never written through a link) and on disk before the rename makes it the output
    cond = saveFileSynced(file, temporary.c_str(), xfer, EET_ExplicitLength, EGL_recalcGL, EPD_noChange, 0, 0,
                          EWM_fileformat);
    if (cond.bad())
    {
        unlink(temporary.c_str());
        return fail(std::string("cannot write ") + out, cond);
    }
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    bool verbose = false;
    const char* uid = NULL;
    int option;
    opterr = 0;
    while ((option = getopt(argc, argv, "hvx:")) != -1)
    {
        switch (option)
        {
        case 'h':
            printUsage(stdout);
            return 0;
        case 'v':
            verbose = true;
            break;
        case 'x':
            uid = optarg;
            break;
        default:
            printUsage(stderr);
            return 1;
        }
    }
    if (uid == NULL || argc - optind != 2 || argv[optind][0] == '\0' || argv[optind + 1][0] == '\0')
    {
        printUsage(stderr);
        return 1;
    }
    const char* in = argv[optind];
    const char* out = argv[optind + 1];

    // Failures are reported here in one line; the toolkit's own diagnostics stay quiet
    // unless asked for.
    OFLog::configure(verbose ? OFLogger::WARN_LOG_LEVEL : OFLogger::FATAL_LOG_LEVEL);
    KQDictionary::registerEntries();

    const DcmXfer target(uid);
    if (target.getXfer() == EXS_Unknown)
        return fail(std::string("unknown transfer syntax ") + uid);

    DcmFileFormat file;
    OFCondition cond = file.loadFile(in, EXS_Unknown, EGL_noChange, DCM_MaxReadLength, ERM_autoDetect);
    if (cond.good())
        cond = file.loadAllDataIntoMemory();
    if (cond.bad())
        return fail(std::string("cannot read ") + in, cond);

    const std::string temporary = temporaryName(out);
    if (transcode(file, in, out, target.getXfer(), temporary, verbose) != 0)
        return 1;
    if (rename(temporary.c_str(), out) != 0)
    {
        const int error = errno;
        unlink(temporary.c_str());
        return fail(std::string("cannot rename ") + temporary + " to " + out + ": " + strerror(error));
    }
    std::string directory(out);
    syncDirectory(dirname(&directory[0]));
    if (verbose)
        printf("Wrote %s\n", out);
    return 0;
}
