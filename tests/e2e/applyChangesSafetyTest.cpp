// What applyChanges refuses, guards against and does with a change set, run as a user runs it on
// generated studies and real objects: links, objects that are no soft-edit targets, change sets
// that could only do damage, read-only objects, concurrent runs, character sets, private blocks,
// untouched objects and changes that match nothing. Every refusal leaves every object byte-identical.
#include "tests/fixtures/Fixtures.h"
#include "dcmutils/KqRWriter.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace fixtures;

namespace {

RunResult applyChanges(const std::vector<std::string>& args)
{
    return runBuilt("applyChanges", args);
}

std::string failed(const std::string& path)
{
    return "Applying soft edit changes to object failed: " + path + "\n";
}

// A generated study (IM1, IM2, ...) and a KqR file beside it that renames the patient (or one
// written by makeKqR).
struct Study
{
    TempDir root;
    std::string dir = root.file("study");
    std::string kqr = root.file("edit.kqr");
    std::vector<ObjectSpec> specs;
    std::map<std::string, std::string> original;

    explicit Study(int series = 1, int instances = 3)
    {
        mkdir(dir.c_str(), 0755);
        specs = writeStudy(dir, series, instances);
        KqRWriter writer;
        writer.setStudyAttribute(DCM_PatientName, "Doe^Jane");
        writer.save(kqr.c_str());
        original = snapshot();
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
    bool unchanged() const { return snapshot() == original; }
    std::string file(const std::string& name) const { return dir + "/" + name; }
};

// Standard error without the toolkit's own warnings (lines starting "W: ").
std::string withoutWarnings(const std::string& err)
{
    std::string result;
    size_t start = 0;
    while (start < err.size())
    {
        const size_t end = err.find('\n', start);
        const std::string line = err.substr(start, end == std::string::npos ? std::string::npos : end - start + 1);
        if (line.compare(0, 3, "W: ") != 0)
            result += line;
        start = end == std::string::npos ? err.size() : end + 1;
    }
    return result;
}

bool isLink(const std::string& path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

} // namespace

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
                  ": it has 2 hard links, and replacing it would split it from its other names\n" + failed(h.file("IM1")),
              r.err);
    EXPECT_TRUE(h.unchanged());
}

TEST(ApplyChangesSafety, ObjectsThatAreNoSoftEditTargets)
{
    Study s;
    const std::string dicomdir = corpusFile("dicomdirtests/DICOMDIR");
    ASSERT_TRUE(writeFile(s.file("DICOMDIR"), readFile(dicomdir)));
    // the run's own KqR file under a name the walk does not skip
    ASSERT_EQ(0, rename(s.kqr.c_str(), s.file("changes.dcm").c_str()));
    s.original = s.snapshot();
    RunResult r = applyChanges({"-v", "-p", s.file("changes.dcm"), "-d", s.dir});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("Skipping DICOMDIR\n")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("Skipping changes.dcm\n")) << r.out;
    EXPECT_EQ(std::string::npos, r.out.find("Apply soft edit changes to " + s.file("DICOMDIR")));
    EXPECT_EQ(s.original["DICOMDIR"], readFile(s.file("DICOMDIR")));
    EXPECT_EQ(s.original["changes.dcm"], readFile(s.file("changes.dcm")));
    EXPECT_EQ("Doe^Jane", attribute(s.file("IM3"), DCM_PatientName));

    r = applyChanges({"-p", s.file("changes.dcm"), "-o", s.file("DICOMDIR")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Refusing to edit " + s.file("DICOMDIR") + ": a DICOMDIR (Media Storage Directory) is never modified\n" +
                  failed(s.file("DICOMDIR")),
              r.err);
    r = applyChanges({"-p", s.file("changes.dcm"), "-o", s.file("changes.dcm")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Refusing to edit " + s.file("changes.dcm") + ": it is the KqR file of this run\n" +
                  failed(s.file("changes.dcm")),
              r.err);
    EXPECT_EQ(s.original["DICOMDIR"], readFile(s.file("DICOMDIR")));
    EXPECT_EQ(s.original["changes.dcm"], readFile(s.file("changes.dcm")));
}

TEST(ApplyChangesSafety, ChangeSetsThatCanOnlyDoDamageAreRefusedBeforeAnyObject)
{
    struct Case
    {
        const char* what;
        DcmElement* element;
        int level; // 0 study, 1 series, 2 instance
        std::string reason;
    };
    DcmLongString* dateAsLO = new DcmLongString(DcmTag(DCM_PatientBirthDate, EVR_LO));
    dateAsLO->putString("19700101");
    DcmUnsignedShort* command = new DcmUnsignedShort(DcmTag(DcmTagKey(0x0000, 0x0100), EVR_US));
    command->putUint16(1);
    DcmUnsignedShort* rows = new DcmUnsignedShort(DCM_Rows);
    rows->putUint16(512);
    DcmIntegerString* frames = new DcmIntegerString(DCM_NumberOfFrames);
    frames->putString("2");
    DcmUniqueIdentifier* emptyStudy = new DcmUniqueIdentifier(DCM_StudyInstanceUID);
    DcmCodeString* charset = new DcmCodeString(DCM_SpecificCharacterSet);
    charset->putString("ISO_IR 100");
    DcmUniqueIdentifier* studySeries = new DcmUniqueIdentifier(DCM_SeriesInstanceUID);
    studySeries->putString("1.2.3");
    DcmLongString* orphan = new DcmLongString(DcmTag(DcmTagKey(0x0011, 0x1010), EVR_LO));
    orphan->putString("no creator");
    DcmUnsignedShort* nameAsUS = new DcmUnsignedShort(DcmTag(DCM_PatientName, EVR_US));
    nameAsUS->putUint16(7);
    DcmUniqueIdentifier* meta = new DcmUniqueIdentifier(DCM_TransferSyntaxUID);
    meta->putString("1.2.840.10008.1.2");
    DcmOtherByteOtherWord* overlay = new DcmOtherByteOtherWord(DcmTag(DcmTagKey(0x7fe0, 0x0008), EVR_OB));
    const Uint8 bytes[] = {1, 2};
    overlay->putUint8Array(bytes, 2);
    DcmUniqueIdentifier* studySOP = new DcmUniqueIdentifier(DCM_SOPInstanceUID);
    studySOP->putString("1.2.3.4");
    DcmUniqueIdentifier* seriesSOP = new DcmUniqueIdentifier(DCM_SOPInstanceUID);
    seriesSOP->putString("1.2.3.4");
    const std::vector<Case> cases = {
        {"birth date as LO", dateAsLO, 0, "(0010,0030) PatientBirthDate: VR LO contradicts the data dictionary's DA"},
        {"command element", command, 0, "(0000,0100) CommandField: command elements do not belong in a stored object"},
        {"Rows", rows, 0,
         "(0028,0010) Rows: describes the stored pixel data, which a soft edit leaves as it is (they would no longer "
         "match)"},
        {"Number of Frames, series", frames, 1,
         "(0028,0008) NumberOfFrames: describes the stored pixel data, which a soft edit leaves as it is (they would "
         "no longer match)"},
        {"empty Study Instance UID", emptyStudy, 0,
         "(0020,000d) StudyInstanceUID: cannot be made empty (every object needs its value)"},
        {"Specific Character Set", charset, 1,
         "(0008,0005) SpecificCharacterSet: would relabel the object's values without converting them (the KqR "
         "file's values are converted to each object's character set)"},
        {"Series Instance UID, study", studySeries, 0,
         "(0020,000e) SeriesInstanceUID: can be changed at series or instance level only (it would merge every "
         "series of the study into one)"},
        {"private element without creator", orphan, 0,
         "(0011,1010): private element without its private creator (it has no block to go in)"},
        {"PatientName as US", nameAsUS, 0, "(0010,0010) PatientName: VR US contradicts the data dictionary's PN"},
        {"meta element", meta, 0, "(0002,0010) TransferSyntaxUID: file meta information cannot be changed by a soft edit"},
        {"7FE0 element", overlay, 0, "(7fe0,0008) FloatPixelData: pixel data cannot be changed by a soft edit"},
        {"SOP Instance UID, study", studySOP, 0,
         "(0008,0018) SOPInstanceUID: can be changed at instance level only (it would give many objects one identity)"},
        {"SOP Instance UID, series", seriesSOP, 1,
         "(0008,0018) SOPInstanceUID: can be changed at instance level only (it would give many objects one identity)"},
    };
    Study s;
    const ObjectSpec spec;
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.what);
        KqRWriter writer;
        DcmItem* item = nullptr;
        if (c.level == 0)
            ASSERT_TRUE(writer.changeItem(item).good());
        else
            ASSERT_TRUE(writer.seriesItem(spec.seriesUID.c_str(), item).good());
        item->insert(c.element, OFTrue);
        const std::string kqr = s.root.file("bad.kqr");
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
    EXPECT_EQ("Refusing to edit " + s.file("IM1") + ": it is read-only (no write permission)\n" + failed(s.file("IM1")),
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
        int status;
        std::string name; // the stored bytes after the run
        std::string err;
    };
    const std::string charsets = "/usr/lib/python3/dist-packages/pydicom/data/charset_files/";
    const std::vector<Case> cases = {
        {"chrFren.dcm", 0, "M\xfcller^J\xfcrgen", ""}, // ISO_IR 100
        {"chrX1.dcm", 0, "M\xc3\xbcller^J\xc3\xbcrgen", ""}, // ISO_IR 192
        {"chrRuss.dcm", 1, "", "the value of (0010,0010) PatientName cannot be represented in the object's character set \"ISO_IR 144\""},
        {"chrH31.dcm", 1, "", "the KqR file's values in \"ISO_IR 192\" cannot be converted to the object's character set \"\\ISO 2022 IR 87\""},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.file);
        const std::string object = dir.file(c.file);
        const std::string original = readFile(charsets + c.file);
        ASSERT_TRUE(writeFile(object, original));
        const RunResult r = applyChanges({"-p", kqr, "-o", object});
        EXPECT_EQ(c.status, r.status);
        if (c.status == 0)
        {
            EXPECT_EQ(c.name, attribute(object, DCM_PatientName));
            continue;
        }
        EXPECT_EQ("Refusing to edit " + object + ": " + c.err + "\n" + failed(object), r.err);
        EXPECT_EQ(original, readFile(object));
    }
}

TEST(ApplyChangesEditRules, PrivateBlocksKeepTheirOwners)
{
    // IM1 uses block 10 of group F215 for another creator: the series-level KqR file carries its own
    // creator element (F215,0010) "KQ group A", which must not take that block over.
    Study s(2, 2);
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
    Study s(2, 2);
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
    Study s(2, 2);
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
    Study s(2, 2);
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
