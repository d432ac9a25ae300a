// A KqR file recorded at one UTC offset, applied by applyChanges to a study whose objects sit
// at different offsets, writes each object's values in its own offset.
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dcdeftag.h"

#include <gtest/gtest.h>

#include <ctime>

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

// 2019-12-31 23:30 UTC as "YYYYMMDD HHMMSS" on the machine's own clock (no TZ).
std::string midnightHalfHourOnMachineClock()
{
    tm utc = {};
    utc.tm_year = 119;
    utc.tm_mon = 11;
    utc.tm_mday = 31;
    utc.tm_hour = 23;
    utc.tm_min = 30;
    const time_t moment = timegm(&utc);
    std::string text;
    {
        ScopedEnv noZone("TZ", nullptr);
        tzset();
        tm local;
        localtime_r(&moment, &local);
        char buffer[32];
        strftime(buffer, sizeof(buffer), "%Y%m%d %H%M%S", &local);
        text = buffer;
    }
    tzset();
    return text;
}

} // namespace

TEST(ApplyChangesOffsets, EachObjectGetsTheValuesInItsOwnOffset)
{
    ScopedEnv zone("TZ", "XXX+3"); // the programs' TZ: not the zone of an object without offset
    TempDir kqrDir;
    TempDir study;
    const std::vector<std::string> offsets = {"+0000", "+0530", "-0800", "", "+0100"};
    for (size_t i = 0; i < offsets.size(); ++i)
        ASSERT_TRUE(writeObject(study.file("IM" + std::to_string(i + 1)), objectAt(offsets[i], int(i + 1))));

    const std::string kqr = kqrDir.file("edit.kqr");
    RunResult r = run({program("makeKqR"), "-z", "+0100", "-m", "StudyDate=20200101", "-m", "StudyTime=003000.25",
                       "-S", objectAt("", 2).seriesUID, "-m", "SeriesDate=20200301", "-m", "SeriesTime=0015", kqr});
    ASSERT_EQ(0, r.status) << r.err;
    const std::string kqrBefore = readFile(kqr);

    r = run({program("applyChanges"), "-p", kqr, "-d", study.path()});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.err);
    const std::string expected[][2] = {
        {"20191231 233000.25", "<missing> <missing>"},
        {"20200101 050000.25", "20200301 044500"}, // written in full
        {"20191231 153000.25", "<missing> <missing>"},
        {midnightHalfHourOnMachineClock() + ".25", "<missing> <missing>"},
        {"20200101 003000.25", "<missing> <missing>"}, // at the KqR file's offset: as recorded
    };
    for (size_t i = 0; i < offsets.size(); ++i)
    {
        const std::string object = study.file("IM" + std::to_string(i + 1));
        SCOPED_TRACE(object);
        EXPECT_EQ(expected[i][0], dateTime(object, DCM_StudyDate, DCM_StudyTime));
        EXPECT_EQ(expected[i][1], dateTime(object, DCM_SeriesDate, DCM_SeriesTime));
        // every object keeps its own offset
        EXPECT_EQ(offsets[i].empty() ? "<missing>" : offsets[i], attribute(object, DCM_TimezoneOffsetFromUTC));
    }
    EXPECT_EQ(kqrBefore, readFile(kqr));
}
