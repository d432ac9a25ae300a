// Decoded frames: the frame memories, the frame comparison's verdicts and lines, the peak-error
// measure, and what the comparison does to (and keeps of) the objects.
#include "objdiff/CompareImageData.h"
#include "objdiff/LocalObjDiffMemory.h"
#include "objdiff/MemoryBlock.h"
#include "objdiff/ObjDiff.h"
#include "objdiff/ObjDiffProcess.h"
#include "objdiff/RemoteObjDiffMemory.h"

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
                  const char *out, *err; bool firstMissing = false; }; // the first block never allocated
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
    const unsigned short a[] = {100, 0};
    const unsigned short b[] = {90, 0};
    EXPECT_NEAR(compareImageData(a, b, 2), 83.01029995663981, 1e-12);
    const unsigned char c[] = {200, 50, 0};
    const unsigned char d[] = {100, 50, 0};
    EXPECT_NEAR(compareImageData(c, d, 3), 28.85361220031512, 1e-12);
    // the peak is the first image's: an all-black first image against anything else
    EXPECT_EQ(compareImageData(d + 2, c, 1), -std::numeric_limits<double>::infinity());
    // 16-bit extremes stay finite
    const unsigned short top[] = {65535};
    const unsigned short bottom[] = {0};
    EXPECT_NEAR(compareImageData(top, bottom, 1), 0.0, 1e-12);
    // identical samples, even all zero, are equal; nothing at all is not
    EXPECT_EQ(compareImageData(bottom, bottom, 1), std::numeric_limits<double>::infinity());
    EXPECT_EQ(compareImageData(a, a, 2), std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(compareImageData(a, b, 0)));
}

TEST(FrameComparison, ObjectsAndTheirFrames)
{
    // frames of different sizes: found before any sample is read
    {
        fixtures::ObjectSpec narrow;
        narrow.bitsAllocated = 8;
        std::unique_ptr<DcmFileFormat> a(fixtures::makeObject(narrow));
        std::unique_ptr<DcmFileFormat> b(fixtures::makeObject(fixtures::ObjectSpec()));
        IgnoreTags rules;
        for (const DcmTagKey& key : {DCM_BitsAllocated, DCM_BitsStored, DCM_HighBit})
            rules.tags.insert(key);
        ObjectComparator comparator(rules);
        std::ostringstream out, err;
        comparator.setOutput(out, err);
        EXPECT_FALSE(comparator.compareObjects(a->getDataset(), b->getDataset(), OC_MODE_FRAMES));
        EXPECT_EQ(err.str(), "Frame length differs (64 != 128\n! Image frame 1 differs\n");
        EXPECT_EQ(out.str(), "");
        EXPECT_FALSE(comparator.hadTrouble());
    }

    // pixel data that cannot be decoded (no rows) in either object
    for (int broken = 0; broken < 2; ++broken)
    {
        std::unique_ptr<DcmFileFormat> a(fixtures::makeObject(fixtures::ObjectSpec()));
        std::unique_ptr<DcmFileFormat> b(fixtures::makeObject(fixtures::ObjectSpec()));
        IgnoreTags rules;
        rules.tags.insert(DCM_Rows);
        (broken == 0 ? a : b)->getDataset()->putAndInsertUint16(DCM_Rows, 0);
        ObjectComparator comparator(rules);
        std::ostringstream out, err;
        comparator.setOutput(out, err);
        bool equal = true;
        fixtures::capture([&] { equal = comparator.compareObjects(a->getDataset(), b->getDataset(), OC_MODE_FRAMES); });
        EXPECT_FALSE(equal);
        EXPECT_EQ(err.str(), broken == 0 ? "Error processing first DICOM object\n"
                                               : "Error processing second DICOM object\n");
        EXPECT_TRUE(comparator.hadTrouble());
    }

    // the caller's datasets keep their pixel data, also when it is still in the file
    {
        fixtures::TempDir dir;
        fixtures::ObjectSpec spec;
        spec.rows = spec.columns = 128;
        ASSERT_TRUE(fixtures::writeObject(dir.file("a"), spec));
        std::unique_ptr<DcmFileFormat> a(new DcmFileFormat());
        ASSERT_TRUE(a->loadFile(dir.file("a").c_str(), EXS_Unknown, EGL_noChange, 4096).good());
        std::unique_ptr<DcmFileFormat> b(fixtures::makeObject(spec));
        const unsigned long cardinality = a->getDataset()->card();
        IgnoreTags rules;
        ObjectComparator comparator(rules);
        EXPECT_TRUE(comparator.compareObjects(a->getDataset(), b->getDataset(), OC_MODE_FRAMES));
        EXPECT_TRUE(a->getDataset()->tagExists(DCM_PixelData));
        EXPECT_TRUE(b->getDataset()->tagExists(DCM_PixelData));
        EXPECT_EQ(a->getDataset()->card(), cardinality);
        EXPECT_EQ(b->getDataset()->card(), cardinality);
        DcmElement* inFile = NULL;
        ASSERT_TRUE(a->getDataset()->findAndGetElement(DCM_PixelData, inFile).good());
        EXPECT_FALSE(inFile->valueLoaded()); // the copy read it from the file
    }
}

TEST(FrameComparison, FramesKeepTheStoredSamples)
{
    // signed MONOCHROME1 samples are neither offset nor inverted for the comparison
    std::unique_ptr<DcmFileFormat> object(fixtures::makeObject(fixtures::ObjectSpec()));
    DcmDataset* dataset = object->getDataset();
    dataset->putAndInsertString(DCM_PhotometricInterpretation, "MONOCHROME1");
    dataset->putAndInsertUint16(DCM_PixelRepresentation, 1);
    DcmElement* pixels = NULL;
    const Uint8* stored = NULL;
    ASSERT_TRUE(dataset->findAndGetElement(DCM_PixelData, pixels).good());
    ASSERT_TRUE(dataset->findAndGetUint8Array(DCM_PixelData, stored).good());
    const std::vector<Uint8> before(stored, stored + pixels->getLength());

    ObjDiffProcess process(dataset, false);
    ASSERT_EQ(process.process(), 0);
    ASSERT_EQ(process.getFrames().size(), 1u);
    const MemoryBlock* frame = process.getFrames().at(1);
    ASSERT_EQ(frame->getLength(), before.size());
    EXPECT_EQ(memcmp(frame->getData(), before.data(), before.size()), 0);
    EXPECT_FALSE(dataset->tagExists(DCM_PixelData)); // the process takes it out of its dataset
}
