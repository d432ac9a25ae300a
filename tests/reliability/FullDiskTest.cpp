// applyChanges without inodes (a small tmpfs) and under a file size limit (writes fail as on a full disk).
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
        if (mount("tmpfs", directory.c_str(), "tmpfs", 0, options.c_str()) != 0)
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

} // namespace

TEST(FullDisk, NoInodesLeft)
{
    TempDir root;
    Study study;
    const std::string kqr = root.file("KqR.edit");
    ASSERT_TRUE(buildStudy({2, 3, 32}, root.file("source"), kqr, study));
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
        EXPECT_TRUE(failsWith(run.wait(), spare ? "Error saving to temp file " + dir + "/.tmp/" +
                                                      tempName(run.pid(), first) + " [No space left on device]\n" +
                                                      failedLine(dir + "/" + first)
                                                : "Temporary directory could not be created: " + dir + "/.tmp\n"));
        EXPECT_EQ(objects, study.checkAll(dir).original);
        EXPECT_EQ(size_t(objects + spare), listDir(dir).size());
        EXPECT_TRUE(listDir(dir + "/.tmp").empty());
    }
}

TEST(FullDisk, FileSizeLimit)
{
    TempDir root;
    Study study;
    const std::string kqr = root.file("KqR.edit"), dir = root.file("study");
    ASSERT_TRUE(buildStudy({3, 4, 48, true}, root.file("source"), kqr, study)); // objects of 12 different sizes
    // sizes of the edited objects
    ASSERT_TRUE(study.reset(dir));
    ASSERT_TRUE(succeeds(applyChanges({"-p", kqr, "-d", dir})));
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
            EXPECT_TRUE(succeeds(outcome));
            EXPECT_EQ(int(study.objects().size()), study.checkAll(dir).edited);
            continue;
        }
        // the objects before the failed save edited, it and the rest untouched; its partly written
        // temporary file alone stays in .tmp
        ++failures;
        failedAt.insert(int(expected - order.begin()));
        const std::string kept = tempName(run.pid(), *expected);
        EXPECT_TRUE(failsWith(outcome, "Error saving to temp file " + dir + "/.tmp/" + kept + " [File too large]\n" +
                                           failedLine(dir + "/" + *expected)));
        for (auto it = order.begin(); it != order.end(); ++it)
        {
            std::string why;
            EXPECT_EQ(it < expected ? OBJECT_EDITED : OBJECT_ORIGINAL, study.check(dir, study.indexOf(*it), why))
                << *it << " " << why;
        }
        EXPECT_EQ(std::vector<std::string>{kept}, listDir(dir + "/.tmp"));
        EXPECT_EQ(limit, fileSize(dir + "/.tmp/" + kept));
    }
    printf("[ figures  ] %d file size limits, %d failed saves at objects %s of the run\n", int(limits.size()),
           failures, ::testing::PrintToString(failedAt).c_str());
    EXPECT_GE(failures, 8);
}
