// Registry look-ups and the collection walk of DateTimeConverter.
#include "datetime/DateTimeConverter.h"
#include "datetime/dtregistry.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

using namespace kqtz;

namespace {

DcmItem* addItem(DcmItem& parent, const DcmTagKey& sequence)
{
    DcmItem* item = nullptr;
    EXPECT_TRUE(parent.findOrCreateSequenceItem(sequence, item, -2).good());
    return item;
}

// Puts a private element with its creator into the block of the given number.
void putPrivate(DcmItem& item, Uint16 group, Uint8 block, Uint8 offset, DcmEVR vr, const char* creator,
                const char* value)
{
    ASSERT_TRUE(item.putAndInsertString(DcmTag(group, block, EVR_LO), creator).good());
    DcmTag tag(group, Uint16((block << 8) | offset), vr);
    tag.setPrivateCreator(creator);
    DcmElement* element = nullptr;
    ASSERT_TRUE(DcmItem::newDicomElementWithVR(element, tag).good());
    ASSERT_TRUE(element->putString(value).good());
    ASSERT_TRUE(item.insert(element, OFTrue).good());
}

} // namespace

TEST(DateTimeRegistry, TablesKeepTheirOrderAndOddities)
{
    EXPECT_EQ(DcmTagKey(0x0008, 0x0012), dtregistry[0].date());
    EXPECT_EQ(DcmTagKey(0x0008, 0x0013), dtregistry[0].time());
    // Row 6 pairs two times on purpose.
    EXPECT_EQ(DcmTagKey(0x0018, 0x0027), dtregistry[5].date());
    EXPECT_EQ(DcmTagKey(0x0018, 0x0035), dtregistry[5].time());
    EXPECT_EQ(DcmTagKey(0x300A, 0x022E), dtregistry[25].time());
    EXPECT_EQ(DcmTagKey(0x4008, 0x0113), dtregistry[DT_REGISTRY_SIZE - 1].time());

    EXPECT_EQ("KQ group A", privdtregistry[0].creator());
    EXPECT_EQ(DcmTagKey(0xF215, 0x0016), privdtregistry[0].time());
    EXPECT_EQ("SIEMENS CM VA0  CMS", privdtregistry[6].creator());
    EXPECT_EQ("SIEMENS CT VA0  COAD", privdtregistry[9].creator());
    EXPECT_EQ("astm.org/diconde/iod/NdeCtCalibrationData", privdtregistry[14].creator());
    EXPECT_EQ("astm.org/diconde/iod/NdeDxCalibrationData", privdtregistry[15].creator());
    EXPECT_EQ(DcmTagKey(0x0009, 0x0077), privdtregistry[15].time());
}

TEST(DateTimeRegistry, FindForDate)
{
    unsigned short base = 0x4242;
    const DateTimeTagPair* pair = theDateTimeRegistry.findForDate(DcmTag(DCM_StudyDate), base);
    ASSERT_EQ(&dtregistry[1], pair);
    EXPECT_EQ(DCM_StudyTime, pair->time());
    EXPECT_EQ(0x4242, base); // standard tags leave the block base alone
    EXPECT_EQ(nullptr, theDateTimeRegistry.findForDate(DcmTag(DCM_StudyTime), base));
    EXPECT_EQ(nullptr, theDateTimeRegistry.findForDate(DcmTag(DCM_PatientBirthDate), base));

    // Private: creator and block offset must match; the block number is free.
    DcmTag siemens(0x0011, 0x1220, EVR_DA);
    siemens.setPrivateCreator("SIEMENS RIS");
    pair = theDateTimeRegistry.findForDate(siemens, base);
    ASSERT_EQ(&privdtregistry[12], pair);
    EXPECT_EQ(0x1200, base);

    DcmTag diconde(0x0009, 0x1076, EVR_DA);
    diconde.setPrivateCreator("astm.org/diconde/iod/NdeDxCalibrationData");
    EXPECT_EQ(&privdtregistry[15], theDateTimeRegistry.findForDate(diconde, base));
    diconde.setPrivateCreator("astm.org/diconde/iod/NdeCtCalibrationData");
    EXPECT_EQ(&privdtregistry[14], theDateTimeRegistry.findForDate(diconde, base));

    base = 0;
    DcmTag oneSpace(0x0009, 0x1026, EVR_DA);
    oneSpace.setPrivateCreator("SIEMENS CM VA0 CMS");
    EXPECT_EQ(nullptr, theDateTimeRegistry.findForDate(oneSpace, base));
    DcmTag wrongOffset(0x0011, 0x1221, EVR_DA);
    wrongOffset.setPrivateCreator("SIEMENS RIS");
    EXPECT_EQ(nullptr, theDateTimeRegistry.findForDate(wrongOffset, base));
    EXPECT_EQ(nullptr, theDateTimeRegistry.findForDate(DcmTag(0x0011, 0x1220, EVR_DA), base)); // no creator
    EXPECT_EQ(0, base);
}

TEST(DateTimeCollection, PairsDatesWithTheirTimes)
{
    DcmDataset data;
    data.putAndInsertString(DCM_StudyDate, "20200101");
    data.putAndInsertString(DCM_StudyTime, "120000");
    data.putAndInsertString(DCM_SeriesTime, "130000"); // time without its date: ignored
    data.putAndInsertString(DCM_AcquisitionDateTime, "20200101120000");
    data.putAndInsertString(DCM_PatientBirthDate, "19700101"); // not registered
    DcmItem* first = addItem(data, DCM_RequestAttributesSequence);
    first->putAndInsertString(DCM_StudyDate, "20200102");
    first->putAndInsertString(DCM_StudyTime, "010000");
    DcmItem* second = addItem(data, DCM_RequestAttributesSequence);
    second->putAndInsertString(DCM_StudyDate, "20200103");
    second->putAndInsertString(DCM_StudyTime, "020000");

    DateTimeConverter converter(&data);
    EXPECT_TRUE(converter.collectTimes(&data, OTA_WALK_ALL));
    EXPECT_FALSE(converter.stopped());
    EXPECT_FALSE(converter.offsetFound());
    const DateTimeElementList& list = converter.dateTimes();
    ASSERT_EQ(3u, list.count());
    OFString value;
    list.pair(0)->date()->getOFString(value, 0);
    EXPECT_EQ("20200101", value);
    list.pair(0)->time()->getOFString(value, 0);
    EXPECT_EQ("120000", value);
    list.pair(1)->time()->getOFString(value, 0);
    EXPECT_EQ("010000", value);
    list.pair(2)->time()->getOFString(value, 0);
    EXPECT_EQ("020000", value);
    EXPECT_EQ(0, list.pair(0)->blockBase());
    ASSERT_EQ(1u, converter.timestamps().count());

    EXPECT_FALSE(converter.dateTimes().addDate(nullptr));
    converter.dateTimes().clear();
    converter.timestamps().clear();
    EXPECT_EQ(0u, converter.dateTimes().count());
    EXPECT_EQ(0u, converter.timestamps().count());
}

TEST(DateTimeCollection, TimesGoToTheFirstOpenPairInListOrder)
{
    // Two dates in different items, then both times at top level after the sequence: the
    // first time goes to the first pair.
    DcmDataset data;
    DcmItem* first = addItem(data, DCM_RequestAttributesSequence);
    first->putAndInsertString(DCM_StudyDate, "20200102");
    DcmItem* second = addItem(data, DCM_RequestAttributesSequence);
    second->putAndInsertString(DCM_StudyDate, "20200103");
    second->putAndInsertString(DCM_StudyTime, "030000");

    DateTimeConverter converter(&data);
    converter.collectTimes(&data, OTA_WALK_ALL);
    ASSERT_EQ(2u, converter.dateTimes().count());
    OFString value;
    ASSERT_NE(nullptr, converter.dateTimes().pair(0)->time());
    converter.dateTimes().pair(0)->time()->getOFString(value, 0);
    EXPECT_EQ("030000", value);
    EXPECT_EQ(nullptr, converter.dateTimes().pair(1)->time());
}

TEST(DateTimeCollection, PrivateDatesKeepNoTime)
{
    DcmDataset data;
    putPrivate(data, 0x0011, 0x12, 0x20, EVR_DA, "SIEMENS RIS", "20200101");
    putPrivate(data, 0x0011, 0x12, 0x21, EVR_TM, "SIEMENS RIS", "120000");
    putPrivate(data, 0x0013, 0x10, 0x10, EVR_DA, "SIEMENS RIS", "20200101"); // group of a row, other creator

    DateTimeConverter converter(&data);
    converter.collectTimes(&data, OTA_WALK_ALL);
    ASSERT_EQ(1u, converter.dateTimes().count());
    EXPECT_EQ(0x1200, converter.dateTimes().pair(0)->blockBase());
    EXPECT_EQ(DcmTagKey(0x0011, 0x0021), converter.dateTimes().pair(0)->keys().time());
    EXPECT_EQ(nullptr, converter.dateTimes().pair(0)->time());
}

TEST(DateTimeCollection, OffsetActions)
{
    DcmDataset data;
    data.putAndInsertString(DCM_InstanceCreationDate, "20200101");
    data.putAndInsertString(DCM_InstanceCreationTime, "100000");
    data.putAndInsertString(DCM_StudyDate, "20200101");
    data.putAndInsertString(DCM_StudyTime, "120000");
    data.putAndInsertString(DCM_TimezoneOffsetFromUTC, "+0100");
    data.putAndInsertString(DCM_PatientName, "Doe^Jane");
    data.putAndInsertString(DCM_PerformedProcedureStepStartDate, "20200101");

    {
        DateTimeConverter stopAtOffset(&data);
        EXPECT_TRUE(stopAtOffset.collectTimes(&data, OTA_STOP_AT_OFFSET));
        EXPECT_TRUE(stopAtOffset.stopped());
        EXPECT_TRUE(stopAtOffset.offsetFound());
        EXPECT_EQ("+0100", stopAtOffset.offset());
        EXPECT_EQ(2u, stopAtOffset.dateTimes().count()); // nothing after (0008,0201)
    }
    {
        DateTimeConverter offsetFirst(&data);
        EXPECT_TRUE(offsetFirst.collectTimes(&data, OTA_OFFSET_FIRST));
        EXPECT_FALSE(offsetFirst.stopped());
        EXPECT_EQ(3u, offsetFirst.dateTimes().count());
    }

    // Without an offset, action 1 stops at the first date beyond (0008,0201).
    data.findAndDeleteElement(DCM_TimezoneOffsetFromUTC);
    DateTimeConverter noOffset(&data);
    EXPECT_TRUE(noOffset.collectTimes(&data, OTA_OFFSET_FIRST));
    EXPECT_TRUE(noOffset.stopped());
    EXPECT_FALSE(noOffset.offsetFound());
    EXPECT_EQ(2u, noOffset.dateTimes().count());
    EXPECT_FALSE(noOffset.collectTimes(nullptr, OTA_WALK_ALL));
}

TEST(DateTimeCollection, PrintsListsAndTimes)
{
    DcmDataset data;
    data.putAndInsertString(DCM_StudyDate, "20200101");
    data.putAndInsertString(DCM_StudyTime, "120000");
    data.putAndInsertString(DCM_TimezoneOffsetFromUTC, "+0100");
    DcmItem* item = addItem(data, DCM_RequestAttributesSequence);
    item->putAndInsertString(DCM_AcquisitionDateTime, "20200101120000");
    item->putAndInsertString(DCM_PatientName, "Doe^Jane");

    DateTimeConverter converter(&data);
    converter.collectTimes(&data, OTA_WALK_ALL);
    std::ostringstream list;
    converter.dateTimes().print(list);
    std::ostringstream expected;
    expected << "DateTimeElementList\n DateTimeElementPair\n  {\n     Date: "
             << static_cast<const void*>(converter.dateTimes().pair(0)->date()) << "\n     Time: "
             << static_cast<const void*>(converter.dateTimes().pair(0)->time()) << "\n  }\n";
    EXPECT_EQ(expected.str(), list.str());

    std::ostringstream stamps;
    converter.timestamps().print(stamps);
    std::ostringstream expectedStamps;
    expectedStamps << "TimestampList\n TimestampElement\n  [\n     DateTime: "
                   << static_cast<const void*>(converter.timestamps().element(0)->dateTime()) << "\n  ]\n";
    EXPECT_EQ(expectedStamps.str(), stamps.str());

    testing::internal::CaptureStdout();
    converter.printTimes();
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos, printed.find("20200101120000"));
    EXPECT_NE(std::string::npos, printed.find("(0008,0201)"));
    EXPECT_NE(std::string::npos, printed.find("(0008,0030)"));
    EXPECT_EQ(std::string::npos, printed.find("Doe^Jane"));
}
