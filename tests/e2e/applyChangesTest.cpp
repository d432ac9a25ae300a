// Runs the built applyChanges program on generated studies and on real objects.
#include "tests/fixtures/Fixtures.h"
#include "privatetags/KQItem.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace fixtures;

namespace {

const std::string usage =
    "applyChanges [-h] [-v] -p <kqrfile> { -d <studydir> | -o <objectname> } \n"
    "\n"
    "    -h               : prints this usage information\n"
    "    -v               : print verbose messages\n"
    "    -p <kqrfile>     : path to the KqR file changes to be taken from\n"
    "    -d <studydir>    : path to directory study objects reside\n"
    "                       changes will be applied to all objects in the study directory\n"
    "    -o <objectname>  : path to DICOM object the changes to be applied to\n"
    "                       changes will be applied to the specified DICOM object only\n"
    "\n"
    "    The -d and -o options are exclusive: exactly one of them need to be specified\n"
    "\n";

RunResult applyChanges(const std::vector<std::string>& args)
{
    return runBuilt("applyChanges", args);
}

// A KqR file that renames the patient at study level.
std::string writePatientKqR(const TempDir& dir, const std::string& name = "KqR.edit")
{
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Doe^Jane");
    writer.setStudyAttribute(DCM_PatientID, "NEWID");
    const std::string path = dir.file(name);
    EXPECT_TRUE(writer.save(path.c_str()).good());
    return path;
}

} // namespace

TEST(ApplyChangesCommandLine, UsageErrorsAndHelp)
{
    RunResult r = applyChanges({});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("KqR File was not specified (-p)\n" + usage, r.err);
    EXPECT_EQ("", r.out);

    r = applyChanges({"-v", "-h", "-x"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(usage, r.err);

    r = applyChanges({"-x"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(program("applyChanges") + ": invalid option -- 'x'\nInvalid argument : ?\n\n" + usage, r.err);

    r = applyChanges({"-p"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(program("applyChanges") + ": option requires an argument -- 'p'\nInvalid argument : ?\n\n" + usage,
              r.err);

    r = applyChanges({"-p", "k", "-d", "a", "-o", "b"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("-o and -d options are exclusive, only one of them can be specified\n\n" + usage, r.err);

    r = applyChanges({"-p", "k"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Neither -o nor -d options were specified\n\n" + usage, r.err);

    r = applyChanges({"-d", "a"});
    EXPECT_EQ("KqR File was not specified (-p)\n" + usage, r.err);
}

TEST(ApplyChangesKqR, UnreadableOrEmptyKqRFiles)
{
    TempDir dir;
    ObjectSpec spec;
    ASSERT_TRUE(writeObject(dir.file("IM1"), spec));
    const std::string before = readFile(dir.file("IM1"));

    RunResult r = applyChanges({"-p", dir.file("missing.kqr"), "-o", dir.file("IM1")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Error loading KqR file " + dir.file("missing.kqr") + "\n", r.err);

    // no change sequence at all
    KqRWriter none;
    ASSERT_TRUE(none.save(dir.file("none.kqr").c_str()).good());
    r = applyChanges({"-p", dir.file("none.kqr"), "-o", dir.file("IM1")});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.err);

    // a change item without elements
    KqRWriter empty;
    DcmItem* item = nullptr;
    ASSERT_TRUE(empty.changeItem(item).good());
    ASSERT_TRUE(empty.save(dir.file("empty.kqr").c_str()).good());
    r = applyChanges({"-p", dir.file("empty.kqr"), "-d", dir.path()});
    EXPECT_EQ(0, r.status);
    EXPECT_FALSE(fileExists(dir.file(".tmp")));
    EXPECT_EQ(before, readFile(dir.file("IM1")));
}

TEST(ApplyChangesObject, ChangesOneObjectAndKeepsEverythingElse)
{
    TempDir dir;
    ObjectSpec spec;
    ASSERT_TRUE(writeObject(dir.file("IM1"), spec));
    ASSERT_TRUE(writeObject(dir.file("orig"), spec));
    const std::string kqr = writePatientKqR(dir);

    RunResult r = applyChanges({"-v", "-p", kqr, "-o", dir.file("IM1")});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.err);
    EXPECT_EQ("Apply soft edit changes to " + dir.file("IM1") +
                  "\n   Modified key: (0010,0010)\n   Modified key: (0010,0020)\n",
              r.out.substr(0, r.out.find("DEBUG")));
    EXPECT_EQ("Doe^Jane", attribute(dir.file("IM1"), DCM_PatientName));
    EXPECT_EQ("NEWID", attribute(dir.file("IM1"), DCM_PatientID));
    // the temporary directory stays, empty
    EXPECT_TRUE(listDir(dir.file(".tmp")).empty());

    // the replacement keeps the object's permissions and owner
    ASSERT_EQ(0, chmod(dir.file("IM1").c_str(), 0640));
    if (getuid() == 0)
    {
        ASSERT_EQ(0, chown(dir.file("IM1").c_str(), 65534, 65534));
    }
    r = applyChanges({"-p", kqr, "-o", dir.file("IM1")});
    EXPECT_EQ(0, r.status) << r.err;
    struct stat st;
    ASSERT_EQ(0, stat(dir.file("IM1").c_str(), &st));
    EXPECT_EQ(0640u, st.st_mode & 07777);
    if (getuid() == 0)
    {
        EXPECT_EQ(65534u, st.st_uid);
    }

    r = run({"/usr/bin/python3", std::string(KQ_E2E_DIR) + "/dataset_diff.py", dir.file("orig"), dir.file("IM1"),
             "0010,0010=Doe^Jane", "0010,0020=NEWID"});
    EXPECT_EQ(0, r.status) << r.out << r.err;
}

TEST(ApplyChangesObject, FailuresLeaveTheObjectByteIdentical)
{
    TempDir dir;
    ObjectSpec spec;
    ASSERT_TRUE(writeObject(dir.file("IM1"), spec));
    const std::string original = readFile(dir.file("IM1"));
    const std::string kqr = writePatientKqR(dir);

    // the temporary directory cannot be made
    RunResult r = applyChanges({"-p", kqr, "-o", "/nonexistent-kq/dir/IM1"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Temporary directory could not be created: /nonexistent-kq/dir/.tmp\n", r.err);

    // .tmp is a link (here dangling): nothing is written through it
    ASSERT_EQ(0, symlink("/nonexistent-kq/target", dir.file(".tmp").c_str()));
    r = applyChanges({"-p", kqr, "-o", dir.file("IM1")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Temporary directory is not a directory (a symbolic link or a file is in its place): " +
                  dir.file(".tmp") + "\n",
              r.err);
    EXPECT_EQ(original, readFile(dir.file("IM1")));
    unlink(dir.file(".tmp").c_str());

    // a change that cannot be copied (OB)
    KqRWriter writer;
    DcmItem* item = nullptr;
    ASSERT_TRUE(writer.changeItem(item).good());
    const Uint8 bytes[] = {1, 2, 3, 4};
    item->putAndInsertUint8Array(DCM_ICCProfile, bytes, 4);
    ASSERT_TRUE(writer.save(dir.file("ob.kqr").c_str()).good());
    r = applyChanges({"-p", dir.file("ob.kqr"), "-o", dir.file("IM1")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Error applying soft edit changes to " + dir.file("IM1") + " [" + OFCondition(EC_CorruptedData).text() +
                  "]\nApplying soft edit changes to object failed: " + dir.file("IM1") + "\n",
              r.err);
    EXPECT_EQ(original, readFile(dir.file("IM1")));
}

TEST(ApplyChangesDirectory, SkipsHiddenKqRAndDirectoriesAndAppliesLevels)
{
    TempDir dir;
    ObjectSpec base;
    base.modality = "MR";
    std::vector<ObjectSpec> specs = writeStudy(dir.path(), 2, 2, base);
    ASSERT_EQ(4u, specs.size());
    ASSERT_TRUE(writeFile(dir.file(".hidden"), "hidden"));
    ASSERT_EQ(0, mkdir(dir.file("sub").c_str(), 0755));
    ASSERT_TRUE(writeFile(dir.file("sub/IM9"), "inside"));

    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Study^Level");
    writer.setStudyAttribute(DCM_Modality, "CT");
    writer.setSeriesAttribute(specs[2].seriesUID.c_str(), DCM_SeriesDescription, "Second series");
    writer.setInstanceAttribute(specs[2].seriesUID.c_str(), specs[3].sopInstanceUID.c_str(), DCM_InstanceNumber,
                                "42");
    ASSERT_TRUE(writer.save(dir.file("KqR.1").c_str()).good());
    const std::string kqrBytes = readFile(dir.file("KqR.1"));

    RunResult r = applyChanges({"-v", "-p", dir.file("KqR.1"), "-d", dir.path()});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.err);
    EXPECT_EQ(0u, r.out.find("Iterating through files in " + dir.path() + "\n"));
    EXPECT_NE(std::string::npos, r.out.find("Skipping .hidden\n"));
    EXPECT_NE(std::string::npos, r.out.find("Skipping directory sub\n"));
    EXPECT_NE(std::string::npos, r.out.find("Skipping KqR.1\n"));
    EXPECT_NE(std::string::npos, r.out.find("Skipping .tmp\n"));
    EXPECT_EQ(std::string::npos, r.out.find("Apply soft edit changes to " + dir.file("sub")));

    for (int i = 0; i < 4; ++i)
    {
        const std::string path = dir.file("IM" + std::to_string(i + 1));
        EXPECT_EQ("Study^Level", attribute(path, DCM_PatientName));
        EXPECT_EQ("CT", attribute(path, DCM_Modality));
        EXPECT_EQ(i >= 2 ? "Second series" : "<missing>", attribute(path, DCM_SeriesDescription));
        EXPECT_EQ(i == 3 ? "42" : "1", attribute(path, DCM_InstanceNumber));
    }
    EXPECT_EQ("hidden", readFile(dir.file(".hidden")));
    EXPECT_EQ("inside", readFile(dir.file("sub/IM9")));
    EXPECT_EQ(kqrBytes, readFile(dir.file("KqR.1")));

    r = applyChanges({"-p", dir.file("KqR.1"), "-d", dir.file("nothere")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Study directory could not be opened: " + dir.file("nothere") + "\n", r.err);
}

TEST(ApplyChangesKqR, LegacyLayoutIsRelocatedAndApplied)
{
    TempDir dir;
    ObjectSpec spec;
    ASSERT_TRUE(writeObject(dir.file("IM1"), spec));

    // creator "Morvellanite" in block DA; change sequence at DA31, series sequence at DA32
    DcmFileFormat kqr;
    DcmDataset* ds = kqr.getDataset();
    ds->putAndInsertString(DCM_SOPClassUID, KQ_KQR_SOP_CLASS_UID);
    ds->putAndInsertString(DCM_SOPInstanceUID, "1.2.3.4.5");
    ds->putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x00DA, EVR_LO), KQ_LEGACY_CREATOR);
    DcmSequenceOfItems* change = new DcmSequenceOfItems(DcmTag(KQ_PRIVATE_GROUP, 0xDA31, EVR_SQ));
    DcmItem* item = new DcmItem();
    item->putAndInsertString(DCM_PatientName, "Legacy^Edit");
    item->putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x00DA, EVR_LO), KQ_LEGACY_CREATOR);
    DcmSequenceOfItems* series = new DcmSequenceOfItems(DcmTag(KQ_PRIVATE_GROUP, 0xDA32, EVR_SQ));
    DcmItem* seriesItem = new DcmItem();
    seriesItem->putAndInsertString(DCM_SeriesInstanceUID, spec.seriesUID.c_str());
    seriesItem->putAndInsertString(DCM_SeriesDescription, "Legacy series");
    series->append(seriesItem);
    item->insert(series);
    change->append(item);
    ds->insert(change);
    ASSERT_TRUE(kqr.saveFile(dir.file("legacy.kqr").c_str(), EXS_LittleEndianExplicit).good());

    RunResult r = applyChanges({"-p", dir.file("legacy.kqr"), "-o", dir.file("IM1")});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("Legacy^Edit", attribute(dir.file("IM1"), DCM_PatientName));
    EXPECT_EQ("Legacy series", attribute(dir.file("IM1"), DCM_SeriesDescription));
}
