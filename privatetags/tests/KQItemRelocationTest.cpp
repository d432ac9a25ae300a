// Moving legacy and canonical-block elements into the item's block, and the walkers over
// nested items.
#include "privatetags/tests/KQTestSupport.h"

#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcdeftag.h"

#include <gtest/gtest.h>

#include <memory>

using namespace kqtest;

typedef std::vector<Uint16> Elements;

namespace {

// A private element: its number and value; creator elements (00xx) take their value as creator.
struct Element
{
    Uint16 number;
    const char* value;
};

DcmItem* makeItem(const std::vector<Element>& elements)
{
    DcmItem* item = new DcmItem();
    for (const Element& e : elements)
    {
        if (e.number < 0x100)
            putCreator(*item, e.number, e.value);
        else
            putPrivate(*item, e.number, e.value);
    }
    return item;
}

} // namespace

TEST(KQItemRelocation, SettlingTheBlockMovesLegacyElements)
{
    struct Case
    {
        const char* what;
        std::vector<Element> before;
        bool relocateCanonic;
        std::vector<Element> after; // every private element with its value, in item order
    };
    const Case cases[] = {
        {"mapped elements move, unmapped ones and the legacy creators go",
         {{0xBA, KQ_LEGACY_CREATOR}, {0xBA00, "a"}, {0xBA01, "b"}, {0xBA08, "x"}, {0xBA94, "c"}, {0xDA71, "d"}},
         false,
         {{0x10, KQ_PRIVATE_CREATOR}, {0x1001, "b"}, {0x100A, "d"}, {0x1010, "a"}, {0x1094, "c"}}},
        {"a legacy block with a foreign creator is kept",
         {{0xBA, "Another vendor"}, {0xBA01, "theirs"}, {0xDA, KQ_LEGACY_CREATOR}, {0xDA80, "ours"}},
         false,
         {{0x10, KQ_PRIVATE_CREATOR}, {0xBA, "Another vendor"}, {0x103A, "ours"}, {0xBA01, "theirs"}}},
        {"nothing left to move reserves nothing", {{0xBA, KQ_LEGACY_CREATOR}, {0xBA08, "x"}}, false, {}},
        {"an element already in the block wins",
         {{0x10, "Other"}, {0x11, KQ_PRIVATE_CREATOR}, {0x1002, "other's"}, {0x1101, "kept"}, {0xBA01, "x"},
          {0xBA02, "moved"}},
         false,
         {{0x10, "Other"}, {0x11, KQ_PRIVATE_CREATOR}, {0x1002, "other's"}, {0x1101, "kept"}, {0x1102, "moved"}}},
        {"the canonical block stays unless asked",
         {{0x10, "Other"}, {0x11, KQ_PRIVATE_CREATOR}, {0x1015, "a"}, {0x1116, "b"}},
         false,
         {{0x10, "Other"}, {0x11, KQ_PRIVATE_CREATOR}, {0x1015, "a"}, {0x1116, "b"}}},
        {"the canonical block moves when asked, existing elements win",
         {{0x10, "Other"}, {0x11, KQ_PRIVATE_CREATOR}, {0x1015, "a"}, {0x1016, "x"}, {0x1116, "b"}},
         true,
         {{0x10, "Other"}, {0x11, KQ_PRIVATE_CREATOR}, {0x1115, "a"}, {0x1116, "b"}}},
        {"block 0x10 ours: its elements stay",
         {{0x10, KQ_PRIVATE_CREATOR}, {0x1015, "a"}},
         true,
         {{0x10, KQ_PRIVATE_CREATOR}, {0x1015, "a"}}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.what);
        std::unique_ptr<DcmItem> item(makeItem(c.before));
        item->putAndInsertString(DCM_PatientName, "Doe^Jane");
        KQItem kq(*item);
        EXPECT_TRUE(kq.calcPrivateBlock(c.relocateCanonic));
        Elements expected;
        for (const Element& e : c.after)
        {
            expected.push_back(e.number);
            EXPECT_EQ(e.value, stringOf(*item, f215(e.number))) << std::hex << e.number;
        }
        EXPECT_EQ(expected, privateElements(*item));
        EXPECT_EQ("Doe^Jane", stringOf(*item, DCM_PatientName));
        EXPECT_EQ(!c.after.empty(), kq.isReserved());
    }
}

TEST(KQItemRelocation, MovedElementsTakeOurCreatorAndLeaveNestedItemsToTheirOwnAccessor)
{
    DcmDataset ds;
    putPrivate(ds, 0xBA51, "20190305", EVR_DA);
    DcmItem* change = appendItem(ds, f215(0xDA31));
    putPrivate(*change, 0xDA80, "nested legacy");

    KQItem kq(ds);
    DcmItem* item = NULL;
    ASSERT_TRUE(kq.findAndGetKQSequenceItem(0x62, item, 0).good());
    DcmElement* moved = NULL;
    ASSERT_TRUE(ds.findAndGetElement(f215(0x1015), moved).good());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, moved->getTag().getPrivateCreator());
    EXPECT_EQ((Elements{0xDA80}), privateElements(*item));
    const char* value = NULL;
    ASSERT_TRUE(KQItem(*item).findAndGetKQString(0x3A, value).good());
    EXPECT_STREQ("nested legacy", value);
}

TEST(KQItemRelocation, WalkersReachEveryNestedItem)
{
    DcmDataset ds;
    DcmItem* study = appendItem(ds, DCM_ReferencedStudySequence);
    putCreator(*study, 0x10, "Other");
    putCreator(*study, 0xDA, KQ_LEGACY_CREATOR);
    putPrivate(*study, 0xDA80, "study description");
    putPrivate(*appendItem(*study, f215(0xDA32)), 0xBA51, "20010101", EVR_DA);
    DcmItem* foreign = appendItem(*study, f215(0xDA32));
    putCreator(*foreign, 0xBA, "Not ours");
    putPrivate(*foreign, 0xBA52, "120000", EVR_TM);

    KQItem::handlePrivateTags(&ds);
    EXPECT_EQ((Elements{}), privateElements(ds));
    EXPECT_EQ((Elements{0x0010, 0x0011, 0x113A, 0x1163}), privateElements(*study));
    DcmSequenceOfItems* seq = NULL;
    ASSERT_TRUE(study->findAndGetSequence(f215(0x1163), seq).good());
    EXPECT_EQ((Elements{0x0010, 0x1015}), privateElements(*seq->getItem(0)));
    EXPECT_EQ((Elements{0x00BA, 0xBA52}), privateElements(*seq->getItem(1)));

    // a broken item is logged and the walk goes on
    LogCapture log;
    DcmDataset broken;
    appendItem(*appendItem(broken, DCM_ReferencedStudySequence), f215(0x0010));
    DcmItem* next = appendItem(broken, DCM_ReferencedSeriesSequence);
    putPrivate(*next, 0xBA01, "moved");
    KQItem::handleCanonicAndOldPrivateTags(&broken);
    EXPECT_TRUE(log.contains("Error: couldn't calculate private block"));
    EXPECT_EQ((Elements{0x0010, 0x1001}), privateElements(*next));
}

TEST(KQItemRelocation, CanonicTagsOfCallers)
{
    DcmItem item;
    putCreator(item, 0x10, "Other");
    const std::pair<Uint16, Uint16> cases[][2] = {
        {{KQ_PRIVATE_GROUP, 0x1062}, {KQ_PRIVATE_GROUP, 0x1162}}, // into the item's block, reserved
        {{KQ_PRIVATE_GROUP, 0x1162}, {KQ_PRIVATE_GROUP, 0x1162}}, // already in a block
        {{0x0009, 0x1062}, {0x0009, 0x1062}},                     // another group
    };
    for (const auto& c : cases)
    {
        unsigned short element = c[0].second;
        KQItem::checkAndUpdateCanonicPrivateTag(&item, c[0].first, element);
        EXPECT_EQ(c[1].second, element);
    }
    EXPECT_EQ(KQ_PRIVATE_CREATOR, stringOf(item, f215(0x0011)));
    DcmTag tag(f215(0x1015));
    KQItem::checkAndUpdateCanonicPrivateTag(&item, tag);
    EXPECT_EQ(f215(0x1115), tag.getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, tag.getPrivateCreator());
    EXPECT_EQ(EVR_DA, tag.getEVR());

    // no block to be had: the element is left as it was
    DcmItem full;
    for (Uint16 block = 0x10; block <= 0xFF; ++block)
        putCreator(full, block, "Other");
    unsigned short element = 0x1062;
    KQItem::checkAndUpdateCanonicPrivateTag(&full, KQ_PRIVATE_GROUP, element);
    EXPECT_EQ(0x1062, element);
}

TEST(KQItemRelocation, NukeRemovesTheWholeGroupAtTopLevel)
{
    DcmDataset ds;
    ds.putAndInsertString(DCM_PatientName, "Doe^Jane");
    putCreator(ds, 0x10, "Other");
    putPrivate(ds, 0x1001, "theirs");
    putCreator(ds, 0x11, KQ_PRIVATE_CREATOR);
    putPrivate(ds, 0xBA01, "legacy");
    ds.putAndInsertString(DcmTag(0x0009, 0x0010, DcmVR(EVR_LO)), "Other group");
    putCreator(*appendItem(ds, DCM_ReferencedStudySequence), 0x10, KQ_PRIVATE_CREATOR);

    KQItem kq(ds);
    kq.nukePrivateTags();
    EXPECT_EQ((Elements{}), privateElements(ds));
    EXPECT_EQ(3u, ds.card());
    // settled with base 0 now: a second call does nothing
    putCreator(ds, 0x12, "Later");
    kq.nukePrivateTags();
    EXPECT_EQ((Elements{0x0012}), privateElements(ds));
    // a block that cannot be settled: nothing is removed
    DcmItem broken;
    appendItem(broken, f215(0x0010));
    KQItem(broken).nukePrivateTags();
    EXPECT_EQ((Elements{0x0010}), privateElements(broken));
}
