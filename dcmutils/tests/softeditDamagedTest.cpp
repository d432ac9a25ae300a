// Change datasets of damaged KqR files: the tag of a nested change sequence holding an element
// of another VR is corrupted data, never taken for a sequence.
#include "tests/fixtures/Fixtures.h"
#include "privatetags/KQItem.h"
#include "dcmutils/KqRWriter.h"
#include "dcmutils/softedit.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

// Replaces the element at key in item by an OB element of the same tag.
void replaceByBinary(DcmItem& item, const DcmTagKey& key)
{
    ASSERT_TRUE(item.findAndDeleteElement(key).good());
    DcmTag tag(key, EVR_OB);
    tag.setPrivateCreator("KQ group A");
    DcmElement* binary = new DcmOtherByteOtherWord(tag);
    const Uint8 bytes[] = {0xFE, 0xFF, 0x00, 0xE0};
    binary->putUint8Array(bytes, 4);
    ASSERT_TRUE(item.insert(binary).good());
}

} // namespace

TEST(SoftEditDamaged, NestedChangeSequenceOfAnotherVR)
{
    fixtures::ObjectSpec spec;
    for (int level = 0; level < 2; ++level)
    {
        SCOPED_TRACE(level == 0 ? "series sequence in the change item" : "instance sequence in a series item");
        KqRWriter kqr;
        ASSERT_TRUE(kqr.setStudyAttribute(DCM_PatientName, "Damaged^KqR").good());
        ASSERT_TRUE(kqr.setInstanceAttribute(spec.seriesUID.c_str(), spec.sopInstanceUID.c_str(), DCM_InstanceNumber,
                                             "5")
                        .good());
        DcmItem* change = nullptr;
        DcmItem* series = nullptr;
        ASSERT_TRUE(kqr.changeItem(change).good());
        ASSERT_TRUE(kqr.seriesItem(spec.seriesUID.c_str(), series).good());
        // the writer's items each hold their block at 0x10
        if (level == 0)
            replaceByBinary(*change, DcmTagKey(0xF215, 0x1000 | KQ_SERIES_SEQUENCE));
        else
            replaceByBinary(*series, DcmTagKey(0xF215, 0x1000 | KQ_INSTANCE_SEQUENCE));

        std::unique_ptr<DcmFileFormat> object(fixtures::makeObject(spec));
        std::list<DcmTagKey> modified;
        EXPECT_EQ(EC_CorruptedData,
                  applyModifications(*object->getDataset(), *kqr.fileFormat().getDataset(), &modified));
    }
}
