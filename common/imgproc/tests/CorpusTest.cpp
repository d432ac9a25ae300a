// Independent oracles on real files: every object with pixel data of the pydicom corpus decoded
// by the pipeline against what pydicom reads from it, or from the native copy that an
// independent decoder (dcmdjpeg, dcmdrle, dcmdjpls, gdcmconv --raw) makes of it; overlays
// against pydicom's overlay_array; an encapsulated PDF against pydicom's reading.
#include "common/imgproc/src/overlay.h"
#include "common/imgproc/tests/ImgprocTestSupport.h"

#include "dcmutils/codec/CodecRegistry.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/oflog/oflog.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

using namespace imgproctest;
using fixtures::TempDir;

namespace {

// A corpus file and the independent decoder that makes the native copy pydicom reads ("" for
// the file itself); lossy objects too are decoded by the same library on both sides.
const std::pair<const char*, const char*> CORPUS[] = {
    {"CT_small.dcm", ""}, {"MR_small.dcm", ""}, {"MR_small_bigendian.dcm", ""}, {"MR_small_expb.dcm", ""},
    {"MR_small_implicit.dcm", ""}, {"MR_small_padded.dcm", ""}, {"MR_small_RLE.dcm", ""},
    {"MR_small_RLE.dcm", "dcmdrle"}, {"MR_small_jp2klossless.dcm", "gdcmconv"},
    {"MR_small_jpeg_ls_lossless.dcm", "dcmdjpls"}, {"693_J2KI.dcm", "gdcmconv"},
    {"J2K_pixelrep_mismatch.dcm", "gdcmconv"}, {"JPEG2000.dcm", "gdcmconv"}, {"GDCMJ2K_TextGBR.dcm", "gdcmconv"},
    {"SC_rgb_gdcm_KY.dcm", "gdcmconv"}, {"JPEG-lossy.dcm", "dcmdjpeg"}, {"JPGExtended.dcm", "dcmdjpeg"},
    {"SC_jpeg_no_color_transform.dcm", "dcmdjpeg"}, {"SC_jpeg_no_color_transform_2.dcm", "dcmdjpeg"},
    {"SC_rgb_dcmtk_+eb+cr.dcm", "dcmdjpeg"}, {"SC_rgb_dcmtk_+eb+cy+n1.dcm", "dcmdjpeg"},
    {"SC_rgb_dcmtk_+eb+cy+n2.dcm", "dcmdjpeg"}, {"SC_rgb_dcmtk_+eb+cy+np.dcm", "dcmdjpeg"},
    {"SC_rgb_dcmtk_+eb+cy+s2.dcm", "dcmdjpeg"}, {"SC_rgb_dcmtk_+eb+cy+s4.dcm", "dcmdjpeg"},
    {"SC_rgb_jpeg_app14_dcmd.dcm", "dcmdjpeg"}, {"SC_rgb_jpeg_dcmtk.dcm", "dcmdjpeg"},
    {"SC_rgb_jpeg_gdcm.dcm", "dcmdjpeg"}, {"SC_rgb_jpeg_gdcm.dcm", "gdcmconv"},
    {"SC_rgb_jpeg_lossy_gdcm.dcm", "dcmdjpeg"}, {"SC_rgb_small_odd_jpeg.dcm", "dcmdjpeg"},
    {"SC_rgb_jpeg_dcmd.dcm", ""}, {"ExplVR_BigEnd.dcm", ""}, {"SC_rgb_small_odd.dcm", ""},
    {"SC_ybr_full_422_uncompressed.dcm", ""}, {"SC_rgb_rle.dcm", ""}, {"SC_rgb_rle_2frame.dcm", ""},
    {"SC_rgb_rle_16bit.dcm", ""}, {"SC_rgb_rle_16bit_2frame.dcm", ""}, {"SC_rgb_rle_32bit.dcm", ""},
    {"SC_rgb_rle_32bit_2frame.dcm", "dcmdrle"}, {"image_dfl.dcm", ""}, {"liver_1frame.dcm", ""},
    {"liver_expb_1frame.dcm", ""}, {"rtdose.dcm", ""}, {"rtdose_1frame.dcm", ""}, {"rtdose_expb.dcm", ""},
    {"rtdose_expb_1frame.dcm", ""}, {"rtdose_rle.dcm", ""}, {"rtdose_rle_1frame.dcm", "dcmdrle"},
};

struct Decoded
{
    int status = -1;
    std::string samples; // every frame, first frame first
    unsigned int bytesPerSample = 1;
};

Decoded decode(const std::string& path)
{
    Decoded result;
    DcmFileFormat file;
    if (file.loadFile(path.c_str()).bad())
        return result;
    TestProcess process(file.getDataset());
    result.status = process.process();
    for (const std::string& frame : process.frames())
        result.samples += frame;
    if (!process.m_images.empty())
    {
        const ImageRecord& image = process.m_images.front();
        result.bytesPerSample = image.photometric == 1 ? image.bytesPerPixel : image.bytesPerPixel / 3;
    }
    return result;
}

// Largest absolute difference between two sample buffers of the given width (unsigned).
long maxDifference(const std::string& a, const std::string& b, unsigned int width)
{
    long worst = 0;
    for (size_t i = 0; i + width <= a.size() && i + width <= b.size(); i += width)
    {
        uint32_t x = 0, y = 0;
        memcpy(&x, a.data() + i, width);
        memcpy(&y, b.data() + i, width);
        worst = std::max(worst, std::labs(long(x) - long(y)));
    }
    return worst;
}

// Runs the reference script over the manifest lines.
void runReference(const TempDir& dir, const std::string& manifest)
{
    fixtures::writeFile(dir.file("manifest"), manifest);
    const std::string command = "/usr/bin/python3 " KQ_IMGPROC_TEST_DIR "/pixel_reference.py <" + dir.file("manifest");
    ASSERT_EQ(system(command.c_str()), 0);
}

std::string nativeCopy(const TempDir& dir, const char* file, const std::string& decoder, int index)
{
    const std::string source = fixtures::corpusFile(file);
    if (decoder.empty())
        return source;
    const std::string target = dir.file("native" + std::to_string(index) + ".dcm");
    std::vector<std::string> argv{"/usr/bin/" + decoder, source, target};
    if (decoder == "gdcmconv")
        argv.insert(argv.begin() + 1, "--raw");
    const fixtures::RunResult run = fixtures::run(argv);
    EXPECT_EQ(run.status, 0) << decoder << " " << file << ": " << run.err;
    return target;
}

} // namespace

TEST(Corpus, DecodedFramesEqualIndependentDecoders)
{
    OFLog::configure(OFLogger::ERROR_LOG_LEVEL);
    CodecRegistry registry;
    TempDir dir;
    std::string manifest;
    const int count = int(sizeof(CORPUS) / sizeof(CORPUS[0]));
    for (int i = 0; i < count; ++i)
        manifest += "frames\t" + nativeCopy(dir, CORPUS[i].first, CORPUS[i].second, i) + "\t" +
                    dir.file("ref" + std::to_string(i)) + "\n";
    runReference(dir, manifest);

    for (int i = 0; i < count; ++i)
    {
        const char* file = CORPUS[i].first;
        SCOPED_TRACE(std::string(file) + " / " + (*CORPUS[i].second ? CORPUS[i].second : "pydicom"));
        const std::string ref = dir.file("ref" + std::to_string(i));
        ASSERT_FALSE(fixtures::fileExists(ref + ".error")) << fixtures::readFile(ref + ".error");
        std::string expected = fixtures::readFile(ref);
        const Decoded decoded = decode(fixtures::corpusFile(file));
        EXPECT_EQ(decoded.status, 0);
        ASSERT_EQ(decoded.samples.size(), expected.size());
        if (fixtures::readFile(ref + ".pi") == "YBR_FULL")
        {
            // the same colour conversion on both sides; pydicom's own conversion agrees within 1
            const std::string pydicomRGB = fixtures::readFile(ref + ".rgb");
            CRawImage::convertYbrFullToRgb(reinterpret_cast<unsigned char*>(&expected[0]),
                                           expected.size() / 3 / decoded.bytesPerSample, decoded.bytesPerSample, 8);
            EXPECT_LE(maxDifference(expected, pydicomRGB, 1), 1);
        }
        EXPECT_TRUE(decoded.samples == expected)
            << "largest difference " << maxDifference(decoded.samples, expected, decoded.bytesPerSample);
    }
}

TEST(Corpus, OverlaysPaletteAndDocumentMadeByIndependentTools)
{
    OFLog::configure(OFLogger::ERROR_LOG_LEVEL);
    TempDir dir;
    // an overlay of 64 x 64 bits with a pattern, written into MR_small by dcmodify
    std::string bits(64 * 64 / 8, '\0');
    for (size_t i = 0; i < bits.size(); ++i)
        bits[i] = char((i * 29 + 3) & 0xFF);
    fixtures::writeFile(dir.file("bits"), bits);
    fixtures::writeFile(dir.file("overlay.dcm"), fixtures::readFile(fixtures::corpusFile("MR_small.dcm")));
    fixtures::RunResult run = fixtures::run({"/usr/bin/dcmodify", "-nb", "-i", "(6000,0010)=64", "-i", "(6000,0011)=64",
                                             "-i", "(6000,0040)=G", "-i", "(6000,0050)=1\\1", "-i", "(6000,0100)=1",
                                             "-i", "(6000,0102)=0", "-if", "(6000,3000)=" + dir.file("bits"),
                                             dir.file("overlay.dcm")});
    ASSERT_EQ(run.status, 0) << run.err;
    // a palette colour object made by dcmquant from an RGB object
    run = fixtures::run({"/usr/bin/dcmquant", "+pc", "256", fixtures::corpusFile("SC_rgb_small_odd.dcm"),
                         dir.file("palette.dcm")});
    ASSERT_EQ(run.status, 0) << run.err;
    // an odd-length PDF encapsulated by pdf2dcm
    fixtures::writeFile(dir.file("doc.pdf"), "%PDF-1.4\n1 0 obj<<>>endobj\ntrailer<<>>\n%%EOF\n");
    run = fixtures::run({"/usr/bin/pdf2dcm", dir.file("doc.pdf"), dir.file("pdf.dcm")});
    ASSERT_EQ(run.status, 0) << run.err;

    runReference(dir, "overlay\t" + dir.file("overlay.dcm") + "\t" + dir.file("overlay.ref") + "\n" + "frames\t" +
                          dir.file("palette.dcm") + "\t" + dir.file("palette.ref") + "\n" + "document\t" +
                          dir.file("pdf.dcm") + "\t" + dir.file("pdf.ref") + "\n");
    for (const char* ref : {"overlay.ref", "palette.ref", "pdf.ref"})
        ASSERT_FALSE(fixtures::fileExists(dir.file(ref) + ".error")) << fixtures::readFile(dir.file(ref) + ".error");

    {
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(dir.file("overlay.dcm").c_str()).good());
        TestProcess process(file.getDataset());
        EXPECT_EQ(process.process(), 0);
        const COverlay* overlay = process.getOverlays().get(0);
        ASSERT_NE(overlay, nullptr);
        std::string unpacked(64 * 64, '\0');
        for (size_t i = 0; i < unpacked.size(); ++i)
            unpacked[i] = char((overlay->m_data[i / 8] >> (i % 8)) & 1);
        EXPECT_EQ(unpacked, fixtures::readFile(dir.file("overlay.ref")));
    }
    {
        const Decoded decoded = decode(dir.file("palette.dcm"));
        EXPECT_EQ(decoded.status, 0);
        EXPECT_TRUE(decoded.samples == fixtures::readFile(dir.file("palette.ref")));
    }
    {
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(dir.file("pdf.dcm").c_str()).good());
        TestProcess process(file.getDataset());
        EXPECT_EQ(process.process(), 0);
        ASSERT_EQ(process.m_documents.size(), 1u);
        EXPECT_EQ(process.m_documents[0], fixtures::readFile(dir.file("pdf.ref")));
        EXPECT_EQ(process.m_documents[0], fixtures::readFile(dir.file("doc.pdf")));
    }
}

TEST(Corpus, DamagedObjectsFailCleanly)
{
    // objects no independent reader decodes: the process reports them without harm
    OFLog::configure(OFLogger::FATAL_LOG_LEVEL);
    CodecRegistry registry;
    const std::pair<const char*, int> cases[] = {
        {"MR_truncated.dcm", -1},                          // DCMTK does not load it
        {"SC_rgb_jpeg.dcm", -1},                           // nor this one
        {"JPEG2000-embedded-sequence-delimiter.dcm", 1},   // a codestream OpenJPEG refuses, as in gdcmconv
        {"badVR.dcm", 0},                                  // Number of Frames "1A": one frame
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.first);
        EXPECT_EQ(decode(fixtures::corpusFile(c.first)).status, c.second);
    }
}
