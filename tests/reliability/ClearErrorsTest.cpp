// Conditions of the file system that an archive meets: a study directory the program may not
// write (run as an unprivileged user), names and paths longer than the system allows, and a
// study directory that is moved or removed while the walk is under way. Each ends with the
// driver's exact messages and exit status 1, and leaves the objects intact.
#include "tests/reliability/ReliabilitySupport.h"
#include "tests/reliability/StudyBuilder.h"

#include "tests/fixtures/Fixtures.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <limits.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>

using namespace reliability;

namespace {

std::string failedLine(const std::string& path)
{
    return "Applying soft edit changes to object failed: " + path + "\n";
}

void expectAllOriginal(const Study& study, const std::string& directory)
{
    int original = 0, edited = 0;
    std::vector<std::string> problems;
    study.checkAll(directory, original, edited, problems);
    EXPECT_EQ(int(study.objects().size()), original) << ::testing::PrintToString(problems);
}

// A small study in root/study with its KqR file beside it, readable by everybody.
struct SmallStudy
{
    explicit SmallStudy(const fixtures::TempDir& root, int objects = 3)
        : directory(root.file("study"))
        , kqr(root.file("KqR.edit"))
    {
        chmod(root.path().c_str(), 0755);
        StudyBuild build;
        build.series = 1;
        build.instancesPerSeries = objects;
        build.rows = 16;
        ok = buildStudy(build, directory, kqr, study);
        order = readdirOrder(directory);
    }
    std::string directory;
    std::string kqr;
    Study study;
    std::vector<std::string> order;
    bool ok = false;
};

} // namespace

TEST(ClearErrors, StudyDirectoryThatMayNotBeWritten)
{
    const std::string unavailable = unprivilegedUnavailable();
    if (!unavailable.empty())
        GTEST_SKIP() << unavailable;
    LaunchOptions user;
    user.unprivileged = true;
    fixtures::TempDir root;
    SmallStudy s(root);
    ASSERT_TRUE(s.ok);
    const std::string dir = s.directory;
    const std::string first = dir + "/" + s.order[0];
    // the objects may be written by the user (a read-only object is refused before any of this)
    for (const std::string& name : s.order)
        ASSERT_EQ(0, chmod((dir + "/" + name).c_str(), 0666));

    // no .tmp, and none can be made
    ASSERT_EQ(0, chmod(dir.c_str(), 0555));
    Outcome outcome = applyChanges({"-p", s.kqr, "-d", dir}, user);
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Temporary directory could not be created: " + dir + "/.tmp\n", outcome.err);
    expectAllOriginal(s.study, dir);
    EXPECT_FALSE(fixtures::fileExists(dir + "/.tmp"));

    // .tmp exists but may not be written: the temporary file cannot be created
    ASSERT_EQ(0, chmod(dir.c_str(), 0755));
    ASSERT_EQ(0, mkdir((dir + "/.tmp").c_str(), 0755));
    ASSERT_EQ(0, chmod(dir.c_str(), 0555));
    {
        Launched run;
        ASSERT_TRUE(run.start({applyChangesPath(), "-p", s.kqr, "-d", dir}, user));
        outcome = run.wait();
        EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        EXPECT_EQ("Error saving to temp file " + dir + "/.tmp/.applychanges" + std::to_string(run.pid()) + "." +
                      s.order[0] + " [Permission denied]\n" + failedLine(first),
                  outcome.err);
    }
    expectAllOriginal(s.study, dir);
    EXPECT_TRUE(fixtures::listDir(dir + "/.tmp").empty());

    // .tmp may be written, the study directory not: the verified file cannot be moved into place
    ASSERT_EQ(0, chmod((dir + "/.tmp").c_str(), 0777));
    outcome = applyChanges({"-p", s.kqr, "-d", dir}, user);
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Error moving modified file to it's final place for " + first + "\n" + failedLine(first), outcome.err);
    expectAllOriginal(s.study, dir);
    EXPECT_TRUE(fixtures::listDir(dir + "/.tmp").empty());

    // an object that may not be read
    ASSERT_EQ(0, chmod(dir.c_str(), 0777));
    ASSERT_EQ(0, chmod(first.c_str(), 0000));
    outcome = applyChanges({"-p", s.kqr, "-o", first}, user);
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Error loading " + first + " [Permission denied]\n" + failedLine(first), outcome.err);
    ASSERT_EQ(0, chmod(first.c_str(), 0666));
    expectAllOriginal(s.study, dir);

    // a KqR file that may not be read
    ASSERT_EQ(0, chmod(s.kqr.c_str(), 0600));
    outcome = applyChanges({"-p", s.kqr, "-d", dir}, user);
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Error loading KqR file " + s.kqr + "\n", outcome.err);
    expectAllOriginal(s.study, dir);
}

TEST(ClearErrors, NamesLongerThanTheSystemAllows)
{
    fixtures::TempDir root;
    SmallStudy s(root);
    ASSERT_TRUE(s.ok);
    const std::string dir = s.directory;

    // a name longer than NAME_MAX
    const std::string tooLong = dir + "/" + std::string(NAME_MAX + 1, 'n');
    Outcome outcome = applyChanges({"-p", s.kqr, "-o", tooLong});
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Error loading " + tooLong + " [File name too long]\n" + failedLine(tooLong), outcome.err);

    // an object whose name fits, but not with the temporary file's prefix and process id
    const std::string longName = std::string(NAME_MAX - 10, 'o');
    ASSERT_TRUE(fixtures::writeFile(dir + "/" + longName, s.study.objects()[0].original));
    Launched run;
    ASSERT_TRUE(run.start({applyChangesPath(), "-p", s.kqr, "-o", dir + "/" + longName}));
    outcome = run.wait();
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Error saving to temp file " + dir + "/.tmp/.applychanges" + std::to_string(run.pid()) + "." +
                  longName + " [File name too long]\n" + failedLine(dir + "/" + longName),
              outcome.err);
    EXPECT_EQ(s.study.objects()[0].original, fixtures::readFile(dir + "/" + longName));
    EXPECT_TRUE(fixtures::listDir(dir + "/.tmp").empty());
    expectAllOriginal(s.study, dir);

    // a study directory deeper than PATH_MAX, made and read through relative paths
    const std::string component(200, 'd');
    struct TreeRemover
    {
        std::string path;
        ~TreeRemover() { removeTree(path); }
    } remover{root.path() + "/" + component};
    std::string deep = root.path();
    int fd = open(root.path().c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(fd, 0);
    while (deep.size() <= PATH_MAX + 100)
    {
        ASSERT_EQ(0, mkdirat(fd, component.c_str(), 0755));
        const int next = openat(fd, component.c_str(), O_RDONLY | O_DIRECTORY);
        close(fd);
        ASSERT_GE(next, 0);
        fd = next;
        deep += "/" + component;
    }
    const std::string object = s.study.objects()[0].original;
    int file = openat(fd, "IM1", O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(file, 0);
    ASSERT_EQ(ssize_t(object.size()), write(file, object.data(), object.size()));
    close(file);

    outcome = applyChanges({"-p", s.kqr, "-d", deep});
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Study directory could not be opened: " + deep + "\n", outcome.err);
    outcome = applyChanges({"-p", s.kqr, "-o", deep + "/IM1"});
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Temporary directory could not be created: " + deep + "/.tmp\n", outcome.err);
    std::string read(object.size() + 1, '\0');
    file = openat(fd, "IM1", O_RDONLY);
    ASSERT_GE(file, 0);
    EXPECT_EQ(ssize_t(object.size()), ::read(file, &read[0], read.size()));
    close(file);
    EXPECT_EQ(object, read.substr(0, object.size()));
    close(fd);

    // a study directory that fits, holding an object whose path does not: it is reached through
    // the opened directory, and edited
    std::string fits = root.path();
    while (fits.size() + 1 + component.size() <= size_t(PATH_MAX - 100))
        fits += "/" + component;
    fits += "/" + std::string(PATH_MAX - 60 - fits.size() - 1, 'f');
    ASSERT_EQ(0, mkdir(fits.c_str(), 0755));
    const std::string objectName(150, 'i');
    ASSERT_TRUE(fixtures::writeFile(fits + "/" + objectName.substr(0, 10), object)); // path still fits
    file = open(fits.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(file, 0);
    ASSERT_EQ(0, renameat(file, objectName.substr(0, 10).c_str(), file, objectName.c_str()));
    const std::string objectPath = fits + "/" + objectName;
    ASSERT_GT(objectPath.size(), size_t(PATH_MAX));
    outcome = applyChanges({"-p", s.kqr, "-d", fits});
    EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
    const int inside = openat(file, objectName.c_str(), O_RDONLY);
    ASSERT_GE(inside, 0);
    read.assign(object.size() + 100, '\0');
    const ssize_t size = ::read(inside, &read[0], read.size());
    close(inside);
    close(file);
    ASSERT_GT(size, 0);
    EXPECT_NE(object, read.substr(0, size_t(size)));
    EXPECT_NE(std::string::npos, read.find("Edited^Patient")) << "the edit is in the object";
}

namespace {

// A study with one large object whose loading takes long enough to stop the program while it
// reads it; the large object lies inside the directory order, not first or last.
struct StudyWithLargeObject
{
    explicit StudyWithLargeObject(const fixtures::TempDir& root)
        : directory(root.file("study"))
        , kqr(root.file("KqR.edit"))
    {
        StudyBuild build;
        build.series = 1;
        build.instancesPerSeries = 6;
        build.rows = 16;
        if (!buildStudy(build, directory, kqr, study))
            return;
        fixtures::ObjectSpec spec;
        spec.rows = 2048;
        spec.columns = 4096; // 16 MB of pixel data
        spec.seriesUID = "1.2.826.0.1.3680043.2.1125.1.1.9";
        spec.sopInstanceUID = spec.seriesUID + ".1";
        for (int i = 0; i < 40 && large.empty(); ++i)
        {
            const std::string name = "large" + std::to_string(i);
            if (i == 0 && !fixtures::writeObject(directory + "/" + name, spec))
                return;
            if (i > 0 && rename((directory + "/large" + std::to_string(i - 1)).c_str(),
                                (directory + "/" + name).c_str()) != 0)
                return;
            const std::vector<std::string> names = readdirOrder(directory);
            const size_t at = size_t(std::find(names.begin(), names.end(), name) - names.begin());
            if (at > 0 && at + 1 < names.size())
                large = name;
        }
        if (large.empty() || !study.add(large, fixtures::readFile(directory + "/" + large)) || !study.setKqR(kqr))
            large.clear();
        order = readdirOrder(directory);
    }
    std::string directory;
    std::string kqr;
    Study study;
    std::string large;
    std::vector<std::string> order;
};

// Runs applyChanges -d, stops it while it loads the large object, lets `vanish` act on the
// file system and continues it. False when the program got past the load before it stopped.
template <class Vanish>
bool runWithVanishingDirectory(const StudyWithLargeObject& s, Vanish vanish, Outcome& outcome, pid_t& pid)
{
    DirectoryWatch watch;
    if (!watch.add(s.directory, IN_OPEN))
        return false;
    Launched run;
    if (!run.start({applyChangesPath(), "-p", s.kqr, "-d", s.directory}))
        return false;
    pid = run.pid();
    unsigned int mask = 0;
    std::string name;
    bool stopped = false;
    while (!stopped)
    {
        if (watch.next(10, mask, name))
        {
            if (name == s.large)
            {
                run.kill(SIGSTOP);
                stopped = true;
            }
        }
        else if (!run.running())
            break;
    }
    if (!stopped)
    {
        outcome = run.wait();
        return false;
    }
    // the temporary file of the large object exists only once its load is over
    const bool inTime =
        !fixtures::fileExists(s.directory + "/.tmp/.applychanges" + std::to_string(pid) + "." + s.large);
    vanish();
    run.kill(SIGCONT);
    outcome = run.wait();
    return inTime;
}

} // namespace

TEST(ClearErrors, StudyDirectoryVanishingDuringTheWalk)
{
    int variants = 0;
    for (int variant = 0; variant < 3; ++variant)
    {
        SCOPED_TRACE(variant == 0 ? "moved away" : variant == 1 ? ".tmp removed" : "removed");
        bool inTime = false;
        for (int attempt = 0; attempt < 3 && !inTime; ++attempt)
        {
            fixtures::TempDir root;
            StudyWithLargeObject s(root);
            ASSERT_FALSE(s.large.empty());
            const std::string moved = s.directory + ".moved";
            Outcome outcome;
            pid_t pid = 0;
            inTime = runWithVanishingDirectory(
                s,
                [&]() {
                    if (variant == 0)
                        rename(s.directory.c_str(), moved.c_str());
                    else if (variant == 1)
                        removeTree(s.directory + "/.tmp");
                    else
                        removeTree(s.directory);
                },
                outcome, pid);
            if (!inTime)
                continue;
            ++variants;
            // Objects are read, written and renamed through the directories opened at the start:
            // a directory moved away keeps the run going, and every object is edited where it
            // went. With .tmp or the whole directory gone, the temporary files of the objects
            // verified before (renamed in batches) went with it: the first of them fails, and the
            // run ends there, every object whole and as it was.
            const std::string first = s.directory + "/" + s.order[0];
            if (variant == 0)
                EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
            else
                EXPECT_EQ("Error moving modified file to it's final place for " + first + "\n" + failedLine(first),
                          outcome.err);
            if (variant == 2)
            {
                EXPECT_FALSE(fixtures::fileExists(s.directory));
                continue;
            }
            const std::string now = variant == 0 ? moved : s.directory;
            const size_t at = variant == 1 ? 0 : s.order.size();
            for (size_t i = 0; i < s.order.size(); ++i)
            {
                const size_t index = s.study.indexOf(s.order[i]);
                if (index >= s.study.objects().size())
                    continue;
                std::string why;
                EXPECT_EQ(i < at ? OBJECT_EDITED : OBJECT_ORIGINAL, s.study.check(now, index, why))
                    << s.order[i] << " " << why;
            }
            if (variant == 0)
            {
                EXPECT_FALSE(fixtures::fileExists(s.directory));
                EXPECT_TRUE(fixtures::listDir(moved + "/.tmp").empty());
            }
            else
                EXPECT_FALSE(fixtures::fileExists(s.directory + "/.tmp"));
        }
    }
    if (variants < 3)
        GTEST_SKIP() << "the program could not be stopped during a load in " << 3 - variants << " of 3 cases";
}
