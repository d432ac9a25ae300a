// applyChanges in an archive that lives around it: other processes replace, remove, write and
// re-permission objects while a run is under way, read them, guard them with access control
// lists, and leave special files in study directories. The run is held at a known point (strace
// delays a system call) while the test acts, so nothing depends on luck.
#include "tests/reliability/ReliabilitySupport.h"

#include "dcmutils/KqRWriter.h"

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

// A few small objects in root/study and a KqR file renaming the patient.
struct LivingStudy
{
    explicit LivingStudy(const TempDir& root, int objects = 3) : dir(root.file("study")), kqr(root.file("edit.kqr"))
    {
        mkdir(dir.c_str(), 0755);
        ObjectSpec spec;
        spec.rows = spec.columns = 4;
        writeStudy(dir, 1, objects, spec);
        KqRWriter writer;
        writer.setStudyAttribute(DCM_PatientName, EDITED_NAME);
        writer.save(kqr.c_str());
        order = listDir(dir, false);
    }
    std::string path(size_t index) const { return dir + "/" + order[index]; }
    bool edited(size_t index) const { return attribute(path(index), DCM_PatientName) == EDITED_NAME; }

    std::string dir;
    std::string kqr;
    std::vector<std::string> order; // walk order
};

std::string changedLine(const std::string& path, const std::string& why)
{
    return "Refusing to edit " + path + ": it changed during the edit (" + why + ")\n" + failedLine(path);
}

std::string shell(const std::string& command)
{
    const Outcome outcome = runProgram({"/bin/sh", "-c", command});
    return outcome.exited && outcome.status == 0 ? outcome.out : "failed: " + outcome.err;
}

} // namespace

TEST(LivingArchive, WhatAnotherProcessDoesDuringTheEditIsNeverUndone)
{
    if (!straceWorks())
        GTEST_SKIP() << "strace cannot trace here";
    struct Case
    {
        const char* why;
        std::function<void(const std::string&)> act;
        std::function<bool(const std::string& path, const std::string& before)> kept;
    };
    const std::string newer = "a newer object put in place by another process";
    const Case cases[] = {
        {"another process replaced it",
         [&](const std::string& path) {
             writeFile(path + ".new", newer);
             rename((path + ".new").c_str(), path.c_str());
         },
         [&](const std::string& path, const std::string&) { return readFile(path) == newer; }},
        {"another process deleted it", [](const std::string& path) { unlink(path.c_str()); },
         [](const std::string& path, const std::string&) { return !fileExists(path); }},
        {"another process wrote to it",
         [](const std::string& path) {
             const int fd = open(path.c_str(), O_WRONLY | O_APPEND);
             EXPECT_EQ(4, write(fd, "more", 4));
             close(fd);
         },
         [](const std::string& path, const std::string& before) { return readFile(path) == before + "more"; }},
        {"another process changed its mode or owner", [](const std::string& path) { chmod(path.c_str(), 0600); },
         [](const std::string& path, const std::string& before) {
             struct stat st;
             return stat(path.c_str(), &st) == 0 && (st.st_mode & 07777) == 0600 && readFile(path) == before;
         }},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.why);
        TempDir root;
        LivingStudy s(root);
        const std::string target = s.path(1), before = readFile(target);
        ASSERT_EQ(0, mkdir((s.dir + "/.tmp").c_str(), 0755));
        DirectoryWatch watch;
        ASSERT_TRUE(watch.add(s.dir + "/.tmp", IN_CLOSE_WRITE));
        // held before the batch is made durable: the middle object is read and written by then
        Launched run;
        ASSERT_TRUE(startHeld(run, "syncfs", 1, 1500, {"-p", s.kqr, "-d", s.dir}));
        ASSERT_TRUE(waitForName(watch, "." + s.order[1]));
        c.act(target);
        const Outcome outcome = run.wait();
        EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        EXPECT_EQ(changedLine(target, c.why), outcome.err);
        EXPECT_TRUE(s.edited(0));
        EXPECT_TRUE(c.kept(target, before));
        EXPECT_FALSE(s.edited(2));
        EXPECT_TRUE(listDir(s.dir + "/.tmp").empty());
    }
}

TEST(LivingArchive, ReadersKeepTheOriginalAndEveryObjectKeepsItsOwnAccessRules)
{
    TempDir root;
    LivingStudy s(root, 70); // more than a batch: an original is never used again as a file
    const std::string guarded = s.path(1), plain = s.path(2);
    if (!shell("setfacl -m u:65534:rw '" + guarded + "' && setfattr -n user.archive -v kept '" + guarded + "'")
             .empty())
        GTEST_SKIP() << "no access control lists or extended attributes here";
    ASSERT_EQ(0, chown(guarded.c_str(), 65534, 65533));
    ASSERT_EQ(0, chmod(plain.c_str(), 0604));
    const std::string rules = shell("getfacl -n '" + guarded + "'; getfattr -d '" + guarded + "'; stat -c %a.%u.%g '" +
                                    guarded + "'");
    const std::string plainRules = shell("getfacl -n '" + plain + "'; getfattr -d '" + plain + "'; stat -c %a '" + plain + "'");
    const std::string first = readFile(s.path(0));
    const int reader = open(s.path(0).c_str(), O_RDONLY);

    const Outcome outcome = applyChanges({"-p", s.kqr, "-d", s.dir});
    EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
    EXPECT_TRUE(s.edited(0) && s.edited(1) && s.edited(69));
    std::string seen(first.size() + 1, '\0');
    seen.resize(size_t(std::max<ssize_t>(0, pread(reader, &seen[0], seen.size(), 0))));
    close(reader);
    EXPECT_TRUE(seen == first) << "a reader of an object keeps reading the original bytes";
    EXPECT_EQ(rules, shell("getfacl -n '" + guarded + "'; getfattr -d '" + guarded + "'; stat -c %a.%u.%g '" +
                           guarded + "'"));
    EXPECT_EQ(plainRules, shell("getfacl -n '" + plain + "'; getfattr -d '" + plain + "'; stat -c %a '" + plain + "'"));
}

TEST(LivingArchive, AGroupMemberKeepsTheGroupAndNeverLocksTheOwnerOut)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to make a user of a group";
    const gid_t group = 4242;
    const uid_t stranger = 4321; // no account: in no group
    TempDir root;
    LivingStudy s(root, 2);
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

    Outcome outcome = applyChanges({"-p", s.kqr, "-o", shared}, member);
    EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
    struct stat st;
    ASSERT_EQ(0, stat(shared.c_str(), &st));
    EXPECT_EQ(group, st.st_gid);
    EXPECT_EQ(0664u, st.st_mode & 07777);
    EXPECT_TRUE(s.edited(0));

    outcome = applyChanges({"-p", s.kqr, "-o", foreign}, member);
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Refusing to edit " + foreign + ": it belongs to user 4321, to whom this process cannot give the edited "
                  "copy, and who would lose access to it\n" + failedLine(foreign),
              outcome.err);
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
        LivingStudy s(root, 1);
        const std::string name = s.order[0], moved = s.dir + ".moved";
        ASSERT_EQ(0, chmod(s.path(0).c_str(), readOnly ? 0444 : 0640));
        ASSERT_EQ(0, chown(s.path(0).c_str(), 65534, 65534));
        const std::string before = readFile(s.path(0));
        DirectoryWatch watch;
        ASSERT_TRUE(watch.add(s.dir, IN_OPEN));
        // held at the first read of the directory's entries, after the directory was opened
        Launched run;
        ASSERT_TRUE(startHeld(run, "getdents64", 1, 1500, {"-p", s.kqr, "-d", s.dir}));
        ASSERT_TRUE(waitForName(watch, ".tmp"));
        ASSERT_EQ(0, rename(s.dir.c_str(), moved.c_str()));
        ASSERT_EQ(0, mkdir(s.dir.c_str(), 0755));
        ASSERT_TRUE(writeFile(s.dir + "/" + name, "a writable stand-in"));
        chmod((s.dir + "/" + name).c_str(), 0666);
        const Outcome outcome = run.wait();
        struct stat st;
        ASSERT_EQ(0, stat((moved + "/" + name).c_str(), &st));
        if (readOnly)
        {
            EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
            EXPECT_EQ("Refusing to edit " + s.path(0) + ": it is read-only (no write permission)\n" +
                          failedLine(s.path(0)),
                      outcome.err);
            EXPECT_EQ(before, readFile(moved + "/" + name));
        }
        else
        {
            EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
            EXPECT_EQ(EDITED_NAME, attribute(moved + "/" + name, DCM_PatientName));
            EXPECT_EQ(0640u, st.st_mode & 07777);
            EXPECT_EQ(65534u, st.st_uid);
        }
        EXPECT_EQ("a writable stand-in", readFile(s.dir + "/" + name));
    }
}

TEST(LivingArchive, SpecialFilesAreNeverOpened)
{
    TempDir root;
    LivingStudy s(root, 1);
    const std::string elsewhere = root.file("elsewhere");
    ASSERT_EQ(0, mkdir(elsewhere.c_str(), 0755));
    ASSERT_EQ(0, mkfifo((s.dir + "/FIFO").c_str(), 0644));
    ASSERT_EQ(0, mkfifo((elsewhere + "/FIFO").c_str(), 0644));
    ASSERT_EQ(0, symlink((elsewhere + "/FIFO").c_str(), (s.dir + "/LINK").c_str()));
    const bool device = mknod((s.dir + "/DEVICE").c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0;

    Outcome outcome = runProgram({program("applyChanges"), "-v", "-p", s.kqr, "-d", s.dir}, LaunchOptions(), 20);
    EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
    for (const char* line : {"Skipping FIFO: not a regular file (a FIFO)\n", "Skipping LINK: not a regular file (a FIFO)\n"})
        EXPECT_NE(std::string::npos, outcome.out.find(line)) << line;
    if (device)
        EXPECT_NE(std::string::npos, outcome.out.find("Skipping DEVICE: not a regular file (a character device)\n"));
    EXPECT_TRUE(s.edited(0));
    EXPECT_FALSE(fileExists(elsewhere + "/.tmp"));

    for (const std::string& name : {s.dir + "/FIFO", s.dir + "/LINK"})
    {
        outcome = runProgram({program("applyChanges"), "-p", s.kqr, "-o", name}, LaunchOptions(), 20);
        EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        EXPECT_EQ("Refusing to edit " + name + ": it is not a regular file (a FIFO)\n" + failedLine(name), outcome.err);
    }
    EXPECT_FALSE(fileExists(elsewhere + "/.tmp"));
    outcome = runProgram({program("applyChanges"), "-p", s.dir + "/FIFO", "-d", s.dir}, LaunchOptions(), 20);
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Refusing to read KqR file " + s.dir + "/FIFO: it is not a regular file (a FIFO)\n", outcome.err);
}

TEST(LivingArchive, AClosedOutputOrAFileSizeLimitEndsTheRunInWords)
{
    TempDir root;
    LivingStudy s(root, 3);
    LaunchOptions piped;
    piped.closedOutput = true;
    Outcome outcome = applyChanges({"-v", "-p", s.kqr, "-d", s.dir}, piped);
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Error writing the output of the run [Broken pipe]: the objects verified until then are in place, "
              "the others as they were\n",
              outcome.err);
    EXPECT_TRUE(listDir(s.dir + "/.tmp").empty());

    TempDir other;
    LivingStudy limited(other, 2);
    LaunchOptions deadly;
    deadly.fileSizeLimit = 512; // below any object, above the lines printed (also files here)
    deadly.ignoreFileSizeSignal = false;
    outcome = applyChanges({"-p", limited.kqr, "-d", limited.dir}, deadly);
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_NE(std::string::npos, outcome.err.find(" [File too large]\n" + failedLine(limited.path(0))));
    EXPECT_FALSE(limited.edited(0) || limited.edited(1));
}

TEST(LivingArchive, WhatEndedRunsLeftIsRemovedByTheNext)
{
    TempDir root;
    LivingStudy s(root, 1);
    ASSERT_EQ(0, mkdir((s.dir + "/.tmp").c_str(), 0755));
    // an edited copy never put in place, and a displaced original, of killed runs
    const std::vector<std::string> left{".applychanges99999." + s.order[0], ".applychanges4." + s.order[0]};
    for (const std::string& name : left)
        ASSERT_TRUE(writeFile(s.dir + "/.tmp/" + name, readFile(s.path(0))));
    const Outcome outcome = applyChanges({"-v", "-p", s.kqr, "-d", s.dir});
    EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
    for (const std::string& name : left)
        EXPECT_NE(std::string::npos, outcome.out.find("Removing " + s.dir + "/.tmp/" + name + " left by an earlier run\n"));
    EXPECT_TRUE(listDir(s.dir + "/.tmp").empty());
    EXPECT_TRUE(s.edited(0));
}

TEST(LivingArchive, AnObjectTooLargeForMemoryIsAsSafe)
{
    // over 16 MiB: written as it is read, its values copied through its descriptor
    if (!straceWorks())
        GTEST_SKIP() << "strace cannot trace here";
    TempDir root;
    LivingStudy s(root, 1);
    ObjectSpec large;
    large.rows = large.columns = 3000;
    const std::string path = s.dir + "/LARGE";
    ASSERT_TRUE(writeObject(path, large));
    const std::string before = readFile(path);
    ASSERT_EQ(0, mkdir((s.dir + "/.tmp").c_str(), 0755));

    // another process writes to it between its read and its replacement
    DirectoryWatch watch;
    ASSERT_TRUE(watch.add(s.dir + "/.tmp", IN_CLOSE_WRITE | IN_CREATE));
    Launched run;
    ASSERT_TRUE(startHeld(run, "syncfs", 1, 1500, {"-p", s.kqr, "-o", path}));
    ASSERT_TRUE(waitForName(watch, ".LARGE"));
    ASSERT_TRUE(waitForName(watch, ".LARGE")); // created, then written
    const int fd = open(path.c_str(), O_WRONLY | O_APPEND);
    EXPECT_EQ(4, write(fd, "more", 4));
    close(fd);
    Outcome outcome = run.wait();
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ(changedLine(path, "another process wrote to it"), outcome.err);
    EXPECT_EQ(before + "more", readFile(path));

    // killed while its temporary file is written: the object stays whole, a rerun edits it
    ASSERT_TRUE(writeFile(path, before));
    DirectoryWatch creation;
    ASSERT_TRUE(creation.add(s.dir + "/.tmp", IN_CREATE));
    Launched killed;
    ASSERT_TRUE(killed.start({program("applyChanges"), "-p", s.kqr, "-o", path}));
    ASSERT_TRUE(waitForName(creation, ".LARGE"));
    killed.kill(SIGKILL);
    outcome = killed.wait();
    EXPECT_EQ(SIGKILL, outcome.signal) << outcome.describe();
    EXPECT_EQ(before, readFile(path));
    outcome = applyChanges({"-p", s.kqr, "-o", path});
    EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
    EXPECT_EQ(EDITED_NAME, attribute(path, DCM_PatientName));
    EXPECT_TRUE(listDir(s.dir + "/.tmp").empty());
}
