// Finding and reserving the block, the accessors and element insertion.
#include "privatetags/tests/KQTestSupport.h"

#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcvrlo.h"
#include "dcmtk/dcmdata/dcvrus.h"

#include <gtest/gtest.h>

using namespace kqtest;

TEST(KQItemBlock, EmptyDatasetUsesFirstFreeSlotWithoutWriting)
{
    DcmDataset ds;
    ds.putAndInsertString(DCM_PatientName, "Doe^John");
    KQItem kq(ds);
    EXPECT_FALSE(kq.isCalculated());
    EXPECT_EQ(0, kq.getBlockBase());

    const char* value = "untouched";
    EXPECT_EQ(EC_TagNotFound, kq.findAndGetKQString(0x15, value));
    EXPECT_TRUE(kq.isCalculated());
    EXPECT_FALSE(kq.isReserved());
    EXPECT_EQ(0x1000, kq.getBlockBase());
    EXPECT_EQ(1u, ds.card());

    DcmItem* change = NULL;
    EXPECT_EQ(EC_TagNotFound, kq.findAndGetKQSequenceItem(0x62, change, 0));
    EXPECT_EQ(nullptr, change);
    EXPECT_EQ(1u, ds.card());

    // the first write reserves the slot
    EXPECT_TRUE(kq.putAndInsertKQString(0x15, "20240131").good());
    EXPECT_TRUE(kq.isReserved());
    EXPECT_EQ(KQ_PRIVATE_CREATOR, stringOf(ds, f215(0x0010)));
    EXPECT_EQ("20240131", stringOf(ds, f215(0x1015)));
    DcmElement* element = NULL;
    ASSERT_TRUE(kq.findAndGetKQElement(0x15, element).good());
    EXPECT_EQ(EVR_DA, element->ident());
}

TEST(KQItemBlock, SearchesCreatorSlotsInOrder)
{
    {
        // taken slots are skipped; the first free one wins
        DcmItem item;
        putCreator(item, 0x10, "A");
        putCreator(item, 0x11, "B");
        putCreator(item, 0x12, "C");
        KQItem kq(item);
        EXPECT_TRUE(kq.calcPrivateBlock(false));
        EXPECT_EQ(0x1300, kq.getBlockBase());
        EXPECT_FALSE(kq.isReserved());
        EXPECT_TRUE(kq.insertKQEmptyElement(0x3A).good());
        EXPECT_EQ(KQ_PRIVATE_CREATOR, stringOf(item, f215(0x0013)));
        EXPECT_TRUE(has(item, f215(0x133A)));
    }
    {
        // our creator behind other creators is found and counts as reserved
        DcmItem item;
        putCreator(item, 0x10, "A");
        putCreator(item, 0x11, "B");
        putCreator(item, 0x12, KQ_PRIVATE_CREATOR);
        putPrivate(item, 0x1215, "20200101", EVR_DA);
        KQItem kq(item);
        const char* value = NULL;
        ASSERT_TRUE(kq.findAndGetKQString(0x15, value).good());
        EXPECT_STREQ("20200101", value);
        EXPECT_EQ(0x1200, kq.getBlockBase());
        EXPECT_TRUE(kq.isReserved());
    }
    {
        // a creator after a free slot is not seen: the free slot comes first
        DcmItem item;
        putCreator(item, 0x10, "A");
        putCreator(item, 0x12, KQ_PRIVATE_CREATOR);
        putPrivate(item, 0x1215, "20200101", EVR_DA);
        KQItem kq(item);
        const char* value = NULL;
        EXPECT_EQ(EC_TagNotFound, kq.findAndGetKQString(0x15, value));
        EXPECT_EQ(0x1100, kq.getBlockBase());
        EXPECT_FALSE(kq.isReserved());
    }
    {
        // an empty creator element is someone else's slot
        DcmItem item;
        item.insertEmptyElement(DcmTag(f215(0x0010), DcmVR(EVR_LO)));
        KQItem kq(item);
        EXPECT_TRUE(kq.calcPrivateBlock(false));
        EXPECT_EQ(0x1100, kq.getBlockBase());
    }
    {
        // every slot taken
        DcmItem item;
        for (Uint16 block = 0x10; block <= 0xFF; ++block)
            putCreator(item, block, "Other");
        KQItem kq(item);
        EXPECT_FALSE(kq.calcPrivateBlock(false));
        EXPECT_FALSE(kq.isCalculated());
        EXPECT_EQ(EC_KQPrivateTagProblem, kq.putAndInsertKQString(0x15, "20200101"));
        EXPECT_EQ(240u, item.card());
    }
}

TEST(KQItemBlock, UnreadableCreatorSlotStopsTheSearch)
{
    LogCapture log;
    DcmItem item;
    Uint16 number = 7;
    item.putAndInsertUint16Array(DcmTag(f215(0x0010), DcmVR(EVR_US)), &number, 1);
    putCreator(item, 0x11, KQ_PRIVATE_CREATOR);
    putPrivate(item, 0x1115, "20200101", EVR_DA);
    KQItem kq(item);

    EXPECT_FALSE(kq.calcPrivateBlock(false));
    EXPECT_EQ(nullptr, kq.removeKQ(0x15));
    EXPECT_EQ(std::vector<std::string>{"couldn't calc"}, log.lines());

    const char* value = NULL;
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.findAndGetKQString(0x15, value));
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.putAndInsertKQString(0x15, "x"));
    DcmItem* sub = NULL;
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.findOrCreateKQSequenceItem(0x62, sub));
    DcmTag tag;
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.getTag(0x15, tag));
    DcmTagKey key = f215(0x0015);
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.adjustPrivateTag(key));
    DcmTagKey publicKey(0x0010, 0x0010);
    EXPECT_TRUE(kq.adjustPrivateTag(publicKey).good());
    EXPECT_EQ(DcmTagKey(0x0010, 0x0010), publicKey);
    EXPECT_EQ(3u, item.card());
}

TEST(KQItemBlock, CreatorElementsMetWhileWalking)
{
    DcmItem item;
    KQItem kq(item);
    EXPECT_EQ(0, kq.checkPrivateCreatorElement(NULL));

    DcmLongString otherGroup(DcmTag(0x0009, 0x0010, DcmVR(EVR_LO)));
    otherGroup.putString(KQ_PRIVATE_CREATOR);
    EXPECT_EQ(0, kq.checkPrivateCreatorElement(&otherGroup));

    DcmLongString dataElement(DcmTag(f215(0x1110), DcmVR(EVR_LO)));
    dataElement.putString(KQ_PRIVATE_CREATOR);
    EXPECT_EQ(0, kq.checkPrivateCreatorElement(&dataElement));

    DcmItem notAnElement;
    EXPECT_EQ(0, kq.checkPrivateCreatorElement(&notAnElement));

    DcmUnsignedShort number(DcmTag(f215(0x0012), DcmVR(EVR_US)));
    number.putUint16(3);
    EXPECT_EQ(0, kq.checkPrivateCreatorElement(&number));

    DcmLongString foreign(DcmTag(f215(0x0011), DcmVR(EVR_LO)));
    foreign.putString("KQ group A2");
    EXPECT_EQ(3, kq.checkPrivateCreatorElement(&foreign));
    EXPECT_FALSE(kq.isCalculated());

    DcmLongString ours(DcmTag(f215(0x0014), DcmVR(EVR_LO)));
    ours.putString(KQ_PRIVATE_CREATOR);
    EXPECT_EQ(2, kq.checkPrivateCreatorElement(&ours));
    EXPECT_EQ(0x1400, kq.getBlockBase());
    EXPECT_TRUE(kq.isReserved());
    EXPECT_TRUE(kq.isCalculated());
    EXPECT_EQ(1, kq.checkPrivateCreatorElement(&foreign));
    EXPECT_EQ(1, kq.checkPrivateCreatorElement(NULL));

    // the block was taken from the walker: nothing is written on reading or tagging
    EXPECT_EQ(f215(0x1462), kq.getTag(0x62).getXTag());
    EXPECT_EQ(0u, item.card());
    DcmLongString element(DcmTag(f215(0x143A), DcmVR(EVR_LO)));
    EXPECT_TRUE(kq.isObjectOurPrivateElement(&element, 0x3A));
    EXPECT_FALSE(kq.isObjectOurPrivateElement(&element, 0x3B));
    EXPECT_FALSE(kq.isObjectOurPrivateElement(NULL, 0x3A));
}

TEST(KQItemBlock, OldBlockOwnership)
{
    DcmItem item;
    KQItem kq(item);
    EXPECT_TRUE(kq.isOldBlockOurs(0xBA)); // no creator element at all
    putCreator(item, 0xBA, KQ_LEGACY_CREATOR);
    EXPECT_TRUE(kq.isOldBlockOurs(0xBA));
    putCreator(item, 0xDA, "Morvellanite2");
    EXPECT_FALSE(kq.isOldBlockOurs(0xDA));
    item.insertEmptyElement(DcmTag(f215(0x00DA), DcmVR(EVR_LO)), OFTrue);
    EXPECT_TRUE(kq.isOldBlockOurs(0xDA)); // no value
    delete item.remove(f215(0x00DA));
    ASSERT_NE(nullptr, appendItem(item, f215(0x00DA)));
    EXPECT_TRUE(kq.isOldBlockOurs(0xDA)); // unreadable
}

TEST(KQItemBlock, TagsAndKeysOfTheBlock)
{
    DcmItem item;
    putCreator(item, 0x10, "Other");
    KQItem kq(item);
    DcmTag tag;
    ASSERT_TRUE(kq.getTag(0x62, tag).good());
    EXPECT_EQ(f215(0x1162), tag.getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, tag.getPrivateCreator());
    EXPECT_EQ(EVR_SQ, tag.getEVR());
    EXPECT_EQ(KQ_PRIVATE_CREATOR, stringOf(item, f215(0x0011)));

    DcmTagKey key = f215(0x0064);
    EXPECT_TRUE(kq.adjustPrivateTag(key).good());
    EXPECT_EQ(f215(0x1164), key);
    DcmTagKey publicKey = DCM_PatientID;
    EXPECT_TRUE(kq.adjustPrivateTag(publicKey).good());
    EXPECT_EQ(DCM_PatientID, publicKey);

    // a second accessor over the same item agrees
    KQItem again(item);
    EXPECT_EQ(f215(0x1115), again.getTag(0x15).getXTag());
}

TEST(KQItemBlock, ChangeSequenceOfADataset)
{
    DcmDataset kqr;
    putCreator(kqr, 0x10, "Vendor X");
    putCreator(kqr, 0x11, "Vendor Y");
    {
        KQItem writer(kqr);
        DcmItem* change = NULL;
        ASSERT_TRUE(writer.findOrCreateKQSequenceItem(0x62, change, 0).good());
        ASSERT_NE(nullptr, change);
        change->putAndInsertString(DCM_PatientName, "New^Name");
        KQItem changeItem(*change);
        DcmItem* series = NULL;
        ASSERT_TRUE(changeItem.findOrCreateKQSequenceItem(0x63, series, -2).good());
        series->putAndInsertString(DCM_SeriesInstanceUID, "1.2.3");
        EXPECT_EQ(0x1000, changeItem.getBlockBase());
        EXPECT_EQ(KQ_PRIVATE_CREATOR, stringOf(*change, f215(0x0010)));
    }
    EXPECT_TRUE(has(kqr, f215(0x1262)));

    KQItem reader(kqr);
    DcmItem* change = NULL;
    ASSERT_TRUE(reader.findAndGetKQSequenceItem(0x62, change, 0).good());
    EXPECT_EQ("New^Name", stringOf(*change, DCM_PatientName));
    DcmItem* second = NULL;
    EXPECT_EQ(EC_IllegalParameter, reader.findAndGetKQSequenceItem(0x62, second, 1));

    KQItem changeReader(*change);
    DcmSequenceOfItems* seriesSeq = NULL;
    ASSERT_TRUE(changeReader.findAndGetKQSequence(0x63, seriesSeq).good());
    ASSERT_EQ(1u, seriesSeq->card());
    EXPECT_EQ("1.2.3", stringOf(*seriesSeq->getItem(0), DCM_SeriesInstanceUID));
    EXPECT_TRUE(changeReader.isObjectOurPrivateElement(seriesSeq, 0x63));

    // the series sequence lives only in the change item
    DcmSequenceOfItems* none = NULL;
    EXPECT_EQ(EC_TagNotFound, reader.findAndGetKQSequence(0x63, none));
}

TEST(KQItemBlock, SearchIntoSubItemsUsesEachItemsBlock)
{
    DcmDataset ds;
    putCreator(ds, 0x10, KQ_PRIVATE_CREATOR);
    putPrivate(ds, 0x103A, "top level");
    // first nested item: no KQ data at all
    appendItem(ds, DCM_ReferencedStudySequence)->putAndInsertString(DCM_StudyInstanceUID, "1.2");
    // second: its own block 0x11
    DcmItem* nested = appendItem(ds, DCM_ReferencedSeriesSequence);
    putCreator(*nested, 0x10, "Someone");
    putCreator(*nested, 0x11, KQ_PRIVATE_CREATOR);
    putPrivate(*nested, 0x1115, "20210304", EVR_DA);
    DcmItem* deeper = appendItem(*nested, DCM_ReferencedImageSequence);
    putCreator(*deeper, 0x10, KQ_PRIVATE_CREATOR);
    putPrivate(*deeper, 0x1016, "101010", EVR_TM);

    KQItem kq(ds);
    const char* value = NULL;
    EXPECT_EQ(EC_TagNotFound, kq.findAndGetKQString(0x15, value));
    ASSERT_TRUE(kq.findAndGetKQString(0x15, value, true).good());
    EXPECT_STREQ("20210304", value);
    ASSERT_TRUE(kq.findAndGetKQString(0x16, value, true).good());
    EXPECT_STREQ("101010", value);
    ASSERT_TRUE(kq.findAndGetKQString(0x3A, value, true).good());
    EXPECT_STREQ("top level", value);

    DcmElement* element = NULL;
    ASSERT_TRUE(kq.findAndGetKQElement(0x15, element, true).good());
    EXPECT_EQ(f215(0x1115), element->getTag().getXTag());
    EXPECT_EQ(EC_TagNotFound, kq.findAndGetKQElement(0x47, element, true));

    DcmSequenceOfItems* seq = NULL;
    EXPECT_EQ(EC_TagNotFound, kq.findAndGetKQSequence(0x62, seq, true));
    KQItem(*nested).insertKQEmptyElement(0x62);
    ASSERT_TRUE(kq.findAndGetKQSequence(0x62, seq, true).good());
    EXPECT_EQ(f215(0x1162), seq->getTag().getXTag());

    // the first answer other than "not found" ends the search, errors included
    DcmDataset broken;
    DcmItem* bad = appendItem(broken, DCM_ReferencedStudySequence);
    appendItem(*bad, f215(0x0010)); // a sequence where a creator belongs
    DcmItem* good = appendItem(broken, DCM_ReferencedSeriesSequence);
    putCreator(*good, 0x10, KQ_PRIVATE_CREATOR);
    putPrivate(*good, 0x1015, "20000101", EVR_DA);
    KQItem top(broken);
    LogCapture log;
    EXPECT_EQ(EC_KQPrivateTagProblem, top.findAndGetKQString(0x15, value, true));
    EXPECT_TRUE(log.contains("couldn't calc"));
}

TEST(KQItemBlock, WritersAndRemoval)
{
    DcmItem item;
    KQItem kq(item);
    const Uint8 bytes[] = {1, 2, 3, 4};
    ASSERT_TRUE(kq.putAndInsertKQUint8Array(0x73, bytes, 4).good());
    DcmElement* element = NULL;
    ASSERT_TRUE(kq.findAndGetKQElement(0x73, element).good());
    EXPECT_EQ(EVR_OB, element->ident());
    EXPECT_EQ(4u, element->getLength());

    const Uint16 words[] = {7, 8};
    // the toolkit's answer comes back unchanged: 16-bit words do not fit an OB element
    const OFCondition wordsResult = kq.putAndInsertKQUint16Array(0x73, words, 2);
    EXPECT_EQ(EC_IllegalCall, wordsResult);
    ASSERT_TRUE(kq.findAndGetKQElement(0x73, element).good());
    EXPECT_EQ(4u, element->getLength());

    ASSERT_TRUE(kq.putAndInsertKQString(0x45, "STUDY").good());
    EXPECT_EQ(EC_DoubledTag, kq.putAndInsertKQString(0x45, "SERIES", false));
    EXPECT_EQ("STUDY", stringOf(item, f215(0x1045)));

    DcmElement* removed = kq.removeKQ(0x45);
    ASSERT_NE(nullptr, removed);
    EXPECT_EQ(f215(0x1045), removed->getTag().getXTag());
    delete removed;
    EXPECT_EQ(nullptr, kq.removeKQ(0x45));
    EXPECT_TRUE(has(item, f215(0x0010)));
}

TEST(KQItemBlock, InsertRelocatesLegacyElementsOfOurBlocks)
{
    DcmItem item;
    putCreator(item, 0x10, "Other");
    putPrivate(item, 0x1045, "other's");
    KQItem kq(item);

    // a legacy element of a block without creator element goes in under its canonical number
    DcmElement* legacy = new DcmLongString(DcmTag(f215(0xBA51), DcmVR(EVR_LO)));
    legacy->putString("20190101");
    ASSERT_TRUE(kq.insertKQ(legacy).good());
    EXPECT_EQ(f215(0x1115), legacy->getTag().getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, legacy->getTag().getPrivateCreator());
    EXPECT_EQ(KQ_PRIVATE_CREATOR, stringOf(item, f215(0x0011)));
    EXPECT_EQ((std::vector<Uint16>{0x0010, 0x0011, 0x1045, 0x1115}), privateElements(item));

    // legacy keys absent from the map and canonical elements go in as they are
    DcmElement* unmapped = new DcmLongString(DcmTag(f215(0xBA08), DcmVR(EVR_LO)));
    ASSERT_TRUE(kq.insertKQ(unmapped).good());
    EXPECT_TRUE(has(item, f215(0xBA08)));

    // an existing element is kept when replacing is not wanted; the caller keeps its element
    DcmElement* collide = new DcmLongString(DcmTag(f215(0xDA80), DcmVR(EVR_LO)));
    collide->putString("second");
    ASSERT_TRUE(kq.putAndInsertKQString(0x3A, "first").good());
    EXPECT_EQ(EC_DoubledTag, kq.insertKQ(collide, false));
    EXPECT_EQ(f215(0xDA80), collide->getTag().getXTag());
    delete collide;
    EXPECT_EQ("first", stringOf(item, f215(0x113A)));

    DcmElement* replace = new DcmLongString(DcmTag(f215(0xDA80), DcmVR(EVR_LO)));
    replace->putString("third");
    EXPECT_TRUE(kq.insertKQ(replace, true).good());
    EXPECT_EQ("third", stringOf(item, f215(0x113A)));

    // a legacy block with a foreign creator is not ours
    putCreator(item, 0xDA, "Someone");
    DcmElement* foreign = new DcmLongString(DcmTag(f215(0xDA80), DcmVR(EVR_LO)));
    ASSERT_TRUE(kq.insertKQ(foreign).good());
    EXPECT_TRUE(has(item, f215(0xDA80)));
}

TEST(KQItemBlock, CopyPrivateElement)
{
    DcmItem source;
    source.putAndInsertString(DCM_PatientName, "Copied^Name");
    DcmItem* change = appendItem(source, f215(0xDA31));
    ASSERT_NE(nullptr, change);
    putCreator(*change, 0xDA, KQ_LEGACY_CREATOR);
    putPrivate(*change, 0xDA80, "legacy description");
    putPrivate(source, 0xBA08, "not mapped");
    putPrivate(source, 0x1245, "other block");
    putPrivate(source, 0x10A5, "canonical block");

    DcmItem target;
    putCreator(target, 0x10, "Other");
    target.putAndInsertString(DCM_PatientName, "Kept^Name");
    KQItem kq(target);
    for (DcmObject* obj = source.nextInContainer(NULL); obj; obj = source.nextInContainer(obj))
        ASSERT_TRUE(kq.copyPrivateElement(*OFstatic_cast(DcmElement*, obj), false).good()) << obj->getTag();

    EXPECT_EQ(0x1100, kq.getBlockBase());
    EXPECT_EQ("Kept^Name", stringOf(target, DCM_PatientName)); // not replaced
    EXPECT_EQ(KQ_PRIVATE_CREATOR, stringOf(target, f215(0x0011)));
    EXPECT_EQ("not mapped", stringOf(target, f215(0xBA08)));
    EXPECT_EQ("other block", stringOf(target, f215(0x1245))); // not in the map: keeps its number
    EXPECT_EQ("canonical block", stringOf(target, f215(0x11A5)));
    EXPECT_FALSE(has(target, f215(0xDA31)));

    // the legacy change sequence becomes 0x62 of the block, and its item is cleaned too
    DcmItem* copied = NULL;
    ASSERT_TRUE(kq.findAndGetKQSequenceItem(0x62, copied).good());
    EXPECT_NE(change, copied);
    EXPECT_EQ((std::vector<Uint16>{0x0010, 0x103A}), privateElements(*copied));
    EXPECT_EQ("legacy description", stringOf(*copied, f215(0x103A)));
    // the source is left as it was
    EXPECT_EQ((std::vector<Uint16>{0x00DA, 0xDA80}), privateElements(*change));

    KQItem again(target);
    EXPECT_TRUE(again.copyPrivateElement(*source.getElement(0), true).good());
    EXPECT_EQ("Copied^Name", stringOf(target, DCM_PatientName));
}
