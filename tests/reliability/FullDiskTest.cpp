// applyChanges on a file system that fills up during the run (a small tmpfs, when this process
// may mount one) and under a file size limit (RLIMIT_FSIZE, which needs no privileges and makes
// the same writes fail with EFBIG): every object stays untouched or completely edited, the run
// ends with exit 1 and the driver's exact messages, and nothing is left behind but the partly
// written temporary file of the failed save, which the driver deliberately keeps in .tmp (it is
// named after the process and the object, and the directory walk skips .tmp; operators remove
// such leftovers once no run is active).
#include "tests/reliability/ReliabilitySupport.h"
#include "tests/reliability/StudyBuilder.h"

#include "tests/fixtures/Fixtures.h"

#include <gtest/gtest.h>

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
class Tmpfs
{
public:
    Tmpfs(const std::string& directory, const std::string& options)
        : m_directory(directory)
        , m_mounted(false)
    {
        mkdir(directory.c_str(), 0755);
        if (geteuid() != 0)
            m_error = "not running as root";
        else if (mount("tmpfs", directory.c_str(), "tmpfs", 0, options.c_str()) != 0)
            m_error = std::string("mount -t tmpfs failed: ") + strerror(errno);
        else
            m_mounted = true;
    }
    ~Tmpfs()
    {
        if (m_mounted && umount(m_directory.c_str()) != 0)
            umount2(m_directory.c_str(), MNT_DETACH);
    }
    bool mounted() const { return m_mounted; }
    const std::string& error() const { return m_error; }

private:
    std::string m_directory;
    bool m_mounted;
    std::string m_error;
};

long freeBytes(const std::string& path)
{
    struct statvfs st;
    return statvfs(path.c_str(), &st) == 0 ? long(st.f_bavail) * long(st.f_frsize) : -1;
}

// Takes all but `keep` bytes of the file system's free space.
bool fillUp(const std::string& filler, long keep)
{
    const long size = freeBytes(filler.substr(0, filler.rfind('/'))) - keep;
    if (size < 0)
        return false;
    const int fd = open(filler.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0)
        return false;
    const std::string block(1 << 16, 'f');
    long left = size;
    bool ok = true;
    while (ok && left > 0)
    {
        const ssize_t n = write(fd, block.data(), size_t(std::min<long>(left, long(block.size()))));
        ok = n > 0;
        left -= n;
    }
    close(fd);
    return ok;
}

std::vector<std::string> objectOrder(const Study& study, const std::string& directory)
{
    std::vector<std::string> order;
    for (const std::string& name : readdirOrder(directory))
        if (study.indexOf(name) < study.objects().size())
            order.push_back(name);
    return order;
}

// The run failed saving `failed`: objects before it in directory order are edited, it and the
// rest untouched, and .tmp holds only its partly written temporary file.
void checkFailedSave(const Study& study, const std::string& directory, const std::vector<std::string>& order,
                     const std::string& failed, pid_t pid, long expectedPartSize = -1)
{
    const auto at = std::find(order.begin(), order.end(), failed);
    ASSERT_NE(order.end(), at) << failed;
    for (auto it = order.begin(); it != order.end(); ++it)
    {
        std::string why;
        const ObjectState state = study.check(directory, study.indexOf(*it), why);
        EXPECT_EQ(it < at ? OBJECT_EDITED : OBJECT_ORIGINAL, state) << *it << " " << why;
    }
    const std::string kept = ".applychanges" + std::to_string(pid) + "." + failed;
    EXPECT_EQ(std::vector<std::string>{kept}, fixtures::listDir(directory + "/.tmp"));
    if (expectedPartSize >= 0)
    {
        EXPECT_EQ(expectedPartSize, fileSize(directory + "/.tmp/" + kept));
    }
}

// Standard error of a failed save of an object: the name of that object, or empty when the
// text is not exactly the driver's two lines with the given reason.
std::string failedSave(const Outcome& outcome, pid_t pid, const std::string& directory, const std::string& reason)
{
    const std::string err = outcome.err;
    const std::string head = "Error saving to temp file " + directory + "/.tmp/.applychanges" + std::to_string(pid) + ".";
    if (err.compare(0, head.size(), head) != 0)
        return "";
    const size_t end = err.find(" [", head.size());
    if (end == std::string::npos)
        return "";
    const std::string name = err.substr(head.size(), end - head.size());
    const std::string expected = head + name + " [" + reason + "]\nApplying soft edit changes to object failed: " +
                                 directory + "/" + name + "\n";
    return err == expected ? name : "";
}

} // namespace

TEST(FullDisk, FileSystemFillingUpMidRun)
{
    fixtures::TempDir root;
    Study study;
    StudyBuild build;
    build.series = 4;
    build.instancesPerSeries = 6;
    build.rows = 64;
    build.commentLength = 6000; // every edited object grows by about 6 KB
    const std::string kqr = root.file("KqR.edit");
    ASSERT_TRUE(buildStudy(build, root.file("source"), kqr, study));

    Tmpfs disk(root.file("disk"), "size=4m,mode=0755");
    if (!disk.mounted())
        GTEST_SKIP() << "no tmpfs can be mounted here (" << disk.error()
                     << "); FullDisk.FileSizeLimit covers the same failing writes";

    const std::string dir = root.file("disk/study");
    // what the edit costs in pages: the largest edited object, and the least growth of one
    ASSERT_TRUE(resetStudyDirectory(study, dir));
    const Outcome sizing = applyChanges({"-p", kqr, "-d", dir});
    ASSERT_TRUE(sizing.exited && sizing.status == 0) << sizing.describe();
    const long page = 4096;
    long largest = 0;
    long growth = 0;
    for (const StudyObject& object : study.objects())
    {
        const long before = (long(object.original.size()) + page - 1) / page * page;
        const long after = (fileSize(dir + "/" + object.name) + page - 1) / page * page;
        largest = std::max(largest, after);
        growth += after - before;
    }
    growth /= long(study.objects().size());
    ASSERT_GT(growth, 0);

    // free space left for the run: too little for the first object, then room for more and more
    std::set<int> editedCounts;
    const long keeps[] = {page, largest / 2, largest + 1 * growth, largest + 3 * growth, largest + 7 * growth,
                          largest + 12 * growth};
    for (long keep : keeps)
    {
        SCOPED_TRACE("free bytes " + std::to_string(keep));
        removeTree(root.file("disk/filler"));
        ASSERT_TRUE(resetStudyDirectory(study, dir));
        ASSERT_TRUE(fillUp(root.file("disk/filler"), keep));
        const std::vector<std::string> order = objectOrder(study, dir);

        Launched run;
        ASSERT_TRUE(run.start({applyChangesPath(), "-p", kqr, "-d", dir}));
        const Outcome outcome = run.wait();
        ASSERT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        const std::string failed = failedSave(outcome, run.pid(), dir, "No space left on device");
        ASSERT_FALSE(failed.empty()) << outcome.err;
        checkFailedSave(study, dir, order, failed, run.pid());
        editedCounts.insert(int(std::find(order.begin(), order.end(), failed) - order.begin()));

        // with room again (and the leftover removed by the operator) a rerun finishes the job
        removeTree(root.file("disk/filler"));
        removeTree(dir + "/.tmp/.applychanges" + std::to_string(run.pid()) + "." + failed);
        const Outcome rerun = applyChanges({"-p", kqr, "-d", dir});
        ASSERT_TRUE(rerun.exited && rerun.status == 0) << rerun.describe();
        int original = 0, edited = 0;
        std::vector<std::string> problems;
        study.checkAll(dir, original, edited, problems);
        EXPECT_TRUE(problems.empty()) << ::testing::PrintToString(problems);
        EXPECT_EQ(int(study.objects().size()), edited);
        EXPECT_TRUE(fixtures::listDir(dir + "/.tmp").empty());
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
    fixtures::TempDir root;
    Study study;
    StudyBuild build;
    build.series = 2;
    build.instancesPerSeries = 3;
    build.rows = 32;
    const std::string kqr = root.file("KqR.edit");
    ASSERT_TRUE(buildStudy(build, root.file("source"), kqr, study));
    const int objects = int(study.objects().size());

    {
        // inodes for the root, the study directory and its objects only: no .tmp can be made
        Tmpfs disk(root.file("disk"), "size=4m,nr_inodes=" + std::to_string(objects + 2));
        if (!disk.mounted())
            GTEST_SKIP() << "no tmpfs can be mounted here (" << disk.error() << ")";
        const std::string dir = root.file("disk/study");
        ASSERT_TRUE(resetStudyDirectory(study, dir));
        const Outcome outcome = applyChanges({"-p", kqr, "-d", dir});
        EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        EXPECT_EQ("Temporary directory could not be created: " + dir + "/.tmp\n", outcome.err);
        int original = 0, edited = 0;
        std::vector<std::string> problems;
        study.checkAll(dir, original, edited, problems);
        EXPECT_EQ(objects, original);
        EXPECT_EQ(size_t(objects), fixtures::listDir(dir).size());
    }
    {
        // one more inode, taken by .tmp: no temporary file can be created
        Tmpfs disk(root.file("disk"), "size=4m,nr_inodes=" + std::to_string(objects + 3));
        ASSERT_TRUE(disk.mounted()) << disk.error();
        const std::string dir = root.file("disk/study");
        ASSERT_TRUE(resetStudyDirectory(study, dir));
        ASSERT_EQ(0, mkdir((dir + "/.tmp").c_str(), 0755));
        const std::vector<std::string> order = objectOrder(study, dir);
        Launched run;
        ASSERT_TRUE(run.start({applyChangesPath(), "-p", kqr, "-d", dir}));
        const Outcome outcome = run.wait();
        EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        EXPECT_EQ("Error saving to temp file " + dir + "/.tmp/.applychanges" + std::to_string(run.pid()) + "." +
                      order[0] + " [No space left on device]\nApplying soft edit changes to object failed: " + dir +
                      "/" + order[0] + "\n",
                  outcome.err);
        int original = 0, edited = 0;
        std::vector<std::string> problems;
        study.checkAll(dir, original, edited, problems);
        EXPECT_EQ(objects, original);
        EXPECT_TRUE(fixtures::listDir(dir + "/.tmp").empty());
    }
}

TEST(FullDisk, FileSizeLimit)
{
    fixtures::TempDir root;
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
    ASSERT_TRUE(resetStudyDirectory(study, dir));
    const Outcome full = applyChanges({"-p", kqr, "-d", dir});
    ASSERT_TRUE(full.exited && full.status == 0) << full.describe();
    std::map<std::string, long> editedSize;
    std::set<long> sizes;
    for (const StudyObject& object : study.objects())
    {
        editedSize[object.name] = fileSize(dir + "/" + object.name);
        sizes.insert(editedSize[object.name]);
    }

    // limits just below edited sizes: a write fails in the last buffered block, in the middle, early
    std::vector<long> limits;
    int i = 0;
    for (long size : sizes)
    {
        const long below[] = {1, 100, 3000, size / 2};
        limits.push_back(size - below[i++ % 4]);
    }
    limits.push_back(*sizes.rbegin()); // everything fits
    int failures = 0;
    std::set<int> failedAt;
    for (long limit : limits)
    {
        SCOPED_TRACE("file size limit " + std::to_string(limit));
        ASSERT_TRUE(resetStudyDirectory(study, dir));
        const std::vector<std::string> order = objectOrder(study, dir);
        std::string expectedFailure;
        for (const std::string& name : order)
            if (editedSize[name] > limit)
            {
                expectedFailure = name;
                break;
            }
        LaunchOptions options;
        options.fileSizeLimit = rlim_t(limit);
        Launched run;
        ASSERT_TRUE(run.start({applyChangesPath(), "-p", kqr, "-d", dir}, options));
        const Outcome outcome = run.wait();
        if (expectedFailure.empty())
        {
            EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
            int original = 0, edited = 0;
            std::vector<std::string> problems;
            study.checkAll(dir, original, edited, problems);
            EXPECT_EQ(int(study.objects().size()), edited);
            continue;
        }
        ++failures;
        ASSERT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        failedAt.insert(int(std::find(order.begin(), order.end(), expectedFailure) - order.begin()));
        EXPECT_EQ(expectedFailure, failedSave(outcome, run.pid(), dir, "File too large")) << outcome.err;
        checkFailedSave(study, dir, order, expectedFailure, run.pid(), limit);
    }
    printf("[ figures  ] %d file size limits, %d failed saves at objects %s of the run\n", int(limits.size()),
           failures, ::testing::PrintToString(failedAt).c_str());
    EXPECT_GE(failures, 8);
}
