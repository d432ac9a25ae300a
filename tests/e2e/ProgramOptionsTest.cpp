// makeKqR, convertPrivateTags, objdiff and the command line they share, run as built: exit status,
// exact messages, and the files they leave.
#include "tests/fixtures/Fixtures.h"
#include "privatetags/KQItem.h"
#include "dcmutils/KqRWriter.h"
#include "dcmutils/softedit.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcuid.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <regex>

using namespace fixtures;

namespace {

std::string itemValue(DcmItem* item, const DcmTagKey& key)
{
    OFString v;
    return item && item->findAndGetOFString(key, v).good() ? v.c_str() : "<missing>";
}

// An object with a legacy date (F215,BA51) and change sequence (F215,DA31).
bool writeLegacyObject(const std::string& path)
{
    std::unique_ptr<DcmFileFormat> file(makeObject(ObjectSpec()));
    DcmDataset& ds = *file->getDataset();
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x00BA, EVR_LO), KQ_LEGACY_CREATOR);
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0xBA51, EVR_DA), "20190305");
    DcmItem* change = NULL;
    ds.findOrCreateSequenceItem(DcmTag(KQ_PRIVATE_GROUP, 0xDA31, EVR_SQ), change, -2);
    change->putAndInsertString(DCM_PatientName, "Changed^Name");
    return file->saveFile(path.c_str(), EXS_LittleEndianExplicit).good();
}

} // namespace

TEST(ProgramOptions, HelpVersionLoggerOptionsAndUsageErrors)
{
    TempDir dir;
    const std::string missing = dir.file("missing.dcm");
    const std::string nowhere = dir.file("no/such/dir/x.kqr");
    struct Program
    {
        std::string name;
        std::vector<std::string> failing; // arguments that parse but fail
        std::string failure;              // the start of the one line they give
        int trouble;                      // the exit status of a failure or usage error
    };
    const Program programs[] = {
        {"makeKqR", {nowhere}, "makeKqR: cannot write " + nowhere, 1},
        {"convertPrivateTags", {missing, dir.file("out.dcm")}, "convertPrivateTags: cannot convert " + missing, 1},
        {"transcode", {"-x", "1.2.840.10008.1.2.1", missing, dir.file("out.dcm")}, "transcode: cannot read " + missing,
         1},
        {"objdiff", {missing, missing}, "Error loading " + missing, 2}, // 1 is for "different"
    };
    const std::regex version(std::string("[A-Za-z]+ \\(KQ archive\\) ") + KQ_VERSION + "\nDCMTK " +
                             OFFIS_DCMTK_VERSION_STRING + "\nOpenJPEG [0-9]+\\.[0-9]+\\.[0-9]+\n");
    for (const Program& p : programs)
    {
        SCOPED_TRACE(p.name);
        const std::string see = " (see " + p.name + " -h)\n";
        RunResult help = runBuilt(p.name, {"-h"});
        EXPECT_EQ(0, help.status);
        EXPECT_EQ("", help.err);
        EXPECT_EQ(0u, help.out.find(p.name + ": "));
        EXPECT_NE(std::string::npos, help.out.find("\nusage: " + p.name + " [options] "));
        EXPECT_NE(std::string::npos, help.out.find("\nexit status:\n  0  "));
        EXPECT_EQ(help.out, runBuilt(p.name, {"--help"}).out);

        RunResult r = runBuilt(p.name, {"--version"});
        EXPECT_EQ(0, r.status);
        EXPECT_TRUE(std::regex_match(r.out, version)) << r.out;
        EXPECT_EQ(0u, r.out.find(p.name + " (KQ archive) "));

        r = runBuilt(p.name, p.failing);
        EXPECT_EQ(p.trouble, r.status);
        EXPECT_EQ(0u, r.err.find(p.failure)) << r.err;
        std::vector<std::string> args = {"-q"};
        args.insert(args.end(), p.failing.begin(), p.failing.end());
        r = runBuilt(p.name, args);
        EXPECT_EQ(p.trouble, r.status);
        EXPECT_EQ("", r.out + r.err);
        args[0] = "--arguments";
        r = runBuilt(p.name, args);
        EXPECT_EQ(0u, r.err.find("I: calling '" + program(p.name) + "' with " +
                                 std::to_string(args.size()) + " arguments: '--arguments' '"))
            << r.err;
        EXPECT_NE(std::string::npos, r.err.find("\n" + p.failure)) << r.err;

        const std::pair<std::vector<std::string>, std::string> usageErrors[] = {
            {{"--no-such-option"}, "unknown option --no-such-option"},
            {{"-ll", "loud"}, "invalid log level loud, expected fatal, error, warn, info, debug or trace"},
            {{"-v", "-ll", "info"}, "--log-level not allowed with --verbose, --debug or --quiet"},
            {{"-lc", missing}, "log configuration file " + missing + " cannot be read"},
        };
        for (const auto& u : usageErrors)
        {
            args = u.first;
            args.insert(args.end(), p.failing.begin(), p.failing.end());
            r = runBuilt(p.name, args);
            EXPECT_EQ(p.trouble, r.status);
            EXPECT_EQ("", r.out);
            EXPECT_EQ(p.name + ": " + u.second + see, r.err);
        }
    }
}

// gwav keeps its commands' own command lines and DCMTK's "E: " messages, with the same version
// lines and one-line refusals of the logger options.
TEST(ProgramOptions, GwavSharesVersionAndLoggerOptions)
{
    const std::regex version(std::string("gwav \\(KQ archive\\) ") + KQ_VERSION + "\nDCMTK " +
                             OFFIS_DCMTK_VERSION_STRING + "\nOpenJPEG [0-9.]+\n(libpng [0-9.]+\n)?");
    RunResult r = runBuilt("gwav", {"--version"});
    EXPECT_EQ(0, r.status);
    EXPECT_TRUE(std::regex_match(r.out, version)) << r.out;
    r = runBuilt("gwav", {"info", "-ll", "loud", "x.gwav"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("E: invalid log level loud, expected fatal, error, warn, info, debug or trace\n", r.err);
}

TEST(MakeKqR, WritesAllThreeLevelsAndTheOffset)
{
    TempDir dir;
    const std::string out = dir.file("edit.kqr");
    RunResult r = runBuilt("makeKqR", {"-z", "+0100", "-m", "(0010,0010)=Doe^Jane", "-m", "StudyDate=20200101",
                           "-m", "StudyTime=003000", "-S", "1.2.3",
                           "-m", "(0008,103e)=Head", "-I", "1.2.3.4", "-m", "InstanceNumber=7", "-T", "-m",
                           "PatientID=P9", out});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.err);
    EXPECT_EQ("", r.out);

    DcmFileFormat file;
    ASSERT_TRUE(file.loadFile(out.c_str()).good());
    DcmDataset* ds = file.getDataset();
    EXPECT_EQ("1.2.999.0.1.7777777.4.55.1.0.1", itemValue(ds, DCM_SOPClassUID));
    EXPECT_EQ(0u, itemValue(ds, DCM_SOPInstanceUID).find("1.2.999.0.1.7777777.4.55.1.1.1."));
    EXPECT_EQ("+0100", itemValue(ds, DCM_TimezoneOffsetFromUTC));

    DcmItem *change = nullptr, *series = nullptr, *instance = nullptr;
    ASSERT_TRUE(KQItem(*ds).findAndGetKQSequenceItem(KQ_CHANGE_SEQUENCE, change, 0).good());
    EXPECT_EQ("Doe^Jane", itemValue(change, DCM_PatientName));
    EXPECT_EQ("P9", itemValue(change, DCM_PatientID));
    EXPECT_EQ("20200101", itemValue(change, DCM_StudyDate));
    ASSERT_TRUE(KQItem(*change).findAndGetKQSequenceItem(KQ_SERIES_SEQUENCE, series, 0).good());
    EXPECT_EQ("1.2.3", itemValue(series, DCM_SeriesInstanceUID));
    EXPECT_EQ("Head", itemValue(series, DCM_SeriesDescription));
    ASSERT_TRUE(KQItem(*series).findAndGetKQSequenceItem(KQ_INSTANCE_SEQUENCE, instance, 0).good());
    EXPECT_EQ("1.2.3.4", itemValue(instance, DCM_SOPInstanceUID));
    EXPECT_EQ("7", itemValue(instance, DCM_InstanceNumber));

    // non-ASCII values are recorded in UTF-8; with -z, a time without its date is only warned about
    r = runBuilt("makeKqR", {"-z", "+0100", "-m", "PatientName=M\xc3\xbcller", "-m", "StudyTime=120000", out});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("makeKqR: warning: (0008,0030) StudyTime is given without (0008,0020) StudyDate: it is not "
              "converted to each object's offset\n",
              r.err);
    EXPECT_EQ("ISO_IR 192", attribute(out, DCM_SpecificCharacterSet));

    // negative offsets are values, not options; -q keeps the warning quiet
    r = runBuilt("makeKqR", {"-q", "-z", "-0500", "-m", "StudyTime=120000", out});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("", r.out + r.err);
    EXPECT_EQ("-0500", attribute(out, DCM_TimezoneOffsetFromUTC));
}

TEST(MakeKqR, BadArgumentsGiveOneLineAndNoFile)
{
    TempDir dir;
    const std::string out = dir.file("edit.kqr"), nowhere = dir.file("no/such/dir/x.kqr");
    const std::string assignment = "invalid attribute assignment (expected \"(gggg,eeee)=value\"): ";
    const std::string offset = "invalid Timezone Offset From UTC (expected +HHMM or -HHMM): ";
    const std::string see = " (see makeKqR -h)", vr = " value (Value Representation violated)";
    const std::string key = " is the key this level's item is matched by (changed, the item would match no object)";
    const std::string a65(65, 'A');
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"-m", "(0010,0010)", out}, assignment + "(0010,0010)"},
        {{"-m", "(00x0,0010)=A", out}, assignment + "(00x0,0010)=A"},
        {{"-m", "NoSuchKeyword=A", out}, assignment + "NoSuchKeyword=A"},
        {{"-m", "(0009,1001)=A", out}, "attribute not in the data dictionary: (0009,1001)"},
        {{"-m", "(0008,1115)=A", out}, "sequence attributes cannot be set: (0008,1115)"},
        {{"-z", "0100", out}, offset + "0100"},
        {{"-z", "+0175", out}, offset + "+0175"},
        {{"-I", "1.2", out}, "-I 1.2 needs a series selected with -S before it"},
        {{"-y", out}, "unknown option -y" + see},
        {{out, "-m"}, "option -m needs an argument" + see},
        {{"-m", "PatientName=A"}, "missing parameter kqrfile-out" + see},
        {{out, "extra"}, "unexpected parameter extra" + see},
        {{nowhere}, "cannot write " + nowhere + ": "}, // the start of the line
        // change sets that could only damage objects, and values their VR does not allow
        {{"-m", "(0002,0010)=1.2", out}, "(0002,0010) TransferSyntaxUID: file meta information cannot be changed by a soft edit"},
        {{"-m", "(0009,0010)=ACME", out}, "(0009,0010) PrivateCreator: private creator elements cannot be set (the KqR "
                                          "file's private blocks are its own)"},
        {{"-m", "StudyDate=2020-01-01", out}, "(0008,0020) StudyDate: \"2020-01-01\" is not a valid DA" + vr},
        {{"-m", "StudyTime=25", out}, "(0008,0030) StudyTime: \"25\" is not a valid TM" + vr},
        {{"-m", "InstanceNumber=7a", out}, "(0020,0013) InstanceNumber: \"7a\" is not a valid IS" + vr},
        {{"-m", "StationName=ABCDEFGHIJKLMNOPQ", out},
         "(0008,1010) StationName: \"ABCDEFGHIJKLMNOPQ\" is longer than a SH value may be (16 characters)"},
        {{"-m", "PatientName=M\xfcller", out}, "the value of (0010,0010) PatientName is neither plain ASCII nor UTF-8"},
        {{"-m", "BitsStored=12", out}, "(0028,0101) BitsStored: describes the stored pixel data, which a soft edit "
                                       "leaves as it is (they would no longer match)"},
        {{"-m", "SeriesInstanceUID=1.2", out}, "(0020,000e) SeriesInstanceUID: can be changed at series or instance "
                                               "level only (it would merge every series of the study into one)"},
        {{"-S", "1.2", "-m", "SeriesInstanceUID=1.3", out}, "(0020,000e) SeriesInstanceUID:" + key},
        {{"-S", "1.2", "-I", "1.2.3", "-m", "SOPInstanceUID=1.2.4", out}, "(0008,0018) SOPInstanceUID:" + key},
        {{"-m", "PatientName=" + a65, out}, "(0010,0010) PatientName: \"" + a65 +
                                                "\" has a name component group longer than a PN value's may be (64 characters)"},
        {{"-m", "Modality=CT\\MR", out},
         "(0008,0060) Modality: \"CT\\MR\" has 2 values, more than the data dictionary allows (1)"},
    };
    for (const auto& c : cases)
    {
        const RunResult r = runBuilt("makeKqR", c.first);
        EXPECT_EQ(1, r.status) << c.second;
        if (c.first[0] == nowhere)
            EXPECT_EQ(0u, r.err.find("makeKqR: " + c.second)) << r.err;
        else
            EXPECT_EQ("makeKqR: " + c.second + "\n", r.err);
        EXPECT_EQ(std::string::npos, r.err.find('\n', r.err.find('\n') + 1)) << "more than one line: " << r.err;
        EXPECT_TRUE(listDir(dir.path()).empty());
    }
}

TEST(ConvertPrivateTagsProgram, ConvertsInPlaceOrBeside)
{
    TempDir dir;
    const std::string in = dir.file("legacy.dcm");
    ASSERT_TRUE(writeLegacyObject(in));
    const std::string original = readFile(in);
    // relative names are taken from the working directory
    char cwd[4096];
    ASSERT_NE(nullptr, getcwd(cwd, sizeof(cwd)));
    ASSERT_EQ(0, chdir(dir.path().c_str()));
    const RunResult relative = runBuilt("convertPrivateTags", {"legacy.dcm", "converted.dcm"});
    ASSERT_EQ(0, chdir(cwd));
    EXPECT_EQ(0, relative.status);
    EXPECT_EQ("", relative.out + relative.err);
    EXPECT_EQ(original, readFile(in));

    DcmFileFormat converted;
    ASSERT_TRUE(converted.loadFile(dir.file("converted.dcm").c_str()).good());
    const char* date = NULL;
    DcmItem* change = NULL;
    ASSERT_TRUE(converted.getDataset()->findAndGetString(DcmTagKey(KQ_PRIVATE_GROUP, 0x1015), date).good());
    EXPECT_STREQ("20190305", date);
    EXPECT_TRUE(KQItem(*converted.getDataset()).findAndGetKQSequenceItem(0x62, change).good());

    const RunResult inPlace = runBuilt("convertPrivateTags", {in, in});
    EXPECT_EQ(0, inPlace.status);
    EXPECT_EQ(readFile(dir.file("converted.dcm")), readFile(in));
    EXPECT_EQ((std::vector<std::string>{"converted.dcm", "legacy.dcm"}), listDir(dir.path()));
}

TEST(ConvertPrivateTagsProgram, EveryDroppedElementIsNamed)
{
    // a legacy element without canonical number, and one whose canonical element is already there
    TempDir dir;
    std::unique_ptr<DcmFileFormat> file(makeObject(ObjectSpec()));
    DcmDataset& ds = *file->getDataset();
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x0010, EVR_LO), KQ_PRIVATE_CREATOR);
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x1015, EVR_DA), "20000101");
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x00BA, EVR_LO), KQ_LEGACY_CREATOR);
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0xBA51, EVR_DA), "20190305");
    ds.putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0xBAFF, EVR_LO), "no place");
    ASSERT_TRUE(file->saveFile(dir.file("in.dcm").c_str(), EXS_LittleEndianExplicit).good());

    const RunResult r = runBuilt("convertPrivateTags", {dir.file("in.dcm"), dir.file("out.dcm")});
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("W: dropped element (f215,baff) of legacy block BA: it has no canonical number\n"
              "W: dropped element (f215,ba51) of legacy block BA: the item already holds (f215,1015)\n",
              r.err);
    EXPECT_EQ("20000101", attribute(dir.file("out.dcm"), DcmTagKey(KQ_PRIVATE_GROUP, 0x1015)));
}

TEST(ConvertPrivateTagsProgram, UsageAndFailuresLeaveEveryFileAsItWas)
{
    TempDir dir;
    const std::string in = dir.file("legacy.dcm");
    ASSERT_TRUE(writeLegacyObject(in));
    const std::string garbage = dir.file("garbage.dcm");
    ASSERT_TRUE(writeFile(garbage, "DICM but not really"));
    const std::string existing = dir.file("existing.dcm");
    ASSERT_TRUE(writeFile(existing, "previous content"));
    const std::string truncated = corpusFile("MR_truncated.dcm");
    const std::string outDir = dir.file("outdir");
    ASSERT_EQ(0, mkdir(outDir.c_str(), 0755));
    const std::vector<std::string> before = listDir(dir.path());
    const std::string inContent = readFile(in);
    const std::string newOut = dir.file("new.dcm");

    const std::string see = " (see convertPrivateTags -h)\n";
    std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "missing parameter dcmfile-in" + see},
        {{"one"}, "missing parameter dcmfile-out" + see},
        {{"one", "two", "three"}, "unexpected parameter three" + see},
        {{"-x", "out"}, "unknown option -x" + see},
        {{"in", ""}, "parameter 2 is empty" + see}};
    for (const std::vector<std::string>& f : std::vector<std::vector<std::string>>{
             {dir.file("missing.dcm"), newOut}, {garbage, newOut}, {truncated, newOut}, {garbage, existing},
             {truncated, existing}, {in, dir.file("none/out.dcm")}, {in, outDir}, {dir.path(), newOut}})
        cases.push_back({f, "cannot convert " + f[0] + " to " + f[1] + "\n"});
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.second);
        const RunResult r = runBuilt("convertPrivateTags", c.first);
        EXPECT_EQ(1, r.status);
        EXPECT_EQ("", r.out);
        EXPECT_EQ("convertPrivateTags: " + c.second, r.err);
        EXPECT_EQ(before, listDir(dir.path()));
        EXPECT_TRUE(listDir(outDir).empty());
        EXPECT_EQ("previous content", readFile(existing));
        EXPECT_EQ(inContent, readFile(in));
    }
}

TEST(ObjDiffTool, CommandLines)
{
    TempDir dir;
    const std::string a = dir.file("a.dcm"), b = dir.file("b.dcm"), kqr = dir.file("edit.kqr");
    const std::string names = dir.file("names"), ids = dir.file("ids"), privateGroup = dir.file("private");
    const std::string missing = dir.file("missing.dcm"), dump = dir.file("dump"), bits = dir.file("bits");
    const std::string changed = dir.file("changed.dcm"), broken = dir.file("broken.dcm");
    ObjectSpec mine, other;
    other.patientName = "Other^Name";
    ASSERT_TRUE(writeObject(a, mine));
    ASSERT_TRUE(writeObject(b, other));
    KqRWriter writer; // a study attribute, and an instance one (its items carry a private creator)
    ASSERT_TRUE(writer.setStudyAttribute(DCM_PatientName, "Other^Name").good());
    ASSERT_TRUE(writer.setInstanceAttribute(mine.seriesUID.c_str(), mine.sopInstanceUID.c_str(), DCM_ImageComments,
                                            "edited").good());
    ASSERT_TRUE(writer.save(kqr.c_str()).good());
    ASSERT_TRUE(writeFile(names, "# names may differ\n(0010,....)\n") && writeFile(ids, "(0010,0020)\n") &&
                writeFile(privateGroup, "(f215,....)\n(0020,4000)\n") && writeFile(bits, "(0028,0100)\n"));
    const std::string before = readFile(a) + readFile(kqr);
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
        // the dump of an object: its attributes, then the dump file, which compares equal to itself
        // (dump comparison itself is tested with the dumps' reader)
        {{"-w", dir.file("a"), a}, 0, "(0008,0005) CS [ISO_IR 100]", ""},
        {{"-c", dir.file("a.dump.wavelet"), dir.file("a.dump.wavelet")}, 0, "", ""},
        {{"-c", dir.file("a.dump.wavelet"), a}, 2, "", notDump + a + "\n", true},
        {{"-w", dir.file("ct"), corpusFile("CT_small.dcm")}, 0, "(0008,0005) CS [ISO_IR 100]", ""},
        {{"-c", dir.file("a.dump.wavelet"), dir.file("ct.dump.wavelet")}, 1, "", ""}, // other sizes
    };
    for (const Case& c : cases)
    {
        std::string line;
        for (const std::string& arg : c.args)
            line += " " + arg;
        SCOPED_TRACE("objdiff" + line);
        const RunResult r = runBuilt("objdiff", c.args);
        EXPECT_EQ(c.status, r.status);
        EXPECT_EQ(c.out, c.out.empty() ? r.out : r.out.substr(0, c.out.size()));
        EXPECT_EQ(c.err, c.tail && r.err.size() > c.err.size() ? r.err.substr(r.err.size() - c.err.size()) : r.err);
    }
    EXPECT_EQ(before, readFile(a) + readFile(kqr));
    // with -v every frame tells its measure and largest difference, whatever the verdict
    const RunResult r = runBuilt("objdiff", {"-m", "1", "-v", a, changed});
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.out.find("Frame 1: peak-error measure ")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find(" (equal above 40), largest absolute difference 256\n"));
}
