// Reliability test support: applyChanges runs, inotify watches, studies checked object by object.
#ifndef RELIABILITYSUPPORT_H
#define RELIABILITYSUPPORT_H

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dcdeftag.h"

#include <map>
#include <string>
#include <vector>

namespace reliability {

using namespace fixtures;

// Repetitions of a randomised trial: half of them under the (slower) sanitizers.
inline int trials(int count)
{
#if defined(KQ_SANITIZED)
    return count / 2;
#else
    return count;
#endif
}

// Name of the temporary file of object `name` written by process pid.
inline std::string tempName(pid_t pid, const std::string& name)
{
    return ".applychanges" + std::to_string(pid) + "." + name;
}

// Exit status 0; exit status `status` with exactly that standard error.
::testing::AssertionResult succeeds(const Outcome& outcome);
::testing::AssertionResult failsWith(const Outcome& outcome, const std::string& err, int status = 1);

// A KqR file setting the patient's name at study level: its path, empty when it cannot be written.
std::string writeNameKqR(const std::string& path, const std::string& patientName);

// series x perSeries small objects (4 x 4) in root/study, and root/edit.kqr renaming the patient.
struct PlainStudy
{
    PlainStudy(const TempDir& root, int perSeries, const std::string& patientName, int series = 1);
    std::string path(size_t index) const { return dir + "/" + order[index]; }
    bool edited(size_t index) const { return attribute(path(index), DCM_PatientName) == name; }
    // How many objects are not "edited before index at, original from there on".
    int mismatches(size_t at) const;

    std::string dir;
    std::string kqr;
    std::string name;
    std::vector<std::string> order; // walk order
};

class DirectoryWatch // inotify over directories
{
public:
    DirectoryWatch();
    ~DirectoryWatch();
    DirectoryWatch(const DirectoryWatch&) = delete;
    DirectoryWatch& operator=(const DirectoryWatch&) = delete;
    bool add(const std::string& directory, unsigned int mask);
    // Next event within timeoutMs: its name; false on time-out.
    bool next(int timeoutMs, std::string& name);

private:
    int m_fd;
    std::vector<char> m_buffer;
    size_t m_used = 0;
    size_t m_offset = 0;
};

// True when strace can trace a program here.
bool straceWorks();

// applyChanges under strace with a fault injected at the n-th call of syscall (by any thread);
// LeakSanitizer cannot work under a tracer and is off there.
std::vector<std::string> straced(const std::string& syscall, const std::string& fault, int n,
                                 const std::vector<std::string>& args);

// Starts applyChanges with its first call of syscall delayed 1.5 s by strace, and waits for `events`
// events (of mask, in directory watched) on a name ending in suffix: the run is held there while the test acts.
bool startHeld(Launched& run, const std::string& syscall, const std::vector<std::string>& args,
               const std::string& watched, unsigned int mask, const std::string& suffix, int events = 1);

// The process of applyChanges in a run started by startHeld (strace's child), 0 when not found.
pid_t heldProgram(const Launched& run);

// Waits (up to 20 s) for an event of the watch on a name ending in suffix.
bool waitForName(DirectoryWatch& watch, const std::string& suffix);

// An object on disk compared with its original and the edit the KqR file describes.
enum ObjectState
{
    OBJECT_ORIGINAL, // byte-identical to the original
    OBJECT_EDITED,   // loads completely; every edited attribute holds its new value, all else as before
    OBJECT_DAMAGED   // anything else: missing, truncated, half edited, changed elsewhere
};

struct StudyObject
{
    std::string name;
    std::string original;
    std::string transferSyntax;             // UID of the transfer syntax the dataset is read in
    std::map<DcmTagKey, std::string> edits; // attributes the edit sets, values in DCMTK's string form
    std::string canonical;                  // the original without the edited attributes, canonically written
};

// The states of all objects of a study directory; every damaged object is in problems.
struct Tally { int original = 0; int edited = 0; std::vector<std::string> problems; };

// Objects of a study directory and the soft edit that applyChanges is to make of them.
class Study
{
public:
    // Adds an object file; edits are computed by setKqR.
    bool add(const std::string& name, const std::string& bytes);
    // Every object's expected edit, read here from the KqR file's study, series and instance items.
    bool setKqR(const std::string& kqrPath);
    // Makes directory afresh (removing what was there) holding the original objects.
    bool reset(const std::string& directory) const;

    ObjectState check(const std::string& directory, size_t index, std::string& why) const;
    Tally checkAll(const std::string& directory) const;

    const std::vector<StudyObject>& objects() const { return m_objects; }
    // Index of the object of that name, objects().size() when there is none.
    size_t indexOf(const std::string& name) const;
    bool has(const std::string& name) const { return indexOf(name) < m_objects.size(); }
    // The object names of a directory in walk (readdir) order.
    std::vector<std::string> walkOrder(const std::string& directory) const;

private:
    std::vector<StudyObject> m_objects;
};

struct StudyBuild
{
    StudyBuild(int seriesCount = 4, int perSeries = 8, unsigned short imageRows = 128, bool growingRows = false)
        : series(seriesCount), instancesPerSeries(perSeries), rows(imageRows), varyRows(growingRows)
    {
    }
    int series;                  // generated series, one transfer syntax each
    int instancesPerSeries;      // generated objects per series
    unsigned short rows;         // of the generated images (16 bits, one sample)
    bool varyRows;               // rows grow by 8 with every object: objects of many sizes
    std::vector<std::string> corpusFiles; // real objects added as they are
};

// Writes generated objects (of four transfer syntaxes) and corpus objects into directory and a
// KqR file editing them at all three levels to kqrPath, and fills study with both.
bool buildStudy(const StudyBuild& build, const std::string& directory, const std::string& kqrPath, Study& study);

} // namespace reliability

#endif
