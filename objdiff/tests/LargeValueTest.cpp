// Long binary values compared and printed straight from their files, piece by piece.
#include "objdiff/ElementText.h"
#include "objdiff/ObjDiff.h"
#include "objdiff/ValueChunkReader.h"

#include "objdiff/tests/Capture.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

// 512 x 512 16-bit frames: three frames hold 1.5 MB, more than one piece.
fixtures::ObjectSpec largeSpec(E_TransferSyntax xfer = EXS_LittleEndianExplicit)
{
    fixtures::ObjectSpec spec;
    spec.rows = 512;
    spec.columns = 512;
    spec.frames = 3;
    spec.xfer = xfer;
    return spec;
}

// Writes the object with pixel sample `sample` xor-ed with `flip` (0: unchanged).
bool writeLarge(const std::string& path, const fixtures::ObjectSpec& spec, unsigned long sample = 0, Uint16 flip = 0)
{
    std::unique_ptr<DcmFileFormat> file(fixtures::makeObject(spec));
    if (flip != 0)
    {
        Uint16* pixels = NULL;
        DcmElement* element = NULL;
        if (file->getDataset()->findAndGetElement(DCM_PixelData, element).bad()
            || element->getUint16Array(pixels).bad())
            return false;
        pixels[sample] ^= flip;
    }
    return file->saveFile(path.c_str(), spec.xfer).good();
}

// Loaded as the comparator loads: values over 4096 bytes stay in the file.
std::unique_ptr<DcmFileFormat> lazy(const std::string& path)
{
    std::unique_ptr<DcmFileFormat> file(new DcmFileFormat());
    EXPECT_TRUE(file->loadFile(path.c_str(), EXS_Unknown, EGL_noChange, 4096, ERM_autoDetect).good()) << path;
    return file;
}

DcmElement* pixelData(DcmFileFormat& file)
{
    DcmElement* element = NULL;
    file.getDataset()->findAndGetElement(DCM_PixelData, element);
    return element;
}

struct Result
{
    bool equal = false;
    Captured output;
};

Result compareLazily(DcmFileFormat& a, DcmFileFormat& b)
{
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    Result result;
    result.output = capture([&] { result.equal = comparator.compareObjects(a.getDataset(), b.getDataset(), OC_MODE_BINARY); });
    return result;
}

} // namespace

TEST(LargeValues, ComparedFromTheFilesWithoutLoading)
{
    fixtures::TempDir dir;
    const std::string a = dir.file("a.dcm");
    const std::string same = dir.file("same.dcm");
    const std::string lastByte = dir.file("last.dcm");
    const std::string firstPiece = dir.file("first.dcm");
    const unsigned long samples = 512UL * 512 * 3;
    ASSERT_TRUE(writeLarge(a, largeSpec()));
    ASSERT_TRUE(writeLarge(same, largeSpec()));
    ASSERT_TRUE(writeLarge(lastByte, largeSpec(), samples - 1, 0x0100));
    ASSERT_TRUE(writeLarge(firstPiece, largeSpec(), 7, 0x0001));

    auto first = lazy(a);
    auto second = lazy(same);
    Result r = compareLazily(*first, *second);
    EXPECT_TRUE(r.equal);
    EXPECT_EQ(r.output.out + r.output.err, "");
    // neither value was brought into memory
    EXPECT_FALSE(pixelData(*first)->valueLoaded());
    EXPECT_FALSE(pixelData(*second)->valueLoaded());

    // a difference in the very last byte, and one in the first piece: silent differences
    for (const std::string& other : {lastByte, firstPiece})
    {
        auto changed = lazy(other);
        r = compareLazily(*first, *changed);
        EXPECT_FALSE(r.equal) << other;
        EXPECT_EQ(r.output.out + r.output.err, "") << other;
        EXPECT_FALSE(pixelData(*changed)->valueLoaded());
    }

    // the whole files through the path form, as the driver calls it
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    bool equal = false;
    Captured c = capture([&] { equal = comparator.compareObjects(a.c_str(), NULL, same.c_str(), NULL, OC_MODE_BINARY); });
    EXPECT_TRUE(equal);
    EXPECT_EQ(c.out + c.err, "");
    c = capture([&] { equal = comparator.compareObjects(a.c_str(), NULL, lastByte.c_str(), NULL, OC_MODE_BINARY); });
    EXPECT_FALSE(equal);
    EXPECT_EQ(c.out + c.err, "");
}

TEST(LargeValues, BigEndianWordsAndMixedLoading)
{
    fixtures::TempDir dir;
    const std::string little = dir.file("le.dcm");
    const std::string big = dir.file("be.dcm");
    const std::string bigChanged = dir.file("be2.dcm");
    ASSERT_TRUE(writeLarge(little, largeSpec()));
    ASSERT_TRUE(writeLarge(big, largeSpec(EXS_BigEndianExplicit)));
    ASSERT_TRUE(writeLarge(bigChanged, largeSpec(EXS_BigEndianExplicit), 1000, 0x8000));

    // words are compared in the machine's byte order, whatever the file's
    auto a = lazy(big);
    auto b = lazy(big);
    EXPECT_TRUE(compareLazily(*a, *b).equal);
    auto c = lazy(bigChanged);
    EXPECT_FALSE(compareLazily(*a, *c).equal);

    // one value in memory, the other in its file
    auto loaded = lazy(big);
    ASSERT_TRUE(loaded->loadAllDataIntoMemory().good());
    EXPECT_TRUE(compareLazily(*loaded, *b).equal);
    EXPECT_FALSE(compareLazily(*loaded, *c).equal);

    // the same samples stored little endian compare equal
    auto le = lazy(little);
    Result r = compareLazily(*le, *b);
    EXPECT_TRUE(r.equal);
    EXPECT_EQ(r.output.out + r.output.err, "");
}

TEST(LargeValues, UnreadableValueReportedAsWhenLoadedWhole)
{
    fixtures::TempDir dir;
    const std::string a = dir.file("a.dcm");
    const std::string cut = dir.file("cut.dcm");
    ASSERT_TRUE(writeLarge(a, largeSpec()));
    ASSERT_TRUE(writeLarge(cut, largeSpec()));
    // the file ends in the middle of the pixel data, beyond the first piece
    const std::string content = fixtures::readFile(cut);
    ASSERT_TRUE(fixtures::writeFile(cut, content.substr(0, content.size() - 300000)));

    std::unique_ptr<DcmFileFormat> first(new DcmFileFormat());
    std::unique_ptr<DcmFileFormat> second(new DcmFileFormat());
    ASSERT_TRUE(first->loadFile(a.c_str(), EXS_Unknown, EGL_noChange, 4096, ERM_autoDetect).good());
    second->loadFile(cut.c_str(), EXS_Unknown, EGL_noChange, 4096, ERM_autoDetect);
    DcmElement* cutPixels = pixelData(*second);
    ASSERT_NE(cutPixels, nullptr);
    ASSERT_FALSE(cutPixels->valueLoaded());

    // what the whole-value accessor says about the truncated value
    std::unique_ptr<DcmFileFormat> probe(new DcmFileFormat());
    probe->loadFile(cut.c_str(), EXS_Unknown, EGL_noChange, 4096, ERM_autoDetect);
    Uint16* words = NULL;
    const bool wholeReadable = pixelData(*probe)->getUint16Array(words).good() && words != NULL;

    IgnoreTags rules;
    ObjectComparator comparator(rules);
    bool equal = true;
    Captured c = capture([&] {
        equal = comparator.compareOBOW(OFstatic_cast(DcmOtherByteOtherWord*, pixelData(*first)),
                                       OFstatic_cast(DcmOtherByteOtherWord*, cutPixels));
    });
    EXPECT_FALSE(equal);
    ASSERT_FALSE(wholeReadable);
    EXPECT_NE(c.err.find("Error getting binary(OW) data (2) [(7fe0,0010)]\n ( not null != NULL )\n"), std::string::npos)
        << c.err;
}

TEST(LargeValues, EncapsulatedFragmentsReadThrough)
{
    fixtures::TempDir dir;
    const std::string path = dir.file("enc.dcm");
    {
        DcmFileFormat file;
        DcmDataset& ds = *file.getDataset();
        ds.putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
        ds.putAndInsertString(DCM_SOPInstanceUID, "1.2.3.4");
        DcmPixelData* pixels = new DcmPixelData(DCM_PixelData);
        DcmPixelSequence* sequence = new DcmPixelSequence(DCM_PixelSequenceTag);
        sequence->insert(new DcmPixelItem(DCM_PixelItemTag));
        for (int f = 0; f < 2; ++f)
        {
            std::vector<Uint8> bytes(1500000 + f * 2);
            for (size_t i = 0; i < bytes.size(); ++i)
                bytes[i] = Uint8(i * 31 + f);
            DcmPixelItem* item = new DcmPixelItem(DCM_PixelItemTag);
            item->putUint8Array(bytes.data(), bytes.size());
            sequence->insert(item);
        }
        pixels->putOriginalRepresentation(EXS_JPEGProcess14SV1, NULL, sequence);
        ds.insert(pixels);
        ASSERT_TRUE(file.saveFile(path.c_str(), EXS_JPEGProcess14SV1).good());
    }
    auto a = lazy(path);
    auto b = lazy(path);
    Result r = compareLazily(*a, *b);
    EXPECT_TRUE(r.equal);
    EXPECT_EQ(r.output.out + r.output.err, "");

    DcmPixelData* pixels = OFstatic_cast(DcmPixelData*, pixelData(*a));
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* parameter = NULL;
    pixels->getCurrentRepresentationKey(xfer, parameter);
    DcmPixelSequence* sequence = NULL;
    ASSERT_TRUE(pixels->getEncapsulatedRepresentation(xfer, parameter, sequence).good());
    DcmPixelItem* item = NULL;
    ASSERT_TRUE(sequence->getItem(item, 1).good());
    EXPECT_FALSE(item->valueLoaded());
}

TEST(LargeValues, TextOfALongValueIsTheSameFromTheFile)
{
    fixtures::TempDir dir;
    const std::string words = dir.file("ow.dcm");
    const std::string bytes = dir.file("ob.dcm");
    ASSERT_TRUE(writeLarge(words, largeSpec(EXS_BigEndianExplicit), 3, 0x1234));
    fixtures::ObjectSpec spec = largeSpec();
    spec.bitsAllocated = 8;
    ASSERT_TRUE(writeLarge(bytes, spec));

    for (const std::string& path : {words, bytes})
    {
        auto file = lazy(path);
        DcmElement* element = pixelData(*file);
        ASSERT_FALSE(element->valueLoaded());
        char* fromFile = toString(element);
        EXPECT_FALSE(element->valueLoaded()) << path;
        ASSERT_TRUE(file->loadAllDataIntoMemory().good());
        char* fromMemory = toString(element);
        ASSERT_NE(fromFile, nullptr);
        ASSERT_NE(fromMemory, nullptr);
        EXPECT_STREQ(fromFile, fromMemory) << path;
        EXPECT_NE(std::string(fromFile).find(" bytes, checksum "), std::string::npos);
        free(fromFile);
        free(fromMemory);
    }
}

TEST(LargeValues, PiecesSuitOnlyValuesWithTheirOwnByteLayout)
{
    DcmOtherByteOtherWord ob(DcmTag(0x0009, 0x1010, EVR_OB));
    DcmOtherByteOtherWord un(DcmTag(0x0009, 0x1011, EVR_UN));
    DcmOtherByteOtherWord ow(DcmTag(0x0009, 0x1012, EVR_OW));
    DcmPixelItem item(DCM_PixelItemTag);
    DcmFloatingPointSingle floats(DcmTag(0x0009, 0x1013, EVR_FL));
    const Uint16 two[] = {1, 2};
    ASSERT_TRUE(ow.putUint16Array(two, 2).good());
    EXPECT_TRUE(ValueChunkReader::suits(&ob));
    EXPECT_TRUE(ValueChunkReader::suits(&un));
    EXPECT_TRUE(ValueChunkReader::suits(&ow));
    EXPECT_TRUE(ValueChunkReader::suits(&item));
    EXPECT_FALSE(ValueChunkReader::suits(&floats));
    EXPECT_FALSE(ValueChunkReader::suits(NULL));

    // a reader never reads past the value
    ValueChunkReader reader(&ow);
    Uint8 buffer[8];
    EXPECT_EQ(reader.remaining(), 4u);
    EXPECT_FALSE(reader.read(buffer, 5));
    EXPECT_TRUE(reader.read(buffer, 4));
    EXPECT_EQ(reader.remaining(), 0u);
    Uint16 words[2];
    memcpy(words, buffer, sizeof(words));
    EXPECT_EQ(words[0], 1);
    EXPECT_EQ(words[1], 2);
}
