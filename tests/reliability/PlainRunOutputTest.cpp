// A run prints and leaves what a plain run, one object after the other, would, despite its pipeline.
#include "tests/reliability/ReliabilitySupport.h"

#include <sys/inotify.h>
#include <sys/stat.h>

#include <csignal>
#include <memory>

using namespace reliability;

namespace {

const char* const NAME = "Plain^Run";

// An object whose reading makes the toolkit warn: a private element of odd length.
std::string warningObject(const ObjectSpec& spec)
{
    TempDir scratch;
    std::unique_ptr<DcmFileFormat>(makeObject(spec))->saveFile(scratch.file("o").c_str(), EXS_LittleEndianExplicit);
    std::string bytes = readFile(scratch.file("o"));
    const size_t at = bytes.find(std::string("\x10\x00\x10\x00PN", 6));
    return bytes.insert(at, std::string("\x09\x00\x10\x00LO\x03\x00" "ABC", 11));
}

} // namespace

TEST(PlainRunOutput, LoadErrorsAreTheToolkitsOwn)
{
    TempDir dir;
    const std::string ct = readFile(corpusFile("CT_small.dcm"));
    const std::string kqr = writeNameKqR(dir.file("edit.kqr"), NAME);
    const std::pair<std::string, std::string> files[] = {{"text", "not an object"}, {"meta", ct.substr(0, 300)},
                                                         {"empty", ""}, {"pixels", ct.substr(0, ct.size() - 5000)},
                                                         {"directory", ""}};
    ASSERT_EQ(0, mkdir(dir.file("directory").c_str(), 0755));
    for (const auto& f : files)
    {
        SCOPED_TRACE(f.first);
        const std::string path = dir.file(f.first);
        ASSERT_TRUE(f.first == "directory" || writeFile(path, f.second));
        DcmFileFormat reference;
        OFCondition cond;
        OFLog::configure(OFLogger::INFO_LOG_LEVEL); // the toolkit's lines are part of the expected output
        const Captured log = capture([&] { cond = reference.loadFile(path.c_str()); });
        OFLog::configure(OFLogger::FATAL_LOG_LEVEL);
        ASSERT_TRUE(cond.bad());
        EXPECT_TRUE(failsWith(applyChanges({"-p", kqr, "-o", path}),
                              log.err + "Error loading " + path + " [" + cond.text() + "]\n" + failedLine(path)));
    }
}

TEST(PlainRunOutput, AnObjectReadAheadOfAFailureLeavesNoTrace)
{
    TempDir root;
    const std::string dir = root.file("study"), kqr = writeNameKqR(root.file("edit.kqr"), NAME);
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
    const std::string temporary = tempName(run.pid(), order[0]);
    EXPECT_TRUE(failsWith(run.wait(), "Error saving to temp file " + dir + "/.tmp/" + temporary +
                                          " [File too large]\n" + failedLine(dir + "/" + order[0])));
    EXPECT_EQ(std::vector<std::string>{temporary}, listDir(dir + "/.tmp")); // the failed save's, kept
}

TEST(PlainRunOutput, BothStreamsKeepTheOrderTheyWereWrittenIn)
{
    TempDir dir;
    const std::string kqr = writeNameKqR(dir.file("edit.kqr"), NAME), object = dir.file("IM1");
    ASSERT_TRUE(writeFile(object, warningObject(ObjectSpec())));
    LaunchOptions oneStream;
    oneStream.mergeOutput = true;
    const Outcome merged = applyChanges({"-v", "-p", kqr, "-o", object}, oneStream);
    EXPECT_TRUE(succeeds(merged));
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
        const PlainStudy s(root, 3, NAME);
        const std::string& dir = s.dir;
        ASSERT_EQ(0, mkdir((dir + "/.tmp").c_str(), 0755));
        // held before the objects are made durable; the signal comes once the last is written
        Launched run;
        ASSERT_TRUE(
            startHeld(run, "syncfs", {"-v", "-p", s.kqr, "-d", dir}, dir + "/.tmp", IN_CLOSE_WRITE, "." + s.order[2]));
        ASSERT_EQ(0, kill(heldProgram(run), signal));
        const Outcome outcome = run.wait();
        EXPECT_TRUE(failsWith(outcome, "Run interrupted by signal " + std::to_string(signal) + " (" +
                                           strsignal(signal) + "): the objects verified until then are in place, "
                                           "the others as they were\n"));
        EXPECT_EQ(0, s.mismatches(s.order.size()));
        for (const std::string& name : s.order)
            EXPECT_NE(std::string::npos, outcome.out.find("Apply soft edit changes to " + dir + "/" + name + "\n"));
        EXPECT_TRUE(listDir(dir + "/.tmp").empty());
    }
}
