// Tests of the forward element cursor.
#include "dcmutils/DcmSeeker.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcelem.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

void fill(DcmItem& item)
{
    item.putAndInsertString(DCM_SOPInstanceUID, "1.2.3");      // (0008,0018)
    item.putAndInsertString(DCM_Modality, "CT");               // (0008,0060)
    item.putAndInsertString(DCM_PatientName, "Doe^John");      // (0010,0010)
    item.putAndInsertString(DCM_PatientID, "P1");              // (0010,0020)
    item.putAndInsertString(DCM_SeriesInstanceUID, "1.2.3.4"); // (0020,000e)
    item.putAndInsertUint16(DCM_Rows, 4);                      // (0028,0010)
}

} // namespace

TEST(DcmSeeker, FindsKeysInAnyOrder)
{
    DcmItem item;
    fill(item);
    DcmSeeker seeker(item);
    // ascending with absent and repeated keys, then descending (each look-up restarts), then
    // a lower element of the same group
    const std::pair<DcmTagKey, bool> lookups[] = {
        {DCM_SOPInstanceUID, true}, {DCM_StudyDate, false}, {DCM_Modality, true},  {DCM_Modality, true},
        {DCM_PatientID, true},      {DCM_PixelData, false}, {DCM_Rows, true},      {DCM_SeriesInstanceUID, true},
        {DCM_PatientName, true},    {DCM_SOPInstanceUID, true}, {DCM_PatientID, true}, {DCM_PatientName, true}};
    for (const auto& l : lookups)
    {
        DcmElement* found = seeker.find(l.first);
        EXPECT_EQ(l.second, found != nullptr) << l.first;
        if (found)
        {
            EXPECT_EQ(l.first, found->getTag());
        }
    }
    DcmItem empty;
    DcmSeeker none(empty);
    EXPECT_EQ(nullptr, none.find(DCM_PatientName));
    EXPECT_EQ(nullptr, none.removeCurrent());
}

TEST(DcmSeeker, RemoveCurrentKeepsTheCursorValid)
{
    DcmItem item;
    fill(item);
    DcmSeeker seeker(item);
    ASSERT_NE(nullptr, seeker.find(DCM_PatientName));
    std::unique_ptr<DcmElement> removed(seeker.removeCurrent());
    EXPECT_EQ(DcmTagKey(DCM_PatientName), removed->getTag());
    EXPECT_NE(nullptr, seeker.find(DCM_PatientID)); // the cursor stands on the next element
    EXPECT_EQ(nullptr, seeker.find(DCM_PatientName));

    // removing the last element exhausts the cursor; the next find restarts
    ASSERT_NE(nullptr, seeker.find(DCM_Rows));
    delete seeker.removeCurrent();
    EXPECT_EQ(nullptr, seeker.removeCurrent());
    EXPECT_NE(nullptr, seeker.find(DCM_Modality));
    seeker.reset();
    int count = 0;
    while (DcmElement* e = seeker.removeCurrent())
    {
        delete e;
        ++count;
    }
    EXPECT_EQ(4, count);
    EXPECT_EQ(0u, item.card());
}
