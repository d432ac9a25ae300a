// Damaged frames that DCMTK's own decoders would read past their fragment (RLE) or scan for ever
// (JPEG) are refused.
#include "dcmutils/codec/CheckedJPEGDecoder.h"
#include "dcmutils/codec/CheckedRLEDecoder.h"
#include "dcmutils/codec/CodecRegistry.h"

#include "dcmutils/codec/tests/CodecTestSupport.h"

#include <gtest/gtest.h>

TEST(CheckedDecoders, DamagedFirstFragmentsAreRefusedGoodOnesDecode)
{
    // the JPEG walk follows segment lengths and skips reserved markers without one to find a TEM
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
    // bytes written into the first fragment at an offset
    const struct
    {
        const char* name;
        size_t offset;
        std::vector<Uint8> bytes;
        bool decodes;
    } cases[] = {
        {"MR_small_RLE.dcm", 0, {}, true},
        {"MR_small_RLE.dcm", 4, {0x00, 0xff, 0xff, 0x7f}, false}, // first segment past the fragment
        {"MR_small_RLE.dcm", 4, {8, 0, 0, 0}, false},             // first segment inside the header
        {"MR_small_RLE.dcm", 0, {16}, false},                     // sixteen segments
        {"SC_rgb_jpeg_dcmtk.dcm", 0, {}, true},
        {"SC_rgb_jpeg_dcmtk.dcm", 3, {0x01}, false}, // FF01 right after the start of image
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        std::unique_ptr<DcmFileFormat> file = codectest::load(fixtures::corpusFile(c.name));
        Uint8* bytes = NULL;
        ASSERT_TRUE(file && codectest::fragment(*file) && codectest::fragment(*file)->getUint8Array(bytes).good());
        std::copy(c.bytes.begin(), c.bytes.end(), bytes + c.offset);
        std::vector<Uint8> frame;
        EXPECT_EQ(c.decodes, codectest::decodeFrame(*file, 0, frame).good());
        // JPEG: the whole object as well (RLE is checked frame by frame)
        EXPECT_TRUE(std::string(c.name).find("jpeg") == std::string::npos ||
                    c.decodes == !codectest::pixelBytes(*file->getDataset()).empty());
    }
}
