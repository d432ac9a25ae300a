// The objdiff program, run as a user runs it.
#include "tests/fixtures/Fixtures.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

const char* const USAGE_FIRST_LINE =
    "objdiff [-h] [-v] [-m mode] [-i ignoretagsfile] [-k kqr1] [-K kqr2] <file1> <file2>\n";

fixtures::RunResult objdiff(const std::vector<std::string>& args)
{
    std::vector<std::string> argv = {fixtures::program("objdiff")};
    argv.insert(argv.end(), args.begin(), args.end());
    return fixtures::run(argv);
}

// Two generated objects that differ in Patient Name, and a KqR file that edits it.
struct Objects
{
    fixtures::TempDir dir;
    std::string a = dir.file("a.dcm");
    std::string b = dir.file("b.dcm");
    std::string kqr = dir.file("edit.kqr");
    fixtures::ObjectSpec spec;

    Objects()
    {
        fixtures::ObjectSpec other = spec;
        other.patientName = "Other^Name";
        fixtures::writeObject(a, spec);
        fixtures::writeObject(b, other);
        KqRWriter writer;
        writer.setStudyAttribute(DCM_PatientName, "Other^Name");
        writer.save(kqr.c_str());
    }
};

} // namespace

TEST(ObjDiffTool, Usage)
{
    fixtures::RunResult r = objdiff({"-h"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind(USAGE_FIRST_LINE, 0), 0u);
    EXPECT_EQ(r.err, "");

    // -h wins wherever it is reached
    r = objdiff({"-v", "-h", "-x"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind(USAGE_FIRST_LINE, 0), 0u);
}

TEST(ObjDiffTool, BadArguments)
{
    Objects o;
    const std::string aBefore = fixtures::readFile(o.a);
    struct Case
    {
        std::vector<std::string> args;
        std::string error;
    };
    const std::vector<Case> cases = {
        {{}, "objdiff: two DICOM files expected\n"},
        {{o.a}, "objdiff: two DICOM files expected\n"},
        {{o.a, o.a, o.b}, "objdiff: unexpected argument: " + o.b + "\n"},
        {{"-x", o.a, o.b}, "objdiff: unknown option -x\n"},
        {{o.a, o.b, "-m"}, "objdiff: option -m needs an argument\n"},
        {{"-m", "2", o.a, o.b}, "objdiff: invalid mode \"2\" (0 or 1 expected)\n"},
        {{"-m", "binary", o.a, o.b}, "objdiff: invalid mode \"binary\" (0 or 1 expected)\n"},
        {{"-w", o.dir.file("d")}, "objdiff: one DICOM file expected\n"},
        {{"-w", o.dir.file("d"), o.a, o.b}, "objdiff: unexpected argument: " + o.b + "\n"},
        {{"-w", o.dir.file("d"), "-m", "1", o.a}, "objdiff: option -m cannot be used with -w\n"},
        {{"-K", o.kqr, "-w", o.dir.file("d"), o.a}, "objdiff: option -K cannot be used with -w\n"},
        {{"-c", o.a}, "objdiff: two dump files expected\n"},
        {{"-c", "-w", o.dir.file("d"), o.a, o.b}, "objdiff: -c takes no other option than -v\n"},
        {{"-c", "-k", o.kqr, o.a, o.b}, "objdiff: -c takes no other option than -v\n"},
    };
    for (const Case& c : cases)
    {
        fixtures::RunResult r = objdiff(c.args);
        EXPECT_EQ(r.status, 2) << c.error;
        EXPECT_EQ(r.out, "") << c.error;
        EXPECT_EQ(r.err.rfind(c.error + USAGE_FIRST_LINE, 0), 0u) << r.err;
    }
    EXPECT_EQ(fixtures::readFile(o.a), aBefore);
}

TEST(ObjDiffTool, EqualAndDifferentObjects)
{
    Objects o;
    fixtures::RunResult r = objdiff({o.a, o.a});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");

    r = objdiff({o.a, o.b});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "! (0010,0010): Test^Patient != Other^Name\n");

    r = objdiff({"-v", o.a, o.b});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("STRING (0010,0010)[Test^Patient] vs. [Other^Name]\n"), std::string::npos);

    r = objdiff({"-m", "1", o.a, o.a});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out + r.err, "");
    r = objdiff({"-m", "0", o.a, o.a});
    EXPECT_EQ(r.status, 0);
}

TEST(ObjDiffTool, IgnoreTagsFile)
{
    Objects o;
    const std::string rules = o.dir.file("ignoretags");
    fixtures::writeFile(rules, "# names may differ\n(0010,0010)\n");
    fixtures::RunResult r = objdiff({"-i", rules, o.a, o.b});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out + r.err, "");

    fixtures::writeFile(rules, "(0010,....)\n");
    EXPECT_EQ(objdiff({"-i", rules, o.a, o.b}).status, 0);
    fixtures::writeFile(rules, "(0010,0020)\n");
    EXPECT_EQ(objdiff({"-i", rules, o.a, o.b}).status, 1);

    const std::string missing = o.dir.file("none");
    r = objdiff({"-i", missing, o.a, o.b});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "objdiff: cannot read ignoretags file " + missing + "\n");
}

TEST(ObjDiffTool, KqRPreview)
{
    Objects o;
    const std::string aBefore = fixtures::readFile(o.a);
    const std::string kqrBefore = fixtures::readFile(o.kqr);

    // what the edit would change on a
    fixtures::RunResult r = objdiff({"-k", o.kqr, o.a, o.a});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "! (0010,0010): Other^Name != Test^Patient\n");
    EXPECT_EQ(r.out.find("(0010,0010)"), std::string::npos);

    // the same edit on both sides, or the edit against an object that already has it
    EXPECT_EQ(objdiff({"-k", o.kqr, "-K", o.kqr, o.a, o.a}).status, 0);
    fixtures::writeFile(o.dir.file("private"), "(f215,....)\n");
    r = objdiff({"-i", o.dir.file("private"), "-K", o.kqr, o.b, o.a});
    EXPECT_EQ(r.status, 0) << r.err << r.out;

    EXPECT_EQ(fixtures::readFile(o.a), aBefore);
    EXPECT_EQ(fixtures::readFile(o.kqr), kqrBefore);
}

TEST(ObjDiffTool, LoadFailures)
{
    Objects o;
    const std::string missing = o.dir.file("missing.dcm");
    fixtures::RunResult r = objdiff({o.a, missing});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "Error loading " + missing + "(No such file or directory)\n");

    r = objdiff({"-k", missing, o.a, o.b});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "Error loading " + missing + "(No such file or directory)\n");
}

TEST(ObjDiffTool, CorpusFilesEqualThemselves)
{
    for (const char* name : {"CT_small.dcm", "MR_small_bigendian.dcm", "JPEG2000.dcm", "MR_small_RLE.dcm",
                             "image_dfl.dcm", "rtplan.dcm"})
    {
        const std::string path = fixtures::corpusFile(name);
        fixtures::RunResult r = objdiff({path, path});
        EXPECT_EQ(r.status, 0) << name << r.err;
        EXPECT_EQ(r.out, "") << name;
    }
    fixtures::RunResult r = objdiff({fixtures::corpusFile("CT_small.dcm"), fixtures::corpusFile("MR_small.dcm")});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("! (0008,0060): CT != MR\n"), std::string::npos);
}

TEST(ObjDiffTool, DecodedFramesAndDumps)
{
    Objects o;
    // a copy whose samples differ: equal as stored attributes, different as frames
    const std::string changed = o.dir.file("changed.dcm");
    {
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(o.a.c_str()).good());
        Uint16* pixels = NULL;
        DcmElement* element = NULL;
        ASSERT_TRUE(file.getDataset()->findAndGetElement(DCM_PixelData, element).good());
        ASSERT_TRUE(element->getUint16Array(pixels).good());
        pixels[3] ^= 0x100;
        ASSERT_TRUE(file.saveFile(changed.c_str(), EXS_LittleEndianExplicit).good());
    }
    fixtures::RunResult r = objdiff({"-m", "1", o.a, changed});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "! Pixel Data differs\n");
    EXPECT_EQ(r.err, "! Image frame 1 differs\n");

    // undecodable pixel data is trouble, not a difference
    const std::string broken = o.dir.file("broken.dcm");
    {
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(o.a.c_str()).good());
        file.getDataset()->putAndInsertUint16(DCM_BitsAllocated, 12);
        ASSERT_TRUE(file.saveFile(broken.c_str(), EXS_LittleEndianExplicit).good());
    }
    fixtures::writeFile(o.dir.file("bits"), "(0028,0100)\n");
    r = objdiff({"-m", "1", "-i", o.dir.file("bits"), o.a, broken});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("Error processing second DICOM object\n"), std::string::npos) << r.err;

    // dumps: compared by size and measure
    std::string iconA = "ICON", iconB;
    for (uint32_t value : {4u, 4u, 1u})
        iconA.append(reinterpret_cast<const char*>(&value), 4);
    iconB = iconA;
    for (int i = 0; i < 16; ++i)
    {
        iconA += char(i * 16);
        iconB += char(i < 8 ? 255 : i * 16);
    }
    fixtures::writeFile(o.dir.file("a.icon"), iconA);
    fixtures::writeFile(o.dir.file("b.icon"), iconB);
    r = objdiff({"-c", o.dir.file("a.icon"), o.dir.file("a.icon")});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out + r.err, "");
    r = objdiff({"-c", o.dir.file("a.icon"), o.dir.file("b.icon")});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out + r.err, "");
    r = objdiff({"-c", o.dir.file("a.icon"), o.a});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "Unknown image format.\nError reading image dump " + o.a + "\n");

    // dumps go nowhere that cannot be written
    r = objdiff({"-w", o.dir.file("none/dump"), o.a});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "objdiff: cannot write image dumps in " + o.dir.file("none") + "\n");
}
