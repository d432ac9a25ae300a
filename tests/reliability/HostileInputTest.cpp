// Files shaped to break the toolkit's reader: every program ends in one line, in bounded time and memory.
#include "tests/reliability/ReliabilitySupport.h"
#include "tests/fixtures/HostileFiles.h"

#include "dcmtk/dcmdata/dctk.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

using namespace reliability;

namespace {

#if defined(KQ_SANITIZED)
// AddressSanitizer reserves terabytes of address space: its programs run without the limit
const std::vector<std::string> memoryLimit;
#else
const std::vector<std::string> memoryLimit{"/usr/bin/prlimit", "--as=1073741824", "--"};
#endif

// A program run under a 1 GiB address space and a minute of time.
RunResult bounded(const std::string& name, const std::vector<std::string>& args)
{
    std::vector<std::string> argv = memoryLimit;
    argv.insert(argv.end(), {"/usr/bin/timeout", "60", program(name)});
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
    ASSERT_FALSE(writeNameKqR(dir.file("edit.kqr"), "Doe^Jane").empty());
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        const std::string path = dir.file(c.name);
        ASSERT_TRUE(c.bytes.empty() || writeFile(path, c.bytes));
        const std::string before = readFile(path);
        EXPECT_TRUE(failsWith(bounded("applyChanges", {"-p", dir.file("edit.kqr"), "-o", path}),
                              "Error loading " + path + " [" + c.reason + "]\n" + failedLine(path)));
        EXPECT_EQ(before, readFile(path));
        EXPECT_TRUE(failsWith(bounded("objdiff", {path, path}), "Error loading " + path + "(" + c.reason + ")\n", 2));
        EXPECT_TRUE(failsWith(bounded("transcode", {"-x", "1.2.840.10008.1.2.1", path, dir.file("out")}),
                              "transcode: cannot read " + path + " [" + c.reason + "]\n"));
        EXPECT_TRUE(failsWith(bounded("convertPrivateTags", {path, dir.file("out")}),
                              "convertPrivateTags: cannot convert " + path + ": " + c.reason + "\n"));
        EXPECT_FALSE(fileExists(dir.file("out")));
    }
    // a nesting far deeper than real objects use, but within the limit, is read as ever
    ASSERT_TRUE(writeFile(dir.file("deep-enough"), nestedObject(200, NEST_EXPLICIT_UNDEFINED)));
    EXPECT_EQ(0, bounded("applyChanges", {"-p", dir.file("edit.kqr"), "-o", dir.file("deep-enough")}).status);
}

TEST(HostileInput, DirectoryRunCommitsWhatCameBeforeAndRefusesADeepKqR)
{
    TempDir dir;
    const PlainStudy s(dir, 4, "Doe^Jane");
    const std::string& study = s.dir;
    ASSERT_TRUE(writeFile(study + "/NESTED", nestedObject(20000, NEST_EXPLICIT_UNDEFINED)));
    ASSERT_TRUE(writeFile(dir.file("deep.kqr"), nestedObject(20000, NEST_IMPLICIT_UNDEFINED)));
    const std::vector<std::string> order = listDir(study, false); // the walk's order
    std::map<std::string, std::string> before;
    for (const std::string& name : order)
        before[name] = readFile(study + "/" + name);
    EXPECT_TRUE(failsWith(bounded("applyChanges", {"-p", dir.file("deep.kqr"), "-d", study}),
                          "Refusing to read KqR file " + dir.file("deep.kqr") + ": " + tooDeep + "\n"));
    EXPECT_TRUE(failsWith(bounded("applyChanges", {"-p", s.kqr, "-d", study}),
                          "Error loading " + study + "/NESTED [" + tooDeep + "]\n" + failedLine(study + "/NESTED")));
    // edited before the nested object in walk order, byte-identical from there on
    bool after = false;
    for (const std::string& name : order)
        EXPECT_TRUE((after = after || name == "NESTED") ? before[name] == readFile(study + "/" + name)
                                                        : attribute(study + "/" + name, DCM_PatientName) == "Doe^Jane")
            << name;
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
    const std::string many = dir.file("many");
    ASSERT_TRUE(file->saveFile(many.c_str(), EXS_LittleEndianExplicit).good());
    ASSERT_FALSE(writeNameKqR(dir.file("edit.kqr"), "Doe^Jane").empty());
    EXPECT_EQ(0, run({"/usr/bin/timeout", "20", program("objdiff"), many, many}).status);
    EXPECT_EQ(0, run({"/usr/bin/timeout", "20", program("applyChanges"), "-p", dir.file("edit.kqr"), "-o", many}).status);
    EXPECT_EQ("Doe^Jane", attribute(many, DCM_PatientName));
}

TEST(HostileInput, DeclaredSizesAreCheckedAgainstWhatTheFileHolds)
{
    TempDir dir;
    // 200 frames of 4096 x 4096 16-bit samples declared (6.7 GB), 512 bytes present
    ObjectSpec spec;
    spec.rows = spec.columns = 4096;
    std::unique_ptr<DcmFileFormat> claim(makeObject(spec));
    claim->getDataset()->putAndInsertString(DCM_NumberOfFrames, "200");
    const Uint16 few[256] = {0};
    claim->getDataset()->putAndInsertUint16Array(DCM_PixelData, few, 256);
    const std::string claims = dir.file("claims.dcm");
    ASSERT_TRUE(claim->saveFile(claims.c_str(), EXS_LittleEndianExplicit).good());
    const std::string holds = "E: PixelData holds 512 bytes, fewer than the 6710886400 its description asks for "
                              "(200 frames of 33554432 bytes)\n";
    EXPECT_TRUE(failsWith(bounded("objdiff", {"-m", "1", claims, claims}), holds + "Error processing first DICOM object\n",
                          2));
    EXPECT_TRUE(failsWith(bounded("objdiff", {"-w", dir.file("dump"), claims}), holds + "Error processing DICOM object\n",
                          2));
    RunResult r = bounded("gwav", {"encode", claims, dir.file("claims.gw")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;
    // a 14-byte GW10 stream whose header claims 65535 x 65535 samples
    const std::string stream = dir.file("claims.gw");
    ASSERT_TRUE(writeFile(stream, std::string("GW10\x02\x00\xff\xff\xff\xff", 10) + "data"));
    EXPECT_TRUE(failsWith(bounded("gwav", {"decode", stream, dir.file("out.pgm")}),
                          "E: Invalid compressed bitstream: " + stream + "\n"));
    r = bounded("objdiff", {"-c", stream, stream});
    EXPECT_EQ(2, r.status);
    EXPECT_EQ(0u, r.err.find("Invalid compressed bitstream\n")) << r.err;
    // 65,537 frames of one sample that differ in the last: all of them are compared
    spec = ObjectSpec();
    spec.rows = spec.columns = 1;
    spec.bitsAllocated = 8;
    std::vector<Uint8> samples(65537, 7);
    for (const char* name : {"a.dcm", "b.dcm"})
    {
        std::unique_ptr<DcmFileFormat> frames(makeObject(spec));
        frames->getDataset()->putAndInsertString(DCM_NumberOfFrames, "65537");
        frames->getDataset()->putAndInsertUint8Array(DCM_PixelData, samples.data(), samples.size());
        ASSERT_TRUE(frames->saveFile(dir.file(name).c_str(), EXS_LittleEndianExplicit).good());
        samples.back() = 9;
    }
    EXPECT_TRUE(failsWith(bounded("objdiff", {"-m", "1", dir.file("a.dcm"), dir.file("b.dcm")}),
                          "! Image frame 65537 differs\n"));
}

TEST(HostileInput, OutputsAreNeverWrittenThroughALinkAtTheirName)
{
    TempDir dir;
    ObjectSpec spec;
    ASSERT_TRUE(writeObject(dir.file("a.dcm"), spec));
    ASSERT_TRUE(writeFile(dir.file("victim"), "precious"));
    ASSERT_EQ(0, run({program("gwav"), "encode", dir.file("a.dcm"), dir.file("a.gw")}).status);
    const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
        {dir.file("d.dump.wavelet"), {program("objdiff"), "-w", dir.file("d"), dir.file("a.dcm")}},
        {dir.file("e.gw"), {program("gwav"), "encode", dir.file("a.dcm"), dir.file("e.gw")}},
        {dir.file("f.pgm"), {program("gwav"), "decode", dir.file("a.gw"), dir.file("f.pgm")}},
        {dir.file("g.png"), {program("gwav"), "decode", dir.file("a.gw"), dir.file("g.png")}},
        {dir.file("h.dcm"), {program("transcode"), "-x", "1.2.840.10008.1.2", dir.file("a.dcm"), dir.file("h.dcm")}},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.first);
        ASSERT_EQ(0, symlink(dir.file("victim").c_str(), c.first.c_str()));
        EXPECT_EQ(0, run(c.second).status);
        struct stat status;
        ASSERT_EQ(0, lstat(c.first.c_str(), &status));
        EXPECT_TRUE(S_ISREG(status.st_mode)); // the link replaced by the output
        EXPECT_EQ("precious", readFile(dir.file("victim")));
    }
}
