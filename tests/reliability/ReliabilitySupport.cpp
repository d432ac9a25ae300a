// Support of the reliability tests.
#include "tests/reliability/ReliabilitySupport.h"

#include "tests/fixtures/Fixtures.h"
#include "privatetags/KQItem.h"
#include "dcmutils/softedit.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/oflog/oflog.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace reliability {

namespace {

// The tests read damaged files on purpose; the toolkit's complaints about them are noise here.
struct QuietToolkit
{
    QuietToolkit() { OFLog::configure(OFLogger::FATAL_LOG_LEVEL); }
} quietToolkit;

} // namespace

std::string applyChangesPath()
{
    return fixtures::program("applyChanges");
}

Outcome applyChanges(const std::vector<std::string>& args, const LaunchOptions& options)
{
    std::vector<std::string> argv{applyChangesPath()};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram(argv, options);
}

std::string unprivilegedUnavailable()
{
    if (geteuid() != 0)
        return "";
    LaunchOptions options;
    options.unprivileged = true;
    const Outcome outcome = applyChanges({"-h"}, options);
    if (outcome.exited && outcome.status == 0)
        return "";
    return "applyChanges cannot be run as user " + std::to_string(UNPRIVILEGED_ID) + " here (" +
           outcome.describe() + ")";
}

DirectoryWatch::DirectoryWatch()
    : m_fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    , m_buffer(64 * 1024)
    , m_used(0)
    , m_offset(0)
{
}

DirectoryWatch::~DirectoryWatch()
{
    if (m_fd >= 0)
        close(m_fd);
}

bool DirectoryWatch::add(const std::string& directory, unsigned int mask)
{
    return m_fd >= 0 && inotify_add_watch(m_fd, directory.c_str(), mask) >= 0;
}

bool DirectoryWatch::next(int timeoutMs, unsigned int& mask, std::string& name)
{
    if (m_offset >= m_used)
    {
        struct pollfd fds = {m_fd, POLLIN, 0};
        if (m_fd < 0 || poll(&fds, 1, timeoutMs) <= 0)
            return false;
        const ssize_t n = read(m_fd, m_buffer.data(), m_buffer.size());
        if (n <= 0)
            return false;
        m_used = size_t(n);
        m_offset = 0;
    }
    const struct inotify_event* event = reinterpret_cast<const struct inotify_event*>(&m_buffer[m_offset]);
    mask = event->mask;
    name = event->len > 0 ? std::string(event->name) : std::string();
    m_offset += sizeof(struct inotify_event) + event->len;
    return true;
}

std::vector<std::string> readdirOrder(const std::string& directory)
{
    std::vector<std::string> names;
    DIR* dir = opendir(directory.c_str());
    if (!dir)
        return names;
    while (struct dirent* entry = readdir(dir))
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
            names.push_back(entry->d_name);
    closedir(dir);
    return names;
}

bool copyFile(const std::string& from, const std::string& to)
{
    std::ifstream in(from, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream content;
    content << in.rdbuf();
    return fixtures::writeFile(to, content.str());
}

long fileSize(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? long(st.st_size) : -1;
}

static void removeTreeAt(int parent, const char* name)
{
    struct stat st;
    if (fstatat(parent, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        return;
    if (S_ISDIR(st.st_mode))
    {
        fchmodat(parent, name, 0700, 0);
        const int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd >= 0)
        {
            DIR* dir = fdopendir(fd);
            if (dir)
            {
                std::vector<std::string> names;
                while (struct dirent* entry = readdir(dir))
                    if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
                        names.push_back(entry->d_name);
                for (const std::string& child : names)
                    removeTreeAt(dirfd(dir), child.c_str());
                closedir(dir);
            }
            else
                close(fd);
        }
        unlinkat(parent, name, AT_REMOVEDIR);
    }
    else
        unlinkat(parent, name, 0);
}

void removeTree(const std::string& path)
{
    if (!path.empty())
        removeTreeAt(AT_FDCWD, path.c_str());
}

std::string canonicalDataset(DcmDataset& dataset, const std::map<DcmTagKey, std::string>& without)
{
    DcmDataset copy(dataset);
    for (const auto& edit : without)
        copy.findAndDeleteElement(edit.first, OFFalse, OFFalse);
    E_TransferSyntax xfer = dataset.getOriginalXfer();
    if (xfer == EXS_Unknown)
        xfer = EXS_LittleEndianExplicit;
    char path[] = "/tmp/kqcanon.XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0)
        return "<no scratch file>";
    close(fd);
    std::string text;
    const OFCondition cond = copy.saveFile(path, xfer, EET_ExplicitLength, EGL_withoutGL, EPD_noChange);
    if (cond.good())
        text = fixtures::readFile(path);
    else
        text = std::string("<cannot write: ") + cond.text() + ">";
    unlink(path);
    return text;
}

std::string withoutToolkitLog(const std::string& err)
{
    std::istringstream lines(err);
    std::string line;
    std::string kept;
    while (std::getline(lines, line))
    {
        const bool toolkit = line.size() >= 3 && line[1] == ':' && line[2] == ' ' &&
                             std::string("TDIWEF").find(line[0]) != std::string::npos;
        if (!toolkit)
            kept += line + "\n";
    }
    return kept;
}

namespace {

// String form of an element's value, as compared between the KqR file and the edited object.
std::string valueOf(DcmElement* element)
{
    OFString value;
    if (element == nullptr || element->getOFStringArray(value).bad())
        return "<unreadable>";
    return value.c_str();
}

bool isNestedSequence(DcmElement* element, Uint16 number)
{
    const DcmTagKey key = element->getTag().getXTag();
    return element->ident() == EVR_SQ && key.getGroup() == 0xF215 && (key.getElement() & 0xFF) == number;
}

// Copies the attributes of one change item into edits, returning its nested sequence.
DcmSequenceOfItems* collectItem(DcmItem& item, Uint16 nested, std::map<DcmTagKey, std::string>& edits)
{
    DcmSequenceOfItems* sequence = nullptr;
    for (unsigned long i = 0; i < item.card(); ++i)
    {
        DcmElement* element = item.getElement(i);
        if (nested != 0 && isNestedSequence(element, nested))
        {
            sequence = static_cast<DcmSequenceOfItems*>(element);
            continue;
        }
        edits[element->getTag().getXTag()] = valueOf(element);
    }
    return sequence;
}

// The item of a sequence whose attribute key has exactly the value, or null.
DcmItem* matchingItem(DcmSequenceOfItems* sequence, const DcmTagKey& key, const std::string& value)
{
    if (sequence == nullptr || value.empty())
        return nullptr;
    for (unsigned long i = 0; i < sequence->card(); ++i)
    {
        const char* itemValue = nullptr;
        DcmItem* item = sequence->getItem(i);
        if (item->findAndGetString(key, itemValue).good() && itemValue && value == itemValue)
            return item;
    }
    return nullptr;
}

std::string stringOf(DcmItem& item, const DcmTagKey& key)
{
    const char* value = nullptr;
    if (item.findAndGetString(key, value).bad() || value == nullptr)
        return "";
    return value;
}

bool loadFromBytes(const std::string& bytes, DcmFileFormat& file)
{
    char path[] = "/tmp/kqobject.XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0)
        return false;
    close(fd);
    bool ok = fixtures::writeFile(path, bytes) && file.loadFile(path).good() && file.loadAllDataIntoMemory().good();
    unlink(path);
    return ok;
}

} // namespace

bool Study::add(const std::string& name, const std::string& bytes)
{
    if (bytes.empty())
        return false;
    StudyObject object;
    object.name = name;
    object.original = bytes;
    m_objects.push_back(object);
    return true;
}

bool Study::setKqR(const std::string& kqrPath)
{
    DcmFileFormat kqr;
    if (kqr.loadFile(kqrPath.c_str()).bad() || kqr.loadAllDataIntoMemory().bad())
        return false;
    DcmItem* change = nullptr;
    KQItem kq(*kqr.getDataset());
    if (kq.findAndGetKQSequenceItem(KQ_CHANGE_SEQUENCE, change, 0).bad() || change == nullptr)
        return false;
    for (StudyObject& object : m_objects)
    {
        DcmFileFormat file;
        if (!loadFromBytes(object.original, file))
            return false;
        DcmDataset& ds = *file.getDataset();
        object.transferSyntax = DcmXfer(ds.getOriginalXfer()).getXferID();
        object.edits.clear();
        DcmSequenceOfItems* series = collectItem(*change, KQ_SERIES_SEQUENCE, object.edits);
        DcmItem* seriesItem = matchingItem(series, DCM_SeriesInstanceUID, stringOf(ds, DCM_SeriesInstanceUID));
        if (seriesItem)
        {
            DcmSequenceOfItems* instances = collectItem(*seriesItem, KQ_INSTANCE_SEQUENCE, object.edits);
            DcmItem* instanceItem = matchingItem(instances, DCM_SOPInstanceUID, stringOf(ds, DCM_SOPInstanceUID));
            if (instanceItem)
                collectItem(*instanceItem, 0, object.edits);
        }
        object.canonical = canonicalDataset(ds, object.edits);
    }
    return true;
}

bool Study::writeTo(const std::string& directory) const
{
    for (const StudyObject& object : m_objects)
        if (!fixtures::writeFile(directory + "/" + object.name, object.original))
            return false;
    return true;
}

size_t Study::indexOf(const std::string& name) const
{
    for (size_t i = 0; i < m_objects.size(); ++i)
        if (m_objects[i].name == name)
            return i;
    return m_objects.size();
}

ObjectState Study::check(const std::string& directory, size_t index, std::string& why) const
{
    const StudyObject& object = m_objects[index];
    const std::string path = directory + "/" + object.name;
    const std::string bytes = fixtures::readFile(path);
    if (bytes == object.original)
        return OBJECT_ORIGINAL;
    if (!fixtures::fileExists(path))
    {
        why = object.name + ": missing";
        return OBJECT_DAMAGED;
    }
    DcmFileFormat file;
    OFCondition cond = file.loadFile(path.c_str());
    if (cond.good())
        cond = file.loadAllDataIntoMemory();
    if (cond.bad())
    {
        why = object.name + ": does not load (" + cond.text() + "), " + std::to_string(bytes.size()) + " bytes";
        return OBJECT_DAMAGED;
    }
    // the transfer syntax the object was read in (an original without meta header gets one)
    if (object.transferSyntax != DcmXfer(file.getDataset()->getOriginalXfer()).getXferID())
    {
        why = object.name + ": transfer syntax changed";
        return OBJECT_DAMAGED;
    }
    DcmDataset& ds = *file.getDataset();
    for (const auto& edit : object.edits)
    {
        DcmElement* element = nullptr;
        ds.findAndGetElement(edit.first, element, OFFalse);
        const std::string value = element ? valueOf(element) : "<missing>";
        if (value != edit.second)
        {
            std::ostringstream text;
            text << object.name << ": " << edit.first << " is [" << value << "], expected [" << edit.second << "]";
            why = text.str();
            return OBJECT_DAMAGED;
        }
    }
    if (canonicalDataset(ds, object.edits) != object.canonical)
    {
        why = object.name + ": attributes other than the edited ones changed";
        return OBJECT_DAMAGED;
    }
    return OBJECT_EDITED;
}

void Study::checkAll(const std::string& directory, int& original, int& edited,
                     std::vector<std::string>& problems) const
{
    original = 0;
    edited = 0;
    for (size_t i = 0; i < m_objects.size(); ++i)
    {
        std::string why;
        switch (check(directory, i, why))
        {
        case OBJECT_ORIGINAL: ++original; break;
        case OBJECT_EDITED: ++edited; break;
        case OBJECT_DAMAGED: problems.push_back(why); break;
        }
    }
}

} // namespace reliability
