#include "applychanges/ObjectLoader.h"

#include "dcmutils/DicomStreamScan.h"

#include "applychanges/SoftEditRun.h"
#include "dcmutils/DescriptorInputStream.h"
#include "dcmutils/fileio.h"

#include <fcntl.h>
#include <libgen.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

// Why an object the toolkit could read only by dropping some of its data may not be edited, or
// empty. The toolkit keeps the first of two elements with one tag and says so in a warning; the
// edited copy, and the comparison with it, would both lack the second.
std::string repairedReading(const ObjectReport& parseLog)
{
    const std::string log = parseLog.errorText();
    const size_t twice = log.find(" found twice in one data set or item");
    if (twice == std::string::npos)
        return std::string();
    const size_t tag = log.rfind("(", twice);
    const std::string element = tag == std::string::npos ? "an element" : "element " + log.substr(tag, twice - tag);
    return "it holds " + element + " twice, and only the first could be kept (the edited copy would lose the second)";
}

std::string part(const std::string& path, bool directoryPart)
{
    std::vector<char> copy(path.begin(), path.end());
    copy.push_back('\0');
    return directoryPart ? dirname(copy.data()) : basename(copy.data());
}

} // namespace

ObjectLoader::ObjectLoader(const ObjectRules& rules, ObjectDirectories& directories, bool temporaries)
    : m_rules(rules), m_directories(directories), m_temporaries(temporaries)
{
}

void ObjectLoader::load(EditedObject& object, ObjectDirectory& directory, bool inDirectory)
{
    std::ostream& out = object.m_report.out();
    std::ostream& err = object.m_report.err();
    const std::string& name = object.m_entryName;
    object.m_state = EditedObject::EO_FAILED;

    // A link is edited at the file it names: the link stays a link, and the ".tmp" beside that
    // file holds the temporary file.
    ObjectDirectory* home = &directory;
    std::string baseName = name;
    struct stat status;
    const bool throughLink =
        fstatat(directory.fd(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
    if (throughLink)
    {
        char* resolved = realpath(directory.reach(name).c_str(), nullptr);
        if (resolved)
        {
            ObjectDirectory* target = m_directories.directory(part(resolved, true));
            if (target)
            {
                home = target;
                baseName = part(resolved, false);
            }
            free(resolved);
        }
    }
    // Decided before opening: opening a FIFO or a device could block or never end.
    if (fstatat(home->fd(), baseName.c_str(), &status, 0) == 0)
    {
        const ObjectDecision decision = m_rules.byStatus(name, status, throughLink, inDirectory);
        if (decision.verdict == ObjectDecision::OD_SKIP)
        {
            if (verbose)
                out << decision.line << std::endl;
            object.m_state = EditedObject::EO_SKIPPED;
            return;
        }
        if (decision.verdict == ObjectDecision::OD_REFUSE)
        {
            if (verbose)
                out << "Apply soft edit changes to " << object.m_path << std::endl;
            return object.refuse(decision.line);
        }
    }
    TemporaryDirectory* temporary = nullptr;
    if (m_temporaries && !(temporary = m_directories.temporaryDirectory(*home, out, err)))
        return;

    const int fd =
        openat(home->fd(), baseName.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
    {
        const int error = errno;
        if (verbose)
            out << "Apply soft edit changes to " << object.m_path << std::endl;
        err << "Error loading " << object.m_path << " [" << strerror(error) << "]" << std::endl;
        return;
    }
    struct stat opened;
    fstat(fd, &opened);
    // a directory is read as the toolkit's file reader reads it: a size from its end, no bytes
    const off_t size = S_ISREG(opened.st_mode) ? opened.st_size : std::max<off_t>(0, lseek(fd, 0, SEEK_END));
    std::shared_ptr<InputFile> input(new InputFile(fd, (unsigned long long)size));
    if (!S_ISREG(opened.st_mode) && !S_ISDIR(opened.st_mode))
    {
        // it became a FIFO or device after the check: never read
        const ObjectDecision decision = m_rules.byStatus(name, opened, throughLink, inDirectory);
        if (decision.verdict == ObjectDecision::OD_SKIP)
        {
            if (verbose)
                out << decision.line << std::endl;
            object.m_state = EditedObject::EO_SKIPPED;
            return;
        }
        return object.refuse(decision.line);
    }
    object.m_inMemory = S_ISREG(opened.st_mode) && (unsigned long long)opened.st_size <= IN_MEMORY_LIMIT;

    OFCondition cond = object.m_inMemory ? input->readWhole() : EC_Normal;
    std::unique_ptr<DcmFileFormat> file(new DcmFileFormat);
    // the toolkit's lines about the parse follow the "Apply ..." line, which waits for the
    // DICOMDIR rule
    ObjectReport parseLog;
    if (cond.good())
    {
        // shapes the toolkit's reader would not survive (its stack, or memory) end here
        DicomStreamScan scan;
        cond = scan.scan(*input);
    }
    if (cond.good())
    {
        ReportLog::Scope scope(parseLog);
        cond = loadFileFormat(*file, input);
    }
    if (cond.good())
    {
        const ObjectDecision decision = m_rules.byContent(name, *file, inDirectory);
        if (decision.verdict == ObjectDecision::OD_SKIP)
        {
            if (verbose)
                out << decision.line << std::endl;
            object.m_state = EditedObject::EO_SKIPPED;
            return;
        }
        if (decision.verdict == ObjectDecision::OD_REFUSE)
        {
            if (verbose)
                out << "Apply soft edit changes to " << object.m_path << std::endl;
            object.m_report.append(parseLog);
            return object.refuse(decision.line);
        }
    }
    if (verbose)
        out << "Apply soft edit changes to " << object.m_path << std::endl;
    object.m_readLog.appendCopy(parseLog);
    object.m_report.append(parseLog);
    if (cond.bad())
    {
        err << "Error loading " << object.m_path << " [" << cond.text() << "]" << std::endl;
        return;
    }
    std::string refusal = m_rules.refusal(fd, opened);
    if (refusal.empty())
        refusal = repairedReading(object.m_readLog);
    if (!refusal.empty())
        return object.refuse(refusal);
    // Every value must be readable before the original is replaced. A small object's file is in
    // memory whole (the values the parse left for later are copied from there when it is written,
    // and reading them cannot fail: the parse has found them all within the bytes). A large one
    // keeps its values in its file and reads them while it is written and verified, through the
    // descriptor opened here: that reaches the very file that was checked, even after its name is
    // replaced, and the check at the replacement proves that nobody wrote to it meanwhile, so its
    // values are those of this read. Only a read error of the disk can fail there, and is reported
    // as the failed save it causes.
    object.m_directory = home;
    object.m_baseName = baseName;
    object.m_original = input;
    object.m_identity = FileIdentity(opened);
    object.m_temporaryDirectory = temporary;
    // the comparison's original: a copy, not a second parse of the same bytes
    object.m_read.reset(new DcmFileFormat(*file));
    object.m_file = std::move(file);
    object.m_state = EditedObject::EO_LOADED;
}
