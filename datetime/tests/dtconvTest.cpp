// Zone strings, the TZ handling and the conversions of dates, times and date-times between
// UTC offsets.
#include "datetime/Dicom2LocalConverter.h"
#include "datetime/DicomToTimeZone.h"
#include "datetime/OffsetAdjustedDataset.h"
#include "datetime/TimeZoneFiller.h"
#include "datetime/tests/TimeZoneGuard.h"
#include "datetime/TimeZoneToLocal.h"
#include "datetime/dtconv.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

using namespace kqtz;

namespace {

std::string value(DcmItem& item, const DcmTagKey& key)
{
    OFString text;
    if (item.findAndGetOFStringArray(key, text, OFFalse).bad())
        return "<missing>";
    return text.c_str();
}

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
    std::string date() { return value(*item, DCM_StudyDate); }
    std::string time() { return value(*item, DCM_StudyTime); }
    std::string offset() { return value(data, DCM_TimezoneOffsetFromUTC); }
};

// Adjusts a change dataset to a target offset and returns "date time".
std::string adjusted(const char* from, const char* date, const char* time, const std::string& to)
{
    Changes changes(from, date, time);
    OffsetAdjustedDataset adjuster(&changes.data);
    EXPECT_TRUE(adjuster.adjust(to));
    return changes.date() + " " + changes.time();
}

} // namespace

TEST(TimeZone, DicomOffsetToTimeZone)
{
    const char* cases[][2] = {{"+0530", "XXX-5:30"}, {"-0800", "XXX+8"},   {"+0000", "XXX-0"},
                              {"+1000", "XXX-10"},   {"-0345", "XXX+3:45"}, {"+1400", "XXX-14"}};
    for (const auto& c : cases)
    {
        std::string tz;
        EXPECT_TRUE(dicomOffsetToTimeZone(c[0], tz));
        EXPECT_EQ(c[1], tz) << c[0];
    }
    for (const char* bad : {"+530", "", "0530", "+05300", "+05a0", " +0530", "05:30"})
    {
        std::string tz = "kept";
        EXPECT_FALSE(dicomOffsetToTimeZone(bad, tz));
        EXPECT_EQ("kept", tz) << bad;
    }
    std::string empty;
    dicomOffsetToTimeZone("+530", empty);
    EXPECT_EQ("", empty);
    EXPECT_EQ("+0530", secondsToDicomOffset(19800));
    EXPECT_EQ("-0800", secondsToDicomOffset(-28800));
    EXPECT_EQ("+0000", secondsToDicomOffset(0));
}

TEST(TimeZone, SetTimeZoneAndNowInUTCOffset)
{
    TimeZoneGuard guard;
    setTimeZone("XXX-3");
    EXPECT_STREQ("XXX-3", getenv("TZ"));
    setTimeZone(nullptr);
    EXPECT_STREQ("XXX-3", getenv("TZ"));

    tm east;
    tm west;
    ASSERT_TRUE(nowInUTCOffset("+0530", east));
    ASSERT_TRUE(nowInUTCOffset("-0800", west));
    EXPECT_EQ(19800, east.tm_gmtoff);
    EXPECT_EQ(-28800, west.tm_gmtoff);
    EXPECT_STREQ("XXX-3", getenv("TZ"));
    tm local;
    ASSERT_TRUE(nowInUTCOffset("+530", local)); // no zone: local time
    EXPECT_EQ(3 * 3600, local.tm_gmtoff);

    setTimeZone("");
    EXPECT_EQ(nullptr, getenv("TZ"));
    ASSERT_TRUE(nowInUTCOffset("+0100", east));
    EXPECT_EQ(3600, east.tm_gmtoff);
    EXPECT_EQ(nullptr, getenv("TZ"));
}

TEST(OffsetAdjustedDataset, RollsOverDaysMonthsAndYears)
{
    TimeZoneGuard guard;
    EXPECT_EQ("20191231 233000", adjusted("+0100", "20200101", "003000", "+0000"));
    EXPECT_EQ("20200101 003000", adjusted("+0000", "20191231", "233000", "+0100"));
    EXPECT_EQ("20200201 050000", adjusted("+0000", "20200131", "233000", "+0530"));
    EXPECT_EQ("20200301 010000", adjusted("+0000", "20200229", "230000", "+0200")); // leap day
    EXPECT_EQ("20190228 160000", adjusted("+0000", "20190301", "000000", "-0800"));
    EXPECT_EQ("20200101 050000", adjusted("+0100", "20200101", "003000", "+0530"));
    EXPECT_EQ("20191231 153000", adjusted("+0100", "20200101", "003000", "-0800"));
    EXPECT_EQ("20200615 204500", adjusted("-0345", "20200615", "120000", "+0500"));
}

TEST(OffsetAdjustedDataset, KeepsPrecisionAndFractions)
{
    TimeZoneGuard guard;
    EXPECT_EQ("20200101 173456.789", adjusted("+0000", "20200101", "123456.789", "+0500"));
    EXPECT_EQ("20191231 233000.000001", adjusted("+0100", "20200101", "003000.000001", "+0000"));
    EXPECT_EQ("20191231 2330", adjusted("+0100", "20200101", "0030", "+0000")); // HHMM stays HHMM
    EXPECT_EQ("20200101 11", adjusted("+0100", "20200101", "12", "+0000"));
    EXPECT_EQ("20200101 1730", adjusted("+0000", "20200101", "12", "+0530")); // gains its minutes
    EXPECT_EQ("20191231 233000", adjusted("+0100", "2020.01.01", "00:30:00", "+0000"));
}

TEST(OffsetAdjustedDataset, MultiValuedAndUnparseableValues)
{
    TimeZoneGuard guard;
    EXPECT_EQ("20191231\\20200615 233000\\110000",
              adjusted("+0100", "20200101\\20200615", "003000\\120000", "+0000"));
    // Unequal multiplicity: left alone.
    EXPECT_EQ("20200101\\20200615 003000", adjusted("+0100", "20200101\\20200615", "003000", "+0000"));
    // A value position that does not parse keeps its text; the others are converted.
    EXPECT_EQ("20201301\\20191231 003000\\233000",
              adjusted("+0100", "20201301\\20200101", "003000\\003000", "+0000"));
    EXPECT_EQ("20200101\\20191231 253000\\233000",
              adjusted("+0100", "20200101\\20200101", "253000\\003000", "+0000"));
    EXPECT_EQ("20200101 003", adjusted("+0100", "20200101", "003", "+0000"));
    EXPECT_EQ("20200101 1230.5", adjusted("+0100", "20200101", "1230.5", "+0000"));
    // Empty values and a date without its time stay as they are.
    EXPECT_EQ(" ", adjusted("+0100", "", "", "+0000"));
    EXPECT_EQ("20200101 <missing>", adjusted("+0100", "20200101", nullptr, "+0000"));
    EXPECT_EQ("<missing> 003000", adjusted("+0100", nullptr, "003000", "+0000"));
}

TEST(OffsetAdjustedDataset, EqualOffsetsConvertNothing)
{
    TimeZoneGuard guard;
    {
        Changes changes("+0100", "20200101", "003000");
        OffsetAdjustedDataset adjuster(&changes.data);
        EXPECT_TRUE(adjuster.adjust(std::string("+0100")));
        EXPECT_EQ("20200101 003000", changes.date() + " " + changes.time());
        EXPECT_EQ("+0100", changes.offset());
    }
    {
        Changes changes(nullptr, "20200101", "003000");
        DcmDataset target;
        OffsetAdjustedDataset adjuster(&changes.data);
        EXPECT_TRUE(adjuster.adjust(target));
        EXPECT_EQ("20200101 003000", changes.date() + " " + changes.time());
        EXPECT_EQ("<missing>", changes.offset());
    }
}

TEST(OffsetAdjustedDataset, ReadsTheTargetsTopLevelOffset)
{
    TimeZoneGuard guard;
    Changes changes("+0100", "20200101", "003000");
    DcmDataset target;
    target.putAndInsertString(DCM_TimezoneOffsetFromUTC, "-0800");
    DcmItem* nested = nullptr;
    target.findOrCreateSequenceItem(DCM_RequestAttributesSequence, nested, -2);
    nested->putAndInsertString(DCM_TimezoneOffsetFromUTC, "+0900");
    OffsetAdjustedDataset adjuster(&changes.data);
    EXPECT_TRUE(adjuster.adjust(target));
    EXPECT_EQ("20191231 153000", changes.date() + " " + changes.time());
    EXPECT_EQ("-0800", changes.offset());

    // A later target is reached from the offset recorded by the first adjustment.
    EXPECT_TRUE(adjuster.adjust(std::string("+0530")));
    EXPECT_EQ("20200101 050000", changes.date() + " " + changes.time());
    EXPECT_EQ("+0530", changes.offset());
}

TEST(OffsetAdjustedDataset, TargetWithoutOffsetMeansLocalTime)
{
    TimeZoneGuard guard;
    setenv("TZ", "XXX-2", 1);
    tzset();
    Changes changes("+0100", "20200101", "003000");
    DcmDataset target;
    {
        OffsetAdjustedDataset adjuster(&changes.data);
        EXPECT_TRUE(adjuster.adjust(target));
    }
    EXPECT_EQ("20200101 013000", changes.date() + " " + changes.time());
    EXPECT_EQ("<missing>", changes.offset());
    EXPECT_STREQ("XXX-2", getenv("TZ"));

    // And back: a change dataset without an offset is in local time.
    OffsetAdjustedDataset adjuster(&changes.data);
    EXPECT_TRUE(adjuster.adjust(std::string("+0000")));
    EXPECT_EQ("20191231 233000", changes.date() + " " + changes.time());
    EXPECT_EQ("+0000", changes.offset());
}

TEST(OffsetAdjustedDataset, PutsTZBackAsItWas)
{
    TimeZoneGuard guard;
    for (const char* before : {"Europe/Berlin", "XXX+7", ""})
    {
        setenv("TZ", before, 1);
        tzset();
        {
            Changes changes("+0100", "20200101", "003000");
            OffsetAdjustedDataset adjuster(&changes.data);
            EXPECT_TRUE(adjuster.adjust(std::string("-0800")));
            EXPECT_STRNE(before, getenv("TZ"));
        }
        ASSERT_NE(nullptr, getenv("TZ"));
        EXPECT_STREQ(before, getenv("TZ"));
    }
    unsetenv("TZ");
    tzset();
    {
        Changes changes("+0100", "20200101", "003000");
        OffsetAdjustedDataset adjuster(&changes.data);
        EXPECT_TRUE(adjuster.adjust(std::string("-0800")));
        EXPECT_NE(nullptr, getenv("TZ"));
    }
    EXPECT_EQ(nullptr, getenv("TZ"));
}

TEST(OffsetAdjustedDataset, DateTimeValues)
{
    TimeZoneGuard guard;
    Changes changes("+0100", nullptr, nullptr);
    changes.item->putAndInsertString(DCM_AcquisitionDateTime,
                                     "20200101003000\\20200101003000.25-0500\\20200101\\2020010100\\"
                                     "202001010030\\2020011\\20200101003000+0100");
    changes.data.putAndInsertString(DCM_DateTime, "20200101120000.123456");
    OffsetAdjustedDataset adjuster(&changes.data);
    EXPECT_TRUE(adjuster.adjust(std::string("+0000")));
    // Plain values move with the dataset; a value with its own offset moves from that offset
    // and takes the target's; values without an hour and unparseable ones are kept.
    EXPECT_EQ("20191231233000\\20200101053000.25+0000\\20200101\\2019123123\\"
              "201912312330\\2020011\\20191231233000+0000",
              value(*changes.item, DCM_AcquisitionDateTime));
    EXPECT_EQ("20200101110000.123456", value(changes.data, DCM_DateTime));
}

TEST(OffsetAdjustedDataset, StandardAndPrivatePairsAcrossTheDataset)
{
    TimeZoneGuard guard;
    Changes changes("+0100", "20200101", "003000");
    changes.data.putAndInsertString(DCM_ContentDate, "20200101");
    changes.data.putAndInsertString(DCM_ContentTime, "003000");
    // A private date never gets its time, so neither is converted.
    changes.item->putAndInsertString(DcmTag(0x0011, 0x0012, EVR_LO), "SIEMENS RIS");
    DcmTag date(0x0011, 0x1220, EVR_DA);
    date.setPrivateCreator("SIEMENS RIS");
    DcmTag time(0x0011, 0x1221, EVR_TM);
    time.setPrivateCreator("SIEMENS RIS");
    changes.item->putAndInsertString(date, "20200101");
    changes.item->putAndInsertString(time, "003000");

    OffsetAdjustedDataset adjuster(&changes.data);
    EXPECT_TRUE(adjuster.adjust(std::string("+0000")));
    EXPECT_EQ("20191231", value(changes.data, DCM_ContentDate));
    EXPECT_EQ("233000", value(changes.data, DCM_ContentTime));
    EXPECT_EQ("20191231 233000", changes.date() + " " + changes.time());
    EXPECT_EQ("20200101", value(*changes.item, DcmTagKey(0x0011, 0x1220)));
    EXPECT_EQ("003000", value(*changes.item, DcmTagKey(0x0011, 0x1221)));
}

TEST(PairwiseConvert, ElementsAndShiftForm)
{
    TimeZoneGuard guard;
    DcmDate date(DCM_StudyDate);
    DcmTime time(DCM_StudyTime);
    date.putString("20200101");
    time.putString("003000");
    EXPECT_TRUE(convert(date, time, "XXX-1", "XXX-0"));
    OFString text;
    date.getOFString(text, 0);
    EXPECT_EQ("20191231", text);
    time.getOFString(text, 0);
    EXPECT_EQ("233000", text);

    // Shift form: values already at the shift stay, others move to it.
    setTimeZone("CET-1CEST,M3.5.0,M10.5.0/3");
    const long winter = 3600;
    date.putString("20200101\\20200701");
    time.putString("120000\\120000");
    EXPECT_TRUE(convert(date, time, nullptr, nullptr, &winter));
    date.getOFStringArray(text);
    EXPECT_EQ("20200101\\20200701", text);
    time.getOFStringArray(text);
    EXPECT_EQ("120000\\110000", text);
}

TEST(TimeZoneFiller, FillsTheOffsetOfTheFirstPair)
{
    TimeZoneGuard guard;
    setenv("TZ", "XXX+5", 1);
    DcmDataset data;
    data.putAndInsertString(DCM_StudyDate, "20200101");
    data.putAndInsertString(DCM_StudyTime, "120000");
    data.putAndInsertString(DCM_ContentDate, "20200701");
    data.putAndInsertString(DCM_ContentTime, "120000.5");
    data.putAndInsertString(DCM_AcquisitionDateTime, "20200701120000");
    {
        TimeZoneFiller filler(&data, "CET-1CEST,M3.5.0,M10.5.0/3");
        EXPECT_TRUE(filler.fillTimeZone());
        EXPECT_EQ("+0100", filler.utcOffset());
    }
    EXPECT_STREQ("XXX+5", getenv("TZ"));
    EXPECT_EQ("+0100", value(data, DCM_TimezoneOffsetFromUTC));
    EXPECT_EQ("120000", value(data, DCM_StudyTime));
    EXPECT_EQ("20200701", value(data, DCM_ContentDate));
    EXPECT_EQ("110000.5", value(data, DCM_ContentTime));
    EXPECT_EQ("20200701110000", value(data, DCM_AcquisitionDateTime));

    // A dataset that has an offset keeps everything.
    TimeZoneFiller again(&data, "XXX-9");
    EXPECT_TRUE(again.fillTimeZone());
    EXPECT_EQ("+0100", value(data, DCM_TimezoneOffsetFromUTC));
    EXPECT_EQ("110000.5", value(data, DCM_ContentTime));
}

TEST(OtherConverters, DicomToLocalToZoneAndZoneToLocal)
{
    TimeZoneGuard guard;
    setenv("TZ", "XXX-2", 1);
    tzset();
    {
        DcmDataset data;
        data.putAndInsertString(DCM_StudyDate, "20200101");
        data.putAndInsertString(DCM_StudyTime, "003000");
        data.putAndInsertString(DCM_TimezoneOffsetFromUTC, "+0100");
        data.putAndInsertString(DCM_AcquisitionDateTime, "20200101003000");
        Dicom2LocalConverter converter(&data);
        EXPECT_TRUE(converter.convert());
        EXPECT_EQ("013000", value(data, DCM_StudyTime));
        EXPECT_EQ("20200101013000", value(data, DCM_AcquisitionDateTime));
        EXPECT_EQ("<missing>", value(data, DCM_TimezoneOffsetFromUTC));
    }
    {
        // No offset: the values are local already.
        DcmDataset data;
        data.putAndInsertString(DCM_StudyDate, "20200101");
        data.putAndInsertString(DCM_StudyTime, "003000");
        Dicom2LocalConverter converter(&data);
        EXPECT_TRUE(converter.convert());
        EXPECT_EQ("003000", value(data, DCM_StudyTime));
    }
    {
        DcmDataset data;
        data.putAndInsertString(DCM_StudyDate, "20200101");
        data.putAndInsertString(DCM_StudyTime, "003000");
        data.putAndInsertString(DCM_TimezoneOffsetFromUTC, "+0100");
        DicomToTimeZone converter(&data);
        EXPECT_TRUE(converter.convert("-0800"));
        EXPECT_EQ("20191231", value(data, DCM_StudyDate));
        EXPECT_EQ("153000", value(data, DCM_StudyTime));
        EXPECT_EQ("-0800", value(data, DCM_TimezoneOffsetFromUTC));
        EXPECT_TRUE(converter.convert("CET-1CEST,M3.5.0,M10.5.0/3"));
        EXPECT_EQ("003000", value(data, DCM_StudyTime));
        EXPECT_EQ("+0100", value(data, DCM_TimezoneOffsetFromUTC));
    }
    {
        DcmDataset data;
        data.putAndInsertString(DCM_StudyDate, "20200101");
        data.putAndInsertString(DCM_StudyTime, "003000");
        TimeZoneToLocal converter(&data);
        EXPECT_TRUE(converter.convert(""));
        EXPECT_EQ("003000", value(data, DCM_StudyTime));
        EXPECT_TRUE(converter.convert("+0100"));
        EXPECT_EQ("013000", value(data, DCM_StudyTime));
        EXPECT_TRUE(converter.convert("XXX+1"));
        EXPECT_EQ("20200101", value(data, DCM_StudyDate));
        EXPECT_EQ("043000", value(data, DCM_StudyTime));
    }
    EXPECT_STREQ("XXX-2", getenv("TZ"));
}
