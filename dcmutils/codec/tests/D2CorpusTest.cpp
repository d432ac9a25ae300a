// JPEG 2000 objects written by other toolkits decode to the same samples as GDCM's decoder
// (gdcmconv --raw), an independent implementation.
#include "dcmutils/codec/CodecRegistry.h"

#include "dcmutils/codec/tests/CodecTestSupport.h"

#include <gtest/gtest.h>

using codectest::load;
using fixtures::value;

namespace {

const char* const gdcmconv = "/usr/bin/gdcmconv";

// Decodes path with this codec and with GDCM; both must give the same pixel bytes.
void expectSameAsGDCM(const fixtures::TempDir& dir, const std::string& path)
{
    SCOPED_TRACE(path);
    const std::string reference = dir.file("gdcm-raw.dcm");
    const fixtures::RunResult gdcm = fixtures::run({gdcmconv, "--raw", path, reference});
    ASSERT_EQ(0, gdcm.status) << gdcm.err;
    std::unique_ptr<DcmFileFormat> expected = load(reference), ours = load(path);
    ASSERT_TRUE(expected && ours);
    const E_TransferSyntax xfer = ours->getDataset()->getOriginalXfer();
    ASSERT_TRUE(xfer == EXS_JPEG2000 || xfer == EXS_JPEG2000LosslessOnly);
    const std::vector<Uint8> decoded = codectest::pixelBytes(*ours->getDataset());
    ASSERT_FALSE(decoded.empty());
    EXPECT_TRUE(decoded == codectest::pixelBytes(*expected->getDataset()));
    EXPECT_EQ(value(*expected->getDataset(), DCM_PhotometricInterpretation),
              value(*ours->getDataset(), DCM_PhotometricInterpretation));
}

} // namespace

TEST(D2Corpus, DecodesLikeGDCM)
{
    CodecRegistry registry;
    fixtures::TempDir dir;
    const std::vector<std::string> lossy = {"--j2k", "--lossy", "--irreversible", "-r", "20"};
    // J2K_pixelrep_mismatch: unsigned 13-bit codestream, Pixel Representation 1, kept as decoded;
    // 693_J2KI: 16-bit codestream, Bits Stored 14; GDCMJ2K_TextGBR: YBR_RCT in a JP2 file header.
    // Then GDCM's encodings of the corpus (options), split into fragments of 2000 bytes (split).
    const struct
    {
        const char* name;
        std::vector<std::string> options;
        bool split;
    } cases[] = {
        {"JPEG2000.dcm", {}, false}, {"MR_small_jp2klossless.dcm", {}, false}, {"SC_rgb_gdcm_KY.dcm", {}, false},
        {"693_J2KI.dcm", {}, false}, {"J2K_pixelrep_mismatch.dcm", {}, false}, {"GDCMJ2K_TextGBR.dcm", {}, false},
        {"CT_small.dcm", {"--j2k"}, false}, {"MR_small.dcm", {"--j2k"}, false},
        {"SC_rgb_rle_2frame.dcm", {"--j2k"}, false}, {"ExplVR_BigEnd.dcm", {"--j2k"}, false},
        {"CT_small.dcm", lossy, false}, {"SC_rgb_rle_2frame.dcm", lossy, false}, {"CT_small.dcm", {"--j2k"}, true},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        std::string encoded = fixtures::corpusFile(c.name);
        if (!c.options.empty())
        {
            std::vector<std::string> argv{gdcmconv};
            argv.insert(argv.end(), c.options.begin(), c.options.end());
            argv.insert(argv.end(), {encoded, dir.file("gdcm.dcm")});
            ASSERT_EQ(0, fixtures::run(argv).status);
            encoded = dir.file("gdcm.dcm");
        }
        if (c.split)
        {
            ASSERT_EQ(0, fixtures::run({gdcmconv, "--split", "2000", encoded, dir.file("split.dcm")}).status);
            encoded = dir.file("split.dcm");
        }
        expectSameAsGDCM(dir, encoded);
        std::unique_ptr<DcmFileFormat> original = load(fixtures::corpusFile(c.name)), ours = load(encoded);
        ASSERT_TRUE(original && ours);
        EXPECT_EQ(c.split, codectest::pixelSequence(*ours->getDataset())->card() > 3u);
        // lossless: the decoded samples equal the originals
        EXPECT_TRUE(c.options.size() != 1 ||
                    codectest::pixelBytes(*original->getDataset()) == codectest::pixelBytes(*ours->getDataset()));
    }

    std::unique_ptr<DcmFileFormat> precision = load(fixtures::corpusFile("693_J2KI.dcm"));
    EXPECT_EQ("14", value(*precision->getDataset(), DCM_BitsStored));
    EXPECT_EQ("01", value(*precision->getDataset(), DCM_LossyImageCompression)); // irreversible wavelet
    // a codestream whose sign contradicts Pixel Representation is decoded with a warning, only then
    for (const auto& c :
         {std::make_pair("J2K_pixelrep_mismatch.dcm", true), std::make_pair("MR_small_jp2klossless.dcm", false)})
    {
        std::unique_ptr<DcmFileFormat> file = load(fixtures::corpusFile(c.first));
        const std::string err = fixtures::capture([&] { codectest::pixelBytes(*file->getDataset()); }).err;
        EXPECT_EQ(c.second, err.find(" but Pixel Representation is ") != std::string::npos) << c.first << ": " << err;
        EXPECT_EQ("1", value(*file->getDataset(), DCM_PixelRepresentation));
    }
}
