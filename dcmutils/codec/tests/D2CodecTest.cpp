// Round trips through the JPEG 2000 encoder and decoder registered by CodecRegistry.
#include "dcmutils/codec/CodecRegistry.h"
#include "dcmutils/codec/D2JPEG2000Util.h"
#include "dcmutils/codec/D2RepresentationParameter.h"
#include "dcmutils/codec/O2EncoderRegistration.h"

#include "dcmutils/codec/tests/CodecTestSupport.h"

#include <gtest/gtest.h>

using codectest::ImageLayout;
using fixtures::value;

namespace {

// Encodes a copy of the image into xfer, saves it and loads it back; null when that fails.
std::unique_ptr<DcmFileFormat> encodeAndReload(const fixtures::TempDir& dir, DcmFileFormat& image,
                                               E_TransferSyntax xfer, const DcmRepresentationParameter* param)
{
    DcmFileFormat copy(image);
    const std::string path = dir.file("encoded.dcm");
    if (copy.getDataset()->chooseRepresentation(xfer, param).bad() || !copy.getDataset()->canWriteXfer(xfer) ||
        copy.saveFile(path.c_str(), xfer).bad())
        return nullptr;
    std::unique_ptr<DcmFileFormat> loaded = codectest::load(path);
    return loaded && loaded->getDataset()->getOriginalXfer() == xfer ? std::move(loaded) : nullptr;
}

double rootMeanSquareError(const ImageLayout& layout, const std::vector<Uint8>& decoded)
{
    const std::vector<int> values = codectest::sampleValues(layout);
    if (decoded.size() != values.size() * layout.bitsAllocated / 8)
        return 1e9;
    double sum = 0.0;
    for (size_t i = 0; i < values.size(); ++i)
    {
        const int v = layout.bitsAllocated == 8 ? decoded[i] : decoded[2 * i] | (decoded[2 * i + 1] << 8);
        sum += double(v - values[i]) * double(v - values[i]);
    }
    return std::sqrt(sum / values.size());
}

} // namespace

TEST(D2Codec, LosslessRoundTripsAreExactOrRefused)
{
    CodecRegistry registry;
    fixtures::TempDir dir;
    const D2RepresentationParameter lossless(1.0, 0, true, "", true);
    // rows, columns, samples, bits allocated, bits stored, signed, planar, frames, photometric, noise
    const ImageLayout cases[] = {
        {64, 48, 1, 8, 8}, {64, 48, 1, 8, 8, true}, {64, 48, 1, 16, 16}, {64, 48, 1, 16, 16, true},
        {64, 48, 1, 16, 12, true, 0, 1, "", 40}, {64, 48, 3, 8, 8}, {64, 48, 3, 8, 8, false, 1},
        {64, 48, 3, 16, 16, false, 0, 2}, {33, 17, 1, 16, 12, false, 0, 5, "", 100}, {1, 3, 1, 8, 8},
        {64, 48, 3, 8, 8, false, 0, 1, "YBR_FULL"}, // coded as it is
    };
    for (const ImageLayout& layout : cases)
    {
        SCOPED_TRACE(&layout - cases);
        std::unique_ptr<DcmFileFormat> image(codectest::makeImage(layout));
        const std::string photometric = value(*image->getDataset(), DCM_PhotometricInterpretation);
        for (E_TransferSyntax xfer : {EXS_JPEG2000LosslessOnly, EXS_JPEG2000})
        {
            std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, xfer, &lossless);
            ASSERT_NE(nullptr, loaded);
            DcmDataset& ds = *loaded->getDataset();
            EXPECT_EQ(photometric == "RGB" ? "YBR_RCT" : photometric, value(ds, DCM_PhotometricInterpretation));
            EXPECT_EQ("<missing>", value(ds, DCM_LossyImageCompression));
            EXPECT_EQ(layout.frames + 1, codectest::pixelSequence(ds)->card());
            EXPECT_EQ(value(*image->getDataset(), DCM_SOPInstanceUID), value(ds, DCM_SOPInstanceUID));
            EXPECT_EQ(codectest::pixelBytes(*image->getDataset()), codectest::pixelBytes(ds));
            // decoded: the original colour model, colour-by-pixel
            EXPECT_EQ(photometric, value(ds, DCM_PhotometricInterpretation));
            EXPECT_EQ(layout.samplesPerPixel == 3 ? "0" : "<missing>", value(ds, DCM_PlanarConfiguration));
        }
    }

    // bits above High Bit come back cleared, or as the sign
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(ImageLayout{2, 2}));
    const Uint16 words[4] = {0xF123, 0x0FFF, 0x8000, 0x0800};
    const std::vector<Uint8> expected[] = {{0x23, 0x01, 0xFF, 0x0F, 0x00, 0x00, 0x00, 0x08},
                                           {0x23, 0x01, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0xF8}};
    for (Uint16 representation : {0, 1})
    {
        image->getDataset()->putAndInsertUint16(DCM_PixelRepresentation, representation);
        image->getDataset()->putAndInsertUint16Array(DCM_PixelData, words, 4);
        std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000LosslessOnly, &lossless);
        ASSERT_NE(nullptr, loaded);
        EXPECT_EQ(expected[representation], codectest::pixelBytes(*loaded->getDataset()));
    }

    // what it cannot encode is refused, and the object left as it was
    image.reset(codectest::makeImage(ImageLayout{64, 48, 3, 8, 8, false, 0, 1, "YBR_FULL_422"}));
    DcmDataset* ds = image->getDataset();
    const OFCondition status = ds->chooseRepresentation(EXS_JPEG2000LosslessOnly, &lossless);
    EXPECT_NE(std::string::npos, std::string(status.text()).find("YBR_FULL_422")) << status.text();
    EXPECT_EQ("YBR_FULL_422", value(*ds, DCM_PhotometricInterpretation));
    EXPECT_TRUE(ds->canWriteXfer(EXS_LittleEndianExplicit));
    image.reset(codectest::makeImage(ImageLayout{64, 48, 1, 8, 8}));
    image->getDataset()->putAndInsertUint16(DCM_BitsAllocated, 32);
    EXPECT_EQ(EC_J2KUnsupportedBitDepth, image->getDataset()->chooseRepresentation(EXS_JPEG2000LosslessOnly, NULL));
}

TEST(D2Codec, LossySizeFollowsTheRateAndTheObjectSaysSo)
{
    CodecRegistry registry;
    fixtures::TempDir dir;
    const ImageLayout layout{256, 256, 1, 16, 12, false, 0, 1, "", 300};
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(layout));
    const double uncompressed = 256.0 * 256.0 * 12.0 / 8.0;
    size_t previousSize = 0;
    double previousError = 1e9;
    for (double rate : {0.02, 0.1, 0.25, 1.0}) // 1.0 is lossless even in the lossy syntax
    {
        SCOPED_TRACE(rate);
        const D2RepresentationParameter param(rate, 0, false, "", true);
        std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000, &param);
        ASSERT_NE(nullptr, loaded);
        DcmDataset& ds = *loaded->getDataset();
        ASSERT_TRUE(codectest::fragment(*loaded) && codectest::pixelSequence(ds)->card() == 2);
        const size_t size = codectest::fragment(*loaded)->getLength();
        EXPECT_GT(size, previousSize);
        previousSize = size;
        const double error = rootMeanSquareError(layout, codectest::pixelBytes(ds));
        EXPECT_LT(error, previousError); // closer to the original the higher the rate
        previousError = error;
        EXPECT_EQ(value(*image->getDataset(), DCM_SOPInstanceUID), value(ds, DCM_SOPInstanceUID));
        if (rate == 1.0)
        {
            EXPECT_EQ("<missing>", value(ds, DCM_LossyImageCompression));
            EXPECT_EQ(0.0, error);
            break;
        }
        EXPECT_LE(size, uncompressed * rate * 1.05 + 64);
        EXPECT_GE(size, uncompressed * rate * 0.8);
        EXPECT_EQ("01", value(ds, DCM_LossyImageCompression));
        EXPECT_EQ("ISO_15444_1", value(ds, DCM_LossyImageCompressionMethod));
        const double ratio = atof(value(ds, DCM_LossyImageCompressionRatio).c_str());
        EXPECT_NEAR(uncompressed / size, ratio, 0.01 * ratio);
        OFString code;
        EXPECT_TRUE(ds.findAndGetOFString(DCM_CodeValue, code, 0, OFTrue).good() && code == "113040");
        EXPECT_TRUE(rate < 0.25 || error < 300.0); // within the noise at a quarter of the size
    }

    // colour: the irreversible transform, appended to an earlier lossy compression
    const ImageLayout colour{128, 128, 3, 8, 8, false, 0, 1, "", 20};
    image.reset(codectest::makeImage(colour));
    image->getDataset()->putAndInsertString(DCM_LossyImageCompression, "01");
    image->getDataset()->putAndInsertString(DCM_LossyImageCompressionRatio, "5");
    image->getDataset()->putAndInsertString(DCM_LossyImageCompressionMethod, "ISO_10918_1");
    const D2RepresentationParameter param(0.1, 0, false, "", true);
    std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000, &param);
    ASSERT_NE(nullptr, loaded);
    DcmDataset& ds = *loaded->getDataset();
    EXPECT_EQ("YBR_ICT", value(ds, DCM_PhotometricInterpretation));
    EXPECT_EQ("5\\", value(ds, DCM_LossyImageCompressionRatio).substr(0, 2));
    EXPECT_EQ("ISO_10918_1\\ISO_15444_1", value(ds, DCM_LossyImageCompressionMethod));
    EXPECT_LT(rootMeanSquareError(colour, codectest::pixelBytes(ds)), 30.0);
    EXPECT_EQ("RGB", value(ds, DCM_PhotometricInterpretation));
}

TEST(D2Codec, SeveralFragmentsPerFrameWithAndWithoutOffsetTable)
{
    CodecRegistry registry;
    // fragments of at most 1 kbyte
    O2EncoderRegistration::cleanup();
    O2EncoderRegistration::registerCodecs(OFList<double>(), 0, 0, 0, 0, 0, 0, 6, 6, 15, 15, false, false, false,
                                          false, EJ2KP_LRCP, 6, 2, false, false, false, false, true, false, true,
                                          EJ2KBD_limit, 16, 0, 0, 0.0, 0.0, 0, 0, 0, 0, true, false, 1, true,
                                          EJ2KUC_never);
    fixtures::TempDir dir;
    const ImageLayout layout{64, 64, 1, 16, 12, false, 0, 3, "", 200};
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(layout));
    const D2RepresentationParameter lossless;
    std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000LosslessOnly, &lossless);
    ASSERT_NE(nullptr, loaded);
    ASSERT_GT(codectest::pixelSequence(*loaded->getDataset())->card(), 3u * 3u);
    // without an offset table the frames are told apart by their codestream headers
    DcmFileFormat noTable(*loaded);
    codectest::fragment(noTable, 0)->putUint8Array(NULL, 0);

    const std::vector<Uint8> expected = codectest::pixelBytes(*image->getDataset());
    const size_t frameSize = 64 * 64 * 2;
    std::vector<Uint8> frame;
    for (DcmFileFormat* file : {loaded.get(), &noTable})
    {
        for (Uint32 f : {2u, 0u, 1u})
        {
            OFString colourModel;
            ASSERT_TRUE(codectest::decodeFrame(*file, f, frame, 0, &colourModel).good());
            EXPECT_EQ("MONOCHROME2", colourModel);
            EXPECT_TRUE(std::equal(frame.begin(), frame.end(), expected.begin() + f * frameSize)) << "frame " << f;
        }
        // a start fragment past the sequence
        EXPECT_EQ(EC_J2KCannotComputeNumberOfFragments, codectest::decodeFrame(*file, 2, frame, 100));
        EXPECT_EQ(expected, codectest::pixelBytes(*file->getDataset()));
    }
}
