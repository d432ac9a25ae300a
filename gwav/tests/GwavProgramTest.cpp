// The gwav program, run as a user runs it (help, version, round trips and one-line errors), and
// its images: PGM/PPM files and DICOM frames, with their sample conventions.
#include "gwav/DicomFrame.h"
#include "gwav/RasterImage.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcrledrg.h"
#include "dcmtk/dcmdata/dcuid.h"

#include <gtest/gtest.h>

#ifdef GWAV_WITH_PNG
#include <png.h>
#endif

#include <algorithm>
#include <cstring>
#include <vector>

using fixtures::run;
using fixtures::RunResult;

namespace {

uint16_t word(const RasterImage& image, size_t i)
{
    uint16_t value;
    memcpy(&value, image.pixels() + 2 * i, 2);
    return value;
}

RunResult gwav(const std::vector<std::string>& arguments)
{
    std::vector<std::string> argv{fixtures::program("gwav")};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return run(argv);
}

// A 40 x 30 binary PGM of 12 bits.
std::string pgm12()
{
    std::string content = "P5\n40 30\n4095\n";
    for (int i = 0; i < 40 * 30; ++i)
    {
        const int value = (i * 37 + (i / 40) * 101) % 4096;
        content += char(value >> 8);
        content += char(value & 0xFF);
    }
    return content;
}

#ifdef GWAV_WITH_PNG
// A grey PNG's bit depth and samples (16-bit ones as read), or depth 0.
int readPng(const std::string& path, std::vector<unsigned>& samples)
{
    png_image image;
    memset(&image, 0, sizeof(image));
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str()))
        return 0;
    const int depth = (image.format & PNG_FORMAT_FLAG_LINEAR) ? 16 : 8;
    std::vector<unsigned char> bytes(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr))
        return 0;
    samples.clear();
    for (size_t i = 0; i < bytes.size(); i += depth / 8)
        samples.push_back(depth == 16 ? reinterpret_cast<const uint16_t*>(bytes.data())[i / 2] : bytes[i]);
    return depth;
}
#endif

} // namespace

#ifdef GWAV_WITH_PNG
TEST(GwavProgramTest, PngShowsTheImageOrItsRawSamples)
{
    // a 12-bit ramp coded losslessly: by default 8-bit grey levels spread over the samples'
    // range (or a window), with -r every sample at 16 bits
    fixtures::TempDir dir;
    ASSERT_TRUE(fixtures::writeFile(dir.file("in.pgm"), pgm12()));
    ASSERT_EQ(0, gwav({"encode", "-b", "100000", dir.file("in.pgm"), dir.file("s.gw")}).status);
    std::vector<unsigned> samples;
    ASSERT_EQ(0, gwav({"decode", dir.file("s.gw"), dir.file("view.png")}).status);
    ASSERT_EQ(8, readPng(dir.file("view.png"), samples));
    ASSERT_EQ(40u * 30u, samples.size());
    EXPECT_EQ(0u, *std::min_element(samples.begin(), samples.end()));
    EXPECT_EQ(255u, *std::max_element(samples.begin(), samples.end()));
    ASSERT_EQ(0, gwav({"decode", "-W", "100", "200", dir.file("s.gw"), dir.file("window.png")}).status);
    ASSERT_EQ(8, readPng(dir.file("window.png"), samples));
    EXPECT_EQ(47u, samples[1]); // sample 37 in the window 0 to 200: 37 * 255 / 200, rounded
    ASSERT_EQ(0, gwav({"decode", "-r", dir.file("s.gw"), dir.file("raw.png")}).status);
    ASSERT_EQ(16, readPng(dir.file("raw.png"), samples));
    EXPECT_EQ(37u * 65535u / 4095u, samples[1]);
}
#endif

TEST(RasterImageTest, PnmFilesReadAndWriteBack)
{
    fixtures::TempDir dir;
    // a 12-bit PGM (big endian samples) and an 8-bit PPM with a comment in the header
    const std::string pgm = std::string("P5\n3 1\n4095\n") + '\x0f' + '\xff' + '\x00' + '\x01' + '\x08' + '\x00';
    const std::string ppm = std::string("P6 # colour\n2 1 255\n") + "\x01\x02\x03\xfd\xfe\xff";
    for (const std::string& content : {pgm, ppm})
    {
        ASSERT_TRUE(fixtures::writeFile(dir.file("in"), content));
        RasterImage image;
        std::string error;
        ASSERT_TRUE(image.readPnm(dir.file("in"), error)) << error;
        ASSERT_TRUE(image.writePnm(dir.file("out"), error)) << error;
        const std::string written = fixtures::readFile(dir.file("out"));
        EXPECT_EQ(content.substr(content.size() - 6), written.substr(written.size() - 6));
    }
    RasterImage image;
    std::string error;
    ASSERT_TRUE(fixtures::writeFile(dir.file("in"), pgm));
    ASSERT_TRUE(image.readPnm(dir.file("in"), error));
    EXPECT_EQ(2, image.bytesPerPixel());
    EXPECT_EQ(12, image.parameter());
    EXPECT_EQ(0x0FFF, word(image, 0));
    EXPECT_EQ(0x0800, word(image, 2));
    for (const std::string& bad : {std::string("P2\n1 1\n255\n0"), std::string("P6\n1 1\n65535\n\x01\x02"),
                                   std::string("P5\n0 1\n255\n"), std::string("P5\n2 2\n255\n\x01")})
    {
        ASSERT_TRUE(fixtures::writeFile(dir.file("bad"), bad));
        EXPECT_FALSE(image.readPnm(dir.file("bad"), error)) << bad;
    }
}

TEST(RasterImageTest, SignedSamplesDisplayMovedUpByHalfTheRange)
{
    RasterImage image(2, 3, 1, 12 | RasterImage::SIGNED);
    const int16_t values[3] = {-2048, 0, 2047};
    memcpy(image.pixels(), values, sizeof values);
    EXPECT_EQ(12, image.depth());
    EXPECT_EQ(0u, image.displaySample(0));
    EXPECT_EQ(2048u, image.displaySample(1));
    EXPECT_EQ(4095u, image.displaySample(2));
}

TEST(RasterImageTest, DicomFrameIsMaskedAndSignExtended)
{
    fixtures::TempDir dir;
    DcmFileFormat file;
    DcmDataset* dataset = file.getDataset();
    dataset->putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    dataset->putAndInsertString(DCM_SOPInstanceUID, "1.2.826.0.1.3680043.2.1125.9.11");
    dataset->putAndInsertUint16(DCM_Rows, 1);
    dataset->putAndInsertUint16(DCM_Columns, 4);
    dataset->putAndInsertUint16(DCM_SamplesPerPixel, 1);
    dataset->putAndInsertString(DCM_PhotometricInterpretation, "MONOCHROME2");
    dataset->putAndInsertUint16(DCM_BitsAllocated, 16);
    dataset->putAndInsertUint16(DCM_BitsStored, 12);
    dataset->putAndInsertUint16(DCM_HighBit, 11);
    dataset->putAndInsertUint16(DCM_PixelRepresentation, 1);
    // 12-bit two's complement with stray bits above: -1, -2048, 2047, 5
    const Uint16 words[4] = {0x0FFF, 0xF800, 0x17FF, 0x8005};
    dataset->putAndInsertUint16Array(DCM_PixelData, words, 4);
    ASSERT_TRUE(file.saveFile(dir.file("frame.dcm").c_str(), EXS_LittleEndianExplicit).good());

    RasterImage image;
    std::string error;
    ASSERT_TRUE(readDicomFrame(dir.file("frame.dcm"), 1, image, error)) << error;
    EXPECT_EQ(2, image.bytesPerPixel());
    EXPECT_EQ(12 | RasterImage::SIGNED, image.parameter());
    EXPECT_EQ(uint16_t(-1), word(image, 0));
    EXPECT_EQ(uint16_t(-2048), word(image, 1));
    EXPECT_EQ(2047, word(image, 2));
    EXPECT_EQ(5, word(image, 3));
    EXPECT_FALSE(readDicomFrame(dir.file("frame.dcm"), 2, image, error));
    EXPECT_EQ("no frame 2 in " + dir.file("frame.dcm") + " (it has 1)", error);
}

TEST(RasterImageTest, FrameOfACompressedColourObject)
{
    // frame 2 of a two-frame RLE colour object, decoded by DCMTK; the values as pydicom reads them
    DcmRLEDecoderRegistration::registerCodecs();
    RasterImage image;
    std::string error;
    const bool read = readDicomFrame(fixtures::corpusFile("SC_rgb_rle_2frame.dcm"), 2, image, error);
    DcmRLEDecoderRegistration::cleanup();
    ASSERT_TRUE(read) << error;
    ASSERT_EQ(3, image.bytesPerPixel());
    ASSERT_EQ(100, image.columns());
    ASSERT_EQ(100, image.rows());
    const unsigned char* p = image.pixels();
    EXPECT_EQ((std::vector<int>{0, 255, 255, 127, 127, 0}),
              (std::vector<int>{p[0], p[1], p[2], p[3 * 5050], p[3 * 5050 + 1], p[3 * 5050 + 2]}));
}

TEST(GwavProgramTest, PgmRoundTripIsLosslessWithALargeBudget)
{
    fixtures::TempDir dir;
    ASSERT_TRUE(fixtures::writeFile(dir.file("in.pgm"), pgm12()));
    RunResult result = gwav({"encode", "-b", "100000", dir.file("in.pgm"), dir.file("s.gwav")});
    ASSERT_EQ(0, result.status) << result.err;
    EXPECT_EQ("", result.out + result.err);
    result = gwav({"decode", dir.file("s.gwav"), dir.file("out.pgm")});
    ASSERT_EQ(0, result.status) << result.err;
    EXPECT_EQ(pgm12(), fixtures::readFile(dir.file("out.pgm")));
    // the first 200 bytes: the same size, another image
    result = gwav({"decode", "-s", "200", dir.file("s.gwav"), dir.file("small.pgm")});
    ASSERT_EQ(0, result.status) << result.err;
    EXPECT_EQ(pgm12().size(), fixtures::readFile(dir.file("small.pgm")).size());
    EXPECT_NE(pgm12(), fixtures::readFile(dir.file("small.pgm")));
}

TEST(GwavProgramTest, DicomFrameToDumpAndInfo)
{
    fixtures::TempDir dir;
    const std::string stream = dir.file("ct.gwav");
    RunResult result = gwav({"encode", fixtures::corpusFile("CT_small.dcm"), stream});
    ASSERT_EQ(0, result.status) << result.err;
    EXPECT_EQ(4096u, fixtures::readFile(stream).size());
    result = gwav({"info", stream});
    EXPECT_EQ(0, result.status);
    // Bits Stored 16, signed: parameter 16 + 128
    EXPECT_EQ(stream + ": 128 x 128, 2 bytes per pixel, parameter 144, 4096 bytes\n", result.out);
    result = gwav({"decode", stream, dir.file("ct.pgm")});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ(0u, fixtures::readFile(dir.file("ct.pgm")).find("P5\n128 128\n65535\n"));
    // a JPEG-LS compressed object goes through DCMTK's decoder
    result = gwav({"encode", "-b", "50000", fixtures::corpusFile("MR_small_jpeg_ls_lossless.dcm"), dir.file("mr.gwav")});
    EXPECT_EQ(0, result.status) << result.err;
}

TEST(GwavProgramTest, ErrorsAreOneLineWithStatusOne)
{
    fixtures::TempDir dir;
    ASSERT_TRUE(fixtures::writeFile(dir.file("short.gwav"), "GW10\x01"));
    ASSERT_TRUE(fixtures::writeFile(dir.file("in.pgm"), pgm12()));
    const struct { std::vector<std::string> arguments; std::string error; } cases[] = {
        {{"frobnicate"}, "E: unknown command: frobnicate (encode, decode or info)\n"},
        {{"-v", "encode", "a", "b"}, "E: options go after the command: gwav encode [options] ...\n"},
        {{"encode", dir.file("in.pgm")}, "E: Missing parameter stream-out\n"},
        {{"encode", "--bogus", "a", "b"}, "E: Unknown option --bogus\n"},
        {{"encode", "-b", "9", dir.file("in.pgm"), dir.file("x")}, "E: --budget needs a number of at least 10 bytes\n"},
        {{"encode", dir.file("none.dcm"), dir.file("x")},
         "E: cannot read DICOM file " + dir.file("none.dcm") + " [No such file or directory]\n"},
        {{"encode", "-f", "2", fixtures::corpusFile("CT_small.dcm"), dir.file("x")},
         "E: no frame 2 in " + fixtures::corpusFile("CT_small.dcm") + " (it has 1)\n"},
        {{"decode", dir.file("short.gwav"), dir.file("x.pgm")},
         "E: Invalid compressed bitstream: " + dir.file("short.gwav") + "\n"},
        {{"decode", dir.file("short.gwav"), dir.file("x.tif")},
         "E: unknown image format of " + dir.file("x.tif") + " (.pgm, .ppm, .pnm or .png)\n"},
        {{"info", dir.file("in.pgm")}, "E: Invalid compressed bitstream: " + dir.file("in.pgm") + "\n"},
    };
    for (const auto& c : cases)
    {
        const RunResult result = gwav(c.arguments);
        EXPECT_EQ(1, result.status) << c.error;
        EXPECT_EQ(c.error, result.err);
        EXPECT_EQ("", result.out);
    }
}
