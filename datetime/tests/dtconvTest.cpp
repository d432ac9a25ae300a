// Zone strings, the TZ handling and the conversions of dates, times and date-times between
// UTC offsets.
#include "datetime/Dicom2LocalConverter.h"
#include "datetime/DicomToTimeZone.h"
#include "datetime/OffsetAdjustedDataset.h"
#include "datetime/TimeZoneFiller.h"
#include "datetime/TimeZoneToLocal.h"
#include "datetime/dtconv.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

using namespace kqtz;
using fixtures::value;

namespace {

// Puts TZ, and the C library's zone with it, back as it was when a test ends.
struct TimeZoneGuard : fixtures::ScopedEnv
{
    TimeZoneGuard() : ScopedEnv("TZ", getenv("TZ")) {}
};

// A change dataset as a KqR file carries it: its offset at top level, the values in an item.
struct Changes
{
    DcmDataset data;
    DcmItem* item = nullptr;

    Changes(const char* offset, const char* date, const char* time)
    {
        if (offset)
            data.putAndInsertString(DCM_TimezoneOffsetFromUTC, offset);
        data.findOrCreateSequenceItem(DCM_RequestAttributesSequence, item, -2);
        if (date)
            item->putAndInsertString(DCM_StudyDate, date);
        if (time)
            item->putAndInsertString(DCM_StudyTime, time);
    }
    std::string dateTime() { return value(*item, DCM_StudyDate) + " " + value(*item, DCM_StudyTime); }
};

} // namespace

TEST(TimeZone, DicomOffsetToTimeZone)
{
    const char* cases[][2] = {{"+0530", "XXX-5:30"}, {"-0800", "XXX+8"}, {"+0000", "XXX-0"}, {"+1000", "XXX-10"},
                              {"+530", "kept"},      {"", "kept"},       {"0530", "kept"},  {"+05300", "kept"},
                              {"+05a0", "kept"}};
    for (const auto& c : cases)
    {
        std::string tz = "kept";
        EXPECT_EQ(strcmp(c[1], "kept") != 0, dicomOffsetToTimeZone(c[0], tz)) << c[0];
        EXPECT_EQ(c[1], tz) << c[0];
    }
}

TEST(TimeZone, SetTimeZoneAndNowInUTCOffset)
{
    TimeZoneGuard guard;
    setTimeZone("XXX-3");
    setTimeZone(nullptr);
    EXPECT_STREQ("XXX-3", getenv("TZ"));
    tm now;
    ASSERT_TRUE(nowInUTCOffset("-0800", now));
    EXPECT_EQ(-28800, now.tm_gmtoff);
    ASSERT_TRUE(nowInUTCOffset("+530", now)); // no zone: the process's own
    EXPECT_EQ(3 * 3600, now.tm_gmtoff);
    EXPECT_STREQ("XXX-3", getenv("TZ"));
    setTimeZone("");
    EXPECT_EQ(nullptr, getenv("TZ"));
}

TEST(OffsetAdjustedDataset, ConvertsDatesAndTimesInFull)
{
    TimeZoneGuard guard;
    // offset, date, time, target offset, date and time afterwards
    const char* const cases[][5] = {
        {"+0100", "20200101", "003000", "+0000", "20191231 233000"},
        {"+0000", "20200229", "230000", "+0200", "20200301 010000"}, // leap day
        {"+0100", "20200101", "003000", "-0800", "20191231 153000"},
        {"-0345", "20200615", "120000", "+0500", "20200615 204500"},
        // every converted time is written as HHMMSS, the fraction kept
        {"+0100", "20200101", "0030", "+0000", "20191231 233000"},
        {"+0100", "20200101", "12", "+0000", "20200101 110000"},
        {"+0100", "20200101", "003000.000001", "+0000", "20191231 233000.000001"},
        {"+0100", "2020.01.01", "00:30:00", "+0000", "20191231 233000"},
        // multi-valued: position by position; a position that does not parse keeps its text
        {"+0100", "20200101\\20200615", "003000\\120000", "+0000", "20191231\\20200615 233000\\110000"},
        {"+0100", "20201301\\20200101", "003000\\003000", "+0000", "20201301\\20191231 003000\\233000"},
        {"+0100", "20200101", "003", "+0000", "20200101 003"},
        // unequal multiplicity, or a date without its time: left alone
        {"+0100", "20200101\\20200615", "003000", "+0000", "20200101\\20200615 003000"},
        {"+0100", "20200101", nullptr, "+0000", "20200101 <missing>"},
        // equal offsets, both absent included: nothing to do
        {"+0100", "20200101", "0030", "+0100", "20200101 0030"},
        {nullptr, "20200101", "0030", "", "20200101 0030"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::string(c[0] ? c[0] : "-") + " " + c[1] + " " + (c[2] ? c[2] : "-") + " -> " + c[3]);
        Changes changes(c[0], c[1], c[2]);
        EXPECT_TRUE(OffsetAdjustedDataset(&changes.data).adjust(std::string(c[3])));
        EXPECT_EQ(c[4], changes.dateTime());
        EXPECT_EQ(*c[3] ? c[3] : "<missing>", value(changes.data, DCM_TimezoneOffsetFromUTC));
    }
}

TEST(OffsetAdjustedDataset, DateTimesAndPrivatePairs)
{
    TimeZoneGuard guard;
    Changes changes("+0100", nullptr, nullptr);
    changes.item->putAndInsertString(DCM_AcquisitionDateTime,
                                     "20200101003000\\2020010100\\20200101\\20200101003000.25-0500\\2020011");
    changes.item->putAndInsertString(DcmTag(0x0011, 0x0012, EVR_LO), "SIEMENS RIS");
    DcmTag date(0x0011, 0x1220, EVR_DA), time(0x0011, 0x1221, EVR_TM);
    date.setPrivateCreator("SIEMENS RIS");
    time.setPrivateCreator("SIEMENS RIS");
    changes.item->putAndInsertString(date, "20200101");
    changes.item->putAndInsertString(time, "003000");
    OffsetAdjustedDataset adjuster(&changes.data);
    EXPECT_TRUE(adjuster.adjust(std::string("+0000")));
    // Written in full, the fraction kept; a value with its own offset is converted from it and
    // written without one; an unparseable value stays.
    EXPECT_EQ("20191231233000\\20191231230000\\20191231230000\\20200101053000.25\\2020011",
              value(*changes.item, DCM_AcquisitionDateTime));
    // a private pair is never converted
    EXPECT_EQ("20200101 003000", value(*changes.item, date) + " " + value(*changes.item, time));
}

TEST(OffsetAdjustedDataset, TargetsOffsetOrTheMachinesZone)
{
    TimeZoneGuard guard;
    Changes changes("+0100", "20200101", "003000");
    DcmDataset target;
    target.putAndInsertString(DCM_TimezoneOffsetFromUTC, "-0800");
    DcmItem* nested = nullptr;
    target.findOrCreateSequenceItem(DCM_RequestAttributesSequence, nested, -2);
    nested->putAndInsertString(DCM_TimezoneOffsetFromUTC, "+0900");
    OffsetAdjustedDataset adjuster(&changes.data);
    EXPECT_TRUE(adjuster.adjust(target)); // the target's top-level offset
    EXPECT_EQ("20191231 153000", changes.dateTime());
    EXPECT_TRUE(adjuster.adjust(std::string("+0530"))); // on from the new offset
    EXPECT_EQ("20200101 050000", changes.dateTime());

    // a target without offset: the machine's zone, not the process's
    setenv("TZ", "XXX-13", 1);
    tzset();
    Changes local("+0100", "20200101", "003000");
    DcmDataset withoutOffset;
    EXPECT_TRUE(OffsetAdjustedDataset(&local.data).adjust(withoutOffset));
    EXPECT_EQ("<missing>", value(local.data, DCM_TimezoneOffsetFromUTC));
    EXPECT_STREQ("XXX-13", getenv("TZ"));
    tm utc = {};
    strptime("20191231233000", "%Y%m%d%H%M%S", &utc);
    const time_t moment = timegm(&utc);
    fixtures::ScopedEnv machine("TZ", nullptr);
    char text[32];
    strftime(text, sizeof(text), "%Y%m%d %H%M%S", localtime_r(&moment, &utc));
    EXPECT_EQ(text, local.dateTime());

    // an offset to delete that is not at top level
    Changes nestedOffset(nullptr, "20200101", "003000");
    nestedOffset.item->putAndInsertString(DCM_TimezoneOffsetFromUTC, "+0100");
    EXPECT_FALSE(OffsetAdjustedDataset(&nestedOffset.data).adjust(std::string()));
}

TEST(OffsetAdjustedDataset, PutsTZBackAsItWas)
{
    TimeZoneGuard guard;
    // an empty TZ is recorded as no TZ at all
    const char* cases[][2] = {{"Europe/Berlin", "Europe/Berlin"}, {"XXX+7", "XXX+7"}, {"", nullptr}, {nullptr, nullptr}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c[0] ? c[0] : "(unset)");
        fixtures::ScopedEnv before("TZ", c[0]);
        {
            Changes changes("+0100", "20200101", "003000");
            OffsetAdjustedDataset adjuster(&changes.data);
            EXPECT_TRUE(adjuster.adjust(std::string("-0800")));
            EXPECT_STREQ("XXX+8", getenv("TZ"));
        }
        EXPECT_STREQ(c[1] ? c[1] : "(unset)", getenv("TZ") ? getenv("TZ") : "(unset)");
    }
}

TEST(TimeZoneFiller, FillsTheOffsetOfTheFirstPairAcrossADaylightSavingChange)
{
    TimeZoneGuard guard;
    setenv("TZ", "XXX+5", 1);
    DcmDataset data;
    data.putAndInsertString(DCM_StudyDate, "20200101");
    data.putAndInsertString(DCM_StudyTime, "120000");
    data.putAndInsertString(DCM_ContentDate, "20200701");
    data.putAndInsertString(DCM_ContentTime, "120000.5");
    data.putAndInsertString(DCM_AcquisitionDateTime, "20200701120000");
    // an offset inside an item is not the dataset's own
    DcmItem* item = nullptr;
    data.findOrCreateSequenceItem(DCM_RequestAttributesSequence, item, -2);
    item->putAndInsertString(DCM_TimezoneOffsetFromUTC, "+0900");
    EXPECT_TRUE(TimeZoneFiller(&data, "CET-1CEST,M3.5.0,M10.5.0/3").fillTimeZone());
    EXPECT_STREQ("XXX+5", getenv("TZ"));
    EXPECT_EQ("+0100", value(data, DCM_TimezoneOffsetFromUTC));
    EXPECT_EQ("120000", value(data, DCM_StudyTime));
    // summer time values move to the winter offset of the first pair
    EXPECT_EQ("110000.5", value(data, DCM_ContentTime));
    EXPECT_EQ("20200701110000", value(data, DCM_AcquisitionDateTime));

    // a dataset with its own offset keeps everything
    EXPECT_TRUE(TimeZoneFiller(&data, "XXX-9").fillTimeZone());
    EXPECT_EQ("+0100", value(data, DCM_TimezoneOffsetFromUTC));
    EXPECT_EQ("110000.5", value(data, DCM_ContentTime));
}

TEST(OtherConverters, DicomToLocalToZoneAndZoneToLocal)
{
    TimeZoneGuard guard;
    setenv("TZ", "XXX-2", 1);
    tzset();
    DcmDataset data;
    data.putAndInsertString(DCM_StudyDate, "20200101");
    data.putAndInsertString(DCM_StudyTime, "003000");
    data.putAndInsertString(DCM_TimezoneOffsetFromUTC, "+0100");
    auto state = [&] {
        return value(data, DCM_StudyDate) + " " + value(data, DCM_StudyTime) + " " +
               value(data, DCM_TimezoneOffsetFromUTC);
    };
    EXPECT_TRUE(DicomToTimeZone(&data).convert("-0800"));
    EXPECT_EQ("20191231 153000 -0800", state());
    EXPECT_TRUE(Dicom2LocalConverter(&data).convert());
    EXPECT_EQ("20200101 013000 <missing>", state());
    EXPECT_TRUE(TimeZoneToLocal(&data).convert("+0100"));
    EXPECT_EQ("20200101 023000 <missing>", state());
    EXPECT_STREQ("XXX-2", getenv("TZ"));
}
