// Moving legacy and canonical-block elements into the item's block, the walkers over nested
// items, and the conversion of whole files.
#include "privatetags/tests/KQTestSupport.h"

#include <gtest/gtest.h>

using namespace kqtest;

namespace {

// Private elements: number and value; creator elements (00xx) take their value as creator.
typedef std::vector<std::pair<Uint16, const char*>> Privates;

DcmItem* makeItem(const Privates& elements)
{
    DcmItem* item = new DcmItem();
    for (const auto& e : elements)
        e.first < 0x100 ? putCreator(*item, e.first, e.second) : putPrivate(*item, e.first, e.second);
    return item;
}

// An image carrying soft-edit data the way an earlier release wrote it, with pixel data
// beyond the 4096 bytes loaded up front.
DcmFileFormat* makeLegacyObject()
{
    fixtures::ObjectSpec spec;
    spec.rows = 64;
    spec.columns = 64;
    DcmFileFormat* file = fixtures::makeObject(spec);
    DcmDataset& ds = *file->getDataset();
    putCreator(ds, 0xBA, KQ_LEGACY_CREATOR);
    putPrivate(ds, 0xBA51, "20190305", EVR_DA);
    putPrivate(ds, 0xBA08, "dropped");
    DcmItem* change = appendItem(ds, f215(0xDA31));
    change->putAndInsertString(DCM_PatientName, "Changed^Name");
    putCreator(*change, 0xDA, KQ_LEGACY_CREATOR);
    appendItem(*change, f215(0xDA32))->putAndInsertString(DCM_SeriesInstanceUID, "1.2.3.4");
    ds.putAndInsertString(DcmTag(0x0009, 0x0010, DcmVR(EVR_LO)), "Other vendor");
    return file;
}

} // namespace

TEST(KQItemRelocation, SettlingTheBlockMovesLegacyElements)
{
    struct Case
    {
        const char* what;
        Privates before;
        bool relocateCanonic;
        Privates after; // every private element with its value, in item order
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
        for (const auto& e : c.after)
        {
            expected.push_back(e.first);
            EXPECT_EQ(e.second, value(*item, f215(e.first))) << std::hex << e.first;
        }
        EXPECT_EQ(expected, privateElements(*item));
        EXPECT_EQ("Doe^Jane", value(*item, DCM_PatientName));
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
    const char* text = NULL;
    ASSERT_TRUE(KQItem(*item).findAndGetKQString(0x3A, text).good());
    EXPECT_STREQ("nested legacy", text);
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
    EXPECT_EQ(KQ_PRIVATE_CREATOR, value(item, f215(0x0011)));
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

TEST(KQItemFile, ImplicitVRTakesTheVRFromTheDictionary)
{
    fixtures::TempDir dir;
    const std::string path = dir.file("implicit.dcm");
    {
        DcmFileFormat file;
        DcmDataset& ds = *file.getDataset();
        putCreator(ds, 0x10, "Other vendor");
        putPrivate(ds, 0x1015, "not a date");
        KQItem kq(ds);
        ASSERT_TRUE(kq.putAndInsertKQString(0x15, "20231224").good());
        ASSERT_TRUE(kq.putAndInsertKQString(0x45, "SERIES").good());
        const Uint8 overlay[] = {1, 2, 3, 4};
        ASSERT_TRUE(kq.putAndInsertKQUint8Array(0x73, overlay, 4).good());
        DcmItem* change = NULL;
        ASSERT_TRUE(kq.findOrCreateKQSequenceItem(0x62, change).good());
        change->putAndInsertString(DCM_PatientID, "NEW-ID");
        ASSERT_TRUE(file.saveFile(path.c_str(), EXS_LittleEndianImplicit).good());
    }
    DcmFileFormat file;
    ASSERT_TRUE(file.loadFile(path.c_str()).good());
    DcmDataset& ds = *file.getDataset();
    // the same element number under another creator is unknown to the dictionary
    const std::pair<Uint16, const char*> vrs[] = {{0x1115, "DA"}, {0x1145, "CS"}, {0x1173, "OB"}, {0x1015, "??"}};
    for (const auto& v : vrs)
    {
        DcmElement* element = NULL;
        ASSERT_TRUE(ds.findAndGetElement(f215(v.first), element).good());
        EXPECT_STREQ(v.second, DcmVR(element->getVR()).getVRName()) << std::hex << v.first;
    }
    DcmItem* change = NULL;
    ASSERT_TRUE(KQItem(ds).findAndGetKQSequenceItem(0x62, change).good());
    EXPECT_EQ("NEW-ID", value(*change, DCM_PatientID));
}

TEST(KQItemFile, ConvertsLegacyFiles)
{
    fixtures::TempDir dir;
    const struct { E_TransferSyntax xfer; E_EncodingType encoding; bool inPlace; } cases[] = {
        {EXS_LittleEndianExplicit, EET_ExplicitLength, false},
        {EXS_LittleEndianImplicit, EET_UndefinedLength, false}, // legacy sequences read without dictionary
        {EXS_BigEndianExplicit, EET_ExplicitLength, true},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(DcmXfer(c.xfer).getXferName());
        const std::string in = dir.file("legacy.dcm");
        const std::string out = c.inPlace ? in : dir.file("converted.dcm");
        std::unique_ptr<DcmFileFormat> legacy(makeLegacyObject());
        ASSERT_TRUE(legacy->saveFile(in.c_str(), c.xfer, c.encoding).good());
        const std::string original = fixtures::readFile(in);

        ASSERT_TRUE(KQItem::convertFilePrivateTags(in.c_str(), out.c_str()));
        EXPECT_TRUE(c.inPlace || original == fixtures::readFile(in));
        DcmFileFormat converted;
        ASSERT_TRUE(converted.loadFile(out.c_str()).good());
        DcmDataset& ds = *converted.getDataset();
        EXPECT_EQ(c.xfer, ds.getOriginalXfer());
        EXPECT_EQ((Elements{0x0010, 0x1015, 0x1062}), privateElements(ds));
        EXPECT_EQ("20190305", value(ds, f215(0x1015)));
        DcmItem* change = NULL;
        ASSERT_TRUE(KQItem(ds).findAndGetKQSequenceItem(0x62, change).good());
        EXPECT_EQ("Changed^Name", value(*change, DCM_PatientName));
        EXPECT_EQ((Elements{0x0010, 0x1063}), privateElements(*change));
        // everything else is carried over, pixel data included
        EXPECT_EQ("Other vendor", value(ds, DcmTagKey(0x0009, 0x0010)));
        DcmElement *before = NULL, *after = NULL;
        ASSERT_TRUE(legacy->getDataset()->findAndGetElement(DCM_PixelData, before).good());
        ASSERT_TRUE(ds.findAndGetElement(DCM_PixelData, after).good());
        EXPECT_EQ(0, before->compare(*after));
    }
}
