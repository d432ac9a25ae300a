// Conditions of the file system that an archive meets: a study directory the program may not
// write (run as an unprivileged user), names and paths longer than the system allows, and a
// study directory that is moved or removed while the walk is under way. Each ends with the
// driver's exact messages and exit status 1, and leaves the objects intact.
#include "tests/reliability/ReliabilitySupport.h"

#include <limits.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>

using namespace reliability;

namespace {

// A small study in root/study with its KqR file beside it.
struct SmallStudy
{
    explicit SmallStudy(const TempDir& root, int objects = 3) : dir(root.file("study")), kqr(root.file("KqR.edit"))
    {
        StudyBuild build;
        build.series = 1;
        build.instancesPerSeries = objects;
        build.rows = 16;
        ok = buildStudy(build, dir, kqr, study);
        order = study.walkOrder(dir);
    }
    bool allOriginal(const std::string& where = "") const
    {
        return study.checkAll(where.empty() ? dir : where).original == int(study.objects().size());
    }
    std::string dir;
    std::string kqr;
    Study study;
    std::vector<std::string> order;
    bool ok = false;
};

// Waits until every thread of a process has stopped (a stop signal takes effect asynchronously).
bool waitUntilStopped(pid_t pid)
{
    for (int attempt = 0; attempt < 2000; ++attempt)
    {
        bool all = true;
        for (const std::string& task : listDir("/proc/" + std::to_string(pid) + "/task"))
        {
            const std::string stat = readFile("/proc/" + std::to_string(pid) + "/task/" + task + "/stat");
            const size_t close = stat.rfind(')');
            all = all && close != std::string::npos && close + 2 < stat.size() && stat[close + 2] == 'T';
        }
        if (all)
            return true;
        usleep(1000);
    }
    return false;
}

std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

} // namespace

TEST(ClearErrors, StudyDirectoryThatMayNotBeWritten)
{
    LaunchOptions user;
    user.unprivileged = true;
    const Outcome probe = applyChanges({"-h"}, user);
    if (geteuid() == 0 && !(probe.exited && probe.status == 0))
        GTEST_SKIP() << "applyChanges cannot be run as user " << UNPRIVILEGED_ID << " here (" << probe.describe() << ")";
    TempDir root;
    chmod(root.path().c_str(), 0755);
    SmallStudy s(root);
    ASSERT_TRUE(s.ok);
    const std::string dir = s.dir, tmp = dir + "/.tmp", first = dir + "/" + s.order[0];
    // the objects may be written by the user (a read-only object is refused before any of this)
    for (const std::string& name : s.order)
        ASSERT_EQ(0, chmod((dir + "/" + name).c_str(), 0666));
    struct Case
    {
        const char* what;
        std::function<void()> setUp;
        bool oneObject;
        std::string err; // PID stands for the process id
    };
    const Case cases[] = {
        {"no .tmp, and none can be made", [&] { chmod(dir.c_str(), 0555); }, false,
         "Temporary directory could not be created: " + tmp + "\n"},
        {".tmp exists but may not be written: the temporary file cannot be created",
         [&] {
             chmod(dir.c_str(), 0755);
             mkdir(tmp.c_str(), 0755);
             chmod(dir.c_str(), 0555);
         },
         false, "Error saving to temp file " + tmp + "/.applychangesPID." + s.order[0] + " [Permission denied]\n" +
                    failedLine(first)},
        {".tmp may be written, the study directory not: the verified file cannot be moved into place",
         [&] { chmod(tmp.c_str(), 0777); }, false,
         "Error moving modified file to it's final place for " + first + "\n" + failedLine(first)},
        {"an object that may not be read",
         [&] {
             chmod(dir.c_str(), 0777);
             chmod(first.c_str(), 0000);
         },
         true, "Error loading " + first + " [Permission denied]\n" + failedLine(first)},
        {"a KqR file that may not be read", [&] { chmod(s.kqr.c_str(), 0600); }, false,
         "Error loading KqR file " + s.kqr + "\n"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.what);
        c.setUp();
        Launched run;
        ASSERT_TRUE(run.start({program("applyChanges"), "-p", s.kqr, c.oneObject ? "-o" : "-d", c.oneObject ? first : dir},
                              user));
        const Outcome outcome = run.wait();
        EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        EXPECT_EQ(replaced(c.err, "PID", std::to_string(run.pid())), outcome.err);
        chmod(first.c_str(), 0666);
        EXPECT_TRUE(s.allOriginal());
        EXPECT_TRUE(listDir(tmp).empty());
    }
}

TEST(ClearErrors, NamesLongerThanTheSystemAllows)
{
    TempDir root;
    SmallStudy s(root);
    ASSERT_TRUE(s.ok);
    const std::string dir = s.dir, object = s.study.objects()[0].original;

    // a name longer than NAME_MAX
    const std::string tooLong = dir + "/" + std::string(NAME_MAX + 1, 'n');
    Outcome outcome = applyChanges({"-p", s.kqr, "-o", tooLong});
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Error loading " + tooLong + " [File name too long]\n" + failedLine(tooLong), outcome.err);

    // objects whose names fit, but not with the temporary file's prefix and process id: shortened
    // temporary names, unique although the names differ only at their end; every object edited
    const std::string longDir = root.file("long");
    ASSERT_EQ(0, mkdir(longDir.c_str(), 0755));
    for (char last : {'1', '2'})
        ASSERT_TRUE(writeFile(longDir + "/" + std::string(NAME_MAX - 10, 'o') + last, object));
    outcome = applyChanges({"-p", s.kqr, "-d", longDir});
    EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
    for (char last : {'1', '2'})
        EXPECT_NE(std::string::npos, readFile(longDir + "/" + std::string(NAME_MAX - 10, 'o') + last).find("Edited^Patient"));
    EXPECT_TRUE(listDir(longDir + "/.tmp").empty());
}

TEST(ClearErrors, StudyDirectoryVanishingDuringTheWalk)
{
    int variants = 0;
    for (int variant = 0; variant < 3; ++variant)
    {
        SCOPED_TRACE(variant == 0 ? "moved away" : variant == 1 ? ".tmp removed" : "removed");
        for (int attempt = 0; attempt < 3; ++attempt)
        {
            // a study with one large object (16 MB of pixel data) whose loading takes long enough
            // to stop the program while it reads it; it lies inside the walk order, not first or last
            TempDir root;
            SmallStudy s(root, 6);
            ASSERT_TRUE(s.ok);
            ObjectSpec spec;
            spec.rows = 2048;
            spec.columns = 4096;
            spec.seriesUID = "1.2.826.0.1.3680043.2.1125.1.1.9";
            spec.sopInstanceUID = spec.seriesUID + ".1";
            std::string large = "large0";
            ASSERT_TRUE(writeObject(s.dir + "/" + large, spec));
            for (int i = 1; i < 40; ++i)
            {
                const std::vector<std::string> names = listDir(s.dir, false);
                const size_t at = size_t(std::find(names.begin(), names.end(), large) - names.begin());
                if (at > 0 && at + 1 < names.size())
                    break;
                ASSERT_EQ(0, rename((s.dir + "/" + large).c_str(), (s.dir + "/large" + std::to_string(i)).c_str()));
                large = "large" + std::to_string(i);
            }
            ASSERT_TRUE(s.study.add(large, readFile(s.dir + "/" + large)) && s.study.setKqR(s.kqr));
            const std::vector<std::string> order = s.study.walkOrder(s.dir);
            ASSERT_NE(large, order.front());
            ASSERT_NE(large, order.back());

            // stopped while it loads the large object; the file system changes; continued
            DirectoryWatch watch;
            ASSERT_TRUE(watch.add(s.dir, IN_OPEN));
            Launched run;
            ASSERT_TRUE(run.start({program("applyChanges"), "-p", s.kqr, "-d", s.dir}));
            std::string name;
            bool stopped = false;
            while (!stopped && (watch.next(10, name) || run.running()))
                if (name == large)
                {
                    run.kill(SIGSTOP);
                    stopped = waitUntilStopped(run.pid());
                }
            // the temporary file of the large object exists only once its load is over
            if (!stopped || fileExists(s.dir + "/.tmp/.applychanges" + std::to_string(run.pid()) + "." + large))
                continue;
            const std::string moved = s.dir + ".moved";
            if (variant == 0)
                rename(s.dir.c_str(), moved.c_str());
            else
                TempDir::removeTree(variant == 1 ? s.dir + "/.tmp" : s.dir);
            run.kill(SIGCONT);
            const Outcome outcome = run.wait();
            ++variants;
            // Objects are read, written and renamed through the directories opened at the start:
            // a directory moved away keeps the run going, and every object is edited where it
            // went. With .tmp or the whole directory gone, the temporary files of the objects
            // verified before (renamed in batches) went with it: the first of them fails, and the
            // run ends there, every object whole and as it was.
            const std::string firstPath = s.dir + "/" + order[0];
            EXPECT_FALSE(fileExists(variant == 1 ? s.dir + "/.tmp" : s.dir));
            if (variant == 0)
            {
                EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
                EXPECT_EQ(int(order.size()), s.study.checkAll(moved).edited);
                EXPECT_TRUE(listDir(moved + "/.tmp").empty());
            }
            else
            {
                // with the whole directory gone, the objects went too: a deleted object is never
                // brought back
                EXPECT_EQ((variant == 1 ? "Error moving modified file to it's final place for " + firstPath
                                        : "Refusing to edit " + firstPath +
                                              ": it changed during the edit (another process deleted it)") +
                              "\n" + failedLine(firstPath),
                          outcome.err);
                EXPECT_TRUE(variant == 2 || s.allOriginal());
            }
            break;
        }
    }
    if (variants < 3)
        GTEST_SKIP() << "the program could not be stopped during a load in " << 3 - variants << " of 3 cases";
}
