// The transcode program, run as built.
#include "dcmutils/codec/CodecRegistry.h"
#include "dcmutils/codec/tests/CodecTestSupport.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>

using namespace fixtures;

namespace {

const std::string lossless = "1.2.840.10008.1.2.4.90", lossy = "1.2.840.10008.1.2.4.91", explicitLE = "1.2.840.10008.1.2.1";

// Runs transcode with CONF set to conf, or unset when conf is empty.
RunResult transcode(const std::vector<std::string>& args, const std::string& conf = std::string())
{
    std::vector<std::string> argv = {"/usr/bin/env", "-u", "CONF", program("transcode")};
    if (!conf.empty())
        argv[2] = "CONF=" + conf, argv.erase(argv.begin() + 1);
    argv.insert(argv.end(), args.begin(), args.end());
    return run(argv);
}

// The image saved with the given modality (none when empty).
std::string writeImage(const TempDir& dir, const std::string& name, const codectest::ImageLayout& layout,
                       const char* modality = "CT")
{
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(layout));
    delete image->getDataset()->remove(DCM_Modality);
    if (*modality)
        image->getDataset()->putAndInsertString(DCM_Modality, modality);
    const std::string path = dir.file(name);
    EXPECT_TRUE(image->saveFile(path.c_str(), EXS_LittleEndianExplicit).good());
    return path;
}

std::unique_ptr<DcmFileFormat> load(const std::string& path)
{
    std::unique_ptr<DcmFileFormat> file(new DcmFileFormat());
    EXPECT_TRUE(file->loadFile(path.c_str()).good()) << path;
    return file;
}

std::string transferSyntax(const std::string& path)
{
    return value(*load(path)->getMetaInfo(), DCM_TransferSyntaxUID);
}

// 128 x 128, 12 bits with noise: lossy coding shows in the size.
codectest::ImageLayout noisyImage()
{
    return codectest::ImageLayout(128, 128, 1, 16, 12, false, 0, 1, "", 200);
}

} // namespace

TEST(Transcode, UsageAndFailuresLeaveNothingBehind)
{
    TempDir dir;
    const std::string in = writeImage(dir, "in.dcm", noisyImage());
    const std::string before = readFile(in);
    const std::string out = dir.file("out.dcm");
    ASSERT_TRUE(writeFile(out, "previous"));
    const std::string damaged = corpusFile("JPEG2000-embedded-sequence-delimiter.dcm");
    const std::string nowhere = dir.file("no/such/dir/out.dcm");
    const std::string see = " (see transcode -h)\n", cannot = "cannot encode ";
    const std::string ybr422 = corpusFile("SC_ybr_full_422_uncompressed.dcm"), rtdose = corpusFile("rtdose.dcm");
    const std::string ct = corpusFile("CT_small.dcm");
    // each case: the start of the one line of standard error after "transcode: "
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "missing parameter dcmfile-in" + see},
        {{"-x", lossless, "in"}, "missing parameter dcmfile-out" + see},
        {{"in", "out"}, "the target transfer syntax (-x) is missing" + see},
        {{"-y", "-x", lossless, "in", "out"}, "unknown option -y" + see},
        {{"-x", lossless, "in", "out", "more"}, "unexpected parameter more" + see},
        {{"in", "out", "-x"}, "option -x needs an argument" + see},
        {{"-x", "1.2.3.4", in, out}, "unknown transfer syntax 1.2.3.4\n"},
        {{"-x", explicitLE, damaged, out}, cannot + damaged + " as Little Endian Explicit [JPEG 2000 decoding failed: "},
        {{"-x", lossless, in, nowhere}, "cannot write " + nowhere + " ["},
        // what a target cannot hold, in one line that says why
        {{"-x", "1.2.840.10008.1.2.4.100", in, out},
         cannot + in + " as MPEG2 Main Profile @ Main Level: there is no encoder for it (transcode -h lists the targets)\n"},
        {{"-x", "1.2.840.10008.1.2.4.50", in, out},
         cannot + in + " as JPEG Baseline: its 12-bit samples do not fit the 8 bits JPEG Baseline holds (JPEG Extended "
                       "holds 12, the lossless JPEG, JPEG-LS and JPEG 2000 syntaxes hold 16)\n"},
        {{"-x", "1.2.840.10008.1.2.5", ybr422, out}, cannot + ybr422 + " as RLE Lossless: its YBR_FULL_422 pixel data "
                                                                       "is subsampled, which only the lossy JPEG syntaxes take\n"},
        {{"-x", lossy, rtdose, out}, cannot + rtdose + " as JPEG 2000 (Lossless or Lossy): its samples of 32 bits "
                                                       "allocated do not fit JPEG 2000 (8 or 16 bits allocated; RLE holds 32)\n"},
        {{"-x", "1.2.840.10008.1.2.4.81", ct, out}, cannot + ct + " as JPEG-LS Lossy (Near-lossless): JPEG-LS near-lossless "
                                                                  "coding takes unsigned samples only (JPEG-LS Lossless takes signed ones)\n"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.second);
        const RunResult r = transcode(c.first);
        EXPECT_EQ(1, r.status);
        EXPECT_EQ("", r.out);
        EXPECT_EQ(0u, r.err.find("transcode: " + c.second)) << r.err;
        EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;
    }
    EXPECT_EQ(before, readFile(in));
    EXPECT_EQ("previous", readFile(out));
    EXPECT_EQ(std::vector<std::string>({"in.dcm", "out.dcm"}), listDir(dir.path()));
}

TEST(Transcode, LossyRateComesFromTheConfigurationByModality)
{
    TempDir dir;
    TempDir conf;
    const std::string ct = writeImage(dir, "ct.dcm", noisyImage());
    const std::string mr = writeImage(dir, "mr.dcm", noisyImage(), "MR");
    const std::string none = writeImage(dir, "none.dcm", noisyImage(), "");
    const std::string out = dir.file("out.dcm");
    const std::string file = conf.file("jpeg2000lossy.conf");
    const std::string rates = "# rates\nDefault=\"0.25\"\nCT = \"0.5\"\nCT=\"0.2\"\nMR=\"1.5\"\n";
    struct Case
    {
        std::string conf; // content of jpeg2000lossy.conf; empty: CONF unset
        std::string in;
        double ratio;     // 0: lossless
        std::string verbose; // a line of the verbose output, or empty
    };
    const Case cases[] = {
        {"", ct, 10.0, "Transcoding " + ct + " from Little Endian Explicit to JPEG 2000"}, // the factory default 0.1
        {rates, ct, 5.0, ""},
        {rates, mr, 4.0, "JPEG 2000 rate 0.25 for modality MR\n"}, // an invalid MR line: the Default entry
        {rates, none, 4.0, "JPEG 2000 rate 0.25 for modality (none)\n"},
        {"CT=\"1\"\n", ct, 0.0, ""},  // lossless in the lossy syntax
        {"CT=\"1\"\n", mr, 10.0, ""}, // no Default line: the factory default
    };
    CodecRegistry registry; // to decode the output here
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.in + " with " + c.conf);
        ASSERT_TRUE(writeFile(file, c.conf));
        const RunResult r = transcode({"-v", "-x", lossy, c.in, out}, c.conf.empty() ? "" : conf.path());
        ASSERT_EQ(0, r.status) << r.err;
        EXPECT_EQ(lossy, transferSyntax(out));
        EXPECT_NE(std::string::npos, r.out.find(c.verbose)) << r.out; // "" always found
        EXPECT_EQ(r.out.size() - out.size() - 7, r.out.rfind("Wrote " + out + "\n")) << r.out;
        EXPECT_NEAR(c.ratio, atof(attribute(out, DCM_LossyImageCompressionRatio).c_str()), 0.06 * c.ratio);
        if (c.ratio == 0)
        {
            EXPECT_EQ("<missing>", attribute(out, DCM_LossyImageCompression));
            EXPECT_TRUE(codectest::pixelBytes(*load(c.in)->getDataset()) == codectest::pixelBytes(*load(out)->getDataset()));
        }
    }
}

TEST(Transcode, ReencodesCompressedInput)
{
    TempDir dir;
    const std::string out = dir.file("out.dcm");
    struct Case
    {
        const char* in;
        std::string xfer;
        const char* photometric;
    };
    // JPEG 2000 lossy to lossless keeps the earlier lossy compression on record
    const Case cases[] = {{"SC_rgb_gdcm_KY.dcm", lossless, "YBR_RCT"}, {"SC_rgb_jpeg_dcmtk.dcm", lossy, "YBR_ICT"}};
    for (const Case& c : cases)
    {
        const RunResult r = transcode({"-x", c.xfer, corpusFile(c.in), out});
        ASSERT_EQ(0, r.status) << r.err;
        EXPECT_EQ(c.xfer, transferSyntax(out));
        EXPECT_EQ(c.photometric, attribute(out, DCM_PhotometricInterpretation));
        EXPECT_EQ("01", attribute(out, DCM_LossyImageCompression));
    }
}

namespace {

// The samples of an uncompressed file, colour-by-pixel and sign-extended, read without any codec.
std::vector<int> nativeSamples(const std::string& path)
{
    std::unique_ptr<DcmFileFormat> file = load(path);
    DcmDataset& ds = *file->getDataset();
    Uint16 allocated = 0, bits = 0, signedness = 0;
    ds.findAndGetUint16(DCM_BitsAllocated, allocated);
    ds.findAndGetUint16(DCM_BitsStored, bits);
    ds.findAndGetUint16(DCM_PixelRepresentation, signedness);
    std::vector<int> samples;
    if (!DcmXfer(ds.getOriginalXfer()).isNotEncapsulated() || bits == 0)
        return samples;
    const std::vector<Uint8> bytes = codectest::pixelBytes(ds);
    const size_t width = allocated / 8;
    for (size_t i = 0; width > 0 && i + width <= bytes.size(); i += width)
    {
        const unsigned value = (bytes[i] | (width == 2 ? unsigned(bytes[i + 1]) << 8 : 0u)) & ((1u << bits) - 1);
        samples.push_back(signedness == 1 && (value >> (bits - 1)) ? int(value) - (1 << bits) : int(value));
    }
    return samples;
}

} // namespace

// Every target, written by the program and decoded by a tool of DCMTK or GDCM: lossless targets
// give the samples back exactly, JPEG-LS near-lossless within its deviation of 2, the lossy
// ones close to them.
TEST(Transcode, EveryTargetDecodesWithAnIndependentTool)
{
    using codectest::ImageLayout;
    const ImageLayout gray16(64, 48, 1, 16, 16, true, 0, 2); // signed, two frames
    const ImageLayout gray16once(64, 48, 1, 16, 16, true); // gdcmconv takes no multi-frame Secondary Capture
    const ImageLayout gray12(64, 48, 1, 16, 12, false);
    const ImageLayout gray8(64, 48, 1, 8, 8, false);
    const ImageLayout rgb(64, 48, 3, 8, 8, false, 0, 2);
    const ImageLayout rgbPlanes(64, 48, 3, 8, 8, false, 1);
    const std::vector<std::string> dcmdrle = {"/usr/bin/dcmdrle"}, dcmdjpeg = {"/usr/bin/dcmdjpeg"},
                                   dcmdjpls = {"/usr/bin/dcmdjpls"}, gdcmconv = {"/usr/bin/gdcmconv", "--raw"},
                                   dcmconv = {"/usr/bin/dcmconv", "+te"};
    const int EXACT = 0, LOSSY = -1;
    struct Case
    {
        ImageLayout layout;
        std::string xfer;
        std::vector<std::string> decoder;
        int maxError; // largest difference of a sample; LOSSY: a mean difference under 1% of the range
    };
    const Case cases[] = {
        {gray16, "1.2.840.10008.1.2", dcmconv, EXACT},
        {gray16, "1.2.840.10008.1.2.2", dcmconv, EXACT},
        {gray16, "1.2.840.10008.1.2.1.99", dcmconv, EXACT},
        {gray16, "1.2.840.10008.1.2.5", dcmdrle, EXACT},
        {rgbPlanes, "1.2.840.10008.1.2.5", dcmdrle, EXACT},
        {gray8, "1.2.840.10008.1.2.4.50", dcmdjpeg, LOSSY},
        {rgb, "1.2.840.10008.1.2.4.50", dcmdjpeg, LOSSY},
        {gray12, "1.2.840.10008.1.2.4.51", dcmdjpeg, LOSSY},
        {gray12, "1.2.840.10008.1.2.4.53", dcmdjpeg, LOSSY},
        {gray12, "1.2.840.10008.1.2.4.55", dcmdjpeg, LOSSY},
        {gray16, "1.2.840.10008.1.2.4.57", dcmdjpeg, EXACT},
        {gray16, "1.2.840.10008.1.2.4.70", dcmdjpeg, EXACT},
        {rgb, "1.2.840.10008.1.2.4.70", dcmdjpeg, EXACT},
        {gray16, "1.2.840.10008.1.2.4.80", dcmdjpls, EXACT},
        {rgb, "1.2.840.10008.1.2.4.80", dcmdjpls, EXACT},
        {gray12, "1.2.840.10008.1.2.4.81", dcmdjpls, 2},
        {rgb, "1.2.840.10008.1.2.4.81", dcmdjpls, 2},
        {gray16once, lossless, gdcmconv, EXACT},
        {rgbPlanes, lossless, gdcmconv, EXACT},
        {gray12, lossy, gdcmconv, LOSSY},
    };
    TempDir dir;
    const std::string out = dir.file("out.dcm");
    const std::string decoded = dir.file("decoded.dcm");
    // JPEG 2000 lossy at 2:1, which keeps this small image as close as JPEG quality 90 does
    ASSERT_TRUE(writeFile(dir.file("jpeg2000lossy.conf"), "Default=\"0.5\"\n"));
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.xfer + " " + std::to_string(c.layout.samplesPerPixel) + "x" + std::to_string(c.layout.bitsStored) +
                     " bits by " + c.decoder[0]);
        const std::string in = writeImage(dir, "in.dcm", c.layout);
        RunResult r = transcode({"-x", c.xfer, in, out}, dir.path());
        ASSERT_EQ(0, r.status) << r.err;
        EXPECT_EQ("", r.out + r.err);
        EXPECT_EQ(c.xfer, transferSyntax(out));
        std::vector<std::string> decode = c.decoder;
        decode.insert(decode.end(), {out, decoded});
        r = run(decode);
        ASSERT_EQ(0, r.status) << r.err;

        const std::vector<int> expected = codectest::sampleValues(c.layout);
        const std::vector<int> got = nativeSamples(decoded);
        ASSERT_EQ(expected.size(), got.size());
        long long maxDiff = 0, sumDiff = 0;
        for (size_t i = 0; i < got.size(); ++i)
        {
            const long long d = std::llabs(static_cast<long long>(got[i]) - expected[i]);
            maxDiff = std::max(maxDiff, d);
            sumDiff += d;
        }
        if (c.maxError == LOSSY)
            EXPECT_LT(double(sumDiff) / got.size(), 0.01 * (1 << c.layout.bitsStored));
        else
            EXPECT_LE(maxDiff, c.maxError);
        EXPECT_EQ(c.maxError == EXACT ? "<missing>" : "01", attribute(out, DCM_LossyImageCompression));
    }
}

TEST(Transcode, EveryTargetEncodesOrRefusesEveryCorpusImage)
{
    // each corpus image to each target: encoded (and decoded again by DCMTK's own tool) or
    // refused in one line; never an abort
    const std::vector<std::pair<std::string, std::vector<std::string>>> targets = {
        {"1.2.840.10008.1.2.5", {"/usr/bin/dcmdrle"}},        {"1.2.840.10008.1.2.4.50", {"/usr/bin/dcmdjpeg"}},
        {"1.2.840.10008.1.2.4.51", {"/usr/bin/dcmdjpeg"}},    {"1.2.840.10008.1.2.4.70", {"/usr/bin/dcmdjpeg"}},
        {"1.2.840.10008.1.2.4.80", {"/usr/bin/dcmdjpls"}},    {"1.2.840.10008.1.2.4.81", {"/usr/bin/dcmdjpls"}},
        {lossless, {"/usr/bin/gdcmconv", "--raw"}},
    };
    const char* const images[] = {"CT_small.dcm",       "MR_small.dcm",        "693_J2KI.dcm",
                                  "J2K_pixelrep_mismatch.dcm", "SC_rgb_rle_16bit.dcm", "SC_rgb_small_odd.dcm",
                                  "SC_ybr_full_422_uncompressed.dcm", "rtdose_1frame.dcm", "JPEG-lossy.dcm"};
    TempDir dir;
    for (const auto& target : targets)
        for (const char* image : images)
        {
            SCOPED_TRACE(target.first + " " + image);
            const std::string out = dir.file("out.dcm");
            RunResult r = transcode({"-x", target.first, corpusFile(image), out}, dir.path());
            ASSERT_TRUE(r.status == 0 || r.status == 1) << r.status << " " << r.err;
            if (r.status == 1)
            {
                EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;
                continue;
            }
            std::vector<std::string> decode = target.second;
            decode.insert(decode.end(), {out, dir.file("decoded.dcm")});
            EXPECT_EQ(0, run(decode).status);
        }
}
