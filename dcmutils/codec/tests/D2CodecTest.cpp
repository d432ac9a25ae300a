// Round trips through the JPEG 2000 encoder and decoder, and decoding of JPEG 2000 objects
// written by other toolkits, compared with GDCM (gdcmconv) as an independent decoder.
#include "dcmutils/codec/CodecRegistry.h"
#include "dcmutils/codec/D2RepresentationParameter.h"
#include "dcmutils/codec/O2EncoderRegistration.h"

#include "dcmutils/codec/tests/CodecTestSupport.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

using codectest::ImageSpec;

namespace {

// Encodes a copy of the image into xfer with the parameter, saves it, loads it back.
std::unique_ptr<DcmFileFormat> encodeAndReload(const fixtures::TempDir& dir, DcmFileFormat& image, E_TransferSyntax xfer,
                                               const DcmRepresentationParameter* param, OFCondition* status = nullptr)
{
    DcmFileFormat copy(image);
    OFCondition cond = copy.getDataset()->chooseRepresentation(xfer, param);
    if (status)
        *status = cond;
    if (cond.bad() || !copy.getDataset()->canWriteXfer(xfer))
        return nullptr;
    const std::string path = dir.file("encoded.dcm");
    if (copy.saveFile(path.c_str(), xfer).bad())
        return nullptr;
    std::unique_ptr<DcmFileFormat> loaded(new DcmFileFormat());
    if (loaded->loadFile(path.c_str()).bad() || loaded->getDataset()->getOriginalXfer() != xfer)
        return nullptr;
    return loaded;
}

std::vector<Uint8> expectedBytes(ImageSpec spec)
{
    // decoded colour images come back colour-by-pixel
    spec.planarConfiguration = 0;
    return codectest::storedBytes(spec, codectest::sampleValues(spec));
}

double rootMeanSquareError(const ImageSpec& spec, const std::vector<Uint8>& decoded)
{
    const std::vector<int> values = codectest::sampleValues(spec);
    double sum = 0.0;
    for (size_t i = 0; i < values.size(); ++i)
    {
        int v = spec.bitsAllocated == 8 ? decoded[i] : decoded[2 * i] | (decoded[2 * i + 1] << 8);
        if (spec.isSigned && spec.bitsAllocated == 16 && v >= 32768)
            v -= 65536;
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

    struct Case
    {
        const char* name;
        ImageSpec spec;
    };
    std::vector<Case> cases;
    ImageSpec s;
    s.bitsAllocated = 8;
    s.bitsStored = 8;
    cases.push_back({"8-bit", s});
    s = ImageSpec();
    s.bitsStored = 16;
    cases.push_back({"16-bit unsigned", s});
    s = ImageSpec();
    s.bitsStored = 12;
    s.isSigned = true;
    s.noise = 40;
    cases.push_back({"12-bit signed", s});
    s = ImageSpec();
    s.bitsStored = 16;
    s.isSigned = true;
    cases.push_back({"16-bit signed", s});
    s = ImageSpec();
    s.bitsAllocated = 8;
    s.bitsStored = 8;
    s.isSigned = true;
    cases.push_back({"8-bit signed", s});
    s = ImageSpec();
    s.samplesPerPixel = 3;
    s.bitsAllocated = 8;
    s.bitsStored = 8;
    cases.push_back({"RGB colour-by-pixel", s});
    s.planarConfiguration = 1;
    cases.push_back({"RGB colour-by-plane", s});
    s = ImageSpec();
    s.samplesPerPixel = 3;
    s.bitsStored = 16;
    s.frames = 2;
    cases.push_back({"RGB 16-bit two frames", s});
    s = ImageSpec();
    s.frames = 5;
    s.rows = 33;
    s.columns = 17;
    s.noise = 100;
    cases.push_back({"multi-frame odd size", s});
    s = ImageSpec();
    s.rows = 1;
    s.columns = 3;
    s.bitsAllocated = 8;
    s.bitsStored = 8;
    cases.push_back({"tiny", s});

    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        std::unique_ptr<DcmFileFormat> image(codectest::makeImage(c.spec));
        for (E_TransferSyntax xfer : {EXS_JPEG2000LosslessOnly, EXS_JPEG2000})
        {
            std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, xfer, &lossless);
            ASSERT_NE(nullptr, loaded);
            DcmDataset& ds = *loaded->getDataset();
            const std::string compressedPhotometric = codectest::stringOf(ds, DCM_PhotometricInterpretation);
            EXPECT_EQ(c.spec.samplesPerPixel == 3 ? "YBR_RCT" : "MONOCHROME2", compressedPhotometric);
            EXPECT_EQ("<missing>", codectest::stringOf(ds, DCM_LossyImageCompression));
            EXPECT_EQ(c.spec.frames + 1, codectest::fragmentCount(ds));
            EXPECT_EQ(expectedBytes(c.spec), codectest::pixelBytes(ds));
            EXPECT_EQ(c.spec.samplesPerPixel == 3 ? "RGB" : "MONOCHROME2",
                      codectest::stringOf(ds, DCM_PhotometricInterpretation));
            if (c.spec.samplesPerPixel == 3)
            {
                EXPECT_EQ("0", codectest::stringOf(ds, DCM_PlanarConfiguration));
            }
            EXPECT_EQ(codectest::stringOf(*image->getDataset(), DCM_SOPInstanceUID),
                      codectest::stringOf(ds, DCM_SOPInstanceUID));
        }
    }
}

TEST(D2Codec, OnlyStoredBitsAreCoded)
{
    // bits above High Bit are not part of the value: they come back cleared (unsigned) or as
    // the sign (signed)
    CodecRegistry registry;
    fixtures::TempDir dir;
    ImageSpec spec;
    spec.rows = 2;
    spec.columns = 2;
    spec.bitsStored = 12;
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(spec));
    const Uint16 words[4] = {0xF123, 0x0FFF, 0x8000, 0x0800};
    image->getDataset()->putAndInsertUint16Array(DCM_PixelData, words, 4);
    const D2RepresentationParameter lossless;
    std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000LosslessOnly, &lossless);
    ASSERT_NE(nullptr, loaded);
    EXPECT_EQ(std::vector<Uint8>({0x23, 0x01, 0xFF, 0x0F, 0x00, 0x00, 0x00, 0x08}),
              codectest::pixelBytes(*loaded->getDataset()));

    image->getDataset()->putAndInsertUint16(DCM_PixelRepresentation, 1);
    image->getDataset()->putAndInsertUint16Array(DCM_PixelData, words, 4);
    loaded = encodeAndReload(dir, *image, EXS_JPEG2000LosslessOnly, &lossless);
    ASSERT_NE(nullptr, loaded);
    EXPECT_EQ(std::vector<Uint8>({0x23, 0x01, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0xF8}),
              codectest::pixelBytes(*loaded->getDataset()));
}

TEST(D2Codec, LossySizeFollowsTheRateAndTheObjectSaysSo)
{
    CodecRegistry registry;
    fixtures::TempDir dir;
    ImageSpec spec;
    spec.rows = 256;
    spec.columns = 256;
    spec.bitsStored = 12;
    spec.noise = 300;
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(spec));
    const double uncompressed = 256.0 * 256.0 * 12.0 / 8.0;

    size_t previous = 0;
    double previousError = 1e9;
    for (double rate : {0.02, 0.05, 0.1, 0.25})
    {
        SCOPED_TRACE(rate);
        const D2RepresentationParameter param(rate, 0, false, "", true);
        std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000, &param);
        ASSERT_NE(nullptr, loaded);
        DcmDataset& ds = *loaded->getDataset();
        const size_t size = codectest::compressedSize(ds);
        EXPECT_LE(size, uncompressed * rate * 1.05 + 64);
        EXPECT_GE(size, uncompressed * rate * 0.8);
        EXPECT_GT(size, previous);
        previous = size;

        EXPECT_EQ("01", codectest::stringOf(ds, DCM_LossyImageCompression));
        EXPECT_EQ("ISO_15444_1", codectest::stringOf(ds, DCM_LossyImageCompressionMethod));
        const double ratio = atof(codectest::stringOf(ds, DCM_LossyImageCompressionRatio).c_str());
        EXPECT_NEAR(uncompressed / size, ratio, 0.01 * ratio);
        OFString code;
        EXPECT_TRUE(ds.findAndGetOFString(DCM_CodeValue, code, 0, OFTrue).good());
        EXPECT_EQ("113040", std::string(code.c_str()));
        // the registry's encoders keep the instance's identity
        EXPECT_EQ(codectest::stringOf(*image->getDataset(), DCM_SOPInstanceUID),
                  codectest::stringOf(ds, DCM_SOPInstanceUID));

        const std::vector<Uint8> decoded = codectest::pixelBytes(ds);
        ASSERT_EQ(expectedBytes(spec).size(), decoded.size());
        // closer to the original the higher the rate
        const double error = rootMeanSquareError(spec, decoded);
        EXPECT_LT(error, previousError);
        previousError = error;
        EXPECT_EQ("01", codectest::stringOf(ds, DCM_LossyImageCompression));
    }

    // at a quarter of the size, well within the noise
    EXPECT_LT(previousError, 300.0);

    // a rate of 1.0 is lossless even in the lossy syntax
    const D2RepresentationParameter one(1.0, 0, false, "", true);
    std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000, &one);
    ASSERT_NE(nullptr, loaded);
    EXPECT_EQ("<missing>", codectest::stringOf(*loaded->getDataset(), DCM_LossyImageCompression));
    EXPECT_EQ(expectedBytes(spec), codectest::pixelBytes(*loaded->getDataset()));
}

TEST(D2Codec, LossyColourUsesTheIrreversibleTransformAndAppendsToEarlierCompression)
{
    CodecRegistry registry;
    fixtures::TempDir dir;
    ImageSpec spec;
    spec.samplesPerPixel = 3;
    spec.bitsAllocated = 8;
    spec.bitsStored = 8;
    spec.rows = 128;
    spec.columns = 128;
    spec.noise = 20;
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(spec));
    DcmDataset* source = image->getDataset();
    source->putAndInsertString(DCM_LossyImageCompression, "01");
    source->putAndInsertString(DCM_LossyImageCompressionRatio, "5");
    source->putAndInsertString(DCM_LossyImageCompressionMethod, "ISO_10918_1");

    const D2RepresentationParameter param(0.1, 0, false, "", true);
    std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000, &param);
    ASSERT_NE(nullptr, loaded);
    DcmDataset& ds = *loaded->getDataset();
    EXPECT_EQ("YBR_ICT", codectest::stringOf(ds, DCM_PhotometricInterpretation));
    const std::string ratios = codectest::stringOf(ds, DCM_LossyImageCompressionRatio);
    EXPECT_EQ("5\\", ratios.substr(0, 2));
    EXPECT_EQ("ISO_10918_1\\ISO_15444_1", codectest::stringOf(ds, DCM_LossyImageCompressionMethod));
    const std::vector<Uint8> decoded = codectest::pixelBytes(ds);
    EXPECT_EQ("RGB", codectest::stringOf(ds, DCM_PhotometricInterpretation));
    EXPECT_LT(rootMeanSquareError(spec, decoded), 30.0);
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
    ImageSpec spec;
    spec.rows = 64;
    spec.columns = 64;
    spec.frames = 3;
    spec.noise = 200;
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(spec));
    const D2RepresentationParameter lossless;
    std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000LosslessOnly, &lossless);
    ASSERT_NE(nullptr, loaded);
    DcmDataset& ds = *loaded->getDataset();
    ASSERT_GT(codectest::fragmentCount(ds), 3u * 3u);

    // frame by frame, each found through the offset table
    DcmElement* element = NULL;
    ASSERT_TRUE(ds.findAndGetElement(DCM_PixelData, element).good());
    DcmPixelData* pixelData = static_cast<DcmPixelData*>(element);
    const std::vector<Uint8> expected = expectedBytes(spec);
    const size_t frameSize = 64 * 64 * 2;
    std::vector<Uint8> frame(frameSize);
    for (Uint32 f : {2u, 0u, 1u})
    {
        Uint32 startFragment = 0;
        OFString colorModel;
        ASSERT_TRUE(pixelData->getUncompressedFrame(&ds, f, startFragment, frame.data(), Uint32(frame.size()), colorModel)
                        .good());
        EXPECT_EQ("MONOCHROME2", std::string(colorModel.c_str()));
        EXPECT_TRUE(std::equal(frame.begin(), frame.end(), expected.begin() + f * frameSize)) << "frame " << f;
    }

    // without an offset table the frames are told apart by their codestream headers
    DcmFileFormat noTable(*loaded);
    DcmDataset& ds2 = *noTable.getDataset();
    ASSERT_TRUE(ds2.findAndGetElement(DCM_PixelData, element).good());
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* param = NULL;
    DcmPixelSequence* sequence = NULL;
    static_cast<DcmPixelData*>(element)->getCurrentRepresentationKey(xfer, param);
    ASSERT_TRUE(static_cast<DcmPixelData*>(element)->getEncapsulatedRepresentation(xfer, param, sequence).good());
    DcmPixelItem* table = NULL;
    ASSERT_TRUE(sequence->getItem(table, 0).good());
    table->putUint8Array(NULL, 0);
    Uint32 startFragment = 0;
    OFString colorModel;
    ASSERT_TRUE(static_cast<DcmPixelData*>(element)
                    ->getUncompressedFrame(&ds2, 2, startFragment, frame.data(), Uint32(frame.size()), colorModel)
                    .good());
    EXPECT_TRUE(std::equal(frame.begin(), frame.end(), expected.begin() + 2 * frameSize));
    EXPECT_EQ(expected, codectest::pixelBytes(ds2));
    EXPECT_EQ(expected, codectest::pixelBytes(ds));
}

TEST(D2Codec, RefusesWhatItCannotEncode)
{
    CodecRegistry registry;
    fixtures::TempDir dir;
    const D2RepresentationParameter lossless;
    ImageSpec spec;
    spec.samplesPerPixel = 3;
    spec.bitsAllocated = 8;
    spec.bitsStored = 8;
    spec.photometric = "YBR_FULL_422";
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(spec));
    OFCondition status;
    EXPECT_EQ(nullptr, encodeAndReload(dir, *image, EXS_JPEG2000LosslessOnly, &lossless, &status));
    EXPECT_TRUE(status.bad());
    EXPECT_NE(std::string::npos, std::string(status.text()).find("YBR_FULL_422")) << status.text();
    // nothing changed in the object
    EXPECT_EQ("YBR_FULL_422", codectest::stringOf(*image->getDataset(), DCM_PhotometricInterpretation));
    EXPECT_TRUE(image->getDataset()->canWriteXfer(EXS_LittleEndianExplicit));

    ImageSpec wide;
    wide.bitsAllocated = 8;
    wide.bitsStored = 8;
    std::unique_ptr<DcmFileFormat> wideImage(codectest::makeImage(wide));
    wideImage->getDataset()->putAndInsertUint16(DCM_BitsAllocated, 32);
    EXPECT_EQ(nullptr, encodeAndReload(dir, *wideImage, EXS_JPEG2000LosslessOnly, &lossless, &status));
}

TEST(D2Codec, YBRFullIsCodedAsItIs)
{
    CodecRegistry registry;
    fixtures::TempDir dir;
    ImageSpec spec;
    spec.samplesPerPixel = 3;
    spec.bitsAllocated = 8;
    spec.bitsStored = 8;
    spec.photometric = "YBR_FULL";
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(spec));
    const D2RepresentationParameter lossless;
    std::unique_ptr<DcmFileFormat> loaded = encodeAndReload(dir, *image, EXS_JPEG2000LosslessOnly, &lossless);
    ASSERT_NE(nullptr, loaded);
    EXPECT_EQ("YBR_FULL", codectest::stringOf(*loaded->getDataset(), DCM_PhotometricInterpretation));
    EXPECT_EQ(expectedBytes(spec), codectest::pixelBytes(*loaded->getDataset()));
    EXPECT_EQ("YBR_FULL", codectest::stringOf(*loaded->getDataset(), DCM_PhotometricInterpretation));
}
