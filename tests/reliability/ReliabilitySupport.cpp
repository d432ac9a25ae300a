#include "tests/reliability/ReliabilitySupport.h"

#include "privatetags/KQItem.h"
#include "dcmutils/KqRWriter.h"
#include "dcmutils/softedit.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/oflog/oflog.h"

#include <dirent.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace reliability {

namespace {

// The tests read damaged files on purpose; the toolkit's complaints about them are noise here.
struct QuietToolkit
{
    QuietToolkit() { OFLog::configure(OFLogger::FATAL_LOG_LEVEL); }
} quietToolkit;

// String form of an element's value, as compared between the KqR file and the edited object.
std::string valueOf(DcmElement* element)
{
    OFString text;
    return element && element->getOFStringArray(text).good() ? text.c_str() : "<unreadable>";
}

// Copies the attributes of one change item into edits, returning its nested sequence (the KQ
// element `nested`, 0 for none).
DcmSequenceOfItems* collectItem(DcmItem& item, Uint16 nested, std::map<DcmTagKey, std::string>& edits)
{
    DcmSequenceOfItems* sequence = nullptr;
    for (unsigned long i = 0; i < item.card(); ++i)
    {
        DcmElement* element = item.getElement(i);
        const DcmTagKey key = element->getTag().getXTag();
        if (nested != 0 && element->ident() == EVR_SQ && key.getGroup() == 0xF215 && (key.getElement() & 0xFF) == nested)
            sequence = static_cast<DcmSequenceOfItems*>(element);
        else if (!key.isPrivateReservation()) // the change set's own creators are not copied
        {
            edits[key] = valueOf(element);
            // a private element brings the creator of its block into an object without one
            const DcmTagKey creator(key.getGroup(), key.getElement() >> 8);
            if (key.isPrivate() && key.getElement() >= 0x1000)
                edits[creator] = value(item, creator);
        }
    }
    return sequence;
}

// The item of a sequence whose attribute key has exactly the dataset's value, or null.
DcmItem* matchingItem(DcmSequenceOfItems* sequence, const DcmTagKey& key, DcmItem& dataset)
{
    const std::string wanted = value(dataset, key);
    for (unsigned long i = 0; sequence && wanted != "<missing>" && i < sequence->card(); ++i)
        if (value(*sequence->getItem(i), key) == wanted)
            return sequence->getItem(i);
    return nullptr;
}

// A scratch file that is gone with the object.
struct ScratchFile
{
    char path[24] = "/tmp/kqscratch.XXXXXX";
    ScratchFile() { close(mkstemp(path)); }
    ~ScratchFile() { unlink(path); }
};

// The dataset written without the given attributes and without group lengths, in the transfer
// syntax it was read in: equal texts mean equal content.
std::string canonicalDataset(DcmDataset& dataset, const std::map<DcmTagKey, std::string>& without)
{
    DcmDataset copy(dataset);
    for (const auto& edit : without)
        copy.findAndDeleteElement(edit.first, OFFalse, OFFalse);
    const E_TransferSyntax xfer = dataset.getOriginalXfer();
    ScratchFile scratch;
    const OFCondition cond = copy.saveFile(scratch.path, xfer == EXS_Unknown ? EXS_LittleEndianExplicit : xfer,
                                           EET_ExplicitLength, EGL_withoutGL, EPD_noChange);
    return cond.good() ? readFile(scratch.path) : std::string("<cannot write: ") + cond.text() + ">";
}

} // namespace

bool straceWorks()
{
    static const bool works = runProgram({"/usr/bin/strace", "-qq", "-o", "/dev/null", "/bin/true"}).status == 0;
    return works;
}

::testing::AssertionResult succeeds(const Outcome& outcome)
{
    if (outcome.exited && outcome.status == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << outcome.describe();
}

::testing::AssertionResult failsWith(const Outcome& outcome, const std::string& err, int status)
{
    if (outcome.exited && outcome.status == status && outcome.err == err)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << outcome.describe() << "\nexpected exit " << status << " and:\n" << err;
}

std::string writeNameKqR(const std::string& path, const std::string& patientName)
{
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, patientName.c_str());
    return writer.save(path.c_str()).good() ? path : "";
}

PlainStudy::PlainStudy(const TempDir& root, int perSeries, const std::string& patientName, int series)
    : dir(root.file("study")), kqr(writeNameKqR(root.file("edit.kqr"), patientName)), name(patientName)
{
    mkdir(dir.c_str(), 0755);
    ObjectSpec spec;
    spec.rows = spec.columns = 4;
    writeStudy(dir, series, perSeries, spec);
    order = listDir(dir, false);
}

int PlainStudy::mismatches(size_t at) const
{
    int wrong = 0;
    for (size_t i = 0; i < order.size(); ++i)
        wrong += edited(i) != (i < at);
    return wrong;
}

std::vector<std::string> straced(const std::string& syscall, const std::string& fault, int n,
                                 const std::vector<std::string>& args)
{
    std::vector<std::string> argv{"/usr/bin/env", "ASAN_OPTIONS=detect_leaks=0:abort_on_error=1", "/usr/bin/strace",
                                  "-f", "-qq", "-o", "/dev/null", "-e", "trace=" + syscall, "-e",
                                  "inject=" + syscall + ":" + fault + ":when=" + std::to_string(n),
                                  program("applyChanges")};
    argv.insert(argv.end(), args.begin(), args.end());
    return argv;
}

bool startHeld(Launched& run, const std::string& syscall, const std::vector<std::string>& args,
               const std::string& watched, unsigned int mask, const std::string& suffix, int events)
{
    DirectoryWatch watch;
    bool ok = watch.add(watched, mask) && run.start(straced(syscall, "delay_enter=1500000", 1, args));
    for (int i = 0; i < events; ++i)
        ok = ok && waitForName(watch, suffix);
    return ok;
}

pid_t heldProgram(const Launched& run)
{
    // strace's child: the process whose parent it is
    DIR* proc = opendir("/proc");
    pid_t found = 0;
    while (struct dirent* entry = proc ? readdir(proc) : nullptr)
    {
        const std::string stat = readFile(std::string("/proc/") + entry->d_name + "/stat");
        const size_t close = stat.rfind(')');
        int parent = 0;
        if (close != std::string::npos && sscanf(stat.c_str() + close + 1, " %*c %d", &parent) == 1 &&
            parent == run.pid())
            found = pid_t(atoi(entry->d_name));
    }
    if (proc)
        closedir(proc);
    return found;
}

bool waitForName(DirectoryWatch& watch, const std::string& suffix)
{
    std::string name;
    for (int waited = 0; waited < 20000; waited += 10)
        while (watch.next(10, name))
            if (name.size() >= suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
                return true;
    return false;
}

DirectoryWatch::DirectoryWatch() : m_fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), m_buffer(64 * 1024)
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

bool DirectoryWatch::next(int timeoutMs, std::string& name)
{
    if (m_offset >= m_used)
    {
        struct pollfd fds = {m_fd, POLLIN, 0};
        const ssize_t n = m_fd >= 0 && poll(&fds, 1, timeoutMs) > 0 ? read(m_fd, m_buffer.data(), m_buffer.size()) : 0;
        if (n <= 0)
            return false;
        m_used = size_t(n);
        m_offset = 0;
    }
    const struct inotify_event* event = reinterpret_cast<const struct inotify_event*>(&m_buffer[m_offset]);
    name = event->len > 0 ? std::string(event->name) : std::string();
    m_offset += sizeof(struct inotify_event) + event->len;
    return true;
}

bool Study::add(const std::string& name, const std::string& bytes)
{
    if (bytes.empty())
        return false;
    m_objects.push_back(StudyObject());
    m_objects.back().name = name;
    m_objects.back().original = bytes;
    return true;
}

bool Study::setKqR(const std::string& kqrPath)
{
    DcmFileFormat kqr;
    DcmItem* change = nullptr;
    if (kqr.loadFile(kqrPath.c_str()).bad() || kqr.loadAllDataIntoMemory().bad() ||
        KQItem(*kqr.getDataset()).findAndGetKQSequenceItem(KQ_CHANGE_SEQUENCE, change, 0).bad() || !change)
        return false;
    for (StudyObject& object : m_objects)
    {
        DcmFileFormat file;
        ScratchFile scratch;
        if (!writeFile(scratch.path, object.original) || file.loadFile(scratch.path).bad() ||
            file.loadAllDataIntoMemory().bad())
            return false;
        DcmDataset& ds = *file.getDataset();
        object.transferSyntax = DcmXfer(ds.getOriginalXfer()).getXferID();
        object.edits.clear();
        DcmSequenceOfItems* series = collectItem(*change, KQ_SERIES_SEQUENCE, object.edits);
        if (DcmItem* seriesItem = matchingItem(series, DCM_SeriesInstanceUID, ds))
        {
            DcmSequenceOfItems* instances = collectItem(*seriesItem, KQ_INSTANCE_SEQUENCE, object.edits);
            if (DcmItem* instanceItem = matchingItem(instances, DCM_SOPInstanceUID, ds))
                collectItem(*instanceItem, 0, object.edits);
        }
        object.canonical = canonicalDataset(ds, object.edits);
    }
    return true;
}

bool Study::reset(const std::string& directory) const
{
    TempDir::removeTree(directory);
    bool ok = mkdir(directory.c_str(), 0755) == 0;
    for (const StudyObject& object : m_objects)
        ok = ok && writeFile(directory + "/" + object.name, object.original);
    return ok;
}

size_t Study::indexOf(const std::string& name) const
{
    size_t i = 0;
    while (i < m_objects.size() && m_objects[i].name != name)
        ++i;
    return i;
}

std::vector<std::string> Study::walkOrder(const std::string& directory) const
{
    std::vector<std::string> order;
    for (const std::string& name : listDir(directory, false))
        if (has(name))
            order.push_back(name);
    return order;
}

ObjectState Study::check(const std::string& directory, size_t index, std::string& why) const
{
    const StudyObject& object = m_objects[index];
    const std::string path = directory + "/" + object.name;
    const std::string bytes = readFile(path);
    if (bytes == object.original)
        return OBJECT_ORIGINAL;
    why = object.name + ": missing";
    if (!fileExists(path))
        return OBJECT_DAMAGED;
    DcmFileFormat file;
    OFCondition cond = file.loadFile(path.c_str());
    if (cond.good())
        cond = file.loadAllDataIntoMemory();
    why = object.name + ": does not load (" + cond.text() + "), " + std::to_string(bytes.size()) + " bytes";
    if (cond.bad())
        return OBJECT_DAMAGED;
    DcmDataset& ds = *file.getDataset();
    // the transfer syntax the object was read in (an original without meta header gets one)
    why = object.name + ": transfer syntax changed";
    if (object.transferSyntax != DcmXfer(ds.getOriginalXfer()).getXferID())
        return OBJECT_DAMAGED;
    for (const auto& edit : object.edits)
    {
        DcmElement* element = nullptr;
        ds.findAndGetElement(edit.first, element, OFFalse);
        const std::string now = element ? valueOf(element) : "<missing>";
        why = object.name + ": " + edit.first.toString().c_str() + " is [" + now + "], expected [" + edit.second + "]";
        if (now != edit.second)
            return OBJECT_DAMAGED;
    }
    why = object.name + ": attributes other than the edited ones changed";
    return canonicalDataset(ds, object.edits) == object.canonical ? OBJECT_EDITED : OBJECT_DAMAGED;
}

Tally Study::checkAll(const std::string& directory) const
{
    Tally tally;
    for (size_t i = 0; i < m_objects.size(); ++i)
    {
        std::string why;
        const ObjectState state = check(directory, i, why);
        tally.original += state == OBJECT_ORIGINAL;
        tally.edited += state == OBJECT_EDITED;
        if (state == OBJECT_DAMAGED)
            tally.problems.push_back(why);
    }
    return tally;
}

bool buildStudy(const StudyBuild& build, const std::string& directory, const std::string& kqrPath, Study& study)
{
    static const E_TransferSyntax syntaxes[] = {EXS_LittleEndianExplicit, EXS_LittleEndianImplicit,
                                                EXS_BigEndianExplicit, EXS_DeflatedLittleEndianExplicit};
    mkdir(directory.c_str(), 0755);
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Edited^Patient");
    writer.setStudyAttribute(DCM_PatientID, "KQ-EDITED");
    writer.setStudyAttribute(DCM_StudyDescription, "Soft edited study");
    ObjectSpec spec;
    spec.columns = 128;
    int n = 0;
    for (int s = 1; s <= build.series; ++s)
    {
        spec.xfer = syntaxes[(s - 1) % 4];
        spec.seriesUID = spec.studyUID + "." + std::to_string(s);
        writer.setSeriesAttribute(spec.seriesUID.c_str(), DCM_SeriesDescription,
                                  ("Edited series " + std::to_string(s)).c_str());
        for (int i = 1; i <= build.instancesPerSeries; ++i)
        {
            const std::string name = "IM" + std::to_string(++n);
            spec.sopInstanceUID = spec.seriesUID + "." + std::to_string(i);
            spec.rows = Uint16(build.rows + (build.varyRows ? 8 * n : 0));
            if (i % 3 == 1)
            {
                writer.setInstanceAttribute(spec.seriesUID.c_str(), spec.sopInstanceUID.c_str(), DCM_InstanceNumber,
                                            std::to_string(100 + n).c_str());
                writer.setInstanceAttribute(spec.seriesUID.c_str(), spec.sopInstanceUID.c_str(),
                                            DCM_DerivationDescription, "edited instance");
            }
            if (!writeObject(directory + "/" + name, spec) || !study.add(name, readFile(directory + "/" + name)))
                return false;
        }
    }
    for (const std::string& file : build.corpusFiles)
    {
        const std::string series = attribute(corpusFile(file), DCM_SeriesInstanceUID);
        if (!series.empty() && series != "<missing>")
            writer.setSeriesAttribute(series.c_str(), DCM_SeriesDescription, ("Corpus " + file).c_str());
        if (!writeFile(directory + "/C_" + file, readFile(corpusFile(file))) ||
            !study.add("C_" + file, readFile(corpusFile(file))))
            return false;
    }
    return writer.save(kqrPath.c_str()).good() && study.setKqR(kqrPath);
}

} // namespace reliability
