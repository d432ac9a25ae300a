// Unwritable, overlong and vanishing study directories: exact messages, exit 1, objects intact.
#include "tests/reliability/ReliabilitySupport.h"

#include <limits.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

using namespace reliability;

namespace {

// A small study in root/study with its KqR file beside it.
struct SmallStudy
{
    explicit SmallStudy(const TempDir& root, int objects = 3)
        : dir(root.file("study")), kqr(root.file("KqR.edit")), ok(buildStudy({1, objects, 16}, dir, kqr, study)),
          order(study.walkOrder(dir))
    {
    }
    bool allOriginal() const { return study.checkAll(dir).original == int(study.objects().size()); }
    std::string dir;
    std::string kqr;
    Study study;
    bool ok;
    std::vector<std::string> order;
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
    // modes of the study directory, .tmp (0: none made), the first object and the KqR file
    struct Case
    {
        const char* what;
        mode_t dirMode, tmpMode, firstMode, kqrMode;
        bool oneObject;
        std::string err; // PID stands for the process id
    };
    const Case cases[] = {
        {"no .tmp, and none can be made", 0555, 0, 0666, 0644, false,
         "Temporary directory could not be created: " + tmp + "\n"},
        {".tmp may not be written: no temporary file", 0555, 0755, 0666, 0644, false,
         "Error saving to temp file " + tmp + "/.applychangesPID." + s.order[0] + " [Permission denied]\n" +
             failedLine(first)},
        {"the study directory may not be written: no replacement", 0555, 0777, 0666, 0644, false,
         "Error moving modified file to it's final place for " + first + "\n" + failedLine(first)},
        {"an object that may not be read", 0777, 0777, 0000, 0644, true,
         "Error loading " + first + " [Permission denied]\n" + failedLine(first)},
        {"a KqR file that may not be read", 0777, 0777, 0666, 0600, false, "Error loading KqR file " + s.kqr + "\n"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.what);
        chmod(dir.c_str(), 0755);
        if (c.tmpMode)
            mkdir(tmp.c_str(), 0755);
        chmod(tmp.c_str(), c.tmpMode); // nothing without .tmp
        chmod(dir.c_str(), c.dirMode);
        chmod(first.c_str(), c.firstMode);
        chmod(s.kqr.c_str(), c.kqrMode);
        Launched run;
        ASSERT_TRUE(run.start({program("applyChanges"), "-p", s.kqr, c.oneObject ? "-o" : "-d", c.oneObject ? first : dir},
                              user));
        EXPECT_TRUE(failsWith(run.wait(), replaced(c.err, "PID", std::to_string(run.pid()))));
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
    EXPECT_TRUE(failsWith(applyChanges({"-p", s.kqr, "-o", tooLong}),
                          "Error loading " + tooLong + " [File name too long]\n" + failedLine(tooLong)));
    // names that fit, but not with the temporary prefix: shortened temporary names, still unique
    const std::string longDir = root.file("long");
    ASSERT_EQ(0, mkdir(longDir.c_str(), 0755));
    for (char last : {'1', '2'})
        ASSERT_TRUE(writeFile(longDir + "/" + std::string(NAME_MAX - 10, 'o') + last, object));
    EXPECT_TRUE(succeeds(applyChanges({"-p", s.kqr, "-d", longDir})));
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
            // a large object (16 MB) whose load is long enough to stop the program in; not first or last
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
            if (!stopped || fileExists(s.dir + "/.tmp/" + tempName(run.pid(), large)))
                continue;
            const std::string moved = s.dir + ".moved";
            if (variant == 0)
                rename(s.dir.c_str(), moved.c_str());
            else
                TempDir::removeTree(variant == 1 ? s.dir + "/.tmp" : s.dir);
            run.kill(SIGCONT);
            const Outcome outcome = run.wait();
            ++variants;
            // The run works through the directories it opened: moved away, every object is edited where
            // it went; with .tmp or the directory gone, the first object's replacement fails.
            const std::string firstPath = s.dir + "/" + order[0];
            EXPECT_FALSE(fileExists(variant == 1 ? s.dir + "/.tmp" : s.dir));
            if (variant == 0)
            {
                EXPECT_TRUE(succeeds(outcome));
                EXPECT_EQ(int(order.size()), s.study.checkAll(moved).edited);
                EXPECT_TRUE(listDir(moved + "/.tmp").empty());
            }
            else
            {
                // a deleted object is never brought back
                const std::string cause = variant == 1 ? "Error moving modified file to it's final place for "
                                                       : "Refusing to edit ";
                EXPECT_TRUE(failsWith(outcome, cause + firstPath + (variant == 1 ? "" : ": it changed during the edit "
                                                                    "(another process deleted it)") + "\n" +
                                                   failedLine(firstPath)));
                EXPECT_TRUE(variant == 2 || s.allOriginal());
            }
            break;
        }
    }
    if (variants < 3)
        GTEST_SKIP() << "the program could not be stopped during a load in " << 3 - variants << " of 3 cases";
}
