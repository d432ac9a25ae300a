// Verified objects are made durable in batches of 64 and then put in place in walk order. These
// tests stop or fail a run at the edges of a batch: killed after a batch's sync and before its
// first replacement (strace injects the signal there), an object that fails as the first or the
// last of a batch, and a replacement that fails in the middle of a batch. Each time, the objects
// before the failure are edited, the others byte-identical, and a new run finishes the study.
#include "tests/reliability/ReliabilitySupport.h"

#include "dcmutils/KqRWriter.h"

#include <sys/stat.h>

using namespace reliability;

namespace {

const int OBJECTS = 130; // two full batches and two objects more
const int BATCH = 64;

struct BatchStudy
{
    TempDir root;
    std::string dir = root.file("study");
    std::string kqr = root.file("edit.kqr");
    std::vector<std::string> order; // walk order, as the program sees it

    BatchStudy()
    {
        mkdir(dir.c_str(), 0755);
        ObjectSpec spec;
        spec.rows = spec.columns = 4;
        writeStudy(dir, 2, OBJECTS / 2, spec);
        KqRWriter writer;
        writer.setStudyAttribute(DCM_PatientName, "Group^Commit");
        writer.save(kqr.c_str());
        order = listDir(dir, false);
    }
    std::string path(int index) const { return dir + "/" + order[size_t(index)]; }
    // Objects before `at` edited, the others not: the count of those that are not.
    int mismatches(int at) const
    {
        int wrong = 0;
        for (int i = 0; i < int(order.size()); ++i)
            wrong += (attribute(path(i), DCM_PatientName) == "Group^Commit") != (i < at);
        return wrong;
    }
    // applyChanges -d under strace, with a fault injected at the n-th replacement (renameat2).
    Outcome runWithInjection(const std::string& fault, int n) const
    {
        // LeakSanitizer cannot work under a tracer: a sanitized build runs without it here
        return runProgram({"/usr/bin/env", "ASAN_OPTIONS=detect_leaks=0:abort_on_error=1", "/usr/bin/strace", "-f",
                           "-qq", "-o", "/dev/null", "-e", "trace=renameat2", "-e",
                           "inject=renameat2:" + fault + ":when=" + std::to_string(n), program("applyChanges"), "-p",
                           kqr, "-d", dir});
    }
};

} // namespace

TEST(GroupCommit, KilledBetweenABatchsSyncAndItsReplacementsOrFailingInTheMiddleOfABatch)
{
    if (!straceWorks())
        GTEST_SKIP() << "strace cannot trace here";
    for (int batch : {0, 1})
    {
        SCOPED_TRACE(batch);
        BatchStudy s;
        // the first replacement of the batch: every object of the batch is verified and on disk
        const Outcome killed = s.runWithInjection("signal=KILL", batch * BATCH + 1);
        EXPECT_FALSE(killed.exited && killed.status == 0) << killed.describe();
        EXPECT_EQ(0, s.mismatches(batch * BATCH));
        const Outcome rerun = applyChanges({"-p", s.kqr, "-d", s.dir});
        EXPECT_TRUE(rerun.exited && rerun.status == 0) << rerun.describe();
        EXPECT_EQ(0, s.mismatches(OBJECTS));
    }

    BatchStudy s;
    const int at = BATCH + BATCH / 2; // the middle of the second batch
    const Outcome outcome = s.runWithInjection("error=EIO", at + 1);
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Error moving modified file to it's final place for " + s.path(at) + "\n" + failedLine(s.path(at)),
              outcome.err);
    EXPECT_EQ(0, s.mismatches(at));
    // the later objects of the batch were verified, but their temporary files are gone again
    EXPECT_TRUE(listDir(s.dir + "/.tmp").empty());
}

TEST(GroupCommit, AFailureAtEitherEdgeOfABatchKeepsWhatCameBefore)
{
    // the first object of the first batch, the last of the first batch, the first of the second
    for (int at : {0, BATCH - 1, BATCH})
    {
        SCOPED_TRACE(at);
        BatchStudy s;
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
