// applyChanges on a file system that fills up during the run (a small tmpfs, when this process
// may mount one) and under a file size limit (RLIMIT_FSIZE, which needs no privileges and makes
// the same writes fail with EFBIG): every object stays untouched or completely edited, the run
// ends with exit 1 and the driver's exact messages, and nothing is left behind but the partly
// written temporary file of the failed save, which the driver deliberately keeps in .tmp (the
// directory walk skips .tmp; operators remove such leftovers once no run is active).
#include "tests/reliability/ReliabilitySupport.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
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

// Takes all but `keep` bytes of the file system's free space.
bool fillUp(const std::string& filler, long keep)
{
    struct statvfs st;
    if (statvfs(filler.substr(0, filler.rfind('/')).c_str(), &st) != 0)
        return false;
    long left = long(st.f_bavail) * long(st.f_frsize) - keep;
    const int fd = open(filler.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const std::string block(1 << 16, 'f');
    for (ssize_t n = 1; fd >= 0 && left > 0 && n > 0; left -= n)
        n = write(fd, block.data(), size_t(std::min<long>(left, long(block.size()))));
    close(fd);
    return fd >= 0 && left == 0;
}

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

TEST(FullDisk, FileSystemFillingUpMidRun)
{
    TempDir root;
    Study study;
    StudyBuild build;
    build.instancesPerSeries = 6;
    build.rows = 64;
    build.commentLength = 6000; // every edited object grows by about 6 KB
    const std::string kqr = root.file("KqR.edit");
    ASSERT_TRUE(buildStudy(build, root.file("source"), kqr, study));
    Tmpfs disk(root.file("disk"), "size=4m,mode=0755");
    if (!disk.m_error.empty())
        GTEST_SKIP() << "no tmpfs can be mounted here (" << disk.m_error
                     << "); FullDisk.FileSizeLimit covers the same failing writes";

    // what the edit costs in pages: the largest edited object, and the least growth of one
    const std::string dir = root.file("disk/study");
    ASSERT_TRUE(study.reset(dir));
    const Outcome sizing = applyChanges({"-p", kqr, "-d", dir});
    ASSERT_TRUE(sizing.exited && sizing.status == 0) << sizing.describe();
    const long page = 4096;
    long largest = 0, growth = 0;
    for (const StudyObject& object : study.objects())
    {
        const long after = (fileSize(dir + "/" + object.name) + page - 1) / page * page;
        largest = std::max(largest, after);
        growth += after - (long(object.original.size()) + page - 1) / page * page;
    }
    growth /= long(study.objects().size());
    ASSERT_GT(growth, 0);

    // free space left for the run: too little for the first object, then room for more and more
    std::set<int> editedCounts;
    for (long keep : {page, largest / 2, largest + growth, largest + 3 * growth, largest + 7 * growth,
                      largest + 12 * growth})
    {
        SCOPED_TRACE("free bytes " + std::to_string(keep));
        TempDir::removeTree(root.file("disk/filler"));
        ASSERT_TRUE(study.reset(dir));
        ASSERT_TRUE(fillUp(root.file("disk/filler"), keep));
        const std::vector<std::string> order = study.walkOrder(dir);
        Launched run;
        ASSERT_TRUE(run.start({program("applyChanges"), "-p", kqr, "-d", dir}));
        const Outcome outcome = run.wait();
        ASSERT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        const std::string failed = failedSave(outcome, run.pid(), dir, "No space left on device");
        ASSERT_FALSE(failed.empty()) << outcome.err;
        checkFailedSave(study, dir, order, failed, run.pid());
        editedCounts.insert(int(std::find(order.begin(), order.end(), failed) - order.begin()));

        // with room again (and the leftover removed by the operator) a rerun finishes the job
        TempDir::removeTree(root.file("disk/filler"));
        TempDir::removeTree(dir + "/.tmp/.applychanges" + std::to_string(run.pid()) + "." + failed);
        const Outcome rerun = applyChanges({"-p", kqr, "-d", dir});
        ASSERT_TRUE(rerun.exited && rerun.status == 0) << rerun.describe();
        const Tally tally = study.checkAll(dir);
        EXPECT_TRUE(tally.problems.empty()) << ::testing::PrintToString(tally.problems);
        EXPECT_EQ(int(study.objects().size()), tally.edited);
        EXPECT_TRUE(listDir(dir + "/.tmp").empty());
    }
    printf("[ figures  ] disk full after %s objects were edited; every run ended with exit 1 and a rerun "
           "finished the job\n",
           ::testing::PrintToString(editedCounts).c_str());
    // the disk ran full at the first object and after several were done
    EXPECT_EQ(0, *editedCounts.begin());
    EXPECT_GE(*editedCounts.rbegin(), 5);
}

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
