// Runs stopped or failing at the edges of a commit batch (64 objects): what came before stays edited.
#include "tests/reliability/ReliabilitySupport.h"

using namespace reliability;

namespace {

const int OBJECTS = 130; // two full batches and two objects more
const int BATCH = 64;
const char* const NAME = "Group^Commit";

} // namespace

TEST(GroupCommit, KilledBetweenABatchsSyncAndItsReplacementsOrFailingInTheMiddleOfABatch)
{
    if (!straceWorks())
        GTEST_SKIP() << "strace cannot trace here";
    for (int batch : {0, 1})
    {
        // killed at the first replacement of the batch: all of it is verified and on disk
        SCOPED_TRACE(batch);
        TempDir root;
        PlainStudy s(root, OBJECTS / 2, NAME, 2);
        const Outcome killed =
            runProgram(straced("renameat2", "signal=KILL", batch * BATCH + 1, {"-p", s.kqr, "-d", s.dir}));
        EXPECT_FALSE(killed.exited && killed.status == 0) << killed.describe();
        EXPECT_EQ(0, s.mismatches(size_t(batch * BATCH)));
        EXPECT_TRUE(succeeds(applyChanges({"-p", s.kqr, "-d", s.dir})));
        EXPECT_EQ(0, s.mismatches(OBJECTS));
    }
    // a replacement failing in the middle of the second batch
    TempDir root;
    PlainStudy s(root, OBJECTS / 2, NAME, 2);
    const size_t at = BATCH + BATCH / 2;
    const Outcome outcome = runProgram(straced("renameat2", "error=EIO", int(at) + 1, {"-p", s.kqr, "-d", s.dir}));
    EXPECT_TRUE(failsWith(outcome, "Error moving modified file to it's final place for " + s.path(at) + "\n" +
                                       failedLine(s.path(at))));
    EXPECT_EQ(0, s.mismatches(at));
    // the later objects of the batch were verified, but their temporary files are gone again
    EXPECT_TRUE(listDir(s.dir + "/.tmp").empty());
}

TEST(GroupCommit, AFailureAtEitherEdgeOfABatchKeepsWhatCameBefore)
{
    // the first object of the first batch, the last of the first batch, the first of the second
    for (size_t at : {0, BATCH - 1, BATCH})
    {
        SCOPED_TRACE(at);
        TempDir root;
        PlainStudy s(root, OBJECTS / 2, NAME, 2);
        const std::string object = s.path(at);
        ASSERT_TRUE(writeFile(object, "not an object"));
        const Outcome outcome = applyChanges({"-p", s.kqr, "-d", s.dir});
        EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
        // the toolkit may warn before the program's own line
        EXPECT_NE(std::string::npos, outcome.err.find("Error loading " + object + " [")) << outcome.err;
        EXPECT_NE(std::string::npos, outcome.err.find("]\n" + failedLine(object))) << outcome.err;
        EXPECT_EQ(0, s.mismatches(at));
        EXPECT_EQ("not an object", readFile(object));
        EXPECT_TRUE(listDir(s.dir + "/.tmp").empty());
    }
}
