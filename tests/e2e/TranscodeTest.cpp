// The transcode program, run as built.
#include "dcmutils/codec/CodecRegistry.h"

#include "dcmutils/codec/tests/CodecTestSupport.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

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
    if (file->loadFile(path.c_str()).bad())
        return nullptr;
    return file;
}

std::string transferSyntax(const std::string& path)
{
    std::unique_ptr<DcmFileFormat> file = load(path);
    if (!file)
        return "<unreadable>";
    return codectest::stringOf(*file->getMetaInfo(), DCM_TransferSyntaxUID);
}

double storedRatio(const std::string& path)
{
    std::unique_ptr<DcmFileFormat> file = load(path);
    if (!file)
        return -1.0;
    return atof(codectest::stringOf(*file->getDataset(), DCM_LossyImageCompressionRatio).c_str());
}

codectest::ImageSpec noisyImage()
{
    codectest::ImageSpec spec;
    spec.rows = 128;
    spec.columns = 128;
    spec.noise = 200;
    return spec;
}

} // namespace

TEST(Transcode, UsageAndBadArguments)
{
    fixtures::RunResult r = transcode({"-h"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(0u, r.out.find("Usage: transcode [-h] [-v] -x <transfer syntax UID> <in> <out>\n"));
    EXPECT_EQ("", r.err);

    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {}, {"-x", lossless}, {"-x", lossless, "in"}, {"in", "out"}, {"-q", "-x", lossless, "in", "out"},
             {"-x", lossless, "in", "out", "more"}, {"-x"}})
    {
        r = transcode(args);
        EXPECT_EQ(1, r.status);
        EXPECT_EQ(0u, r.err.find("Usage: transcode")) << r.err;
        EXPECT_EQ("", r.out);
    }
}

TEST(Transcode, FailuresLeaveNothingBehind)
{
    fixtures::TempDir dir;
    const std::string in = writeImage(dir, "in.dcm", noisyImage());
    const std::string before = fixtures::readFile(in);
    const std::string out = dir.file("out.dcm");

    fixtures::RunResult r = transcode({"-x", "1.2.3.4", in, out});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("transcode: unknown transfer syntax 1.2.3.4\n", r.err);

    r = transcode({"-x", lossless, dir.file("missing.dcm"), out});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(0u, r.err.find("transcode: cannot read " + dir.file("missing.dcm") + " [")) << r.err;

    // no encoder for JPEG-LS: an existing output stays as it was
    ASSERT_TRUE(fixtures::writeFile(out, "previous"));
    r = transcode({"-x", "1.2.840.10008.1.2.4.80", in, out});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(0u, r.err.find("transcode: cannot encode " + in + " as JPEG-LS Lossless [")) << r.err;
    EXPECT_EQ(1u, std::count(r.err.begin(), r.err.end(), '\n'));
    EXPECT_EQ("previous", fixtures::readFile(out));

    // damaged JPEG 2000 input
    const std::string damaged = fixtures::corpusFile("JPEG2000-embedded-sequence-delimiter.dcm");
    r = transcode({"-x", explicitLE, damaged, out});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(0u, r.err.find("transcode: cannot encode " + damaged +
                             " as Little Endian Explicit [JPEG 2000 decoding failed: "))
        << r.err;
    EXPECT_EQ(1u, std::count(r.err.begin(), r.err.end(), '\n'));
    EXPECT_EQ("previous", fixtures::readFile(out));

    // an output directory that does not exist
    r = transcode({"-x", lossless, in, dir.file("no/such/dir/out.dcm")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(0u, r.err.find("transcode: cannot write " + dir.file("no/such/dir/out.dcm") + " [")) << r.err;

    EXPECT_EQ(before, fixtures::readFile(in));
    EXPECT_EQ(std::vector<std::string>({"in.dcm", "out.dcm"}), fixtures::listDir(dir.path()));
}

TEST(Transcode, LosslessRoundTrip)
{
    fixtures::TempDir dir;
    codectest::ImageSpec spec = noisyImage();
    spec.isSigned = true;
    spec.frames = 3;
    const std::string in = writeImage(dir, "in.dcm", spec);
    const std::string before = fixtures::readFile(in);
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
    EXPECT_EQ("", r.out);
    std::unique_ptr<DcmFileFormat> original = load(in);
    std::unique_ptr<DcmFileFormat> decoded = load(back);
    ASSERT_TRUE(original && decoded);
    EXPECT_EQ(explicitLE, transferSyntax(back));
    EXPECT_TRUE(codectest::pixelBytes(*original->getDataset()) == codectest::pixelBytes(*decoded->getDataset()));
    EXPECT_EQ(before, fixtures::readFile(in));
    EXPECT_EQ(std::vector<std::string>({"back.dcm", "in.dcm", "j2k.dcm"}), fixtures::listDir(dir.path()));
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

    // no CONF: the factory default 0.1 for all
    ASSERT_EQ(0, transcode({"-x", lossy, ct, out}).status);
    EXPECT_NEAR(10.0, storedRatio(out), 0.6);

    const std::string file = conf.file("jpeg2000lossy.conf");
    ASSERT_TRUE(fixtures::writeFile(file, "# rates\nDefault=\"0.25\"\nCT = \"0.5\"\nCT=\"0.2\"\nMR=\"1.5\"\n"));
    ASSERT_EQ(0, transcode({"-x", lossy, ct, out}, conf.path()).status);
    EXPECT_NEAR(5.0, storedRatio(out), 0.3);
    fixtures::RunResult r = transcode({"-v", "-x", lossy, mr, out}, conf.path());
    ASSERT_EQ(0, r.status);
    EXPECT_NE(std::string::npos, r.out.find("JPEG 2000 rate 0.25 for modality MR\n")) << r.out;
    EXPECT_NEAR(4.0, storedRatio(out), 0.25);
    // no Modality: the "Default" entry
    r = transcode({"-v", "-x", lossy, none, out}, conf.path());
    ASSERT_EQ(0, r.status);
    EXPECT_NE(std::string::npos, r.out.find("JPEG 2000 rate 0.25 for modality (none)\n")) << r.out;
    EXPECT_NEAR(4.0, storedRatio(out), 0.25);

    // CT="1": lossless in the lossy syntax
    CodecRegistry registry;
    ASSERT_TRUE(fixtures::writeFile(file, "CT=\"1\"\n"));
    ASSERT_EQ(0, transcode({"-x", lossy, ct, out}, conf.path()).status);
    EXPECT_EQ(lossy, transferSyntax(out));
    EXPECT_EQ("<missing>", fixtures::attribute(out, DCM_LossyImageCompression));
    std::unique_ptr<DcmFileFormat> original = load(ct);
    std::unique_ptr<DcmFileFormat> encoded = load(out);
    ASSERT_TRUE(original && encoded);
    EXPECT_TRUE(codectest::pixelBytes(*original->getDataset()) == codectest::pixelBytes(*encoded->getDataset()));
    // no Default line any more, MR has none: the factory default
    ASSERT_EQ(0, transcode({"-x", lossy, mr, out}, conf.path()).status);
    EXPECT_NEAR(10.0, storedRatio(out), 0.6);
}

TEST(Transcode, ReencodesCompressedInput)
{
    // JPEG 2000 lossy input to JPEG 2000 lossless: decoded, then encoded again
    fixtures::TempDir dir;
    const std::string out = dir.file("out.dcm");
    fixtures::RunResult r = transcode({"-x", lossless, fixtures::corpusFile("SC_rgb_gdcm_KY.dcm"), out});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(lossless, transferSyntax(out));
    EXPECT_EQ("YBR_RCT", fixtures::attribute(out, DCM_PhotometricInterpretation));
    // the earlier lossy compression stays on record
    EXPECT_EQ("01", fixtures::attribute(out, DCM_LossyImageCompression));

    // JPEG baseline to JPEG 2000
    r = transcode({"-x", lossy, fixtures::corpusFile("SC_rgb_jpeg_dcmtk.dcm"), out});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(lossy, transferSyntax(out));
    EXPECT_EQ("YBR_ICT", fixtures::attribute(out, DCM_PhotometricInterpretation));
}
