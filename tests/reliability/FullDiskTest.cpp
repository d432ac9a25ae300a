// applyChanges on a file system without inodes (a small tmpfs, when this process may mount one)
// and under a file size limit (RLIMIT_FSIZE: writes fail as on a full disk, without privileges):
// every object stays untouched or completely edited, the run ends with exit 1 and the driver's
// exact messages, and only the partly written temporary file of the failed save stays in .tmp.
#include "tests/reliability/ReliabilitySupport.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

using namespace reliability;

namespace {

// A tmpfs mounted for the lifetime of the object.
struct Tmpfs
{
    Tmpfs(const std::string& directory, const std::string& options) : m_directory(directory)
    {
        mkdir(directory.c_str(), 0755);
        if (geteuid() != 0)
            m_error = "not running as root";
        else if (mount("tmpfs", directory.c_str(), "tmpfs", 0, options.c_str()) != 0)
            m_error = std::string("mount -t tmpfs failed: ") + strerror(errno);
    }
    ~Tmpfs()
    {
        if (m_error.empty() && umount(m_directory.c_str()) != 0)
            umount2(m_directory.c_str(), MNT_DETACH);
    }
    std::string m_directory;
    std::string m_error; // empty when mounted
};

// The two lines of a failed save of the first object: its name, or empty when standard error
// is not exactly the driver's report with the given reason.
std::string failedSave(const Outcome& outcome, pid_t pid, const std::string& directory, const std::string& reason)
{
    const std::string head = "Error saving to temp file " + directory + "/.tmp/.applychanges" + std::to_string(pid) + ".";
    const size_t end = outcome.err.find(" [", head.size());
    if (outcome.err.compare(0, head.size(), head) != 0 || end == std::string::npos)
        return "";
    const std::string name = outcome.err.substr(head.size(), end - head.size());
    return outcome.err == head + name + " [" + reason + "]\n" + failedLine(directory + "/" + name) ? name : "";
}

// The run failed saving `failed`: objects before it in walk order are edited, it and the rest
// untouched, and .tmp holds only its partly written temporary file (of the given size).
void checkFailedSave(const Study& study, const std::string& directory, const std::vector<std::string>& order,
                     const std::string& failed, pid_t pid, long partSize = -1)
{
    const auto at = std::find(order.begin(), order.end(), failed);
    ASSERT_NE(order.end(), at) << failed;
    for (auto it = order.begin(); it != order.end(); ++it)
    {
        std::string why;
        EXPECT_EQ(it < at ? OBJECT_EDITED : OBJECT_ORIGINAL, study.check(directory, study.indexOf(*it), why))
            << *it << " " << why;
    }
    const std::string kept = ".applychanges" + std::to_string(pid) + "." + failed;
    EXPECT_EQ(std::vector<std::string>{kept}, listDir(directory + "/.tmp"));
    EXPECT_TRUE(partSize < 0 || partSize == fileSize(directory + "/.tmp/" + kept));
}

} // namespace

TEST(FullDisk, NoInodesLeft)
{
    TempDir root;
    Study study;
    StudyBuild build;
    build.series = 2;
    build.instancesPerSeries = 3;
    build.rows = 32;
    const std::string kqr = root.file("KqR.edit");
    ASSERT_TRUE(buildStudy(build, root.file("source"), kqr, study));
    const int objects = int(study.objects().size());
    const std::string dir = root.file("disk/study");
    // inodes for the root, the study directory and its objects only: no .tmp can be made; with
    // one more, taken by .tmp, no temporary file can be created
    for (int spare : {0, 1})
    {
        SCOPED_TRACE(spare);
        Tmpfs disk(root.file("disk"), "size=4m,nr_inodes=" + std::to_string(objects + 2 + spare));
        if (!disk.m_error.empty())
            GTEST_SKIP() << "no tmpfs can be mounted here (" << disk.m_error << ")";
        ASSERT_TRUE(study.reset(dir));
        ASSERT_TRUE(!spare || mkdir((dir + "/.tmp").c_str(), 0755) == 0);
        const std::string first = study.walkOrder(dir)[0];
        Launched run;
        ASSERT_TRUE(run.start({program("applyChanges"), "-p", kqr, "-d", dir}));
        const Outcome outcome = run.wait();
        EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        EXPECT_EQ(spare ? "Error saving to temp file " + dir + "/.tmp/.applychanges" + std::to_string(run.pid()) +
                              "." + first + " [No space left on device]\n" + failedLine(dir + "/" + first)
                        : "Temporary directory could not be created: " + dir + "/.tmp\n",
                  outcome.err);
        EXPECT_EQ(objects, study.checkAll(dir).original);
        EXPECT_EQ(size_t(objects + spare), listDir(dir).size());
        EXPECT_TRUE(listDir(dir + "/.tmp").empty());
    }
}

TEST(FullDisk, FileSizeLimit)
{
    TempDir root;
    Study study;
    StudyBuild build;
    build.series = 3;
    build.instancesPerSeries = 4;
    build.rows = 48;
    build.varyRows = true; // objects of 12 different sizes
    const std::string kqr = root.file("KqR.edit");
    ASSERT_TRUE(buildStudy(build, root.file("source"), kqr, study));
    const std::string dir = root.file("study");

    // sizes of the edited objects
    ASSERT_TRUE(study.reset(dir));
    const Outcome full = applyChanges({"-p", kqr, "-d", dir});
    ASSERT_TRUE(full.exited && full.status == 0) << full.describe();
    std::map<std::string, long> editedSize;
    std::set<long> sizes;
    for (const StudyObject& object : study.objects())
        sizes.insert(editedSize[object.name] = fileSize(dir + "/" + object.name));

    // limits just below edited sizes: a write fails in the last buffered block, in the middle, early
    std::vector<long> limits;
    for (long size : sizes)
    {
        const long below[] = {1, 100, 3000, size / 2};
        limits.push_back(size - below[limits.size() % 4]);
    }
    limits.push_back(*sizes.rbegin()); // everything fits
    int failures = 0;
    std::set<int> failedAt;
    for (long limit : limits)
    {
        SCOPED_TRACE("file size limit " + std::to_string(limit));
        ASSERT_TRUE(study.reset(dir));
        const std::vector<std::string> order = study.walkOrder(dir);
        const auto expected = std::find_if(order.begin(), order.end(), [&](const std::string& name) {
            return editedSize[name] > limit;
        });
        LaunchOptions options;
        options.fileSizeLimit = rlim_t(limit);
        Launched run;
        ASSERT_TRUE(run.start({program("applyChanges"), "-p", kqr, "-d", dir}, options));
        const Outcome outcome = run.wait();
        if (expected == order.end())
        {
            EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
            EXPECT_EQ(int(study.objects().size()), study.checkAll(dir).edited);
            continue;
        }
        ++failures;
        ASSERT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        failedAt.insert(int(expected - order.begin()));
        EXPECT_EQ(*expected, failedSave(outcome, run.pid(), dir, "File too large")) << outcome.err;
        checkFailedSave(study, dir, order, *expected, run.pid(), limit);
    }
    printf("[ figures  ] %d file size limits, %d failed saves at objects %s of the run\n", int(limits.size()),
           failures, ::testing::PrintToString(failedAt).c_str());
    EXPECT_GE(failures, 8);
}
