// Zones and TZ, conversions between UTC offsets, registry look-ups and DateTimeConverter's walk.
#include "datetime/DateTimeConverter.h"
#include "datetime/Dicom2LocalConverter.h"
#include "datetime/DicomToTimeZone.h"
#include "datetime/OffsetAdjustedDataset.h"
#include "datetime/TimeZoneFiller.h"
#include "datetime/TimeZoneToLocal.h"
#include "datetime/dtconv.h"
#include "datetime/dtregistry.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

using namespace kqtz;
using fixtures::value;

namespace {

DcmTag privateTag(Uint16 group, Uint16 element, DcmEVR vr, const char* creator)
{
    DcmTag tag(group, element, vr);
    tag.setPrivateCreator(creator);
    return tag;
}

void put(DcmItem& item, const std::vector<std::pair<DcmTag, const char*>>& values)
{
    for (const auto& v : values)
        EXPECT_TRUE(item.putAndInsertString(v.first, v.second).good()) << v.first.toString();
}

// A change dataset as a KqR file carries it: its offset at top level, the values in an item.
struct Changes
{
    DcmDataset data;
    DcmItem* item = nullptr;
    Changes(const char* offset, const char* date, const char* time)
    {
        data.findOrCreateSequenceItem(DCM_RequestAttributesSequence, item, -2);
        if (offset)
            data.putAndInsertString(DCM_TimezoneOffsetFromUTC, offset);
        if (date)
            item->putAndInsertString(DCM_StudyDate, date);
        if (time)
            item->putAndInsertString(DCM_StudyTime, time);
    }
    std::string dateTime() { return value(*item, DCM_StudyDate) + " " + value(*item, DCM_StudyTime); }
};

std::string text(DcmElement* element)
{
    OFString value;
    return element && element->getOFString(value, 0).good() ? value.c_str() : "<none>";
}

} // namespace

TEST(TimeZone, OffsetsZonesFillerAndLocalConverters)
{
    fixtures::ScopedEnv guard("TZ", getenv("TZ")); // TZ and the C library's zone back as they were
    const char* cases[][2] = {{"+0530", "XXX-5:30"}, {"-0800", "XXX+8"}, {"+0000", "XXX-0"}, {"+1000", "XXX-10"},
                              {"+530", "kept"},      {"", "kept"},       {"0530", "kept"},  {"+05300", "kept"},
                              {"+05a0", "kept"}};
    for (const auto& c : cases)
    {
        std::string tz = "kept";
        EXPECT_EQ(strcmp(c[1], "kept") != 0, dicomOffsetToTimeZone(c[0], tz)) << c[0];
        EXPECT_EQ(c[1], tz) << c[0];
    }
    // the process's zone: kept by a null zone, the zone of an offset only for now, removed by ""
    setTimeZone("XXX-3");
    setTimeZone(nullptr);
    EXPECT_STREQ("XXX-3", getenv("TZ"));
    tm now, own;
    ASSERT_TRUE(nowInUTCOffset("-0800", now) && nowInUTCOffset("+530", own)); // no zone: the process's own
    EXPECT_EQ(std::make_pair(-28800L, 3 * 3600L), std::make_pair(long(now.tm_gmtoff), long(own.tm_gmtoff)));
    EXPECT_STREQ("XXX-3", getenv("TZ"));
    setTimeZone("");
    EXPECT_EQ(nullptr, getenv("TZ"));

    // filling the offset across a daylight saving change
    setenv("TZ", "XXX+5", 1);
    DcmDataset data;
    put(data, {{DCM_StudyDate, "20200101"}, {DCM_StudyTime, "120000"}, {DCM_ContentDate, "20200701"},
               {DCM_ContentTime, "120000.5"}, {DCM_AcquisitionDateTime, "20200701120000"}});
    DcmItem* item = nullptr; // an offset inside an item is not the dataset's own
    data.findOrCreateSequenceItem(DCM_RequestAttributesSequence, item, -2);
    put(*item, {{DCM_TimezoneOffsetFromUTC, "+0900"}});
    // summer values move to the first pair's winter offset; with its own offset a dataset keeps all
    for (const char* zone : {"CET-1CEST,M3.5.0,M10.5.0/3", "XXX-9"})
    {
        EXPECT_TRUE(TimeZoneFiller(&data, zone).fillTimeZone());
        EXPECT_STREQ("XXX+5", getenv("TZ"));
        EXPECT_EQ("+0100 120000 110000.5 20200701110000",
                  value(data, DCM_TimezoneOffsetFromUTC) + " " + value(data, DCM_StudyTime) + " " +
                      value(data, DCM_ContentTime) + " " + value(data, DCM_AcquisitionDateTime));
    }

    // the other converters, in a process zone of XXX-2
    setenv("TZ", "XXX-2", 1);
    tzset();
    DcmDataset other;
    put(other, {{DCM_StudyDate, "20200101"}, {DCM_StudyTime, "003000"}, {DCM_TimezoneOffsetFromUTC, "+0100"}});
    auto state = [&] { return value(other, DCM_StudyDate) + " " + value(other, DCM_StudyTime) + " " +
                              value(other, DCM_TimezoneOffsetFromUTC); };
    EXPECT_TRUE(DicomToTimeZone(&other).convert("-0800") && state() == "20191231 153000 -0800") << state();
    EXPECT_TRUE(Dicom2LocalConverter(&other).convert() && state() == "20200101 013000 <missing>") << state();
    EXPECT_TRUE(TimeZoneToLocal(&other).convert("+0100") && state() == "20200101 023000 <missing>") << state();
    EXPECT_STREQ("XXX-2", getenv("TZ"));
}

TEST(OffsetAdjustedDataset, ConvertsDatesAndTimesInFull)
{
    fixtures::ScopedEnv guard("TZ", getenv("TZ"));
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
        {"+0100", "20200101", "0030", "+0100", "20200101 0030"}, {nullptr, "20200101", "0030", "", "20200101 0030"},
    };
    // TZ as it was before, and afterwards (an empty TZ comes back as none)
    const char* zones[][2] = {{"Europe/Berlin", "Europe/Berlin"}, {"XXX+7", "XXX+7"}, {"", nullptr},
                              {nullptr, nullptr}};
    int i = 0;
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::string(c[0] ? c[0] : "-") + " " + c[1] + " " + (c[2] ? c[2] : "-") + " -> " + c[3]);
        const auto& zone = zones[i++ % 4];
        fixtures::ScopedEnv before("TZ", zone[0]);
        Changes changes(c[0], c[1], c[2]);
        EXPECT_TRUE(OffsetAdjustedDataset(&changes.data).adjust(std::string(c[3])));
        EXPECT_EQ(c[4], changes.dateTime());
        EXPECT_EQ(*c[3] ? c[3] : "<missing>", value(changes.data, DCM_TimezoneOffsetFromUTC));
        EXPECT_STREQ(zone[1] ? zone[1] : "(unset)", getenv("TZ") ? getenv("TZ") : "(unset)");
    }
}

TEST(OffsetAdjustedDataset, TargetsOffsetOrTheMachinesZone)
{
    fixtures::ScopedEnv guard("TZ", getenv("TZ"));
    Changes changes("+0100", "20200101", "003000");
    const DcmTag date = privateTag(0x0011, 0x1220, EVR_DA, "SIEMENS RIS");
    const DcmTag time = privateTag(0x0011, 0x1221, EVR_TM, "SIEMENS RIS");
    put(*changes.item,
        {{DCM_AcquisitionDateTime, "20200101003000\\2020010100\\20200101\\20200101003000.25-0500\\2020011"},
         {DcmTag(0x0011, 0x0012, EVR_LO), "SIEMENS RIS"}, {date, "20200101"}, {time, "003000"}});
    Changes target("-0800", nullptr, nullptr); // the nested offset is not the target's
    put(*target.item, {{DCM_TimezoneOffsetFromUTC, "+0900"}});
    OffsetAdjustedDataset adjuster(&changes.data);
    EXPECT_TRUE(adjuster.adjust(target.data)); // the target's top-level offset
    EXPECT_EQ("20191231 153000", changes.dateTime());
    // date-times in full, fraction kept, own offset used and dropped, junk kept; private pairs stay
    EXPECT_EQ("20191231153000\\20191231150000\\20191231150000\\20191231213000.25\\2020011",
              value(*changes.item, DCM_AcquisitionDateTime));
    EXPECT_EQ("20200101 003000", value(*changes.item, date) + " " + value(*changes.item, time));
    EXPECT_TRUE(adjuster.adjust(std::string("+0530"))); // on from the new offset
    EXPECT_EQ("20200101 050000", changes.dateTime());

    // a target without offset: the machine's zone, not the process's
    setenv("TZ", "XXX-13", 1);
    tzset();
    Changes local("+0100", "20200101", "003000"), withoutOffset(nullptr, nullptr, nullptr);
    EXPECT_TRUE(OffsetAdjustedDataset(&local.data).adjust(withoutOffset.data));
    EXPECT_EQ("<missing>", value(local.data, DCM_TimezoneOffsetFromUTC));
    EXPECT_STREQ("XXX-13", getenv("TZ"));
    tm utc = {};
    strptime("20191231233000", "%Y%m%d%H%M%S", &utc);
    const time_t moment = timegm(&utc);
    fixtures::ScopedEnv machine("TZ", nullptr);
    char text[32];
    strftime(text, sizeof(text), "%Y%m%d %H%M%S", localtime_r(&moment, &utc));
    EXPECT_EQ(text, local.dateTime());

    Changes nestedOffset(nullptr, "20200101", "003000"); // an offset to delete, not at top level
    put(*nestedOffset.item, {{DCM_TimezoneOffsetFromUTC, "+0100"}});
    EXPECT_FALSE(OffsetAdjustedDataset(&nestedOffset.data).adjust(std::string()));
}

TEST(DateTimeRegistry, LookUpsAndTheCollectionWalk)
{
    struct Case { DcmTag tag; const DateTimeTagPair* expected; unsigned short base; }; // base from 0x4242
    const Case cases[] = {
        {DcmTag(DCM_StudyDate), &dtregistry[1], 0x4242}, // standard tags leave the base alone
        {DcmTag(DCM_StudyTime), nullptr, 0x4242},
        {DcmTag(DCM_PatientBirthDate), nullptr, 0x4242},
        {DcmTag(0x4008, 0x0112), &dtregistry[DT_REGISTRY_SIZE - 1], 0x4242},
        // private: creator and block offset must match; the block number is free
        {privateTag(0x0011, 0x1220, EVR_DA, "SIEMENS RIS"), &privdtregistry[12], 0x1200},
        {privateTag(0x0009, 0x1076, EVR_DA, "astm.org/diconde/iod/NdeCtCalibrationData"), &privdtregistry[14], 0x1000},
        {privateTag(0x0009, 0x1176, EVR_DA, "astm.org/diconde/iod/NdeDxCalibrationData"), &privdtregistry[15], 0x1100},
        {privateTag(0x0009, 0x1026, EVR_DA, "SIEMENS CM VA0  CMS"), &privdtregistry[6], 0x1000}, // two blanks
        {privateTag(0x0009, 0x1026, EVR_DA, "SIEMENS CM VA0 CMS"), nullptr, 0x4242},
        {privateTag(0x0011, 0x1221, EVR_DA, "SIEMENS RIS"), nullptr, 0x4242},
        {DcmTag(0x0011, 0x1220, EVR_DA), nullptr, 0x4242}, // no creator
    };
    for (const Case& c : cases)
    {
        unsigned short base = 0x4242;
        EXPECT_EQ(c.expected, theDateTimeRegistry.findForDate(c.tag, base)) << c.tag.toString();
        EXPECT_EQ(c.base, base) << c.tag.toString();
    }

    // walk: a lone time, an unregistered date and a private date's time are not paired
    DcmDataset data;
    put(data, {{DCM_StudyDate, "20200101"}, {DCM_StudyTime, "120000"}, {DCM_SeriesTime, "130000"},
               {DCM_PatientBirthDate, "19700101"}, {DCM_AcquisitionDateTime, "20200101120000"},
               {DcmTag(0x0011, 0x0012, EVR_LO), "SIEMENS RIS"},
               {privateTag(0x0011, 0x1220, EVR_DA, "SIEMENS RIS"), "20200101"},
               {privateTag(0x0011, 0x1221, EVR_TM, "SIEMENS RIS"), "120000"}});
    // two dates in two items, then their time in the second: it goes to the first open pair
    DcmItem *first = nullptr, *second = nullptr;
    data.findOrCreateSequenceItem(DCM_RequestAttributesSequence, first, -2);
    data.findOrCreateSequenceItem(DCM_RequestAttributesSequence, second, -2);
    put(*first, {{DCM_ContentDate, "20200102"}});
    put(*second, {{DCM_ContentDate, "20200103"}, {DCM_ContentTime, "030000"}});
    DateTimeConverter converter(&data);
    EXPECT_TRUE(converter.collectTimes(&data, OTA_WALK_ALL));
    EXPECT_FALSE(converter.stopped());
    const DateTimeElementList& list = converter.dateTimes();
    ASSERT_EQ(4u, list.count());
    const char* expected[] = {"20200101 120000 0000", "20200101 <none> 1200", "20200102 030000 0000",
                              "20200103 <none> 0000"};
    for (size_t i = 0; i < list.count(); ++i)
    {
        char base[8];
        snprintf(base, sizeof(base), "%04x", list.pair(i)->blockBase());
        EXPECT_EQ(expected[i], text(list.pair(i)->date()) + " " + text(list.pair(i)->time()) + " " + base);
    }
    EXPECT_EQ(1u, converter.timestamps().count());

    DcmDataset offsetData;
    put(offsetData, {{DCM_InstanceCreationDate, "20200101"}, {DCM_StudyDate, "20200101"},
               {DCM_TimezoneOffsetFromUTC, "+0100"}, {DCM_PerformedProcedureStepStartDate, "20200101"}});
    // action, with offset, stopped, dates collected (stopping: nothing after (0008,0201))
    const int actions[][4] = {{OTA_STOP_AT_OFFSET, true, true, 2}, {OTA_OFFSET_FIRST, true, false, 3},
                            {OTA_OFFSET_FIRST, false, true, 2}, {OTA_WALK_ALL, false, false, 3}};
    for (const auto& c : actions)
    {
        SCOPED_TRACE(std::to_string(c[0]) + (c[1] ? " with offset" : " without offset"));
        if (!c[1])
            offsetData.findAndDeleteElement(DCM_TimezoneOffsetFromUTC);
        DateTimeConverter converter(&offsetData);
        EXPECT_TRUE(converter.collectTimes(&offsetData, OFFSET_TAG_ACTION(c[0])));
        EXPECT_EQ(bool(c[2]), converter.stopped());
        EXPECT_EQ(bool(c[1]), converter.offsetFound());
        EXPECT_EQ(c[1] ? "+0100" : "", converter.offset());
        EXPECT_EQ(size_t(c[3]), converter.dateTimes().count());
    }
}
