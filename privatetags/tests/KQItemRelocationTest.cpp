// Moving legacy and canonical-block elements into the item's block, and the walkers over
// nested items.
#include "privatetags/tests/KQTestSupport.h"

#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcdeftag.h"

#include <gtest/gtest.h>

using namespace kqtest;

typedef std::vector<Uint16> Elements;

TEST(KQItemRelocation, LegacyBlocksAtTopLevel)
{
    DcmDataset ds;
    ds.putAndInsertString(DCM_PatientName, "Doe^Jane");
    putCreator(ds, 0xBA, KQ_LEGACY_CREATOR);
    putPrivate(ds, 0xBA01, "one");
    putPrivate(ds, 0xBA08, "no canonical number");
    putPrivate(ds, 0xBA94, "ninety-four");
    putPrivate(ds, 0xBA00, "to 0x10");
    // block DA without its creator element is ours as well
    DcmItem* change = appendItem(ds, f215(0xDA31));
    change->putAndInsertString(DCM_PatientName, "Changed^Name");
    putPrivate(ds, 0xDA71, "to 0x0A");
    // a legacy element inside an item is left to that item's own accessor
    putPrivate(*change, 0xDA80, "nested legacy");

    KQItem kq(ds);
    DcmItem* item = NULL;
    ASSERT_TRUE(kq.findAndGetKQSequenceItem(0x62, item, 0).good());
    EXPECT_EQ("Changed^Name", stringOf(*item, DCM_PatientName));
    EXPECT_TRUE(kq.isReserved());
    EXPECT_EQ(0x1000, kq.getBlockBase());
    EXPECT_EQ((Elements{0x0010, 0x1001, 0x100A, 0x1010, 0x1062, 0x1094}), privateElements(ds));
    EXPECT_EQ(KQ_PRIVATE_CREATOR, stringOf(ds, f215(0x0010)));
    EXPECT_EQ("one", stringOf(ds, f215(0x1001)));
    EXPECT_EQ("to 0x0A", stringOf(ds, f215(0x100A)));
    EXPECT_EQ("to 0x10", stringOf(ds, f215(0x1010)));
    EXPECT_EQ("ninety-four", stringOf(ds, f215(0x1094)));
    EXPECT_EQ("Doe^Jane", stringOf(ds, DCM_PatientName));
    EXPECT_EQ((Elements{0xDA80}), privateElements(*item));

    DcmElement* moved = NULL;
    ASSERT_TRUE(ds.findAndGetElement(f215(0x1001), moved).good());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, moved->getTag().getPrivateCreator());

    // the item's own accessor moves its legacy element into its own block
    KQItem nested(*item);
    const char* value = NULL;
    ASSERT_TRUE(nested.findAndGetKQString(0x3A, value).good());
    EXPECT_STREQ("nested legacy", value);
    EXPECT_EQ((Elements{0x0010, 0x103A}), privateElements(*item));
}

TEST(KQItemRelocation, ForeignLegacyCreatorsAreKept)
{
    DcmItem item;
    putCreator(item, 0xBA, "Another vendor");
    putPrivate(item, 0xBA01, "theirs");
    putCreator(item, 0xDA, KQ_LEGACY_CREATOR);
    putPrivate(item, 0xDA80, "ours");

    KQItem kq(item);
    EXPECT_TRUE(kq.calcPrivateBlock(false));
    EXPECT_EQ((Elements{0x0010, 0x00BA, 0x103A, 0xBA01}), privateElements(item));
    EXPECT_EQ("Another vendor", stringOf(item, f215(0x00BA)));
    EXPECT_EQ("theirs", stringOf(item, f215(0xBA01)));
    EXPECT_EQ("ours", stringOf(item, f215(0x103A)));
}

TEST(KQItemRelocation, NothingToMoveWritesNothing)
{
    DcmItem item;
    putCreator(item, 0xBA, KQ_LEGACY_CREATOR);
    putPrivate(item, 0xBA08, "no canonical number");
    KQItem kq(item);
    EXPECT_TRUE(kq.calcPrivateBlock(false));
    // the dropped element and the legacy creator are gone, and no block was reserved
    EXPECT_EQ(0u, item.card());
    EXPECT_FALSE(kq.isReserved());
}

TEST(KQItemRelocation, ExistingElementsWinOverMovedOnes)
{
    DcmItem item;
    putCreator(item, 0x10, "Other");
    putCreator(item, 0x11, KQ_PRIVATE_CREATOR);
    putPrivate(item, 0x1101, "existing");
    putPrivate(item, 0xBA01, "legacy");
    putPrivate(item, 0xBA02, "legacy two");
    putPrivate(item, 0x1002, "other's block");

    KQItem kq(item);
    EXPECT_TRUE(kq.calcPrivateBlock(false));
    EXPECT_EQ(0x1100, kq.getBlockBase());
    EXPECT_EQ((Elements{0x0010, 0x0011, 0x1002, 0x1101, 0x1102}), privateElements(item));
    EXPECT_EQ("existing", stringOf(item, f215(0x1101)));
    EXPECT_EQ("legacy two", stringOf(item, f215(0x1102)));
    EXPECT_EQ("other's block", stringOf(item, f215(0x1002)));
}

TEST(KQItemRelocation, CanonicalBlockMovesOnlyWhenAsked)
{
    DcmItem item;
    putCreator(item, 0x10, "Other");
    putCreator(item, 0x11, KQ_PRIVATE_CREATOR);
    putPrivate(item, 0x1015, "20200101", EVR_DA);
    putPrivate(item, 0x1016, "101010", EVR_TM);
    putPrivate(item, 0x1116, "090000", EVR_TM);

    DcmItem copy(item);
    KQItem::handlePrivateTags(&copy);
    EXPECT_EQ(privateElements(item), privateElements(copy));

    KQItem::handleCanonicAndOldPrivateTags(&item);
    EXPECT_EQ((Elements{0x0010, 0x0011, 0x1115, 0x1116}), privateElements(item));
    EXPECT_EQ("20200101", stringOf(item, f215(0x1115)));
    EXPECT_EQ("090000", stringOf(item, f215(0x1116)));

    // when block 0x10 is ours its elements stay where they are
    DcmItem ours;
    putCreator(ours, 0x10, KQ_PRIVATE_CREATOR);
    putPrivate(ours, 0x1015, "20200101", EVR_DA);
    KQItem::handleCanonicAndOldPrivateTags(&ours);
    EXPECT_EQ((Elements{0x0010, 0x1015}), privateElements(ours));
}

TEST(KQItemRelocation, WalkersReachEveryNestedItem)
{
    DcmDataset ds;
    ds.putAndInsertString(DCM_PatientID, "P1");
    // no private data at the top level; a nested item with its own block and legacy data
    DcmItem* study = appendItem(ds, DCM_ReferencedStudySequence);
    putCreator(*study, 0x10, "Other");
    putCreator(*study, 0xDA, KQ_LEGACY_CREATOR);
    putPrivate(*study, 0xDA80, "study description");
    DcmItem* series = appendItem(*study, f215(0xDA32));
    putPrivate(*series, 0xBA51, "20010101", EVR_DA);
    DcmItem* second = appendItem(*study, f215(0xDA32));
    putPrivate(*second, 0xBA52, "120000", EVR_TM);
    putCreator(*second, 0xBA, "Not ours");

    KQItem::handlePrivateTags(&ds);
    EXPECT_EQ((Elements{}), privateElements(ds));
    EXPECT_EQ((Elements{0x0010, 0x0011, 0x113A, 0x1163}), privateElements(*study));
    DcmSequenceOfItems* seq = NULL;
    ASSERT_TRUE(study->findAndGetSequence(f215(0x1163), seq).good());
    ASSERT_EQ(2u, seq->card());
    EXPECT_EQ((Elements{0x0010, 0x1015}), privateElements(*seq->getItem(0)));
    EXPECT_EQ((Elements{0x00BA, 0xBA52}), privateElements(*seq->getItem(1)));

    // a second pass changes nothing
    const Elements studyBefore = privateElements(*study);
    const Elements firstBefore = privateElements(*seq->getItem(0));
    KQItem::handleCanonicAndOldPrivateTags(&ds);
    EXPECT_EQ(studyBefore, privateElements(*study));
    EXPECT_EQ(firstBefore, privateElements(*seq->getItem(0)));

    // a broken item is logged and the walk goes on
    LogCapture log;
    DcmDataset broken;
    DcmItem* bad = appendItem(broken, DCM_ReferencedStudySequence);
    appendItem(*bad, f215(0x0010));
    DcmItem* next = appendItem(broken, DCM_ReferencedSeriesSequence);
    putPrivate(*next, 0xBA01, "moved");
    KQItem::handlePrivateTags(&broken);
    EXPECT_TRUE(log.contains("Error: couldn't calculate private block"));
    EXPECT_EQ((Elements{0x0010, 0x1001}), privateElements(*next));
    KQItem::handlePrivateTags(NULL);
}

TEST(KQItemRelocation, CanonicTagsOfCallers)
{
    DcmItem item;
    putCreator(item, 0x10, "Other");

    unsigned short element = 0x1062;
    KQItem::checkAndUpdateCanonicPrivateTag(&item, KQ_PRIVATE_GROUP, element);
    EXPECT_EQ(0x1162, element);
    EXPECT_EQ(KQ_PRIVATE_CREATOR, stringOf(item, f215(0x0011)));

    element = 0x1162; // already in a block: left alone
    KQItem::checkAndUpdateCanonicPrivateTag(&item, KQ_PRIVATE_GROUP, element);
    EXPECT_EQ(0x1162, element);
    element = 0x1062; // another group: left alone
    KQItem::checkAndUpdateCanonicPrivateTag(&item, 0x0009, element);
    EXPECT_EQ(0x1062, element);

    DcmTag tag(f215(0x1015));
    KQItem::checkAndUpdateCanonicPrivateTag(&item, tag);
    EXPECT_EQ(f215(0x1115), tag.getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, tag.getPrivateCreator());
    EXPECT_EQ(EVR_DA, tag.getEVR());

    DcmTag creator(f215(0x0011));
    KQItem::checkAndUpdateCanonicPrivateTag(&item, creator);
    EXPECT_EQ(f215(0x0011), creator.getXTag());

    // no block to be had: the element is left as it was
    DcmItem full;
    for (Uint16 block = 0x10; block <= 0xFF; ++block)
        putCreator(full, block, "Other");
    LogCapture log;
    element = 0x1062;
    KQItem::checkAndUpdateCanonicPrivateTag(&full, KQ_PRIVATE_GROUP, element);
    EXPECT_EQ(0x1062, element);
    EXPECT_TRUE(log.contains("couldn't calc"));
}

TEST(KQItemRelocation, NukeRemovesTheWholeGroup)
{
    DcmDataset ds;
    ds.putAndInsertString(DCM_PatientName, "Doe^Jane");
    putCreator(ds, 0x10, "Other");
    putPrivate(ds, 0x1001, "theirs");
    putCreator(ds, 0x11, KQ_PRIVATE_CREATOR);
    putPrivate(ds, 0x1115, "20200101", EVR_DA);
    putPrivate(ds, 0xBA01, "legacy");
    ds.putAndInsertString(DcmTag(0x0009, 0x0010, DcmVR(EVR_LO)), "Other group");
    DcmItem* nested = appendItem(ds, DCM_ReferencedStudySequence);
    putCreator(*nested, 0x10, KQ_PRIVATE_CREATOR);

    KQItem kq(ds);
    kq.nukePrivateTags();
    EXPECT_EQ((Elements{}), privateElements(ds));
    EXPECT_EQ(0, kq.getBlockBase());
    EXPECT_EQ(3u, ds.card());
    EXPECT_EQ((Elements{0x0010}), privateElements(*nested)); // top level only

    // settled with base 0: a second call does nothing
    putCreator(ds, 0x12, "Later");
    kq.nukePrivateTags();
    EXPECT_EQ((Elements{0x0012}), privateElements(ds));

    // a block that cannot be settled: nothing is removed
    DcmItem broken;
    appendItem(broken, f215(0x0010));
    putPrivate(broken, 0x1101, "kept");
    KQItem bad(broken);
    bad.nukePrivateTags();
    EXPECT_EQ((Elements{0x0010, 0x1101}), privateElements(broken));
}
