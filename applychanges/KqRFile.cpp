#include "applychanges/KqRFile.h"

#include "applychanges/ObjectRules.h"
#include "dcmutils/DescriptorInputStream.h"
#include "dcmutils/DicomStreamScan.h"

#include <fcntl.h>
#include <unistd.h>

// A FIFO or device is refused unopened: opening or reading it could block or never end.
bool loadKqRFile(const char* path, DcmFileFormat& kqr, struct stat& status, std::ostream& err)
{
    if (stat(path, &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))
    {
        err << "Refusing to read KqR file " << path << ": it is not a regular file (" << fileKind(status)
            << ")" << std::endl;
        return false;
    }
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0 || fstat(fd, &status) != 0)
    {
        if (fd >= 0)
            close(fd);
        err << "Error loading KqR file " << path << std::endl;
        return false;
    }
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))
    {
        close(fd);
        err << "Refusing to read KqR file " << path << ": it is not a regular file (" << fileKind(status)
            << ")" << std::endl;
        return false;
    }
    std::shared_ptr<InputFile> input(new InputFile(fd, S_ISREG(status.st_mode) ? status.st_size : 0));
    const bool read = input->readWhole().good();
    DicomStreamScan scan;
    const OFCondition shape = read ? scan.scan(*input) : OFCondition(EC_Normal);
    if (shape.bad())
    {
        // the toolkit's reader would not survive it
        err << "Refusing to read KqR file " << path << ": " << shape.text() << std::endl;
        return false;
    }
    if (!read || loadFileFormat(kqr, input).bad())
    {
        err << "Error loading KqR file " << path << std::endl;
        return false;
    }
    if (kqr.loadAllDataIntoMemory().bad())
    {
        err << "Error reading KqR file " << path << std::endl;
        return false;
    }
    return true;
}

