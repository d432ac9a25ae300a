// transcode: re-encodes the pixel data of a DICOM file into another transfer syntax through
// the archive's codec registry. JPEG 2000 lossy output takes the rate configured for the
// object's modality in $CONF/jpeg2000lossy.conf. The result is written beside the output under
// a temporary name, synced and renamed into place, so a failed run leaves no output behind and a
// finished one survives a crash.
#include "dcmutils/DicomStreamScan.h"
#include "dcmutils/codec/Transcoder.h"
#include "dcmutils/dcmutils.h"
#include "dcmutils/fileio.h"
#include "privatetags/KQDictionary.h"
#include "tools/options/ProgramOptions.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcxfer.h"

#include <libgen.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

const char* const programName = "transcode";

// The program's options and messages; set up first thing in main.
ProgramOptions* options = NULL;

// The targets, the rate file and the exit statuses, for --help.
std::string helpEpilogue()
{
    std::string text = "targets (-x):\n";
    for (const Transcoder::Target& target : Transcoder::targets())
    {
        const DcmXfer xfer(target.xfer);
        char line[160];
        snprintf(line, sizeof line, "  %-24s %s: %s\n", xfer.getXferID(), xfer.getXferName(), target.note);
        text += line;
    }
    return text +
           "\n"
           "JPEG 2000 lossy takes the compression rate of the object's modality from the file\n"
           "$CONF/jpeg2000lossy.conf, lines like CT=\"0.05\" and Default=\"0.1\" (the rate is the\n"
           "compressed size over the original; 1 is lossless). Without the file, or for a modality\n"
           "it does not name and without a Default line, the rate is 0.1.\n"
           "\n"
           "The output is written under a temporary name beside it, synced and renamed into place.\n"
           "\n"
           "exit status:\n"
           "  0  the output is written\n"
           "  1  bad arguments, an input that cannot be read, an image the target cannot hold\n"
           "     (one line says why), or an output that cannot be written; no output then\n"
           "\n"
           "example:\n"
           "  transcode -x 1.2.840.10008.1.2.4.80 in.dcm out.dcm   (JPEG-LS Lossless)\n";
}

int fail(const std::string& message, const OFCondition& cond = EC_Normal)
{
    options->error(cond.bad() ? message + " [" + cond.text() + "]" : message);
    return 1;
}

// Re-encodes the loaded file into xfer and writes it in place of out.
int transcode(DcmFileFormat& file, const char* in, const char* out, E_TransferSyntax xfer)
{
    DcmDataset* dataset = file.getDataset();
    const E_TransferSyntax original = dataset->getOriginalXfer();
    const DcmXfer from(original);
    const DcmXfer to(xfer);
    const std::string cannot = std::string("cannot encode ") + in + " as " + to.getXferName();

    Transcoder transcoder;
    const std::string refusal = Transcoder::refusal(*dataset, original, xfer);
    if (!refusal.empty())
        return fail(cannot + ": " + refusal);
    if (options->verbose())
    {
        printf("Transcoding %s from %s to %s\n", in, from.getXferName(), to.getXferName());
        if (xfer == EXS_JPEG2000 || xfer == EXS_JPEG2000LosslessOnly)
        {
            const char* modality = NULL;
            dataset->findAndGetString(DCM_Modality, modality);
            const double rate = Transcoder::jpeg2000Rate(*dataset, xfer);
            printf("JPEG 2000 rate %g for modality %s%s\n", rate, modality ? modality : "(none)",
                   rate == 1.0 ? " (lossless)" : "");
        }
    }
    OFCondition cond = transcoder.transcode(*dataset, xfer);
    if (cond.bad())
        return fail(cannot, cond);

    const std::string temporary = temporaryNameBeside(out, programName);
    REPLACE_STEP failed = RS_DONE;
    cond = replaceFile(
        out, temporary,
        [&](int fd) {
            return writeFileFormat(file, fd, xfer, EET_ExplicitLength, EGL_recalcGL, EPD_noChange, 0, 0,
                                   EWM_fileformat);
        },
        failed);
    if (failed == RS_RENAME)
        return fail(std::string("cannot rename ") + temporary + " to " + out + ": " + cond.text());
    if (cond.bad())
        return fail(std::string("cannot write ") + out, cond);
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    // failures are reported here in one line: the toolkit's own diagnostics stay quiet unless
    // asked for
    ProgramOptions programOptions(programName, "Re-encode the pixel data of a DICOM file in another transfer syntax",
                                  OFLogger::FATAL_LOG_LEVEL);
    options = &programOptions;
    OFCommandLine& cmd = programOptions.commandLine();
    cmd.addParam("dcmfile-in", "DICOM input file");
    cmd.addParam("dcmfile-out", "DICOM output file");
    programOptions.addGroup("transcoding options:");
    cmd.addOption("--transfer-syntax", "-x", 1, "[u]id: string",
                  "transfer syntax to encode the pixel data in\n(required; the targets are listed below)");
    programOptions.setHelpEpilogue(helpEpilogue());
    int status = 0;
    if (!programOptions.parse(argc, argv, status))
        return status;
    const char* uid = NULL;
    if (!cmd.findOption("--transfer-syntax"))
        return programOptions.usageError("the target transfer syntax (-x) is missing");
    cmd.getValue(uid);
    const char* in = NULL;
    const char* out = NULL;
    cmd.getParam(1, in);
    cmd.getParam(2, out);

    KQDictionary::registerEntries();

    const DcmXfer target(uid);
    if (target.getXfer() == EXS_Unknown)
        return fail(std::string("unknown transfer syntax ") + uid);
    if (!Transcoder::isTarget(target.getXfer()))
        return fail(std::string("cannot encode ") + in + " as " + target.getXferName() +
                    ": there is no encoder for it (transcode -h lists the targets)");

    DcmFileFormat file;
    // a shape the toolkit's reader would not survive is refused before it is given the file
    OFCondition cond = scanDicomFile(in);
    if (cond.good())
        cond = file.loadFile(in, EXS_Unknown, EGL_noChange, DCM_MaxReadLength, ERM_autoDetect);
    if (cond.good())
        cond = file.loadAllDataIntoMemory();
    if (cond.bad())
        return fail(std::string("cannot read ") + in, cond);

    if (transcode(file, in, out, target.getXfer()) != 0)
        return 1;
    if (programOptions.verbose())
        printf("Wrote %s\n", out);
    return 0;
}
