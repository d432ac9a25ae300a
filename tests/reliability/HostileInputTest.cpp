// Files shaped to break the toolkit's reader (nesting deeper than its stack, a deflated data set
// that inflates without end): every program ends with one line naming the file, in bounded time
// and memory, and no object changes.
#include "tests/fixtures/Fixtures.h"
#include "tests/fixtures/HostileFiles.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>

using namespace fixtures;

namespace {

// A program run under a 1 GiB address space and a minute of time.
RunResult bounded(const std::string& name, const std::vector<std::string>& args)
{
    std::vector<std::string> argv{"/usr/bin/prlimit", "--as=1073741824", "--", "/usr/bin/timeout", "60", program(name)};
    argv.insert(argv.end(), args.begin(), args.end());
    return run(argv);
}

const std::string tooDeep = "Sequences nested deeper than 256 levels";

} // namespace

TEST(HostileInput, ShapesTheReaderCannotSurviveEndInOneLine)
{
    TempDir dir;
    struct Case
    {
        const char* name;
        std::string bytes;
        std::string reason;
    };
    const std::vector<Case> cases = {
        {"explicit", nestedObject(20000, NEST_EXPLICIT_UNDEFINED), tooDeep},
        {"implicit", nestedObject(20000, NEST_IMPLICIT_UNDEFINED), tooDeep},
        {"implicit-defined", nestedObject(3000, NEST_IMPLICIT_DEFINED), tooDeep},
        {"unknown-vr", nestedObject(20000, NEST_UN_UNDEFINED), tooDeep},
        {"bomb", std::string(), "Deflated data set inflates to more than 100 times its size (a decompression bomb)"},
    };
    ASSERT_TRUE(writeDeflateBomb(dir.file("bomb"), 1ull << 30));
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Doe^Jane");
    ASSERT_TRUE(writer.save(dir.file("edit.kqr").c_str()).good());
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        const std::string path = dir.file(c.name);
        if (!c.bytes.empty())
        {
            ASSERT_TRUE(writeFile(path, c.bytes));
        }
        const std::string before = readFile(path);

        RunResult r = bounded("applyChanges", {"-p", dir.file("edit.kqr"), "-o", path});
        EXPECT_EQ(1, r.status);
        EXPECT_EQ("Error loading " + path + " [" + c.reason + "]\nApplying soft edit changes to object failed: " +
                      path + "\n",
                  r.err);
        EXPECT_EQ(before, readFile(path));

        r = bounded("objdiff", {path, path});
        EXPECT_EQ(2, r.status);
        EXPECT_EQ("Error loading " + path + "(" + c.reason + ")\n", r.err);

        r = bounded("transcode", {"-x", "1.2.840.10008.1.2.1", path, dir.file("out")});
        EXPECT_EQ(1, r.status);
        EXPECT_EQ("transcode: cannot read " + path + " [" + c.reason + "]\n", r.err);

        r = bounded("convertPrivateTags", {path, dir.file("out")});
        EXPECT_EQ(1, r.status);
        EXPECT_EQ("convertPrivateTags: cannot convert " + path + ": " + c.reason + "\n", r.err);
        EXPECT_FALSE(fileExists(dir.file("out")));
    }
    // a nesting far deeper than real objects use, but within the limit, is read as ever
    ASSERT_TRUE(writeFile(dir.file("deep-enough"), nestedObject(200, NEST_EXPLICIT_UNDEFINED)));
    EXPECT_EQ(0, bounded("applyChanges", {"-p", dir.file("edit.kqr"), "-o", dir.file("deep-enough")}).status);
}

TEST(HostileInput, DirectoryRunCommitsWhatCameBeforeAndRefusesADeepKqR)
{
    TempDir dir;
    const std::string study = dir.file("study");
    mkdir(study.c_str(), 0755);
    writeStudy(study, 1, 4);
    ASSERT_TRUE(writeFile(study + "/NESTED", nestedObject(20000, NEST_EXPLICIT_UNDEFINED)));
    ASSERT_TRUE(writeFile(dir.file("deep.kqr"), nestedObject(20000, NEST_IMPLICIT_UNDEFINED)));
    std::vector<std::string> order;
    DIR* listing = opendir(study.c_str());
    while (struct dirent* e = readdir(listing))
        if (e->d_name[0] != '.')
            order.push_back(e->d_name);
    closedir(listing);
    std::map<std::string, std::string> before;
    for (const std::string& name : order)
        before[name] = readFile(study + "/" + name);

    RunResult r = bounded("applyChanges", {"-p", dir.file("deep.kqr"), "-d", study});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Refusing to read KqR file " + dir.file("deep.kqr") + ": " + tooDeep + "\n", r.err);

    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Doe^Jane");
    ASSERT_TRUE(writer.save(dir.file("edit.kqr").c_str()).good());
    r = bounded("applyChanges", {"-p", dir.file("edit.kqr"), "-d", study});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Error loading " + study + "/NESTED [" + tooDeep +
                  "]\nApplying soft edit changes to object failed: " + study + "/NESTED\n",
              r.err);
    bool after = false;
    for (const std::string& name : order)
    {
        after = after || name == "NESTED";
        if (name != "NESTED")
        {
            EXPECT_EQ(after ? "Test^Patient" : "Doe^Jane", attribute(study + "/" + name, DCM_PatientName)) << name;
        }
        if (after)
        {
            EXPECT_EQ(before[name], readFile(study + "/" + name)) << name;
        }
    }
}

TEST(HostileInput, ManyElementsAndItemsTakeLinearTime)
{
    // 60,000 elements and 40,000 items (about 2 MB): a walk that fetches element i by number
    // takes minutes here, a linear one about a second
    TempDir dir;
    ObjectSpec spec;
    spec.withPixelData = false;
    std::unique_ptr<DcmFileFormat> file(makeObject(spec));
    DcmDataset& ds = *file->getDataset();
    for (Uint16 group = 0x0011; group < 0x0011 + 2 * 60; group += 2)
    {
        ds.putAndInsertString(DcmTag(group, 0x0010, EVR_LO), "MANY");
        for (Uint16 element = 0x1000; element < 0x1000 + 1000; ++element)
            ds.putAndInsertString(DcmTag(group, element, EVR_LO), "value");
    }
    DcmItem* item = nullptr;
    for (long i = 0; i < 40000; ++i)
        if (ds.findOrCreateSequenceItem(DCM_ReferencedImageSequence, item, -2).good())
            item->putAndInsertString(DCM_ReferencedSOPInstanceUID, ("1.2." + std::to_string(i)).c_str());
    ASSERT_TRUE(file->saveFile(dir.file("many").c_str(), EXS_LittleEndianExplicit).good());
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Doe^Jane");
    ASSERT_TRUE(writer.save(dir.file("edit.kqr").c_str()).good());

    std::vector<std::string> argv{"/usr/bin/timeout", "20", program("objdiff"), dir.file("many"), dir.file("many")};
    EXPECT_EQ(0, run(argv).status);
    argv = {"/usr/bin/timeout", "20", program("applyChanges"), "-p", dir.file("edit.kqr"), "-o", dir.file("many")};
    EXPECT_EQ(0, run(argv).status);
    EXPECT_EQ("Doe^Jane", attribute(dir.file("many"), DCM_PatientName));
}
