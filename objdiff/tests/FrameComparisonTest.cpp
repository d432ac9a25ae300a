// Decoded frames: the comparison's verdicts and lines, the peak-error measure, and the objects kept.
#include "objdiff/CompareImageData.h"
#include "objdiff/MemoryBlock.h"
#include "objdiff/ObjDiff.h"
#include "objdiff/ObjDiffProcess.h"
#include "objdiff/ObjDiffRawImage.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <sstream>

namespace {

// 0, 1, ..., 4095 as 16-bit samples (a 12-bit ramp), with change applied.
std::vector<Uint8> ramp12(void (*change)(std::vector<Uint16>&) = nullptr)
{
    std::vector<Uint16> values(4096);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = Uint16(i);
    if (change)
        change(values);
    const Uint8* bytes = reinterpret_cast<const Uint8*>(values.data());
    return std::vector<Uint8>(bytes, bytes + 2 * values.size());
}

void fill(MemoryBlock& block, const std::vector<Uint8>& bytes)
{
    char* data = block.allocate(bytes.size());
    ASSERT_NE(data, nullptr);
    if (!bytes.empty())
        memcpy(data, bytes.data(), bytes.size());
}

} // namespace

TEST(FrameComparison, MemoryBlockVerdictsAndLines)
{
    const char* const DIFFERS = "! Pixel Data differs\n";
    struct Case { const char* name; std::vector<Uint8> first, second; bool lossless, wide, equal;
                  const char *out, *err; bool firstMissing = false; }; // firstMissing: never allocated
    const std::vector<Case> cases = {
        {"identical, lossless", {1, 2, 3, 4}, {1, 2, 3, 4}, true, false, true, "", ""},
        {"one byte, lossless", {1, 2, 3, 4}, {1, 2, 3, 5}, true, false, false, DIFFERS, ""},
        {"lengths", {1, 2, 3, 4}, {1, 2, 3, 4, 5, 6}, true, true, false, "", "Frame length differs (4 != 6\n"},
        {"identical, lossy", ramp12(), ramp12(), false, true, true, "", ""},
        {"one grey level in a few 12-bit samples", ramp12(),
         ramp12([](std::vector<Uint16>& v) { v[7] += 1; v[300] -= 1; v[4000] += 1; }), false, true, true, "", ""},
        {"the top quarter wrong", ramp12(),
         ramp12([](std::vector<Uint16>& v) { std::fill(v.begin() + 3072, v.end(), 0); }), false, true, false,
         DIFFERS, ""},
        {"bytes, lossy", {200, 100, 50, 0}, {198, 101, 50, 0}, false, false, true, "", ""},
        {"bytes read as words would differ", {200, 0, 0, 0}, {0, 0, 0, 0}, false, false, false, DIFFERS, ""},
        {"empty frames, lossless", {}, {}, true, false, true, "", ""},
        {"empty frames, lossy", {}, {}, false, true, false, DIFFERS, ""},
        {"no data", {}, {}, true, false, true, "", "ERROR: frame data is null \n", true},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        MemoryBlock first, second;
        if (!c.firstMissing)
            fill(first, c.first);
        fill(second, c.second);
        IgnoreTags rules;
        ObjectComparator comparator(rules);
        std::ostringstream out, err;
        comparator.setOutput(out, err);
        EXPECT_EQ(comparator.compareMemoryBlocks(&first, &second, c.lossless, c.wide), c.equal);
        EXPECT_EQ(out.str(), c.out);
        EXPECT_EQ(err.str(), c.err);
    }
}

TEST(FrameComparison, PeakErrorMeasure)
{
    const unsigned short a[] = {100, 0}, b[] = {90, 0}, top[] = {65535}, bottom[] = {0};
    const unsigned char c[] = {200, 50, 0}, d[] = {100, 50, 0};
    EXPECT_NEAR(compareImageData(a, b, 2), 83.01029995663981, 1e-12);
    EXPECT_NEAR(compareImageData(c, d, 3), 28.85361220031512, 1e-12);
    // the peak is the first image's: an all-black first image against anything else
    EXPECT_EQ(compareImageData(d + 2, c, 1), -std::numeric_limits<double>::infinity());
    EXPECT_NEAR(compareImageData(top, bottom, 1), 0.0, 1e-12); // 16-bit extremes stay finite
    // identical samples, even all zero, are equal; nothing at all is not
    EXPECT_EQ(compareImageData(bottom, bottom, 1), std::numeric_limits<double>::infinity());
    EXPECT_EQ(compareImageData(a, a, 2), std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(compareImageData(a, b, 0)));
}

TEST(FrameComparison, ObjectsAndTheirStoredSamples)
{
    // frames of different sizes (found before any sample is read); pixel data that cannot be decoded
    struct Case { const char* name; std::vector<DcmTagKey> ignored; unsigned short bits, rows; const char* err;
                  bool trouble; };
    const Case cases[] = {
        {"sizes", {DCM_BitsAllocated, DCM_BitsStored, DCM_HighBit}, 8, 8,
         "Frame length differs (64 != 128\n! Image frame 1 differs\n", false},
        {"no rows", {DCM_Rows}, 16, 0, "Error processing first DICOM object\n", true},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        fixtures::ObjectSpec spec;
        spec.bitsAllocated = c.bits;
        std::unique_ptr<DcmFileFormat> a(fixtures::makeObject(spec)), b(fixtures::makeObject(fixtures::ObjectSpec()));
        a->getDataset()->putAndInsertUint16(DCM_Rows, c.rows);
        IgnoreTags rules;
        rules.tags.insert(c.ignored.begin(), c.ignored.end());
        ObjectComparator comparator(rules);
        std::ostringstream out, err;
        comparator.setOutput(out, err);
        bool equal = true;
        fixtures::capture([&] { equal = comparator.compareObjects(a->getDataset(), b->getDataset(), OC_MODE_FRAMES); });
        EXPECT_FALSE(equal);
        EXPECT_EQ(err.str(), c.err);
        EXPECT_EQ(out.str(), "");
        EXPECT_EQ(comparator.hadTrouble(), c.trouble);
    }
    // the caller's datasets keep their pixel data, also when it is still in the file
    fixtures::TempDir dir;
    fixtures::ObjectSpec spec;
    spec.rows = spec.columns = 128;
    ASSERT_TRUE(fixtures::writeObject(dir.file("a"), spec));
    std::unique_ptr<DcmFileFormat> a(new DcmFileFormat()), b(fixtures::makeObject(spec));
    ASSERT_TRUE(a->loadFile(dir.file("a").c_str(), EXS_Unknown, EGL_noChange, 4096).good());
    const unsigned long cardinality = a->getDataset()->card();
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    EXPECT_TRUE(comparator.compareObjects(a->getDataset(), b->getDataset(), OC_MODE_FRAMES));
    EXPECT_EQ(a->getDataset()->card(), cardinality);
    EXPECT_EQ(b->getDataset()->card(), cardinality);
    DcmElement* inFile = NULL;
    ASSERT_TRUE(a->getDataset()->findAndGetElement(DCM_PixelData, inFile).good() &&
                b->getDataset()->tagExists(DCM_PixelData));
    EXPECT_FALSE(inFile->valueLoaded()); // the copy read it from the file

    // signed MONOCHROME1 samples are neither offset nor inverted for the comparison
    b.reset(fixtures::makeObject(fixtures::ObjectSpec()));
    DcmDataset* dataset = b->getDataset();
    dataset->putAndInsertString(DCM_PhotometricInterpretation, "MONOCHROME1");
    dataset->putAndInsertUint16(DCM_PixelRepresentation, 1);
    DcmElement* pixels = NULL;
    const Uint8* stored = NULL;
    ASSERT_TRUE(dataset->findAndGetElement(DCM_PixelData, pixels).good() &&
                dataset->findAndGetUint8Array(DCM_PixelData, stored).good());
    const std::vector<Uint8> before(stored, stored + pixels->getLength());
    ObjDiffProcess process(dataset, false);
    ASSERT_EQ(process.process(), 0);
    ASSERT_EQ(process.getFrames().size(), 1u);
    const MemoryBlock* frame = process.getFrames().at(1);
    ASSERT_EQ(frame->getLength(), before.size());
    EXPECT_EQ(memcmp(frame->getData(), before.data(), before.size()), 0);
    EXPECT_FALSE(dataset->tagExists(DCM_PixelData)); // the process takes it out of its dataset
    // an image without samples, or without a file, writes no dump
    ObjDiffRawImage empty(&process, 1);
    FILE* devNull = fopen("/dev/null", "wb");
    EXPECT_FALSE(empty.writeWavelet(devNull));
    EXPECT_FALSE(empty.writeWavelet(nullptr));
    fclose(devNull);
}
