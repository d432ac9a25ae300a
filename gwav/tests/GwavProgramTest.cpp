// The gwav program, run as a user runs it: help, version, round trips and one-line errors.
#include "tests/fixtures/Fixtures.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using fixtures::run;
using fixtures::RunResult;

namespace {

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

} // namespace

TEST(GwavProgramTest, HelpAndVersionOnStandardOutput)
{
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{}, {"-h"}, {"encode", "-h"}, {"decode", "--help"}, {"info", "-h"}})
    {
        const RunResult result = gwav(arguments);
        EXPECT_EQ(0, result.status);
        EXPECT_NE(std::string::npos, result.out.find("usage: gwav")) << result.out;
        EXPECT_EQ("", result.err);
    }
    const RunResult version = gwav({"--version"});
    EXPECT_EQ(0, version.status);
    EXPECT_EQ(0u, version.out.find(std::string("gwav (KQ archive) ") + KQ_VERSION + "\nDCMTK "));
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
