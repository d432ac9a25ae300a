// The objdiff program, run as a user runs it: exit status and exact output.
#include "tests/fixtures/Fixtures.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(ObjDiffTool, CommandLines)
{
    fixtures::TempDir dir;
    const std::string a = dir.file("a.dcm"), b = dir.file("b.dcm"), kqr = dir.file("edit.kqr");
    const std::string names = dir.file("names"), ids = dir.file("ids"), privateGroup = dir.file("private");
    const std::string missing = dir.file("missing.dcm"), dump = dir.file("dump"), bits = dir.file("bits");
    const std::string changed = dir.file("changed.dcm"), broken = dir.file("broken.dcm");
    fixtures::ObjectSpec spec, other;
    other.patientName = "Other^Name";
    ASSERT_TRUE(fixtures::writeObject(a, spec));
    ASSERT_TRUE(fixtures::writeObject(b, other));
    KqRWriter writer; // a study attribute, and an instance one (its items carry a private creator)
    ASSERT_TRUE(writer.setStudyAttribute(DCM_PatientName, "Other^Name").good());
    ASSERT_TRUE(writer.setInstanceAttribute(spec.seriesUID.c_str(), spec.sopInstanceUID.c_str(), DCM_ImageComments,
                                            "edited").good());
    ASSERT_TRUE(writer.save(kqr.c_str()).good());
    ASSERT_TRUE(fixtures::writeFile(names, "# names may differ\n(0010,....)\n"));
    ASSERT_TRUE(fixtures::writeFile(ids, "(0010,0020)\n"));
    ASSERT_TRUE(fixtures::writeFile(privateGroup, "(f215,....)\n(0020,4000)\n"));
    ASSERT_TRUE(fixtures::writeFile(bits, "(0028,0100)\n"));
    const std::string before = fixtures::readFile(a) + fixtures::readFile(kqr);
    // a copy whose samples differ, and one whose pixel data cannot be decoded
    for (const std::string& copy : {changed, broken})
    {
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(a.c_str()).good());
        DcmElement* element = NULL;
        Uint16* pixels = NULL;
        ASSERT_TRUE(file.getDataset()->findAndGetElement(DCM_PixelData, element).good() &&
                    element->getUint16Array(pixels).good());
        if (copy == changed)
            pixels[3] ^= 0x100;
        else
            file.getDataset()->putAndInsertUint16(DCM_BitsAllocated, 12);
        ASSERT_TRUE(file.saveFile(copy.c_str(), EXS_LittleEndianExplicit).good());
    }
    // 4 x 4 byte dumps compared by size and measure: a ramp, and a copy with half its samples wrong
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
    const std::string help = "objdiff: Compare two DICOM objects as applyChanges verifies them\n"
                             "usage: objdiff [options] file-1 [file-2]\n";
    const std::string see = " (see objdiff -h)\n", loadError = "Error loading " + missing + "(No such file or directory)\n";
    const std::string notDump = "Unknown image format.\nError reading image dump ";
    struct Case
    {
        std::vector<std::string> args;
        int status;
        std::string out;   // the start of standard output ("": none at all)
        std::string err;   // standard error
        bool tail = false; // err is its end only (the toolkit's log lines may come first)
    };
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
        {{"-i", ids, a, b}, 1, "", "! (0010,0010): Test^Patient != Other^Name\n"},
        {{"-i", missing, a, b}, 2, "", "objdiff: cannot read ignoretags file " + missing + "\n"},
        // what the edit would change on a; the same edit on both sides; an object that has it
        {{"-k", kqr, a, a}, 1, "< (0020,4000): edited\n", "! (0010,0010): Other^Name != Test^Patient\n"},
        {{"-k", kqr, "-K", kqr, a, a}, 0, "", ""},
        {{"-i", privateGroup, "-K", kqr, b, a}, 0, "", ""},
        {{a, missing}, 2, "", loadError},
        {{missing, a}, 2, "", loadError}, // the first failure ends the comparison
        {{"-k", missing, a, b}, 2, "", loadError},
        // decoded frames
        {{"-m", "1", a, changed}, 1, "! Pixel Data differs\n", "! Image frame 1 differs\n", true},
        {{"-m", "0", a, changed}, 1, "", ""},
        {{"-m", "1", "-i", bits, a, broken}, 2, "", "Error processing second DICOM object\n", true},
        {{"-c", dir.file("a.icon"), dir.file("a.icon")}, 0, "", ""},
        {{"-c", dir.file("a.icon"), dir.file("wrong.icon")}, 1, "", ""},
        {{"-c", a, dir.file("a.icon")}, 2, "", notDump + a + "\n", true},
        {{"-c", dir.file("a.icon"), a}, 2, "", notDump + a + "\n", true},
        // the dump of an object: its attributes, then the dump file, which compares equal to itself
        {{"-w", dir.file("a"), a}, 0, "(0008,0005) CS [ISO_IR 100]", ""},
        {{"-c", dir.file("a.dump.wavelet"), dir.file("a.dump.wavelet")}, 0, "", ""},
    };
    for (const Case& c : cases)
    {
        std::string line;
        for (const std::string& arg : c.args)
            line += " " + arg;
        SCOPED_TRACE("objdiff" + line);
        std::vector<std::string> argv = {fixtures::program("objdiff")};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        const fixtures::RunResult r = fixtures::run(argv);
        EXPECT_EQ(c.status, r.status);
        EXPECT_EQ(c.out, c.out.empty() ? r.out : r.out.substr(0, c.out.size()));
        EXPECT_EQ(c.err, c.tail && r.err.size() > c.err.size() ? r.err.substr(r.err.size() - c.err.size()) : r.err);
    }
    EXPECT_EQ(before, fixtures::readFile(a) + fixtures::readFile(kqr));
    // with -v every frame tells its measure and largest difference, whatever the verdict
    const fixtures::RunResult r = fixtures::run({fixtures::program("objdiff"), "-m", "1", "-v", a, changed});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.out.find("Frame 1: peak-error measure ")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find(" (equal above 40), largest absolute difference 256\n"));
}
