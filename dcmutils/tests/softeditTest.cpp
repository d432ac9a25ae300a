// Applying study, series and instance changes to a dataset in memory.
#include "tests/fixtures/Fixtures.h"
#include "privatetags/KQItem.h"
#include "dcmutils/KqRWriter.h"
#include "dcmutils/softedit.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

using namespace fixtures;

namespace {

std::unique_ptr<DcmFileFormat> target(const std::string& sopClass = "1.2.840.10008.5.1.4.1.1.2")
{
    ObjectSpec spec;
    spec.sopClassUID = sopClass;
    spec.modality = "MR";
    spec.withPixelData = false;
    return std::unique_ptr<DcmFileFormat>(makeObject(spec));
}

std::string value(DcmItem& item, const DcmTagKey& key)
{
    OFString v;
    return item.findAndGetOFStringArray(key, v).good() ? v.c_str() : "<missing>";
}

std::vector<DcmTagKey> keys(const std::list<DcmTagKey>& list)
{
    return std::vector<DcmTagKey>(list.begin(), list.end());
}

const ObjectSpec defaults;

} // namespace

TEST(SoftEdit, NothingToApply)
{
    auto object = target();
    const std::string before = value(*object->getDataset(), DCM_PatientName);
    KqRWriter kqr;
    std::list<DcmTagKey> modified;
    EXPECT_TRUE(applyModifications(*object->getDataset(), *kqr.fileFormat().getDataset(), &modified).good());
    EXPECT_TRUE(modified.empty());
    EXPECT_EQ(before, value(*object->getDataset(), DCM_PatientName));
}

TEST(SoftEdit, StudySeriesAndInstanceLevelsInWritingOrder)
{
    auto object = target();
    DcmDataset& ds = *object->getDataset();
    KqRWriter kqr;
    ASSERT_TRUE(kqr.setStudyAttribute(DCM_PatientName, "Study^Name").good());
    ASSERT_TRUE(kqr.setStudyAttribute(DCM_SeriesDescription, "from study").good());
    // a series item for another series is not applied, nor its instance items
    ASSERT_TRUE(kqr.setInstanceAttribute("9.9.9", defaults.sopInstanceUID.c_str(), DCM_InstanceNumber, "99").good());
    ASSERT_TRUE(kqr.setSeriesAttribute(defaults.seriesUID.c_str(), DCM_SeriesDescription, "from series").good());
    ASSERT_TRUE(kqr.setInstanceAttribute(defaults.seriesUID.c_str(), defaults.sopInstanceUID.c_str(),
                                         DCM_InstanceNumber, "7")
                    .good());

    std::list<DcmTagKey> modified;
    ASSERT_TRUE(applyModifications(ds, *kqr.fileFormat().getDataset(), &modified).good());
    EXPECT_EQ("Study^Name", value(ds, DCM_PatientName));
    EXPECT_EQ("from series", value(ds, DCM_SeriesDescription));
    EXPECT_EQ("7", value(ds, DCM_InstanceNumber));

    // the change item's private creator is copied like any other attribute; the nested
    // sequences are not
    DcmItem* change = nullptr;
    ASSERT_TRUE(kqr.changeItem(change).good());
    KQItem block(*change);
    const DcmTagKey creator = DcmTagKey(KQ_PRIVATE_GROUP, block.getTag(0).getElement() >> 8);
    const DcmTagKey seriesDesc = DCM_SeriesDescription;
    std::vector<DcmTagKey> expected{DCM_PatientName, DCM_SeriesDescription, creator,
                                    // series item: its creator, the matching UID, the attribute
                                    creator, DCM_SeriesInstanceUID, seriesDesc,
                                    // instance item
                                    DCM_SOPInstanceUID, DCM_InstanceNumber};
    std::sort(expected.begin(), expected.begin() + 3);
    std::sort(expected.begin() + 3, expected.begin() + 6);
    std::sort(expected.begin() + 6, expected.end());
    EXPECT_EQ(expected, keys(modified));
    DcmElement* nested = nullptr;
    EXPECT_TRUE(ds.findAndGetElement(DcmTagKey(KQ_PRIVATE_GROUP, block.getTag(KQ_SERIES_SEQUENCE).getElement()),
                                     nested)
                    .bad());
}

TEST(SoftEdit, MatchingRules)
{
    // a target without Series Instance UID gets the study level only
    {
        auto object = target();
        DcmDataset& ds = *object->getDataset();
        delete ds.remove(DCM_SeriesInstanceUID);
        KqRWriter kqr;
        kqr.setStudyAttribute(DCM_PatientID, "P2");
        kqr.setSeriesAttribute(defaults.seriesUID.c_str(), DCM_SeriesDescription, "x");
        std::list<DcmTagKey> modified;
        EXPECT_TRUE(applyModifications(ds, *kqr.fileFormat().getDataset(), &modified).good());
        EXPECT_EQ("P2", value(ds, DCM_PatientID));
        EXPECT_EQ("<missing>", value(ds, DCM_SeriesDescription));
    }
    // a series item without its UID before the matching one fails the whole call
    {
        auto object = target();
        KqRWriter kqr;
        DcmItem* change = nullptr;
        ASSERT_TRUE(kqr.changeItem(change).good());
        KQItem block(*change);
        DcmItem* broken = nullptr;
        ASSERT_TRUE(block.findOrCreateKQSequenceItem(KQ_SERIES_SEQUENCE, broken, -2).good());
        broken->putAndInsertString(DCM_SeriesDescription, "no uid");
        kqr.setSeriesAttribute(defaults.seriesUID.c_str(), DCM_SeriesDescription, "good");
        EXPECT_EQ(EC_TagNotFound,
                  applyModifications(*object->getDataset(), *kqr.fileFormat().getDataset(), nullptr));
    }
    // two series items with the same UID: only the first is applied
    {
        auto object = target();
        KqRWriter kqr;
        kqr.setSeriesAttribute(defaults.seriesUID.c_str(), DCM_SeriesDescription, "first");
        DcmItem* change = nullptr;
        ASSERT_TRUE(kqr.changeItem(change).good());
        KQItem block(*change);
        DcmItem* second = nullptr;
        ASSERT_TRUE(block.findOrCreateKQSequenceItem(KQ_SERIES_SEQUENCE, second, -2).good());
        second->putAndInsertString(DCM_SeriesInstanceUID, defaults.seriesUID.c_str());
        second->putAndInsertString(DCM_SeriesDescription, "second");
        ASSERT_TRUE(applyModifications(*object->getDataset(), *kqr.fileFormat().getDataset()).good());
        EXPECT_EQ("first", value(*object->getDataset(), DCM_SeriesDescription));
    }
}

TEST(SoftEdit, NonImageObjectsKeepTheirModality)
{
    KqRWriter kqr;
    kqr.setStudyAttribute(DCM_Modality, "CT");
    kqr.setStudyAttribute(DCM_PatientName, "X");

    auto image = target("1.2.840.10008.5.1.4.1.1.4");
    std::list<DcmTagKey> modified;
    ASSERT_TRUE(applyModifications(*image->getDataset(), *kqr.fileFormat().getDataset(), &modified).good());
    EXPECT_EQ("CT", value(*image->getDataset(), DCM_Modality));
    EXPECT_NE(modified.end(), std::find(modified.begin(), modified.end(), DCM_Modality));

    for (const char* sr : {"1.2.840.10008.5.1.4.1.1.88.33", "1.2.840.10008.5.1.4.1.1.11.1",
                           "1.2.840.10008.5.1.4.1.1.104.1", "1.2.840.10008.5.1.4.1.1.66.2"})
    {
        auto object = target(sr);
        modified.clear();
        ASSERT_TRUE(applyModifications(*object->getDataset(), *kqr.fileFormat().getDataset(), &modified).good());
        EXPECT_EQ("MR", value(*object->getDataset(), DCM_Modality)) << sr;
        EXPECT_EQ(modified.end(), std::find(modified.begin(), modified.end(), DCM_Modality)) << sr;
        EXPECT_EQ("X", value(*object->getDataset(), DCM_PatientName));
    }
    EXPECT_FALSE(isNonImageSOPClass("1.2.840.10008.5.1.4.1.1.88.3"));
    EXPECT_FALSE(isNonImageSOPClass(""));
}

TEST(SoftEdit, UncopyableElementFailsAfterEarlierCopies)
{
    auto object = target();
    KqRWriter kqr;
    DcmItem* change = nullptr;
    ASSERT_TRUE(kqr.changeItem(change).good());
    change->putAndInsertString(DCM_PatientName, "Before^OB");
    const Uint8 bytes[] = {1, 2};
    change->putAndInsertUint8Array(DCM_ICCProfile, bytes, 2);
    std::list<DcmTagKey> modified;
    EXPECT_EQ(EC_CorruptedData,
              applyModifications(*object->getDataset(), *kqr.fileFormat().getDataset(), &modified));
    EXPECT_EQ("Before^OB", value(*object->getDataset(), DCM_PatientName));
}

TEST(SoftEdit, SequencesAreCopiedDeeplyAndReplace)
{
    auto object = target();
    DcmDataset& ds = *object->getDataset();
    KqRWriter kqr;
    DcmItem* change = nullptr;
    ASSERT_TRUE(kqr.changeItem(change).good());
    DcmItem* ref = nullptr;
    ASSERT_TRUE(change->findOrCreateSequenceItem(DCM_ReferencedStudySequence, ref, -2).good());
    ref->putAndInsertString(DCM_ReferencedSOPInstanceUID, "1.2.3");
    ASSERT_TRUE(applyModifications(ds, *kqr.fileFormat().getDataset()).good());
    // changing the KqR afterwards does not reach into the target
    ref->putAndInsertString(DCM_ReferencedSOPInstanceUID, "4.5.6");
    const char* uid = nullptr;
    ASSERT_TRUE(ds.findAndGetString(DCM_ReferencedSOPInstanceUID, uid, OFTrue).good());
    EXPECT_STREQ("1.2.3", uid);
}
