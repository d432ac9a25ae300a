// Support of the reliability tests: applyChanges under controlled conditions, inotify watches on
// its directories, and studies whose every object can be classified as untouched, completely
// edited or damaged.
#ifndef RELIABILITYSUPPORT_H
#define RELIABILITYSUPPORT_H

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dcdeftag.h"

#include <map>
#include <string>
#include <vector>

namespace reliability {

using namespace fixtures;

// Repetitions of a randomised trial: half of them under the sanitizers, whose run is there for
// memory errors and is several times slower.
inline int trials(int count)
{
#if defined(__SANITIZE_ADDRESS__)
    return count / 2;
#else
    return count;
#endif
}

inline Outcome applyChanges(const std::vector<std::string>& args, const LaunchOptions& options = LaunchOptions())
{
    return runBuilt("applyChanges", args, options);
}

inline std::string failedLine(const std::string& path)
{
    return "Applying soft edit changes to object failed: " + path + "\n";
}

// inotify over directories.
class DirectoryWatch
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

// Starts applyChanges under strace, the entry of the n-th call of syscall (by any thread) delayed
// by delayMs: the run is held at a known point while the test acts (LeakSanitizer cannot work
// under a tracer and is off there).
bool startHeld(Launched& run, const std::string& syscall, int n, int delayMs, const std::vector<std::string>& args,
               const LaunchOptions& options = LaunchOptions());

// The process of applyChanges in a run started by startHeld (strace's child), 0 when not found.
pid_t heldProgram(const Launched& run);

// Waits (up to timeoutMs) for an event of the watch on a name ending in suffix.
bool waitForName(DirectoryWatch& watch, const std::string& suffix, int timeoutMs = 20000);

// What an object on disk is compared with its original and the edit the KqR file describes.
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
    std::string transferSyntax; // UID of the transfer syntax the dataset is read in
    // attributes the edit sets, with their values in DCMTK's string form
    std::map<DcmTagKey, std::string> edits;
    // the original dataset without the edited attributes, written in a canonical form
    std::string canonical;
};

// The states of all objects of a study directory; every damaged object is in problems.
struct Tally { int original = 0; int edited = 0; std::vector<std::string> problems; };

// Objects of a study directory and the soft edit that applyChanges is to make of them.
class Study
{
public:
    // Adds an object file; edits are computed by setKqR.
    bool add(const std::string& name, const std::string& bytes);
    // Computes every object's expected edit from the change item of the KqR file (an independent
    // reading of the study, series and instance items).
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
    int series = 4;              // generated series, one transfer syntax each
    int instancesPerSeries = 8;  // generated objects per series
    unsigned short rows = 128;   // of the generated images (16 bits, one sample)
    bool varyRows = false;       // rows grow by 8 with every object: objects of many sizes
    std::vector<std::string> corpusFiles; // real objects added as they are
    size_t commentLength = 0;    // > 0: a study-level Image Comments of that length (objects grow)
};

// Writes generated objects (of four transfer syntaxes) and corpus objects into directory and a
// KqR file editing them at all three levels to kqrPath, and fills study with both.
bool buildStudy(const StudyBuild& build, const std::string& directory, const std::string& kqrPath, Study& study);

} // namespace reliability

#endif
