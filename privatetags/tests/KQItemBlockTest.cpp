// The private block and its accessors, the legacy key map, relocation and the nested-item walkers.
#include "privatetags/KQItem.h"
#include "privatetags/KQLog.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

using fixtures::value;

namespace {

typedef std::vector<Uint16> Elements;
// Private elements: number and value; creator elements (00xx) take their value as creator.
typedef std::vector<std::pair<Uint16, const char*>> Privates;

// The private tag layer's log lines while a LogCapture lives.
std::vector<std::string> logged;
struct LogCapture
{
    LogCapture() : m_previous(KQLog::setObserver([](const char* text) { logged.push_back(text); })) { logged.clear(); }
    ~LogCapture() { KQLog::setObserver(m_previous); }
    KQLog::Observer m_previous;
};

DcmTagKey f215(Uint16 element) { return DcmTagKey(KQ_PRIVATE_GROUP, element); }

// A string element of group F215 with an explicit VR (creator slots are LO), as an older writer did.
void putPrivate(DcmItem& item, Uint16 element, const char* text, DcmEVR vr = EVR_LO)
{
    item.putAndInsertString(DcmTag(f215(element), DcmVR(vr)), text);
}

DcmItem* makeItem(const Privates& elements, DcmItem* item = new DcmItem())
{
    for (const auto& e : elements)
        putPrivate(*item, e.first, e.second);
    return item;
}

// Element numbers of the top-level elements of group F215, in item order.
Elements privateElements(DcmItem& item)
{
    Elements elements;
    for (DcmObject* obj = item.nextInContainer(NULL); obj; obj = item.nextInContainer(obj))
        if (obj->getTag().getGroup() == KQ_PRIVATE_GROUP)
            elements.push_back(obj->getTag().getElement());
    return elements;
}

// Appends a fresh item to a sequence element at seqKey (created when missing).
DcmItem* appendItem(DcmItem& parent, const DcmTagKey& seqKey)
{
    DcmItem* item = NULL;
    parent.findOrCreateSequenceItem(DcmTag(seqKey, DcmVR(EVR_SQ)), item, -2);
    return item;
}

} // namespace

TEST(KQItemBlock, FirstFreeSlotReservedOnFirstWriteAndWritersPassTheToolkitsAnswerOn)
{
    DcmDataset ds;
    ds.putAndInsertString(DCM_PatientName, "Doe^John");
    KQItem kq(ds);
    const char* text = NULL;
    DcmItem* change = NULL;
    EXPECT_EQ(EC_TagNotFound, kq.findAndGetKQString(0x15, text));
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
    DcmItem item;
    putPrivate(item, 0x10, "Other");
    KQItem other(item);
    const Uint8 bytes[] = {1, 2, 3, 4};
    const Uint16 words[] = {7, 8};
    ASSERT_TRUE(other.putAndInsertKQUint8Array(0x73, bytes, 4).good());
    EXPECT_EQ(EC_IllegalCall, other.putAndInsertKQUint16Array(0x73, words, 2)); // words do not fit OB
    ASSERT_TRUE(other.putAndInsertKQString(0x45, "STUDY").good());
    EXPECT_EQ(EC_DoubledTag, other.putAndInsertKQString(0x45, "SERIES", false));
    EXPECT_EQ("STUDY", value(item, f215(0x1145)));
    DcmTagKey key = f215(0x0064);
    EXPECT_TRUE(other.adjustPrivateTag(key).good());
    EXPECT_EQ(f215(0x1164), key);
    std::unique_ptr<DcmElement> removed(other.removeKQ(0x45));
    ASSERT_NE(nullptr, removed);
    EXPECT_EQ(f215(0x1145), removed->getTag().getXTag());
    EXPECT_EQ(nullptr, other.removeKQ(0x45));
    EXPECT_EQ((Elements{0x0010, 0x0011, 0x1173}), privateElements(item));
}

TEST(KQItemBlock, SearchesCreatorSlotsInOrderAndAnUnreadableOneFailsEveryAccessor)
{
    const struct
    {
        std::vector<const char*> creators; // slots 0x10, 0x11, ...; null: free
        bool calculated;
        unsigned short base;
        bool reserved;
    } cases[] = {
        {{"A", "B", "C"}, true, 0x1300, false},                 // the first free slot
        {{"A", "B", KQ_PRIVATE_CREATOR}, true, 0x1200, true},   // ours, behind others
        {{"A", NULL, KQ_PRIVATE_CREATOR}, true, 0x1100, false}, // a free slot comes first
        {{""}, true, 0x1100, false},                            // an empty creator is someone's
        {std::vector<const char*>(240, "Other"), false, 0, false},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.creators.size());
        DcmItem item;
        for (size_t i = 0; i < c.creators.size(); ++i)
            if (c.creators[i] != NULL)
                putPrivate(item, Uint16(0x10 + i), c.creators[i]);
        const unsigned long before = item.card();
        KQItem kq(item);
        EXPECT_EQ(c.calculated, kq.calcPrivateBlock(false));
        EXPECT_EQ(c.base, kq.getBlockBase());
        EXPECT_EQ(c.reserved, kq.isReserved());
        EXPECT_EQ(before, item.card());
    }
    // an unreadable creator slot fails every accessor
    LogCapture log;
    DcmItem item;
    Uint16 number = 7;
    item.putAndInsertUint16Array(DcmTag(f215(0x0010), DcmVR(EVR_US)), &number, 1);
    putPrivate(item, 0x11, KQ_PRIVATE_CREATOR);
    KQItem kq(item);
    EXPECT_FALSE(kq.calcPrivateBlock(false));
    EXPECT_EQ(nullptr, kq.removeKQ(0x15));
    EXPECT_EQ(std::vector<std::string>{"couldn't calc"}, logged);
    const char* text = NULL;
    DcmItem* sub = NULL;
    DcmTag tag;
    DcmTagKey key = f215(0x0015), publicKey(DCM_PatientName);
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.findAndGetKQString(0x15, text));
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.putAndInsertKQString(0x15, "x"));
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.findOrCreateKQSequenceItem(0x62, sub));
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.getTag(0x15, tag));
    EXPECT_EQ(EC_KQPrivateTagProblem, kq.adjustPrivateTag(key));
    EXPECT_TRUE(kq.adjustPrivateTag(publicKey).good()); // other groups need no block
    EXPECT_EQ(2u, item.card());
}

TEST(KQItemBlock, ChangeSequencesOfAKqRDatasetAndSearchesIntoSubItems)
{
    DcmDataset kqr;
    makeItem({{0x10, "Vendor X"}, {0x11, "Vendor Y"}}, &kqr);
    {
        KQItem writer(kqr);
        DcmItem *change = NULL, *series = NULL;
        ASSERT_TRUE(writer.findOrCreateKQSequenceItem(0x62, change, 0).good());
        change->putAndInsertString(DCM_PatientName, "New^Name");
        KQItem changeItem(*change);
        ASSERT_TRUE(changeItem.findOrCreateKQSequenceItem(0x63, series, -2).good());
        series->putAndInsertString(DCM_SeriesInstanceUID, "1.2.3");
        EXPECT_EQ(0x1000, changeItem.getBlockBase()); // the item settles its own block
    }
    EXPECT_TRUE(kqr.tagExists(f215(0x1262)));
    KQItem reader(kqr);
    DcmItem *change = NULL, *second = NULL;
    ASSERT_TRUE(reader.findAndGetKQSequenceItem(0x62, change, 0).good());
    EXPECT_EQ("New^Name", value(*change, DCM_PatientName));
    EXPECT_EQ(EC_IllegalParameter, reader.findAndGetKQSequenceItem(0x62, second, 1));
    KQItem changeReader(*change);
    DcmSequenceOfItems *seriesSeq = NULL, *none = NULL;
    ASSERT_TRUE(changeReader.findAndGetKQSequence(0x63, seriesSeq).good());
    EXPECT_EQ("1.2.3", value(*seriesSeq->getItem(0), DCM_SeriesInstanceUID));
    EXPECT_TRUE(changeReader.isObjectOurPrivateElement(seriesSeq, 0x63));
    EXPECT_EQ(EC_TagNotFound, reader.findAndGetKQSequence(0x63, none)); // not at top level
    // a search into sub-items uses each item's block
    DcmDataset ds;
    makeItem({{0x10, KQ_PRIVATE_CREATOR}, {0x103A, "top level"}}, &ds);
    appendItem(ds, DCM_ReferencedStudySequence)->putAndInsertString(DCM_StudyInstanceUID, "1.2");
    DcmItem* nested =
        makeItem({{0x10, "Someone"}, {0x11, KQ_PRIVATE_CREATOR}}, appendItem(ds, DCM_ReferencedSeriesSequence));
    putPrivate(*nested, 0x1115, "20210304", EVR_DA);
    DcmItem* deeper = makeItem({{0x10, KQ_PRIVATE_CREATOR}}, appendItem(*nested, DCM_ReferencedImageSequence));
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
    DcmItem* good = makeItem({{0x10, KQ_PRIVATE_CREATOR}}, appendItem(broken, DCM_ReferencedSeriesSequence));
    putPrivate(*good, 0x1015, "20000101", EVR_DA);
    LogCapture log;
    EXPECT_EQ(EC_KQPrivateTagProblem, KQItem(broken).findAndGetKQString(0x15, text, true));
}

TEST(KQItemBlock, InsertAndCopyRelocateLegacyElementsOfOurBlocks)
{
    DcmItem item;
    putPrivate(item, 0x10, "Other");
    KQItem kq(item);
    // a legacy element of a block without creator element goes in under its canonical number
    DcmElement* legacy = new DcmLongString(DcmTag(f215(0xBA51), DcmVR(EVR_LO)));
    ASSERT_TRUE(kq.insertKQ(legacy).good());
    EXPECT_EQ(f215(0x1115), legacy->getTag().getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, legacy->getTag().getPrivateCreator());
    // legacy keys absent from the map go in as they are
    ASSERT_TRUE(kq.insertKQ(new DcmLongString(DcmTag(f215(0xBA08), DcmVR(EVR_LO)))).good());
    EXPECT_EQ((Elements{0x0010, 0x0011, 0x1115, 0xBA08}), privateElements(item));
    // an element under the new tag is kept when replacing is not wanted, and the refused one goes
    // back to the caller as it came; with replacing, one element is left under the tag
    ASSERT_TRUE(kq.putAndInsertKQString(0x3A, "first").good());
    std::unique_ptr<DcmElement> collide(new DcmLongString(DcmTag(f215(0xDA80), DcmVR(EVR_LO))));
    EXPECT_EQ(EC_DoubledTag, kq.insertKQ(collide.get(), false));
    EXPECT_EQ(f215(0xDA80), collide->getTag().getXTag());
    DcmElement* replace = new DcmLongString(DcmTag(f215(0xDA80), DcmVR(EVR_LO)));
    replace->putString("third");
    EXPECT_TRUE(kq.insertKQ(replace, true).good());
    EXPECT_EQ("third", value(item, f215(0x113A)));
    EXPECT_EQ((Elements{0x0010, 0x0011, 0x1115, 0x113A, 0xBA08}), privateElements(item));
    // a legacy block with a foreign creator is not ours
    putPrivate(item, 0xDA, "Someone");
    ASSERT_TRUE(kq.insertKQ(new DcmLongString(DcmTag(f215(0xDA80), DcmVR(EVR_LO)))).good());
    EXPECT_TRUE(item.tagExists(f215(0xDA80)));
    DcmItem source;
    source.putAndInsertString(DCM_PatientName, "Copied^Name");
    DcmItem* change =
        makeItem({{0xDA, KQ_LEGACY_CREATOR}, {0xDA80, "legacy description"}}, appendItem(source, f215(0xDA31)));
    makeItem({{0xBA08, "not mapped"}, {0x1245, "other block"}, {0x10A5, "canonical block"}}, &source);
    DcmItem target;
    makeItem({{0x10, "Other"}}, &target)->putAndInsertString(DCM_PatientName, "Kept^Name");
    KQItem copier(target);
    for (DcmObject* obj = source.nextInContainer(NULL); obj; obj = source.nextInContainer(obj))
        ASSERT_TRUE(copier.copyPrivateElement(*OFstatic_cast(DcmElement*, obj), false).good()) << obj->getTag();
    EXPECT_EQ("Kept^Name", value(target, DCM_PatientName)); // not replaced
    // keys not in the map keep their numbers; mapped ones move into the block 0x11
    EXPECT_EQ((Elements{0x0010, 0x0011, 0x1162, 0x11A5, 0x1245, 0xBA08}), privateElements(target));
    // the copied legacy change sequence's item is cleaned too, the source left as it was
    DcmItem* copied = NULL;
    ASSERT_TRUE(copier.findAndGetKQSequenceItem(0x62, copied).good());
    EXPECT_EQ((Elements{0x0010, 0x103A}), privateElements(*copied));
    EXPECT_EQ((Elements{0x00DA, 0xDA80}), privateElements(*change));
    EXPECT_TRUE(copier.copyPrivateElement(*source.getElement(0), true).good());
    EXPECT_EQ("Copied^Name", value(target, DCM_PatientName));
}

TEST(KQItemMap, CanonicKeysTagsAndClassification)
{
    const std::pair<DcmTagKey, DcmTagKey> cases[] = {
        {DcmTagKey(0x0010, 0x0010), DcmTagKey(0x0010, 0x0010)}, // outside group F215: unchanged
        {DcmTagKey(0xF213, 0xBA01), DcmTagKey(0xF213, 0xBA01)},
        {f215(0x1123), f215(0x1023)}, {f215(0xFF62), f215(0x1062)}, // any other block folds onto block 10
        {f215(0x0011), f215(0x1011)}, {f215(0x00BA), f215(0x10BA)}, // creator elements included
        {f215(0xDA31), f215(0x1062)}, {f215(0xBA94), f215(0x1094)}, // legacy blocks through the map
        {f215(0xBA08), f215(0xBA08)}, // legacy keys missing from the map stay
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.second, KQItem::getCanonicKey(DcmTag(c.first))) << c.first;
    const DcmTag tag = KQItem::canonicTag(0x62);
    EXPECT_EQ(f215(0x1062), tag.getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, tag.getPrivateCreator());
    EXPECT_EQ(EVR_SQ, tag.getEVR());
    for (Uint16 element : {0x000F, 0x0010, 0x00FF, 0x0100})
        EXPECT_EQ(element >= 0x10 && element <= 0xFF, KQItem::isOurPrivateCreator(DcmTag(f215(element)))) << element;
    EXPECT_TRUE(KQItem::isOurPrivateTagKey(f215(0x1000)));
    EXPECT_FALSE(KQItem::isOurPrivateTagKey(f215(0x0FFF)));
    // the creator decides, in any odd group
    EXPECT_TRUE(KQItem::isOurPrivateTag(DcmTag(0x0009, 0x1015, KQ_PRIVATE_CREATOR)));
    EXPECT_FALSE(KQItem::isOurPrivateTag(DcmTag(0xF215, 0x1115, "KQ group B")));
    EXPECT_FALSE(KQItem::isOurPrivateTag(DcmTag(0x0007, 0x1015, KQ_PRIVATE_CREATOR)));
    std::unique_ptr<DcmElement> element(KQItem::createNewDicomElement(f215(0x1315)));
    ASSERT_NE(nullptr, element);
    EXPECT_EQ(EVR_DA, element->ident());
    EXPECT_STREQ("KQItem Private Tag Relocation Error", OFCondition(EC_KQPrivateTagProblem).text());
}

TEST(KQItemMap, ConvertTagAndCanonicTagsOfCallers)
{
    DcmItem item;
    putPrivate(item, 0x10, "Someone else");
    // a legacy key in the map moves into the item's block (0x11), with its VR
    DcmTag tag(f215(0xDA31));
    EXPECT_TRUE(KQItem(item).convertTag(tag).good());
    EXPECT_EQ(f215(0x1162), tag.getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, tag.getPrivateCreator());
    EXPECT_EQ(EVR_SQ, tag.getEVR());
    EXPECT_EQ(KQ_PRIVATE_CREATOR, value(item, f215(0x0011)));
    for (const DcmTagKey& key : {f215(0xBA08), DcmTagKey(0x0010, 0x0010), f215(0x1062)})
    {
        DcmTag unchanged(key);
        EXPECT_TRUE(KQItem(item).convertTag(unchanged).good());
        EXPECT_EQ(key, unchanged.getXTag());
    }
    // callers' canonical tags go into the item's block, reserved; other blocks and groups stay
    DcmItem callers;
    putPrivate(callers, 0x10, "Other");
    const std::pair<Uint16, Uint16> cases[][2] = {{{KQ_PRIVATE_GROUP, 0x1062}, {KQ_PRIVATE_GROUP, 0x1162}},
                                                  {{KQ_PRIVATE_GROUP, 0x1162}, {KQ_PRIVATE_GROUP, 0x1162}},
                                                  {{0x0009, 0x1062}, {0x0009, 0x1062}}};
    for (const auto& c : cases)
    {
        unsigned short element = c[0].second;
        KQItem::checkAndUpdateCanonicPrivateTag(&callers, c[0].first, element);
        EXPECT_EQ(c[1].second, element);
    }
    EXPECT_EQ(KQ_PRIVATE_CREATOR, value(callers, f215(0x0011)));
    DcmTag canonic(f215(0x1015));
    KQItem::checkAndUpdateCanonicPrivateTag(&callers, canonic);
    EXPECT_EQ(f215(0x1115), canonic.getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, canonic.getPrivateCreator());
    EXPECT_EQ(EVR_DA, canonic.getEVR());
    // a block that cannot be settled, or no block to be had: left as it was
    LogCapture log;
    DcmItem broken, full;
    appendItem(broken, f215(0x0010));
    DcmTag legacy(f215(0xBA51));
    EXPECT_EQ(EC_KQPrivateTagProblem, KQItem(broken).convertTag(legacy));
    EXPECT_EQ(f215(0xBA51), legacy.getXTag());
    EXPECT_EQ(1, std::count(logged.begin(), logged.end(), "couldn't calc"));
    for (Uint16 block = 0x10; block <= 0xFF; ++block)
        putPrivate(full, block, "Other");
    unsigned short element = 0x1062;
    KQItem::checkAndUpdateCanonicPrivateTag(&full, KQ_PRIVATE_GROUP, element);
    EXPECT_EQ(0x1062, element);
}

TEST(KQItemRelocation, SettlingTheBlockMovesLegacyElements)
{
    const struct
    {
        const char* what;
        Privates before;
        bool relocateCanonic;
        Privates after; // every private element with its value, in item order
    } cases[] = {
        {"mapped elements move, unmapped ones and the legacy creators go",
         {{0xBA, KQ_LEGACY_CREATOR}, {0xBA00, "a"}, {0xBA01, "b"}, {0xBA08, "x"}, {0xBA94, "c"}, {0xDA71, "d"}},
         false, {{0x10, KQ_PRIVATE_CREATOR}, {0x1001, "b"}, {0x100A, "d"}, {0x1010, "a"}, {0x1094, "c"}}},
        {"a legacy block with a foreign creator is kept",
         {{0xBA, "Another vendor"}, {0xBA01, "theirs"}, {0xDA, KQ_LEGACY_CREATOR}, {0xDA80, "ours"}},
         false, {{0x10, KQ_PRIVATE_CREATOR}, {0xBA, "Another vendor"}, {0x103A, "ours"}, {0xBA01, "theirs"}}},
        {"nothing left to move reserves nothing", {{0xBA, KQ_LEGACY_CREATOR}, {0xBA08, "x"}}, false, {}},
        {"an element already in the block wins",
         {{0x10, "Other"}, {0x11, KQ_PRIVATE_CREATOR}, {0x1002, "?"}, {0x1101, "kept"}, {0xBA01, "x"}, {0xBA02, "new"}},
         false, {{0x10, "Other"}, {0x11, KQ_PRIVATE_CREATOR}, {0x1002, "?"}, {0x1101, "kept"}, {0x1102, "new"}}},
        {"the canonical block stays unless asked",
         {{0x10, "Other"}, {0x11, KQ_PRIVATE_CREATOR}, {0x1015, "a"}, {0x1116, "b"}}, false,
         {{0x10, "Other"}, {0x11, KQ_PRIVATE_CREATOR}, {0x1015, "a"}, {0x1116, "b"}}},
        {"the canonical block moves when asked, existing elements win",
         {{0x10, "Other"}, {0x11, KQ_PRIVATE_CREATOR}, {0x1015, "a"}, {0x1016, "x"}, {0x1116, "b"}},
         true, {{0x10, "Other"}, {0x11, KQ_PRIVATE_CREATOR}, {0x1115, "a"}, {0x1116, "b"}}},
        {"block 0x10 ours: its elements stay", {{0x10, KQ_PRIVATE_CREATOR}, {0x1015, "a"}}, true,
         {{0x10, KQ_PRIVATE_CREATOR}, {0x1015, "a"}}},
    };
    for (const auto& c : cases)
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

TEST(KQItemRelocation, MovedElementsTakeOurCreatorAndWalkersReachEveryNestedItem)
{
    DcmDataset ds;
    putPrivate(ds, 0xBA51, "20190305", EVR_DA);
    putPrivate(*appendItem(ds, f215(0xDA31)), 0xDA80, "nested legacy");
    DcmItem* item = NULL;
    ASSERT_TRUE(KQItem(ds).findAndGetKQSequenceItem(0x62, item, 0).good());
    DcmElement* moved = NULL;
    ASSERT_TRUE(ds.findAndGetElement(f215(0x1015), moved).good());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, moved->getTag().getPrivateCreator());
    EXPECT_EQ((Elements{0xDA80}), privateElements(*item)); // a nested item is left to its own accessor
    const char* text = NULL;
    ASSERT_TRUE(KQItem(*item).findAndGetKQString(0x3A, text).good());
    EXPECT_STREQ("nested legacy", text);
    DcmDataset walked;
    DcmItem* study = makeItem({{0x10, "Other"}, {0xDA, KQ_LEGACY_CREATOR}, {0xDA80, "study description"}},
                              appendItem(walked, DCM_ReferencedStudySequence));
    putPrivate(*appendItem(*study, f215(0xDA32)), 0xBA51, "20010101", EVR_DA);
    DcmItem* foreign = makeItem({{0xBA, "Not ours"}}, appendItem(*study, f215(0xDA32)));
    putPrivate(*foreign, 0xBA52, "120000", EVR_TM);
    KQItem::handlePrivateTags(&walked);
    EXPECT_EQ((Elements{}), privateElements(walked));
    EXPECT_EQ((Elements{0x0010, 0x0011, 0x113A, 0x1163}), privateElements(*study));
    DcmSequenceOfItems* seq = NULL;
    ASSERT_TRUE(study->findAndGetSequence(f215(0x1163), seq).good());
    EXPECT_EQ((Elements{0x0010, 0x1015}), privateElements(*seq->getItem(0)));
    EXPECT_EQ((Elements{0x00BA, 0xBA52}), privateElements(*seq->getItem(1)));
    // a broken item is logged and the walk goes on
    LogCapture log;
    DcmDataset broken;
    appendItem(*appendItem(broken, DCM_ReferencedStudySequence), f215(0x0010)); // a sequence as creator
    DcmItem* next = makeItem({{0xBA01, "moved"}}, appendItem(broken, DCM_ReferencedSeriesSequence));
    KQItem::handleCanonicAndOldPrivateTags(&broken);
    EXPECT_EQ(std::vector<std::string>{"Error: couldn't calculate private block"}, logged);
    EXPECT_EQ((Elements{0x0010, 0x1001}), privateElements(*next));
}

TEST(KQItemFile, ImplicitVRTakesTheVRFromTheDictionary)
{
    fixtures::TempDir dir;
    const std::string path = dir.file("implicit.dcm");
    {
        DcmFileFormat file;
        KQItem kq(*makeItem({{0x10, "Other vendor"}, {0x1015, "not a date"}}, file.getDataset()));
        ASSERT_TRUE(kq.putAndInsertKQString(0x15, "20231224").good() && kq.putAndInsertKQString(0x45, "SERIES").good());
        const Uint8 overlay[] = {1, 2, 3, 4};
        DcmItem* change = NULL;
        ASSERT_TRUE(kq.putAndInsertKQUint8Array(0x73, overlay, 4).good());
        ASSERT_TRUE(kq.findOrCreateKQSequenceItem(0x62, change).good());
        ASSERT_TRUE(file.saveFile(path.c_str(), EXS_LittleEndianImplicit).good());
    }
    DcmFileFormat file;
    ASSERT_TRUE(file.loadFile(path.c_str()).good());
    // the same element number under another creator is unknown to the dictionary
    const std::pair<Uint16, const char*> vrs[] = {
        {0x1115, "DA"}, {0x1145, "CS"}, {0x1173, "OB"}, {0x1162, "SQ"}, {0x1015, "??"}};
    for (const auto& v : vrs)
    {
        DcmElement* element = NULL;
        ASSERT_TRUE(file.getDataset()->findAndGetElement(f215(v.first), element).good());
        EXPECT_STREQ(v.second, DcmVR(element->getVR()).getVRName()) << std::hex << v.first;
    }
}
