// scripts/apply-archive.sh over 20 generated studies with GNU parallel running local jobs: a
// failure in the middle, a reordered and extended manifest, a killed run, each resumed to the end
// with every object edited exactly once (an object replaced gets a new inode).
#include "tests/fixtures/Fixtures.h"
#include "tests/fixtures/ProcessRunner.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dcdeftag.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>

using namespace fixtures;

namespace {

// The inode of every object of the studies, by path.
std::map<std::string, ino_t> inodes(const TempDir& root, int studies)
{
    std::map<std::string, ino_t> all;
    for (int s = 1; s <= studies; ++s)
        for (const std::string& name : listDir(root.file("s" + std::to_string(s))))
        {
            struct stat status;
            const std::string path = root.file("s" + std::to_string(s) + "/" + name);
            if (name != ".tmp" && stat(path.c_str(), &status) == 0)
                all[path] = status.st_ino;
        }
    return all;
}

std::string manifestOf(const TempDir& root, const std::string& kqr, const std::vector<int>& studies)
{
    std::string manifest = "# studies of one archive\n";
    for (int s : studies)
        manifest += kqr + "\t" + root.file("s" + std::to_string(s)) + "\n";
    return manifest;
}

// A KqR file at root/edit.kqr that renames the patient, and the studies s1..sN of objects(s)
// objects each; returns the KqR file's path.
std::string writeArchive(const TempDir& root, const char* name, int studies, int (*objects)(int))
{
    const std::string kqr = root.file("edit.kqr");
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, name);
    EXPECT_TRUE(writer.save(kqr.c_str()).good());
    for (int s = 1; s <= studies; ++s)
    {
        EXPECT_EQ(0, mkdir(root.file("s" + std::to_string(s)).c_str(), 0755));
        writeStudy(root.file("s" + std::to_string(s)), 1, objects(s));
    }
    return kqr;
}

} // namespace

TEST(ApplyArchive, ResumesByStudyAfterAFailureAReorderingAndAKill)
{
    TempDir root;
    // 20 studies of 2 objects, and a 21st of 40 to be killed in
    const std::string kqr = writeArchive(root, "Archive^Run", 21, [](int s) { return s <= 20 ? 2 : 40; });
    const std::string damaged = root.file("s10/IM2");
    const std::string good = readFile(damaged);
    ASSERT_TRUE(writeFile(damaged, "not an object"));
    std::vector<int> order;
    for (int s = 1; s <= 20; ++s)
        order.push_back(s);
    ASSERT_TRUE(writeFile(root.file("manifest"), manifestOf(root, kqr, order)));
    const std::string script = std::string(KQ_SOURCE_DIR) + "/scripts/apply-archive.sh";
    const std::vector<std::string> args{script, "-q", "-j", "2", "-b", program("applyChanges")};
    auto archive = [&](const std::vector<std::string>& more) {
        std::vector<std::string> argv = args;
        argv.insert(argv.end(), more.begin(), more.end());
        argv.push_back(root.file("manifest"));
        return run(argv);
    };

    // the failure in the middle: named with its first error line; the others done
    RunResult r = archive({});
    EXPECT_EQ(1, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("  failed: " + root.file("s10") + ": Error loading " + damaged)) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("studies: 20 in the manifest, 19 done, 1 failed, 0 pending\n")) << r.out;
    const std::map<std::string, ino_t> first = inodes(root, 20);

    // mended; the manifest reversed and extended: the failed study and the new one run, no other
    ASSERT_TRUE(writeFile(damaged, good));
    std::reverse(order.begin(), order.end());
    order.push_back(21);
    ASSERT_TRUE(writeFile(root.file("manifest"), manifestOf(root, kqr, order)));
    r = archive({"-t"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.out.find("21 in the manifest, 19 done, 1 failed, 1 pending\n")) << r.out;
    r = archive({});
    EXPECT_EQ(0, r.status) << r.out << r.err;
    EXPECT_NE(std::string::npos, r.out.find("studies: 21 in the manifest, 21 done, 0 failed, 0 pending\n")) << r.out;
    const std::map<std::string, ino_t> second = inodes(root, 20);
    for (const auto& object : first)
    {
        if (object.first.find("/s10/") == std::string::npos)
        {
            EXPECT_EQ(object.second, second.at(object.first)) << object.first << " edited twice";
        }
    }
    EXPECT_EQ("Archive^Run", attribute(damaged, DCM_PatientName));
    EXPECT_EQ("Archive^Run", attribute(root.file("s21/IM40"), DCM_PatientName));

    // a new edit over study 21 alone, killed while it runs, then resumed
    KqRWriter again;
    again.setStudyAttribute(DCM_PatientName, "Second^Run");
    ASSERT_TRUE(again.save(kqr.c_str()).good());
    ASSERT_TRUE(writeFile(root.file("manifest"), manifestOf(root, kqr, {21})));
    const std::map<std::string, ino_t> pre = inodes(root, 21);
    Launched killed;
    std::vector<std::string> argv = args;
    argv.push_back(root.file("manifest"));
    ASSERT_TRUE(killed.start(argv));
    // once the first objects are edited
    for (int i = 0; i < 3000 && attribute(root.file("s21/IM1"), DCM_PatientName) != "Second^Run"; ++i)
        usleep(1000);
    killed.kill(SIGTERM);
    const Outcome stopped = killed.wait(60);
    EXPECT_EQ(1, stopped.status) << stopped.describe();
    const std::map<std::string, ino_t> mid = inodes(root, 21);
    r = archive({});
    EXPECT_EQ(0, r.status) << r.out << r.err;
    int editedBeforeTheKill = 0;
    for (const auto& object : inodes(root, 21))
    {
        if (object.first.find("/s21/") == std::string::npos)
            continue;
        EXPECT_EQ("Second^Run", attribute(object.first, DCM_PatientName)) << object.first;
        if (mid.at(object.first) != pre.at(object.first))
        {
            ++editedBeforeTheKill;
            EXPECT_EQ(mid.at(object.first), object.second) << object.first << " edited twice";
        }
    }
    EXPECT_GT(editedBeforeTheKill, 0);

    // a manifest line without its tab is refused before anything runs
    ASSERT_TRUE(writeFile(root.file("manifest"), kqr + " " + root.file("s1") + "\n"));
    r = archive({});
    EXPECT_EQ(2, r.status);
    EXPECT_EQ("apply-archive: " + root.file("manifest") + " line 1: expected <KqR file><tab><study directory>\n",
              r.err);
}

TEST(ApplyArchive, TwoHostsEditTheStudiesTheyShare)
{
    TempDir root;
    const std::string kqr = writeArchive(root, "Two^Hosts", 6, [](int) { return 10; });
    const std::vector<int> studies{1, 2, 3, 4, 5, 6};
    ASSERT_TRUE(writeFile(root.file("manifest"), manifestOf(root, kqr, studies)));
    const RunResult r = run({std::string(KQ_SOURCE_DIR) + "/tests/e2e/two_hosts.sh", program("applyChanges"),
                             std::string(KQ_SOURCE_DIR) + "/scripts/apply-archive.sh", root.file("manifest"),
                             root.path()});
    if (r.status == 77)
        GTEST_SKIP() << r.err;
    ASSERT_EQ(0, r.status) << r.out << r.err;
    EXPECT_NE(std::string::npos, r.out.find("studies: 6 in the manifest, 6 done, 0 failed, 0 pending\n")) << r.out;
    for (int s : studies)
        EXPECT_EQ("Two^Hosts", attribute(root.file("s" + std::to_string(s) + "/IM10"), DCM_PatientName));
    // the job log names the host of each job: both took some
    const std::string joblog = readFile(root.file("joblog"));
    EXPECT_NE(std::string::npos, joblog.find("\t:\t")) << joblog;
    EXPECT_NE(std::string::npos, joblog.find("root@10.77.0.2\t")) << joblog;
}
