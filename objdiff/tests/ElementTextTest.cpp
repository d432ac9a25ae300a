// The text form of element values, and long binary values compared and printed from their files.
#include "objdiff/ElementText.h"
#include "objdiff/ObjDiff.h"
#include "objdiff/ValueChunkReader.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <gtest/gtest.h>

#include <tuple>

using fixtures::capture;
using fixtures::Captured;

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

// Three 512 x 512 frames (1.5 MB, several pieces) with sample `sample` xor-ed with `flip`, written in xfer.
std::string writeLarge(const fixtures::TempDir& dir, const std::string& name, E_TransferSyntax xfer,
                       unsigned long sample = 0, Uint16 flip = 0, unsigned short bitsAllocated = 16)
{
    fixtures::ObjectSpec spec;
    spec.rows = spec.columns = 512;
    spec.frames = 3;
    spec.bitsAllocated = bitsAllocated;
    std::unique_ptr<DcmFileFormat> file(fixtures::makeObject(spec));
    const Uint16* pixels = NULL;
    if (flip != 0 && file->getDataset()->findAndGetUint16Array(DCM_PixelData, pixels).good())
        const_cast<Uint16*>(pixels)[sample] ^= flip;
    const std::string path = dir.file(name);
    EXPECT_TRUE(file->saveFile(path.c_str(), xfer).good());
    return path;
}

// Loaded as the comparator loads: values over 4096 bytes stay in the file.
std::unique_ptr<DcmFileFormat> lazy(const std::string& path)
{
    std::unique_ptr<DcmFileFormat> file(new DcmFileFormat());
    file->loadFile(path.c_str(), EXS_Unknown, EGL_noChange, 4096, ERM_autoDetect);
    return file;
}

DcmElement* pixelData(DcmFileFormat& file)
{
    DcmElement* element = NULL;
    return file.getDataset()->findAndGetElement(DCM_PixelData, element).good() ? element : NULL;
}

} // namespace

TEST(ElementText, ValuesSequencesAndLongValues)
{
    DcmDataset ds;
    const Uint16 words[] = {1, 65535};
    const Uint8 bytes[] = {0x01, 0xab, 0x00, 0xff};
    ds.putAndInsertUint16Array(DCM_AcquisitionMatrix, words, 2);
    ds.putAndInsertUint8Array(DCM_EncapsulatedDocument, bytes, 4);
    ds.putAndInsertUint16Array(DCM_RedPaletteColorLookupTableData, words, 2);
    const std::pair<DcmTagKey, const char*> cases[] = {
        {DCM_ImageType, "ORIGINAL\\PRIMARY\\AXIAL"}, {DCM_PixelSpacing, "0.5\\0.50"}, // as stored
        {DCM_FrameIncrementPointer, "(0018,1063)\\(0028,0009)"}, {DCM_StudyDescription, ""},
        {DCM_AcquisitionMatrix, "1\\65535"}, {DCM_EncapsulatedDocument, "01\\ab\\00\\ff"},
        {DCM_RedPaletteColorLookupTableData, "0001\\ffff"}};
    for (const auto& c : cases)
    {
        DcmElement* element = NULL;
        ASSERT_TRUE((ds.tagExists(c.first) || ds.putAndInsertString(c.first, c.second).good()) &&
                    ds.findAndGetElement(c.first, element).good());
        EXPECT_EQ(*c.second ? c.second : "Empty Value", text(element)) << c.first;
    }
    EXPECT_EQ("", text(NULL));
    // sequences show their content
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
    // encapsulated pixel data: the offset table, then the fragments
    DcmPixelData pixels(DCM_PixelData);
    DcmPixelSequence* sequence = new DcmPixelSequence(DCM_PixelSequenceTag);
    sequence->insert(new DcmPixelItem(DCM_PixelItemTag));
    DcmPixelItem* fragment = new DcmPixelItem(DCM_PixelItemTag);
    const Uint8 data[] = {0xff, 0xd8, 0xff, 0xd9};
    fragment->putUint8Array(data, 4);
    sequence->insert(fragment);
    pixels.putOriginalRepresentation(EXS_JPEGProcess1, NULL, sequence);
    EXPECT_EQ("Pixel Sequence with 2 items: Item 1 {Empty Value} Item 2 {ff\\d8\\ff\\d9}", text(&pixels));
    // long binary values are shortened but stay distinct
    std::vector<Uint8> values(100000);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = Uint8(i);
    DcmOtherByteOtherWord first(DcmTag(DCM_EncapsulatedDocument, EVR_OB)), second(first);
    first.putUint8Array(values.data(), values.size());
    values.back() ^= 1;
    second.putUint8Array(values.data(), values.size());
    const std::string t = text(&first);
    EXPECT_LT(t.size(), 200u);
    EXPECT_EQ(0u, t.rfind("00\\01\\02\\03\\04\\05\\06\\07\\08\\09\\0a\\0b\\0c\\0d\\0e\\0f\\... (100000 bytes, checksum ", 0)) << t;
    EXPECT_NE(t, text(&second));
}

TEST(LargeValues, ComparedAndPrintedFromTheFilesWithoutLoading)
{
    fixtures::TempDir dir;
    const unsigned long last = 512UL * 512 * 3 - 1;
    const std::string a = writeLarge(dir, "a", EXS_LittleEndianExplicit), same = writeLarge(dir, "be", EXS_BigEndianExplicit);
    const std::string big = writeLarge(dir, "be-changed", EXS_BigEndianExplicit, 3, 0x1234);
    // second, one value in memory and the other in its file, equal
    const std::tuple<std::string, bool, bool> cases[] = {
        {writeLarge(dir, "same", EXS_LittleEndianExplicit), false, true},
        {writeLarge(dir, "last", EXS_LittleEndianExplicit, last, 0x0100), false, false}, // the very last byte
        {writeLarge(dir, "first", EXS_LittleEndianExplicit, 7, 0x0001), false, false},   // in the first piece
        {same, false, true}, // words compare in the machine's byte order, whatever the file's
        {same, true, true},
        {big, true, false},
    };
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::get<0>(c) + (std::get<1>(c) ? " loaded" : ""));
        auto first = lazy(a);
        auto second = lazy(std::get<0>(c));
        ASSERT_TRUE(!std::get<1>(c) || first->loadAllDataIntoMemory().good());
        bool equal = !std::get<2>(c);
        const Captured out = capture([&] {
            equal = comparator.compareObjects(first->getDataset(), second->getDataset(), OC_MODE_BINARY);
        });
        EXPECT_EQ(std::get<2>(c), equal);
        EXPECT_EQ("", out.out + out.err); // a pixel difference has no message of its own
        EXPECT_FALSE(pixelData(*second)->valueLoaded());
    }
    // the text of a long value is the same from the file as from memory
    for (const std::string& path : {big, writeLarge(dir, "ob", EXS_LittleEndianExplicit, 0, 0, 8)})
    {
        auto file = lazy(path);
        DcmElement* element = pixelData(*file);
        char* fromFile = toString(element);
        EXPECT_FALSE(element->valueLoaded()) << path;
        ASSERT_TRUE(file->loadAllDataIntoMemory().good());
        char* fromMemory = toString(element);
        ASSERT_NE(nullptr, fromFile);
        EXPECT_STREQ(fromMemory, fromFile) << path;
        EXPECT_NE(std::string::npos, std::string(fromFile).find(" bytes, checksum "));
        free(fromFile);
        free(fromMemory);
    }
    // a value the file ends in (beyond the first piece) is reported as when loaded whole
    const std::string content = fixtures::readFile(a);
    ASSERT_TRUE(fixtures::writeFile(dir.file("cut"), content.substr(0, content.size() - 300000)));
    auto first = lazy(a);
    auto second = lazy(dir.file("cut"));
    ASSERT_FALSE(pixelData(*second)->valueLoaded());
    bool equal = true;
    Captured out = capture([&] {
        equal = comparator.compareOBOW(OFstatic_cast(DcmOtherByteOtherWord*, pixelData(*first)),
                                       OFstatic_cast(DcmOtherByteOtherWord*, pixelData(*second)));
    });
    EXPECT_FALSE(equal);
    EXPECT_NE(std::string::npos, out.err.find("Error getting binary(OW) data (2) [(7fe0,0010)]\n ( not null != NULL )\n"))
        << out.err;
    // a long encapsulated fragment is compared from the file as well
    DcmFileFormat encapsulated;
    DcmPixelData* pixels = new DcmPixelData(DCM_PixelData);
    DcmPixelSequence* sequence = new DcmPixelSequence(DCM_PixelSequenceTag);
    DcmPixelItem* item = new DcmPixelItem(DCM_PixelItemTag);
    const std::string bytes = content.substr(0, 1500000);
    item->putUint8Array(reinterpret_cast<const Uint8*>(bytes.data()), bytes.size());
    sequence->insert(new DcmPixelItem(DCM_PixelItemTag));
    sequence->insert(item);
    pixels->putOriginalRepresentation(EXS_JPEGProcess14SV1, NULL, sequence);
    encapsulated.getDataset()->insert(pixels);
    ASSERT_TRUE(encapsulated.saveFile(dir.file("enc").c_str(), EXS_JPEGProcess14SV1).good());
    first = lazy(dir.file("enc"));
    second = lazy(dir.file("enc"));
    out = capture([&] { equal = comparator.compareObjects(first->getDataset(), second->getDataset(), OC_MODE_BINARY); });
    EXPECT_TRUE(equal);
    EXPECT_EQ("", out.out + out.err);
    ASSERT_TRUE(static_cast<DcmPixelData*>(pixelData(*first))->getEncapsulatedRepresentation(EXS_JPEGProcess14SV1, NULL,
                                                                                               sequence).good());
    ASSERT_TRUE(sequence->getItem(item, 1).good());
    EXPECT_FALSE(item->valueLoaded());
}

TEST(LargeValues, PiecesSuitOnlyValuesWithTheirOwnByteLayoutAndStopAtTheEnd)
{
    DcmOtherByteOtherWord ob(DcmTag(0x0009, 0x1010, EVR_OB)), un(DcmTag(0x0009, 0x1011, EVR_UN));
    DcmOtherByteOtherWord ow(DcmTag(0x0009, 0x1012, EVR_OW));
    DcmPixelItem item(DCM_PixelItemTag);
    DcmFloatingPointSingle floats(DcmTag(0x0009, 0x1013, EVR_FL));
    const Uint16 two[] = {1, 2};
    ASSERT_TRUE(ow.putUint16Array(two, 2).good());
    for (DcmElement* element : {static_cast<DcmElement*>(&ob), static_cast<DcmElement*>(&un),
                                static_cast<DcmElement*>(&ow), static_cast<DcmElement*>(&item)})
        EXPECT_TRUE(ValueChunkReader::suits(element)) << element->getTag();
    EXPECT_FALSE(ValueChunkReader::suits(&floats));
    EXPECT_FALSE(ValueChunkReader::suits(NULL));
    ValueChunkReader reader(&ow);
    Uint16 words[4];
    EXPECT_FALSE(reader.read(reinterpret_cast<Uint8*>(words), 5));
    EXPECT_TRUE(reader.read(reinterpret_cast<Uint8*>(words), 4));
    EXPECT_EQ(0u, reader.remaining());
    EXPECT_EQ(2, words[1]);
}
