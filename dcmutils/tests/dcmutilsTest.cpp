// The dataset utilities: element copies, UIDs, reading and writing, the shape scan.
#include "dcmutils/DescriptorInputStream.h"
#include "dcmutils/DicomStreamScan.h"
#include "dcmutils/dcmutils.h"
#include "dcmutils/fileio.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcovlay.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <memory>
#include <regex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

using namespace fixtures;

namespace {

const std::string pid = std::to_string(getpid());

std::string text(DcmElement* e)
{
    OFString v;
    return e->getOFStringArray(v).good() ? v.c_str() : "?";
}

// An item with a name, and a sequence of two items holding a series UID each.
DcmItem* makeNestedItem()
{
    DcmItem* item = new DcmItem();
    item->putAndInsertString(DCM_PatientName, "Doe^John");
    for (const char* uid : {"1.2.3.1", "1.2.3.2"})
    {
        DcmItem* inner = NULL;
        item->findOrCreateSequenceItem(DCM_ReferencedSeriesSequence, inner, -2);
        inner->putAndInsertString(DCM_SeriesInstanceUID, uid);
    }
    return item;
}

std::unique_ptr<DcmFileFormat> corpus(const char* name)
{
    return std::unique_ptr<DcmFileFormat>(readExistingDicomFile(corpusFile(name).c_str()));
}

} // namespace

TEST(CopyElement, CopiesEveryTabledRepresentationByClassAndRefusesTheRest)
{
    const std::pair<DcmEVR, const char*> copied[] = {
        {EVR_AE, "STORESCP"}, {EVR_AS, "042Y"}, {EVR_AT, "(0010,0010)"}, {EVR_CS, "A\\B"}, {EVR_DA, "20240305"},
        {EVR_DS, "1.5\\-2"}, {EVR_DT, "20240305140709.5+0100"}, {EVR_FL, "1.5"}, {EVR_FD, "-2.25"},
        {EVR_IS, "12\\-7"}, {EVR_LO, "lo"}, {EVR_LT, "lt"}, {EVR_PN, "Doe^John"}, {EVR_SH, "sh"},
        {EVR_SL, "-100000"}, {EVR_SS, "-3"}, {EVR_ST, "st"}, {EVR_TM, "140709"}, {EVR_UI, "1.2.840.10008.1.2"},
        {EVR_UL, "4000000000"}, {EVR_US, "65535"}, {EVR_UT, "ut"}, {EVR_OB, nullptr}, {EVR_OD, nullptr},
        {EVR_OF, nullptr}, {EVR_OL, nullptr}, {EVR_OV, nullptr}, {EVR_OW, nullptr}, {EVR_SV, nullptr},
        {EVR_UC, nullptr}, {EVR_UR, nullptr}, {EVR_UV, nullptr}, {EVR_UN, nullptr}};
    for (const auto& c : copied)
    {
        SCOPED_TRACE(DcmVR(c.first).getVRName());
        DcmElement* made = NULL;
        DcmItem::newDicomElementWithVR(made, DcmTag(0x0011, 0x1000, c.first));
        std::unique_ptr<DcmElement> source(made);
        ASSERT_TRUE(!c.second || source->putString(c.second).good());
        std::unique_ptr<DcmElement> copy(copyElement(source.get()));
        ASSERT_EQ(c.second != nullptr, copy != nullptr);
        if (copy)
        {
            EXPECT_TRUE(copy->ident() == source->ident() && !copy->compare(*source) && c.second == text(copy.get()));
        }
    }
    EXPECT_EQ(nullptr, copyElement(NULL));
    // pixel data, its fragments and overlays keep their class
    std::unique_ptr<DcmFileFormat> file = corpus("JPEG2000.dcm");
    DcmElement* pixels = NULL;
    DcmPixelSequence* fragments = NULL;
    ASSERT_TRUE(file->getDataset()->findAndGetElement(DCM_PixelData, pixels).good());
    ASSERT_TRUE(
        static_cast<DcmPixelData*>(pixels)->getEncapsulatedRepresentation(EXS_JPEG2000, NULL, fragments).good());
    DcmOverlayData overlay(DcmTag(0x6000, 0x3000, EVR_OW));
    const Uint16 bits[] = {0x0f0f, 0xf0f0};
    ASSERT_TRUE(overlay.putUint16Array(bits, 2).good());
    const std::pair<DcmElement*, DcmEVR> kinds[] = {
        {pixels, EVR_PixelData}, {fragments, EVR_pixelSQ}, {&overlay, EVR_OverlayData}};
    for (const auto& c : kinds)
    {
        std::unique_ptr<DcmElement> copy(copyElement(c.first));
        ASSERT_TRUE(copy);
        EXPECT_TRUE(c.second == copy->ident() && copy->compare(*c.first) == 0) << DcmVR(c.second).getVRName();
    }
}

TEST(PassElements, CopyToItemPassAndGet)
{
    std::unique_ptr<DcmItem> source(makeNestedItem());
    // a private element whose creator has no dictionary entry keeps its VR and so its value
    source->putAndInsertString(DcmTag(0x0029, 0x0010, EVR_LO), "ACME 1.0");
    DcmTag privateTag(0x0029, 0x1001, "ACME 1.0");
    privateTag.setVR(EVR_DS);
    source->putAndInsertString(privateTag, "1.5\\2");
    DcmItem target;
    target.putAndInsertString(DCM_PatientName, "Old^Name");
    for (unsigned long i = 0; i < source->card(); ++i)
        copyElementToItem(source->getElement(i), &target, false);
    EXPECT_EQ("Old^Name", value(target, DCM_PatientName)); // not replaced
    DcmElement* copied = NULL;
    ASSERT_TRUE(target.findAndGetElement(DcmTagKey(0x0029, 0x1001), copied).good());
    EXPECT_TRUE(copied->ident() == EVR_DS && text(copied) == "1.5\\2");
    EXPECT_STREQ("ACME 1.0", copied->getTag().getPrivateCreator());
    DcmItem* inner = NULL;
    ASSERT_TRUE(target.findAndGetSequenceItem(DCM_ReferencedSeriesSequence, inner, 1).good());
    source.reset(makeNestedItem()); // the copied sequence outlives its source
    EXPECT_EQ("1.2.3.2", value(*inner, DCM_SeriesInstanceUID));
    copyElementToItem(getElement(source.get(), DCM_PatientName), &target, true);
    EXPECT_EQ("Doe^John", value(target, DCM_PatientName));
    DcmElement* sequence = getElement(&target, DCM_ReferencedSeriesSequence);
    passSequence(DCM_ReferencedSeriesSequence, source.get(), &target); // an existing sequence stays
    EXPECT_EQ(sequence, getElement(&target, DCM_ReferencedSeriesSequence));
    EXPECT_EQ(4u, target.card());
    DcmItem to;
    EXPECT_EQ("1.2.3.1", text(getElement(source.get(), DCM_SeriesInstanceUID))); // nested: found
    EXPECT_EQ(nullptr, getElement(source.get(), DCM_StudyDate));
    passTag(DCM_PatientName, source.get(), &to);
    passTag(DCM_StudyDate, source.get(), &to);                 // absent: nothing
    passOrCreateTag(DCM_PatientID, source.get(), &to);         // absent: empty element
    passOrCreateTag(DCM_SeriesInstanceUID, source.get(), &to); // nested: copied to the top
    passOrCreateElem(NULL, DCM_AccessionNumber, &to);
    EXPECT_EQ(4u, to.card());
    EXPECT_EQ("", value(to, DCM_PatientID) + value(to, DCM_AccessionNumber));
    char* got = const_cast<char*>("kept");
    getValue(&to, DCM_StudyDate, got);
    EXPECT_STREQ("kept", got);
    getValue(&to, DCM_SeriesInstanceUID, got);
    EXPECT_STREQ("1.2.3.1", got);
}

TEST(CreateSOPInstanceUID, SiteIdOnceFormatCounterWrapAndLength)
{
    TempDir dir;
    const std::string path = dir.file("siteid");
    const std::pair<const char*, int> cases[] = {{"0", 11111111}, {"10000000", 11111111}, {"text", 11111111},
                                                 {"42", 42},      {"9999999\n", 9999999}, {NULL, 11111111}};
    for (const auto& c : cases)
    {
        unlink(path.c_str());
        ASSERT_TRUE(!c.first || writeFile(path, c.first));
        ScopedEnv env("SITEID_FILE", path.c_str());
        siteID = 0;
        std::unique_ptr<char[]> uid(createSOPInstanceUID("1.2"));
        EXPECT_EQ(0u, std::string(uid.get()).rfind("1.2." + std::to_string(c.second) + ".", 0)) << uid.get();
        ASSERT_TRUE(writeFile(path, "77")); // established once: a changed file is not read again
        delete[] createSOPInstanceUID();
        EXPECT_EQ(c.second, siteID);
    }
    ScopedEnv env("SITEID_FILE", NULL);
    siteID = counter = 0;
    std::unique_ptr<char[]> first(createSOPInstanceUID());
    const std::regex format("1\\.2\\.999\\.0\\.1\\.7777777\\.4\\.55\\.1\\.1\\.1\\.11111111\\.\\d{14}\\." + pid +
                            "\\.1");
    EXPECT_TRUE(std::regex_match(first.get(), format)) << first.get();
    for (int i = 2; i <= 1000; ++i)
        delete[] createSOPInstanceUID("1.2");
    EXPECT_EQ(1, counter); // the 1000th UID has counter 1 again
    // root "." site "." 14 digits "." pid "." counter 2
    const std::string fits(64 - (1 + 8 + 1 + 14 + 1 + pid.size() + 1 + 1), '1');
    std::unique_ptr<char[]> exact(createSOPInstanceUID(fits.c_str()));
    ASSERT_NE(nullptr, exact);
    EXPECT_EQ(64u, strlen(exact.get()));
    EXPECT_EQ(nullptr, createSOPInstanceUID((fits + "1").c_str()));
    EXPECT_EQ(3, counter); // a refused UID advances the counter too
}

TEST(DicomFile, WriteKeepsSyntaxFollowsNoLinkLeavesTheTargetOnFailureAndReadRefusesCutFiles)
{
    TempDir dir;
    std::unique_ptr<DcmFileFormat> big = corpus("MR_small_bigendian.dcm");
    DcmItem* item = NULL;
    big->getDataset()->findOrCreateSequenceItem(DCM_ReferencedSeriesSequence, item, -2);
    item->putAndInsertString(DCM_SeriesInstanceUID, "1.2.3");
    std::string target = dir.file("target.dcm");
    ASSERT_TRUE(writeFile(target, "old content"));
    counter = 0;
    ASSERT_TRUE(writeDicomFile(target.c_str(), big.get()));
    EXPECT_EQ(1, counter);
    EXPECT_EQ(std::vector<std::string>{"target.dcm"}, listDir(dir.path()));
    std::unique_ptr<DcmFileFormat> back(readExistingDicomFile(target.c_str()));
    EXPECT_EQ(EXS_BigEndianExplicit, back->getDataset()->getOriginalXfer());
    // explicit-length sequences and items: no delimitation items in the file
    const std::string bytes = readFile(target);
    EXPECT_EQ(std::string::npos, bytes.find(std::string("\xff\xfe\xe0\xdd", 4)));
    EXPECT_EQ(std::string::npos, bytes.find(std::string("\xff\xfe\xe0\x0d", 4)));
    // made in memory: explicit VR little endian, never through a link at the temporary name
    const std::string victim = dir.file("victim");
    ASSERT_TRUE(writeFile(victim, "not to be overwritten"));
    ASSERT_EQ(0, symlink(victim.c_str(), (dir.file("fresh.dcm.wtmp.") + pid + ".2").c_str()));
    DcmFileFormat fresh;
    fresh.getDataset()->putAndInsertString(DCM_PatientName, "Doe^John");
    ASSERT_TRUE(writeDicomFile(dir.file("fresh.dcm").c_str(), &fresh));
    back.reset(readExistingDicomFile(dir.file("fresh.dcm").c_str()));
    EXPECT_EQ(EXS_LittleEndianExplicit, back->getDataset()->getOriginalXfer());
    EXPECT_EQ("Doe^John", value(*back->getDataset(), DCM_PatientName));
    EXPECT_EQ("not to be overwritten", readFile(victim));
    struct stat st;
    ASSERT_EQ(0, lstat(dir.file("fresh.dcm").c_str(), &st));
    EXPECT_TRUE(S_ISREG(st.st_mode));
    // failures: native samples in JPEG 2000 without an encoder, no directory, a directory at the name
    TempDir fails;
    target = fails.file("target.dcm");
    ASSERT_TRUE(writeFile(target, "original"));
    std::unique_ptr<DcmFileFormat> j2k = corpus("JPEG2000.dcm");
    DcmPixelData* native = new DcmPixelData(DCM_PixelData);
    native->putUint16Array(std::vector<Uint16>(64, 7).data(), 64);
    ASSERT_TRUE(j2k->getDataset()->insert(native, true).good());
    const std::string folder = fails.file("folder.dcm"), nowhere = fails.file("missing/target.dcm");
    ASSERT_EQ(0, mkdir(folder.c_str(), 0755));
    ASSERT_TRUE(writeFile(folder + "/kept", "kept"));
    const std::string tmp = ".wtmp." + pid + ".1", writing = "writeDicomFile: error writing temporary file: ";
    const std::tuple<std::string, DcmFileFormat*, std::string> cases[] = {
        {target, j2k.get(), writing + target + tmp + ": Pixel representation not found\n"},
        {nowhere, &fresh, writing + nowhere + tmp + ": No such file or directory\n"},
        {folder, &fresh, "writeDicomFile: error moving temporary file " + folder + tmp + " to " + folder + "\n"}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::get<0>(c));
        counter = 0;
        bool written = true;
        const Captured out = capture([&] { written = writeDicomFile(std::get<0>(c).c_str(), std::get<1>(c)); });
        EXPECT_EQ(std::get<2>(c), out.err);
        EXPECT_FALSE(written);
        EXPECT_EQ((std::vector<std::string>{"folder.dcm", "target.dcm"}), listDir(fails.path()));
    }
    EXPECT_EQ("original", readFile(target));
    EXPECT_EQ(std::vector<std::string>{"kept"}, listDir(folder));
    // reading: a missing file can be created empty; nothing is made of a directory or a cut file
    const std::string cut = fails.file("cut.dcm"), missing = fails.file("no/such.dcm");
    ASSERT_TRUE(writeFile(cut, bytes.substr(0, bytes.size() - 1000)));
    std::unique_ptr<DcmFileFormat> created(readOrCreateDicomFile(missing.c_str()));
    EXPECT_TRUE(created && created->getDataset()->card() == 0 && !fileExists(missing));
    for (const std::string& path : {missing, cut, fails.path()})
        EXPECT_FALSE(std::unique_ptr<DcmFileFormat>(readExistingDicomFile(path.c_str()))) << path;
    for (const std::string& path : {cut, fails.path()})
        EXPECT_FALSE(std::unique_ptr<DcmFileFormat>(readOrCreateDicomFile(path.c_str()))) << path;
}

// A write that fails at any point is reported, the last buffered bytes included (saveFile loses those).
TEST(ReplaceFile, WritesWhatSaveFileWritesAndReportsWritesThatFailLate)
{
    auto save = [](DcmFileFormat& file, const std::string& path, rlim_t limit = RLIM_INFINITY) {
        // writes past this process's file size limit fail with EFBIG
        struct rlimit saved;
        getrlimit(RLIMIT_FSIZE, &saved);
        const struct rlimit lowered = {limit, saved.rlim_max};
        const auto handler = signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &lowered);
        REPLACE_STEP failed = RS_DONE;
        E_TransferSyntax xfer = file.getDataset()->getOriginalXfer();
        const OFCondition status = replaceFile(path, path + ".tmp", [&](int fd) {
            return writeFileFormat(file, fd, xfer, EET_UndefinedLength, EGL_recalcGL, EPD_noChange, 0, 0,
                                   EWM_createNewMeta);
        }, failed);
        setrlimit(RLIMIT_FSIZE, &saved);
        signal(SIGXFSZ, handler);
        return status;
    };
    TempDir dir;
    DcmFileFormat big;
    ASSERT_TRUE(big.loadFile(corpusFile("MR_small_bigendian.dcm").c_str()).good());
    ASSERT_TRUE(save(big, dir.file("synced")).good());
    ASSERT_TRUE(big.saveFile(dir.file("plain").c_str(), EXS_Unknown, EET_UndefinedLength, EGL_recalcGL, EPD_noChange, 0,
                             0, EWM_createNewMeta).good());
    EXPECT_EQ(readFile(dir.file("plain")), readFile(dir.file("synced")));
    EXPECT_STREQ("No such file or directory", save(big, dir.file("no/such/dir")).text());
    // little endian, and deflated, whose compressing stream holds back the end of the data
    for (const char* name : {"CT_small.dcm", "image_dfl.dcm"})
    {
        SCOPED_TRACE(name);
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(corpusFile(name).c_str()).good() && file.loadAllDataIntoMemory().good());
        const std::string full = dir.file(std::string(name) + ".full");
        ASSERT_TRUE(save(file, full).good());
        const long size = fileSize(full);
        ASSERT_GT(size, 1000);
        for (long limit : {size - 1, size - 100, size / 2, 100L})
        {
            SCOPED_TRACE(limit);
            const std::string path = dir.file(name + std::to_string(limit));
            EXPECT_STREQ("File too large", save(file, path, rlim_t(limit)).text());
            EXPECT_FALSE(fileExists(path) || fileExists(path + ".tmp")); // nothing written in its place
        }
        EXPECT_TRUE(save(file, full + ".exact", rlim_t(size)).good());
        EXPECT_EQ(readFile(full), readFile(full + ".exact"));
    }
}

TEST(Messages, ErrmsgAndReplaceInOFString)
{
    EXPECT_EQ("caller: value 3 of x\nplain 5\n", capture([] {
                  errmsg("caller", "value %d of %s", 3, "x");
                  errmsg("plain %d", 5);
              }).err);
    // left to right, without rescanning
    const char* cases[][4] = {{"a-b-c", "-", "--", "a--b--c"}, {"aaa", "a", "aa", "aaaaaa"}, {"aaaa", "aa", "a", "aa"},
                              {"aaa", "aa", "b", "ba"}, {"abc", "", "z", "abc"}, {"%s/%s", "%s", "%s%s", "%s%s/%s%s"}};
    for (const auto& c : cases)
        EXPECT_EQ(c[3], replaceInOFString(c[0], c[1], c[2])) << c[0];
}

TEST(DicomStreamScan, DepthAndInflatedSizeOfRealFiles)
{
    TempDir dir;
    DcmFileFormat sr;
    const std::string deflated = dir.file("sr_dfl.dcm");
    ASSERT_TRUE(sr.loadFile(corpusFile("test-SR.dcm").c_str()).good());
    ASSERT_TRUE(sr.saveFile(deflated.c_str(), EXS_DeflatedLittleEndianExplicit).good());
    // depths as pydicom counts them; inflated sizes as zlib inflates image_dfl.dcm (a little more than
    // one buffer of the inflating reader) and the output of dcmconv +td -e test-SR.dcm
    const std::tuple<std::string, unsigned, unsigned long long> cases[] = {
        {corpusFile("CT_small.dcm"), 1, 0}, {corpusFile("test-SR.dcm"), 5, 0}, {corpusFile("rtstruct.dcm"), 3, 0},
        {corpusFile("image_dfl.dcm"), 0, 262682}, {deflated, 5, 7460}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::get<0>(c));
        const std::string& path = std::get<0>(c);
        const int fd = open(path.c_str(), O_RDONLY);
        ASSERT_GE(fd, 0);
        const auto file = std::make_shared<const InputFile>(fd, (unsigned long long)fileSize(path));
        DicomStreamScan scan;
        EXPECT_TRUE(scan.scan(*file).good());
        EXPECT_EQ(std::get<1>(c), scan.depth());
        EXPECT_EQ(std::get<2>(c), scan.inflatedSize());
        // the stream over the same file skips nothing when asked for nothing, or after a failed putback
        DescriptorProducer producer(file, 0);
        EXPECT_EQ(0, producer.skip(0));
        EXPECT_EQ(10, producer.skip(10));
        producer.putback(11);
        EXPECT_EQ(0, producer.skip(10));
    }
}
