// Tests of the dataset utilities: element copies, passing, UIDs, reading, safe writing, task files.
#include "dcmutils/dcmutils.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcmetinf.h"
#include "dcmtk/dcmdata/dcovlay.h"
#include "dcmtk/dcmdata/dcpixel.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcpxitem.h"
#include "dcmtk/dcmdata/dcuid.h"
#include "dcmtk/dcmdata/dcvrpn.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <regex>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

using fixtures::TempDir;

namespace {

std::string pid()
{
    return std::to_string(getpid());
}

std::string stringOf(DcmElement* e)
{
    OFString value;
    e->getOFStringArray(value);
    return value.c_str();
}

DcmElement* makeElement(const DcmTagKey& key, DcmEVR vr)
{
    DcmElement* e = NULL;
    DcmItem::newDicomElementWithVR(e, DcmTag(key, DcmVR(vr)));
    return e;
}

// An item with one string and one nested sequence of two items.
DcmItem* makeNestedItem(const char* name)
{
    DcmItem* item = new DcmItem();
    item->putAndInsertString(DCM_PatientName, name);
    item->putAndInsertUint16(DCM_Rows, 512);
    DcmItem* inner = NULL;
    item->findOrCreateSequenceItem(DCM_ReferencedSeriesSequence, inner, -2);
    inner->putAndInsertString(DCM_SeriesInstanceUID, "1.2.3.1");
    item->findOrCreateSequenceItem(DCM_ReferencedSeriesSequence, inner, -2);
    inner->putAndInsertString(DCM_SeriesInstanceUID, "1.2.3.2");
    return item;
}


} // namespace

TEST(CopyElement, CopiesEveryTabledRepresentationByClass)
{
    struct Case
    {
        DcmEVR vr;
        const char* value;
    };
    const Case cases[] = {{EVR_AE, "STORESCP"}, {EVR_AS, "042Y"}, {EVR_AT, "(0010,0010)"},
                          {EVR_CS, "ORIGINAL\\PRIMARY"}, {EVR_DA, "20240305"}, {EVR_DS, "1.5\\-2"},
                          {EVR_DT, "20240305140709.5+0100"}, {EVR_FL, "1.5"}, {EVR_FD, "-2.25"},
                          {EVR_IS, "12\\-7"}, {EVR_LO, "long string"}, {EVR_LT, "long text"},
                          {EVR_PN, "Doe^John"}, {EVR_SH, "short"}, {EVR_SL, "-100000"}, {EVR_SS, "-3"},
                          {EVR_ST, "short text"}, {EVR_TM, "140709"}, {EVR_UI, "1.2.840.10008.1.2"},
                          {EVR_UL, "4000000000"}, {EVR_US, "65535"}, {EVR_UT, "unlimited text"}};
    Uint16 element = 0x1000;
    for (const Case& c : cases)
    {
        SCOPED_TRACE(DcmVR(c.vr).getVRName());
        std::unique_ptr<DcmElement> source(makeElement(DcmTagKey(0x0011, element++), c.vr));
        ASSERT_TRUE(source);
        ASSERT_TRUE(source->putString(c.value).good());
        std::unique_ptr<DcmElement> copy(copyElement(source.get()));
        ASSERT_TRUE(copy);
        EXPECT_NE(copy.get(), source.get());
        EXPECT_EQ(copy->ident(), source->ident());
        EXPECT_EQ(copy->getTag(), source->getTag());
        EXPECT_EQ(copy->compare(*source), 0);
        EXPECT_EQ(stringOf(copy.get()), stringOf(source.get()));
        EXPECT_EQ(copy->getParent(), nullptr);
    }
}

TEST(CopyElement, RefusesUntabledRepresentations)
{
    EXPECT_EQ(copyElement(NULL), nullptr);
    const DcmEVR refused[] = {EVR_OB, EVR_OD, EVR_OF, EVR_OL, EVR_OV, EVR_OW,
                              EVR_SV, EVR_UC, EVR_UR, EVR_UV, EVR_UN};
    for (DcmEVR vr : refused)
    {
        SCOPED_TRACE(DcmVR(vr).getVRName());
        std::unique_ptr<DcmElement> source(makeElement(DcmTagKey(0x0011, 0x1001), vr));
        ASSERT_TRUE(source);
        EXPECT_EQ(copyElement(source.get()), nullptr);
    }
    // Elements read from a file come out of the same classes: an OB value is refused too.
    std::unique_ptr<DcmFileFormat> file(readExistingDicomFile(fixtures::corpusFile("CT_small.dcm").c_str()));
    ASSERT_TRUE(file);
    DcmElement* version = NULL;
    ASSERT_TRUE(file->getMetaInfo()->findAndGetElement(DCM_FileMetaInformationVersion, version).good());
    EXPECT_EQ(version->ident(), EVR_OB);
    EXPECT_EQ(copyElement(version), nullptr);
}

TEST(CopyElement, SequenceCopyIsIndependentOfItsSource)
{
    std::unique_ptr<DcmItem> holder(makeNestedItem("Doe^John"));
    DcmElement* source = NULL;
    ASSERT_TRUE(holder->findAndGetElement(DCM_ReferencedSeriesSequence, source).good());
    std::unique_ptr<DcmElement> copy(copyElement(source));
    ASSERT_TRUE(copy);
    ASSERT_EQ(copy->ident(), EVR_SQ);
    DcmSequenceOfItems* seq = static_cast<DcmSequenceOfItems*>(copy.get());
    ASSERT_EQ(seq->card(), 2u);

    // Change, add and remove in the source; the copy keeps what it had.
    DcmSequenceOfItems* src = static_cast<DcmSequenceOfItems*>(source);
    src->getItem(0)->putAndInsertString(DCM_SeriesInstanceUID, "9.9.9");
    src->append(new DcmItem());
    delete src->remove(1UL);
    ASSERT_TRUE(holder->findAndDeleteElement(DCM_ReferencedSeriesSequence).good());

    ASSERT_EQ(seq->card(), 2u);
    OFString uid;
    ASSERT_TRUE(seq->getItem(0)->findAndGetOFString(DCM_SeriesInstanceUID, uid).good());
    EXPECT_EQ(uid, "1.2.3.1");
    ASSERT_TRUE(seq->getItem(1)->findAndGetOFString(DCM_SeriesInstanceUID, uid).good());
    EXPECT_EQ(uid, "1.2.3.2");
    EXPECT_EQ(seq->getItem(0)->getParent(), seq);
}

TEST(CopyElement, PixelDataAndPixelSequenceFromRealFiles)
{
    // Native pixel data.
    std::unique_ptr<DcmFileFormat> ct(readExistingDicomFile(fixtures::corpusFile("CT_small.dcm").c_str()));
    ASSERT_TRUE(ct);
    DcmElement* pixels = NULL;
    ASSERT_TRUE(ct->getDataset()->findAndGetElement(DCM_PixelData, pixels).good());
    ASSERT_EQ(pixels->ident(), EVR_PixelData);
    std::unique_ptr<DcmElement> nativeCopy(copyElement(pixels));
    ASSERT_TRUE(nativeCopy);
    EXPECT_EQ(nativeCopy->ident(), EVR_PixelData);
    EXPECT_EQ(nativeCopy->compare(*pixels), 0);
    const Uint32 length = pixels->getLength();
    ct.reset(); // the copy owns its own value
    Uint16* words = NULL;
    ASSERT_TRUE(nativeCopy->getUint16Array(words).good());
    EXPECT_EQ(nativeCopy->getLength(), length);
    EXPECT_EQ(length, 128u * 128u * 2u);

    // Encapsulated pixel data and its pixel sequence.
    std::unique_ptr<DcmFileFormat> j2k(readExistingDicomFile(fixtures::corpusFile("JPEG2000.dcm").c_str()));
    ASSERT_TRUE(j2k);
    DcmDataset* dataset = j2k->getDataset();
    ASSERT_TRUE(dataset->findAndGetElement(DCM_PixelData, pixels).good());
    std::unique_ptr<DcmElement> encapsulatedCopy(copyElement(pixels));
    ASSERT_TRUE(encapsulatedCopy);
    EXPECT_EQ(encapsulatedCopy->ident(), EVR_PixelData);

    DcmPixelSequence* sequence = NULL;
    ASSERT_TRUE(static_cast<DcmPixelData*>(pixels)
                    ->getEncapsulatedRepresentation(dataset->getOriginalXfer(), NULL, sequence)
                    .good());
    ASSERT_EQ(sequence->ident(), EVR_pixelSQ);
    std::unique_ptr<DcmElement> sequenceCopy(copyElement(sequence));
    ASSERT_TRUE(sequenceCopy);
    ASSERT_EQ(sequenceCopy->ident(), EVR_pixelSQ);
    DcmPixelSequence* copied = static_cast<DcmPixelSequence*>(sequenceCopy.get());
    ASSERT_EQ(copied->card(), sequence->card());
    ASSERT_GE(copied->card(), 2u); // offset table and at least one fragment
    std::vector<std::string> fragments;
    for (unsigned long i = 0; i < sequence->card(); ++i)
    {
        DcmPixelItem* a = NULL;
        DcmPixelItem* b = NULL;
        ASSERT_TRUE(sequence->getItem(a, i).good());
        ASSERT_TRUE(copied->getItem(b, i).good());
        EXPECT_NE(a, b);
        Uint8* x = NULL;
        Uint8* y = NULL;
        a->getUint8Array(x);
        b->getUint8Array(y);
        ASSERT_EQ(a->getLength(), b->getLength());
        if (a->getLength() > 0)
        {
            EXPECT_EQ(memcmp(x, y, a->getLength()), 0);
        }
        fragments.push_back(std::string(reinterpret_cast<char*>(y), b->getLength()));
    }
    j2k.reset();
    // The copied fragments outlive the file they came from.
    for (unsigned long i = 0; i < copied->card(); ++i)
    {
        DcmPixelItem* b = NULL;
        ASSERT_TRUE(copied->getItem(b, i).good());
        Uint8* y = NULL;
        b->getUint8Array(y);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(y), b->getLength()), fragments[i]);
    }
}

TEST(CopyElement, OverlayDataKeepsItsClass)
{
    DcmOverlayData overlay(DcmTag(0x6000, 0x3000, EVR_OW));
    const Uint16 bits[] = {0x0f0f, 0xf0f0, 0x1234, 0xffff};
    ASSERT_TRUE(overlay.putUint16Array(bits, 4).good());
    std::unique_ptr<DcmElement> copy(copyElement(&overlay));
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->ident(), EVR_OverlayData);
    EXPECT_EQ(copy->getTag(), overlay.getTag());
    EXPECT_EQ(copy->compare(overlay), 0);
    // Its clone stays overlay data as well.
    std::unique_ptr<DcmObject> clone(copy->clone());
    EXPECT_EQ(clone->ident(), EVR_OverlayData);
}

TEST(CopyElementToItem, RebuildsByStringAndPassesSequencesDeep)
{
    std::unique_ptr<DcmItem> source(makeNestedItem("Doe^John"));
    // A private element keeps its creator.
    source->putAndInsertString(DcmTag(0x0029, 0x0010, EVR_LO), "ACME 1.0");
    DcmTag privateTag(0x0029, 0x1001, "ACME 1.0");
    privateTag.setVR(EVR_LO);
    DcmElement* priv = NULL;
    DcmItem::newDicomElementWithVR(priv, privateTag);
    priv->putString("secret");
    source->insert(priv);

    DcmItem target;
    target.putAndInsertString(DCM_PatientName, "Old^Name");
    for (unsigned long i = 0; i < source->card(); ++i)
        copyElementToItem(source->getElement(i), &target, false);
    OFString value;
    // Without replacement the existing value stays.
    ASSERT_TRUE(target.findAndGetOFString(DCM_PatientName, value).good());
    EXPECT_EQ(value, "Old^Name");
    DcmElement* sourceName = NULL;
    ASSERT_TRUE(source->findAndGetElement(DCM_PatientName, sourceName).good());
    copyElementToItem(sourceName, &target, true); // now (0010,0010) is replaced
    ASSERT_TRUE(target.findAndGetOFString(DCM_PatientName, value).good());
    EXPECT_EQ(value, "Doe^John");

    DcmElement* copiedPrivate = NULL;
    ASSERT_TRUE(target.findAndGetElement(DcmTagKey(0x0029, 0x1001), copiedPrivate).good());
    EXPECT_EQ(stringOf(copiedPrivate), "secret");
    ASSERT_NE(copiedPrivate->getTag().getPrivateCreator(), nullptr);
    EXPECT_STREQ(copiedPrivate->getTag().getPrivateCreator(), "ACME 1.0");

    // The sequence went through passSequenceElement: same items, new objects.
    DcmItem* inner = NULL;
    ASSERT_TRUE(target.findAndGetSequenceItem(DCM_ReferencedSeriesSequence, inner, 1).good());
    ASSERT_TRUE(inner->findAndGetOFString(DCM_SeriesInstanceUID, value).good());
    EXPECT_EQ(value, "1.2.3.2");
    DcmItem* sourceInner = NULL;
    ASSERT_TRUE(source->findAndGetSequenceItem(DCM_ReferencedSeriesSequence, sourceInner, 1).good());
    EXPECT_NE(inner, sourceInner);
    sourceInner->putAndInsertString(DCM_SeriesInstanceUID, "7.7");
    ASSERT_TRUE(inner->findAndGetOFString(DCM_SeriesInstanceUID, value).good());
    EXPECT_EQ(value, "1.2.3.2");

    // A sequence already present is not replaced.
    DcmItem other;
    DcmItem* otherInner = NULL;
    other.findOrCreateSequenceItem(DCM_ReferencedSeriesSequence, otherInner, -2);
    otherInner->putAndInsertString(DCM_SeriesInstanceUID, "5.5");
    passSequence(DCM_ReferencedSeriesSequence, source.get(), &other);
    ASSERT_TRUE(other.findAndGetSequenceItem(DCM_ReferencedSeriesSequence, otherInner, 0).good());
    ASSERT_TRUE(otherInner->findAndGetOFString(DCM_SeriesInstanceUID, value).good());
    EXPECT_EQ(value, "5.5");

    // Null arguments are ignored.
    copyElementToItem(NULL, &target, true);
    copyItem(NULL, NULL);
    passSequenceElement(NULL, &target);
}

TEST(PassElements, PassTagCreateGetValueAndReferenceSequence)
{
    std::unique_ptr<DcmItem> from(makeNestedItem("Doe^John"));
    DcmItem to;

    // getElement searches nested sequences too.
    DcmElement* nested = getElement(from.get(), DCM_SeriesInstanceUID);
    ASSERT_NE(nested, nullptr);
    EXPECT_EQ(stringOf(nested), "1.2.3.1");
    EXPECT_EQ(getElement(from.get(), DCM_StudyDate), nullptr);
    EXPECT_EQ(getElement(NULL, DCM_StudyDate), nullptr);

    passTag(DCM_PatientName, from.get(), &to);
    passTag(DCM_StudyDate, from.get(), &to); // absent: nothing
    passOrCreateTag(DCM_PatientID, from.get(), &to); // absent: empty element
    passOrCreateTag(DCM_SeriesInstanceUID, from.get(), &to); // nested: copied to the top
    EXPECT_EQ(to.card(), 3u);
    EXPECT_FALSE(to.tagExists(DCM_StudyDate));
    DcmElement* id = NULL;
    ASSERT_TRUE(to.findAndGetElement(DCM_PatientID, id).good());
    EXPECT_EQ(id->getLength(), 0u);

    char* value = NULL;
    getValue(&to, DCM_PatientName, value);
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(value, "Doe^John");
    getValue(&to, DCM_SeriesInstanceUID, value);
    EXPECT_STREQ(value, "1.2.3.1");
    char* untouched = const_cast<char*>("keep");
    getValue(&to, DCM_StudyDate, untouched);
    EXPECT_STREQ(untouched, "keep");

    passOrCreateElem(NULL, DCM_AccessionNumber, &to);
    EXPECT_TRUE(to.tagExists(DCM_AccessionNumber));

    char instance[] = "1.2.3.4.5";
    std::unique_ptr<DcmSequenceOfItems> ref(
        createReferenceSequence(DCM_ReferencedImageSequence, UID_CTImageStorage, instance));
    ASSERT_TRUE(ref);
    EXPECT_EQ(ref->getTag(), DcmTagKey(DCM_ReferencedImageSequence));
    ASSERT_EQ(ref->card(), 1u);
    DcmItem* item = ref->getItem(0);
    ASSERT_EQ(item->card(), 2u);
    EXPECT_EQ(item->getElement(0)->getTag(), DcmTagKey(DCM_ReferencedSOPClassUID));
    EXPECT_EQ(item->getElement(1)->getTag(), DcmTagKey(DCM_ReferencedSOPInstanceUID));
    EXPECT_EQ(stringOf(item->getElement(0)), UID_CTImageStorage);
    EXPECT_EQ(stringOf(item->getElement(1)), "1.2.3.4.5");
}

TEST(PassElements, MoveElementOnlyWhenInserted)
{
    DcmItem from;
    DcmItem to;
    from.putAndInsertString(DCM_PatientName, "Moved^Name");
    from.putAndInsertString(DCM_PatientID, "P1");
    to.putAndInsertString(DCM_PatientName, "Replaced^Name");
    DcmElement* name = NULL;
    ASSERT_TRUE(from.findAndGetElement(DCM_PatientName, name).good());

    moveElement(name, &from, &to);
    EXPECT_FALSE(from.tagExists(DCM_PatientName));
    EXPECT_EQ(from.card(), 1u);
    DcmElement* moved = NULL;
    ASSERT_TRUE(to.findAndGetElement(DCM_PatientName, moved).good());
    EXPECT_EQ(moved, name);
    EXPECT_EQ(stringOf(moved), "Moved^Name");
    EXPECT_EQ(moved->getParent(), &to);

    // Inserting an element already in the target fails, so the source keeps it.
    DcmElement* id = NULL;
    ASSERT_TRUE(from.findAndGetElement(DCM_PatientID, id).good());
    moveElement(id, &from, &from);
    EXPECT_TRUE(from.tagExists(DCM_PatientID));
    EXPECT_EQ(id->getParent(), &from);
}

TEST(CreateSOPInstanceUID, SiteIdFromFile)
{
    TempDir dir;
    struct Case
    {
        const char* content; // NULL: no file at the path
        int expected;
    };
    const Case cases[] = {{"0", 11111111},       {"10000000", 11111111}, {"text", 11111111},
                          {"", 11111111},        {"-5", 11111111},       {"42", 42},
                          {"9999999\n", 9999999}, {"1", 1},              {NULL, 11111111}};
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.content ? c.content : "(missing)");
        const std::string path = dir.file("siteid");
        unlink(path.c_str());
        if (c.content)
        {
            ASSERT_TRUE(fixtures::writeFile(path, c.content));
        }
        fixtures::ScopedEnv env("SITEID_FILE", path.c_str());
        siteID = 0;
        std::unique_ptr<char[]> uid(createSOPInstanceUID("1.2"));
        ASSERT_TRUE(uid);
        EXPECT_EQ(siteID, c.expected);
        EXPECT_EQ(std::string(uid.get()).rfind("1.2." + std::to_string(c.expected) + ".", 0), 0u) << uid.get();
    }
    {
        fixtures::ScopedEnv env("SITEID_FILE", NULL);
        siteID = 0;
        delete[] createSOPInstanceUID();
        EXPECT_EQ(siteID, 11111111);
    }
    // Established once: a changed file is not read again.
    ASSERT_TRUE(fixtures::writeFile(dir.file("siteid"), "77"));
    fixtures::ScopedEnv env("SITEID_FILE", dir.file("siteid").c_str());
    delete[] createSOPInstanceUID();
    EXPECT_EQ(siteID, 11111111);
    siteID = 0;
}

TEST(CreateSOPInstanceUID, FormatAndCounterWrap)
{
    fixtures::ScopedEnv env("SITEID_FILE", NULL);
    siteID = 0;
    counter = 0;
    std::unique_ptr<char[]> first(createSOPInstanceUID());
    ASSERT_TRUE(first);
    const std::regex format("1\\.2\\.999\\.0\\.1\\.7777777\\.4\\.55\\.1\\.1\\.1\\.11111111\\."
                            "(\\d{4})(\\d{2})(\\d{2})(\\d{2})(\\d{2})(\\d{2})\\." +
                            pid() + "\\.1");
    std::cmatch m;
    ASSERT_TRUE(std::regex_match(first.get(), m, format)) << first.get();
    EXPECT_GE(std::stoi(m[1]), 2024);
    EXPECT_LE(std::stoi(m[2]), 12);

    for (int i = 2; i <= 999; ++i)
        delete[] createSOPInstanceUID("1.2");
    EXPECT_EQ(counter, 999);
    std::unique_ptr<char[]> thousandth(createSOPInstanceUID("1.2"));
    ASSERT_TRUE(thousandth);
    EXPECT_EQ(counter, 1);
    const std::string text = thousandth.get();
    EXPECT_EQ(text.substr(text.size() - 3 - pid().size()), "." + pid() + ".1");
}

TEST(CreateSOPInstanceUID, LongRootGivesNullButAdvancesCounter)
{
    fixtures::ScopedEnv env("SITEID_FILE", NULL);
    siteID = 0;
    counter = 9; // the next UID carries counter 10
    // root "." site "." 14 digits "." pid "." 2 digits
    const size_t fixed = 1 + 8 + 1 + 14 + 1 + pid().size() + 1 + 2;
    const std::string fits(64 - fixed, '1');
    std::unique_ptr<char[]> exact(createSOPInstanceUID(fits.c_str()));
    ASSERT_TRUE(exact);
    EXPECT_EQ(strlen(exact.get()), 64u);
    EXPECT_EQ(counter, 10);

    counter = 9;
    const std::string tooLong = fits + "1";
    EXPECT_EQ(createSOPInstanceUID(tooLong.c_str()), nullptr);
    EXPECT_EQ(counter, 10);
    EXPECT_EQ(createSOPInstanceUID(std::string(200, '9').c_str()), nullptr);
    EXPECT_EQ(counter, 11);
}

TEST(ReadDicomFile, ExistingMissingAndUnreadable)
{
    TempDir dir;
    std::unique_ptr<DcmFileFormat> ct(readExistingDicomFile(fixtures::corpusFile("CT_small.dcm").c_str()));
    ASSERT_TRUE(ct);
    EXPECT_EQ(ct->getDataset()->getOriginalXfer(), EXS_LittleEndianExplicit);
    OFString name;
    EXPECT_TRUE(ct->getDataset()->findAndGetOFString(DCM_PatientName, name).good());

    const std::string missing = dir.file("missing.dcm");
    EXPECT_EQ(readExistingDicomFile(missing.c_str()), nullptr);
    std::unique_ptr<DcmFileFormat> created(readOrCreateDicomFile(missing.c_str()));
    ASSERT_TRUE(created);
    EXPECT_EQ(created->getDataset()->card(), 0u);
    EXPECT_FALSE(fixtures::fileExists(missing));

    // A directory exists but cannot be read as a file.
    EXPECT_EQ(readOrCreateDicomFile(dir.path().c_str()), nullptr);
    EXPECT_EQ(readExistingDicomFile(dir.path().c_str()), nullptr);
    // A file cut short in the middle of its data.
    const std::string whole = fixtures::readFile(fixtures::corpusFile("CT_small.dcm"));
    const std::string cut = dir.file("cut.dcm");
    ASSERT_TRUE(fixtures::writeFile(cut, whole.substr(0, whole.size() - 1000)));
    EXPECT_EQ(readOrCreateDicomFile(cut.c_str()), nullptr);
    EXPECT_EQ(readExistingDicomFile(cut.c_str()), nullptr);
    // A missing directory on the way is also a file to be created.
    std::unique_ptr<DcmFileFormat> deep(readOrCreateDicomFile(dir.file("no/such/file.dcm").c_str()));
    EXPECT_TRUE(deep);
}

TEST(WriteDicomFile, WritesExplicitLengthAndKeepsTransferSyntax)
{
    TempDir dir;
    std::unique_ptr<DcmFileFormat> big(readExistingDicomFile(fixtures::corpusFile("MR_small_bigendian.dcm").c_str()));
    ASSERT_TRUE(big);
    DcmItem* item = NULL;
    big->getDataset()->findOrCreateSequenceItem(DCM_ReferencedSeriesSequence, item, -2);
    item->putAndInsertString(DCM_SeriesInstanceUID, "1.2.3");
    const std::string target = dir.file("out.dcm");
    ASSERT_TRUE(fixtures::writeFile(target, "old content"));
    counter = 0;
    ASSERT_TRUE(writeDicomFile(target.c_str(), big.get()));
    EXPECT_EQ(counter, 1);
    EXPECT_EQ(fixtures::listDir(dir.path()), std::vector<std::string>{"out.dcm"});

    std::unique_ptr<DcmFileFormat> back(readExistingDicomFile(target.c_str()));
    ASSERT_TRUE(back);
    OFString xfer;
    back->getMetaInfo()->findAndGetOFString(DCM_TransferSyntaxUID, xfer);
    EXPECT_EQ(xfer, UID_BigEndianExplicitTransferSyntax);
    ASSERT_TRUE(back->getDataset()->findAndGetSequenceItem(DCM_ReferencedSeriesSequence, item, 0).good());
    OFString uid;
    item->findAndGetOFString(DCM_SeriesInstanceUID, uid);
    EXPECT_EQ(uid, "1.2.3");
    // Explicit-length sequences and items: no delimitation items in the file.
    const std::string bytes = fixtures::readFile(target);
    EXPECT_EQ(bytes.find(std::string("\xff\xfe\xe0\xdd", 4)), std::string::npos); // big endian
    EXPECT_EQ(bytes.find(std::string("\xff\xfe\xe0\x0d", 4)), std::string::npos);

    // A dataset made in memory is written explicit VR little endian.
    DcmFileFormat fresh;
    fresh.getDataset()->putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    fresh.getDataset()->putAndInsertString(DCM_SOPInstanceUID, "1.2.3.4");
    const std::string second = dir.file("fresh.dcm");
    ASSERT_TRUE(writeDicomFile(second.c_str(), &fresh));
    std::unique_ptr<DcmFileFormat> freshBack(readExistingDicomFile(second.c_str()));
    ASSERT_TRUE(freshBack);
    EXPECT_EQ(freshBack->getDataset()->getOriginalXfer(), EXS_LittleEndianExplicit);
}

TEST(WriteDicomFile, FailedSaveLeavesTargetUntouched)
{
    TempDir dir;
    // Encapsulated pixel data replaced by native samples cannot be saved in the original
    // (JPEG 2000) transfer syntax without an encoder.
    std::unique_ptr<DcmFileFormat> j2k(readExistingDicomFile(fixtures::corpusFile("JPEG2000.dcm").c_str()));
    ASSERT_TRUE(j2k);
    DcmDataset* dataset = j2k->getDataset();
    DcmPixelData* native = new DcmPixelData(DCM_PixelData);
    std::vector<Uint16> samples(64, 7);
    native->putUint16Array(samples.data(), 64);
    ASSERT_TRUE(dataset->insert(native, true).good());

    const std::string target = dir.file("target.dcm");
    const std::string original = fixtures::readFile(fixtures::corpusFile("CT_small.dcm"));
    ASSERT_TRUE(fixtures::writeFile(target, original));
    counter = 41;
    const std::string temporary = target + ".wtmp." + pid() + ".42";
    testing::internal::CaptureStderr();
    EXPECT_FALSE(writeDicomFile(target.c_str(), j2k.get()));
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "writeDicomFile: error writing temporary file: " + temporary + ": Pixel representation not found\n");
    EXPECT_EQ(fixtures::readFile(target), original);
    EXPECT_EQ(fixtures::listDir(dir.path()), std::vector<std::string>{"target.dcm"});

    // A target whose directory does not exist.
    DcmFileFormat fresh;
    fresh.getDataset()->putAndInsertString(DCM_PatientName, "Doe^John");
    const std::string nowhere = dir.file("missing/target.dcm");
    counter = 998;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(writeDicomFile(nowhere.c_str(), &fresh));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "writeDicomFile: error writing temporary file: " + nowhere +
                                                          ".wtmp." + pid() + ".999: No such file or directory\n");
    EXPECT_EQ(counter, 999);
}

TEST(WriteDicomFile, FailedRenameLeavesTargetUntouched)
{
    TempDir dir;
    // The target is a non-empty directory: the temporary file is written but cannot replace it.
    const std::string target = dir.file("target.dcm");
    ASSERT_EQ(mkdir(target.c_str(), 0755), 0);
    const std::string inside = target + "/kept";
    ASSERT_TRUE(fixtures::writeFile(inside, "kept content"));
    DcmFileFormat fresh;
    fresh.getDataset()->putAndInsertString(DCM_PatientName, "Doe^John");
    counter = 999;
    const std::string temporary = target + ".wtmp." + pid() + ".1";
    testing::internal::CaptureStderr();
    EXPECT_FALSE(writeDicomFile(target.c_str(), &fresh));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "writeDicomFile: error moving temporary file " + temporary + " to " + target + "\n");
    EXPECT_EQ(fixtures::listDir(dir.path()), std::vector<std::string>{"target.dcm"});
    EXPECT_EQ(fixtures::listDir(target), std::vector<std::string>{"kept"});
    EXPECT_EQ(fixtures::readFile(inside), "kept content");
}

TEST(Errmsg, WritesOneLineToStandardError)
{
    testing::internal::CaptureStderr();
    errmsg("caller", "value %d of %s", 3, "x");
    errmsg("plain %d", 5);
    errmsg("alone");
    const char* who = "who";
    errmsg(who, "%s", "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "caller: value 3 of x\nplain 5\nalone\nwho: \n");
}

TEST(ReplaceInOFString, ReplacesLeftToRightWithoutRescanning)
{
    EXPECT_EQ(replaceInOFString("a-b-c", "-", "--"), "a--b--c");
    EXPECT_EQ(replaceInOFString("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(replaceInOFString("aaaa", "aa", "a"), "aa");
    EXPECT_EQ(replaceInOFString("aaa", "aa", "b"), "ba");
    EXPECT_EQ(replaceInOFString("xyzxyz", "xyz", ""), "");
    EXPECT_EQ(replaceInOFString("abc", "", "z"), "abc");
    EXPECT_EQ(replaceInOFString("", "a", "b"), "");
    EXPECT_EQ(replaceInOFString("abc", "abcd", "z"), "abc");
    EXPECT_EQ(replaceInOFString("%s/%s", "%s", "%s%s"), "%s%s/%s%s");
}

TEST(OBS_startTask, DropsTaskFileThroughStagingDirectory)
{
    TempDir staging;
    TempDir tasks;
    fixtures::ScopedEnv env("TMP", staging.path().c_str());
    counter = 2;
    ASSERT_TRUE(OBS_startTask("run this", "job", "cmd", tasks.path()));
    const std::vector<std::string> names = fixtures::listDir(tasks.path());
    ASSERT_EQ(names.size(), 1u);
    const std::regex format("job\\.(\\d{14})_0\\." + pid() + "\\.3\\.cmd");
    EXPECT_TRUE(std::regex_match(names[0], format)) << names[0];
    EXPECT_EQ(fixtures::readFile(tasks.file(names[0])), "run this\n");
    struct stat st;
    ASSERT_EQ(stat(tasks.file(names[0]).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0777u);
    EXPECT_TRUE(fixtures::listDir(staging.path()).empty());

    // Missing task directory: the staging file is removed again.
    EXPECT_FALSE(OBS_startTask("x", "job", "cmd", tasks.file("missing")));
    EXPECT_TRUE(fixtures::listDir(staging.path()).empty());
    EXPECT_EQ(counter, 4);
    // Missing staging directory: nothing is written.
    {
        fixtures::ScopedEnv bad("TMP", staging.file("missing").c_str());
        EXPECT_FALSE(OBS_startTask("x", "job", "cmd", tasks.path()));
        EXPECT_EQ(fixtures::listDir(tasks.path()).size(), 1u);
    }
    // An unset TMP is a programming error.
    {
        fixtures::ScopedEnv unset("TMP", NULL);
        EXPECT_THROW(OBS_startTask("x", "job", "cmd", tasks.path()), std::logic_error);
    }
}

TEST(OBS_startTask, StagingOnAnotherFileSystemFails)
{
    TempDir tasks;
    char tmpl[] = "/dev/shm/kqtest.XXXXXX";
    struct stat a, b;
    if (stat(tasks.path().c_str(), &a) != 0 || stat("/dev/shm", &b) != 0 || a.st_dev == b.st_dev ||
        mkdtemp(tmpl) == NULL)
        GTEST_SKIP() << "no second file system beside " << tasks.path();
    const std::string staging = tmpl;
    {
        fixtures::ScopedEnv env("TMP", staging.c_str());
        EXPECT_FALSE(OBS_startTask("x", "job", "cmd", tasks.path()));
    }
    EXPECT_TRUE(fixtures::listDir(staging).empty());
    EXPECT_TRUE(fixtures::listDir(tasks.path()).empty());
    rmdir(staging.c_str());
}
