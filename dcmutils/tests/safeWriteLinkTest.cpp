// The safe writer's temporary file is created new: a link planted at its predictable name is
// replaced, never written through.
#include "dcmutils/dcmutils.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dcdeftag.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

TEST(WriteDicomFile, NeverWritesThroughALinkAtTheTemporaryName)
{
    fixtures::TempDir dir;
    const std::string victim = dir.file("victim");
    ASSERT_TRUE(fixtures::writeFile(victim, "not to be overwritten"));
    const std::string target = dir.file("target.dcm");
    counter = 41;
    const std::string temporary = target + ".wtmp." + std::to_string(getpid()) + ".42";
    ASSERT_EQ(0, symlink(victim.c_str(), temporary.c_str()));

    DcmFileFormat fresh;
    fresh.getDataset()->putAndInsertString(DCM_PatientName, "Doe^John");
    EXPECT_TRUE(writeDicomFile(target.c_str(), &fresh));
    EXPECT_EQ("not to be overwritten", fixtures::readFile(victim));
    EXPECT_EQ("Doe^John", fixtures::attribute(target, DCM_PatientName));
    struct stat st;
    ASSERT_EQ(0, lstat(target.c_str(), &st));
    EXPECT_TRUE(S_ISREG(st.st_mode));
}
