// convertPrivateTags: rewrites a DICOM file with its legacy private elements moved into the
// "KQ group A" block. The result is written beside the output under a temporary name and
// renamed into place, so a failed run leaves no output and an existing output untouched.
#include "dcmutils/DicomStreamScan.h"
#include "dcmutils/fileio.h"
#include "privatetags/KQDictionary.h"
#include "privatetags/KQItem.h"
#include "tools/options/ProgramOptions.h"

#include <cstdio>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

// also the prefix of the temporary name beside the output: <dir>/.convertPrivateTags<pid>.<name>
const char* const programName = "convertPrivateTags";

} // namespace

int main(int argc, char* argv[])
{
    // the program reports failures itself, in one line: the toolkit's own diagnostics stay
    // quiet unless asked for
    ProgramOptions options(programName, "Move legacy private elements into the KQ private block",
                           OFLogger::FATAL_LOG_LEVEL);
    OFCommandLine& cmd = options.commandLine();
    cmd.addParam("dcmfile-in", "DICOM input file");
    cmd.addParam("dcmfile-out", "DICOM output file (may be the input file)");
    options.setHelpEpilogue("Elements of the legacy private creator \"Morvellanite\" (blocks BA and DA) move into\n"
                            "the \"KQ group A\" block of group F215, in every nested item too.\n"
                            "\n"
                            "exit status:\n"
                            "  0  the output is written\n"
                            "  1  bad arguments, or the input cannot be read or converted, or the output\n"
                            "     cannot be written (nothing is written then)\n");
    int status = 0;
    if (!options.parse(argc, argv, status))
        return status;
    const char* in = NULL;
    const char* out = NULL;
    cmd.getParam(1, in);
    cmd.getParam(2, out);

    KQDictionary::registerEntries();

    // a shape the toolkit's reader would not survive is refused before it is given the file
    OFCondition cond = scanDicomFile(in);
    if (cond.bad())
    {
        options.error(std::string("cannot convert ") + in + ": " + cond.text());
        return 1;
    }
    DcmFileFormat file;
    cond = file.loadFile(in, EXS_Unknown, EGL_noChange, DCM_MaxReadLength, ERM_autoDetect);
    if (cond.good())
        cond = file.loadAllDataIntoMemory();
    if (cond.bad())
    {
        options.error(std::string("cannot convert ") + in + " to " + out);
        return 1;
    }
    std::vector<std::string> dropped;
    KQItem::handlePrivateTags(file.getDataset(), &dropped);
    E_TransferSyntax xfer = file.getDataset()->getOriginalXfer();
    if (xfer == EXS_Unknown)
        xfer = EXS_LittleEndianExplicit;
    REPLACE_STEP failed = RS_DONE;
    cond = replaceFile(
        out, temporaryNameBeside(out, programName),
        [&](int fd) {
            return writeFileFormat(file, fd, xfer, EET_ExplicitLength, EGL_recalcGL, EPD_noChange, 0, 0,
                                   EWM_createNewMeta);
        },
        failed);
    if (cond.bad())
    {
        options.error(std::string("cannot convert ") + in + " to " + out);
        return 1;
    }
    // nothing leaves the object without a word
    for (const std::string& line : dropped)
        std::cerr << "W: dropped element " << line << std::endl;
    return 0;
}
