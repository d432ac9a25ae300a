// Tests of the forward element cursor.
#include "dcmutils/DcmSeeker.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcelem.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

void fill(DcmItem& item)
{
    item.putAndInsertString(DCM_SOPInstanceUID, "1.2.3");          // (0008,0018)
    item.putAndInsertString(DCM_Modality, "CT");                   // (0008,0060)
    item.putAndInsertString(DCM_PatientName, "Doe^John");          // (0010,0010)
    item.putAndInsertString(DCM_PatientID, "P1");                  // (0010,0020)
    item.putAndInsertString(DCM_SeriesInstanceUID, "1.2.3.4");     // (0020,000e)
    item.putAndInsertUint16(DCM_Rows, 4);                          // (0028,0010)
}

} // namespace

TEST(DcmSeeker, FindsKeysInAnyOrder)
{
    DcmItem item;
    fill(item);
    DcmSeeker seeker(item);

    // Ascending, with absent keys in between and repeated keys.
    ASSERT_NE(seeker.find(DCM_SOPInstanceUID), nullptr);
    EXPECT_EQ(seeker.find(DCM_StudyDate), nullptr); // (0008,0020): between two elements
    ASSERT_NE(seeker.find(DCM_Modality), nullptr);
    ASSERT_NE(seeker.find(DCM_Modality), nullptr);
    EXPECT_EQ(seeker.find(DcmTagKey(0x0010, 0x0000)), nullptr);
    EXPECT_EQ(seeker.find(DCM_PatientID)->getTag(), DcmTagKey(DCM_PatientID));
    EXPECT_EQ(seeker.find(DCM_Rows)->getTag(), DcmTagKey(DCM_Rows));
    EXPECT_EQ(seeker.find(DCM_PixelData), nullptr); // beyond the last element

    // Descending: every look-up restarts and still finds its element.
    const DcmTagKey descending[] = {DCM_Rows, DCM_SeriesInstanceUID, DCM_PatientID, DCM_PatientName,
                                    DCM_Modality, DCM_SOPInstanceUID};
    for (const DcmTagKey& key : descending)
    {
        DcmElement* found = seeker.find(key);
        ASSERT_NE(found, nullptr) << key.toString();
        EXPECT_EQ(found->getTag(), key);
    }
    // Same group, lower element after a higher one.
    ASSERT_NE(seeker.find(DCM_PatientID), nullptr);
    ASSERT_NE(seeker.find(DCM_PatientName), nullptr);
    // After reset the walk starts over.
    seeker.reset();
    ASSERT_NE(seeker.find(DCM_SOPInstanceUID), nullptr);

    DcmItem empty;
    DcmSeeker none(empty);
    EXPECT_EQ(none.find(DCM_PatientName), nullptr);
    EXPECT_EQ(none.removeCurrent(), nullptr);
}

TEST(DcmSeeker, RemoveCurrentKeepsTheCursorValid)
{
    DcmItem item;
    fill(item);
    DcmSeeker seeker(item);

    ASSERT_NE(seeker.find(DCM_PatientName), nullptr);
    std::unique_ptr<DcmElement> removed(seeker.removeCurrent());
    ASSERT_TRUE(removed);
    EXPECT_EQ(removed->getTag(), DcmTagKey(DCM_PatientName));
    EXPECT_FALSE(item.tagExists(DCM_PatientName));
    EXPECT_EQ(item.card(), 5u);
    // The cursor stands on the next element.
    DcmElement* next = seeker.find(DCM_PatientID);
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(seeker.find(DCM_PatientName), nullptr); // restarts, and it is gone

    // Remove every element from the first on.
    seeker.reset();
    int count = 0;
    while (DcmElement* e = seeker.removeCurrent())
    {
        delete e;
        ++count;
    }
    EXPECT_EQ(count, 5);
    EXPECT_EQ(item.card(), 0u);
    EXPECT_EQ(seeker.find(DCM_Rows), nullptr);

    // Removing the last element leaves the cursor exhausted; the next find restarts.
    fill(item);
    DcmSeeker again(item);
    ASSERT_NE(again.find(DCM_Rows), nullptr);
    delete again.removeCurrent();
    EXPECT_EQ(again.removeCurrent(), nullptr);
    EXPECT_NE(again.find(DCM_Modality), nullptr);
}
