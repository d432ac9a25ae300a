#include "objdiff/ElementText.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <gtest/gtest.h>

#include <cstdlib>
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

std::string textOf(DcmItem& item, const DcmTagKey& key)
{
    DcmElement* element = NULL;
    if (item.findAndGetElement(key, element).bad())
        return "<missing>";
    return text(element);
}

DcmSequenceOfItems* referenceSequence(const std::vector<std::string>& uids)
{
    DcmSequenceOfItems* sequence = new DcmSequenceOfItems(DCM_ReferencedImageSequence);
    for (const std::string& uid : uids)
    {
        DcmItem* item = new DcmItem();
        item->putAndInsertString(DCM_ReferencedSOPClassUID, "1.2.840.10008.5.1.4.1.1.2");
        item->putAndInsertString(DCM_ReferencedSOPInstanceUID, uid.c_str());
        sequence->insert(item);
    }
    return sequence;
}

} // namespace

TEST(ElementText, ValuesAsTheToolkitPrintsThem)
{
    DcmDataset ds;
    ds.putAndInsertString(DCM_ImageType, "ORIGINAL\\PRIMARY\\AXIAL");
    ds.putAndInsertString(DCM_PixelSpacing, "0.5\\0.50");
    const Uint16 words[] = {1, 65535};
    ds.putAndInsertUint16Array(DCM_AcquisitionMatrix, words, 2);
    ds.putAndInsertString(DCM_FrameIncrementPointer, "(0018,1063)\\(0028,0009)");
    const Uint8 bytes[] = {0x01, 0xab, 0x00, 0xff};
    ds.putAndInsertUint8Array(DCM_EncapsulatedDocument, bytes, 4);
    ds.putAndInsertUint16Array(DCM_RedPaletteColorLookupTableData, words, 2);
    ds.putAndInsertString(DCM_StudyDescription, "");
    ds.insertEmptyElement(DCM_PatientAge);

    EXPECT_EQ(textOf(ds, DCM_ImageType), "ORIGINAL\\PRIMARY\\AXIAL");
    EXPECT_EQ(textOf(ds, DCM_PixelSpacing), "0.5\\0.50"); // as stored, not reformatted
    EXPECT_EQ(textOf(ds, DCM_AcquisitionMatrix), "1\\65535");
    EXPECT_EQ(textOf(ds, DCM_FrameIncrementPointer), "(0018,1063)\\(0028,0009)");
    EXPECT_EQ(textOf(ds, DCM_EncapsulatedDocument), "01\\ab\\00\\ff");
    EXPECT_EQ(textOf(ds, DCM_RedPaletteColorLookupTableData), "0001\\ffff");
    EXPECT_EQ(textOf(ds, DCM_StudyDescription), "Empty Value");
    EXPECT_EQ(textOf(ds, DCM_PatientAge), "Empty Value");
    EXPECT_EQ(text(NULL), "");
}

TEST(ElementText, SequencesShowTheirContent)
{
    DcmSequenceOfItems* a = referenceSequence({"1.2.3", "1.2.4"});
    DcmSequenceOfItems* same = referenceSequence({"1.2.3", "1.2.4"});
    DcmSequenceOfItems* other = referenceSequence({"1.2.3", "1.2.5"});
    DcmSequenceOfItems* fewer = referenceSequence({"1.2.3"});
    DcmSequenceOfItems* empty = referenceSequence({});

    EXPECT_EQ(text(a), "Sequence with 2 items: Item 1 {(0008,1150) 1.2.840.10008.5.1.4.1.1.2; (0008,1155) 1.2.3} "
                       "Item 2 {(0008,1150) 1.2.840.10008.5.1.4.1.1.2; (0008,1155) 1.2.4}");
    EXPECT_EQ(text(a), text(same));
    EXPECT_NE(text(a), text(other));
    EXPECT_NE(text(a), text(fewer));
    EXPECT_EQ(text(empty), "Empty Value");

    // nested sequences and empty items take part as well
    DcmItem* item = a->getItem(0);
    ASSERT_TRUE(item != NULL);
    item->insert(referenceSequence({"9.9"}));
    EXPECT_NE(text(a), text(same));
    EXPECT_NE(text(a).find("Sequence with 1 item: Item 1 {(0008,1150) 1.2.840.10008.5.1.4.1.1.2; (0008,1155) 9.9}"),
              std::string::npos);
    DcmSequenceOfItems withEmptyItem(DCM_ReferencedImageSequence);
    withEmptyItem.insert(new DcmItem());
    EXPECT_EQ(text(&withEmptyItem), "Sequence with 1 item: Item 1 {}");

    delete a;
    delete same;
    delete other;
    delete fewer;
    delete empty;
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
    EXPECT_EQ(t.rfind("00\\01\\02\\03\\04\\05\\06\\07\\08\\09\\0a\\0b\\0c\\0d\\0e\\0f\\... (100000 bytes, checksum ", 0), 0u)
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
    EXPECT_EQ(text(&pixels), "Pixel Sequence with 2 items: Item 1 {Empty Value} Item 2 {ff\\d8\\ff\\d9}");
}
