// applyChanges over damaged objects and KqR files: no crash or hang, one clear error, objects intact.
#include "tests/reliability/ReliabilitySupport.h"

#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dctk.h"

#include <sys/stat.h>

#include <filesystem>
#include <random>
#include <sstream>

using namespace reliability;

namespace {

bool startsWith(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

// The lines of standard error without the toolkit's own log lines ("W: ", "E: " ...).
std::vector<std::string> ownLines(const std::string& err)
{
    std::vector<std::string> lines;
    std::istringstream in(err);
    for (std::string line; std::getline(in, line);)
        if (!(line.size() >= 3 && line[1] == ':' && line[2] == ' ' && std::string("TDIWEF").find(line[0]) != std::string::npos))
            lines.push_back(line);
    return lines;
}

// Empty when standard error is one cause line then the closing line of a failed object (the
// comparator's difference lines and the toolkit's log lines may come before); else what is wrong.
std::string objectFailureReport(const std::string& err, const std::string& path)
{
    const std::vector<std::string> lines = ownLines(err);
    if (lines.empty() || lines.back() + "\n" != failedLine(path))
        return "no closing line";
    const std::string causes[] = {"Error loading " + path + " [",
                                  "Error reading " + path + " [",
                                  "Error applying soft edit changes to " + path + " [",
                                  "Error saving to temp file ",
                                  "Objects differ after applying soft edit changes for " + path + "[",
                                  "Error moving modified file to it's final place for " + path,
                                  "Refusing to edit " + path + ": "};
    int causeLines = 0;
    for (size_t i = 0; i + 1 < lines.size(); ++i)
    {
        const bool cause = std::any_of(std::begin(causes), std::end(causes),
                                       [&](const std::string& prefix) { return startsWith(lines[i], prefix); });
        causeLines += cause;
        if (!cause && !startsWith(lines[i], "! ") && !startsWith(lines[i], "< ") && !startsWith(lines[i], "> ") &&
            !startsWith(lines[i], "Error loading ") && !startsWith(lines[i], "Error reading "))
            return "unexpected line: " + lines[i];
    }
    return causeLines == 1 ? "" : "expected one cause line, found " + std::to_string(causeLines);
}

// True when standard error is the one line refusing a damaged KqR file.
bool kqrRefusal(const std::string& err, const std::string& kqr)
{
    const std::vector<std::string> lines = ownLines(err);
    return lines.size() == 1 &&
           (lines[0] == "Error loading KqR file " + kqr || lines[0] == "Error reading KqR file " + kqr ||
            lines[0] == "Error checking soft edit changes in KqR file " + kqr ||
            startsWith(lines[0], "Refusing the soft edit changes of KqR file " + kqr + ": "));
}

// Runs applyChanges -o on `bytes` as a fresh object in directory and checks the outcome: a
// refusal leaves the object and the KqR file as they were, an acceptance edits the object
// completely. Returns what is wrong, empty when nothing is.
std::string problemOf(const std::string& kqr, const std::string& directory, const std::string& label,
                      const std::string& bytes, int& status, bool damagedKqR)
{
    TempDir::removeTree(directory);
    mkdir(directory.c_str(), 0755);
    const std::string path = directory + "/object", kqrBytes = readFile(kqr);
    writeFile(path, bytes);
    Study expected;
    expected.add("object", bytes);
    const bool loadable = expected.setKqR(kqr);
    const Outcome outcome = applyChanges({"-p", kqr, "-o", path});
    status = outcome.exited ? outcome.status : -1;
    if (status != 0 && status != 1)
        return label + ": " + outcome.describe();
    if (readFile(kqr) != kqrBytes)
        return label + ": the KqR file was changed";
    const std::vector<std::string> left = listDir(directory + "/.tmp");
    if (status == 1)
    {
        const std::string report =
            damagedKqR && kqrRefusal(outcome.err, kqr) ? "" : objectFailureReport(outcome.err, path);
        if (readFile(path) != bytes)
            return label + ": object changed by a failed run";
        if (!report.empty())
            return label + ": " + report + "; stderr: " + outcome.err;
        // only a failed save keeps its temporary file
        if (!left.empty() && outcome.err.find("Error saving to temp file ") == std::string::npos)
            return label + ": temporary file left: " + left[0];
        return "";
    }
    std::string why;
    if (!left.empty())
        return label + ": temporary file left after success: " + left[0];
    if (!loadable) // accepted with changes that cannot be read here: none may have been made
        return damagedKqR && readFile(path) == bytes ? "" : label + ": accepted, but does not load completely here";
    if (expected.check(directory, 0, why) != OBJECT_EDITED)
        return label + ": accepted, but not correctly edited: " + why;
    return "";
}

std::string writeEditKqR(const std::string& path, const char* seriesUID = nullptr, const char* sopUID = nullptr)
{
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Bad^Input");
    writer.setStudyAttribute(DCM_PatientID, "KQ-BAD");
    writer.setStudyAttribute(DCM_StudyDescription, "Edited despite everything");
    if (seriesUID)
    {
        writer.setSeriesAttribute(seriesUID, DCM_SeriesDescription, "Edited series");
        writer.setInstanceAttribute(seriesUID, sopUID, DCM_DerivationDescription, "edited instance");
    }
    return writer.save(path.c_str()).good() ? path : "";
}

// Mutants of a file: truncations at chosen and spread offsets, bytes changed at random places.
std::vector<std::pair<std::string, std::string>> mutants(const std::string& bytes, std::mt19937& random,
                                                         int truncations, int changes)
{
    std::vector<std::pair<std::string, std::string>> out;
    std::vector<size_t> offsets = {0, 1, 127, 128, 131, 132, 133, 140, 144, 200};
    for (int i = 1; i <= truncations; ++i)
        offsets.push_back(bytes.size() * size_t(i) / size_t(truncations + 1));
    offsets.push_back(bytes.size() - 1);
    for (size_t offset : offsets)
        if (offset < bytes.size())
            out.push_back({"truncated at " + std::to_string(offset), bytes.substr(0, offset)});
    for (int i = 0; i < changes; ++i)
    {
        std::string mutant = bytes;
        const int kind = i % 4;
        std::string label = kind == 0 ? "bits flipped" : kind == 1 ? "length made huge" : kind == 2 ? "zeroed" : "random bytes";
        label += " at";
        for (int c = 0, count = 1 + int(random() % 4); c < count; ++c)
        {
            // most of a header's structure lies early in the file: favour the first kilobytes
            const size_t limit = (random() % 2) ? std::min<size_t>(mutant.size(), 2048) : mutant.size();
            const size_t at = 128 + random() % std::max<size_t>(1, limit > 128 ? limit - 128 : 1);
            if (at >= mutant.size())
                continue;
            label += " " + std::to_string(at);
            for (size_t k = 0; k < (kind == 1 ? 4u : 1u) && at + k < mutant.size(); ++k)
            {
                char& b = mutant[at + k];
                b = kind == 0 ? char(b ^ (1 << (random() % 8))) : kind == 1 ? char(0xFF) : kind == 2 ? 0 : char(random() % 256);
            }
        }
        out.push_back({label, mutant});
    }
    return out;
}

// Many runs over damaged input, counted, with what went wrong.
struct Tries
{
    void run(const std::string& kqr, const std::string& directory, const std::string& label, const std::string& bytes,
             bool damagedKqR = false)
    {
        int status = -1;
        const std::string problem = problemOf(kqr, directory, label, bytes, status, damagedKqR);
        if (!problem.empty())
            problems.push_back(problem);
        ++tried;
        accepted += status == 0;
    }
    // Prints the figures; the first problems, empty when there are none.
    std::string report(const char* what) const
    {
        printf("[ figures  ] %s: %d tried, %d accepted, %d refused with a clear error\n", what, tried, accepted,
               tried - accepted);
        std::string text;
        for (size_t i = 0; i < problems.size() && i < 20; ++i)
            text += problems[i] + "\n";
        return text;
    }
    std::vector<std::string> problems;
    int tried = 0, accepted = 0;
};

} // namespace

TEST(BadInput, EveryFileOfTheCorpus)
{
    TempDir root;
    const std::string kqr = writeEditKqR(root.file("KqR.edit"));
    ASSERT_FALSE(kqr.empty());
    Tries tries;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(corpusDir()))
        if (entry.is_regular_file())
            tries.run(kqr, root.file("object"), entry.path(), readFile(entry.path()));
    EXPECT_EQ("", tries.report("corpus"));
    // the corpus holds damaged files; most of it is valid
    EXPECT_GT(tries.tried, 70);
    EXPECT_GT(tries.accepted, 50);
    EXPECT_GT(tries.tried - tries.accepted, 3);
    // a meta header naming another instance than its dataset is rewritten from the dataset, and said
    const std::string plan = root.file("rtplan.dcm");
    ASSERT_TRUE(writeFile(plan, readFile(corpusFile("rtplan.dcm"))));
    const Outcome outcome = applyChanges({"-v", "-p", kqr, "-o", plan});
    EXPECT_NE(std::string::npos, outcome.out.find("Meta header of " + plan + " made consistent with its dataset: "
                                                  "(0002,0003) MediaStorageSOPInstanceUID "))
        << outcome.out;
}

TEST(BadInput, TruncatedAndMutatedObjects)
{
    TempDir root;
    ObjectSpec spec;
    ASSERT_TRUE(writeObject(root.file("generated"), spec));
    // the generated object is also edited at series and instance level
    const std::string kqr = writeEditKqR(root.file("KqR.edit"), spec.seriesUID.c_str(), spec.sopInstanceUID.c_str());
    ASSERT_FALSE(kqr.empty());
    std::vector<std::string> sources = {root.file("generated")};
    for (const char* name : {"CT_small.dcm", "MR_small_bigendian.dcm", "JPEG2000.dcm", "MR_small_RLE.dcm",
                             "image_dfl.dcm", "rtstruct.dcm", "no_meta.dcm"})
        sources.push_back(corpusFile(name));
    std::mt19937 random(77u);
    Tries tries;
    for (const std::string& source : sources)
    {
        const std::string bytes = readFile(source);
        ASSERT_FALSE(bytes.empty()) << source;
        for (const auto& mutant : mutants(bytes, random, trials(10), trials(14)))
            tries.run(kqr, root.file("object"), source + " " + mutant.first, mutant.second);
    }
    EXPECT_EQ("", tries.report("damaged objects"));
    EXPECT_GT(tries.tried - tries.accepted, tries.tried / 3);
}

TEST(BadInput, DamagedKqRFiles)
{
    TempDir root;
    ObjectSpec spec;
    ASSERT_TRUE(writeObject(root.file("original"), spec));
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Kq^R");
    writer.setStudyAttribute(DCM_StudyDescription, "From a damaged KqR file");
    writer.setSeriesAttribute(spec.seriesUID.c_str(), DCM_SeriesDescription, "Series edit");
    writer.setSeriesAttribute("1.2.3.999", DCM_SeriesDescription, "Another series");
    writer.setInstanceAttribute(spec.seriesUID.c_str(), spec.sopInstanceUID.c_str(), DCM_InstanceNumber, "7");
    ASSERT_TRUE(writer.save(root.file("KqR.good").c_str()).good());
    std::mt19937 random(4242u);
    const std::string kqr = root.file("KqR.damaged");
    Tries tries;
    for (const auto& mutant : mutants(readFile(root.file("KqR.good")), random, trials(20), trials(48)))
        if (writeFile(kqr, mutant.second))
            tries.run(kqr, root.file("study"), "KqR " + mutant.first, readFile(root.file("original")), true);
    EXPECT_EQ("", tries.report("damaged KqR files"));
    EXPECT_GT(tries.tried - tries.accepted, trials(10));
}

TEST(BadInput, NestedChangeSequenceOfAnotherVR)
{
    // found by fuzz_kqr: a binary element at the series sequence's tag was taken for a sequence
    TempDir root;
    ObjectSpec spec;
    ASSERT_TRUE(writeObject(root.file("IM1"), spec));
    const std::string original = readFile(root.file("IM1"));
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Damaged^KqR");
    writer.setSeriesAttribute(spec.seriesUID.c_str(), DCM_SeriesDescription, "never applied");
    DcmItem* change = nullptr;
    ASSERT_TRUE(writer.changeItem(change).good());
    const DcmTagKey seriesSequence(0xF215, 0x1063);
    ASSERT_TRUE(change->findAndDeleteElement(seriesSequence).good());
    DcmTag tag(seriesSequence, EVR_OB);
    tag.setPrivateCreator("KQ group A");
    DcmElement* binary = new DcmOtherByteOtherWord(tag);
    const Uint8 bytes[] = {0xFE, 0xFF, 0x00, 0xE0};
    binary->putUint8Array(bytes, 4);
    ASSERT_TRUE(change->insert(binary).good());
    ASSERT_TRUE(writer.save(root.file("KqR.damaged").c_str()).good());
    EXPECT_TRUE(failsWith(applyChanges({"-p", root.file("KqR.damaged"), "-o", root.file("IM1")}),
                          "Error applying soft edit changes to " + root.file("IM1") + " [" +
                              OFCondition(EC_CorruptedData).text() + "]\n" + failedLine(root.file("IM1"))));
    EXPECT_EQ(original, readFile(root.file("IM1")));
}
