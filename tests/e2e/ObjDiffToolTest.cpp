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
