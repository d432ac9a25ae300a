// scripts/apply-archive.sh over a manifest of studies, with GNU parallel running local jobs: the
// summary, the job log that lets a failed study be run again, and a manifest it refuses.
#include "tests/fixtures/Fixtures.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dcdeftag.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace fixtures;

TEST(ApplyArchive, RunsResumesAndSummarises)
{
    TempDir root;
    const std::string kqr = root.file("edit.kqr");
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Archive^Run");
    ASSERT_TRUE(writer.save(kqr.c_str()).good());
    std::string manifest = "# studies of one archive\n";
    for (const char* name : {"s1", "s2", "s3"})
    {
        ASSERT_EQ(0, mkdir(root.file(name).c_str(), 0755));
        writeStudy(root.file(name), 1, 2);
        manifest += kqr + "\t" + root.file(name) + "\n\n";
    }
    const std::string damaged = root.file("s2/IM2");
    const std::string good = readFile(damaged);
    ASSERT_TRUE(writeFile(damaged, "not an object"));
    ASSERT_TRUE(writeFile(root.file("manifest"), manifest));

    const std::string script = std::string(KQ_SOURCE_DIR) + "/scripts/apply-archive.sh";
    const std::vector<std::string> args{script, "-q", "-S", ":", "-j", "2", "-b", program("applyChanges")};
    std::vector<std::string> argv = args;
    argv.push_back(root.file("manifest"));
    RunResult r = run(argv);
    EXPECT_EQ(1, r.status) << r.err;
    EXPECT_NE(std::string::npos,
              r.out.find("  failed (exit 1): " + root.file("s2") + "\nstudies: 3 in the manifest, 2 done, 1 failed, "
                         "0 left\n"))
        << r.out;
    // each job's lines come tagged with its study
    EXPECT_NE(std::string::npos, r.err.find(root.file("s2") + ":\tApplying soft edit changes to object failed: " +
                                            damaged))
        << r.err;
    EXPECT_EQ("Archive^Run", attribute(root.file("s3/IM1"), DCM_PatientName));

    // the damaged object mended, only the failed study runs again
    ASSERT_TRUE(writeFile(damaged, good));
    argv.insert(argv.begin() + 1, "-r");
    r = run(argv);
    EXPECT_EQ(0, r.status) << r.out << r.err;
    EXPECT_NE(std::string::npos, r.out.find("studies: 3 in the manifest, 3 done, 0 failed, 0 left\n")) << r.out;
    EXPECT_EQ("Archive^Run", attribute(damaged, DCM_PatientName));

    ASSERT_TRUE(writeFile(root.file("bad"), kqr + " " + root.file("s1") + "\n"));
    argv = args;
    argv.push_back(root.file("bad"));
    r = run(argv);
    EXPECT_EQ(2, r.status);
    EXPECT_EQ("apply-archive: " + root.file("bad") + " line 1: expected <KqR file><tab><study directory>\n", r.err);
}
