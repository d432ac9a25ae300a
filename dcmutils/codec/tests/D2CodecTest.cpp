// Round trips through the JPEG 2000 encoder and decoder registered by CodecRegistry.
#include "dcmutils/codec/CodecRegistry.h"
#include "dcmutils/codec/D2JPEG2000Util.h"
#include "dcmutils/codec/D2RepresentationParameter.h"
#include "dcmutils/codec/O2EncoderRegistration.h"

#include "dcmutils/codec/tests/CodecTestSupport.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

using codectest::ImageSpec;
using codectest::stringOf;

namespace {

// Encodes a copy of the image into xfer, saves it and loads it back; null when that fails.
std::unique_ptr<DcmFileFormat> encodeAndReload(const fixtures::TempDir& dir, DcmFileFormat& image, E_TransferSyntax xfer,
                                               const DcmRepresentationParameter* param, OFCondition* status = nullptr)
{
    DcmFileFormat copy(image);
    const OFCondition cond = copy.getDataset()->chooseRepresentation(xfer, param);
    if (status)
        *status = cond;
    const std::string path = dir.file("encoded.dcm");
    if (cond.bad() || !copy.getDataset()->canWriteXfer(xfer) || copy.saveFile(path.c_str(), xfer).bad())
        return nullptr;
    std::unique_ptr<DcmFileFormat> loaded(new DcmFileFormat());
    if (loaded->loadFile(path.c_str()).bad() || loaded->getDataset()->getOriginalXfer() != xfer)
        return nullptr;
    return loaded;
}

// The samples as the decoder gives them back: colour-by-pixel.
std::vector<Uint8> expectedBytes(ImageSpec spec)
{
    spec.planarConfiguration = 0;
    return codectest::storedBytes(spec, codectest::sampleValues(spec));
}

double rootMeanSquareError(const ImageSpec& spec, const std::vector<Uint8>& decoded)
{
    const std::vector<int> values = codectest::sampleValues(spec);
    double sum = 0.0;
    for (size_t i = 0; i < values.size(); ++i)
    {
        const int v = spec.bitsAllocated == 8 ? decoded[i] : decoded[2 * i] | (decoded[2 * i + 1] << 8);
        sum += double(v - values[i]) * double(v - values[i]);
    }
    return std::sqrt(sum / values.size());
}

} // namespace

TEST(D2Codec, LosslessRoundTripsAreExact)
{
    CodecRegistry registry;
    fixtures::TempDir dir;
    const D2RepresentationParameter lossless(1.0, 0, true, "", true);
    // rows, columns, samples, bits allocated, bits stored, signed, planar, frames, photometric
    const ImageSpec cases[] = {
        {64, 48, 1, 8, 8},
        {64, 48, 1, 8, 8, true},
        {64, 48, 1, 16, 16},
        {64, 48, 1, 16, 16, true},
        {64, 48, 1, 16, 12, true, 0, 1, "", 40},
        {64, 48, 3, 8, 8},
        {64, 48, 3, 8, 8, false, 1},
        {64, 48, 3, 16, 16, false, 0, 2},
        {33, 17, 1, 16, 12, false, 0, 5, "", 100},
        {1, 3, 1, 8, 8},
        {64, 48, 3, 8, 8, false, 0, 1, "YBR_FULL"}, // coded as it is
    };
    for (const ImageSpec& spec : cases)
    {
        SCOPED_TRACE(std::to_string(spec.rows) + "x" + std::to_string(spec.columns) + " spp " +
                     std::to_string(spec.samplesPerPixel) + " bits " + std::to_string(spec.bitsStored) +
                     (spec.isSigned ? " signed" : "") + " planar " + std::to_string(spec.planarConfiguration) +
                     " frames " + std::to_string(spec.frames) + " " + spec.photometric);
        std::unique_ptr<DcmFileFormat> image(codectest::makeImage(spec));
        const std::string photometric = stringOf(*image->getDataset(), DCM_PhotometricInterpretation);
        for (E_TransferSyntax xfer : {EXS_JPEG2000LosslessOnly, EXS_JPEG2000})
        {
            std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, xfer, &lossless);
            ASSERT_NE(nullptr, loaded);
            DcmDataset& ds = *loaded->getDataset();
            EXPECT_EQ(photometric == "RGB" ? "YBR_RCT" : photometric, stringOf(ds, DCM_PhotometricInterpretation));
            EXPECT_EQ("<missing>", stringOf(ds, DCM_LossyImageCompression));
            EXPECT_EQ(spec.frames + 1, codectest::pixelSequence(ds)->card());
            EXPECT_EQ(stringOf(*image->getDataset(), DCM_SOPInstanceUID), stringOf(ds, DCM_SOPInstanceUID));
            EXPECT_EQ(expectedBytes(spec), codectest::pixelBytes(ds));
            EXPECT_EQ(photometric, stringOf(ds, DCM_PhotometricInterpretation));
            if (spec.samplesPerPixel == 3)
            {
                EXPECT_EQ("0", stringOf(ds, DCM_PlanarConfiguration));
            }
        }
    }
}

TEST(D2Codec, OnlyStoredBitsAreCoded)
{
    // bits above High Bit are not part of the value: they come back cleared, or as the sign
    CodecRegistry registry;
    fixtures::TempDir dir;
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(ImageSpec{2, 2}));
    const Uint16 words[4] = {0xF123, 0x0FFF, 0x8000, 0x0800};
    const D2RepresentationParameter lossless;
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
}

TEST(D2Codec, LossySizeFollowsTheRateAndTheObjectSaysSo)
{
    CodecRegistry registry;
    fixtures::TempDir dir;
    const ImageSpec spec{256, 256, 1, 16, 12, false, 0, 1, "", 300};
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(spec));
    const double uncompressed = 256.0 * 256.0 * 12.0 / 8.0;
    size_t previousSize = 0;
    double previousError = 1e9;
    for (double rate : {0.02, 0.1, 0.25})
    {
        SCOPED_TRACE(rate);
        const D2RepresentationParameter param(rate, 0, false, "", true);
        std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000, &param);
        ASSERT_NE(nullptr, loaded);
        DcmDataset& ds = *loaded->getDataset();
        const size_t size = codectest::compressedSize(ds);
        EXPECT_LE(size, uncompressed * rate * 1.05 + 64);
        EXPECT_GE(size, uncompressed * rate * 0.8);
        EXPECT_GT(size, previousSize);
        previousSize = size;
        EXPECT_EQ("01", stringOf(ds, DCM_LossyImageCompression));
        EXPECT_EQ("ISO_15444_1", stringOf(ds, DCM_LossyImageCompressionMethod));
        const double ratio = atof(stringOf(ds, DCM_LossyImageCompressionRatio).c_str());
        EXPECT_NEAR(uncompressed / size, ratio, 0.01 * ratio);
        OFString code;
        EXPECT_TRUE(ds.findAndGetOFString(DCM_CodeValue, code, 0, OFTrue).good());
        EXPECT_EQ("113040", std::string(code.c_str()));
        // the registry's encoders keep the instance's identity
        EXPECT_EQ(stringOf(*image->getDataset(), DCM_SOPInstanceUID), stringOf(ds, DCM_SOPInstanceUID));
        // closer to the original the higher the rate
        const double error = rootMeanSquareError(spec, codectest::pixelBytes(ds));
        EXPECT_LT(error, previousError);
        previousError = error;
    }
    EXPECT_LT(previousError, 300.0); // within the noise at a quarter of the size

    // a rate of 1.0 is lossless even in the lossy syntax
    const D2RepresentationParameter one(1.0, 0, false, "", true);
    std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000, &one);
    ASSERT_NE(nullptr, loaded);
    EXPECT_EQ("<missing>", stringOf(*loaded->getDataset(), DCM_LossyImageCompression));
    EXPECT_EQ(expectedBytes(spec), codectest::pixelBytes(*loaded->getDataset()));
}

TEST(D2Codec, LossyColourUsesTheIrreversibleTransformAndAppendsToEarlierCompression)
{
    CodecRegistry registry;
    fixtures::TempDir dir;
    const ImageSpec spec{128, 128, 3, 8, 8, false, 0, 1, "", 20};
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(spec));
    image->getDataset()->putAndInsertString(DCM_LossyImageCompression, "01");
    image->getDataset()->putAndInsertString(DCM_LossyImageCompressionRatio, "5");
    image->getDataset()->putAndInsertString(DCM_LossyImageCompressionMethod, "ISO_10918_1");
    const D2RepresentationParameter param(0.1, 0, false, "", true);
    std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000, &param);
    ASSERT_NE(nullptr, loaded);
    DcmDataset& ds = *loaded->getDataset();
    EXPECT_EQ("YBR_ICT", stringOf(ds, DCM_PhotometricInterpretation));
    EXPECT_EQ("5\\", stringOf(ds, DCM_LossyImageCompressionRatio).substr(0, 2));
    EXPECT_EQ("ISO_10918_1\\ISO_15444_1", stringOf(ds, DCM_LossyImageCompressionMethod));
    EXPECT_LT(rootMeanSquareError(spec, codectest::pixelBytes(ds)), 30.0);
    EXPECT_EQ("RGB", stringOf(ds, DCM_PhotometricInterpretation));
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
    const ImageSpec spec{64, 64, 1, 16, 12, false, 0, 3, "", 200};
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(spec));
    const D2RepresentationParameter lossless;
    std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000LosslessOnly, &lossless);
    ASSERT_NE(nullptr, loaded);
    DcmFileFormat noTable(*loaded);
    ASSERT_GT(codectest::pixelSequence(*loaded->getDataset())->card(), 3u * 3u);
    // without an offset table the frames are told apart by their codestream headers
    DcmPixelItem* table = NULL;
    ASSERT_TRUE(codectest::pixelSequence(*noTable.getDataset())->getItem(table, 0).good());
    table->putUint8Array(NULL, 0);

    const std::vector<Uint8> expected = expectedBytes(spec);
    const size_t frameSize = 64 * 64 * 2;
    std::vector<Uint8> frame(frameSize);
    for (DcmFileFormat* file : {loaded.get(), &noTable})
    {
        DcmDataset& ds = *file->getDataset();
        DcmElement* element = NULL;
        ASSERT_TRUE(ds.findAndGetElement(DCM_PixelData, element).good());
        for (Uint32 f : {2u, 0u, 1u})
        {
            Uint32 startFragment = 0;
            OFString colorModel;
            ASSERT_TRUE(static_cast<DcmPixelData*>(element)
                            ->getUncompressedFrame(&ds, f, startFragment, frame.data(), Uint32(frameSize), colorModel)
                            .good());
            EXPECT_EQ("MONOCHROME2", std::string(colorModel.c_str()));
            EXPECT_TRUE(std::equal(frame.begin(), frame.end(), expected.begin() + f * frameSize)) << "frame " << f;
        }
        EXPECT_EQ(expected, codectest::pixelBytes(ds));
    }
}

TEST(D2Codec, RefusesWhatItCannotEncodeAndLeavesTheObject)
{
    CodecRegistry registry;
    fixtures::TempDir dir;
    const D2RepresentationParameter lossless;
    std::unique_ptr<DcmFileFormat> subsampled(codectest::makeImage(ImageSpec{64, 48, 3, 8, 8, false, 0, 1, "YBR_FULL_422"}));
    OFCondition status;
    EXPECT_EQ(nullptr, encodeAndReload(dir, *subsampled, EXS_JPEG2000LosslessOnly, &lossless, &status));
    EXPECT_NE(std::string::npos, std::string(status.text()).find("YBR_FULL_422")) << status.text();
    EXPECT_EQ("YBR_FULL_422", stringOf(*subsampled->getDataset(), DCM_PhotometricInterpretation));
    EXPECT_TRUE(subsampled->getDataset()->canWriteXfer(EXS_LittleEndianExplicit));

    std::unique_ptr<DcmFileFormat> wide(codectest::makeImage(ImageSpec{64, 48, 1, 8, 8}));
    wide->getDataset()->putAndInsertUint16(DCM_BitsAllocated, 32);
    EXPECT_EQ(nullptr, encodeAndReload(dir, *wide, EXS_JPEG2000LosslessOnly, &lossless, &status));
    EXPECT_EQ(EC_J2KUnsupportedBitDepth, status);
}
