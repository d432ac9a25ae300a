// Reading ignoretags files and matching their rules.
#include "objdiff/IgnoreTags.h"

#include "objdiff/tests/Capture.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dcdeftag.h"

#include <gtest/gtest.h>

#include <string>

TEST(IgnoreTags, ReadsTagsAndPatternsFromFile)
{
    const std::string longLine = "(0008,0018)" + std::string(200, 'x');
    struct Case
    {
        std::string content;
        std::set<DcmTagKey> tags;
        std::set<std::string> patterns;
    };
    const Case cases[] = {
        {"", {}, {}},
        // the first "(" counts, the separator is not examined, duplicates are dropped
        {"(0010,0010) patient name\nignore (00ff,a0b1) then (0008,0020)\n(0008;0030)\n(0010,0010)\n",
         {DCM_PatientName, DcmTagKey(0x00ff, 0xa0b1), DCM_StudyTime},
         {}},
        {"(0009,....) private group\n(....,0011)\n", {}, {"0009....", "....0011"}},
        // upper-case digits make a pattern that matches nothing
        {"(7FE0,0010)\n(0008,001A)\n", {}, {"7FE00010", "0008001A"}},
        // comments, blank and short lines add nothing; a last line without a line end counts
        {"# comment 0010,0010\n\n(0008\n(0008,001\ntext (\n(0020,000d)", {DCM_StudyInstanceUID}, {}},
        // 79 characters fit the line buffer; a longer line is the last one read
        {"(0008,0018)" + std::string(68, 'x') + "\n(0010,0010)\n", {DCM_SOPInstanceUID, DCM_PatientName}, {}},
        {"(0008,0060)\n" + longLine + "\n(0010,0010)\n", {DCM_Modality, DCM_SOPInstanceUID}, {}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.content);
        fixtures::TempDir dir;
        ASSERT_TRUE(fixtures::writeFile(dir.file("ignoretags"), c.content));
        const IgnoreTags rules(dir.file("ignoretags").c_str());
        EXPECT_EQ(c.tags, rules.tags);
        EXPECT_EQ(c.patterns, rules.patterns);
    }
}

TEST(IgnoreTags, MatchesKeysAndDotPatterns)
{
    IgnoreTags rules;
    EXPECT_FALSE(rules.isIgnored(DCM_PatientName)); // nothing by default
    rules.tags.insert(DCM_PatientName);
    for (const char* pattern : {"0009....", "....0011", "7FE00010"})
        rules.patterns.insert(pattern);
    const std::pair<DcmTagKey, bool> cases[] = {
        {DCM_PatientName, true},           {DCM_PatientID, false},
        {DcmTagKey(0x0009, 0x1234), true}, {DcmTagKey(0x0019, 0x1234), false}, {DcmTagKey(0x0090, 0x1234), false},
        {DcmTagKey(0xabcd, 0x0011), true}, {DcmTagKey(0x0008, 0x1011), false}, {DCM_PixelData, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.second, rules.isIgnored(c.first)) << c.first;
}

TEST(IgnoreTags, MissingFileReportedAndEmpty)
{
    fixtures::TempDir dir;
    const std::string path = dir.file("none");
    std::set<DcmTagKey> tags;
    Captured c = capture([&] { tags = IgnoreTags(path.c_str()).tags; });
    EXPECT_EQ("[" + path + "]\n", c.out);
    EXPECT_EQ("Cannot open ignoretags file:" + path + "\n", c.err);
    EXPECT_TRUE(tags.empty());
}
