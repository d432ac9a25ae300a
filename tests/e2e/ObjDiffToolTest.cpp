// The objdiff program, run as a user runs it: exit status and exact output.
#include "tests/fixtures/Fixtures.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

const std::string help = "objdiff: Compare two DICOM objects as applyChanges verifies them\n"
                         "usage: objdiff [options] file-1 [file-2]\n";
const std::string see = " (see objdiff -h)\n";

fixtures::RunResult objdiff(const std::vector<std::string>& args)
{
    std::vector<std::string> argv = {fixtures::program("objdiff")};
    argv.insert(argv.end(), args.begin(), args.end());
    return fixtures::run(argv);
}

bool startsWith(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

} // namespace

TEST(ObjDiffTool, CommandLines)
{
    fixtures::TempDir dir;
    const std::string a = dir.file("a.dcm");
    const std::string b = dir.file("b.dcm");
    const std::string kqr = dir.file("edit.kqr");
    const std::string names = dir.file("names");
    const std::string ids = dir.file("ids");
    const std::string privateGroup = dir.file("private");
    const std::string missing = dir.file("missing.dcm");
    const std::string dump = dir.file("dump");
    fixtures::ObjectSpec other;
    other.patientName = "Other^Name";
    ASSERT_TRUE(fixtures::writeObject(a, fixtures::ObjectSpec()));
    ASSERT_TRUE(fixtures::writeObject(b, other));
    KqRWriter writer;
    ASSERT_TRUE(writer.setStudyAttribute(DCM_PatientName, "Other^Name").good());
    ASSERT_TRUE(writer.save(kqr.c_str()).good());
    ASSERT_TRUE(fixtures::writeFile(names, "# names may differ\n(0010,....)\n"));
    ASSERT_TRUE(fixtures::writeFile(ids, "(0010,0020)\n"));
    ASSERT_TRUE(fixtures::writeFile(privateGroup, "(f215,....)\n"));
    const std::string before = fixtures::readFile(a) + fixtures::readFile(kqr);

    struct Case
    {
        std::vector<std::string> args;
        int status;
        std::string out; // the start of standard output
        std::string err; // the start of standard error
    };
    const std::string loadError = "Error loading " + missing + "(No such file or directory)\n";
    const Case cases[] = {
        {{"-h"}, 0, help, ""},
        {{"-v", "-h", a}, 0, help, ""}, // -h wins over anything else that parses
        {{}, 2, "", "objdiff: missing parameter file-1" + see},
        {{a}, 2, "", "objdiff: missing parameter file-2" + see},
        {{a, a, b}, 2, "", "objdiff: unexpected parameter " + b + see},
        {{"-x", a, b}, 2, "", "objdiff: unknown option -x" + see},
        {{a, b, "-m"}, 2, "", "objdiff: option -m needs an argument" + see},
        {{"-m", "binary", a, b}, 2, "", "objdiff: invalid mode \"binary\", expected 0 or 1" + see},
        {{"-w", dump}, 2, "", "objdiff: missing parameter file-1" + see},
        {{"-w", dump, a, b}, 2, "", "objdiff: unexpected parameter " + b + " (-w takes one object)" + see},
        {{"-w", dump, "-m", "1", a}, 2, "", "objdiff: option -m cannot be used with -w" + see},
        {{"-K", kqr, "-w", dump, a}, 2, "", "objdiff: option -K cannot be used with -w" + see},
        {{"-c", a}, 2, "", "objdiff: missing parameter file-2 (a second dump)" + see},
        {{"-c", "-w", dump, a, b}, 2, "", "objdiff: -c takes no other option than -v" + see},
        {{"-c", "-k", kqr, a, b}, 2, "", "objdiff: -c takes no other option than -v" + see},
        // -q: only the exit status tells, as with cmp -s
        {{"-q", a, b}, 1, "", ""},
        {{"-q", a, missing}, 2, "", ""},
        {{"-w", dir.file("none/dump"), a}, 2, "", "objdiff: cannot write image dumps in " + dir.file("none") + "\n"},
        {{a, a}, 0, "", ""},
        {{"-m", "0", a, b}, 1, "", "! (0010,0010): Test^Patient != Other^Name\n"},
        {{"-v", a, b}, 1, "DEBUG: comparing (0008,0005)\n", "! (0010,0010): Test^Patient != Other^Name\n"},
        {{"-m", "1", a, a}, 0, "", ""},
        {{"-i", names, a, b}, 0, "", ""},
        {{"-i", ids, a, b}, 1, "", "! (0010,0010)"},
        {{"-i", missing, a, b}, 2, "", "objdiff: cannot read ignoretags file " + missing + "\n"},
        // what the edit would change on a; the same edit on both sides; an object that has it
        {{"-k", kqr, a, a}, 1, "", "! (0010,0010): Other^Name != Test^Patient\n"},
        {{"-k", kqr, "-K", kqr, a, a}, 0, "", ""},
        {{"-i", privateGroup, "-K", kqr, b, a}, 0, "", ""},
        {{a, missing}, 2, "", loadError},
        {{"-k", missing, a, b}, 2, "", loadError},
    };
    for (const Case& c : cases)
    {
        std::string line;
        for (const std::string& arg : c.args)
            line += " " + arg;
        SCOPED_TRACE("objdiff" + line);
        const fixtures::RunResult r = objdiff(c.args);
        EXPECT_EQ(c.status, r.status);
        EXPECT_TRUE(startsWith(r.out, c.out)) << r.out;
        EXPECT_TRUE(startsWith(r.err, c.err)) << r.err;
        if (c.out.empty())
        {
            EXPECT_EQ("", r.out);
        }
        if (c.err.empty() || c.err == loadError || c.err.compare(0, 9, "objdiff: ") == 0)
        {
            EXPECT_EQ(c.err, r.err);
        }
    }
    EXPECT_EQ(before, fixtures::readFile(a) + fixtures::readFile(kqr));
}

TEST(ObjDiffTool, DecodedFramesAndDumps)
{
    fixtures::TempDir dir;
    const std::string a = dir.file("a.dcm");
    const std::string changed = dir.file("changed.dcm");
    const std::string broken = dir.file("broken.dcm");
    const std::string bits = dir.file("bits");
    ASSERT_TRUE(fixtures::writeObject(a, fixtures::ObjectSpec()));
    ASSERT_TRUE(fixtures::writeFile(bits, "(0028,0100)\n"));
    // a copy whose samples differ, and one whose pixel data cannot be decoded
    for (const std::string& copy : {changed, broken})
    {
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(a.c_str()).good());
        Uint16* pixels = NULL;
        DcmElement* element = NULL;
        ASSERT_TRUE(file.getDataset()->findAndGetElement(DCM_PixelData, element).good());
        ASSERT_TRUE(element->getUint16Array(pixels).good());
        if (copy == changed)
            pixels[3] ^= 0x100;
        else
            file.getDataset()->putAndInsertUint16(DCM_BitsAllocated, 12);
        ASSERT_TRUE(file.saveFile(copy.c_str(), EXS_LittleEndianExplicit).good());
    }
    // dumps compared by size and measure: a, a copy with half its samples wrong, not a dump
    std::string icon = "ICON";
    for (uint32_t value : {4u, 4u, 1u})
        icon.append(reinterpret_cast<const char*>(&value), 4);
    std::string wrong = icon;
    for (int i = 0; i < 16; ++i)
    {
        icon += char(i * 16);
        wrong += char(i < 8 ? 255 : i * 16);
    }
    ASSERT_TRUE(fixtures::writeFile(dir.file("a.icon"), icon));
    ASSERT_TRUE(fixtures::writeFile(dir.file("wrong.icon"), wrong));

    struct Case
    {
        std::vector<std::string> args;
        int status;
        std::string out, err;
    };
    const Case cases[] = {
        {{"-m", "1", a, changed}, 1, "! Pixel Data differs\n", "! Image frame 1 differs\n"},
        {{"-m", "0", a, changed}, 1, "", ""},
        {{"-m", "1", "-i", bits, a, broken}, 2, "", "Error processing second DICOM object\n"},
        {{"-c", dir.file("a.icon"), dir.file("a.icon")}, 0, "", ""},
        {{"-c", dir.file("a.icon"), dir.file("wrong.icon")}, 1, "", ""},
        {{"-c", dir.file("a.icon"), a}, 2, "", "Unknown image format.\nError reading image dump " + a + "\n"},
    };
    for (const Case& c : cases)
    {
        std::string line;
        for (const std::string& arg : c.args)
            line += " " + arg;
        SCOPED_TRACE("objdiff" + line);
        const fixtures::RunResult r = objdiff(c.args);
        EXPECT_EQ(c.status, r.status);
        EXPECT_EQ(c.out, r.out);
        // the toolkit's own log lines may come first
        ASSERT_GE(r.err.size(), c.err.size()) << r.err;
        EXPECT_EQ(c.err, r.err.substr(r.err.size() - c.err.size()));
    }

    // with -v every frame tells its measure and largest difference, whatever the verdict
    fixtures::RunResult verbose = objdiff({"-m", "1", "-v", a, changed});
    EXPECT_EQ(1, verbose.status);
    EXPECT_NE(std::string::npos, verbose.out.find("Frame 1: peak-error measure ")) << verbose.out;
    EXPECT_NE(std::string::npos, verbose.out.find(" (equal above 40), largest absolute difference 256\n"));

    // the dump of an object: its attributes, then the dump file, which compares equal to itself
    const std::string dump = dir.file("a.dump.wavelet");
    fixtures::RunResult r = objdiff({"-w", dir.file("a"), a});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.err);
    EXPECT_NE(std::string::npos, r.out.find("(0010,0010) PN [Test^Patient]")) << r.out;
    EXPECT_EQ(4096u, fixtures::readFile(dump).size());
    r = objdiff({"-c", dump, dump});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.out + r.err);
}
