// The text form of element values that the comparator compares and prints.
#include "objdiff/ElementText.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

std::string text(DcmElement* element)
{
    char* t = toString(element);
    std::string result = t ? t : "<null>";
    free(t);
    return result;
}

DcmSequenceOfItems* referenceSequence(const std::vector<std::string>& uids)
{
    DcmSequenceOfItems* sequence = new DcmSequenceOfItems(DCM_ReferencedImageSequence);
    for (const std::string& uid : uids)
    {
        DcmItem* item = new DcmItem();
        item->putAndInsertString(DCM_ReferencedSOPInstanceUID, uid.c_str());
        sequence->insert(item);
    }
    return sequence;
}

} // namespace

TEST(ElementText, ValuesAsTheToolkitPrintsThem)
{
    DcmDataset ds;
    const Uint16 words[] = {1, 65535};
    const Uint8 bytes[] = {0x01, 0xab, 0x00, 0xff};
    ds.putAndInsertString(DCM_ImageType, "ORIGINAL\\PRIMARY\\AXIAL");
    ds.putAndInsertString(DCM_PixelSpacing, "0.5\\0.50");
    ds.putAndInsertUint16Array(DCM_AcquisitionMatrix, words, 2);
    ds.putAndInsertString(DCM_FrameIncrementPointer, "(0018,1063)\\(0028,0009)");
    ds.putAndInsertUint8Array(DCM_EncapsulatedDocument, bytes, 4);
    ds.putAndInsertUint16Array(DCM_RedPaletteColorLookupTableData, words, 2);
    ds.putAndInsertString(DCM_StudyDescription, "");
    const std::pair<DcmTagKey, const char*> cases[] = {
        {DCM_ImageType, "ORIGINAL\\PRIMARY\\AXIAL"}, {DCM_PixelSpacing, "0.5\\0.50"}, // as stored
        {DCM_AcquisitionMatrix, "1\\65535"},       {DCM_FrameIncrementPointer, "(0018,1063)\\(0028,0009)"},
        {DCM_EncapsulatedDocument, "01\\ab\\00\\ff"}, {DCM_RedPaletteColorLookupTableData, "0001\\ffff"},
        {DCM_StudyDescription, "Empty Value"}};
    for (const auto& c : cases)
    {
        DcmElement* element = NULL;
        ASSERT_TRUE(ds.findAndGetElement(c.first, element).good());
        EXPECT_EQ(c.second, text(element)) << c.first;
    }
    EXPECT_EQ("", text(NULL));
}

TEST(ElementText, SequencesShowTheirContent)
{
    std::unique_ptr<DcmSequenceOfItems> a(referenceSequence({"1.2.3", "1.2.4"}));
    EXPECT_EQ("Sequence with 2 items: Item 1 {(0008,1155) 1.2.3} Item 2 {(0008,1155) 1.2.4}", text(a.get()));
    std::unique_ptr<DcmSequenceOfItems> empty(referenceSequence({}));
    EXPECT_EQ("Empty Value", text(empty.get()));
    // nested sequences and empty items take part as well
    a->getItem(0)->insert(referenceSequence({"9.9"}));
    a->insert(new DcmItem());
    EXPECT_EQ("Sequence with 3 items: Item 1 {(0008,1140) Sequence with 1 item: Item 1 {(0008,1155) 9.9}; "
              "(0008,1155) 1.2.3} Item 2 {(0008,1155) 1.2.4} Item 3 {}",
              text(a.get()));
}

TEST(ElementText, LongBinaryValuesShortenedButDistinct)
{
    std::vector<Uint8> bytes(100000);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = Uint8(i);
    DcmOtherByteOtherWord first(DcmTag(DCM_EncapsulatedDocument, EVR_OB));
    DcmOtherByteOtherWord second(DcmTag(DCM_EncapsulatedDocument, EVR_OB));
    first.putUint8Array(bytes.data(), bytes.size());
    bytes.back() ^= 1;
    second.putUint8Array(bytes.data(), bytes.size());
    const std::string t = text(&first);
    EXPECT_LT(t.size(), 200u);
    EXPECT_EQ(0u, t.rfind("00\\01\\02\\03\\04\\05\\06\\07\\08\\09\\0a\\0b\\0c\\0d\\0e\\0f\\... (100000 bytes, checksum ", 0))
        << t;
    EXPECT_NE(t, text(&second));
}

TEST(ElementText, EncapsulatedPixelDataShowsFragments)
{
    DcmPixelData pixels(DCM_PixelData);
    DcmPixelSequence* sequence = new DcmPixelSequence(DCM_PixelSequenceTag);
    sequence->insert(new DcmPixelItem(DCM_PixelItemTag)); // empty offset table
    DcmPixelItem* fragment = new DcmPixelItem(DCM_PixelItemTag);
    const Uint8 data[] = {0xff, 0xd8, 0xff, 0xd9};
    fragment->putUint8Array(data, 4);
    sequence->insert(fragment);
    pixels.putOriginalRepresentation(EXS_JPEGProcess1, NULL, sequence);
    EXPECT_EQ("Pixel Sequence with 2 items: Item 1 {Empty Value} Item 2 {ff\\d8\\ff\\d9}", text(&pixels));
}
