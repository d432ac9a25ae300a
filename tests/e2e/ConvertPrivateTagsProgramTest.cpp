// convertPrivateTags run as a program: exit status, exact messages, and files on failure.
#include "privatetags/tests/KQTestSupport.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <gtest/gtest.h>

#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using namespace kqtest;

namespace {

const std::string usage = "Usage: convertPrivateTags [-h] <in> <out>\n";

fixtures::RunResult convert(const std::vector<std::string>& args)
{
    std::vector<std::string> argv{fixtures::program("convertPrivateTags")};
    argv.insert(argv.end(), args.begin(), args.end());
    return fixtures::run(argv);
}

std::string failure(const std::string& in, const std::string& out)
{
    return "convertPrivateTags: cannot convert " + in + " to " + out + "\n";
}

bool writeLegacyObject(const std::string& path)
{
    std::unique_ptr<DcmFileFormat> file(fixtures::makeObject(fixtures::ObjectSpec()));
    DcmDataset& ds = *file->getDataset();
    putCreator(ds, 0xBA, KQ_LEGACY_CREATOR);
    putPrivate(ds, 0xBA51, "20190305", EVR_DA);
    DcmItem* change = appendItem(ds, f215(0xDA31));
    change->putAndInsertString(DCM_PatientName, "Changed^Name");
    return file->saveFile(path.c_str(), EXS_LittleEndianExplicit).good();
}

} // namespace

TEST(ConvertPrivateTagsProgram, UsageAndArguments)
{
    fixtures::RunResult r = convert({"-h"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(usage, r.out);
    EXPECT_EQ("", r.err);

    for (const std::vector<std::string>& args :
         {std::vector<std::string>{}, {"one"}, {"one", "two", "three"}, {"-x", "out"}, {"in", ""}})
    {
        r = convert(args);
        EXPECT_EQ(1, r.status);
        EXPECT_EQ("", r.out);
        EXPECT_EQ(usage, r.err);
    }
}

TEST(ConvertPrivateTagsProgram, ConvertsAndLeavesNoTemporaryFile)
{
    fixtures::TempDir dir;
    const std::string in = dir.file("legacy.dcm");
    const std::string out = dir.file("converted.dcm");
    ASSERT_TRUE(writeLegacyObject(in));
    const std::string original = fixtures::readFile(in);

    fixtures::RunResult r = convert({in, out});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_EQ("", r.err);
    EXPECT_EQ(original, fixtures::readFile(in));
    EXPECT_EQ((std::vector<std::string>{"converted.dcm", "legacy.dcm"}), fixtures::listDir(dir.path()));

    DcmFileFormat converted;
    ASSERT_TRUE(converted.loadFile(out.c_str()).good());
    DcmDataset& ds = *converted.getDataset();
    EXPECT_EQ((std::vector<Uint16>{0x0010, 0x1015, 0x1062}), privateElements(ds));
    EXPECT_EQ("20190305", stringOf(ds, f215(0x1015)));
    EXPECT_EQ("Test^Patient", stringOf(ds, DCM_PatientName));

    // an existing output is replaced; converting in place works as well
    r = convert({in, in});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(fixtures::readFile(out), fixtures::readFile(in));
    EXPECT_EQ((std::vector<std::string>{"converted.dcm", "legacy.dcm"}), fixtures::listDir(dir.path()));

    // relative names are taken from the working directory
    char cwd[4096];
    ASSERT_NE(nullptr, getcwd(cwd, sizeof(cwd)));
    ASSERT_EQ(0, chdir(dir.path().c_str()));
    r = convert({"legacy.dcm", "relative.dcm"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.err);
    EXPECT_EQ((std::vector<std::string>{"converted.dcm", "legacy.dcm", "relative.dcm"}),
              fixtures::listDir(dir.path()));
    ASSERT_EQ(0, chdir(cwd));
}

TEST(ConvertPrivateTagsProgram, FailuresLeaveEveryFileAsItWas)
{
    fixtures::TempDir dir;
    const std::string in = dir.file("legacy.dcm");
    ASSERT_TRUE(writeLegacyObject(in));
    const std::string garbage = dir.file("garbage.dcm");
    ASSERT_TRUE(fixtures::writeFile(garbage, "DICM but not really"));
    const std::string existing = dir.file("existing.dcm");
    ASSERT_TRUE(fixtures::writeFile(existing, "previous content"));
    const std::string truncated = fixtures::corpusFile("MR_truncated.dcm");
    const std::string outDir = dir.file("outdir");
    ASSERT_EQ(0, mkdir(outDir.c_str(), 0755));
    const std::vector<std::string> before = fixtures::listDir(dir.path());
    const std::string inContent = fixtures::readFile(in);

    const std::string missingIn = dir.file("missing.dcm");
    const std::string newOut = dir.file("new.dcm");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {missingIn, newOut},               // no input
        {garbage, newOut},                 // not DICOM
        {truncated, newOut},               // cut short
        {garbage, existing},               // an existing output stays as it was
        {truncated, existing},
        {in, dir.file("none/out.dcm")},   // no such directory
        {in, outDir},                      // the output is a directory
        {dir.path(), newOut},              // the input is a directory
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.first + " -> " + c.second);
        fixtures::RunResult r = convert({c.first, c.second});
        EXPECT_EQ(1, r.status);
        EXPECT_EQ("", r.out);
        EXPECT_EQ(failure(c.first, c.second), r.err);
        EXPECT_EQ(before, fixtures::listDir(dir.path()));
        EXPECT_EQ((std::vector<std::string>{}), fixtures::listDir(outDir));
        EXPECT_EQ("previous content", fixtures::readFile(existing));
        EXPECT_EQ(inContent, fixtures::readFile(in));
    }

    // an output directory without write permission
    if (geteuid() != 0)
    {
        ASSERT_EQ(0, chmod(outDir.c_str(), 0555));
        const std::string locked = outDir + "/out.dcm";
        fixtures::RunResult r = convert({in, locked});
        EXPECT_EQ(1, r.status);
        EXPECT_EQ(failure(in, locked), r.err);
        EXPECT_EQ((std::vector<std::string>{}), fixtures::listDir(outDir));
    }
}
