// The gwav program run as a user runs it (round trips, info, PNG views, one-line errors), and its
// images: PGM/PPM files and DICOM frames with their sample conventions.
#include "gwav/DicomFrame.h"
#include "gwav/RasterImage.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcrledrg.h"

#include <gtest/gtest.h>

#ifdef GWAV_WITH_PNG
#include <png.h>
#endif

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <vector>

namespace {

std::vector<int> words(const RasterImage& image, size_t count)
{
    std::vector<uint16_t> values(count);
    memcpy(values.data(), image.pixels(), 2 * count);
    return std::vector<int>(values.begin(), values.end());
}

long openDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

fixtures::RunResult gwav(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), fixtures::program("gwav"));
    return fixtures::run(arguments);
}

// A 40 x 30 binary PGM of 12 bits.
std::string pgm12()
{
    std::string content = "P5\n40 30\n4095\n";
    for (int i = 0; i < 40 * 30; ++i)
        content += {char((i * 37 + (i / 40) * 101) % 4096 >> 8), char((i * 37 + (i / 40) * 101) % 256)};
    return content;
}

#ifdef GWAV_WITH_PNG
// A grey PNG's bit depth and samples (16-bit ones as read), or depth 0.
int readPng(const std::string& path, std::vector<unsigned>& samples)
{
    png_image image{};
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

TEST(RasterImageTest, PnmFilesAndDicomFrames)
{
    // a 12-bit PGM (big endian samples) and an 8-bit PPM with a comment in the header
    const struct { std::string content; int bytesPerPixel, parameter; std::vector<int> words; } cases[] = {
        {std::string("P5\n3 1\n4095\n") + '\x0f' + '\xff' + '\x00' + '\x01' + '\x08' + '\x00', 2, 12, {0x0FFF, 1, 0x0800}},
        {"P6 # colour\n2 1 255\n\x01\x02\x03\xfd\xfe\xff", 3, 0, {0x0201, 0xFD03, 0xFFFE}}};
    fixtures::TempDir dir;
    RasterImage image;
    std::string error;
    const long descriptors = openDescriptors();
    for (const auto& c : cases)
    {
        ASSERT_TRUE(fixtures::writeFile(dir.file("in"), c.content));
        ASSERT_TRUE(image.readPnm(dir.file("in"), error)) << error;
        EXPECT_EQ(c.bytesPerPixel, image.bytesPerPixel());
        EXPECT_EQ(c.parameter, image.parameter());
        EXPECT_EQ(c.words, words(image, 3));
        ASSERT_TRUE(image.writePnm(dir.file("out"), error)) << error;
        const std::string written = fixtures::readFile(dir.file("out"));
        EXPECT_EQ(c.content.substr(c.content.size() - 6), written.substr(written.size() - 6));
    }
    for (const std::string& bad : {std::string("P2\n1 1\n255\n0"), std::string("P6\n1 1\n65535\n\x01\x02"),
                                   std::string("P5\n0 1\n255\n"), std::string("P5\n2 2\n255\n\x01")})
    {
        ASSERT_TRUE(fixtures::writeFile(dir.file("bad"), bad));
        EXPECT_FALSE(image.readPnm(dir.file("bad"), error)) << bad;
    }
    EXPECT_FALSE(image.readPnm(dir.file("none"), error));
    EXPECT_EQ("No such file or directory: " + dir.file("none"), error);
    EXPECT_EQ(descriptors, openDescriptors()) << "every file read or written is closed";
    // signed samples display moved up by half the range
    RasterImage signedImage(2, 3, 1, 12 | RasterImage::SIGNED);
    const int16_t values[3] = {-2048, 0, 2047};
    memcpy(signedImage.pixels(), values, sizeof values);
    EXPECT_EQ(12, signedImage.depth());
    EXPECT_EQ((std::vector<unsigned>{0, 2048, 4095}),
              (std::vector<unsigned>{signedImage.displaySample(0), signedImage.displaySample(1), signedImage.displaySample(2)}));
    // a DICOM frame: 12-bit samples masked and sign extended, frames counted
    fixtures::ObjectSpec frame;
    frame.rows = 1;
    frame.columns = 4;
    std::unique_ptr<DcmFileFormat> file(fixtures::makeObject(frame));
    DcmDataset* dataset = file->getDataset();
    dataset->putAndInsertUint16(DCM_BitsStored, 12);
    dataset->putAndInsertUint16(DCM_HighBit, 11);
    dataset->putAndInsertUint16(DCM_PixelRepresentation, 1);
    const Uint16 raw[4] = {0x0FFF, 0xF800, 0x17FF, 0x8005}; // -1, -2048, 2047, 5 with stray bits above
    dataset->putAndInsertUint16Array(DCM_PixelData, raw, 4);
    ASSERT_TRUE(file->saveFile(dir.file("frame.dcm").c_str(), EXS_LittleEndianExplicit).good());
    ASSERT_TRUE(readDicomFrame(dir.file("frame.dcm"), 1, image, error)) << error;
    EXPECT_EQ(2, image.bytesPerPixel());
    EXPECT_EQ(12 | RasterImage::SIGNED, image.parameter());
    EXPECT_EQ((std::vector<int>{0xFFFF, 0xF800, 2047, 5}), words(image, 4));
    EXPECT_FALSE(readDicomFrame(dir.file("frame.dcm"), 2, image, error));
    EXPECT_EQ("no frame 2 in " + dir.file("frame.dcm") + " (it has 1)", error);
    // frame 2 of a two-frame RLE colour object, decoded by DCMTK; the values as pydicom reads them
    DcmRLEDecoderRegistration::registerCodecs();
    const bool read = readDicomFrame(fixtures::corpusFile("SC_rgb_rle_2frame.dcm"), 2, image, error);
    DcmRLEDecoderRegistration::cleanup();
    ASSERT_TRUE(read) << error;
    ASSERT_EQ((std::vector<int>{3, 100, 100}), (std::vector<int>{image.bytesPerPixel(), image.columns(), image.rows()}));
    const unsigned char* p = image.pixels();
    EXPECT_EQ((std::vector<int>{0, 255, 255, 127, 127, 0}),
              (std::vector<int>{p[0], p[1], p[2], p[3 * 5050], p[3 * 5050 + 1], p[3 * 5050 + 2]}));
}

TEST(GwavProgramTest, RoundTripsViewsAndInfo)
{
    fixtures::TempDir dir;
    ASSERT_TRUE(fixtures::writeFile(dir.file("in.pgm"), pgm12()));
    fixtures::RunResult result = gwav({"encode", "-b", "100000", dir.file("in.pgm"), dir.file("s.gw")});
    ASSERT_EQ(0, result.status) << result.err;
    EXPECT_EQ("", result.out + result.err);
    result = gwav({"decode", dir.file("s.gw"), dir.file("out.pgm")});
    ASSERT_EQ(0, result.status) << result.err;
    EXPECT_EQ(pgm12(), fixtures::readFile(dir.file("out.pgm")));
    // the first 200 bytes: the same size, another image
    ASSERT_EQ(0, gwav({"decode", "-s", "200", dir.file("s.gw"), dir.file("small.pgm")}).status);
    EXPECT_EQ(pgm12().size(), fixtures::readFile(dir.file("small.pgm")).size());
    EXPECT_NE(pgm12(), fixtures::readFile(dir.file("small.pgm")));
#ifdef GWAV_WITH_PNG
    // 8-bit grey levels over the samples' range or a window; with -r every sample at 16 bits
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
#endif
    // a DICOM frame gives a 4096-byte dump by default
    const std::string stream = dir.file("ct.gwav");
    result = gwav({"encode", fixtures::corpusFile("CT_small.dcm"), stream});
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
        const fixtures::RunResult result = gwav(c.arguments);
        EXPECT_EQ(1, result.status) << c.error;
        EXPECT_EQ(c.error, result.err);
        EXPECT_EQ("", result.out);
    }
}
