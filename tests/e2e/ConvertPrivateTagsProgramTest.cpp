// convertPrivateTags run as a program: exit status, exact messages, and files on failure.
#include "privatetags/KQItem.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <gtest/gtest.h>

#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

fixtures::RunResult convert(const std::vector<std::string>& args)
{
    std::vector<std::string> argv{fixtures::program("convertPrivateTags")};
    argv.insert(argv.end(), args.begin(), args.end());
    return fixtures::run(argv);
}

// An object with a legacy date (F215,BA51) and change sequence (F215,DA31).
bool writeLegacyObject(const std::string& path)
{
    std::unique_ptr<DcmFileFormat> file(fixtures::makeObject(fixtures::ObjectSpec()));
    DcmDataset& ds = *file->getDataset();
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x00BA, EVR_LO), KQ_LEGACY_CREATOR);
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0xBA51, EVR_DA), "20190305");
    DcmItem* change = NULL;
    ds.findOrCreateSequenceItem(DcmTag(KQ_PRIVATE_GROUP, 0xDA31, EVR_SQ), change, -2);
    change->putAndInsertString(DCM_PatientName, "Changed^Name");
    return file->saveFile(path.c_str(), EXS_LittleEndianExplicit).good();
}

} // namespace

TEST(ConvertPrivateTagsProgram, ConvertsInPlaceOrBeside)
{
    fixtures::TempDir dir;
    const std::string in = dir.file("legacy.dcm");
    ASSERT_TRUE(writeLegacyObject(in));
    const std::string original = fixtures::readFile(in);
    // relative names are taken from the working directory
    char cwd[4096];
    ASSERT_NE(nullptr, getcwd(cwd, sizeof(cwd)));
    ASSERT_EQ(0, chdir(dir.path().c_str()));
    const fixtures::RunResult relative = convert({"legacy.dcm", "converted.dcm"});
    ASSERT_EQ(0, chdir(cwd));
    EXPECT_EQ(0, relative.status);
    EXPECT_EQ("", relative.out + relative.err);
    EXPECT_EQ(original, fixtures::readFile(in));

    DcmFileFormat converted;
    ASSERT_TRUE(converted.loadFile(dir.file("converted.dcm").c_str()).good());
    const char* date = NULL;
    DcmItem* change = NULL;
    ASSERT_TRUE(converted.getDataset()->findAndGetString(DcmTagKey(KQ_PRIVATE_GROUP, 0x1015), date).good());
    EXPECT_STREQ("20190305", date);
    EXPECT_TRUE(KQItem(*converted.getDataset()).findAndGetKQSequenceItem(0x62, change).good());

    const fixtures::RunResult inPlace = convert({in, in});
    EXPECT_EQ(0, inPlace.status);
    EXPECT_EQ(fixtures::readFile(dir.file("converted.dcm")), fixtures::readFile(in));
    EXPECT_EQ((std::vector<std::string>{"converted.dcm", "legacy.dcm"}), fixtures::listDir(dir.path()));
}

TEST(ConvertPrivateTagsProgram, EveryDroppedElementIsNamed)
{
    // a legacy element without canonical number, and one whose canonical element is already there
    fixtures::TempDir dir;
    std::unique_ptr<DcmFileFormat> file(fixtures::makeObject(fixtures::ObjectSpec()));
    DcmDataset& ds = *file->getDataset();
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x0010, EVR_LO), KQ_PRIVATE_CREATOR);
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x1015, EVR_DA), "20000101");
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x00BA, EVR_LO), KQ_LEGACY_CREATOR);
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0xBA51, EVR_DA), "20190305");
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0xBAFF, EVR_LO), "no place");
    ASSERT_TRUE(file->saveFile(dir.file("in.dcm").c_str(), EXS_LittleEndianExplicit).good());

    const fixtures::RunResult r = convert({dir.file("in.dcm"), dir.file("out.dcm")});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("W: dropped element (f215,baff) of legacy block BA: it has no canonical number\n"
              "W: dropped element (f215,ba51) of legacy block BA: the item already holds (f215,1015)\n",
              r.err);
    EXPECT_EQ("20000101", fixtures::attribute(dir.file("out.dcm"), DcmTagKey(KQ_PRIVATE_GROUP, 0x1015)));
}

TEST(ConvertPrivateTagsProgram, UsageAndFailuresLeaveEveryFileAsItWas)
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
    const std::string newOut = dir.file("new.dcm");

    const std::string see = " (see convertPrivateTags -h)\n";
    const std::vector<std::pair<std::vector<std::string>, std::string>> usageCases = {
        {{}, "missing parameter dcmfile-in"},
        {{"one"}, "missing parameter dcmfile-out"},
        {{"one", "two", "three"}, "unexpected parameter three"},
        {{"-x", "out"}, "unknown option -x"},
        {{"in", ""}, "parameter 2 is empty"}};
    const std::vector<std::pair<std::string, std::string>> failures = {
        {dir.file("missing.dcm"), newOut}, {garbage, newOut},      {truncated, newOut},
        {garbage, existing},               {truncated, existing}, {in, dir.file("none/out.dcm")},
        {in, outDir},                      {dir.path(), newOut}};
    fixtures::RunResult r;
    for (const auto& c : usageCases)
    {
        r = convert(c.first);
        EXPECT_EQ(1, r.status);
        EXPECT_EQ("", r.out);
        EXPECT_EQ("convertPrivateTags: " + c.second + see, r.err);
    }
    for (const auto& c : failures)
    {
        SCOPED_TRACE(c.first + " -> " + c.second);
        r = convert({c.first, c.second});
        EXPECT_EQ(1, r.status);
        EXPECT_EQ("", r.out);
        EXPECT_EQ("convertPrivateTags: cannot convert " + c.first + " to " + c.second + "\n", r.err);
        EXPECT_EQ(before, fixtures::listDir(dir.path()));
        EXPECT_TRUE(fixtures::listDir(outDir).empty());
        EXPECT_EQ("previous content", fixtures::readFile(existing));
        EXPECT_EQ(inContent, fixtures::readFile(in));
    }
}
