#include "dcmutils/codec/JPEG2000LossyRates.h"

#include "tests/fixtures/Fixtures.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string>

namespace {

// Gives the file a modification time of its own, so that a rewrite within one second still
// counts as a change (or, with the same time, does not).
void setModificationTime(const std::string& path, time_t when)
{
    struct timespec times[2];
    times[0].tv_sec = when;
    times[0].tv_nsec = 0;
    times[1] = times[0];
    ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
}

std::string printed(JPEG2000LossyRates& rates)
{
    testing::internal::CaptureStdout();
    rates.print();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}


} // namespace

TEST(JPEG2000LossyRates, ReadsTheDocumentedLineFormatOnly)
{
    struct Case
    {
        std::string content;
        std::vector<std::pair<std::string, double>> rates;
    };
    const Case cases[] = {
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
    for (const Case& c : cases)
    {
        fixtures::TempDir dir;
        const std::string path = dir.file("rates.conf");
        ASSERT_TRUE(fixtures::writeFile(path, c.content));
        JPEG2000LossyRates rates(path.c_str());
        for (const auto& r : c.rates)
            EXPECT_DOUBLE_EQ(r.second, rates.getRateForModality(r.first)) << "[" << r.first << "]";
    }

    fixtures::TempDir dir;
    const std::string path = dir.file("jpeg2000lossy.conf");
    ASSERT_TRUE(fixtures::writeFile(path, "Default=\"0.12\"\nCR=\"1\"\nNM =\"0.35\"\n"));
    JPEG2000LossyRates rates(path.c_str());
    rates.checkAndLoadConfigFile();
    struct stat st;
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_EQ("========= JPEG2000LossyRates - " + path + "[" + std::to_string((unsigned long)st.st_mtime) +
                  "] ===========\n"
                  "--------- Default: 0.120000;        Factory Default: 0.100000\n"
                  "'CR' = '1.000000'\n'Default' = '0.120000'\n'NM ' = '0.350000'\n",
              printed(rates));
}

TEST(JPEG2000LossyRates, ReloadsOnANewModificationTimeAndForgetsADeletedFile)
{
    fixtures::TempDir dir;
    const std::string path = dir.file("jpeg2000lossy.conf");
    const time_t base = time(NULL) - 1000;
    ASSERT_TRUE(fixtures::writeFile(path, "Default=\"0.2\"\nCT=\"0.05\"\nMR=\"0.08\"\n"));
    setModificationTime(path, base);
    JPEG2000LossyRates rates(path.c_str());
    EXPECT_DOUBLE_EQ(0.05, rates.getRateForModality("CT"));
    EXPECT_DOUBLE_EQ(0.08, rates.getRateForModality("MR"));
    EXPECT_DOUBLE_EQ(0.2, rates.getRateForModality("US"));

    // new content, same modification time: not read again
    ASSERT_TRUE(fixtures::writeFile(path, "CT=\"0.5\"\n"));
    setModificationTime(path, base);
    EXPECT_DOUBLE_EQ(0.05, rates.getRateForModality("CT"));

    // touched: read again from scratch (the default goes back to the factory's)
    setModificationTime(path, base + 10);
    EXPECT_DOUBLE_EQ(0.5, rates.getRateForModality("CT"));
    EXPECT_DOUBLE_EQ(0.1, rates.getRateForModality("MR"));
    EXPECT_DOUBLE_EQ(0.1, rates.getRateForModality("US"));

    // deleted after a load: the factory default for all
    ASSERT_TRUE(fixtures::writeFile(path, "Default=\"0.3\"\nCT=\"0.25\"\n"));
    setModificationTime(path, base + 20);
    EXPECT_DOUBLE_EQ(0.25, rates.getRateForModality("CT"));
    ASSERT_EQ(0, unlink(path.c_str()));
    EXPECT_DOUBLE_EQ(0.1, rates.getRateForModality("CT"));
    EXPECT_DOUBLE_EQ(0.1, rates.getRateForModality("US"));
    EXPECT_EQ("========= JPEG2000LossyRates - " + path + "[0] ===========\n"
              "--------- Default: 0.100000;        Factory Default: 0.100000\n"
              "[EMPTY MAP]",
              printed(rates));

    // and it comes back
    ASSERT_TRUE(fixtures::writeFile(path, "CT=\"0.15\"\n"));
    setModificationTime(path, base + 30);
    EXPECT_DOUBLE_EQ(0.15, rates.getRateForModality("CT"));
}
