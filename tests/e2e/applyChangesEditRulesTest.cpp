// What a soft edit does and says, run as a user runs it: makeKqR writes the change set,
// applyChanges applies it to a generated study. Private blocks keep their owners, untouched
// objects stay byte-identical, changes that match nothing are named, objects that would lose data
// are refused.
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace fixtures;

namespace {

RunResult applyChanges(const std::vector<std::string>& args)
{
    return runBuilt("applyChanges", args);
}

// A study of two series of two objects (IM1..IM4) and a KqR file written by makeKqR.
struct Study
{
    TempDir root;
    std::string dir = root.file("study");
    std::string kqr = root.file("edit.kqr");
    std::vector<ObjectSpec> specs;

    Study()
    {
        mkdir(dir.c_str(), 0755);
        specs = writeStudy(dir, 2, 2);
    }
    bool makeKqR(const std::vector<std::string>& args) const
    {
        std::vector<std::string> all = args;
        all.push_back(kqr);
        return runBuilt("makeKqR", all).status == 0;
    }
    std::map<std::string, std::string> snapshot() const
    {
        std::map<std::string, std::string> files;
        for (const std::string& name : listDir(dir))
            if (name != ".tmp")
                files[name] = readFile(file(name));
        return files;
    }
    std::string file(const std::string& name) const { return dir + "/" + name; }
};

} // namespace

TEST(ApplyChangesEditRules, PrivateBlocksKeepTheirOwners)
{
    // IM1 uses block 10 of group F215 for another creator: the series-level KqR file carries its own
    // creator element (F215,0010) "KQ group A", which must not take that block over.
    Study s;
    std::unique_ptr<DcmFileFormat> object(makeObject(s.specs[0]));
    DcmDataset& ds = *object->getDataset();
    ASSERT_TRUE(ds.putAndInsertString(DcmTag(0xf215, 0x0010, EVR_LO), "OTHER VENDOR").good());
    ASSERT_TRUE(ds.putAndInsertString(DcmTag(0xf215, 0x1001, EVR_LO), "theirs").good());
    ASSERT_TRUE(object->saveFile(s.file("IM1").c_str(), EXS_LittleEndianExplicit).good());
    ASSERT_TRUE(s.makeKqR({"-S", s.specs[0].seriesUID, "-m", "SeriesDescription=renamed"}));

    const RunResult r = applyChanges({"-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("renamed", attribute(s.file("IM1"), DCM_SeriesDescription));
    EXPECT_EQ("OTHER VENDOR", attribute(s.file("IM1"), DcmTagKey(0xf215, 0x0010)));
    EXPECT_EQ("theirs", attribute(s.file("IM1"), DcmTagKey(0xf215, 0x1001)));
    // no private element was set, so no creator was written
    EXPECT_EQ("<missing>", attribute(s.file("IM2"), DcmTagKey(0xf215, 0x0010)));
}

TEST(ApplyChangesEditRules, ObjectsNoChangeTouchesStayByteIdentical)
{
    Study s;
    ASSERT_TRUE(s.makeKqR({"-S", s.specs[2].seriesUID, "-m", "SeriesDescription=renamed"}));
    const auto before = s.snapshot();
    RunResult r = applyChanges({"-v", "-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(0, r.status) << r.err;
    auto after = s.snapshot();
    // the series-level change touches the second series only
    EXPECT_EQ(before.at("IM1"), after.at("IM1"));
    EXPECT_EQ(before.at("IM2"), after.at("IM2"));
    EXPECT_NE(before.at("IM3"), after.at("IM3"));
    EXPECT_NE(std::string::npos,
              r.out.find("No attribute of " + s.file("IM1") + " changes: it is left as it is\n"))
        << r.out;

    // a rerun writes nothing
    r = applyChanges({"-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.err);
    EXPECT_EQ(after, s.snapshot());
}

TEST(ApplyChangesEditRules, ChangesThatMatchNothingAreNamed)
{
    Study s;
    ASSERT_TRUE(s.makeKqR({"-m", "PatientName=Doe^Jane", "-S", "9.9.9", "-m", "SeriesDescription=typo", "-S",
                           s.specs[0].seriesUID, "-I", "9.9.9.1", "-m", "InstanceNumber=5", "-I",
                           s.specs[0].sopInstanceUID, "-m", "InstanceNumber=7"}));
    RunResult r = applyChanges({"-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("Warning: series item 9.9.9 of KqR file " + s.kqr + " matched no object\n" +
                  "Warning: instance item 9.9.9.1 (series " + s.specs[0].seriesUID + ") of KqR file " + s.kqr +
                  " matched no object\n",
              r.err);
    EXPECT_EQ("7", attribute(s.file("IM1"), DCM_InstanceNumber));

    // a study whose objects sit one level down: nothing is edited, and that is said
    TempDir nested;
    mkdir(nested.file("series").c_str(), 0755);
    writeStudy(nested.file("series"), 1, 1);
    const std::string object = readFile(nested.file("series/IM1"));
    r = applyChanges({"-p", s.kqr, "-d", nested.path()});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("Warning: study directory " + nested.path() + " holds no object: the changes of KqR file " + s.kqr +
                  " applied to nothing\n",
              r.err);
    EXPECT_EQ(object, readFile(nested.file("series/IM1")));
}

TEST(ApplyChangesEditRules, ObjectReadOnlyByDroppingAnElementIsRefused)
{
    // IM1 holds Image Comments twice; the toolkit keeps the first value only
    Study s;
    std::string bytes = readFile(s.file("IM1"));
    std::unique_ptr<DcmFileFormat> object(makeObject(s.specs[0]));
    object->getDataset()->putAndInsertString(DCM_ImageComments, "first");
    ASSERT_TRUE(object->saveFile(s.file("IM1").c_str(), EXS_LittleEndianExplicit).good());
    bytes = readFile(s.file("IM1"));
    const std::string element("\x20\x00\x00\x40LT\x06\x00", 8);
    const size_t at = bytes.find(element);
    ASSERT_NE(std::string::npos, at);
    bytes.insert(at + 14, element + "second"); // the same element again, right after the first
    ASSERT_TRUE(writeFile(s.file("IM1"), bytes));
    ASSERT_TRUE(s.makeKqR({"-m", "PatientName=Doe^Jane"}));
    const auto before = s.snapshot();

    const RunResult r = applyChanges({"-p", s.kqr, "-o", s.file("IM1")});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos,
              r.err.find("Refusing to edit " + s.file("IM1") +
                         ": it holds element (0020,4000) twice, and only the first could be kept (the edited copy "
                         "would lose the second)\nApplying soft edit changes to object failed: " +
                         s.file("IM1") + "\n"))
        << r.err;
    EXPECT_EQ(before, s.snapshot());
}
