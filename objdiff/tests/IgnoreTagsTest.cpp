#include "objdiff/IgnoreTags.h"

#include "objdiff/tests/Capture.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dcdeftag.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Writes content to a fresh ignoretags file and reads it back as rules.
struct RulesFile
{
    fixtures::TempDir dir;
    std::string path;
    explicit RulesFile(const std::string& content) : path(dir.file("ignoretags"))
    {
        fixtures::writeFile(path, content);
    }
};

std::set<std::string> patternsOf(const std::string& content)
{
    RulesFile file(content);
    return IgnoreTags(file.path.c_str()).patterns;
}

} // namespace

TEST(IgnoreTags, DefaultIgnoresNothing)
{
    IgnoreTags rules;
    EXPECT_TRUE(rules.tags.empty());
    EXPECT_TRUE(rules.patterns.empty());
    EXPECT_FALSE(rules.isIgnored(DCM_PatientName));
    EXPECT_FALSE(rules.matchesRegexp(DCM_PixelData));
}

TEST(IgnoreTags, ExactTagsFromFile)
{
    RulesFile file("(0010,0010) patient name\n"
                   "ignore (00ff,a0b1) the first parenthesis counts (0008,0020)\n"
                   "(0008;0030) separator not examined\n"
                   "(0010,0010) duplicate\n");
    IgnoreTags rules(file.path.c_str());
    EXPECT_EQ(rules.tags, (std::set<DcmTagKey>{DCM_PatientName, DcmTagKey(0x00ff, 0xa0b1), DCM_StudyTime}));
    EXPECT_TRUE(rules.patterns.empty());
    EXPECT_TRUE(rules.isIgnored(DCM_PatientName));
    EXPECT_FALSE(rules.isIgnored(DCM_PatientID));
    EXPECT_FALSE(rules.isIgnored(DCM_StudyDate));
}

TEST(IgnoreTags, DotPatterns)
{
    RulesFile file("(0009,....) private group\n(....,0011)\n");
    IgnoreTags rules(file.path.c_str());
    EXPECT_TRUE(rules.tags.empty());
    EXPECT_EQ(rules.patterns, (std::set<std::string>{"0009....", "....0011"}));
    EXPECT_TRUE(rules.matchesRegexp(DcmTagKey(0x0009, 0x1234)));
    EXPECT_TRUE(rules.matchesRegexp(DcmTagKey(0x0009, 0x0000)));
    EXPECT_FALSE(rules.matchesRegexp(DcmTagKey(0x0019, 0x1234)));
    EXPECT_FALSE(rules.matchesRegexp(DcmTagKey(0x0090, 0x1234)));
    EXPECT_TRUE(rules.matchesRegexp(DcmTagKey(0x0008, 0x0011)));
    EXPECT_TRUE(rules.matchesRegexp(DcmTagKey(0xabcd, 0x0011)));
    EXPECT_FALSE(rules.matchesRegexp(DcmTagKey(0x0008, 0x0012)));
    EXPECT_FALSE(rules.matchesRegexp(DcmTagKey(0x0008, 0x1011)));

    IgnoreTags lengths;
    lengths.patterns.insert("....0000");
    EXPECT_TRUE(lengths.isIgnored(DcmTagKey(0x0008, 0x0000)));
    EXPECT_TRUE(lengths.isIgnored(DcmTagKey(0x7fe0, 0x0000)));
    EXPECT_FALSE(lengths.isIgnored(DcmTagKey(0x0008, 0x1000)));
}

TEST(IgnoreTags, UpperCaseHexBecomesPatternMatchingNothing)
{
    RulesFile upper("(7FE0,0010)\n(0008,001A)\n");
    IgnoreTags rules(upper.path.c_str());
    EXPECT_TRUE(rules.tags.empty());
    EXPECT_EQ(rules.patterns, (std::set<std::string>{"7FE00010", "0008001A"}));
    EXPECT_FALSE(rules.isIgnored(DCM_PixelData));
    EXPECT_FALSE(rules.isIgnored(DcmTagKey(0x0008, 0x001a)));

    RulesFile lower("(7fe0,0010)\n");
    IgnoreTags pixel(lower.path.c_str());
    EXPECT_TRUE(pixel.isIgnored(DCM_PixelData));
}

TEST(IgnoreTags, CommentsBlankAndShortLinesAddNothing)
{
    EXPECT_TRUE(patternsOf("").empty());
    RulesFile file("# comment 0010,0010\n"
                   "\n"
                   "(0008\n"
                   "(0008,001\n"
                   "text (\n"
                   "(0020,000d)"); // last line without a line end still counts
    IgnoreTags rules(file.path.c_str());
    EXPECT_TRUE(rules.patterns.empty());
    EXPECT_EQ(rules.tags, (std::set<DcmTagKey>{DCM_StudyInstanceUID}));
}

TEST(IgnoreTags, LongLineEndsReadingWithoutHanging)
{
    // 79 characters of text fit the line buffer: the next line is still read
    const std::string fits = "(0008,0018)" + std::string(79 - 11, 'x');
    RulesFile ok(fits + "\n(0010,0010)\n");
    EXPECT_EQ(IgnoreTags(ok.path.c_str()).tags, (std::set<DcmTagKey>{DCM_SOPInstanceUID, DCM_PatientName}));

    // 80 characters or more fail the stream: reading stops there
    const std::string tooLong = "(0008,0018)" + std::string(200, 'x');
    RulesFile bad("(0008,0060)\n" + tooLong + "\n(0010,0010)\n(0010,0020)\n");
    IgnoreTags rules(bad.path.c_str());
    EXPECT_EQ(rules.tags.count(DCM_Modality), 1u);
    EXPECT_EQ(rules.tags.count(DCM_PatientName), 0u);
    EXPECT_EQ(rules.tags.count(DCM_PatientID), 0u);
}

TEST(IgnoreTags, MissingFileReportedAndEmpty)
{
    fixtures::TempDir dir;
    const std::string path = dir.file("none");
    IgnoreTags* rules = NULL;
    Captured c = capture([&] { rules = new IgnoreTags(path.c_str()); });
    EXPECT_EQ(c.out, "[" + path + "]\n");
    EXPECT_EQ(c.err, "Cannot open ignoretags file:" + path + "\n");
    EXPECT_TRUE(rules->tags.empty());
    EXPECT_TRUE(rules->patterns.empty());
    delete rules;
}
