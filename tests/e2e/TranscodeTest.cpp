// The transcode program, run as built.
#include "dcmutils/codec/CodecRegistry.h"
#include "dcmutils/codec/tests/CodecTestSupport.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

namespace {

const std::string lossless = "1.2.840.10008.1.2.4.90";
const std::string lossy = "1.2.840.10008.1.2.4.91";
const std::string explicitLE = "1.2.840.10008.1.2.1";

// Runs transcode with CONF set to conf, or unset when conf is empty.
fixtures::RunResult transcode(const std::vector<std::string>& args, const std::string& conf = std::string())
{
    std::vector<std::string> argv = {"/usr/bin/env"};
    if (conf.empty())
        argv.insert(argv.end(), {"-u", "CONF"});
    else
        argv.push_back("CONF=" + conf);
    argv.push_back(fixtures::program("transcode"));
    argv.insert(argv.end(), args.begin(), args.end());
    return fixtures::run(argv);
}

std::string writeImage(const fixtures::TempDir& dir, const std::string& name, const codectest::ImageSpec& spec,
                       bool withModality = true)
{
    std::unique_ptr<DcmFileFormat> image(codectest::makeImage(spec));
    if (!withModality)
        delete image->getDataset()->remove(DCM_Modality);
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
    return codectest::stringOf(*load(path)->getMetaInfo(), DCM_TransferSyntaxUID);
}

double storedRatio(const std::string& path)
{
    return atof(fixtures::attribute(path, DCM_LossyImageCompressionRatio).c_str());
}

// 128 x 128, 12 bits with noise: lossy coding shows in the size.
codectest::ImageSpec noisyImage()
{
    return codectest::ImageSpec(128, 128, 1, 16, 12, false, 0, 1, "", 200);
}

} // namespace

TEST(Transcode, UsageAndFailuresLeaveNothingBehind)
{
    fixtures::TempDir dir;
    const std::string in = writeImage(dir, "in.dcm", noisyImage());
    const std::string before = fixtures::readFile(in);
    const std::string out = dir.file("out.dcm");
    ASSERT_TRUE(fixtures::writeFile(out, "previous"));
    const std::string damaged = fixtures::corpusFile("JPEG2000-embedded-sequence-delimiter.dcm");
    const std::string nowhere = dir.file("no/such/dir/out.dcm");
    struct Case
    {
        std::vector<std::string> args;
        std::string err; // the start of standard error, one line unless it is the usage
    };
    const Case cases[] = {
        {{}, "Usage: transcode"},
        {{"-x", lossless, "in"}, "Usage: transcode"},
        {{"in", "out"}, "Usage: transcode"},
        {{"-q", "-x", lossless, "in", "out"}, "Usage: transcode"},
        {{"-x", lossless, "in", "out", "more"}, "Usage: transcode"},
        {{"-x", "1.2.3.4", in, out}, "transcode: unknown transfer syntax 1.2.3.4\n"},
        {{"-x", lossless, dir.file("missing.dcm"), out}, "transcode: cannot read " + dir.file("missing.dcm") + " ["},
        // no encoder for JPEG-LS
        {{"-x", "1.2.840.10008.1.2.4.80", in, out}, "transcode: cannot encode " + in + " as JPEG-LS Lossless ["},
        {{"-x", explicitLE, damaged, out},
         "transcode: cannot encode " + damaged + " as Little Endian Explicit [JPEG 2000 decoding failed: "},
        {{"-x", lossless, in, nowhere}, "transcode: cannot write " + nowhere + " ["},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.err);
        const fixtures::RunResult r = transcode(c.args);
        EXPECT_EQ(1, r.status);
        EXPECT_EQ("", r.out);
        EXPECT_EQ(0u, r.err.find(c.err)) << r.err;
        if (c.err != "Usage: transcode")
        {
            EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;
        }
    }
    const fixtures::RunResult help = transcode({"-h"});
    EXPECT_EQ(0, help.status);
    EXPECT_EQ(0u, help.out.find("Usage: transcode [-h] [-v] -x <transfer syntax UID> <in> <out>\n"));
    EXPECT_EQ(before, fixtures::readFile(in));
    EXPECT_EQ("previous", fixtures::readFile(out));
    EXPECT_EQ(std::vector<std::string>({"in.dcm", "out.dcm"}), fixtures::listDir(dir.path()));
}

TEST(Transcode, LosslessRoundTrip)
{
    fixtures::TempDir dir;
    codectest::ImageSpec spec = noisyImage();
    spec.isSigned = true;
    spec.frames = 3;
    const std::string in = writeImage(dir, "in.dcm", spec);
    const std::string j2k = dir.file("j2k.dcm");
    const std::string back = dir.file("back.dcm");
    fixtures::RunResult r = transcode({"-v", "-x", lossless, in, j2k});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("Transcoding " + in + " from Little Endian Explicit to JPEG 2000 (Lossless only)\n"
              "JPEG 2000 rate 1 for modality CT (lossless)\n"
              "Wrote " + j2k + "\n",
              r.out);
    EXPECT_EQ("", r.err);
    EXPECT_EQ(lossless, transferSyntax(j2k));
    r = transcode({"-x", explicitLE, j2k, back});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.out + r.err);
    EXPECT_EQ(explicitLE, transferSyntax(back));
    EXPECT_TRUE(codectest::pixelBytes(*load(in)->getDataset()) == codectest::pixelBytes(*load(back)->getDataset()));
}

TEST(Transcode, LossyRateComesFromTheConfigurationByModality)
{
    fixtures::TempDir dir;
    fixtures::TempDir conf;
    const std::string ct = writeImage(dir, "ct.dcm", noisyImage());
    codectest::ImageSpec mrSpec = noisyImage();
    mrSpec.modality = "MR";
    const std::string mr = writeImage(dir, "mr.dcm", mrSpec);
    const std::string none = writeImage(dir, "none.dcm", noisyImage(), false);
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
        {"", ct, 10.0, ""}, // the factory default 0.1
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
        ASSERT_TRUE(fixtures::writeFile(file, c.conf));
        const fixtures::RunResult r = transcode({"-v", "-x", lossy, c.in, out}, c.conf.empty() ? "" : conf.path());
        ASSERT_EQ(0, r.status) << r.err;
        EXPECT_EQ(lossy, transferSyntax(out));
        if (!c.verbose.empty())
        {
            EXPECT_NE(std::string::npos, r.out.find(c.verbose)) << r.out;
        }
        if (c.ratio > 0)
        {
            EXPECT_NEAR(c.ratio, storedRatio(out), 0.06 * c.ratio);
        }
        else
        {
            EXPECT_EQ("<missing>", fixtures::attribute(out, DCM_LossyImageCompression));
            EXPECT_TRUE(codectest::pixelBytes(*load(c.in)->getDataset()) ==
                        codectest::pixelBytes(*load(out)->getDataset()));
        }
    }
}

TEST(Transcode, ReencodesCompressedInput)
{
    fixtures::TempDir dir;
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
        const fixtures::RunResult r = transcode({"-x", c.xfer, fixtures::corpusFile(c.in), out});
        ASSERT_EQ(0, r.status) << r.err;
        EXPECT_EQ(c.xfer, transferSyntax(out));
        EXPECT_EQ(c.photometric, fixtures::attribute(out, DCM_PhotometricInterpretation));
        EXPECT_EQ("01", fixtures::attribute(out, DCM_LossyImageCompression));
    }
}
