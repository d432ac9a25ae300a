// Damaged codestreams and objects whose header does not match their codestream give a clear
// error, never a crash (these tests are meant to run under AddressSanitizer too).
#include "dcmutils/codec/CodecRegistry.h"
#include "dcmutils/codec/D2CodecParameter.h"
#include "dcmutils/codec/D2CodestreamDecoder.h"
#include "dcmutils/codec/D2JPEG2000Library.h"

#include "dcmutils/codec/tests/CodecTestSupport.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

// The first fragment of the object's pixel sequence.
DcmPixelItem* firstFragment(DcmFileFormat& file)
{
    DcmPixelSequence* sequence = codectest::pixelSequence(*file.getDataset());
    DcmPixelItem* item = NULL;
    if (sequence == NULL || sequence->getItem(item, 1).bad())
        return NULL;
    return item;
}

// The first codestream of a corpus file.
std::vector<Uint8> codestreamOf(const std::string& name)
{
    DcmFileFormat file;
    Uint8* data = NULL;
    if (file.loadFile(fixtures::corpusFile(name).c_str()).bad() || firstFragment(file) == NULL ||
        firstFragment(file)->getUint8Array(data).bad() || data == NULL)
        return std::vector<Uint8>();
    return std::vector<Uint8>(data, data + firstFragment(file)->getLength());
}

D2FrameInfo mrSmallFrame()
{
    D2FrameInfo frame;
    frame.columns = 64;
    frame.rows = 64;
    frame.samplesPerPixel = 1;
    frame.bytesPerSample = 2;
    frame.storedBits = 16;
    frame.isSigned = true;
    return frame;
}

} // namespace

TEST(D2Corrupt, TruncatedCodestreamsFail)
{
    const std::vector<Uint8> codestream = codestreamOf("MR_small_jp2klossless.dcm");
    ASSERT_GT(codestream.size(), 1000u);
    const D2CodecParameter cp;
    D2CodestreamDecoder decoder(cp);
    const D2FrameInfo frame = mrSmallFrame();
    std::vector<Uint8> buffer(frame.frameSize());

    ASSERT_TRUE(decoder.decode(codestream.data(), codestream.size(), frame, buffer.data(), buffer.size()).good());
    for (size_t length = 0; length < codestream.size() - 2; length += (length < 300 ? 1 : 37))
    {
        // a copy of exactly that length, so that reading past it is caught
        std::vector<Uint8> truncated(codestream.begin(), codestream.begin() + length);
        const OFCondition cond = decoder.decode(truncated.data(), truncated.size(), frame, buffer.data(), buffer.size());
        EXPECT_TRUE(cond.bad()) << "length " << length;
        if (cond.bad())
        {
            EXPECT_EQ(0u, std::string(cond.text()).find("JPEG 2000 decoding failed: ")) << cond.text();
        }
    }
}

TEST(D2Corrupt, ObjectsWithDamagedPixelDataGiveAClearError)
{
    CodecRegistry registry;
    DcmFileFormat file;
    ASSERT_TRUE(file.loadFile(fixtures::corpusFile("JPEG2000-embedded-sequence-delimiter.dcm").c_str()).good());
    OFCondition cond = file.getDataset()->chooseRepresentation(EXS_LittleEndianExplicit, NULL);
    ASSERT_TRUE(cond.bad());
    EXPECT_EQ(0u, std::string(cond.text()).find("JPEG 2000 decoding failed: ")) << cond.text();

    const std::vector<Uint8> good = codestreamOf("MR_small_jp2klossless.dcm");
    struct Case
    {
        const char* name;
        std::vector<Uint8> codestream;
        const char* message;
    };
    const Case cases[] = {
        {"truncated", std::vector<Uint8>(good.begin(), good.begin() + good.size() / 2), "JPEG 2000 decoding failed: "},
        {"not JPEG 2000", std::vector<Uint8>({0xFF, 0xD8, 0xFF, 0xE0, 0, 0x10, 'J', 'F', 'I', 'F'}),
         "JPEG 2000 decoding failed: no JPEG 2000 codestream at start of frame"},
        {"empty", std::vector<Uint8>(), "JPEG 2000 decoding failed: "},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        DcmFileFormat object;
        ASSERT_TRUE(object.loadFile(fixtures::corpusFile("MR_small_jp2klossless.dcm").c_str()).good());
        ASSERT_TRUE(firstFragment(object)->putUint8Array(c.codestream.data(), Uint32(c.codestream.size())).good());
        cond = object.getDataset()->chooseRepresentation(EXS_LittleEndianExplicit, NULL);
        ASSERT_TRUE(cond.bad());
        EXPECT_EQ(0u, std::string(cond.text()).find(c.message)) << cond.text();
        // the object still holds its compressed pixel data
        EXPECT_TRUE(object.getDataset()->canWriteXfer(EXS_JPEG2000LosslessOnly));
    }
}

TEST(D2Corrupt, HeaderAndCodestreamMustAgree)
{
    CodecRegistry registry;
    struct Case
    {
        const char* name;
        DcmTagKey key;
        Uint16 value;
    };
    const Case cases[] = {
        {"rows", DCM_Rows, 65},
        {"columns", DCM_Columns, 32},
        {"samples", DCM_SamplesPerPixel, 3},
        {"bits allocated", DCM_BitsAllocated, 8},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        DcmFileFormat object;
        ASSERT_TRUE(object.loadFile(fixtures::corpusFile("MR_small_jp2klossless.dcm").c_str()).good());
        object.getDataset()->putAndInsertUint16(c.key, c.value);
        if (c.key == DCM_BitsAllocated)
            object.getDataset()->putAndInsertUint16(DCM_BitsStored, 8);
        const OFCondition cond = object.getDataset()->chooseRepresentation(EXS_LittleEndianExplicit, NULL);
        ASSERT_TRUE(cond.bad());
        EXPECT_EQ(0u, std::string(cond.text()).find("Image data mismatch between DICOM header and JPEG 2000 codestream"))
            << cond.text();
    }
}

TEST(D2Corrupt, WithoutTheLibraryTheCodecsRefuse)
{
    // registered codecs, but the library ended: a clear error, not a crash
    CodecRegistry registry;
    D2JPEG2000Library::cleanup();
    DcmFileFormat object;
    ASSERT_TRUE(object.loadFile(fixtures::corpusFile("MR_small_jp2klossless.dcm").c_str()).good());
    const OFCondition cond = object.getDataset()->chooseRepresentation(EXS_LittleEndianExplicit, NULL);
    EXPECT_TRUE(cond.bad());
    EXPECT_STREQ("JPEG 2000 library not initialized", cond.text());
    ASSERT_TRUE(D2JPEG2000Library::initialize().good());
    EXPECT_TRUE(object.getDataset()->chooseRepresentation(EXS_LittleEndianExplicit, NULL).good());
}
