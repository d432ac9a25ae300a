// Registry look-ups and the collection walk of DateTimeConverter.
#include "datetime/DateTimeConverter.h"
#include "datetime/dtregistry.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

using namespace kqtz;

namespace {

DcmItem* addItem(DcmItem& parent)
{
    DcmItem* item = nullptr;
    EXPECT_TRUE(parent.findOrCreateSequenceItem(DCM_RequestAttributesSequence, item, -2).good());
    return item;
}

DcmTag privateTag(Uint16 group, Uint16 element, DcmEVR vr, const char* creator)
{
    DcmTag tag(group, element, vr);
    tag.setPrivateCreator(creator);
    return tag;
}

std::string text(DcmElement* element)
{
    OFString value;
    return element && element->getOFString(value, 0).good() ? value.c_str() : "<none>";
}

} // namespace

TEST(DateTimeRegistry, FindForDate)
{
    struct Case
    {
        DcmTag tag;
        const DateTimeTagPair* expected;
        unsigned short base; // block base afterwards, starting from 0x4242
    };
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
        SCOPED_TRACE(c.tag.toString().c_str());
        unsigned short base = 0x4242;
        EXPECT_EQ(c.expected, theDateTimeRegistry.findForDate(c.tag, base));
        EXPECT_EQ(c.base, base);
    }
    // the pairs' time keys; row 6 pairs two times on purpose
    EXPECT_EQ(DcmTagKey(0x0008, 0x0013), dtregistry[0].time());
    EXPECT_EQ(DcmTagKey(0x0018, 0x0027), dtregistry[5].date());
    EXPECT_EQ(DcmTagKey(0x4008, 0x0113), dtregistry[DT_REGISTRY_SIZE - 1].time());
}

TEST(DateTimeCollection, PairsEveryRegisteredDateWithTheFirstMatchingTime)
{
    DcmDataset data;
    data.putAndInsertString(DCM_StudyDate, "20200101");
    data.putAndInsertString(DCM_StudyTime, "120000");
    data.putAndInsertString(DCM_SeriesTime, "130000");         // time without its date: ignored
    data.putAndInsertString(DCM_PatientBirthDate, "19700101"); // not registered
    data.putAndInsertString(DCM_AcquisitionDateTime, "20200101120000");
    // two dates in two items, then their time in the second: it goes to the first open pair
    addItem(data)->putAndInsertString(DCM_ContentDate, "20200102");
    DcmItem* second = addItem(data);
    second->putAndInsertString(DCM_ContentDate, "20200103");
    second->putAndInsertString(DCM_ContentTime, "030000");
    // a private date never finds its time
    data.putAndInsertString(DcmTag(0x0011, 0x0012, EVR_LO), "SIEMENS RIS");
    data.putAndInsertString(privateTag(0x0011, 0x1220, EVR_DA, "SIEMENS RIS"), "20200101");
    data.putAndInsertString(privateTag(0x0011, 0x1221, EVR_TM, "SIEMENS RIS"), "120000");

    DateTimeConverter converter(&data);
    EXPECT_TRUE(converter.collectTimes(&data, OTA_WALK_ALL));
    EXPECT_FALSE(converter.stopped());
    const DateTimeElementList& list = converter.dateTimes();
    ASSERT_EQ(4u, list.count());
    const char* expected[][3] = {{"20200101", "120000", "0000"},
                                 {"20200101", "<none>", "1200"},
                                 {"20200102", "030000", "0000"},
                                 {"20200103", "<none>", "0000"}};
    for (size_t i = 0; i < list.count(); ++i)
    {
        char base[8];
        snprintf(base, sizeof(base), "%04x", list.pair(i)->blockBase());
        EXPECT_EQ(std::string(expected[i][0]) + " " + expected[i][1] + " " + expected[i][2],
                  text(list.pair(i)->date()) + " " + text(list.pair(i)->time()) + " " + base);
    }
    EXPECT_EQ(1u, converter.timestamps().count());
}

TEST(DateTimeCollection, OffsetActions)
{
    DcmDataset data;
    data.putAndInsertString(DCM_InstanceCreationDate, "20200101");
    data.putAndInsertString(DCM_StudyDate, "20200101");
    data.putAndInsertString(DCM_TimezoneOffsetFromUTC, "+0100");
    data.putAndInsertString(DCM_PerformedProcedureStepStartDate, "20200101");
    // action, with offset, stopped, dates collected
    const int cases[][4] = {
        {OTA_STOP_AT_OFFSET, true, true, 2}, // nothing after (0008,0201)
        {OTA_OFFSET_FIRST, true, false, 3},
        {OTA_OFFSET_FIRST, false, true, 2}, // stops at the first date beyond (0008,0201)
        {OTA_WALK_ALL, false, false, 3},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::to_string(c[0]) + (c[1] ? " with offset" : " without offset"));
        if (!c[1])
            data.findAndDeleteElement(DCM_TimezoneOffsetFromUTC);
        DateTimeConverter converter(&data);
        EXPECT_TRUE(converter.collectTimes(&data, OFFSET_TAG_ACTION(c[0])));
        EXPECT_EQ(bool(c[2]), converter.stopped());
        EXPECT_EQ(bool(c[1]), converter.offsetFound());
        EXPECT_EQ(c[1] ? "+0100" : "", converter.offset());
        EXPECT_EQ(size_t(c[3]), converter.dateTimes().count());
    }
}
