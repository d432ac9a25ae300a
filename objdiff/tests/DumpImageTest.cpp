// Image dumps read back: the "ICON" layout, files that are not dumps, and dump comparison.
#include "objdiff/DumpImage.h"
#include "objdiff/ObjDiff.h"

#include "tests/fixtures/Fixtures.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

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
    struct Case
    {
        const char* name;
        std::string content;
        bool loaded;
        const char* err;
    };
    const std::vector<Case> cases = {
        {"icon", icon(3, 2, 2, samples), true, ""},
        {"icon with more bytes than it needs", icon(3, 2, 2, samples) + "tail", true, ""},
        {"truncated samples", icon(3, 2, 2, ramp(11)), false, ""},
        {"truncated header", "ICON\x03\0\0\0", false, ""},
        {"a size the file cannot hold", icon(65535, 65535, 65535, samples), false, ""},
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
        EXPECT_EQ(image.isLoaded(), c.loaded);
        EXPECT_EQ(err.str(), c.err);
        if (c.loaded)
        {
            EXPECT_EQ(image.getColumns(), 3u);
            EXPECT_EQ(image.getRows(), 2u);
            EXPECT_EQ(image.getBytesPerPixel(), 2u);
            ASSERT_NE(image.getPixels(), nullptr);
            EXPECT_EQ(memcmp(image.getPixels(), samples.data(), samples.size()), 0);
        }
        else
            EXPECT_EQ(image.getPixels(), nullptr);
    }
    // a file that cannot be opened is no dump, silently
    std::ostringstream err;
    EXPECT_FALSE(DumpImage(dir.file("missing"), err).isLoaded());
    EXPECT_FALSE(DumpImage(dir.path(), err).isLoaded());
    EXPECT_EQ(err.str(), "");
}

TEST(DumpImage, ComparingDumps)
{
    fixtures::TempDir dir;
    struct Case
    {
        const char* name;
        std::string first, second;
        bool equal;
    };
    std::vector<uint8_t> nearly = ramp(64, 3);
    nearly[5] += 1;
    std::vector<uint8_t> wrong = ramp(64, 3);
    std::fill(wrong.begin(), wrong.begin() + 32, 255);
    const std::vector<Case> cases = {
        {"same", icon(8, 8, 1, ramp(64, 3)), icon(8, 8, 1, ramp(64, 3)), true},
        {"one grey level", icon(8, 8, 1, ramp(64, 3)), icon(8, 8, 1, nearly), true},
        {"half wrong", icon(8, 8, 1, ramp(64, 3)), icon(8, 8, 1, wrong), false},
        {"16-bit samples", icon(8, 4, 2, ramp(64, 3)), icon(8, 4, 2, ramp(64, 3)), true},
        {"16-bit samples, half wrong", icon(8, 4, 2, ramp(64, 3)), icon(8, 4, 2, wrong), false},
        // three bytes per pixel: the measure looks at the first third of the samples only
        {"RGB, last third wrong", icon(4, 4, 3, ramp(48, 3)), icon(4, 4, 3, [] { auto v = ramp(48, 3); std::fill(v.begin() + 16, v.end(), 0); return v; }()), true},
        {"RGB, first third wrong", icon(4, 4, 3, ramp(48, 3)), icon(4, 4, 3, [] { auto v = ramp(48, 3); std::fill(v.begin(), v.begin() + 16, 255); return v; }()), false},
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
        EXPECT_EQ(DumpImage(dir.file("a")) == DumpImage(dir.file("b")), c.equal);
    }

    // a dump that cannot be read is not equal to anything, not even another unreadable one
    ASSERT_TRUE(fixtures::writeFile(dir.file("text"), "not a dump"));
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    std::ostringstream out, err;
    comparator.setOutput(out, err);
    const std::string missing = dir.file("missing");
    const std::string text = dir.file("text");
    EXPECT_FALSE(comparator.compareDumps(missing.c_str(), text.c_str()));
    EXPECT_EQ(err.str(), "Unknown image format.\nError reading image dump " + missing + "\nError reading image dump " +
                             text + "\n");
    EXPECT_TRUE(comparator.hadTrouble());
}
