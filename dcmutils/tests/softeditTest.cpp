// Applying study, series and instance changes to a dataset in memory.
#include "tests/fixtures/Fixtures.h"
#include "privatetags/KQItem.h"
#include "dcmutils/KqRWriter.h"
#include "dcmutils/softedit.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <tuple>

using namespace fixtures;

namespace {

const ObjectSpec defaults;
const char* const seriesUID = defaults.seriesUID.c_str();

std::unique_ptr<DcmFileFormat> target(const std::string& sopClass = "1.2.840.10008.5.1.4.1.1.2")
{
    ObjectSpec spec;
    spec.sopClassUID = sopClass;
    spec.modality = "MR";
    spec.withPixelData = false;
    return std::unique_ptr<DcmFileFormat>(makeObject(spec));
}

OFCondition apply(DcmFileFormat& object, KqRWriter& kqr, std::list<DcmTagKey>* modified = nullptr)
{
    return applyModifications(*object.getDataset(), *kqr.fileFormat().getDataset(), modified);
}

DcmItem* changeItem(KqRWriter& kqr)
{
    DcmItem* change = nullptr;
    EXPECT_TRUE(kqr.changeItem(change).good());
    return change;
}

} // namespace

TEST(SoftEdit, MatchingRules)
{
    // what, the target has a Series Instance UID, the UID of a series item before the matching
    // one (null: none), result, Series Description afterwards, the series item that applied
    const std::tuple<const char*, bool, const char*, OFCondition, const char*, long> cases[] = {
        {"a target without Series Instance UID gets the study level only", false, nullptr, EC_Normal, "study", -1},
        {"an item without its UID before the matching one fails the call", true, "", EC_TagNotFound, "study", -1},
        {"of two items with the same UID only the first applies", true, seriesUID, EC_Normal, "first", 0},
        {"the second item applies", true, "9.9", EC_Normal, "second", 1},
    };
    for (const auto& t : cases)
    {
        SCOPED_TRACE(std::get<0>(t));
        auto object = target();
        if (!std::get<1>(t))
            delete object->getDataset()->remove(DCM_SeriesInstanceUID);
        KqRWriter kqr;
        kqr.setStudyAttribute(DCM_SeriesDescription, "study");
        std::vector<std::pair<const char*, const char*>> items = {{seriesUID, "second"}};
        if (std::get<2>(t))
            items.insert(items.begin(), {std::get<2>(t), "first"});
        for (const auto& i : items)
        {
            DcmItem* item = nullptr;
            ASSERT_TRUE(KQItem(*changeItem(kqr)).findOrCreateKQSequenceItem(KQ_SERIES_SEQUENCE, item, -2).good());
            if (*i.first)
                item->putAndInsertString(DCM_SeriesInstanceUID, i.first);
            item->putAndInsertString(DCM_SeriesDescription, i.second);
        }
        SoftEditOutcome outcome;
        DcmDataset& changes = *kqr.fileFormat().getDataset();
        EXPECT_EQ(std::get<3>(t), applySoftEdit(*object->getDataset(), changes, nullptr, outcome));
        EXPECT_EQ(std::get<4>(t), value(*object->getDataset(), DCM_SeriesDescription));
        EXPECT_EQ(std::get<5>(t), outcome.seriesItem);
    }
}

TEST(SoftEdit, NonImageObjectsKeepTheirModality)
{
    KqRWriter kqr;
    kqr.setStudyAttribute(DCM_Modality, "CT");
    const std::pair<const char*, const char*> cases[] = {
        {"1.2.840.10008.5.1.4.1.1.4", "CT"},     // MR image
        {"1.2.840.10008.5.1.4.1.1.88.3", "CT"},  // not in the list
        {"1.2.840.10008.5.1.4.1.1.88.33", "MR"}, // Comprehensive SR
        {"1.2.840.10008.5.1.4.1.1.11.1", "MR"},  // Grayscale Softcopy Presentation State
        {"1.2.840.10008.5.1.4.1.1.104.1", "MR"}, // Encapsulated PDF
        {"1.2.840.10008.5.1.4.1.1.66.2", "MR"}}; // Spatial Fiducials
    for (const auto& c : cases)
    {
        auto object = target(c.first);
        std::list<DcmTagKey> modified;
        ASSERT_TRUE(apply(*object, kqr, &modified).good());
        EXPECT_EQ(c.second, value(*object->getDataset(), DCM_Modality)) << c.first;
        EXPECT_EQ(std::string(c.second) == "CT", std::count(modified.begin(), modified.end(), DCM_Modality) == 1);
    }
}

TEST(SoftEdit, CorruptedChangeData)
{
    // an element copyElement cannot copy fails the call after the earlier copies
    auto object = target();
    KqRWriter kqr;
    changeItem(kqr)->putAndInsertString(DCM_PatientName, "Before^OB");
    const Uint8 bytes[] = {1, 2};
    changeItem(kqr)->putAndInsertUint8Array(DCM_ICCProfile, bytes, 2);
    EXPECT_EQ(EC_CorruptedData, apply(*object, kqr));
    EXPECT_EQ("Before^OB", value(*object->getDataset(), DCM_PatientName));
    // a nested change sequence's tag holding an element of another VR is never taken for a sequence
    for (const unsigned short nested : {KQ_SERIES_SEQUENCE, KQ_INSTANCE_SEQUENCE})
    {
        object = target();
        KqRWriter writer;
        const char* instance = defaults.sopInstanceUID.c_str();
        ASSERT_TRUE(writer.setInstanceAttribute(seriesUID, instance, DCM_InstanceNumber, "5").good());
        DcmItem* holder = changeItem(writer);
        ASSERT_TRUE(nested == KQ_SERIES_SEQUENCE || writer.seriesItem(seriesUID, holder).good());
        const DcmTagKey key(KQ_PRIVATE_GROUP, 0x1000 | nested); // the writer's items use block 0x10
        ASSERT_TRUE(holder->findAndDeleteElement(key).good());
        DcmTag tag(key, EVR_OB);
        tag.setPrivateCreator(KQ_PRIVATE_CREATOR);
        DcmElement* binary = new DcmOtherByteOtherWord(tag);
        const Uint8 item[] = {0xFE, 0xFF, 0x00, 0xE0};
        binary->putUint8Array(item, 4);
        ASSERT_TRUE(holder->insert(binary).good());
        EXPECT_EQ(EC_CorruptedData, apply(*object, writer)) << nested;
    }
}

TEST(SoftEdit, PrivateElementsGoIntoTheTargetsBlockOfTheirCreator)
{
    auto privateLO = [](Uint16 element, const char* creator) {
        DcmTag tag(0x0019, element, creator);
        tag.setVR(EVR_LO);
        return tag;
    };
    // the change set's element of "ACME" sits in its block 10, read back from a file
    KqRWriter kqr;
    ASSERT_TRUE(changeItem(kqr)->putAndInsertString(DcmTag(0x0019, 0x0010, EVR_LO), "ACME").good());
    ASSERT_TRUE(changeItem(kqr)->putAndInsertString(privateLO(0x1001, "ACME"), "edited").good());
    TempDir dir;
    DcmFileFormat changes;
    ASSERT_TRUE(kqr.save(dir.file("kqr").c_str()).good() && changes.loadFile(dir.file("kqr").c_str()).good());
    // what, the target's creator slots, the element written
    const std::tuple<const char*, std::vector<std::pair<Uint16, const char*>>, Uint16> cases[] = {
        {"no block: the first free slot", {}, 0x1001},
        {"slot 10 another creator's: 11", {{0x10, "OTHER"}}, 0x1101},
        {"its own block at 12", {{0x10, "OTHER"}, {0x12, "ACME"}}, 0x1201}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::get<0>(c));
        auto object = target();
        DcmDataset& ds = *object->getDataset();
        for (const auto& slot : std::get<1>(c))
            ASSERT_TRUE(ds.putAndInsertString(DcmTag(0x0019, slot.first, EVR_LO), slot.second).good());
        const bool fresh = std::get<1>(c).empty();
        ASSERT_TRUE(fresh || ds.putAndInsertString(privateLO(0x1001, "OTHER"), "theirs").good());
        ASSERT_TRUE(applyModifications(ds, *changes.getDataset()).good());
        EXPECT_EQ("edited", value(ds, DcmTagKey(0x0019, std::get<2>(c))));
        for (const auto& slot : std::get<1>(c))
            EXPECT_EQ(slot.second, value(ds, DcmTagKey(0x0019, slot.first)));
        // another creator's element stays; a new block gets its creator
        EXPECT_EQ(fresh ? "ACME" : "theirs", value(ds, DcmTagKey(0x0019, fresh ? 0x0010 : 0x1001)));
    }
}
