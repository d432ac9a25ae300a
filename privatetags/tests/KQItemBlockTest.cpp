// The private block: finding and reserving it, the accessors, element insertion, and the legacy
// key map with the tag conversions built on it.
#include "privatetags/tests/KQTestSupport.h"

#include <gtest/gtest.h>

using namespace kqtest;

TEST(KQItemBlock, EmptyDatasetUsesFirstFreeSlotWithoutWriting)
{
    DcmDataset ds;
    ds.putAndInsertString(DCM_PatientName, "Doe^John");
    KQItem kq(ds);
    const char* text = NULL;
    EXPECT_EQ(EC_TagNotFound, kq.findAndGetKQString(0x15, text));
    DcmItem* change = NULL;
    EXPECT_EQ(EC_TagNotFound, kq.findAndGetKQSequenceItem(0x62, change, 0));
    EXPECT_EQ(0x1000, kq.getBlockBase());
    EXPECT_FALSE(kq.isReserved());
    EXPECT_EQ(1u, ds.card());

    // the first write reserves the slot; the element takes the dictionary's VR
    EXPECT_TRUE(kq.putAndInsertKQString(0x15, "20240131").good());
    EXPECT_EQ(KQ_PRIVATE_CREATOR, value(ds, f215(0x0010)));
    DcmElement* element = NULL;
    ASSERT_TRUE(kq.findAndGetKQElement(0x15, element).good());
    EXPECT_EQ(f215(0x1015), element->getTag().getXTag());
    EXPECT_EQ(EVR_DA, element->ident());
}

TEST(KQItemBlock, SearchesCreatorSlotsInOrder)
{
    struct Case
    {
        std::vector<const char*> creators; // slots 0x10, 0x11, ...; null: free
        bool calculated;
        unsigned short base;
        bool reserved;
    };
    const Case cases[] = {
        {{"A", "B", "C"}, true, 0x1300, false},              // the first free slot
        {{"A", "B", KQ_PRIVATE_CREATOR}, true, 0x1200, true}, // ours, behind others
        {{"A", NULL, KQ_PRIVATE_CREATOR}, true, 0x1100, false}, // a free slot comes first
        {{""}, true, 0x1100, false},                          // an empty creator is someone's
        {std::vector<const char*>(240, "Other"), false, 0, false},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.creators.size());
        DcmItem item;
        for (size_t i = 0; i < c.creators.size(); ++i)
            if (c.creators[i] != NULL)
                putCreator(item, Uint16(0x10 + i), c.creators[i]);
        const unsigned long before = item.card();
        KQItem kq(item);
        EXPECT_EQ(c.calculated, kq.calcPrivateBlock(false));
        EXPECT_EQ(c.base, kq.getBlockBase());
        EXPECT_EQ(c.reserved, kq.isReserved());
        EXPECT_EQ(before, item.card());
    }
}

TEST(KQItemBlock, UnreadableCreatorSlotFailsEveryAccessor)
{
    LogCapture log;
    DcmItem item;
    Uint16 number = 7;
    item.putAndInsertUint16Array(DcmTag(f215(0x0010), DcmVR(EVR_US)), &number, 1);
    putCreator(item, 0x11, KQ_PRIVATE_CREATOR);
    KQItem kq(item);

    EXPECT_FALSE(kq.calcPrivateBlock(false));
    EXPECT_EQ(nullptr, kq.removeKQ(0x15));
    EXPECT_EQ(std::vector<std::string>{"couldn't calc"}, log.lines());
    const char* text = NULL;
    DcmItem* sub = NULL;
    DcmTag tag;
    DcmTagKey key = f215(0x0015);
    DcmTagKey publicKey(DCM_PatientName);
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.findAndGetKQString(0x15, text));
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.putAndInsertKQString(0x15, "x"));
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.findOrCreateKQSequenceItem(0x62, sub));
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.getTag(0x15, tag));
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.adjustPrivateTag(key));
    EXPECT_TRUE(kq.adjustPrivateTag(publicKey).good()); // other groups need no block
    EXPECT_EQ(2u, item.card());
}

TEST(KQItemBlock, CreatorElementsMetWhileWalking)
{
    DcmLongString otherGroup(DcmTag(0x0009, 0x0010, DcmVR(EVR_LO)));
    DcmLongString dataElement(DcmTag(f215(0x1110), DcmVR(EVR_LO)));
    DcmLongString foreign(DcmTag(f215(0x0011), DcmVR(EVR_LO)));
    DcmLongString ours(DcmTag(f215(0x0014), DcmVR(EVR_LO)));
    DcmUnsignedShort number(DcmTag(f215(0x0012), DcmVR(EVR_US)));
    otherGroup.putString(KQ_PRIVATE_CREATOR);
    dataElement.putString(KQ_PRIVATE_CREATOR);
    foreign.putString("KQ group A2");
    ours.putString(KQ_PRIVATE_CREATOR);
    number.putUint16(3);
    DcmItem notAnElement;

    DcmItem item;
    KQItem kq(item);
    const std::pair<DcmObject*, int> walk[] = {{NULL, 0}, {&otherGroup, 0}, {&dataElement, 0}, {&notAnElement, 0},
                                               {&number, 0}, {&foreign, 3},    {&ours, 2},        {&foreign, 1}};
    for (const auto& step : walk)
        EXPECT_EQ(step.second, kq.checkPrivateCreatorElement(step.first));
    EXPECT_EQ(0x1400, kq.getBlockBase());
    // the block came from the walker: tagging writes nothing
    EXPECT_EQ(f215(0x1462), kq.getTag(0x62).getXTag());
    EXPECT_EQ(0u, item.card());
    DcmLongString element(DcmTag(f215(0x143A), DcmVR(EVR_LO)));
    EXPECT_TRUE(kq.isObjectOurPrivateElement(&element, 0x3A));
    EXPECT_FALSE(kq.isObjectOurPrivateElement(&element, 0x3B));
}

TEST(KQItemBlock, ChangeSequencesOfAKqRDataset)
{
    DcmDataset kqr;
    putCreator(kqr, 0x10, "Vendor X");
    putCreator(kqr, 0x11, "Vendor Y");
    {
        KQItem writer(kqr);
        DcmItem* change = NULL;
        ASSERT_TRUE(writer.findOrCreateKQSequenceItem(0x62, change, 0).good());
        change->putAndInsertString(DCM_PatientName, "New^Name");
        KQItem changeItem(*change);
        DcmItem* series = NULL;
        ASSERT_TRUE(changeItem.findOrCreateKQSequenceItem(0x63, series, -2).good());
        series->putAndInsertString(DCM_SeriesInstanceUID, "1.2.3");
        // the item settles its own block
        EXPECT_EQ(0x1000, changeItem.getBlockBase());
    }
    EXPECT_TRUE(kqr.tagExists(f215(0x1262)));

    KQItem reader(kqr);
    DcmItem* change = NULL;
    ASSERT_TRUE(reader.findAndGetKQSequenceItem(0x62, change, 0).good());
    EXPECT_EQ("New^Name", value(*change, DCM_PatientName));
    DcmItem* second = NULL;
    EXPECT_EQ(EC_IllegalParameter, reader.findAndGetKQSequenceItem(0x62, second, 1));
    KQItem changeReader(*change);
    DcmSequenceOfItems* seriesSeq = NULL;
    ASSERT_TRUE(changeReader.findAndGetKQSequence(0x63, seriesSeq).good());
    EXPECT_EQ("1.2.3", value(*seriesSeq->getItem(0), DCM_SeriesInstanceUID));
    EXPECT_TRUE(changeReader.isObjectOurPrivateElement(seriesSeq, 0x63));
    DcmSequenceOfItems* none = NULL;
    EXPECT_EQ(EC_TagNotFound, reader.findAndGetKQSequence(0x63, none)); // not at top level
}

TEST(KQItemBlock, SearchIntoSubItemsUsesEachItemsBlock)
{
    DcmDataset ds;
    putCreator(ds, 0x10, KQ_PRIVATE_CREATOR);
    putPrivate(ds, 0x103A, "top level");
    appendItem(ds, DCM_ReferencedStudySequence)->putAndInsertString(DCM_StudyInstanceUID, "1.2");
    DcmItem* nested = appendItem(ds, DCM_ReferencedSeriesSequence);
    putCreator(*nested, 0x10, "Someone");
    putCreator(*nested, 0x11, KQ_PRIVATE_CREATOR);
    putPrivate(*nested, 0x1115, "20210304", EVR_DA);
    DcmItem* deeper = appendItem(*nested, DCM_ReferencedImageSequence);
    putCreator(*deeper, 0x10, KQ_PRIVATE_CREATOR);
    putPrivate(*deeper, 0x1016, "101010", EVR_TM);

    KQItem kq(ds);
    const char* text = NULL;
    EXPECT_EQ(EC_TagNotFound, kq.findAndGetKQString(0x15, text));
    const std::pair<unsigned short, const char*> found[] = {{0x15, "20210304"}, {0x16, "101010"}, {0x3A, "top level"}};
    for (const auto& f : found)
    {
        ASSERT_TRUE(kq.findAndGetKQString(f.first, text, true).good());
        EXPECT_STREQ(f.second, text);
    }
    DcmElement* element = NULL;
    ASSERT_TRUE(kq.findAndGetKQElement(0x15, element, true).good());
    EXPECT_EQ(f215(0x1115), element->getTag().getXTag());
    DcmSequenceOfItems* seq = NULL;
    EXPECT_EQ(EC_TagNotFound, kq.findAndGetKQSequence(0x62, seq, true));

    // the first answer other than "not found" ends the search, errors included
    DcmDataset broken;
    appendItem(*appendItem(broken, DCM_ReferencedStudySequence), f215(0x0010)); // a sequence as creator
    DcmItem* good = appendItem(broken, DCM_ReferencedSeriesSequence);
    putCreator(*good, 0x10, KQ_PRIVATE_CREATOR);
    putPrivate(*good, 0x1015, "20000101", EVR_DA);
    LogCapture log;
    EXPECT_EQ(EC_KQPrivateTagProblem, KQItem(broken).findAndGetKQString(0x15, text, true));
}

TEST(KQItemBlock, WritersPassTheToolkitsAnswerOn)
{
    DcmItem item;
    putCreator(item, 0x10, "Other");
    KQItem kq(item);
    const Uint8 bytes[] = {1, 2, 3, 4};
    const Uint16 words[] = {7, 8};
    ASSERT_TRUE(kq.putAndInsertKQUint8Array(0x73, bytes, 4).good());
    EXPECT_EQ(EC_IllegalCall, kq.putAndInsertKQUint16Array(0x73, words, 2)); // words do not fit OB
    ASSERT_TRUE(kq.putAndInsertKQString(0x45, "STUDY").good());
    EXPECT_EQ(EC_DoubledTag, kq.putAndInsertKQString(0x45, "SERIES", false));
    EXPECT_EQ("STUDY", value(item, f215(0x1145)));
    DcmTagKey key = f215(0x0064);
    EXPECT_TRUE(kq.adjustPrivateTag(key).good());
    EXPECT_EQ(f215(0x1164), key);

    DcmElement* removed = kq.removeKQ(0x45);
    ASSERT_NE(nullptr, removed);
    EXPECT_EQ(f215(0x1145), removed->getTag().getXTag());
    delete removed;
    EXPECT_EQ(nullptr, kq.removeKQ(0x45));
    EXPECT_EQ((Elements{0x0010, 0x0011, 0x1173}), privateElements(item));
}

TEST(KQItemBlock, InsertRelocatesLegacyElementsOfOurBlocks)
{
    DcmItem item;
    putCreator(item, 0x10, "Other");
    KQItem kq(item);

    // a legacy element of a block without creator element goes in under its canonical number
    DcmElement* legacy = new DcmLongString(DcmTag(f215(0xBA51), DcmVR(EVR_LO)));
    ASSERT_TRUE(kq.insertKQ(legacy).good());
    EXPECT_EQ(f215(0x1115), legacy->getTag().getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, legacy->getTag().getPrivateCreator());
    // legacy keys absent from the map go in as they are
    ASSERT_TRUE(kq.insertKQ(new DcmLongString(DcmTag(f215(0xBA08), DcmVR(EVR_LO)))).good());
    EXPECT_EQ((Elements{0x0010, 0x0011, 0x1115, 0xBA08}), privateElements(item));

    // an element under the new tag is kept when replacing is not wanted, and the refused one
    // goes back to the caller as it came; with replacing, one element is left under the tag
    ASSERT_TRUE(kq.putAndInsertKQString(0x3A, "first").good());
    DcmElement* collide = new DcmLongString(DcmTag(f215(0xDA80), DcmVR(EVR_LO)));
    EXPECT_EQ(EC_DoubledTag, kq.insertKQ(collide, false));
    EXPECT_EQ(f215(0xDA80), collide->getTag().getXTag());
    delete collide;
    DcmElement* replace = new DcmLongString(DcmTag(f215(0xDA80), DcmVR(EVR_LO)));
    replace->putString("third");
    EXPECT_TRUE(kq.insertKQ(replace, true).good());
    EXPECT_EQ("third", value(item, f215(0x113A)));
    EXPECT_EQ((Elements{0x0010, 0x0011, 0x1115, 0x113A, 0xBA08}), privateElements(item));

    // a legacy block with a foreign creator is not ours
    putCreator(item, 0xDA, "Someone");
    ASSERT_TRUE(kq.insertKQ(new DcmLongString(DcmTag(f215(0xDA80), DcmVR(EVR_LO)))).good());
    EXPECT_TRUE(item.tagExists(f215(0xDA80)));
}

TEST(KQItemBlock, CopyPrivateElement)
{
    DcmItem source;
    source.putAndInsertString(DCM_PatientName, "Copied^Name");
    DcmItem* change = appendItem(source, f215(0xDA31));
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
    EXPECT_EQ("Kept^Name", value(target, DCM_PatientName)); // not replaced
    // keys not in the map keep their numbers; mapped ones move into the block 0x11
    EXPECT_EQ((Elements{0x0010, 0x0011, 0x1162, 0x11A5, 0x1245, 0xBA08}), privateElements(target));

    // the copied legacy change sequence's item is cleaned too, the source left as it was
    DcmItem* copied = NULL;
    ASSERT_TRUE(kq.findAndGetKQSequenceItem(0x62, copied).good());
    EXPECT_EQ((Elements{0x0010, 0x103A}), privateElements(*copied));
    EXPECT_EQ((Elements{0x00DA, 0xDA80}), privateElements(*change));
    EXPECT_TRUE(kq.copyPrivateElement(*source.getElement(0), true).good());
    EXPECT_EQ("Copied^Name", value(target, DCM_PatientName));
}

TEST(KQItemMap, CanonicKeys)
{
    const std::pair<DcmTagKey, DcmTagKey> cases[] = {
        {DcmTagKey(0x0010, 0x0010), DcmTagKey(0x0010, 0x0010)}, // outside group F215: unchanged
        {DcmTagKey(0xF213, 0xBA01), DcmTagKey(0xF213, 0xBA01)},
        {f215(0x1123), f215(0x1023)}, // any other block folds onto block 10
        {f215(0xFF62), f215(0x1062)},
        {f215(0x0011), f215(0x1011)}, // creator elements included
        {f215(0x00BA), f215(0x10BA)},
        {f215(0xDA31), f215(0x1062)}, // legacy blocks through the map, whoever their creator
        {f215(0xBA94), f215(0x1094)},
        {f215(0xBA08), f215(0xBA08)}, // legacy keys missing from the map stay
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.second, KQItem::getCanonicKey(DcmTag(c.first))) << c.first;
}

TEST(KQItemMap, CanonicTagAndClassification)
{
    const DcmTag tag = KQItem::canonicTag(0x62);
    EXPECT_EQ(f215(0x1062), tag.getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, tag.getPrivateCreator());
    EXPECT_EQ(EVR_SQ, tag.getEVR());

    for (Uint16 element : {0x0010, 0x00FF})
        EXPECT_TRUE(KQItem::isOurPrivateCreator(DcmTag(f215(element))));
    for (Uint16 element : {0x000F, 0x0100})
        EXPECT_FALSE(KQItem::isOurPrivateCreator(DcmTag(f215(element))));
    EXPECT_TRUE(KQItem::isOurPrivateTagKey(f215(0x1000)));
    EXPECT_FALSE(KQItem::isOurPrivateTagKey(f215(0x0FFF)));
    // the creator decides, in any odd group
    EXPECT_TRUE(KQItem::isOurPrivateTag(DcmTag(0x0009, 0x1015, KQ_PRIVATE_CREATOR)));
    EXPECT_FALSE(KQItem::isOurPrivateTag(DcmTag(0xF215, 0x1115, "KQ group B")));
    EXPECT_FALSE(KQItem::isOurPrivateTag(DcmTag(0x0007, 0x1015, KQ_PRIVATE_CREATOR)));

    std::unique_ptr<DcmElement> element(KQItem::createNewDicomElement(f215(0x1315)));
    ASSERT_NE(nullptr, element);
    EXPECT_EQ(EVR_DA, element->ident());
    const OFCondition cond(EC_KQPrivateTagProblem);
    EXPECT_EQ(1051, cond.module());
    EXPECT_EQ(3840, cond.code());
    EXPECT_STREQ("KQItem Private Tag Relocation Error", cond.text());
}

TEST(KQItemMap, ConvertTag)
{
    DcmItem item;
    putCreator(item, 0x10, "Someone else");
    KQItem kq(item);
    // a legacy key in the map moves into the item's block (0x11), with its VR
    DcmTag tag(f215(0xDA31));
    EXPECT_TRUE(kq.convertTag(tag).good());
    EXPECT_EQ(f215(0x1162), tag.getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, tag.getPrivateCreator());
    EXPECT_EQ(EVR_SQ, tag.getEVR());
    EXPECT_EQ(KQ_PRIVATE_CREATOR, value(item, f215(0x0011)));
    for (const DcmTagKey& key : {f215(0xBA08), DcmTagKey(0x0010, 0x0010), f215(0x1062)})
    {
        DcmTag unchanged(key);
        EXPECT_TRUE(kq.convertTag(unchanged).good());
        EXPECT_EQ(key, unchanged.getXTag());
    }

    // a block that cannot be settled
    LogCapture log;
    DcmItem broken;
    appendItem(broken, f215(0x0010));
    DcmTag legacy(f215(0xBA51));
    EXPECT_EQ(EC_KQPrivateTagProblem, KQItem(broken).convertTag(legacy));
    EXPECT_EQ(f215(0xBA51), legacy.getXTag());
    EXPECT_TRUE(log.contains("couldn't calc"));
}
