// JPEG 2000 objects written by other toolkits decode to the same samples as GDCM's decoder
// (gdcmconv --raw), an independent implementation.
#include "dcmutils/codec/CodecRegistry.h"

#include "dcmutils/codec/tests/CodecTestSupport.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

const char* const gdcmconv = "/usr/bin/gdcmconv";

// Pixel bytes colour-by-pixel, whatever the object's Planar Configuration.
std::vector<Uint8> interleavedPixelBytes(DcmDataset& ds)
{
    std::vector<Uint8> bytes = codectest::pixelBytes(ds);
    Uint16 planar = 0, samples = 1, rows = 0, columns = 0, bitsAllocated = 8;
    ds.findAndGetUint16(DCM_PlanarConfiguration, planar);
    ds.findAndGetUint16(DCM_SamplesPerPixel, samples);
    ds.findAndGetUint16(DCM_Rows, rows);
    ds.findAndGetUint16(DCM_Columns, columns);
    ds.findAndGetUint16(DCM_BitsAllocated, bitsAllocated);
    if (samples == 1 || planar != 1 || bytes.empty())
        return bytes;
    const size_t pixels = size_t(rows) * columns;
    const size_t sampleSize = bitsAllocated / 8;
    const size_t frameSize = pixels * samples * sampleSize;
    std::vector<Uint8> out(bytes.size());
    for (size_t f = 0; f + frameSize <= bytes.size(); f += frameSize)
        for (size_t p = 0; p < pixels; ++p)
            for (size_t s = 0; s < samples; ++s)
                for (size_t b = 0; b < sampleSize; ++b)
                    out[f + (p * samples + s) * sampleSize + b] = bytes[f + (s * pixels + p) * sampleSize + b];
    return out;
}

std::unique_ptr<DcmFileFormat> load(const std::string& path)
{
    std::unique_ptr<DcmFileFormat> file(new DcmFileFormat());
    if (file->loadFile(path.c_str()).bad())
        return nullptr;
    return file;
}

// Decodes path with this codec and with GDCM; both must give the same pixel bytes.
void expectSameAsGDCM(const fixtures::TempDir& dir, const std::string& path)
{
    SCOPED_TRACE(path);
    const std::string reference = dir.file("gdcm-raw.dcm");
    const fixtures::RunResult gdcm = fixtures::run({gdcmconv, "--raw", path, reference});
    ASSERT_EQ(0, gdcm.status) << gdcm.err;
    std::unique_ptr<DcmFileFormat> expected = load(reference);
    std::unique_ptr<DcmFileFormat> ours = load(path);
    ASSERT_NE(nullptr, expected);
    ASSERT_NE(nullptr, ours);
    const E_TransferSyntax xfer = ours->getDataset()->getOriginalXfer();
    ASSERT_TRUE(xfer == EXS_JPEG2000 || xfer == EXS_JPEG2000LosslessOnly);
    const std::vector<Uint8> decoded = codectest::pixelBytes(*ours->getDataset());
    ASSERT_FALSE(decoded.empty());
    EXPECT_TRUE(decoded == codectest::pixelBytes(*expected->getDataset()));
    EXPECT_EQ(codectest::stringOf(*expected->getDataset(), DCM_PhotometricInterpretation),
              codectest::stringOf(*ours->getDataset(), DCM_PhotometricInterpretation));
}

} // namespace

TEST(D2Corpus, DecodesLikeGDCM)
{
    CodecRegistry registry;
    fixtures::TempDir dir;
    // J2K_pixelrep_mismatch: unsigned 13-bit codestream, Pixel Representation 1: the stored
    // values are kept as decoded, so the 13-bit patterns read as signed (padding -2000).
    // 693_J2KI: a 16-bit codestream for Bits Stored 14; kept as decoded, Bits Stored unchanged.
    // GDCMJ2K_TextGBR: YBR_RCT in a JP2 file header; accepted, decoded to RGB.
    for (const char* name : {"JPEG2000.dcm", "MR_small_jp2klossless.dcm", "SC_rgb_gdcm_KY.dcm", "693_J2KI.dcm",
                             "J2K_pixelrep_mismatch.dcm", "GDCMJ2K_TextGBR.dcm"})
        expectSameAsGDCM(dir, fixtures::corpusFile(name));

    std::unique_ptr<DcmFileFormat> mismatch = load(fixtures::corpusFile("J2K_pixelrep_mismatch.dcm"));
    const std::vector<Uint8> bytes = codectest::pixelBytes(*mismatch->getDataset());
    ASSERT_GE(bytes.size(), 2u);
    EXPECT_EQ(0x1830, bytes[0] | (bytes[1] << 8)); // -2000 in 13 bits
    EXPECT_EQ("1", codectest::stringOf(*mismatch->getDataset(), DCM_PixelRepresentation));
    std::unique_ptr<DcmFileFormat> precision = load(fixtures::corpusFile("693_J2KI.dcm"));
    EXPECT_FALSE(codectest::pixelBytes(*precision->getDataset()).empty());
    EXPECT_EQ("14", codectest::stringOf(*precision->getDataset(), DCM_BitsStored));
    // lossy (irreversible wavelet) and said so
    EXPECT_EQ("01", codectest::stringOf(*precision->getDataset(), DCM_LossyImageCompression));
    // a codestream whose sign contradicts Pixel Representation is decoded with a warning, only then
    for (const auto& c : {std::make_pair("J2K_pixelrep_mismatch.dcm", true), std::make_pair("MR_small_jp2klossless.dcm", false)})
    {
        std::unique_ptr<DcmFileFormat> file = load(fixtures::corpusFile(c.first));
        const std::string err = fixtures::capture([&] { codectest::pixelBytes(*file->getDataset()); }).err;
        EXPECT_EQ(c.second, err.find(" but Pixel Representation is ") != std::string::npos) << c.first << ": " << err;
    }
}

TEST(D2Corpus, DecodesGDCMEncodingsOfTheCorpus)
{
    CodecRegistry registry;
    fixtures::TempDir dir;
    struct Case
    {
        const char* name;
        std::vector<std::string> options;
        bool lossless; // the decoded samples equal the originals
    };
    const Case cases[] = {
        {"CT_small.dcm", {"--j2k"}, true},
        {"MR_small.dcm", {"--j2k"}, true},
        {"SC_rgb_rle_2frame.dcm", {"--j2k"}, true},
        {"ExplVR_BigEnd.dcm", {"--j2k"}, true},
        {"CT_small.dcm", {"--j2k", "--lossy", "--irreversible", "-r", "20"}, false},
        {"SC_rgb_rle_2frame.dcm", {"--j2k", "--lossy", "--irreversible", "-r", "20"}, false},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(std::string(c.name) + (c.lossless ? "" : " lossy"));
        const std::string encoded = dir.file("gdcm.dcm");
        std::vector<std::string> argv{gdcmconv};
        argv.insert(argv.end(), c.options.begin(), c.options.end());
        argv.insert(argv.end(), {fixtures::corpusFile(c.name), encoded});
        const fixtures::RunResult gdcm = fixtures::run(argv);
        ASSERT_EQ(0, gdcm.status) << gdcm.err;
        expectSameAsGDCM(dir, encoded);
        if (c.lossless)
        {
            std::unique_ptr<DcmFileFormat> original = load(fixtures::corpusFile(c.name));
            std::unique_ptr<DcmFileFormat> ours = load(encoded);
            EXPECT_TRUE(interleavedPixelBytes(*original->getDataset()) == interleavedPixelBytes(*ours->getDataset()));
        }
    }

    // GDCM's fragmented single frame (2000-byte fragments)
    const std::string encoded = dir.file("gdcm-ct.dcm");
    const std::string split = dir.file("gdcm-ct-split.dcm");
    ASSERT_EQ(0, fixtures::run({gdcmconv, "--j2k", fixtures::corpusFile("CT_small.dcm"), encoded}).status);
    ASSERT_EQ(0, fixtures::run({gdcmconv, "--split", "2000", encoded, split}).status);
    std::unique_ptr<DcmFileFormat> fragmented = load(split);
    EXPECT_GT(codectest::pixelSequence(*fragmented->getDataset())->card(), 3u);
    std::unique_ptr<DcmFileFormat> original = load(fixtures::corpusFile("CT_small.dcm"));
    EXPECT_TRUE(codectest::pixelBytes(*original->getDataset()) == codectest::pixelBytes(*fragmented->getDataset()));
}
