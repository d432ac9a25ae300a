// What a run prints and leaves is what a plain run, one object after the other, would print and
// leave, whatever the pipeline does behind it: load errors in the toolkit's own words, nothing of
// an object read ahead, both streams in the order they were written, and on an interrupt the
// verified objects in place.
#include "tests/reliability/ReliabilitySupport.h"

#include "dcmutils/KqRWriter.h"

#include <sys/inotify.h>
#include <sys/stat.h>

#include <csignal>

using namespace reliability;

namespace {

std::string writeKqR(const std::string& path)
{
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Plain^Run");
    writer.save(path.c_str());
    return path;
}

// An object whose reading makes the toolkit warn: a private element of odd length.
std::string warningObject(const ObjectSpec& spec)
{
    DcmFileFormat* file = makeObject(spec);
    TempDir scratch;
    file->saveFile(scratch.file("o").c_str(), EXS_LittleEndianExplicit);
    delete file;
    std::string bytes = readFile(scratch.file("o"));
    const size_t at = bytes.find(std::string("\x10\x00\x10\x00PN", 6));
    return bytes.insert(at, std::string("\x09\x00\x10\x00LO\x03\x00" "ABC", 11));
}

} // namespace

TEST(PlainRunOutput, LoadErrorsAreTheToolkitsOwn)
{
    TempDir dir;
    const std::string ct = readFile(corpusFile("CT_small.dcm"));
    const std::string kqr = writeKqR(dir.file("edit.kqr"));
    const std::pair<const char*, std::string> files[] = {
        {"text", "not an object"}, {"meta", ct.substr(0, 300)}, {"empty", ""}, {"pixels", ct.substr(0, ct.size() - 5000)}};
    std::vector<std::string> names;
    for (const auto& f : files)
    {
        ASSERT_TRUE(writeFile(dir.file(f.first), f.second));
        names.push_back(f.first);
    }
    ASSERT_EQ(0, mkdir(dir.file("directory").c_str(), 0755));
    names.push_back("directory");
    for (const std::string& name : names)
    {
        SCOPED_TRACE(name);
        const std::string path = dir.file(name);
        DcmFileFormat reference;
        OFCondition cond;
        OFLog::configure(OFLogger::INFO_LOG_LEVEL); // the toolkit's lines are part of the expected output
        const Captured log = capture([&] { cond = reference.loadFile(path.c_str()); });
        OFLog::configure(OFLogger::FATAL_LOG_LEVEL);
        ASSERT_TRUE(cond.bad());
        const Outcome outcome = applyChanges({"-p", kqr, "-o", path});
        EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        EXPECT_EQ(log.err + "Error loading " + path + " [" + cond.text() + "]\n" + failedLine(path), outcome.err);
    }
}

TEST(PlainRunOutput, AnObjectReadAheadOfAFailureLeavesNoTrace)
{
    TempDir root;
    const std::string dir = root.file("study"), kqr = writeKqR(root.file("edit.kqr"));
    ASSERT_EQ(0, mkdir(dir.c_str(), 0755));
    ASSERT_TRUE(writeFile(dir + "/P", "") && writeFile(dir + "/Q", ""));
    const std::vector<std::string> order = listDir(dir, false);
    // the first fails to be saved (file size limit) while the second, large and read ahead,
    // warns when it is read and fails its own save: the second must never show
    ObjectSpec first;
    first.rows = first.columns = 724; // 1 MiB
    ObjectSpec second;
    second.rows = second.columns = 3000; // 17 MiB: written as it is read
    ASSERT_TRUE(writeObject(dir + "/" + order[0], first));
    ASSERT_TRUE(writeFile(dir + "/" + order[1], warningObject(second)));
    LaunchOptions limited;
    limited.fileSizeLimit = 512 * 1024;
    Launched run;
    ASSERT_TRUE(run.start({program("applyChanges"), "-p", kqr, "-d", dir}, limited));
    const Outcome outcome = run.wait();
    const std::string temporary = ".applychanges" + std::to_string(run.pid()) + "." + order[0];
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Error saving to temp file " + dir + "/.tmp/" + temporary + " [File too large]\n" +
                  failedLine(dir + "/" + order[0]),
              outcome.err);
    EXPECT_EQ(std::vector<std::string>{temporary}, listDir(dir + "/.tmp")); // the failed save's, kept
}

TEST(PlainRunOutput, BothStreamsKeepTheOrderTheyWereWrittenIn)
{
    TempDir dir;
    const std::string kqr = writeKqR(dir.file("edit.kqr")), object = dir.file("IM1");
    ASSERT_TRUE(writeFile(object, warningObject(ObjectSpec())));
    LaunchOptions oneStream;
    oneStream.mergeOutput = true;
    const Outcome merged = applyChanges({"-v", "-p", kqr, "-o", object}, oneStream);
    EXPECT_TRUE(merged.exited && merged.status == 0) << merged.describe();
    EXPECT_EQ(0u, merged.out.find("Apply soft edit changes to " + object +
                                  "\nW: DcmItem: Length of element (0009,0010) is odd\n   Modified key: (0010,0010)\n"))
        << merged.out.substr(0, 400);
}

TEST(PlainRunOutput, AnInterruptedRunPutsTheVerifiedObjectsInPlace)
{
    if (!straceWorks())
        GTEST_SKIP() << "strace cannot trace here";
    for (int signal : {SIGTERM, SIGINT, SIGHUP})
    {
        SCOPED_TRACE(signal);
        TempDir root;
        const std::string dir = root.file("study"), kqr = writeKqR(root.file("edit.kqr"));
        ASSERT_EQ(0, mkdir(dir.c_str(), 0755));
        ObjectSpec spec;
        spec.rows = spec.columns = 4;
        writeStudy(dir, 1, 3, spec);
        const std::vector<std::string> order = listDir(dir, false);
        ASSERT_EQ(0, mkdir((dir + "/.tmp").c_str(), 0755));
        DirectoryWatch watch;
        ASSERT_TRUE(watch.add(dir + "/.tmp", IN_CLOSE_WRITE));
        // held before the objects are made durable; the signal comes once the last is written
        Launched run;
        ASSERT_TRUE(startHeld(run, "syncfs", 1, 1500, {"-v", "-p", kqr, "-d", dir}));
        ASSERT_TRUE(waitForName(watch, "." + order[2]));
        ASSERT_EQ(0, kill(heldProgram(run), signal));
        const Outcome outcome = run.wait();
        EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        EXPECT_EQ("Run interrupted by signal " + std::to_string(signal) + " (" + strsignal(signal) +
                      "): the objects verified until then are in place, the others as they were\n",
                  outcome.err);
        for (const std::string& name : order)
        {
            EXPECT_EQ("Plain^Run", attribute(dir + "/" + name, DCM_PatientName)) << name;
            EXPECT_NE(std::string::npos, outcome.out.find("Apply soft edit changes to " + dir + "/" + name + "\n"));
        }
        EXPECT_TRUE(listDir(dir + "/.tmp").empty());
    }
}

TEST(PlainRunOutput, ADirectoryNamedLikeAKqRFileIsADirectory)
{
    TempDir dir;
    const std::string kqr = writeKqR(dir.file("edit.kqr"));
    ASSERT_EQ(0, mkdir(dir.file("study").c_str(), 0755));
    ASSERT_EQ(0, mkdir(dir.file("study/KqR.d").c_str(), 0755));
    const Outcome outcome = applyChanges({"-v", "-p", kqr, "-d", dir.file("study")});
    EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
    EXPECT_NE(std::string::npos, outcome.out.find("\nSkipping directory KqR.d\n")) << outcome.out;
}
