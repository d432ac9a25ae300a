// Image dumps read back: the "ICON" layout, files that are not dumps, and dump comparison.
#include "objdiff/DumpImage.h"
#include "objdiff/ObjDiff.h"

#include "gwav/gwav.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <sstream>

namespace {

// An "ICON" file: magic, columns, rows, bytes per pixel (32-bit, machine order), samples.
std::string icon(uint32_t columns, uint32_t rows, uint32_t bytesPerPixel, const std::vector<uint8_t>& samples)
{
    std::string content = "ICON";
    for (uint32_t value : {columns, rows, bytesPerPixel})
        content.append(reinterpret_cast<const char*>(&value), 4);
    content.append(samples.begin(), samples.end());
    return content;
}

std::vector<uint8_t> ramp(size_t count, int step = 1)
{
    std::vector<uint8_t> values(count);
    for (size_t i = 0; i < count; ++i)
        values[i] = uint8_t(i * step);
    return values;
}

} // namespace

TEST(DumpImage, ReadingFiles)
{
    fixtures::TempDir dir;
    const std::vector<uint8_t> samples = ramp(12);
    // a wavelet stream of a 16 x 8 ramp, and the same with its columns zeroed
    std::vector<uint8_t> image = ramp(128, 2);
    std::string wavelet(4096, '\0');
    const unsigned long length = gwavcompress(image.data(), 8, 1, 16, 8, reinterpret_cast<unsigned char*>(&wavelet[0]), 4096);
    ASSERT_GT(length, 10u);
    wavelet.resize(length);
    std::string noColumns = wavelet;
    noColumns[6] = noColumns[7] = '\0';
    struct Case { const char* name; std::string content; bool loaded; const char* err;
                  unsigned int columns = 0, rows = 0, bytesPerPixel = 0; };
    const std::vector<Case> cases = {
        {"icon", icon(3, 2, 2, samples), true, "", 3, 2, 2},
        {"icon with more bytes than it needs", icon(3, 2, 2, samples) + "tail", true, "", 3, 2, 2},
        {"truncated samples", icon(3, 2, 2, ramp(11)), false, ""},
        {"truncated header", "ICON\x03", false, ""},
        {"a size the file cannot hold", icon(65535, 65535, 65535, samples), false, ""},
        {"wavelet", wavelet, true, "", 16, 8, 1},
        {"wavelet cut short", wavelet.substr(0, 40), true, "", 16, 8, 1},
        {"wavelet header only", wavelet.substr(0, 10), true, "", 16, 8, 1},
        {"wavelet shorter than its header", wavelet.substr(0, 9), false, "Invalid compressed bitstream\n"},
        {"wavelet without columns", noColumns, false, "Invalid compressed bitstream\n"},
        {"a PNG", "\x89PNG\r\n\x1a\n", false, "Unknown image format.\n"},
        {"lower case magic", "icon" + icon(3, 2, 2, samples).substr(4), false, "Unknown image format.\n"},
        {"empty", "", false, "Unknown image format.\n"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        const std::string path = dir.file("dump");
        ASSERT_TRUE(fixtures::writeFile(path, c.content));
        std::ostringstream err;
        DumpImage image(path, err);
        EXPECT_EQ(c.loaded, image.isLoaded());
        EXPECT_EQ(c.err, err.str());
        EXPECT_EQ(std::vector<unsigned int>({c.columns, c.rows, c.bytesPerPixel}),
                  std::vector<unsigned int>({image.getColumns(), image.getRows(), image.getBytesPerPixel()}));
        EXPECT_EQ(c.loaded, image.getPixels() != nullptr);
    }
    // the samples: as stored, and exactly as coded when the stream is complete
    ASSERT_TRUE(fixtures::writeFile(dir.file("icon"), icon(3, 2, 2, samples)));
    EXPECT_EQ(0, memcmp(DumpImage(dir.file("icon")).getPixels(), samples.data(), samples.size()));
    ASSERT_TRUE(fixtures::writeFile(dir.file("wavelet"), wavelet));
    EXPECT_EQ(0, memcmp(DumpImage(dir.file("wavelet")).getPixels(), image.data(), image.size()));
    // a file that cannot be opened is no dump, silently; a directory or FIFO (never waited on) has no format
    std::ostringstream err;
    EXPECT_FALSE(DumpImage(dir.file("missing"), err).isLoaded());
    EXPECT_EQ("", err.str());
    ASSERT_EQ(0, mkfifo(dir.file("fifo").c_str(), 0600));
    EXPECT_FALSE(DumpImage(dir.path(), err).isLoaded());
    EXPECT_FALSE(DumpImage(dir.file("fifo"), err).isLoaded());
    EXPECT_EQ("Unknown image format.\nUnknown image format.\n", err.str());
}

TEST(DumpImage, ComparingDumps)
{
    fixtures::TempDir dir;
    struct Case { const char* name; std::string first, second; bool equal; };
    std::vector<uint8_t> nearly = ramp(64, 3), wrong = ramp(64, 3), rgbTail = ramp(48, 3), rgbHead = ramp(48, 3);
    nearly[5] += 1;
    std::fill(wrong.begin(), wrong.begin() + 32, 255);
    std::fill(rgbTail.begin() + 16, rgbTail.end(), 0);
    std::fill(rgbHead.begin(), rgbHead.begin() + 16, 255);
    const std::vector<Case> cases = {
        {"same", icon(8, 8, 1, ramp(64, 3)), icon(8, 8, 1, ramp(64, 3)), true},
        {"one grey level", icon(8, 8, 1, ramp(64, 3)), icon(8, 8, 1, nearly), true},
        {"half wrong", icon(8, 8, 1, ramp(64, 3)), icon(8, 8, 1, wrong), false},
        {"16-bit samples", icon(8, 4, 2, ramp(64, 3)), icon(8, 4, 2, ramp(64, 3)), true},
        {"16-bit samples, half wrong", icon(8, 4, 2, ramp(64, 3)), icon(8, 4, 2, wrong), false},
        // three bytes per pixel: the measure looks at the first third of the samples only
        {"RGB, last third wrong", icon(4, 4, 3, ramp(48, 3)), icon(4, 4, 3, rgbTail), true},
        {"RGB, first third wrong", icon(4, 4, 3, ramp(48, 3)), icon(4, 4, 3, rgbHead), false},
        // other pixel sizes are not looked at
        {"four bytes per pixel", icon(2, 2, 4, ramp(16)), icon(2, 2, 4, std::vector<uint8_t>(16, 9)), true},
        {"sizes", icon(8, 8, 1, ramp(64, 3)), icon(4, 16, 1, ramp(64, 3)), false},
        {"bytes per pixel", icon(8, 4, 2, ramp(64, 3)), icon(8, 8, 1, ramp(64, 3)), false},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(fixtures::writeFile(dir.file("a"), c.first));
        ASSERT_TRUE(fixtures::writeFile(dir.file("b"), c.second));
        IgnoreTags rules;
        ObjectComparator comparator(rules);
        std::ostringstream out, err;
        comparator.setOutput(out, err);
        EXPECT_EQ(comparator.compareDumps(dir.file("a").c_str(), dir.file("b").c_str()), c.equal);
        EXPECT_EQ(out.str() + err.str(), "");
    }
}

TEST(DumpImage, ObjectDumps)
{
    fixtures::TempDir dir;
    const std::string ct = fixtures::corpusFile("CT_small.dcm");
    const std::string jpegls = dir.file("ct-jpegls.dcm");
    ASSERT_EQ(0, fixtures::run({"/usr/bin/dcmcjpls", ct, jpegls}).status);
    struct Case { std::string object, prefix; bool done; std::vector<std::string> dumps; // the files made
                  unsigned int columns = 0, rows = 0, bytesPerPixel = 0; const char* err = ""; };
    const std::vector<Case> cases = {
        {ct, dir.file("ct"), true, {"ct.dump.wavelet"}, 128, 128, 2},
        {jpegls, dir.file("ls"), true, {"ls.dump.wavelet"}, 128, 128, 2},
        {fixtures::corpusFile("SC_rgb_rle_2frame.dcm"), dir.file("rgb"), true,
         {"rgb.frame-1.dump.wavelet", "rgb.frame-2.dump.wavelet"}, 100, 100, 3},
        // 27 bytes of samples still make a whole dump
        {fixtures::corpusFile("SC_rgb_small_odd.dcm"), dir.file("odd"), true, {"odd.dump.wavelet"}, 3, 3, 3},
        // 32-bit samples are no image the wavelet codec holds: nothing is left behind
        {fixtures::corpusFile("rtdose_1frame.dcm"), dir.file("dose"), false, {}, 0, 0, 0,
         "Error processing DICOM object\n"},
        // a dump that cannot be created is skipped
        {ct, dir.file("none/ct"), true, {}},
    };
    IgnoreTags rules;
    rules.tags.insert(DCM_Modality);
    ObjectComparator comparator(rules);
    std::ostringstream out, err;
    comparator.setOutput(out, err);
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.prefix);
        const std::vector<std::string> before = fixtures::listDir(dir.path());
        out.str("");
        err.str("");
        bool done = !c.done;
        fixtures::capture([&] { done = comparator.dumpObject(c.object.c_str(), NULL, c.prefix.c_str()); });
        EXPECT_EQ(c.done, done);
        EXPECT_EQ(c.err, err.str());
        // the attributes come first, without ignored ones and without the pixel data
        EXPECT_NE(std::string::npos, out.str().find("(0008,0016) UI"));
        EXPECT_EQ(std::string::npos, out.str().find("(0008,0060)"));
        EXPECT_EQ(std::string::npos, out.str().find("(7fe0,0010)"));
        std::vector<std::string> made;
        for (const std::string& name : fixtures::listDir(dir.path()))
            if (std::find(before.begin(), before.end(), name) == before.end())
                made.push_back(name);
        EXPECT_EQ(c.dumps, made);
        for (const std::string& name : made)
        {
            EXPECT_EQ(4096u, fixtures::readFile(dir.file(name)).size()) << name;
            const DumpImage image(dir.file(name));
            EXPECT_TRUE(image.isLoaded());
            EXPECT_EQ(std::vector<unsigned int>({c.columns, c.rows, c.bytesPerPixel}),
                      std::vector<unsigned int>({image.getColumns(), image.getRows(), image.getBytesPerPixel()}));
        }
    }
    // an object and its lossless re-encoding give dumps that compare equal
    out.str("");
    err.str("");
    EXPECT_TRUE(comparator.compareDumps(dir.file("ct.dump.wavelet").c_str(), dir.file("ls.dump.wavelet").c_str()));
    EXPECT_EQ("", out.str() + err.str());
    // the dataset form leaves the caller's dataset as it was
    DcmFileFormat file;
    ASSERT_TRUE(file.loadFile(ct.c_str()).good());
    const unsigned long cardinality = file.getDataset()->card();
    EXPECT_TRUE(comparator.dumpObject(file.getDataset(), dir.file("again").c_str()));
    EXPECT_FALSE(comparator.dumpObject(static_cast<DcmDataset*>(NULL), "x"));
    EXPECT_EQ(cardinality, file.getDataset()->card());
    EXPECT_TRUE(file.getDataset()->tagExists(DCM_PixelData));
    EXPECT_EQ(fixtures::readFile(dir.file("ct.dump.wavelet")), fixtures::readFile(dir.file("again.dump.wavelet")));
}
