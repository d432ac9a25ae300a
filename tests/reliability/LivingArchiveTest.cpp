// applyChanges while other processes replace, write, read, guard and re-permission its objects.
#include "tests/reliability/ReliabilitySupport.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <csignal>
#include <functional>

using namespace reliability;

namespace {

const char* const EDITED_NAME = "Living^Archive";

std::string changedLine(const std::string& path, const std::string& why)
{
    return "Refusing to edit " + path + ": it changed during the edit (" + why + ")\n" + failedLine(path);
}

std::string shell(const std::string& command)
{
    const Outcome outcome = runProgram({"/bin/sh", "-c", command});
    return outcome.exited && outcome.status == 0 ? outcome.out : "failed: " + outcome.err;
}

void append(const std::string& path)
{
    const int fd = open(path.c_str(), O_WRONLY | O_APPEND);
    EXPECT_EQ(4, write(fd, "more", 4));
    close(fd);
}

} // namespace

TEST(LivingArchive, WhatAnotherProcessDoesDuringTheEditIsNeverUndone)
{
    if (!straceWorks())
        GTEST_SKIP() << "strace cannot trace here";
    const std::pair<const char*, std::function<void(const std::string&)>> cases[] = {
        {"another process replaced it",
         [](const std::string& path) {
             writeFile(path + ".new", "a newer object");
             rename((path + ".new").c_str(), path.c_str());
         }},
        {"another process deleted it", [](const std::string& path) { unlink(path.c_str()); }},
        {"another process wrote to it", append},
        {"another process changed its mode or owner", [](const std::string& path) { chmod(path.c_str(), 0600); }},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.first);
        TempDir root;
        PlainStudy s(root, 3, EDITED_NAME);
        const std::string target = s.path(1);
        // content and mode as another process left them
        const auto state = [&] {
            struct stat st;
            return stat(target.c_str(), &st) == 0 ? std::to_string(st.st_mode & 07777) + readFile(target) : "gone";
        };
        ASSERT_EQ(0, mkdir((s.dir + "/.tmp").c_str(), 0755));
        // held before the batch is made durable: the middle object is read and written by then
        Launched run;
        ASSERT_TRUE(
            startHeld(run, "syncfs", {"-p", s.kqr, "-d", s.dir}, s.dir + "/.tmp", IN_CLOSE_WRITE, "." + s.order[1]));
        c.second(target);
        const std::string made = state();
        EXPECT_TRUE(failsWith(run.wait(), changedLine(target, c.first)));
        EXPECT_TRUE(s.edited(0));
        EXPECT_EQ(made, state());
        EXPECT_FALSE(s.edited(2));
        EXPECT_TRUE(listDir(s.dir + "/.tmp").empty());
    }
}

TEST(LivingArchive, ReadersKeepTheOriginalAndEveryObjectKeepsItsOwnAccessRules)
{
    TempDir root;
    PlainStudy s(root, 70, EDITED_NAME); // more than a batch: an original is never used again as a file
    const std::string guarded = s.path(1), plain = s.path(2);
    if (!shell("setfacl -m u:65534:rw '" + guarded + "' && setfattr -n user.archive -v kept '" + guarded + "'")
             .empty())
        GTEST_SKIP() << "no access control lists or extended attributes here";
    ASSERT_EQ(0, chown(guarded.c_str(), 65534, 65533));
    ASSERT_EQ(0, chmod(plain.c_str(), 0604));
    const auto rulesOf = [](const std::string& path) {
        return shell("getfacl -n '" + path + "'; getfattr -d '" + path + "'; stat -c %a.%u.%g '" + path + "'");
    };
    const std::string rules = rulesOf(guarded), plainRules = rulesOf(plain);
    const std::string first = readFile(s.path(0));
    const int reader = open(s.path(0).c_str(), O_RDONLY);
    EXPECT_TRUE(succeeds(applyChanges({"-p", s.kqr, "-d", s.dir})));
    EXPECT_TRUE(s.edited(0) && s.edited(1) && s.edited(69));
    std::string seen(first.size() + 1, '\0');
    seen.resize(size_t(std::max<ssize_t>(0, pread(reader, &seen[0], seen.size(), 0))));
    close(reader);
    EXPECT_TRUE(seen == first) << "a reader of an object keeps reading the original bytes";
    EXPECT_EQ(rules, rulesOf(guarded));
    EXPECT_EQ(plainRules, rulesOf(plain));
}

TEST(LivingArchive, AGroupMemberKeepsTheGroupAndNeverLocksTheOwnerOut)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to make a user of a group";
    const gid_t group = 4242;
    const uid_t stranger = 4321; // no account: in no group
    TempDir root;
    PlainStudy s(root, 2, EDITED_NAME);
    ASSERT_EQ(0, chown(s.dir.c_str(), 0, group));
    ASSERT_EQ(0, chmod(s.dir.c_str(), 0775));
    ASSERT_EQ(0, chmod(root.path().c_str(), 0755));
    ASSERT_EQ(0, chmod(s.kqr.c_str(), 0644));
    const std::string shared = s.path(0), foreign = s.path(1);
    ASSERT_EQ(0, chown(shared.c_str(), 0, group));
    ASSERT_EQ(0, chmod(shared.c_str(), 0664));
    ASSERT_EQ(0, chown(foreign.c_str(), stranger, group));
    ASSERT_EQ(0, chmod(foreign.c_str(), 0660));
    const std::string before = readFile(foreign);
    LaunchOptions member;
    member.unprivileged = true;
    member.groups = {group};
    EXPECT_TRUE(succeeds(applyChanges({"-p", s.kqr, "-o", shared}, member)));
    struct stat st;
    ASSERT_EQ(0, stat(shared.c_str(), &st));
    EXPECT_EQ(group, st.st_gid);
    EXPECT_EQ(0664u, st.st_mode & 07777);
    EXPECT_TRUE(s.edited(0));
    EXPECT_TRUE(failsWith(applyChanges({"-p", s.kqr, "-o", foreign}, member),
                          "Refusing to edit " + foreign + ": it belongs to user 4321, to whom this process cannot give "
                          "the edited copy, and who would lose access to it\n" + failedLine(foreign)));
    EXPECT_EQ(before, readFile(foreign));
    ASSERT_EQ(0, stat(foreign.c_str(), &st));
    EXPECT_EQ(stranger, st.st_uid);
}

TEST(LivingArchive, AStudyDirectoryReplacedDuringTheWalkBypassesNoRefusal)
{
    if (!straceWorks())
        GTEST_SKIP() << "strace cannot trace here";
    // the refusals and the access rules are those of the file read, not of what its name shows later
    for (bool readOnly : {true, false})
    {
        SCOPED_TRACE(readOnly ? "read-only object" : "object of another owner");
        TempDir root;
        PlainStudy s(root, 1, EDITED_NAME);
        const std::string name = s.order[0], moved = s.dir + ".moved";
        ASSERT_EQ(0, chmod(s.path(0).c_str(), readOnly ? 0444 : 0640));
        ASSERT_EQ(0, chown(s.path(0).c_str(), 65534, 65534));
        const std::string before = readFile(s.path(0));
        // held at the first read of the directory's entries, after the directory was opened
        Launched run;
        ASSERT_TRUE(startHeld(run, "getdents64", {"-p", s.kqr, "-d", s.dir}, s.dir, IN_OPEN, ".tmp"));
        ASSERT_EQ(0, rename(s.dir.c_str(), moved.c_str()));
        ASSERT_EQ(0, mkdir(s.dir.c_str(), 0755));
        ASSERT_TRUE(writeFile(s.dir + "/" + name, "a writable stand-in"));
        chmod((s.dir + "/" + name).c_str(), 0666);
        const Outcome outcome = run.wait();
        struct stat st;
        ASSERT_EQ(0, stat((moved + "/" + name).c_str(), &st));
        if (readOnly)
        {
            EXPECT_TRUE(failsWith(outcome, "Refusing to edit " + s.path(0) + ": it is read-only (no write "
                                           "permission)\n" + failedLine(s.path(0))));
            EXPECT_EQ(before, readFile(moved + "/" + name));
        }
        else
        {
            EXPECT_TRUE(succeeds(outcome));
            EXPECT_EQ(EDITED_NAME, attribute(moved + "/" + name, DCM_PatientName));
            EXPECT_EQ(0640u, st.st_mode & 07777);
            EXPECT_EQ(65534u, st.st_uid);
        }
        EXPECT_EQ("a writable stand-in", readFile(s.dir + "/" + name));
    }
}

TEST(LivingArchive, SpecialFilesAreNeverOpenedAndWhatEndedRunsLeftIsRemoved)
{
    TempDir root;
    PlainStudy s(root, 1, EDITED_NAME);
    const std::string elsewhere = root.file("elsewhere");
    ASSERT_EQ(0, mkdir(elsewhere.c_str(), 0755));
    ASSERT_EQ(0, mkfifo((s.dir + "/FIFO").c_str(), 0644));
    ASSERT_EQ(0, mkfifo((elsewhere + "/FIFO").c_str(), 0644));
    ASSERT_EQ(0, symlink((elsewhere + "/FIFO").c_str(), (s.dir + "/LINK").c_str()));
    ASSERT_EQ(0, mkdir((s.dir + "/KqR.d").c_str(), 0755)); // a directory named like a KqR file
    const bool device = mknod((s.dir + "/DEVICE").c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0;
    // an edited copy never put in place, and a displaced original, of killed runs
    ASSERT_EQ(0, mkdir((s.dir + "/.tmp").c_str(), 0755));
    const std::vector<std::string> left{".applychanges99999." + s.order[0], ".applychanges4." + s.order[0]};
    for (const std::string& name : left)
        ASSERT_TRUE(writeFile(s.dir + "/.tmp/" + name, readFile(s.path(0))));
    Outcome outcome = runProgram({program("applyChanges"), "-v", "-p", s.kqr, "-d", s.dir}, LaunchOptions(), 20);
    EXPECT_TRUE(succeeds(outcome));
    std::vector<std::string> lines{"Skipping FIFO: not a regular file (a FIFO)\n",
                                   "Skipping LINK: not a regular file (a FIFO)\n", "Skipping directory KqR.d\n"};
    if (device)
        lines.push_back("Skipping DEVICE: not a regular file (a character device)\n");
    for (const std::string& name : left)
        lines.push_back("Removing " + s.dir + "/.tmp/" + name + " left by an earlier run\n");
    for (const std::string& line : lines)
        EXPECT_NE(std::string::npos, outcome.out.find(line)) << line << outcome.out;
    EXPECT_TRUE(s.edited(0));
    EXPECT_TRUE(listDir(s.dir + "/.tmp").empty());
    for (const std::string& name : {s.dir + "/FIFO", s.dir + "/LINK"})
        EXPECT_TRUE(failsWith(runProgram({program("applyChanges"), "-p", s.kqr, "-o", name}, LaunchOptions(), 20),
                              "Refusing to edit " + name + ": it is not a regular file (a FIFO)\n" + failedLine(name)));
    EXPECT_FALSE(fileExists(elsewhere + "/.tmp"));
    EXPECT_TRUE(failsWith(applyChanges({"-p", s.dir + "/FIFO", "-d", s.dir}),
                          "Refusing to read KqR file " + s.dir + "/FIFO: it is not a regular file (a FIFO)\n"));
}

TEST(LivingArchive, AClosedOutputOrAFileSizeLimitEndsTheRunInWords)
{
    TempDir root;
    PlainStudy s(root, 3, EDITED_NAME);
    LaunchOptions piped;
    piped.closedOutput = true;
    EXPECT_TRUE(failsWith(applyChanges({"-v", "-p", s.kqr, "-d", s.dir}, piped),
                          "Error writing the output of the run [Broken pipe]: the objects verified until then are in "
                          "place, the others as they were\n"));
    EXPECT_TRUE(listDir(s.dir + "/.tmp").empty());
    TempDir other;
    PlainStudy limited(other, 2, EDITED_NAME);
    LaunchOptions deadly;
    deadly.fileSizeLimit = 512; // below any object, above the lines printed (also files here)
    deadly.ignoreFileSizeSignal = false;
    const Outcome outcome = applyChanges({"-p", limited.kqr, "-d", limited.dir}, deadly);
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_NE(std::string::npos, outcome.err.find(" [File too large]\n" + failedLine(limited.path(0))));
    EXPECT_FALSE(limited.edited(0) || limited.edited(1));
}

TEST(LivingArchive, AnObjectTooLargeForMemoryIsAsSafe)
{
    // over 16 MiB: written as it is read, its values copied through its descriptor
    if (!straceWorks())
        GTEST_SKIP() << "strace cannot trace here";
    TempDir root;
    PlainStudy s(root, 1, EDITED_NAME);
    ObjectSpec large;
    large.rows = large.columns = 3000;
    const std::string path = s.dir + "/LARGE";
    ASSERT_TRUE(writeObject(path, large));
    const std::string before = readFile(path);
    ASSERT_EQ(0, mkdir((s.dir + "/.tmp").c_str(), 0755));
    // another process writes to it between its read and its replacement
    Launched run; // held once its temporary file is created, then written
    ASSERT_TRUE(
        startHeld(run, "syncfs", {"-p", s.kqr, "-o", path}, s.dir + "/.tmp", IN_CLOSE_WRITE | IN_CREATE, ".LARGE", 2));
    append(path);
    EXPECT_TRUE(failsWith(run.wait(), changedLine(path, "another process wrote to it")));
    EXPECT_EQ(before + "more", readFile(path));
    // killed while its temporary file is written: the object stays whole, a rerun edits it
    ASSERT_TRUE(writeFile(path, before));
    DirectoryWatch creation;
    ASSERT_TRUE(creation.add(s.dir + "/.tmp", IN_CREATE));
    Launched killed;
    ASSERT_TRUE(killed.start({program("applyChanges"), "-p", s.kqr, "-o", path}));
    ASSERT_TRUE(waitForName(creation, ".LARGE"));
    killed.kill(SIGKILL);
    const Outcome outcome = killed.wait();
    EXPECT_EQ(SIGKILL, outcome.signal) << outcome.describe();
    EXPECT_EQ(before, readFile(path));
    EXPECT_TRUE(succeeds(applyChanges({"-p", s.kqr, "-o", path})));
    EXPECT_EQ(EDITED_NAME, attribute(path, DCM_PatientName));
    EXPECT_TRUE(listDir(s.dir + "/.tmp").empty());
}
