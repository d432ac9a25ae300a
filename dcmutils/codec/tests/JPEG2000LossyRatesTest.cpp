#include "dcmutils/codec/JPEG2000LossyRates.h"

#include "tests/fixtures/Fixtures.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <ctime>
#include <string>

TEST(JPEG2000LossyRates, ReadsTheDocumentedLineFormatOnly)
{
    // file content, rates expected by modality
    const std::pair<std::string, std::vector<std::pair<std::string, double>>> cases[] = {
        {"# per-modality JPEG 2000 rates\n\n   \t\n"
         "Default=\"0.12\"\n"
         "CT = \"0.2\"\n"  // blanks around '=': ignored
         "MR= \"0.3\"\n"   // blank after '=': ignored
         "NM =\"0.35\"\n"  // the key keeps its blank: "NM "
         "US=\"1.5\"\nXA=\"0\"\nDX=\"-0.5\"\n" // out of range
         "CR=\"1\"\n"      // lossless
         "  PT=\"0.04\"\n" // leading blanks are fine
         "  # indented comment=\"0.5\"\n"
         "OT=0.5\nSC=\"abc\"\n" // no quotes, not a number
         "MG=\"0.07\"\nMG=\"0.09\"\n" // the later line wins
         "ct=\"0.06\"\n",
         {{"CT", 0.12}, {"MR", 0.12}, {"NM", 0.12}, {"NM ", 0.35}, {"US", 0.12}, {"XA", 0.12}, {"DX", 0.12},
          {"CR", 1.0}, {"PT", 0.04}, {"OT", 0.12}, {"SC", 0.12}, {"MG", 0.09}, {"ct", 0.06}, {"Ct", 0.12}}},
        // no "Default" line: the factory default
        {"CT = \"0.2\"\nCT=\"0.2\"\n", {{"CT", 0.2}, {"MR", 0.1}, {"Default", 0.1}}},
        // a line is at most 255 characters: a longer one is read in pieces
        {std::string(300, 'K') + "=\"0.5\"\nCT=\"0.3\"\n" + std::string(255, 'x') + "MR=\"0.4\"\n",
         {{"CT", 0.3}, {std::string(45, 'K'), 0.5}, {"MR", 0.4}}},
    };
    for (const auto& c : cases)
    {
        fixtures::TempDir dir;
        const std::string path = dir.file("rates.conf");
        ASSERT_TRUE(fixtures::writeFile(path, c.first));
        JPEG2000LossyRates rates(path.c_str());
        for (const auto& r : c.second)
            EXPECT_DOUBLE_EQ(r.second, rates.getRateForModality(r.first)) << "[" << r.first << "]";
    }
}

TEST(JPEG2000LossyRates, ReloadsOnANewModificationTimeAndForgetsADeletedFile)
{
    fixtures::TempDir dir;
    const std::string path = dir.file("jpeg2000lossy.conf");
    const time_t base = time(NULL) - 1000;
    JPEG2000LossyRates rates(path.c_str());
    // content written (none: deleted) with a modification time, the rates for CT, MR, US, the map printed
    const struct
    {
        const char* content;
        int time;
        double ct, mr, us;
        const char* printed;
    } steps[] = {
        {"Default=\"0.2\"\nCT=\"0.05\"\nMR=\"0.08\"\n", 0, 0.05, 0.08, 0.2, nullptr},
        {"CT=\"0.5\"\n", 0, 0.05, 0.08, 0.2, nullptr}, // new content, same time: not read again
        {"CT=\"0.5\"\n", 10, 0.5, 0.1, 0.1, nullptr},  // touched: read again from scratch
        {"Default=\"0.3\"\nCT=\"0.25\"\n", 20, 0.25, 0.3, 0.3,
         "--------- Default: 0.300000;        Factory Default: 0.100000\n'CT' = '0.250000'\n'Default' = '0.300000'\n"},
        // deleted after a load: the factory default for all
        {nullptr, 0, 0.1, 0.1, 0.1, "--------- Default: 0.100000;        Factory Default: 0.100000\n[EMPTY MAP]"},
        {"CT=\"0.15\"\n", 30, 0.15, 0.1, 0.1, nullptr}, // and it comes back
    };
    for (const auto& step : steps)
    {
        SCOPED_TRACE(&step - steps);
        // a modification time of the file's own: a rewrite within one second can count as a change
        const struct timespec times[2] = {{base + step.time, 0}, {base + step.time, 0}};
        ASSERT_TRUE(step.content ? fixtures::writeFile(path, step.content) &&
                                       utimensat(AT_FDCWD, path.c_str(), times, 0) == 0
                                 : unlink(path.c_str()) == 0);
        EXPECT_DOUBLE_EQ(step.ct, rates.getRateForModality("CT"));
        EXPECT_DOUBLE_EQ(step.mr, rates.getRateForModality("MR"));
        EXPECT_DOUBLE_EQ(step.us, rates.getRateForModality("US"));
        const std::string time = std::to_string(step.content ? (unsigned long)(base + step.time) : 0ul);
        const std::string out = fixtures::capture([&] { rates.print(); fflush(stdout); }).out;
        const std::string header = "========= JPEG2000LossyRates - " + path + "[" + time + "] ===========\n";
        EXPECT_TRUE(!step.printed || out == header + step.printed) << out;
    }
}
