// Damaged frames that DCMTK's own decoders would read past their fragment (RLE) or scan for ever
// (JPEG) are refused.
#include "dcmutils/codec/CheckedRLEDecoder.h"
#include "dcmutils/codec/CheckedJPEGDecoder.h"
#include "dcmutils/codec/CodecRegistry.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// The first fragment of an object's pixel data, loaded, for the test to damage.
Uint8* firstFragment(DcmFileFormat& file, DcmPixelData*& pixels)
{
    DcmElement* element = nullptr;
    if (file.getDataset()->findAndGetElement(DCM_PixelData, element).bad())
        return nullptr;
    pixels = OFstatic_cast(DcmPixelData*, element);
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* parameter = nullptr;
    pixels->getCurrentRepresentationKey(xfer, parameter);
    DcmPixelSequence* sequence = nullptr;
    DcmPixelItem* fragment = nullptr;
    Uint8* bytes = nullptr;
    if (pixels->getEncapsulatedRepresentation(xfer, parameter, sequence).bad() ||
        sequence->getItem(fragment, 1).bad() || fragment->getUint8Array(bytes).bad())
        return nullptr;
    return bytes;
}

// Decodes frame 0 of the object; true when it decoded.
bool decodesFirstFrame(DcmFileFormat& file, DcmPixelData* pixels)
{
    Uint32 frameSize = 0;
    if (pixels->getUncompressedFrameSize(file.getDataset(), frameSize).bad())
        return false;
    std::vector<Uint8> frame(frameSize);
    Uint32 start = 0;
    OFString colourModel;
    return pixels->getUncompressedFrame(file.getDataset(), 0, start, frame.data(), frameSize, colourModel, nullptr)
        .good();
}

} // namespace

TEST(CheckedRLEDecoder, DamagedHeadersAreRefusedGoodFramesDecode)
{
    CodecRegistry registry;
    struct Case
    {
        const char* what;
        Uint32 segments; // written into the header, 0: as the file has it
        Uint32 offset;   // first segment offset, 0: as the file has it
        bool decodes;
    };
    const std::vector<Case> cases = {
        {"as stored", 0, 0, true},
        {"offset past the fragment", 0, 0x7fffff00, false},
        {"offset inside the header", 0, 8, false},
        {"sixteen segments", 16, 0, false},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.what);
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(fixtures::corpusFile("MR_small_RLE.dcm").c_str()).good());
        DcmPixelData* pixels = nullptr;
        Uint8* bytes = firstFragment(file, pixels);
        ASSERT_TRUE(bytes);
        if (c.segments)
            bytes[0] = Uint8(c.segments);
        if (c.offset)
            for (int i = 0; i < 4; ++i)
                bytes[4 + i] = Uint8(c.offset >> (8 * i));
        EXPECT_EQ(c.decodes, decodesFirstFrame(file, pixels));
    }
}

TEST(CheckedJPEGDecoder, ATemMarkerBeforeTheFrameIsRefusedInsteadOfScannedForEver)
{
    // the walk follows segment lengths and skips reserved markers without one to find a TEM
    // behind them; bytes that are no marker end it (first: a wrong walk would hang the decoder below)
    const std::pair<std::vector<Uint8>, bool> walks[] = {
        {{0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x04, 0xFF, 0x01, 0xFF, 0x01, 0, 0, 0, 0}, false},
        {{0xFF, 0xD8, 0xFF, 0x05, 0xFF, 0x01, 0x00, 0x00, 0x00, 0x00}, false},
        {{0xFF, 0xD8, 0x12, 0x05, 0xFF, 0x01, 0x00, 0x00, 0x00, 0x00}, true},
        {{0xFF, 0xD8, 0xFF, 0xC0, 0x00, 0x04, 0xFF, 0x01, 0x00, 0x00}, true},
    };
    for (const auto& w : walks)
        ASSERT_EQ(w.second, CheckedJPEGDecoderRegistration::isScannable(w.first.data(), Uint32(w.first.size())));
    CodecRegistry registry;
    for (bool damaged : {false, true})
    {
        SCOPED_TRACE(damaged);
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(fixtures::corpusFile("SC_rgb_jpeg_dcmtk.dcm").c_str()).good());
        DcmPixelData* pixels = nullptr;
        Uint8* bytes = firstFragment(file, pixels);
        ASSERT_TRUE(bytes && bytes[0] == 0xff && bytes[1] == 0xd8);
        if (damaged)
            bytes[3] = 0x01; // FF01 right after the start of image
        EXPECT_EQ(!damaged, decodesFirstFrame(file, pixels));
    }
}
