// The dataset utilities: element copies, passing, the element cursor, UIDs, reading, safe and
// synced writing, error lines, task files.
#include "dcmutils/DcmSeeker.h"
#include "dcmutils/DicomStreamScan.h"
#include "dcmutils/dcmutils.h"
#include "dcmutils/fileio.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcovlay.h"

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <regex>
#include <stdexcept>
#include <tuple>
#include <sys/resource.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using fixtures::TempDir;
using fixtures::value;

namespace {

const std::string pid = std::to_string(getpid());

std::string text(DcmElement* e)
{
    OFString v;
    e->getOFStringArray(v);
    return v.c_str();
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
    return std::unique_ptr<DcmFileFormat>(readExistingDicomFile(fixtures::corpusFile(name).c_str()));
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
        if (!copy)
            continue;
        EXPECT_EQ(source->ident(), copy->ident());
        EXPECT_EQ(0, copy->compare(*source));
        EXPECT_EQ(c.second, text(copy.get()));
    }
    EXPECT_EQ(nullptr, copyElement(NULL));

    // sequences, pixel data, its fragments and overlays outlive their source
    std::unique_ptr<DcmItem> holder(makeNestedItem());
    DcmElement* source = NULL;
    ASSERT_TRUE(holder->findAndGetElement(DCM_ReferencedSeriesSequence, source).good());
    std::unique_ptr<DcmElement> sequence(copyElement(source));
    holder.reset();
    EXPECT_EQ("1.2.3.2", value(*static_cast<DcmSequenceOfItems*>(sequence.get())->getItem(1), DCM_SeriesInstanceUID));
    std::unique_ptr<DcmFileFormat> file = corpus("JPEG2000.dcm");
    DcmElement* pixels = NULL;
    DcmPixelSequence* fragments = NULL;
    ASSERT_TRUE(file->getDataset()->findAndGetElement(DCM_PixelData, pixels).good());
    ASSERT_TRUE(static_cast<DcmPixelData*>(pixels)->getEncapsulatedRepresentation(EXS_JPEG2000, NULL, fragments).good());
    DcmOverlayData overlay(DcmTag(0x6000, 0x3000, EVR_OW));
    const Uint16 bits[] = {0x0f0f, 0xf0f0};
    ASSERT_TRUE(overlay.putUint16Array(bits, 2).good());
    const std::pair<DcmElement*, DcmEVR> kinds[] = {
        {pixels, EVR_PixelData}, {fragments, EVR_pixelSQ}, {&overlay, EVR_OverlayData}};
    for (const auto& c : kinds)
    {
        std::unique_ptr<DcmElement> copy(copyElement(c.first));
        ASSERT_TRUE(copy);
        EXPECT_EQ(c.second, copy->ident());
        EXPECT_EQ(0, copy->compare(*c.first));
    }
}

TEST(CopyElementToItem, RebuildsByStringKeepingTheVRAndPassesSequencesDeep)
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
    EXPECT_EQ(EVR_DS, copied->ident());
    EXPECT_EQ("1.5\\2", text(copied));
    EXPECT_STREQ("ACME 1.0", copied->getTag().getPrivateCreator());
    DcmItem* inner = NULL;
    ASSERT_TRUE(target.findAndGetSequenceItem(DCM_ReferencedSeriesSequence, inner, 1).good());
    source.reset();
    EXPECT_EQ("1.2.3.2", value(*inner, DCM_SeriesInstanceUID));

    DcmElement* name = NULL;
    std::unique_ptr<DcmItem> again(makeNestedItem());
    ASSERT_TRUE(again->findAndGetElement(DCM_PatientName, name).good());
    copyElementToItem(name, &target, true);
    EXPECT_EQ("Doe^John", value(target, DCM_PatientName));
    // an existing sequence is not replaced
    DcmItem other;
    DcmItem* otherInner = NULL;
    other.findOrCreateSequenceItem(DCM_ReferencedSeriesSequence, otherInner, -2);
    otherInner->putAndInsertString(DCM_SeriesInstanceUID, "5.5");
    passSequence(DCM_ReferencedSeriesSequence, again.get(), &other);
    EXPECT_EQ("5.5", value(*otherInner, DCM_SeriesInstanceUID));
    EXPECT_EQ(1u, other.card());
}

TEST(PassElements, PassTagCreateGetValueMoveAndReferenceSequence)
{
    std::unique_ptr<DcmItem> from(makeNestedItem());
    DcmItem to;
    EXPECT_EQ("1.2.3.1", text(getElement(from.get(), DCM_SeriesInstanceUID))); // nested: found
    EXPECT_EQ(nullptr, getElement(from.get(), DCM_StudyDate));
    passTag(DCM_PatientName, from.get(), &to);
    passTag(DCM_StudyDate, from.get(), &to);                 // absent: nothing
    passOrCreateTag(DCM_PatientID, from.get(), &to);         // absent: empty element
    passOrCreateTag(DCM_SeriesInstanceUID, from.get(), &to); // nested: copied to the top
    passOrCreateElem(NULL, DCM_AccessionNumber, &to);
    EXPECT_EQ(4u, to.card());
    EXPECT_EQ("", value(to, DCM_PatientID));
    EXPECT_EQ("", value(to, DCM_AccessionNumber));
    char* got = const_cast<char*>("kept");
    getValue(&to, DCM_StudyDate, got);
    EXPECT_STREQ("kept", got);
    getValue(&to, DCM_SeriesInstanceUID, got);
    EXPECT_STREQ("1.2.3.1", got);

    // moved only when the insertion succeeds
    DcmElement* name = NULL;
    ASSERT_TRUE(to.findAndGetElement(DCM_PatientName, name).good());
    moveElement(name, &to, &to);
    EXPECT_EQ(4u, to.card());
    DcmItem moved;
    moveElement(name, &to, &moved);
    EXPECT_EQ(3u, to.card());
    EXPECT_EQ(&moved, name->getParent());

    char instance[] = "1.2.3.4.5";
    std::unique_ptr<DcmSequenceOfItems> ref(
        createReferenceSequence(DCM_ReferencedImageSequence, UID_CTImageStorage, instance));
    ASSERT_EQ(1u, ref->card());
    EXPECT_EQ(2u, ref->getItem(0)->card());
    EXPECT_EQ(std::string(UID_CTImageStorage) + " 1.2.3.4.5", value(*ref->getItem(0), DCM_ReferencedSOPClassUID) +
                                                                   " " +
                                                                   value(*ref->getItem(0), DCM_ReferencedSOPInstanceUID));
}

TEST(DcmSeeker, FindsKeysInAnyOrderAndRemovesKeepingTheCursorValid)
{
    DcmItem item;
    for (const DcmTagKey& key : {DCM_SOPInstanceUID, DCM_Modality, DCM_PatientName, DCM_PatientID,
                                 DCM_SeriesInstanceUID, DCM_Rows})
        item.putAndInsertString(key, "1");
    DcmSeeker seeker(item);
    // ascending with absent and repeated keys, then descending (each look-up restarts), then
    // a lower element of the same group
    const std::pair<DcmTagKey, bool> lookups[] = {
        {DCM_SOPInstanceUID, true}, {DCM_StudyDate, false}, {DCM_Modality, true},  {DCM_Modality, true},
        {DCM_PatientID, true},      {DCM_PixelData, false}, {DCM_Rows, true},      {DCM_SeriesInstanceUID, true},
        {DCM_PatientName, true},    {DCM_SOPInstanceUID, true}, {DCM_PatientID, true}, {DCM_PatientName, true}};
    for (const auto& l : lookups)
    {
        DcmElement* found = seeker.find(l.first);
        EXPECT_EQ(l.second ? l.first : DcmTagKey(), found ? found->getTag().getXTag() : DcmTagKey()) << l.first;
    }
    DcmItem empty;
    EXPECT_EQ(nullptr, DcmSeeker(empty).find(DCM_PatientName));
    EXPECT_EQ(nullptr, DcmSeeker(empty).removeCurrent());

    ASSERT_NE(nullptr, seeker.find(DCM_PatientName));
    std::unique_ptr<DcmElement> removed(seeker.removeCurrent());
    EXPECT_EQ(DcmTagKey(DCM_PatientName), removed->getTag());
    EXPECT_NE(nullptr, seeker.find(DCM_PatientID)); // the cursor stands on the next element
    EXPECT_EQ(nullptr, seeker.find(DCM_PatientName));
    // removing the last element exhausts the cursor; the next find restarts
    ASSERT_NE(nullptr, seeker.find(DCM_Rows));
    delete seeker.removeCurrent();
    EXPECT_EQ(nullptr, seeker.removeCurrent());
    EXPECT_NE(nullptr, seeker.find(DCM_Modality));
    seeker.reset();
    int count = 0;
    while (DcmElement* e = seeker.removeCurrent())
    {
        delete e;
        ++count;
    }
    EXPECT_EQ(4, count);
    EXPECT_EQ(0u, item.card());
}

TEST(CreateSOPInstanceUID, SiteIdFromFileOnce)
{
    TempDir dir;
    const std::string path = dir.file("siteid");
    const std::pair<const char*, int> cases[] = {{"0", 11111111},  {"10000000", 11111111}, {"text", 11111111},
                                                 {"42", 42},       {"9999999\n", 9999999}, {NULL, 11111111}};
    for (const auto& c : cases)
    {
        unlink(path.c_str());
        ASSERT_TRUE(!c.first || fixtures::writeFile(path, c.first));
        fixtures::ScopedEnv env("SITEID_FILE", path.c_str());
        siteID = 0;
        std::unique_ptr<char[]> uid(createSOPInstanceUID("1.2"));
        EXPECT_EQ(0u, std::string(uid.get()).rfind("1.2." + std::to_string(c.second) + ".", 0)) << uid.get();
        // established once: a changed file is not read again
        ASSERT_TRUE(fixtures::writeFile(path, "77"));
        delete[] createSOPInstanceUID();
        EXPECT_EQ(c.second, siteID);
    }
    siteID = 0;
}

TEST(CreateSOPInstanceUID, FormatCounterWrapAndLength)
{
    fixtures::ScopedEnv env("SITEID_FILE", NULL);
    siteID = 0;
    counter = 0;
    std::unique_ptr<char[]> first(createSOPInstanceUID());
    const std::regex format("1\\.2\\.999\\.0\\.1\\.7777777\\.4\\.55\\.1\\.1\\.1\\.11111111\\.\\d{14}\\." + pid + "\\.1");
    EXPECT_TRUE(std::regex_match(first.get(), format)) << first.get();
    for (int i = 2; i <= 1000; ++i)
        delete[] createSOPInstanceUID("1.2");
    EXPECT_EQ(1, counter); // the 1000th UID has counter 1 again

    // root "." site "." 14 digits "." pid "." counter 2
    const std::string fits(64 - (1 + 8 + 1 + 14 + 1 + pid.size() + 1 + 1), '1');
    std::unique_ptr<char[]> exact(createSOPInstanceUID(fits.c_str()));
    EXPECT_EQ(64u, strlen(exact.get()));
    EXPECT_EQ(nullptr, createSOPInstanceUID((fits + "1").c_str()));
    EXPECT_EQ(3, counter); // a refused UID advances the counter too
}

TEST(ReadDicomFile, ExistingMissingAndUnreadable)
{
    TempDir dir;
    const std::string whole = fixtures::readFile(fixtures::corpusFile("CT_small.dcm"));
    ASSERT_TRUE(fixtures::writeFile(dir.file("cut.dcm"), whole.substr(0, whole.size() - 1000)));
    // path, readExistingDicomFile gives a file, readOrCreateDicomFile gives one
    const std::tuple<std::string, bool, bool> cases[] = {
        {fixtures::corpusFile("CT_small.dcm"), true, true},
        {dir.file("missing.dcm"), false, true}, // a file to be created
        {dir.file("no/such/file.dcm"), false, true},
        {dir.path(), false, false}, // a directory
        {dir.file("cut.dcm"), false, false},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::get<0>(c));
        std::unique_ptr<DcmFileFormat> existing(readExistingDicomFile(std::get<0>(c).c_str()));
        std::unique_ptr<DcmFileFormat> orCreate(readOrCreateDicomFile(std::get<0>(c).c_str()));
        EXPECT_EQ(std::get<1>(c), existing != nullptr);
        EXPECT_EQ(std::get<2>(c), orCreate != nullptr);
        EXPECT_TRUE(!orCreate || std::get<1>(c) || orCreate->getDataset()->card() == 0);
    }
    EXPECT_FALSE(fixtures::fileExists(dir.file("missing.dcm")));
}

TEST(WriteDicomFile, WritesExplicitLengthKeepsTransferSyntaxAndNeverWritesThroughALink)
{
    TempDir dir;
    std::unique_ptr<DcmFileFormat> big = corpus("MR_small_bigendian.dcm");
    DcmItem* item = NULL;
    big->getDataset()->findOrCreateSequenceItem(DCM_ReferencedSeriesSequence, item, -2);
    item->putAndInsertString(DCM_SeriesInstanceUID, "1.2.3");
    const std::string target = dir.file("out.dcm");
    ASSERT_TRUE(fixtures::writeFile(target, "old content"));
    counter = 0;
    ASSERT_TRUE(writeDicomFile(target.c_str(), big.get()));
    EXPECT_EQ(1, counter);
    EXPECT_EQ(std::vector<std::string>{"out.dcm"}, fixtures::listDir(dir.path()));
    std::unique_ptr<DcmFileFormat> back(readExistingDicomFile(target.c_str()));
    EXPECT_EQ(EXS_BigEndianExplicit, back->getDataset()->getOriginalXfer());
    // explicit-length sequences and items: no delimitation items in the file
    const std::string bytes = fixtures::readFile(target);
    EXPECT_EQ(std::string::npos, bytes.find(std::string("\xff\xfe\xe0\xdd", 4)));
    EXPECT_EQ(std::string::npos, bytes.find(std::string("\xff\xfe\xe0\x0d", 4)));

    // a dataset made in memory is written explicit VR little endian, never through a link
    // planted at the temporary file's predictable name
    const std::string victim = dir.file("victim");
    ASSERT_TRUE(fixtures::writeFile(victim, "not to be overwritten"));
    ASSERT_EQ(0, symlink(victim.c_str(), (dir.file("fresh.dcm.wtmp.") + pid + ".2").c_str()));
    DcmFileFormat fresh;
    fresh.getDataset()->putAndInsertString(DCM_PatientName, "Doe^John");
    ASSERT_TRUE(writeDicomFile(dir.file("fresh.dcm").c_str(), &fresh));
    back.reset(readExistingDicomFile(dir.file("fresh.dcm").c_str()));
    EXPECT_EQ(EXS_LittleEndianExplicit, back->getDataset()->getOriginalXfer());
    EXPECT_EQ("Doe^John", value(*back->getDataset(), DCM_PatientName));
    EXPECT_EQ("not to be overwritten", fixtures::readFile(victim));
    struct stat st;
    ASSERT_EQ(0, lstat(dir.file("fresh.dcm").c_str(), &st));
    EXPECT_TRUE(S_ISREG(st.st_mode));
}

TEST(WriteDicomFile, FailuresLeaveTheTargetUntouched)
{
    TempDir dir;
    // native samples cannot be written in the original (JPEG 2000) transfer syntax without an encoder
    std::unique_ptr<DcmFileFormat> j2k = corpus("JPEG2000.dcm");
    DcmPixelData* native = new DcmPixelData(DCM_PixelData);
    std::vector<Uint16> samples(64, 7);
    native->putUint16Array(samples.data(), 64);
    ASSERT_TRUE(j2k->getDataset()->insert(native, true).good());
    const std::string target = dir.file("target.dcm");
    ASSERT_TRUE(fixtures::writeFile(target, "original"));
    // a target that is a non-empty directory: written, but not renamed over it
    const std::string directory = dir.file("directory.dcm");
    ASSERT_EQ(0, mkdir(directory.c_str(), 0755));
    ASSERT_TRUE(fixtures::writeFile(directory + "/kept", "kept"));
    DcmFileFormat fresh;
    fresh.getDataset()->putAndInsertString(DCM_PatientName, "Doe^John");
    const std::string nowhere = dir.file("missing/target.dcm");
    const std::string tmp = ".wtmp." + pid + ".1";
    const std::tuple<std::string, DcmFileFormat*, std::string> cases[] = {
        {target, j2k.get(),
         "writeDicomFile: error writing temporary file: " + target + tmp + ": Pixel representation not found\n"},
        {nowhere, &fresh, "writeDicomFile: error writing temporary file: " + nowhere + tmp + ": No such file or directory\n"},
        {directory, &fresh, "writeDicomFile: error moving temporary file " + directory + tmp + " to " + directory + "\n"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::get<0>(c));
        counter = 0;
        bool written = true;
        EXPECT_EQ(std::get<2>(c), fixtures::capture([&] { written = writeDicomFile(std::get<0>(c).c_str(), std::get<1>(c)); }).err);
        EXPECT_FALSE(written);
        EXPECT_EQ((std::vector<std::string>{"directory.dcm", "target.dcm"}), fixtures::listDir(dir.path()));
    }
    EXPECT_EQ("original", fixtures::readFile(target));
    EXPECT_EQ(std::vector<std::string>{"kept"}, fixtures::listDir(directory));
}

// replaceFile with writeFileFormat: a write that fails at any point, the last buffered bytes
// included, is an error with the system's reason (DcmFileFormat::saveFile loses a failure of its
// final flush).
TEST(ReplaceFile, WritesWhatSaveFileWritesAndReportsWritesThatFailLate)
{
    auto save = [](DcmFileFormat& file, const std::string& path, rlim_t limit = RLIM_INFINITY) {
        // writes past this process's file size limit fail with EFBIG
        struct rlimit saved, lowered;
        getrlimit(RLIMIT_FSIZE, &saved);
        lowered = saved;
        lowered.rlim_cur = limit;
        const auto handler = signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &lowered);
        REPLACE_STEP failed = RS_DONE;
        E_TransferSyntax xfer = file.getDataset()->getOriginalXfer();
        const OFCondition status = replaceFile(
            path, path + ".tmp",
            [&](int fd) {
                return writeFileFormat(file, fd, xfer, EET_UndefinedLength, EGL_recalcGL, EPD_noChange, 0, 0,
                                       EWM_createNewMeta);
            },
            failed);
        setrlimit(RLIMIT_FSIZE, &saved);
        signal(SIGXFSZ, handler);
        return status;
    };
    TempDir dir;
    DcmFileFormat big;
    ASSERT_TRUE(big.loadFile(fixtures::corpusFile("MR_small_bigendian.dcm").c_str()).good());
    ASSERT_TRUE(save(big, dir.file("synced")).good());
    ASSERT_TRUE(big.saveFile(dir.file("plain").c_str(), EXS_Unknown, EET_UndefinedLength, EGL_recalcGL,
                             EPD_noChange, 0, 0, EWM_createNewMeta)
                    .good());
    EXPECT_EQ(fixtures::readFile(dir.file("plain")), fixtures::readFile(dir.file("synced")));
    EXPECT_STREQ("No such file or directory", save(big, dir.file("no/such/dir")).text());

    // little endian, and deflated, whose compressing stream holds back the end of the data
    for (const char* name : {"CT_small.dcm", "image_dfl.dcm"})
    {
        SCOPED_TRACE(name);
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(fixtures::corpusFile(name).c_str()).good());
        ASSERT_TRUE(file.loadAllDataIntoMemory().good());
        const std::string full = dir.file(std::string(name) + ".full");
        ASSERT_TRUE(save(file, full).good());
        const long size = fixtures::fileSize(full);
        ASSERT_GT(size, 1000);
        // a limit inside the last buffered block: saveFile reported success for a truncated file
        for (long limit : {size - 1, size - 100, size / 2, 100L})
        {
            SCOPED_TRACE(limit);
            const std::string path = dir.file(name + std::to_string(limit));
            EXPECT_STREQ("File too large", save(file, path, rlim_t(limit)).text());
            EXPECT_FALSE(fixtures::fileExists(path)); // nothing written in its place
            EXPECT_FALSE(fixtures::fileExists(path + ".tmp"));
        }
        EXPECT_TRUE(save(file, full + ".exact", rlim_t(size)).good());
        EXPECT_EQ(fixtures::readFile(full), fixtures::readFile(full + ".exact"));
    }
}

TEST(Messages, ErrmsgAndReplaceInOFString)
{
    EXPECT_EQ("caller: value 3 of x\nplain 5\n", fixtures::capture([] {
                  errmsg("caller", "value %d of %s", 3, "x");
                  errmsg("plain %d", 5);
              }).err);
    // left to right, without rescanning
    const char* cases[][4] = {{"a-b-c", "-", "--", "a--b--c"}, {"aaa", "a", "aa", "aaaaaa"}, {"aaaa", "aa", "a", "aa"},
                              {"aaa", "aa", "b", "ba"},        {"abc", "", "z", "abc"},     {"%s/%s", "%s", "%s%s", "%s%s/%s%s"}};
    for (const auto& c : cases)
        EXPECT_EQ(c[3], replaceInOFString(c[0], c[1], c[2])) << c[0];
}

TEST(OBS_startTask, DropsTaskFileThroughStagingDirectory)
{
    TempDir staging, tasks;
    fixtures::ScopedEnv env("TMP", staging.path().c_str());
    counter = 2;
    ASSERT_TRUE(OBS_startTask("run this", "job", "cmd", tasks.path()));
    const std::vector<std::string> names = fixtures::listDir(tasks.path());
    ASSERT_EQ(1u, names.size());
    EXPECT_TRUE(std::regex_match(names[0], std::regex("job\\.\\d{14}_0\\." + pid + "\\.3\\.cmd"))) << names[0];
    EXPECT_EQ("run this\n", fixtures::readFile(tasks.file(names[0])));
    struct stat st;
    ASSERT_EQ(0, stat(tasks.file(names[0]).c_str(), &st));
    EXPECT_EQ(0777u, st.st_mode & 07777);

    // a missing task directory or staging directory, or staging on another file system (last):
    // nothing is left anywhere
    EXPECT_FALSE(OBS_startTask("x", "job", "cmd", tasks.file("missing")));
    {
        fixtures::ScopedEnv bad("TMP", staging.file("missing").c_str());
        EXPECT_FALSE(OBS_startTask("x", "job", "cmd", tasks.path()));
    }
    EXPECT_TRUE(fixtures::listDir(staging.path()).empty());
    EXPECT_EQ(1u, fixtures::listDir(tasks.path()).size());

    // an unset TMP is a programming error: a standard logic error, no message of the module's
    {
        fixtures::ScopedEnv unset("TMP", NULL);
        try
        {
            OBS_startTask("x", "job", "cmd", tasks.path());
            ADD_FAILURE() << "no exception";
        }
        catch (const std::logic_error& e)
        {
            EXPECT_EQ(nullptr, strstr(e.what(), "OBS_startTask"));
            EXPECT_EQ(nullptr, strstr(e.what(), "TMP"));
        }
    }
    struct stat shm;
    char other[] = "/dev/shm/kqtest.XXXXXX";
    if (stat("/dev/shm", &shm) != 0 || shm.st_dev == st.st_dev || mkdtemp(other) == NULL)
        GTEST_SKIP() << "no second file system beside " << tasks.path();
    fixtures::ScopedEnv elsewhere("TMP", other);
    EXPECT_FALSE(OBS_startTask("x", "job", "cmd", tasks.path()));
    EXPECT_TRUE(fixtures::listDir(other).empty());
    EXPECT_EQ(1u, fixtures::listDir(tasks.path()).size());
    rmdir(other);
}

TEST(DicomStreamScan, DepthAndInflatedSizeOfRealFiles)
{
    // depths as pydicom counts them; image_dfl.dcm's data set inflates to 262,682 bytes (zlib),
    // a little more than one buffer of the inflating reader
    const std::tuple<const char*, unsigned, unsigned long long> cases[] = {
        {"CT_small.dcm", 1, 0}, {"test-SR.dcm", 5, 0}, {"rtstruct.dcm", 3, 0}, {"image_dfl.dcm", 0, 262682}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::get<0>(c));
        const std::string path = fixtures::corpusFile(std::get<0>(c));
        const int fd = open(path.c_str(), O_RDONLY);
        ASSERT_GE(fd, 0);
        const InputFile file(fd, (unsigned long long)fixtures::fileSize(path));
        DicomStreamScan scan;
        EXPECT_TRUE(scan.scan(file).good());
        EXPECT_EQ(std::get<1>(c), scan.depth());
        EXPECT_EQ(std::get<2>(c), scan.inflatedSize());
    }
}
