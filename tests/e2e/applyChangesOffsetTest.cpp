// End to end: a KqR file recorded at one UTC offset, applied by applyChanges to a study whose
// objects sit at different offsets, writes each object's values in its own offset.
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dcdeftag.h"

#include <gtest/gtest.h>

using namespace fixtures;

namespace {

ObjectSpec objectAt(const std::string& offset, int number)
{
    ObjectSpec spec;
    spec.timezoneOffset = offset;
    spec.seriesUID = "1.2.826.0.1.3680043.2.1125.1.1." + std::to_string(number);
    spec.sopInstanceUID = spec.seriesUID + ".1";
    spec.withPixelData = false;
    return spec;
}

std::string dateTime(const std::string& path, const DcmTagKey& date, const DcmTagKey& time)
{
    return attribute(path, date) + " " + attribute(path, time);
}

} // namespace

TEST(ApplyChangesOffsets, EachObjectGetsTheValuesInItsOwnOffset)
{
    ScopedEnv zone("TZ", "XXX+3"); // the local zone of the programs run below

    TempDir kqrDir;
    TempDir study;
    const std::vector<std::string> offsets = {"+0000", "+0530", "-0800", ""};
    for (size_t i = 0; i < offsets.size(); ++i)
        ASSERT_TRUE(writeObject(study.file("IM" + std::to_string(i + 1)), objectAt(offsets[i], int(i + 1))));

    const std::string kqr = kqrDir.file("edit.kqr");
    const std::string series2 = objectAt("", 2).seriesUID;
    RunResult r = run({program("makeKqR"), "-z", "+0100", "-m", "StudyDate=20200101", "-m", "StudyTime=003000",
                       "-S", series2, "-m", "SeriesDate=20200301", "-m", "SeriesTime=0015", kqr});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("+0100", attribute(kqr, DCM_TimezoneOffsetFromUTC));
    const std::string kqrBefore = readFile(kqr);

    r = run({program("applyChanges"), "-p", kqr, "-d", study.path()});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.err);

    EXPECT_EQ("20191231 233000", dateTime(study.file("IM1"), DCM_StudyDate, DCM_StudyTime));
    EXPECT_EQ("20200101 050000", dateTime(study.file("IM2"), DCM_StudyDate, DCM_StudyTime));
    EXPECT_EQ("20191231 153000", dateTime(study.file("IM3"), DCM_StudyDate, DCM_StudyTime));
    // Without an offset an object is in the local time of the run.
    EXPECT_EQ("20191231 203000", dateTime(study.file("IM4"), DCM_StudyDate, DCM_StudyTime));
    // Series-level values are converted too, in their own precision.
    EXPECT_EQ("20200301 0445", dateTime(study.file("IM2"), DCM_SeriesDate, DCM_SeriesTime));
    EXPECT_EQ("<missing> <missing>", dateTime(study.file("IM1"), DCM_SeriesDate, DCM_SeriesTime));

    // The objects keep their own offsets, and the KqR file is not rewritten.
    EXPECT_EQ("+0000", attribute(study.file("IM1"), DCM_TimezoneOffsetFromUTC));
    EXPECT_EQ("+0530", attribute(study.file("IM2"), DCM_TimezoneOffsetFromUTC));
    EXPECT_EQ("-0800", attribute(study.file("IM3"), DCM_TimezoneOffsetFromUTC));
    EXPECT_EQ("<missing>", attribute(study.file("IM4"), DCM_TimezoneOffsetFromUTC));
    EXPECT_EQ(kqrBefore, readFile(kqr));
}

TEST(ApplyChangesOffsets, SingleObjectAtTheKqROffsetIsNotConverted)
{
    TempDir dir;
    const std::string object = dir.file("IM1");
    ASSERT_TRUE(writeObject(object, objectAt("+0100", 1)));
    const std::string kqr = dir.file("KqR.edit");
    RunResult r = run({program("makeKqR"), "-z", "+0100", "-m", "StudyDate=20200101", "-m", "StudyTime=003000.25",
                       kqr});
    ASSERT_EQ(0, r.status) << r.err;

    r = run({program("applyChanges"), "-p", kqr, "-o", object});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("20200101 003000.25", dateTime(object, DCM_StudyDate, DCM_StudyTime));
}
