// Ignore-tag rules, and comparing datasets, elements and stored pixel data.
#include "objdiff/IgnoreTags.h"
#include "objdiff/ObjDiff.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <gtest/gtest.h>

#include <memory>

using fixtures::capture;
using fixtures::Captured;

namespace {

typedef std::vector<std::vector<Uint8> > Fragments;

std::unique_ptr<DcmFileFormat> object(const fixtures::ObjectSpec& spec = fixtures::ObjectSpec())
{
    return std::unique_ptr<DcmFileFormat>(fixtures::makeObject(spec));
}

DcmPixelSequence* pixelSequence(const Fragments& fragments)
{
    DcmPixelSequence* sequence = new DcmPixelSequence(DCM_PixelSequenceTag);
    for (const std::vector<Uint8>& bytes : fragments)
    {
        DcmPixelItem* item = new DcmPixelItem(DCM_PixelItemTag);
        item->putUint8Array(bytes.data(), bytes.size());
        sequence->insert(item);
    }
    return sequence;
}

// Pixel data in an encapsulated transfer syntax: an empty offset table, then the fragments.
DcmPixelData* encapsulated(E_TransferSyntax xfer, Fragments fragments)
{
    fragments.insert(fragments.begin(), std::vector<Uint8>());
    DcmPixelData* pixels = new DcmPixelData(DCM_PixelData);
    pixels->putOriginalRepresentation(xfer, NULL, pixelSequence(fragments));
    return pixels;
}

DcmElement* binary(DcmEVR vr, const std::vector<Uint8>& bytes)
{
    DcmOtherByteOtherWord* element = new DcmOtherByteOtherWord(DcmTag(0x0009, 0x1010, vr));
    if (vr == EVR_OW)
        element->putUint16Array(reinterpret_cast<const Uint16*>(bytes.data()), bytes.size() / 2);
    else
        element->putUint8Array(bytes.data(), bytes.size());
    return element;
}

DcmElement* text(DcmEVR vr, const DcmTagKey& key, const char* value)
{
    DcmElement* element = NULL;
    DcmItem::newDicomElementWithVR(element, DcmTag(key, vr));
    if (value)
        element->putString(value);
    return element;
}

struct Comparison { bool equal = false; Captured output; };

Comparison compareDatasets(DcmDataset& a, DcmDataset& b, IgnoreTags& rules, bool verbose = false,
                           OC_MODE mode = OC_MODE_BINARY)
{
    Comparison result;
    ObjectComparator comparator(rules);
    comparator.verbose = verbose;
    result.output = capture([&] { result.equal = comparator.compareObjects(&a, &b, mode); });
    return result;
}

} // namespace

TEST(IgnoreTags, ReadsTagsAndPatternsFromFile)
{
    const std::string longLine = "(0008,0018)" + std::string(200, 'x');
    struct Case { std::string content; std::set<DcmTagKey> tags; std::set<std::string> patterns; };
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
    fixtures::TempDir dir;
    const std::string path = dir.file("none");
    std::set<DcmTagKey> tags;
    Captured c = capture([&] { tags = IgnoreTags(path.c_str()).tags; });
    EXPECT_EQ("[" + path + "]\n", c.out);
    EXPECT_EQ("Cannot open ignoretags file:" + path + "\n", c.err);
    EXPECT_TRUE(tags.empty());
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

TEST(ObjectComparator, DatasetWalk)
{
    typedef std::vector<std::pair<DcmTagKey, const char*> > Values;
    struct Case { const char* what; Values inA, inB; std::set<DcmTagKey> ignored; std::set<std::string> patterns;
                  bool equal; const char *out, *err; };
    const Case cases[] = {
        {"one-sided attributes on standard output", {{DCM_OperatorsName, "Op^One"}}, {{DCM_SeriesDescription, "Extra"}},
         {}, {}, false, "> (0008,103e): Extra\n< (0008,1070): Op^One\n", ""},
        {"every difference on standard error", {}, {{DCM_PatientName, "Other^Name"}, {DCM_PatientID, "PID002"}}, {}, {},
         false, "", "! (0010,0010): Test^Patient != Other^Name\n! (0010,0020): PID001 != PID002\n"},
        {"ignored by key or by pattern", {{DCM_OperatorsName, "Op^One"}},
         {{DCM_SeriesDescription, "Extra"}, {DCM_PatientName, "Other^Name"}}, {DCM_SeriesDescription, DCM_PatientName},
         {"....1070"}, true, "", ""},
        {"a stored pixel difference has no message of its own", {}, {}, {}, {}, false, "", ""},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.what);
        auto a = object(), b = object();
        for (const auto& v : c.inA)
            a->getDataset()->putAndInsertString(v.first, v.second);
        for (const auto& v : c.inB)
            b->getDataset()->putAndInsertString(v.first, v.second);
        const Uint16* pixels = NULL;
        if (!c.equal && c.inA.empty() && c.inB.empty() && b->getDataset()->findAndGetUint16Array(DCM_PixelData, pixels).good())
            const_cast<Uint16*>(pixels)[5] ^= 1;
        IgnoreTags rules;
        rules.tags = c.ignored;
        rules.patterns = c.patterns;
        const Comparison result = compareDatasets(*a->getDataset(), *b->getDataset(), rules);
        EXPECT_EQ(c.equal, result.equal);
        EXPECT_EQ(c.out, result.output.out);
        EXPECT_EQ(c.err, result.output.err);
    }
    // an empty dataset against a full one: every attribute of the other is one-sided
    auto full = object();
    DcmDataset empty;
    IgnoreTags rules;
    Comparison c = compareDatasets(empty, *full->getDataset(), rules);
    EXPECT_FALSE(c.equal);
    EXPECT_EQ(0u, c.output.out.rfind("> (0008,0005): ISO_IR 100\n> (0008,0016): 1.2.840.10008.5.1.4.1.1.7\n", 0));
    EXPECT_TRUE(compareDatasets(empty, empty, rules).equal);
    // the verbose trace
    rules.tags.insert(DCM_PatientID);
    c = compareDatasets(*full->getDataset(), *object()->getDataset(), rules, true);
    EXPECT_TRUE(c.equal);
    EXPECT_EQ("", c.output.err);
    for (const char* line : {"DEBUG: comparing (0008,0005)\nSTRING (0008,0005)[ISO_IR 100] vs. [ISO_IR 100]\n",
                             "DEBUG: ignored tag: (0010,0020)\n",
                             "DEBUG: comparing pixel data binary\nBINARY (7fe0,0010) :: [OW] vs. [OW]\n"})
        EXPECT_NE(std::string::npos, c.output.out.find(line)) << line;
}

TEST(ObjectComparator, ElementComparison)
{
    struct Case { const char* what; DcmElement *first, *second; bool equal; const char *err, *verboseOut; }; // null: unchecked
    const Case cases[] = {
        {"empty value against blank", text(EVR_PN, DCM_PatientName, NULL), text(EVR_PN, DCM_PatientName, "  "), true,
         "", "STRING (0010,0010)[Empty Value] vs. []\nEmpty Value Matching 1\n"},
        {"blank against empty value", text(EVR_PN, DCM_PatientName, "  "), text(EVR_PN, DCM_PatientName, NULL), true,
         "", "STRING (0010,0010)[] vs. [Empty Value]\nEmpty Value Matching 2\n"},
        {"empty value against a name", text(EVR_PN, DCM_PatientName, NULL), text(EVR_PN, DCM_PatientName, "A^B"),
         false, "! (0010,0010): Empty Value != A^B\n", nullptr},
        {"multi-valued as one text", text(EVR_CS, DCM_ImageType, "ORIGINAL\\PRIMARY"),
         text(EVR_CS, DCM_ImageType, "ORIGINAL\\SECONDARY"), false,
         "! (0008,0008): ORIGINAL\\PRIMARY != ORIGINAL\\SECONDARY\n", nullptr},
        {"binary against text", binary(EVR_OB, {1, 2}), text(EVR_LO, DcmTagKey(0x0009, 0x1010), "0102"), false,
         "! (0009,1010): BINARY != not binary\n", nullptr},
        {"text against binary", text(EVR_LO, DcmTagKey(0x0009, 0x1010), "0102"), binary(EVR_OB, {1, 2}), false,
         "! (0009,1010): not binary != BINARY\n", nullptr},
        {"equal words", binary(EVR_OW, {1, 2, 3, 4}), binary(EVR_OW, {1, 2, 3, 4}), true, "",
         "BINARY (0009,1010) :: [OW] vs. [OW]\n"},
        {"equal bytes of another VR", binary(EVR_OB, {1, 2, 3, 4}), binary(EVR_OW, {1, 2, 3, 4}), false,
         "! (0009,1010) VR of binary data differs (OB != OW)\n", nullptr},
        {"two unknown VRs", binary(EVR_UN, {1, 2}), binary(EVR_UNKNOWN, {1, 2}), true, "",
         "BINARY (0009,1010) :: [UN] vs. [??]\nComparing Unknown VRs: UN vs. ??\n"},
        {"lengths differ", binary(EVR_OB, {1, 2, 3, 4}), binary(EVR_OB, {1, 2, 3, 4, 5, 6}), false,
         "! (0009,1010) Length of binary data differs (4 != 6)\n", nullptr},
        {"bytes differ silently", binary(EVR_OB, {1, 2, 3, 4}), binary(EVR_OB, {1, 2, 3, 5}), false, "", nullptr},
        {"both without value", binary(EVR_OB, {}), binary(EVR_OB, {}), true, "", nullptr},
    };
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.what);
        std::unique_ptr<DcmElement> first(c.first), second(c.second);
        for (bool verbose : {false, true})
        {
            comparator.verbose = verbose;
            bool equal = !c.equal;
            const Captured out = capture([&] { equal = comparator.compareElements(first.get(), second.get()); });
            EXPECT_EQ(c.equal, equal);
            EXPECT_EQ(c.err, out.err);
            if (!verbose || c.verboseOut)
                EXPECT_EQ(verbose ? c.verboseOut : "", out.out);
        }
    }
    // a trailing blank differs (kept here: the toolkit would strip it while reading the value)
    dcmEnableAutomaticInputDataCorrection.set(OFFalse);
    std::unique_ptr<DcmElement> plain(text(EVR_LO, DCM_StudyDescription, "ABC")), padded(text(EVR_LO, DCM_StudyDescription, "ABC "));
    bool equal = true;
    const Captured out = capture([&] { equal = comparator.compareElements(plain.get(), padded.get()); });
    dcmEnableAutomaticInputDataCorrection.set(OFTrue);
    EXPECT_FALSE(equal);
    EXPECT_EQ("! (0008,1030): ABC != ABC \n", out.err);
}

TEST(ObjectComparator, FrameModeSkipsStoredPixelDataAndIgnoresLossyAttributes)
{
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    const std::set<E_TransferSyntax> lossless = {EXS_LittleEndianImplicit, EXS_BigEndianImplicit, EXS_LittleEndianExplicit,
        EXS_BigEndianExplicit, EXS_JPEGProcess14, EXS_JPEGProcess14SV1, EXS_RLELossless, EXS_JPEGLSLossless,
        EXS_JPEG2000LosslessOnly, EXS_JPEG2000MulticomponentLosslessOnly};
    for (int x = EXS_Unknown; x <= EXS_PrivateGE_LEI_WithBigEndianPixelData; ++x)
        EXPECT_EQ(lossless.count(E_TransferSyntax(x)) == 1, comparator.isLossLess(E_TransferSyntax(x))) << x;
    fixtures::TempDir dir;
    fixtures::ObjectSpec bigEndian;
    bigEndian.xfer = EXS_BigEndianExplicit;
    ASSERT_TRUE(fixtures::writeObject(dir.file("a"), fixtures::ObjectSpec()));
    ASSERT_TRUE(fixtures::writeObject(dir.file("b"), bigEndian));
    DcmFileFormat a, b, lossy;
    ASSERT_TRUE(a.loadFile(dir.file("a").c_str()).good() && b.loadFile(dir.file("b").c_str()).good());
    ASSERT_TRUE(lossy.loadFile(fixtures::corpusFile("SC_rgb_jpeg_dcmtk.dcm").c_str()).good());
    Comparison c = compareDatasets(*a.getDataset(), *b.getDataset(), rules, true, OC_MODE_FRAMES);
    EXPECT_TRUE(c.equal);
    EXPECT_NE(std::string::npos, c.output.out.find("DEBUG: skipping binary compare for pixel data\n"));
    EXPECT_EQ("", c.output.err);
    EXPECT_TRUE(rules.tags.empty()); // a lossless pair
    // an attribute difference ends the comparison before the frames
    b.getDataset()->putAndInsertString(DCM_PatientID, "X");
    c = compareDatasets(*a.getDataset(), *b.getDataset(), rules, false, OC_MODE_FRAMES);
    EXPECT_EQ("! (0010,0020): PID001 != X\n", c.output.err);
    // a lossy pair leaves the lossy attributes in the rules; mode 0 never adds them
    compareDatasets(*lossy.getDataset(), *a.getDataset(), rules, false, OC_MODE_BINARY);
    EXPECT_TRUE(rules.tags.empty());
    compareDatasets(*lossy.getDataset(), *a.getDataset(), rules, false, OC_MODE_FRAMES);
    EXPECT_EQ((std::set<DcmTagKey>{DCM_LossyImageCompression, DCM_LossyImageCompressionRatio,
                                   DCM_LossyImageCompressionMethod}),
              rules.tags);
}

TEST(ObjectComparator, StoredPixelDataAndSequences)
{
    IgnoreTags rules;
    ObjectComparator comparator(rules);
    std::unique_ptr<DcmPixelData> a(encapsulated(EXS_JPEGProcess1, {{1, 2, 3, 4}, {5, 6}}));
    std::unique_ptr<DcmPixelData> b(encapsulated(EXS_JPEGProcess1, {{9, 9, 9, 9}, {9, 9, 9, 9, 9, 9}}));
    std::unique_ptr<DcmPixelData> rle(encapsulated(EXS_RLELossless, {{1, 2, 3, 4}, {5, 6}}));
    DcmPixelData native(DCM_PixelData);
    const Uint8 bytes[] = {1, 2, 3, 4};
    native.putUint8Array(bytes, 4);
    // same transfer syntax, other fragments: equal, the decoded frames decide
    bool r = false;
    comparator.verbose = true;
    Captured c = capture([&] { r = comparator.comparePixelDataElement(a.get(), b.get()); });
    EXPECT_TRUE(r);
    EXPECT_EQ("", c.err);
    EXPECT_EQ(0u, c.out.rfind("DEBUG: Compare encapsulated Pixel Data JPEG Baseline\n"
                              "PIXELSEQ : comparing pixel items 3\n",
                              0));
    comparator.verbose = false;
    c = capture([&] { r = comparator.comparePixelDataElement(a.get(), rle.get()); });
    EXPECT_FALSE(r);
    EXPECT_EQ("! (7fe0,0010) Transfer Syntax differs (JPEG Baseline != RLE Lossless)\n", c.err);
    c = capture([&] { r = comparator.comparePixelDataElement(&native, a.get()); });
    EXPECT_FALSE(r);
    EXPECT_EQ("! (7fe0,0010) Transfer Syntax differs (Little Endian Explicit != JPEG Baseline)\n", c.err);
    // pixel data that is not a pixel data element
    DcmDataset odd, normal;
    DcmOtherByteOtherWord* fake = new DcmOtherByteOtherWord(DcmTag(DCM_PixelData, EVR_OB));
    fake->putUint8Array(bytes, 4);
    odd.insert(fake);
    normal.insert(encapsulated(EXS_JPEGProcess1, {{1, 2}}));
    const Comparison walk = compareDatasets(odd, normal, rules);
    EXPECT_FALSE(walk.equal);
    EXPECT_EQ("Error comparing Pixel Data\n", walk.output.err);
    // pixel sequences item by item, the offset table included
    struct Case { Fragments second; bool equal; const char* err; };
    const Case cases[] = {
        {{{}, {1, 2}}, true, ""},
        {{{}, {1, 2}, {3, 4}}, false, "! (7fe0,0010) Number of pixel items differs (2 != 3)\n"},
        {{{}, {1, 3}}, false, "! Pixel Item (1) differs\n"},
        {{{0, 0, 0, 0}, {1, 2}}, false,
         "! (fffe,e000) Length of binary data differs (0 != 4)\n! Pixel Item (0) differs\n"},
        {{{}, {1, 2, 3, 4}}, false, "! (fffe,e000) Length of binary data differs (2 != 4)\n! Pixel Item (1) differs\n"},
    };
    std::unique_ptr<DcmPixelSequence> first(pixelSequence({{}, {1, 2}})), empty(pixelSequence({}));
    EXPECT_TRUE(comparator.comparePixelSequence(empty.get(), empty.get()));
    for (const Case& c : cases)
    {
        std::unique_ptr<DcmPixelSequence> second(pixelSequence(c.second));
        bool equal = !c.equal;
        const Captured out = capture([&] { equal = comparator.comparePixelSequence(first.get(), second.get()); });
        EXPECT_EQ(c.equal, equal) << c.err;
        EXPECT_EQ(c.err, out.err);
        EXPECT_EQ("", out.out);
    }
}
