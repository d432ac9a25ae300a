#include "objdiff/ObjDiff.h"

#include "objdiff/tests/Capture.h"
#include "tests/fixtures/Fixtures.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

std::unique_ptr<DcmFileFormat> object(const fixtures::ObjectSpec& spec = fixtures::ObjectSpec())
{
    return std::unique_ptr<DcmFileFormat>(fixtures::makeObject(spec));
}

DcmDataset& dataset(std::unique_ptr<DcmFileFormat>& file)
{
    return *file->getDataset();
}

// Pixel data in an encapsulated transfer syntax with an empty offset table and the given
// fragments.
DcmPixelData* encapsulated(E_TransferSyntax xfer, const std::vector<std::vector<Uint8> >& fragments)
{
    DcmPixelData* pixels = new DcmPixelData(DCM_PixelData);
    DcmPixelSequence* sequence = new DcmPixelSequence(DCM_PixelSequenceTag);
    sequence->insert(new DcmPixelItem(DCM_PixelItemTag));
    for (const std::vector<Uint8>& bytes : fragments)
    {
        DcmPixelItem* item = new DcmPixelItem(DCM_PixelItemTag);
        item->putUint8Array(bytes.data(), bytes.size());
        sequence->insert(item);
    }
    pixels->putOriginalRepresentation(xfer, NULL, sequence);
    return pixels;
}

DcmOtherByteOtherWord* binary(DcmEVR vr, const std::vector<Uint8>& bytes)
{
    DcmOtherByteOtherWord* element = new DcmOtherByteOtherWord(DcmTag(0x0009, 0x1010, vr));
    if (vr == EVR_OW)
        element->putUint16Array(reinterpret_cast<const Uint16*>(bytes.data()), bytes.size() / 2);
    else
        element->putUint8Array(bytes.data(), bytes.size());
    return element;
}

struct Comparison
{
    bool equal = false;
    Captured output;
};

Comparison compareDatasets(DcmDataset& a, DcmDataset& b, IgnoreTags& rules, bool verbose = false,
                           OC_MODE mode = OC_MODE_BINARY)
{
    Comparison result;
    ObjectComparator comparator(rules);
    comparator.verbose = verbose;
    result.output = capture([&] { result.equal = comparator.compareObjects(&a, &b, mode); });
    return result;
}

Comparison compareDatasets(DcmDataset& a, DcmDataset& b, bool verbose = false, OC_MODE mode = OC_MODE_BINARY)
{
    IgnoreTags rules;
    return compareDatasets(a, b, rules, verbose, mode);
}

} // namespace

TEST(ObjectComparator, IdenticalObjectsAreSilent)
{
    auto a = object();
    auto b = object();
    Comparison c = compareDatasets(dataset(a), dataset(b));
    EXPECT_TRUE(c.equal);
    EXPECT_EQ(c.output.out, "");
    EXPECT_EQ(c.output.err, "");

    DcmDataset empty1, empty2;
    EXPECT_TRUE(compareDatasets(empty1, empty2).equal);
}

TEST(ObjectComparator, VerboseTraceOfAnEqualPair)
{
    auto a = object();
    auto b = object();
    Comparison c = compareDatasets(dataset(a), dataset(b), true);
    EXPECT_TRUE(c.equal);
    EXPECT_EQ(c.output.err, "");
    EXPECT_EQ(c.output.out.rfind("DEBUG: comparing (0008,0005)\n"
                                 "STRING (0008,0005)[ISO_IR 100] vs. [ISO_IR 100]\n"
                                 "DEBUG: comparing (0008,0016)\n",
                                 0),
              0u)
        << c.output.out;
    EXPECT_NE(c.output.out.find("DEBUG: comparing pixel data binary\n"
                                "BINARY (7fe0,0010) :: [OW] vs. [OW]\n"),
              std::string::npos);
}

TEST(ObjectComparator, OneSidedAttributes)
{
    auto a = object();
    auto b = object();
    dataset(b).putAndInsertString(DCM_SeriesDescription, "Extra");
    dataset(a).putAndInsertString(DCM_OperatorsName, "Op^One");
    Comparison c = compareDatasets(dataset(a), dataset(b));
    EXPECT_FALSE(c.equal);
    EXPECT_EQ(c.output.out, "> (0008,103e): Extra\n< (0008,1070): Op^One\n");
    EXPECT_EQ(c.output.err, "");

    // ignored by key or by pattern: not reported, and the pair is equal
    IgnoreTags rules;
    rules.tags.insert(DCM_SeriesDescription);
    rules.patterns.insert("....1070");
    c = compareDatasets(dataset(a), dataset(b), rules, true);
    EXPECT_TRUE(c.equal);
    EXPECT_EQ(c.output.out.find("(0008,103e)"), std::string::npos);
    EXPECT_EQ(c.output.out.find("(0008,1070)"), std::string::npos);

    // an empty dataset against a full one: every attribute of the other is one-sided
    DcmDataset empty;
    c = compareDatasets(empty, dataset(b));
    EXPECT_FALSE(c.equal);
    EXPECT_EQ(c.output.out.rfind("> (0008,0005): ISO_IR 100\n> (0008,0016): 1.2.840.10008.5.1.4.1.1.7\n", 0), 0u);
    EXPECT_NE(c.output.out.find("> (7fe0,0010): "), std::string::npos);
}

TEST(ObjectComparator, EveryDifferenceReported)
{
    auto a = object();
    fixtures::ObjectSpec spec;
    spec.patientName = "Other^Name";
    spec.patientID = "PID002";
    auto b = object(spec);
    Comparison c = compareDatasets(dataset(a), dataset(b));
    EXPECT_FALSE(c.equal);
    EXPECT_EQ(c.output.err, "! (0010,0010): Test^Patient != Other^Name\n"
                            "! (0010,0020): PID001 != PID002\n");
    EXPECT_EQ(c.output.out, "");

    // ignored attributes are traced in verbose mode only
    IgnoreTags rules;
    rules.tags.insert(DCM_PatientName);
    rules.tags.insert(DCM_PatientID);
    c = compareDatasets(dataset(a), dataset(b), rules);
    EXPECT_TRUE(c.equal);
    EXPECT_EQ(c.output.out + c.output.err, "");
    c = compareDatasets(dataset(a), dataset(b), rules, true);
    EXPECT_NE(c.output.out.find("DEBUG: ignored tag: (0010,0010)\nDEBUG: ignored tag: (0010,0020)\n"),
              std::string::npos);
}

TEST(ObjectComparator, EmptyValueMatchesBlankValueBothWays)
{
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    DcmPersonName empty(DCM_PatientName);
    DcmPersonName blank(DCM_PatientName);
    blank.putString("  "); // value present, text empty after the toolkit removes padding
    DcmPersonName name(DCM_PatientName);
    name.putString("A^B");

    bool equal1 = false, equal2 = false, equal3 = true;
    comparator.verbose = true;
    Captured c = capture([&] {
        equal1 = comparator.compareElements(&empty, &blank);
        equal2 = comparator.compareElements(&blank, &empty);
    });
    EXPECT_TRUE(equal1);
    EXPECT_TRUE(equal2);
    EXPECT_EQ(c.out, "STRING (0010,0010)[Empty Value] vs. []\nEmpty Value Matching 1\n"
                     "STRING (0010,0010)[] vs. [Empty Value]\nEmpty Value Matching 2\n");
    EXPECT_EQ(c.err, "");

    comparator.verbose = false;
    c = capture([&] { equal3 = comparator.compareElements(&empty, &name); });
    EXPECT_FALSE(equal3);
    EXPECT_EQ(c.err, "! (0010,0010): Empty Value != A^B\n");
    EXPECT_EQ(c.out, "");
}

TEST(ObjectComparator, TrailingBlankIsADifference)
{
    // keep the blank the toolkit would otherwise strip while reading the value
    dcmEnableAutomaticInputDataCorrection.set(OFFalse);
    DcmLongString plain(DCM_StudyDescription);
    DcmLongString padded(DCM_StudyDescription);
    plain.putString("ABC");
    padded.putString("ABC ");
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    bool equal = true;
    Captured c = capture([&] { equal = comparator.compareElements(&plain, &padded); });
    dcmEnableAutomaticInputDataCorrection.set(OFTrue);
    EXPECT_FALSE(equal);
    EXPECT_EQ(c.err, "! (0008,1030): ABC != ABC \n");

    // multi-valued attributes compare as one text
    DcmCodeString first(DCM_ImageType), second(DCM_ImageType);
    first.putString("ORIGINAL\\PRIMARY");
    second.putString("ORIGINAL\\SECONDARY");
    c = capture([&] { equal = comparator.compareElements(&first, &second); });
    EXPECT_FALSE(equal);
    EXPECT_EQ(c.err, "! (0008,0008): ORIGINAL\\PRIMARY != ORIGINAL\\SECONDARY\n");
}

TEST(ObjectComparator, BinaryAgainstText)
{
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    std::unique_ptr<DcmOtherByteOtherWord> ob(binary(EVR_OB, {1, 2, 3, 4}));
    DcmLongString text(DcmTag(0x0009, 0x1010, EVR_LO));
    text.putString("0102");
    bool r1 = true, r2 = true;
    Captured c = capture([&] {
        r1 = comparator.compareElements(ob.get(), &text);
        r2 = comparator.compareElements(&text, ob.get());
    });
    EXPECT_FALSE(r1);
    EXPECT_FALSE(r2);
    EXPECT_EQ(c.err, "! (0009,1010): BINARY != not binary\n! (0009,1010): not binary != BINARY\n");
}

TEST(ObjectComparator, BinaryValues)
{
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    const std::vector<Uint8> bytes = {1, 2, 3, 4};
    std::unique_ptr<DcmOtherByteOtherWord> ob(binary(EVR_OB, bytes));
    std::unique_ptr<DcmOtherByteOtherWord> ob2(binary(EVR_OB, bytes));
    std::unique_ptr<DcmOtherByteOtherWord> ow(binary(EVR_OW, bytes));
    std::unique_ptr<DcmOtherByteOtherWord> ow2(binary(EVR_OW, bytes));
    std::unique_ptr<DcmOtherByteOtherWord> longer(binary(EVR_OB, {1, 2, 3, 4, 5, 6}));
    std::unique_ptr<DcmOtherByteOtherWord> changed(binary(EVR_OB, {1, 2, 3, 5}));
    std::unique_ptr<DcmOtherByteOtherWord> un(binary(EVR_UN, bytes));
    std::unique_ptr<DcmOtherByteOtherWord> unknown(binary(EVR_UNKNOWN, bytes));

    bool r = false;
    Captured c = capture([&] { r = comparator.compareOBOW(ob.get(), ob2.get()) && comparator.compareOBOW(ow.get(), ow2.get()); });
    EXPECT_TRUE(r);
    EXPECT_EQ(c.out + c.err, "");

    // equal bytes, different VR
    c = capture([&] { r = comparator.compareOBOW(ob.get(), ow.get()); });
    EXPECT_FALSE(r);
    EXPECT_EQ(c.err, "! (0009,1010) VR of binary data differs (OB != OW)\n");

    // unless both VRs are unknown ones
    comparator.verbose = true;
    c = capture([&] { r = comparator.compareOBOW(un.get(), unknown.get()); });
    EXPECT_TRUE(r);
    EXPECT_EQ(c.err, "");
    EXPECT_EQ(c.out, "BINARY (0009,1010) :: [UN] vs. [??]\nComparing Unknown VRs: UN vs. ??\n");
    comparator.verbose = false;

    c = capture([&] { r = comparator.compareOBOW(ob.get(), longer.get()); });
    EXPECT_FALSE(r);
    EXPECT_EQ(c.err, "! (0009,1010) Length of binary data differs (4 != 6)\n");

    // differing bytes are a difference without a message of their own
    c = capture([&] { r = comparator.compareOBOW(ob.get(), changed.get()); });
    EXPECT_FALSE(r);
    EXPECT_EQ(c.err, "");
    c = capture([&] { r = comparator.compareElements(ob.get(), changed.get()); });
    EXPECT_FALSE(r);
    EXPECT_EQ(c.err, "");
    c = capture([&] { r = comparator.compareElements(ob.get(), longer.get()); });
    EXPECT_EQ(c.err, "! (0009,1010) Length of binary data differs (4 != 6)\n");

    // two elements without value
    std::unique_ptr<DcmOtherByteOtherWord> none1(binary(EVR_OB, {}));
    std::unique_ptr<DcmOtherByteOtherWord> none2(binary(EVR_OB, {}));
    EXPECT_TRUE(comparator.compareOBOW(none1.get(), none2.get()));
}

TEST(ObjectComparator, LossLessTransferSyntaxes)
{
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    const std::vector<E_TransferSyntax> lossless = {
        EXS_LittleEndianImplicit, EXS_BigEndianImplicit, EXS_LittleEndianExplicit, EXS_BigEndianExplicit,
        EXS_JPEGProcess14,        EXS_JPEGProcess14SV1,  EXS_RLELossless,          EXS_JPEGLSLossless,
        EXS_JPEG2000LosslessOnly, EXS_JPEG2000MulticomponentLosslessOnly};
    for (int x = EXS_Unknown; x <= EXS_PrivateGE_LEI_WithBigEndianPixelData; ++x)
    {
        const E_TransferSyntax xfer = E_TransferSyntax(x);
        const bool expected = std::find(lossless.begin(), lossless.end(), xfer) != lossless.end();
        EXPECT_EQ(comparator.isLossLess(xfer), expected) << x;
    }
    EXPECT_FALSE(comparator.isLossLess(EXS_DeflatedLittleEndianExplicit));
    EXPECT_FALSE(comparator.isLossLess(EXS_JPEGProcess1));
    EXPECT_FALSE(comparator.isLossLess(EXS_JPEG2000));
    EXPECT_FALSE(comparator.isLossLess(EXS_JPEGLSLossy));
}

TEST(ObjectComparator, ModeZeroComparesStoredPixelData)
{
    auto a = object();
    auto b = object();
    Uint16* pixels = NULL;
    DcmElement* element = NULL;
    ASSERT_TRUE(dataset(b).findAndGetElement(DCM_PixelData, element).good());
    ASSERT_TRUE(element->getUint16Array(pixels).good());
    pixels[5] ^= 1;

    Comparison c = compareDatasets(dataset(a), dataset(b));
    EXPECT_FALSE(c.equal);
    EXPECT_EQ(c.output.err, "");

    // any other mode leaves the pixel data to the frame comparison; objects made in memory
    // have no transfer syntax of their own, so the peak-error rule lets one grey level pass
    c = compareDatasets(dataset(a), dataset(b), true, OC_MODE_FRAMES);
    EXPECT_TRUE(c.equal);
    EXPECT_NE(c.output.out.find("DEBUG: skipping binary compare for pixel data\n"), std::string::npos);
    EXPECT_EQ(c.output.out.find("BINARY (7fe0,0010)"), std::string::npos);
    EXPECT_EQ(c.output.err, "");

    // an attribute difference ends a frame comparison before the frames
    dataset(b).putAndInsertString(DCM_PatientID, "X");
    c = compareDatasets(dataset(a), dataset(b), false, OC_MODE_FRAMES);
    EXPECT_FALSE(c.equal);
    EXPECT_EQ(c.output.err, "! (0010,0020): PID001 != X\n");

    // pixel data that is not a pixel data element
    DcmDataset odd;
    DcmOtherByteOtherWord* fake = new DcmOtherByteOtherWord(DcmTag(DCM_PixelData, EVR_OB));
    const Uint8 bytes[] = {1, 2};
    fake->putUint8Array(bytes, 2);
    odd.insert(fake);
    DcmDataset normal;
    normal.insert(encapsulated(EXS_JPEGProcess1, {{1, 2}}));
    c = compareDatasets(odd, normal);
    EXPECT_FALSE(c.equal);
    EXPECT_EQ(c.output.err, "Error comparing Pixel Data\n");
}

TEST(ObjectComparator, LossyPairIgnoresLossyAttributes)
{
    const std::string jpeg = fixtures::corpusFile("SC_rgb_jpeg_dcmtk.dcm");
    DcmFileFormat lossy;
    ASSERT_TRUE(lossy.loadFile(jpeg.c_str()).good());
    ASSERT_EQ(lossy.getDataset()->getOriginalXfer(), EXS_JPEGProcess1);
    auto plain = object();

    IgnoreTags rules;
    Comparison c = compareDatasets(*lossy.getDataset(), dataset(plain), rules, false, OC_MODE_FRAMES);
    EXPECT_FALSE(c.equal);
    EXPECT_EQ(rules.tags.count(DCM_LossyImageCompression), 1u);
    EXPECT_EQ(rules.tags.count(DCM_LossyImageCompressionRatio), 1u);
    EXPECT_EQ(rules.tags.count(DCM_LossyImageCompressionMethod), 1u);

    // a lossless pair leaves the rules alone, and mode 0 never adds to them
    fixtures::TempDir dir;
    ASSERT_TRUE(fixtures::writeObject(dir.file("a"), fixtures::ObjectSpec()));
    fixtures::ObjectSpec bigEndian;
    bigEndian.xfer = EXS_BigEndianExplicit;
    ASSERT_TRUE(fixtures::writeObject(dir.file("b"), bigEndian));
    DcmFileFormat fileA, fileB;
    ASSERT_TRUE(fileA.loadFile(dir.file("a").c_str()).good());
    ASSERT_TRUE(fileB.loadFile(dir.file("b").c_str()).good());
    IgnoreTags losslessRules;
    c = compareDatasets(*fileA.getDataset(), *fileB.getDataset(), losslessRules, false, OC_MODE_FRAMES);
    EXPECT_TRUE(c.equal);
    EXPECT_EQ(c.output.out + c.output.err, "");
    compareDatasets(*lossy.getDataset(), dataset(plain), losslessRules, false, OC_MODE_BINARY);
    EXPECT_TRUE(losslessRules.tags.empty());
}

TEST(ObjectComparator, EncapsulatedPixelData)
{
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    std::unique_ptr<DcmPixelData> a(encapsulated(EXS_JPEGProcess1, {{1, 2, 3, 4}, {5, 6}}));
    std::unique_ptr<DcmPixelData> b(encapsulated(EXS_JPEGProcess1, {{9, 9, 9, 9}, {9, 9, 9, 9, 9, 9}}));
    std::unique_ptr<DcmPixelData> rle(encapsulated(EXS_RLELossless, {{1, 2, 3, 4}, {5, 6}}));
    DcmPixelData native(DCM_PixelData);
    const Uint8 bytes[] = {1, 2, 3, 4};
    native.putUint8Array(bytes, 4);

    // same transfer syntax, different fragments: equal (the decoded frames decide)
    bool r = false;
    comparator.verbose = true;
    Captured c = capture([&] { r = comparator.comparePixelDataElement(a.get(), b.get()); });
    EXPECT_TRUE(r);
    EXPECT_EQ(c.err, "");
    EXPECT_EQ(c.out.rfind("DEBUG: Compare encapsulated Pixel Data JPEG Baseline\n"
                          "PIXELSEQ : comparing pixel items 3\n",
                          0),
              0u)
        << c.out;
    comparator.verbose = false;

    c = capture([&] { r = comparator.comparePixelDataElement(a.get(), rle.get()); });
    EXPECT_FALSE(r);
    EXPECT_EQ(c.err, "! (7fe0,0010) Transfer Syntax differs (JPEG Baseline != RLE Lossless)\n");
    c = capture([&] { r = comparator.comparePixelDataElement(&native, a.get()); });
    EXPECT_FALSE(r);
    EXPECT_EQ(c.err, "! (7fe0,0010) Transfer Syntax differs (Little Endian Explicit != JPEG Baseline)\n");

    // in a dataset walk as well
    DcmDataset first, second;
    first.insert(a.release());
    second.insert(b.release());
    Comparison walk = compareDatasets(first, second);
    EXPECT_TRUE(walk.equal);
    EXPECT_EQ(walk.output.out + walk.output.err, "");
}

TEST(ObjectComparator, PixelSequences)
{
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    auto sequenceOf = [](const std::vector<std::vector<Uint8> >& fragments) {
        DcmPixelSequence* sequence = new DcmPixelSequence(DCM_PixelSequenceTag);
        for (const std::vector<Uint8>& bytes : fragments)
        {
            DcmPixelItem* item = new DcmPixelItem(DCM_PixelItemTag);
            item->putUint8Array(bytes.data(), bytes.size());
            sequence->insert(item);
        }
        return std::unique_ptr<DcmPixelSequence>(sequence);
    };
    auto two = sequenceOf({{}, {1, 2}});
    auto twoSame = sequenceOf({{}, {1, 2}});
    auto three = sequenceOf({{}, {1, 2}, {3, 4}});
    auto changed = sequenceOf({{}, {1, 3}});
    auto longer = sequenceOf({{}, {1, 2, 3, 4}});
    auto empty = sequenceOf({});

    bool r = false;
    Captured c = capture([&] { r = comparator.comparePixelSequence(two.get(), twoSame.get()); });
    EXPECT_TRUE(r);
    EXPECT_EQ(c.out + c.err, "");
    EXPECT_TRUE(comparator.comparePixelSequence(empty.get(), empty.get()));

    c = capture([&] { r = comparator.comparePixelSequence(two.get(), three.get()); });
    EXPECT_FALSE(r);
    EXPECT_EQ(c.err, "! (7fe0,0010) Number of pixel items differs (2 != 3)\n");

    c = capture([&] { r = comparator.comparePixelSequence(two.get(), changed.get()); });
    EXPECT_FALSE(r);
    EXPECT_EQ(c.err, "! Pixel Item (1) differs\n");

    c = capture([&] { r = comparator.comparePixelSequence(two.get(), longer.get()); });
    EXPECT_FALSE(r);
    EXPECT_EQ(c.err, "! (fffe,e000) Length of binary data differs (2 != 4)\n! Pixel Item (1) differs\n");
}

TEST(ObjectComparator, LoadingFailures)
{
    fixtures::TempDir dir;
    const std::string objectPath = dir.file("IM1");
    const std::string missing = dir.file("missing");
    ASSERT_TRUE(fixtures::writeObject(objectPath, fixtures::ObjectSpec()));
    fixtures::writeFile(dir.file("text"), "not a DICOM file at all");
    std::string missingText, textText;
    capture([&] {
        DcmFileFormat probe;
        missingText = probe.loadFile(missing.c_str()).text();
        textText = probe.loadFile(dir.file("text").c_str()).text();
    });

    IgnoreTags rules;
    ObjectComparator comparator(rules);
    bool r = true;
    Captured c = capture([&] { r = comparator.compareObjects(missing.c_str(), NULL, objectPath.c_str(), NULL, OC_MODE_BINARY); });
    EXPECT_FALSE(r);
    EXPECT_EQ(c.err, "Error loading " + missing + "(" + missingText + ")\n");

    c = capture([&] { r = comparator.compareObjects(objectPath.c_str(), missing.c_str(), objectPath.c_str(), NULL, OC_MODE_BINARY); });
    EXPECT_FALSE(r);
    EXPECT_EQ(c.err, "Error loading " + missing + "(" + missingText + ")\n");

    const std::string text = dir.file("text");
    c = capture([&] { r = comparator.compareObjects(objectPath.c_str(), NULL, text.c_str(), NULL, OC_MODE_BINARY); });
    EXPECT_FALSE(r);
    // the toolkit's own log lines may come first
    const std::string expected = "Error loading " + text + "(" + textText + ")\n";
    ASSERT_GE(c.err.size(), expected.size());
    EXPECT_EQ(c.err.substr(c.err.size() - expected.size()), expected);

    c = capture([&] { r = comparator.compareObjects(objectPath.c_str(), NULL, objectPath.c_str(), NULL, OC_MODE_BINARY); });
    EXPECT_TRUE(r);
    EXPECT_EQ(c.out + c.err, "");
}

TEST(ObjectComparator, KqRAppliedBeforeComparing)
{
    fixtures::TempDir dir;
    const std::string objectPath = dir.file("IM1");
    const std::string kqrPath = dir.file("edit.kqr");
    fixtures::ObjectSpec spec;
    ASSERT_TRUE(fixtures::writeObject(objectPath, spec));
    KqRWriter writer;
    ASSERT_TRUE(writer.setStudyAttribute(DCM_PatientName, "New^Name").good());
    ASSERT_TRUE(writer.setInstanceAttribute(spec.seriesUID.c_str(), spec.sopInstanceUID.c_str(), DCM_ImageComments,
                                            "edited")
                    .good());
    ASSERT_TRUE(writer.save(kqrPath.c_str()).good());
    const std::string before = fixtures::readFile(objectPath);

    IgnoreTags rules;
    ObjectComparator comparator(rules);
    bool r = true;
    Captured c = capture([&] { r = comparator.compareObjects(objectPath.c_str(), kqrPath.c_str(), objectPath.c_str(), NULL, OC_MODE_BINARY); });
    EXPECT_FALSE(r);
    EXPECT_EQ(c.err, "! (0010,0010): New^Name != Test^Patient\n");
    // the change item's private creator travels with the edit
    EXPECT_EQ(c.out, "< (0020,4000): edited\n< (f215,0010): KQ group A\n");

    c = capture([&] { r = comparator.compareObjects(objectPath.c_str(), kqrPath.c_str(), objectPath.c_str(), kqrPath.c_str(), OC_MODE_BINARY); });
    EXPECT_TRUE(r);
    EXPECT_EQ(c.out + c.err, "");
    EXPECT_EQ(fixtures::readFile(objectPath), before);
}

TEST(ObjectComparator, DumpPrintsAttributes)
{
    fixtures::TempDir dir;
    const std::string objectPath = dir.file("IM1");
    ASSERT_TRUE(fixtures::writeObject(objectPath, fixtures::ObjectSpec()));
    IgnoreTags rules;
    rules.tags.insert(DCM_PatientID);
    ObjectComparator comparator(rules);
    bool r = true;
    Captured c = capture([&] { r = comparator.dumpObject(objectPath.c_str(), NULL, dir.file("dump").c_str()); });
    EXPECT_TRUE(r);
    EXPECT_NE(c.out.find("(0010,0010) PN [Test^Patient]"), std::string::npos) << c.out;
    EXPECT_NE(c.out.find("(0008,0060) CS [OT]"), std::string::npos);
    EXPECT_EQ(c.out.find("(0010,0020)"), std::string::npos);
    EXPECT_EQ(c.out.find("(7fe0,0010)"), std::string::npos);
    EXPECT_EQ(c.err, "");
}
