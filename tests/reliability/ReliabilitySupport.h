// Support of the reliability tests: starting applyChanges under controlled conditions (file size
// limit, unprivileged user, kill at a chosen moment), watching its temporary directory, and a
// study whose every object can be classified as untouched, completely edited or damaged.
#ifndef RELIABILITYSUPPORT_H
#define RELIABILITYSUPPORT_H

#include "tests/fixtures/ProcessRunner.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <map>
#include <string>
#include <vector>

namespace reliability {

// Repetitions of a randomised trial: the full count in the optimised build, half of it under
// the sanitizers, whose run is there for memory errors and is several times slower.
inline int trials(int count)
{
#if defined(__SANITIZE_ADDRESS__)
    return count / 2;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
    return count / 2;
#else
    return count;
#endif
#else
    return count;
#endif
}

// The program runner is shared with the other tests.
using fixtures::LaunchOptions;
using fixtures::Launched;
using fixtures::Outcome;
using fixtures::UNPRIVILEGED_ID;
using fixtures::runProgram;

// Path of applyChanges and a run of it with the given arguments.
std::string applyChangesPath();
Outcome applyChanges(const std::vector<std::string>& args, const LaunchOptions& options = LaunchOptions());

// Empty when a program can be run as UNPRIVILEGED_ID here (or the tests already run without
// privileges); otherwise why not.
std::string unprivilegedUnavailable();

// inotify over directories; events are counted by kind.
class DirectoryWatch
{
public:
    DirectoryWatch();
    ~DirectoryWatch();
    bool add(const std::string& directory, unsigned int mask);
    // Next event within timeoutMs: its mask and name; false on time-out.
    bool next(int timeoutMs, unsigned int& mask, std::string& name);

private:
    DirectoryWatch(const DirectoryWatch&);
    DirectoryWatch& operator=(const DirectoryWatch&);

    int m_fd;
    std::vector<char> m_buffer;
    size_t m_used;
    size_t m_offset;
};

// Names of a directory's entries in readdir order, without "." and "..".
std::vector<std::string> readdirOrder(const std::string& directory);
// Copies a file; false on any failure.
bool copyFile(const std::string& from, const std::string& to);
long fileSize(const std::string& path);
// Removes a directory tree; works for trees deeper than PATH_MAX.
void removeTree(const std::string& path);

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

// Objects of a study directory and the soft edit that applyChanges is to make of them.
class Study
{
public:
    // Adds an object file; edits are computed by setKqR.
    bool add(const std::string& name, const std::string& bytes);
    // Computes every object's expected edit from the change item of the KqR file.
    bool setKqR(const std::string& kqrPath);
    // Writes every object into directory (which must exist), replacing what is there.
    bool writeTo(const std::string& directory) const;

    ObjectState check(const std::string& directory, size_t index, std::string& why) const;
    // Checks all objects; counts the states and lists every damaged object in problems.
    void checkAll(const std::string& directory, int& original, int& edited, std::vector<std::string>& problems) const;

    const std::vector<StudyObject>& objects() const { return m_objects; }
    size_t indexOf(const std::string& name) const;

private:
    std::vector<StudyObject> m_objects;
    std::string m_scratch;
};

// The dataset written without the given attributes and without group lengths, in the transfer
// syntax it was read in: equal texts mean equal content.
std::string canonicalDataset(DcmDataset& dataset, const std::map<DcmTagKey, std::string>& without);

// Standard error with the toolkit's own log lines ("W: ", "E: " ...) removed.
std::string withoutToolkitLog(const std::string& err);

} // namespace reliability

#endif
