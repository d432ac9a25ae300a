// The built applyChanges, previewChanges and apply-archive.sh, run as a user runs them on generated
// studies and real objects. Every refusal leaves every object byte-identical.
#include "tests/fixtures/Fixtures.h"
#include "privatetags/KQItem.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

using namespace fixtures;

namespace {

// A generated study (IM1, IM2, ...) in root/study and a KqR file beside it that renames the patient.
struct Study
{
    TempDir root;
    std::string dir = root.file("study");
    std::string kqr = root.file("edit.kqr");
    std::vector<ObjectSpec> objects;
    std::map<std::string, std::string> original;

    explicit Study(int series = 1, int instances = 3)
    {
        mkdir(dir.c_str(), 0755);
        objects = writeStudy(dir, series, instances);
        KqRWriter writer;
        writer.setStudyAttribute(DCM_PatientName, "Doe^Jane");
        writer.save(kqr.c_str());
        original = snapshot();
    }
    bool makeKqR(std::vector<std::string> args) const
    {
        args.push_back(kqr);
        return runBuilt("makeKqR", args).status == 0;
    }
    std::map<std::string, std::string> snapshot() const
    {
        std::map<std::string, std::string> files;
        for (const std::string& name : listDir(dir))
            if (name != ".tmp")
                files[name] = readFile(file(name));
        return files;
    }
    bool unchanged() const { return snapshot() == original; }
    std::string file(const std::string& name) const { return dir + "/" + name; }
};

// Standard error without the toolkit's own warnings (lines starting "W: ").
std::string withoutWarnings(const std::string& err)
{
    std::string result;
    for (size_t start = 0, end = 0; start < err.size(); start = end + 1)
    {
        end = std::min(err.find('\n', start), err.size() - 1);
        if (err.compare(start, 3, "W: ") != 0)
            result += err.substr(start, end - start + 1);
    }
    return result;
}

bool isLink(const std::string& path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

} // namespace

TEST(ApplyChangesCommandLine, UsageErrorsAndHelp)
{
    const std::string usage = "applyChanges [-h] [-v] -p <kqrfile> { -d <studydir> | -o <objectname> } \n\n"
                              "    -h               : prints this usage information\n"
                              "    -v               : print verbose messages\n"
                              "    -p <kqrfile>     : path to the KqR file changes to be taken from\n"
                              "    -d <studydir>    : path to directory study objects reside\n"
                              "                       changes will be applied to all objects in the study directory\n"
                              "    -o <objectname>  : path to DICOM object the changes to be applied to\n"
                              "                       changes will be applied to the specified DICOM object only\n\n"
                              "    The -d and -o options are exclusive: exactly one of them need to be specified\n\n";
    const std::string self = program("applyChanges");
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "KqR File was not specified (-p)\n" + usage},
        {{"-d", "a"}, "KqR File was not specified (-p)\n" + usage},
        {{"-x"}, self + ": invalid option -- 'x'\nInvalid argument : ?\n\n" + usage},
        {{"-p"}, self + ": option requires an argument -- 'p'\nInvalid argument : ?\n\n" + usage},
        {{"-p", "k", "-d", "a", "-o", "b"}, "-o and -d options are exclusive, only one of them can be specified\n\n" + usage},
        {{"-p", "k"}, "Neither -o nor -d options were specified\n\n" + usage},
    };
    for (const auto& c : cases)
    {
        const RunResult r = applyChanges(c.first);
        EXPECT_EQ(1, r.status);
        EXPECT_EQ(c.second, r.err);
        EXPECT_EQ("", r.out);
    }
    const RunResult r = applyChanges({"-v", "-h", "-x"});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ(usage, r.err);
}

TEST(ApplyChangesKqR, UnreadableEmptyAndLegacyKqRFiles)
{
    Study s;
    RunResult r = applyChanges({"-p", s.root.file("missing.kqr"), "-o", s.file("IM1")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Error loading KqR file " + s.root.file("missing.kqr") + "\n", r.err);

    // no change sequence at all, and a change item without elements
    KqRWriter none, empty;
    DcmItem* item = nullptr;
    ASSERT_TRUE(none.save(s.root.file("none.kqr").c_str()).good());
    ASSERT_TRUE(empty.changeItem(item).good() && empty.save(s.root.file("empty.kqr").c_str()).good());
    r = applyChanges({"-p", s.root.file("none.kqr"), "-o", s.file("IM1")});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.err);
    r = applyChanges({"-p", s.root.file("empty.kqr"), "-d", s.dir});
    EXPECT_EQ(0, r.status);
    EXPECT_FALSE(fileExists(s.file(".tmp")));
    EXPECT_TRUE(s.unchanged());

    // legacy layout: creator "Morvellanite" in block DA, change sequence at DA31, series sequence at DA32
    DcmFileFormat kqr;
    DcmDataset* ds = kqr.getDataset();
    ds->putAndInsertString(DCM_SOPClassUID, KQ_KQR_SOP_CLASS_UID);
    ds->putAndInsertString(DCM_SOPInstanceUID, "1.2.3.4.5");
    ds->putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x00DA, EVR_LO), KQ_LEGACY_CREATOR);
    DcmItem *change = nullptr, *series = nullptr;
    ASSERT_TRUE(ds->findOrCreateSequenceItem(DcmTag(KQ_PRIVATE_GROUP, 0xDA31, EVR_SQ), change, -2).good());
    change->putAndInsertString(DCM_PatientName, "Legacy^Edit");
    change->putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x00DA, EVR_LO), KQ_LEGACY_CREATOR);
    ASSERT_TRUE(change->findOrCreateSequenceItem(DcmTag(KQ_PRIVATE_GROUP, 0xDA32, EVR_SQ), series, -2).good());
    series->putAndInsertString(DCM_SeriesInstanceUID, s.objects[0].seriesUID.c_str());
    series->putAndInsertString(DCM_SeriesDescription, "Legacy series");
    ASSERT_TRUE(kqr.saveFile(s.root.file("legacy.kqr").c_str(), EXS_LittleEndianExplicit).good());
    r = applyChanges({"-p", s.root.file("legacy.kqr"), "-o", s.file("IM1")});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("Legacy^Edit", attribute(s.file("IM1"), DCM_PatientName));
    EXPECT_EQ("Legacy series", attribute(s.file("IM1"), DCM_SeriesDescription));
}

TEST(ApplyChangesObject, ChangesOneObjectAndKeepsEverythingElse)
{
    Study s;
    ASSERT_TRUE(writeFile(s.root.file("orig"), s.original["IM1"]));
    ASSERT_TRUE(s.makeKqR({"-m", "PatientName=Doe^Jane", "-m", "PatientID=NEWID"}));
    RunResult r = applyChanges({"-v", "-p", s.kqr, "-o", s.file("IM1")});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.err);
    EXPECT_EQ("Apply soft edit changes to " + s.file("IM1") + "\n   Modified key: (0010,0010)\n   Modified key: (0010,0020)\n",
              r.out.substr(0, r.out.find("DEBUG")));
    EXPECT_EQ("NEWID", attribute(s.file("IM1"), DCM_PatientID));
    EXPECT_TRUE(listDir(s.file(".tmp")).empty()); // the temporary directory stays, empty

    // the replacement keeps the object's permissions and owner
    ASSERT_EQ(0, chmod(s.file("IM1").c_str(), 0640));
    ASSERT_TRUE(getuid() != 0 || chown(s.file("IM1").c_str(), 65534, 65534) == 0);
    r = applyChanges({"-p", s.kqr, "-o", s.file("IM1")});
    EXPECT_EQ(0, r.status) << r.err;
    struct stat st;
    ASSERT_EQ(0, stat(s.file("IM1").c_str(), &st));
    EXPECT_EQ(0640u, st.st_mode & 07777);
    EXPECT_EQ(getuid() == 0 ? 65534u : getuid(), st.st_uid);

    r = run({"/usr/bin/python3", std::string(KQ_E2E_DIR) + "/dataset_diff.py", s.root.file("orig"), s.file("IM1"),
             "0010,0010=Doe^Jane", "0010,0020=NEWID"});
    EXPECT_EQ(0, r.status) << r.out << r.err;
}

TEST(ApplyChangesObject, FailuresLeaveTheObjectByteIdentical)
{
    Study s;
    RunResult r = applyChanges({"-p", s.kqr, "-o", "/nonexistent-kq/dir/IM1"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Temporary directory could not be created: /nonexistent-kq/dir/.tmp\n", r.err);

    // .tmp is a link (here dangling): nothing is written through it
    ASSERT_EQ(0, symlink("/nonexistent-kq/target", s.file(".tmp").c_str()));
    r = applyChanges({"-p", s.kqr, "-o", s.file("IM1")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Temporary directory is not a directory (a symbolic link or a file is in its place): " + s.file(".tmp") + "\n",
              r.err);
    unlink(s.file(".tmp").c_str());

    // a change that cannot be copied (OB)
    KqRWriter writer;
    DcmItem* item = nullptr;
    ASSERT_TRUE(writer.changeItem(item).good());
    const Uint8 bytes[] = {1, 2, 3, 4};
    item->putAndInsertUint8Array(DCM_ICCProfile, bytes, 4);
    ASSERT_TRUE(writer.save(s.kqr.c_str()).good());
    r = applyChanges({"-p", s.kqr, "-o", s.file("IM1")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Error applying soft edit changes to " + s.file("IM1") + " [" + OFCondition(EC_CorruptedData).text() + "]\n" +
                  failedLine(s.file("IM1")),
              r.err);
    EXPECT_TRUE(s.unchanged());
}

TEST(ApplyChangesDirectory, SkipsHiddenKqRAndDirectoriesAndAppliesLevels)
{
    Study s(2, 2);
    ASSERT_TRUE(writeFile(s.file(".hidden"), "hidden"));
    ASSERT_EQ(0, mkdir(s.file("sub").c_str(), 0755));
    ASSERT_TRUE(writeFile(s.file("sub/IM9"), "inside"));
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, "Study^Level");
    writer.setStudyAttribute(DCM_Modality, "CT");
    writer.setSeriesAttribute(s.objects[2].seriesUID.c_str(), DCM_SeriesDescription, "Second series");
    writer.setInstanceAttribute(s.objects[2].seriesUID.c_str(), s.objects[3].sopInstanceUID.c_str(), DCM_InstanceNumber, "42");
    ASSERT_TRUE(writer.save(s.file("KqR.1").c_str()).good());
    const std::string kqrBytes = readFile(s.file("KqR.1"));

    RunResult r = applyChanges({"-v", "-p", s.file("KqR.1"), "-d", s.dir});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.err);
    EXPECT_EQ(0u, r.out.find("Iterating through files in " + s.dir + "\n"));
    for (const char* line : {"Skipping .hidden\n", "Skipping directory sub\n", "Skipping KqR.1\n", "Skipping .tmp\n"})
        EXPECT_NE(std::string::npos, r.out.find(line)) << line;
    EXPECT_EQ(std::string::npos, r.out.find("Apply soft edit changes to " + s.file("sub")));
    for (int i = 0; i < 4; ++i)
    {
        const std::string path = s.file("IM" + std::to_string(i + 1));
        EXPECT_EQ("Study^Level", attribute(path, DCM_PatientName));
        EXPECT_EQ("CT", attribute(path, DCM_Modality));
        EXPECT_EQ(i >= 2 ? "Second series" : "<missing>", attribute(path, DCM_SeriesDescription));
        EXPECT_EQ(i == 3 ? "42" : "1", attribute(path, DCM_InstanceNumber));
    }
    EXPECT_EQ("hidden", readFile(s.file(".hidden")));
    EXPECT_EQ("inside", readFile(s.file("sub/IM9")));
    EXPECT_EQ(kqrBytes, readFile(s.file("KqR.1")));

    r = applyChanges({"-p", s.file("KqR.1"), "-d", s.file("nothere")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Study directory could not be opened: " + s.file("nothere") + "\n", r.err);
}

// A KqR file recorded at +0100 applied to objects at other offsets: each gets its values in its own.
TEST(ApplyChangesOffsets, EachObjectGetsTheValuesInItsOwnOffset)
{
    // 2019-12-31 23:30 UTC on the machine's own clock (no TZ), for the object without an offset
    tm utc = {};
    utc.tm_year = 119, utc.tm_mon = 11, utc.tm_mday = 31, utc.tm_hour = 23, utc.tm_min = 30;
    const time_t moment = timegm(&utc);
    char machine[32];
    {
        ScopedEnv noZone("TZ", nullptr);
        tm local;
        strftime(machine, sizeof(machine), "%Y%m%d %H%M%S", localtime_r(&moment, &local));
    }
    ScopedEnv zone("TZ", "XXX+3"); // the programs' TZ: not the zone of an object without offset
    Study s(0, 0);
    const std::vector<std::string> offsets = {"+0000", "+0530", "-0800", "", "+0100"};
    ObjectSpec shape;
    shape.withPixelData = false;
    for (size_t i = 0; i < offsets.size(); ++i)
    {
        shape.timezoneOffset = offsets[i];
        shape.seriesUID = shape.studyUID + "." + std::to_string(i + 1);
        shape.sopInstanceUID = shape.seriesUID + ".1";
        ASSERT_TRUE(writeObject(s.file("IM" + std::to_string(i + 1)), shape));
    }
    ASSERT_TRUE(s.makeKqR({"-z", "+0100", "-m", "StudyDate=20200101", "-m", "StudyTime=003000.25", "-S",
                           shape.studyUID + ".2", "-m", "SeriesDate=20200301", "-m", "SeriesTime=0015"}));
    const std::string kqrBefore = readFile(s.kqr);
    const RunResult r = applyChanges({"-p", s.kqr, "-d", s.dir});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.err);
    const std::string expected[][2] = {
        {"20191231 233000.25", "<missing> <missing>"},
        {"20200101 050000.25", "20200301 044500"}, // written in full
        {"20191231 153000.25", "<missing> <missing>"},
        {std::string(machine) + ".25", "<missing> <missing>"},
        {"20200101 003000.25", "<missing> <missing>"}, // at the KqR file's offset: as recorded
    };
    for (size_t i = 0; i < offsets.size(); ++i)
    {
        const std::string object = s.file("IM" + std::to_string(i + 1));
        SCOPED_TRACE(object);
        EXPECT_EQ(expected[i][0], attribute(object, DCM_StudyDate) + " " + attribute(object, DCM_StudyTime));
        EXPECT_EQ(expected[i][1], attribute(object, DCM_SeriesDate) + " " + attribute(object, DCM_SeriesTime));
        EXPECT_EQ(offsets[i].empty() ? "<missing>" : offsets[i], attribute(object, DCM_TimezoneOffsetFromUTC));
    }
    EXPECT_EQ(kqrBefore, readFile(s.kqr));
}

TEST(ApplyChangesSafety, NothingIsWrittenThroughALinkAtTheTemporaryName)
{
    Study s;
    const std::string victim = s.root.file("victim");
    ASSERT_TRUE(writeFile(victim, "not to be overwritten"));
    ASSERT_EQ(0, mkdir(s.file(".tmp").c_str(), 0755));
    // the shell plants the link at the name the program (same process id after exec) will use
    const RunResult r = run({"/bin/sh", "-c", "ln -s \"$1\" \"$2/.tmp/.applychanges$$.IM1\" && exec \"$3\" -p \"$4\" -o \"$2/IM1\"",
                             "sh", victim, s.dir, program("applyChanges"), s.kqr});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("not to be overwritten", readFile(victim));
    EXPECT_FALSE(isLink(s.file("IM1")));
    EXPECT_EQ("Doe^Jane", attribute(s.file("IM1"), DCM_PatientName));
    EXPECT_TRUE(listDir(s.file(".tmp")).empty());
}

TEST(ApplyChangesSafety, LinksInAStudyDirectory)
{
    // a symbolic link is edited at the file it names and stays a link
    Study s;
    TempDir elsewhere;
    ASSERT_EQ(0, rename(s.file("IM2").c_str(), elsewhere.file("IM2").c_str()));
    ASSERT_EQ(0, symlink(elsewhere.file("IM2").c_str(), s.file("IM2").c_str()));
    RunResult r = applyChanges({"-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_TRUE(isLink(s.file("IM2")));
    EXPECT_EQ("Doe^Jane", attribute(elsewhere.file("IM2"), DCM_PatientName));
    EXPECT_TRUE(listDir(elsewhere.file(".tmp")).empty());

    // an object with a second hard link is refused; it and the objects after it stay as they were
    Study h;
    ASSERT_EQ(0, link(h.file("IM1").c_str(), h.root.file("IM1.other").c_str()));
    r = applyChanges({"-p", h.kqr, "-o", h.file("IM1")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Refusing to edit " + h.file("IM1") +
                  ": it has 2 hard links, and replacing it would split it from its other names\n" + failedLine(h.file("IM1")),
              r.err);
    EXPECT_TRUE(h.unchanged());
}

TEST(ApplyChangesSafety, ObjectsThatAreNoSoftEditTargets)
{
    Study s;
    ASSERT_TRUE(writeFile(s.file("DICOMDIR"), readFile(corpusFile("dicomdirtests/DICOMDIR"))));
    // the run's own KqR file under a name the walk does not skip
    const std::string kqr = s.file("changes.dcm");
    ASSERT_EQ(0, rename(s.kqr.c_str(), kqr.c_str()));
    s.original = s.snapshot();
    RunResult r = applyChanges({"-v", "-p", kqr, "-d", s.dir});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("Skipping DICOMDIR\n")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("Skipping changes.dcm\n")) << r.out;
    EXPECT_EQ(std::string::npos, r.out.find("Apply soft edit changes to " + s.file("DICOMDIR")));
    EXPECT_EQ("Doe^Jane", attribute(s.file("IM3"), DCM_PatientName));
    const std::pair<std::string, std::string> refusals[] = {
        {s.file("DICOMDIR"), "a DICOMDIR (Media Storage Directory) is never modified"},
        {kqr, "it is the KqR file of this run"}};
    for (const auto& c : refusals)
    {
        r = applyChanges({"-p", kqr, "-o", c.first});
        EXPECT_EQ(1, r.status);
        EXPECT_EQ("Refusing to edit " + c.first + ": " + c.second + "\n" + failedLine(c.first), r.err);
        EXPECT_EQ(s.original[c.first.substr(s.dir.size() + 1)], readFile(c.first));
    }
}

TEST(ApplyChangesSafety, ChangeSetsThatCanOnlyDoDamageAreRefusedBeforeAnyObject)
{
    struct Case
    {
        DcmTag tag;
        const char* value;
        int level; // 0 study, 1 series
        std::string reason;
    };
    const std::string pixels = "describes the stored pixel data, which a soft edit leaves as it is (they would no longer match)";
    const std::string sop = "(0008,0018) SOPInstanceUID: can be changed at instance level only (it would give many objects "
                            "one identity)";
    const Case cases[] = {
        {DcmTag(DCM_PatientBirthDate, EVR_LO), "19700101", 0,
         "(0010,0030) PatientBirthDate: VR LO contradicts the data dictionary's DA"},
        {DcmTag(0x0000, 0x0100, EVR_US), "1", 0,
         "(0000,0100) CommandField: command elements do not belong in a stored object"},
        {DcmTag(DCM_Rows), "512", 0, "(0028,0010) Rows: " + pixels},
        {DcmTag(DCM_NumberOfFrames), "2", 1, "(0028,0008) NumberOfFrames: " + pixels},
        {DcmTag(DCM_StudyInstanceUID), "", 0,
         "(0020,000d) StudyInstanceUID: cannot be made empty (every object needs its value)"},
        {DcmTag(DCM_SpecificCharacterSet), "ISO_IR 100", 1,
         "(0008,0005) SpecificCharacterSet: would relabel the object's values without converting them (the KqR "
         "file's values are converted to each object's character set)"},
        {DcmTag(DCM_SeriesInstanceUID), "1.2.3", 0,
         "(0020,000e) SeriesInstanceUID: can be changed at series or instance level only (it would merge every "
         "series of the study into one)"},
        {DcmTag(0x0011, 0x1010, EVR_LO), "no creator", 0,
         "(0011,1010): private element without its private creator (it has no block to go in)"},
        {DcmTag(DCM_PatientName, EVR_US), "7", 0, "(0010,0010) PatientName: VR US contradicts the data dictionary's PN"},
        {DcmTag(DCM_TransferSyntaxUID), "1.2.840.10008.1.2", 0,
         "(0002,0010) TransferSyntaxUID: file meta information cannot be changed by a soft edit"},
        {DcmTag(0x7fe0, 0x0008, EVR_OB), "01\\02", 0,
         "(7fe0,0008) FloatPixelData: pixel data cannot be changed by a soft edit"},
        {DcmTag(DCM_SOPInstanceUID), "1.2.3.4", 0, sop},
        {DcmTag(DCM_SOPInstanceUID), "1.2.3.4", 1, sop},
    };
    Study s;
    const std::string kqr = s.root.file("bad.kqr");
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.reason);
        KqRWriter writer;
        DcmItem* item = nullptr;
        ASSERT_TRUE((c.level == 0 ? writer.changeItem(item) : writer.seriesItem(s.objects[0].seriesUID.c_str(), item)).good());
        ASSERT_TRUE(item->putAndInsertString(c.tag, c.value).good());
        ASSERT_TRUE(writer.save(kqr.c_str()).good());
        const RunResult r = applyChanges({"-p", kqr, "-d", s.dir});
        EXPECT_EQ(1, r.status);
        EXPECT_EQ("Refusing the soft edit changes of KqR file " + kqr + ": " + c.reason + "\n", withoutWarnings(r.err));
        EXPECT_TRUE(s.unchanged());
        EXPECT_FALSE(fileExists(s.file(".tmp")));
    }
}

TEST(ApplyChangesSafety, ReadOnlyObjectsAndConcurrentRunsAreRefused)
{
    Study s;
    ASSERT_EQ(0, chmod(s.file("IM1").c_str(), 0444));
    RunResult r = applyChanges({"-p", s.kqr, "-o", s.file("IM1")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Refusing to edit " + s.file("IM1") + ": it is read-only (no write permission)\n" + failedLine(s.file("IM1")),
              r.err);
    EXPECT_TRUE(s.unchanged());
    ASSERT_EQ(0, chmod(s.file("IM1").c_str(), 0644));

    // another run holds the study's lock
    const int lock = open(s.file(".tmp").c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_LE(0, lock);
    ASSERT_EQ(0, flock(lock, LOCK_EX));
    r = applyChanges({"-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Another applyChanges run is working in " + s.dir + " (" + s.file(".tmp") +
                  " is locked); try again when it has finished\n",
              r.err);
    EXPECT_TRUE(s.unchanged());
    close(lock);
    r = applyChanges({"-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(0, r.status) << r.err;
}

TEST(ApplyChangesSafety, ValuesAreConvertedToEachObjectsCharacterSet)
{
    TempDir dir;
    const std::string kqr = dir.file("edit.kqr");
    KqRWriter writer;
    writer.fileFormat().getDataset()->putAndInsertString(DCM_SpecificCharacterSet, "ISO_IR 192");
    writer.setStudyAttribute(DCM_PatientName, "M\xc3\xbcller^J\xc3\xbcrgen");
    ASSERT_TRUE(writer.save(kqr.c_str()).good());
    struct Case
    {
        const char* file;
        std::string name; // the stored bytes after the run, or the refusal
    };
    const Case cases[] = {
        {"chrFren.dcm", "M\xfcller^J\xfcrgen"},         // ISO_IR 100
        {"chrX1.dcm", "M\xc3\xbcller^J\xc3\xbcrgen"}, // ISO_IR 192
        {"chrRuss.dcm", "the value of (0010,0010) PatientName cannot be represented in the object's character set \"ISO_IR 144\""},
        {"chrH31.dcm", "the KqR file's values in \"ISO_IR 192\" cannot be converted to the object's character set \"\\ISO 2022 IR 87\""},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.file);
        const std::string object = dir.file(c.file);
        const std::string original = readFile("/usr/lib/python3/dist-packages/pydicom/data/charset_files/" + std::string(c.file));
        ASSERT_TRUE(writeFile(object, original));
        const RunResult r = applyChanges({"-p", kqr, "-o", object});
        const bool refused = c.name.compare(0, 4, "the ") == 0;
        EXPECT_EQ(refused ? 1 : 0, r.status);
        if (!refused)
            EXPECT_EQ(c.name, attribute(object, DCM_PatientName));
        else
        {
            EXPECT_EQ("Refusing to edit " + object + ": " + c.name + "\n" + failedLine(object), r.err);
            EXPECT_EQ(original, readFile(object));
        }
    }
}

TEST(ApplyChangesEditRules, PrivateBlocksKeepTheirOwners)
{
    // IM1 uses block 10 of group F215 for another creator, which the KqR file's own creator must not take over
    Study s(2, 2);
    std::unique_ptr<DcmFileFormat> object(makeObject(s.objects[0]));
    DcmDataset& ds = *object->getDataset();
    ASSERT_TRUE(ds.putAndInsertString(DcmTag(0xf215, 0x0010, EVR_LO), "OTHER VENDOR").good());
    ASSERT_TRUE(ds.putAndInsertString(DcmTag(0xf215, 0x1001, EVR_LO), "theirs").good());
    ASSERT_TRUE(object->saveFile(s.file("IM1").c_str(), EXS_LittleEndianExplicit).good());
    ASSERT_TRUE(s.makeKqR({"-S", s.objects[0].seriesUID, "-m", "SeriesDescription=renamed"}));

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
    Study s(2, 2);
    ASSERT_TRUE(s.makeKqR({"-S", s.objects[2].seriesUID, "-m", "SeriesDescription=renamed"}));
    RunResult r = applyChanges({"-v", "-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(0, r.status) << r.err;
    const auto after = s.snapshot();
    // the series-level change touches the second series only
    EXPECT_EQ(s.original.at("IM1"), after.at("IM1"));
    EXPECT_EQ(s.original.at("IM2"), after.at("IM2"));
    EXPECT_NE(s.original.at("IM3"), after.at("IM3"));
    EXPECT_NE(std::string::npos, r.out.find("No attribute of " + s.file("IM1") + " changes: it is left as it is\n"))
        << r.out;

    // a rerun writes nothing
    r = applyChanges({"-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.err);
    EXPECT_EQ(after, s.snapshot());
}

TEST(ApplyChangesEditRules, ChangesThatMatchNothingAreNamed)
{
    Study s(2, 2);
    ASSERT_TRUE(s.makeKqR({"-m", "PatientName=Doe^Jane", "-S", "9.9.9", "-m", "SeriesDescription=typo", "-S",
                           s.objects[0].seriesUID, "-I", "9.9.9.1", "-m", "InstanceNumber=5", "-I",
                           s.objects[0].sopInstanceUID, "-m", "InstanceNumber=7"}));
    RunResult r = applyChanges({"-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("Warning: series item 9.9.9 of KqR file " + s.kqr + " matched no object\n" +
                  "Warning: instance item 9.9.9.1 (series " + s.objects[0].seriesUID + ") of KqR file " + s.kqr +
                  " matched no object\n",
              r.err);
    EXPECT_EQ("7", attribute(s.file("IM1"), DCM_InstanceNumber));

    // a study whose objects sit one level down: nothing is edited, and that is said
    const auto after = s.snapshot();
    r = applyChanges({"-p", s.kqr, "-d", s.root.path()});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("Warning: study directory " + s.root.path() + " holds no object: the changes of KqR file " + s.kqr +
                  " applied to nothing\n",
              r.err);
    EXPECT_EQ(after, s.snapshot());
}

TEST(ApplyChangesEditRules, ObjectReadOnlyByDroppingAnElementIsRefused)
{
    // IM1 holds Image Comments twice; the toolkit keeps the first value only
    Study s(2, 2);
    std::unique_ptr<DcmFileFormat> object(makeObject(s.objects[0]));
    object->getDataset()->putAndInsertString(DCM_ImageComments, "first");
    ASSERT_TRUE(object->saveFile(s.file("IM1").c_str(), EXS_LittleEndianExplicit).good());
    std::string bytes = readFile(s.file("IM1"));
    const std::string element("\x20\x00\x00\x40LT\x06\x00", 8);
    const size_t at = bytes.find(element);
    ASSERT_NE(std::string::npos, at);
    bytes.insert(at + 14, element + "second"); // the same element again, right after the first
    ASSERT_TRUE(writeFile(s.file("IM1"), bytes));
    const auto before = s.snapshot();

    const RunResult r = applyChanges({"-p", s.kqr, "-o", s.file("IM1")});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("Refusing to edit " + s.file("IM1") +
                                            ": it holds element (0020,4000) twice, and only the first could be kept "
                                            "(the edited copy would lose the second)\n" + failedLine(s.file("IM1"))))
        << r.err;
    EXPECT_EQ(before, s.snapshot());
}

// previewChanges against what applyChanges then does, on objects at two offsets and in two
// character sets; the written values read back by pydicom.
TEST(PreviewChanges, ShowsWhatTheRunThenDoesAndWritesNothing)
{
    Study s(2, 2);
    // IM2 at +0500, IM3 in Latin-1
    s.objects[1].timezoneOffset = "+0500";
    ASSERT_TRUE(writeObject(s.file("IM2"), s.objects[1]));
    std::unique_ptr<DcmFileFormat> latin(makeObject(s.objects[2]));
    latin->getDataset()->putAndInsertString(DCM_SpecificCharacterSet, "ISO_IR 100");
    ASSERT_TRUE(latin->saveFile(s.file("IM3").c_str(), EXS_LittleEndianExplicit).good());
    ASSERT_TRUE(s.makeKqR({"-z", "+0100", "-m", "PatientName=M\xc3\xbcller^Anna", "-m", "StudyDate=20200101", "-m",
                           "StudyTime=003000", "-S", s.objects[2].seriesUID, "-m", "SeriesDescription=second", "-S",
                           "9.9.9", "-m", "SeriesDescription=typo"}));
    const auto before = s.snapshot();

    RunResult r = runBuilt("previewChanges", {"--json", "-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(0, r.status) << r.err;
    const nlohmann::json preview = nlohmann::json::parse(r.out, nullptr, false);
    ASSERT_FALSE(preview.is_discarded()) << r.out;
    EXPECT_EQ(before, s.snapshot());
    EXPECT_FALSE(fileExists(s.file(".tmp")));
    // the fields the manual page documents, and no others
    auto keys = [](const nlohmann::json& object) {
        std::vector<std::string> names;
        for (auto it = object.begin(); it != object.end(); ++it)
            names.push_back(it.key());
        std::sort(names.begin(), names.end());
        return names;
    };
    EXPECT_EQ((std::vector<std::string>{"changeSetRefusal", "items", "kqrFile", "objects", "stopsAt", "summary"}),
              keys(preview));
    ASSERT_EQ(4u, preview["objects"].size());
    for (const nlohmann::json& object : preview["objects"])
        EXPECT_EQ((std::vector<std::string>{"changes", "matched", "path", "reason", "sopInstanceUID", "state"}),
                  keys(object));
    EXPECT_EQ((std::vector<std::string>{"level", "objects", "seriesUID", "uid"}), keys(preview["items"][0]));
    EXPECT_EQ((std::vector<std::string>{"change", "failed", "refused", "unchanged", "unmatchedItems"}),
              keys(preview["summary"]));
    EXPECT_EQ(nullptr, preview["stopsAt"]);
    EXPECT_EQ(1, preview["summary"]["unmatchedItems"]);
    EXPECT_EQ("9.9.9", preview["items"][1]["uid"]);
    EXPECT_EQ(0, preview["items"][1]["objects"]);

    r = applyChanges({"-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(0, r.status) << r.err;
    // every new value of the preview is what the run wrote, object by object, as pydicom reads it
    const std::string script = "import json, sys, pydicom\nds = pydicom.dcmread(sys.argv[1])\n"
                               "print(json.dumps({t: str(ds[int(t[1:5] + t[6:10], 16)].value) if int(t[1:5] + "
                               "t[6:10], 16) in ds else None for t in sys.argv[2:]}))\n";
    for (const nlohmann::json& object : preview["objects"])
    {
        SCOPED_TRACE(object.dump());
        EXPECT_EQ("changes", object["state"]);
        std::vector<std::string> argv{"/usr/bin/python3", "-c", script, object["path"]};
        for (const nlohmann::json& change : object["changes"])
            argv.push_back(change["tag"]);
        const nlohmann::json written = nlohmann::json::parse(run(argv).out, nullptr, false);
        for (const nlohmann::json& change : object["changes"])
            EXPECT_EQ(change["after"], written[change["tag"].get<std::string>()]) << change["tag"];
        // the object at +0500 gets its own time
        EXPECT_TRUE(object["path"] != s.file("IM2") || object.dump().find("\"after\":\"043000\"") != std::string::npos);
    }

    // a refusal: the preview names the object a run stops at, and the run stops there
    ASSERT_EQ(0, chmod(s.file("IM4").c_str(), 0444));
    ASSERT_TRUE(s.makeKqR({"-m", "PatientName=Other"}));
    r = runBuilt("previewChanges", {"-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(1, r.status);
    const std::string refusal = "Refusing to edit " + s.file("IM4") + ": it is read-only (no write permission)";
    for (const std::string& line :
         {s.file("IM4") + ": refused\n    " + refusal +
              "\n    a run would stop here: this object and the ones after it would stay as they are\n",
          "; a run would stop at " + s.file("IM4") + "\n",
          s.file("IM1") + " (SOP Instance UID " + s.objects[0].sopInstanceUID + "): matches study\n"})
        EXPECT_NE(std::string::npos, r.out.find(line)) << r.out;
    r = applyChanges({"-p", s.kqr, "-d", s.dir});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find(refusal + "\n" + failedLine(s.file("IM4")))) << r.err;

    r = runBuilt("previewChanges", {"-p", s.root.file("missing.kqr"), "-d", s.dir});
    EXPECT_EQ(2, r.status);
    EXPECT_EQ("Error loading KqR file " + s.root.file("missing.kqr") + "\n", r.err);
    r = runBuilt("previewChanges", {"-p", s.kqr});
    EXPECT_EQ(2, r.status);
    EXPECT_EQ("previewChanges: exactly one of -d and -o must be given\n", r.err);
}

namespace {

// The inode of every object of the studies s1..sN, by path: an object replaced gets a new one.
std::map<std::string, ino_t> inodes(const TempDir& root, int studies)
{
    std::map<std::string, ino_t> all;
    for (int s = 1; s <= studies; ++s)
        for (const std::string& name : listDir(root.file("s" + std::to_string(s))))
        {
            struct stat status;
            const std::string path = root.file("s" + std::to_string(s) + "/" + name);
            if (name != ".tmp" && stat(path.c_str(), &status) == 0)
                all[path] = status.st_ino;
        }
    return all;
}

// Writes root/manifest for the studies, each edited by kqr.
bool writeManifest(const TempDir& root, const std::string& kqr, const std::vector<int>& studies)
{
    std::string manifest = "# studies of one archive\n";
    for (int s : studies)
        manifest += kqr + "\t" + root.file("s" + std::to_string(s)) + "\n";
    return writeFile(root.file("manifest"), manifest);
}

// root/edit.kqr renaming the patient, and studies s1..sN of objects(s) objects each; returns the KqR file.
std::string writeArchive(const TempDir& root, const char* name, int studies, int (*objects)(int))
{
    const std::string kqr = root.file("edit.kqr");
    KqRWriter writer;
    writer.setStudyAttribute(DCM_PatientName, name);
    EXPECT_TRUE(writer.save(kqr.c_str()).good());
    for (int s = 1; s <= studies; ++s)
    {
        EXPECT_EQ(0, mkdir(root.file("s" + std::to_string(s)).c_str(), 0755));
        writeStudy(root.file("s" + std::to_string(s)), 1, objects(s));
    }
    return kqr;
}

} // namespace

// scripts/apply-archive.sh with GNU parallel: a failure in the middle, a reordered and extended
// manifest and a killed run, each resumed to the end with every object edited exactly once.
TEST(ApplyArchive, ResumesByStudyAfterAFailureAReorderingAndAKill)
{
    TempDir root;
    // 20 studies of 2 objects, and a 21st of 40 to be killed in
    const std::string kqr = writeArchive(root, "Archive^Run", 21, [](int s) { return s <= 20 ? 2 : 40; });
    const std::string damaged = root.file("s10/IM2");
    const std::string good = readFile(damaged);
    ASSERT_TRUE(writeFile(damaged, "not an object"));
    std::vector<int> order;
    for (int s = 1; s <= 20; ++s)
        order.push_back(s);
    ASSERT_TRUE(writeManifest(root, kqr, order));
    const std::vector<std::string> args{std::string(KQ_SOURCE_DIR) + "/scripts/apply-archive.sh", "-q", "-j", "2",
                                        "-b", program("applyChanges")};
    auto archive = [&](const std::vector<std::string>& more) {
        std::vector<std::string> argv = args;
        argv.insert(argv.end(), more.begin(), more.end());
        argv.push_back(root.file("manifest"));
        return run(argv);
    };

    // the failure in the middle: named with its first error line; the others done
    RunResult r = archive({});
    EXPECT_EQ(1, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("  failed: " + root.file("s10") + ": Error loading " + damaged)) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("studies: 20 in the manifest, 19 done, 1 failed, 0 pending\n")) << r.out;
    const std::map<std::string, ino_t> first = inodes(root, 20);

    // mended; the manifest reversed and extended: the failed study and the new one run, no other
    ASSERT_TRUE(writeFile(damaged, good));
    std::reverse(order.begin(), order.end());
    order.push_back(21);
    ASSERT_TRUE(writeManifest(root, kqr, order));
    r = archive({"-t"});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.out.find("21 in the manifest, 19 done, 1 failed, 1 pending\n")) << r.out;
    r = archive({});
    EXPECT_EQ(0, r.status) << r.out << r.err;
    EXPECT_NE(std::string::npos, r.out.find("studies: 21 in the manifest, 21 done, 0 failed, 0 pending\n")) << r.out;
    const std::map<std::string, ino_t> second = inodes(root, 20);
    for (const auto& object : first)
        EXPECT_TRUE(object.first.find("/s10/") != std::string::npos || object.second == second.at(object.first))
            << object.first << " edited twice";
    EXPECT_EQ("Archive^Run", attribute(damaged, DCM_PatientName));
    EXPECT_EQ("Archive^Run", attribute(root.file("s21/IM40"), DCM_PatientName));

    // a new edit over study 21 alone, killed once the first objects are edited, then resumed
    KqRWriter again;
    again.setStudyAttribute(DCM_PatientName, "Second^Run");
    ASSERT_TRUE(again.save(kqr.c_str()).good());
    ASSERT_TRUE(writeManifest(root, kqr, {21}));
    const std::map<std::string, ino_t> pre = inodes(root, 21);
    Launched killed;
    ASSERT_TRUE(killed.start({args[0], args[1], args[2], args[3], args[4], args[5], root.file("manifest")}));
    for (int i = 0; i < 3000 && attribute(root.file("s21/IM1"), DCM_PatientName) != "Second^Run"; ++i)
        usleep(1000);
    killed.kill(SIGTERM);
    const Outcome stopped = killed.wait(60);
    EXPECT_EQ(1, stopped.status) << stopped.describe();
    const std::map<std::string, ino_t> mid = inodes(root, 21);
    r = archive({});
    EXPECT_EQ(0, r.status) << r.out << r.err;
    int editedBeforeTheKill = 0;
    for (const auto& object : inodes(root, 21))
    {
        if (object.first.find("/s21/") == std::string::npos)
            continue;
        EXPECT_EQ("Second^Run", attribute(object.first, DCM_PatientName)) << object.first;
        if (mid.at(object.first) != pre.at(object.first))
        {
            ++editedBeforeTheKill;
            EXPECT_EQ(mid.at(object.first), object.second) << object.first << " edited twice";
        }
    }
    EXPECT_GT(editedBeforeTheKill, 0);

    // a manifest line without its tab is refused before anything runs
    ASSERT_TRUE(writeFile(root.file("manifest"), kqr + " " + root.file("s1") + "\n"));
    r = archive({});
    EXPECT_EQ(2, r.status);
    EXPECT_EQ("apply-archive: " + root.file("manifest") + " line 1: expected <KqR file><tab><study directory>\n", r.err);
}

TEST(ApplyArchive, TwoHostsEditTheStudiesTheyShare)
{
    TempDir root;
    const std::string kqr = writeArchive(root, "Two^Hosts", 6, [](int) { return 10; });
    ASSERT_TRUE(writeManifest(root, kqr, {1, 2, 3, 4, 5, 6}));
    const RunResult r = run({std::string(KQ_E2E_DIR) + "/two_hosts.sh", program("applyChanges"),
                             std::string(KQ_SOURCE_DIR) + "/scripts/apply-archive.sh", root.file("manifest"), root.path()});
    if (r.status == 77)
        GTEST_SKIP() << r.err;
    ASSERT_EQ(0, r.status) << r.out << r.err;
    EXPECT_NE(std::string::npos, r.out.find("studies: 6 in the manifest, 6 done, 0 failed, 0 pending\n")) << r.out;
    for (int s = 1; s <= 6; ++s)
        EXPECT_EQ("Two^Hosts", attribute(root.file("s" + std::to_string(s) + "/IM10"), DCM_PatientName));
    // the job log names the host of each job: both took some
    const std::string joblog = readFile(root.file("joblog"));
    EXPECT_NE(std::string::npos, joblog.find("\t:\t")) << joblog;
    EXPECT_NE(std::string::npos, joblog.find("root@10.77.0.2\t")) << joblog;
}
