// applyChanges over damaged input: every file of the pydicom corpus (including its truncated and
// malformed objects and files that are no DICOM at all), objects truncated at many offsets and
// with bytes changed, and damaged KqR files. The program never crashes or hangs (exit status 0
// or 1, no signal), a failure is one clear line of its own followed by its closing line, and an
// object it fails on stays byte-identical; an object it accepts is completely and correctly
// edited.
#include "tests/reliability/ReliabilitySupport.h"

#include "tests/fixtures/Fixtures.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>
#include <sstream>

using namespace reliability;

namespace {

bool startsWith(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

// Empty when standard error is the driver's report of a failed object: exactly one line naming
// the cause, then "Applying soft edit changes to object failed: <path>"; the comparator's
// difference lines and the toolkit's log lines may come before. Otherwise what is wrong.
std::string objectFailureReport(const std::string& err, const std::string& path)
{
    const std::vector<std::string> lines = linesOf(withoutToolkitLog(err));
    if (lines.empty() || lines.back() != "Applying soft edit changes to object failed: " + path)
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
        const std::string& line = lines[i];
        bool cause = false;
        for (const std::string& prefix : causes)
            cause = cause || startsWith(line, prefix);
        if (cause)
            ++causeLines;
        else if (!startsWith(line, "! ") && !startsWith(line, "< ") && !startsWith(line, "> ") &&
                 !startsWith(line, "Error loading ") && !startsWith(line, "Error reading "))
            return "unexpected line: " + line;
    }
    return causeLines == 1 ? "" : "expected one cause line, found " + std::to_string(causeLines);
}

// Runs applyChanges -o on `bytes` as a fresh object and checks the outcome; returns problems.
class ObjectTrial
{
public:
    ObjectTrial(const std::string& kqr, const std::string& directory)
        : m_kqr(kqr)
        , m_directory(directory)
    {
    }

    std::string run(const std::string& label, const std::string& bytes, int& status)
    {
        removeTree(m_directory);
        mkdir(m_directory.c_str(), 0755);
        const std::string path = m_directory + "/object";
        fixtures::writeFile(path, bytes);
        Study expected;
        expected.add("object", bytes);
        const bool loadable = expected.setKqR(m_kqr);

        const Outcome outcome = applyChanges({"-p", m_kqr, "-o", path});
        status = outcome.exited ? outcome.status : -1;
        if (!outcome.exited || (outcome.status != 0 && outcome.status != 1))
            return label + ": " + outcome.describe();
        const std::vector<std::string> left = fixtures::listDir(m_directory + "/.tmp");
        if (outcome.status == 1)
        {
            if (fixtures::readFile(path) != bytes)
                return label + ": object changed by a failed run";
            const std::string report = objectFailureReport(outcome.err, path);
            if (!report.empty())
                return label + ": " + report + "; stderr: " + outcome.err;
            // only a failed save keeps its temporary file
            if (!left.empty() && outcome.err.find("Error saving to temp file ") == std::string::npos)
                return label + ": temporary file left: " + left[0];
            return "";
        }
        if (!left.empty())
            return label + ": temporary file left after success: " + left[0];
        if (!loadable)
            return label + ": accepted, but does not load completely here";
        std::string why;
        if (expected.check(m_directory, 0, why) != OBJECT_EDITED)
            return label + ": accepted, but not correctly edited: " + why;
        return "";
    }

private:
    std::string m_kqr;
    std::string m_directory;
};

std::string writeEditKqR(const std::string& path, const char* seriesUID = nullptr, const char* sopUID = nullptr)
{
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Bad^Input");
    writer.setStudyAttribute(DCM_PatientID, "KQ-BAD");
    writer.setStudyAttribute(DCM_StudyDescription, "Edited despite everything");
    if (seriesUID)
    {
        writer.setSeriesAttribute(seriesUID, DCM_SeriesDescription, "Edited series");
        if (sopUID)
            writer.setInstanceAttribute(seriesUID, sopUID, DCM_DerivationDescription, "edited instance");
    }
    return writer.save(path.c_str()).good() ? path : "";
}

void collectFiles(const std::string& directory, std::vector<std::string>& files)
{
    for (const std::string& name : fixtures::listDir(directory))
    {
        const std::string path = directory + "/" + name;
        struct stat st;
        if (stat(path.c_str(), &st) != 0)
            continue;
        if (S_ISDIR(st.st_mode))
            collectFiles(path, files);
        else if (S_ISREG(st.st_mode))
            files.push_back(path);
    }
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
        std::ostringstream label;
        const int kind = i % 4;
        const int count = 1 + int(random() % 4);
        label << (kind == 0 ? "bits flipped" : kind == 1 ? "length made huge" : kind == 2 ? "zeroed" : "random bytes")
              << " at";
        for (int c = 0; c < count; ++c)
        {
            // most of a header's structure lies early in the file: favour the first kilobytes
            const size_t limit = (random() % 2) ? std::min<size_t>(mutant.size(), 2048) : mutant.size();
            const size_t at = 128 + random() % std::max<size_t>(1, limit > 128 ? limit - 128 : 1);
            if (at >= mutant.size())
                continue;
            label << " " << at;
            for (size_t k = 0; k < (kind == 1 ? 4u : 1u) && at + k < mutant.size(); ++k)
            {
                char& b = mutant[at + k];
                switch (kind)
                {
                case 0: b = char(b ^ (1 << (random() % 8))); break;
                case 1: b = char(0xFF); break;
                case 2: b = 0; break;
                default: b = char(random() % 256); break;
                }
            }
        }
        out.push_back({label.str(), mutant});
    }
    return out;
}

std::string summary(const std::vector<std::string>& problems)
{
    std::string text;
    for (size_t i = 0; i < problems.size() && i < 20; ++i)
        text += problems[i] + "\n";
    return text;
}

} // namespace

TEST(BadInput, EveryFileOfTheCorpus)
{
    fixtures::TempDir root;
    const std::string kqr = writeEditKqR(root.file("KqR.edit"));
    ASSERT_FALSE(kqr.empty());
    std::vector<std::string> files;
    collectFiles(fixtures::corpusDir(), files);
    ASSERT_GT(files.size(), 70u);

    ObjectTrial trial(kqr, root.file("object"));
    std::vector<std::string> problems;
    int accepted = 0, refused = 0;
    for (const std::string& file : files)
    {
        int status = -1;
        const std::string problem = trial.run(file, fixtures::readFile(file), status);
        if (!problem.empty())
            problems.push_back(problem);
        (status == 0 ? accepted : refused)++;
    }
    printf("[ figures  ] corpus: %d files, %d edited, %d refused with a clear error\n", int(files.size()), accepted,
           refused);
    EXPECT_TRUE(problems.empty()) << summary(problems);
    // the corpus holds damaged files; most of it is valid
    EXPECT_GT(accepted, 50);
    EXPECT_GT(refused, 3);
}

TEST(BadInput, TruncatedAndMutatedObjects)
{
    fixtures::TempDir root;
    fixtures::ObjectSpec spec;
    ASSERT_TRUE(fixtures::writeObject(root.file("generated"), spec));
    // the generated object is also edited at series and instance level
    const std::string kqr =
        writeEditKqR(root.file("KqR.edit"), spec.seriesUID.c_str(), spec.sopInstanceUID.c_str());
    ASSERT_FALSE(kqr.empty());
    const std::vector<std::string> sources = {
        root.file("generated"),
        fixtures::corpusFile("CT_small.dcm"),
        fixtures::corpusFile("MR_small_bigendian.dcm"),
        fixtures::corpusFile("MR_small_implicit.dcm"),
        fixtures::corpusFile("JPEG2000.dcm"),
        fixtures::corpusFile("MR_small_RLE.dcm"),
        fixtures::corpusFile("image_dfl.dcm"),
        fixtures::corpusFile("test-SR.dcm"),
        fixtures::corpusFile("rtstruct.dcm"),
        fixtures::corpusFile("no_meta.dcm"),
    };

    std::mt19937 random(77u);
    ObjectTrial trial(kqr, root.file("object"));
    std::vector<std::string> problems;
    int tried = 0, accepted = 0, refused = 0;
    for (const std::string& source : sources)
    {
        const std::string bytes = fixtures::readFile(source);
        ASSERT_FALSE(bytes.empty()) << source;
        for (const auto& mutant : mutants(bytes, random, trials(14), trials(18)))
        {
            int status = -1;
            const std::string problem = trial.run(source + " " + mutant.first, mutant.second, status);
            if (!problem.empty())
                problems.push_back(problem);
            ++tried;
            (status == 0 ? accepted : refused)++;
        }
    }
    printf("[ figures  ] damaged objects: %d tried, %d edited, %d refused with a clear error\n", tried, accepted,
           refused);
    EXPECT_TRUE(problems.empty()) << summary(problems);
    EXPECT_GT(refused, tried / 3);
}

TEST(BadInput, DamagedKqRFiles)
{
    fixtures::TempDir root;
    fixtures::ObjectSpec spec;
    ASSERT_TRUE(fixtures::writeObject(root.file("original"), spec));
    const std::string original = fixtures::readFile(root.file("original"));
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Kq^R");
    writer.setStudyAttribute(DCM_StudyDescription, "From a damaged KqR file");
    writer.setSeriesAttribute(spec.seriesUID.c_str(), DCM_SeriesDescription, "Series edit");
    writer.setSeriesAttribute("1.2.3.999", DCM_SeriesDescription, "Another series");
    writer.setInstanceAttribute(spec.seriesUID.c_str(), spec.sopInstanceUID.c_str(), DCM_InstanceNumber, "7");
    ASSERT_TRUE(writer.save(root.file("KqR.good").c_str()).good());
    const std::string kqrBytes = fixtures::readFile(root.file("KqR.good"));

    std::mt19937 random(4242u);
    const std::string object = root.file("study/object");
    const std::string kqr = root.file("KqR.damaged");
    std::vector<std::string> problems;
    int tried = 0, accepted = 0, refused = 0;
    for (const auto& mutant : mutants(kqrBytes, random, trials(20), trials(48)))
    {
        const std::string label = "KqR " + mutant.first;
        removeTree(root.file("study"));
        mkdir(root.file("study").c_str(), 0755);
        fixtures::writeFile(object, original);
        fixtures::writeFile(kqr, mutant.second);
        const Outcome outcome = applyChanges({"-p", kqr, "-o", object});
        ++tried;
        if (!outcome.exited || (outcome.status != 0 && outcome.status != 1))
        {
            problems.push_back(label + ": " + outcome.describe());
            continue;
        }
        if (fixtures::readFile(kqr) != mutant.second)
            problems.push_back(label + ": the KqR file was changed");
        if (outcome.status == 1)
        {
            ++refused;
            if (fixtures::readFile(object) != original)
                problems.push_back(label + ": object changed by a failed run");
            const std::string err = withoutToolkitLog(outcome.err);
            const bool kqrError = err == "Error loading KqR file " + kqr + "\n" ||
                                  err == "Error reading KqR file " + kqr + "\n" ||
                                  err == "Error checking soft edit changes in KqR file " + kqr + "\n" ||
                                  (startsWith(err, "Refusing the soft edit changes of KqR file " + kqr + ": ") &&
                                   linesOf(err).size() == 1);
            if (!kqrError && !objectFailureReport(outcome.err, object).empty())
                problems.push_back(label + ": unclear error: " + outcome.err);
            continue;
        }
        ++accepted;
        // accepted: the object is whole, with its transfer syntax and pixel data as they were
        DcmFileFormat before, after;
        before.loadFile(root.file("original").c_str());
        if (after.loadFile(object.c_str()).bad() || after.loadAllDataIntoMemory().bad())
        {
            problems.push_back(label + ": accepted, but the object no longer loads");
            continue;
        }
        const Uint8* pixelsBefore = nullptr;
        const Uint8* pixelsAfter = nullptr;
        unsigned long countBefore = 0, countAfter = 0;
        before.getDataset()->findAndGetUint8Array(DCM_PixelData, pixelsBefore, &countBefore);
        after.getDataset()->findAndGetUint8Array(DCM_PixelData, pixelsAfter, &countAfter);
        if (countBefore != countAfter || !pixelsAfter || memcmp(pixelsBefore, pixelsAfter, countBefore) != 0 ||
            after.getDataset()->getOriginalXfer() != before.getDataset()->getOriginalXfer())
            problems.push_back(label + ": accepted, but pixel data or transfer syntax changed");
        if (!fixtures::listDir(root.file("study/.tmp")).empty())
            problems.push_back(label + ": temporary file left after success");
    }
    printf("[ figures  ] damaged KqR files: %d tried, %d applied, %d refused with a clear error\n", tried, accepted,
           refused);
    EXPECT_TRUE(problems.empty()) << summary(problems);
    EXPECT_GT(refused, trials(10));
}

TEST(BadInput, NestedChangeSequenceOfAnotherVR)
{
    // found by fuzz_kqr: a damaged KqR file whose series sequence tag holds a binary element
    // crashed the program, which took the element for a sequence
    fixtures::TempDir root;
    fixtures::ObjectSpec spec;
    ASSERT_TRUE(fixtures::writeObject(root.file("IM1"), spec));
    const std::string original = fixtures::readFile(root.file("IM1"));
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

    const Outcome outcome = applyChanges({"-p", root.file("KqR.damaged"), "-o", root.file("IM1")});
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome.describe();
    EXPECT_EQ("Error applying soft edit changes to " + root.file("IM1") + " [" + OFCondition(EC_CorruptedData).text() +
                  "]\nApplying soft edit changes to object failed: " + root.file("IM1") + "\n",
              outcome.err);
    EXPECT_EQ(original, fixtures::readFile(root.file("IM1")));
}
