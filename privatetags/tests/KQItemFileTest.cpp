// The private block through files: the dictionary's VRs in implicit VR, and the conversion
// of whole files.
#include "privatetags/tests/KQTestSupport.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcxfer.h"

#include <gtest/gtest.h>

#include <memory>

using namespace kqtest;

namespace {

typedef std::vector<Uint16> Elements;

// An image carrying soft-edit data the way an earlier release wrote it, with pixel data
// beyond the 4096 bytes loaded up front.
DcmFileFormat* makeLegacyObject()
{
    fixtures::ObjectSpec spec;
    spec.rows = 64;
    spec.columns = 64;
    DcmFileFormat* file = fixtures::makeObject(spec);
    DcmDataset& ds = *file->getDataset();
    putCreator(ds, 0xBA, KQ_LEGACY_CREATOR);
    putPrivate(ds, 0xBA51, "20190305", EVR_DA);
    putPrivate(ds, 0xBA08, "dropped");
    DcmItem* change = appendItem(ds, f215(0xDA31));
    change->putAndInsertString(DCM_PatientName, "Changed^Name");
    putCreator(*change, 0xDA, KQ_LEGACY_CREATOR);
    appendItem(*change, f215(0xDA32))->putAndInsertString(DCM_SeriesInstanceUID, "1.2.3.4");
    ds.putAndInsertString(DcmTag(0x0009, 0x0010, DcmVR(EVR_LO)), "Other vendor");
    return file;
}

} // namespace

TEST(KQItemFile, ImplicitVRTakesTheVRFromTheDictionary)
{
    fixtures::TempDir dir;
    const std::string path = dir.file("implicit.dcm");
    {
        DcmFileFormat file;
        DcmDataset& ds = *file.getDataset();
        putCreator(ds, 0x10, "Other vendor");
        putPrivate(ds, 0x1015, "not a date");
        KQItem kq(ds);
        ASSERT_TRUE(kq.putAndInsertKQString(0x15, "20231224").good());
        ASSERT_TRUE(kq.putAndInsertKQString(0x45, "SERIES").good());
        const Uint8 overlay[] = {1, 2, 3, 4};
        ASSERT_TRUE(kq.putAndInsertKQUint8Array(0x73, overlay, 4).good());
        DcmItem* change = NULL;
        ASSERT_TRUE(kq.findOrCreateKQSequenceItem(0x62, change).good());
        change->putAndInsertString(DCM_PatientID, "NEW-ID");
        ASSERT_TRUE(file.saveFile(path.c_str(), EXS_LittleEndianImplicit).good());
    }
    DcmFileFormat file;
    ASSERT_TRUE(file.loadFile(path.c_str()).good());
    DcmDataset& ds = *file.getDataset();
    // the same element number under another creator is unknown to the dictionary
    const std::pair<Uint16, const char*> vrs[] = {{0x1115, "DA"}, {0x1145, "CS"}, {0x1173, "OB"}, {0x1015, "??"}};
    for (const auto& v : vrs)
    {
        DcmElement* element = NULL;
        ASSERT_TRUE(ds.findAndGetElement(f215(v.first), element).good());
        EXPECT_STREQ(v.second, DcmVR(element->getVR()).getVRName()) << std::hex << v.first;
    }
    DcmItem* change = NULL;
    ASSERT_TRUE(KQItem(ds).findAndGetKQSequenceItem(0x62, change).good());
    EXPECT_EQ("NEW-ID", stringOf(*change, DCM_PatientID));
}

TEST(KQItemFile, ConvertsLegacyFiles)
{
    fixtures::TempDir dir;
    const struct
    {
        E_TransferSyntax xfer;
        E_EncodingType encoding;
        bool inPlace;
    } cases[] = {
        {EXS_LittleEndianExplicit, EET_ExplicitLength, false},
        {EXS_LittleEndianImplicit, EET_UndefinedLength, false}, // legacy sequences read without dictionary
        {EXS_BigEndianExplicit, EET_ExplicitLength, true},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(DcmXfer(c.xfer).getXferName());
        const std::string in = dir.file("legacy.dcm");
        const std::string out = c.inPlace ? in : dir.file("converted.dcm");
        std::unique_ptr<DcmFileFormat> legacy(makeLegacyObject());
        ASSERT_TRUE(legacy->saveFile(in.c_str(), c.xfer, c.encoding).good());
        const std::string original = fixtures::readFile(in);

        ASSERT_TRUE(KQItem::convertFilePrivateTags(in.c_str(), out.c_str()));
        if (!c.inPlace)
        {
            EXPECT_EQ(original, fixtures::readFile(in));
        }
        DcmFileFormat converted;
        ASSERT_TRUE(converted.loadFile(out.c_str()).good());
        DcmDataset& ds = *converted.getDataset();
        EXPECT_EQ(c.xfer, ds.getOriginalXfer());
        EXPECT_EQ((Elements{0x0010, 0x1015, 0x1062}), privateElements(ds));
        EXPECT_EQ("20190305", stringOf(ds, f215(0x1015)));
        DcmItem* change = NULL;
        ASSERT_TRUE(KQItem(ds).findAndGetKQSequenceItem(0x62, change).good());
        EXPECT_EQ("Changed^Name", stringOf(*change, DCM_PatientName));
        EXPECT_EQ((Elements{0x0010, 0x1063}), privateElements(*change));
        // everything else is carried over, pixel data included
        EXPECT_EQ("Other vendor", stringOf(ds, DcmTagKey(0x0009, 0x0010)));
        std::unique_ptr<DcmFileFormat> expected(makeLegacyObject());
        const Uint16* before = NULL;
        const Uint16* after = NULL;
        unsigned long count = 0;
        ASSERT_TRUE(expected->getDataset()->findAndGetUint16Array(DCM_PixelData, before).good());
        ASSERT_TRUE(ds.findAndGetUint16Array(DCM_PixelData, after, &count).good());
        ASSERT_EQ(64u * 64u, count);
        EXPECT_EQ(0, memcmp(before, after, count * 2));
    }
}

TEST(KQItemFile, ConversionFailuresWriteNothing)
{
    fixtures::TempDir dir;
    const std::string garbage = dir.file("garbage.dcm");
    ASSERT_TRUE(fixtures::writeFile(garbage, "this is not DICOM"));
    const std::string out = dir.file("out.dcm");
    const std::string nowhere = dir.file("no/such/dir/out.dcm");
    const std::string missing = dir.file("missing.dcm");
    const std::string cases[][3] = {
        {missing, out, "Error: couldn't access file:" + missing},
        {garbage, out, "Error: file not loaded!"},
        {fixtures::corpusFile("MR_truncated.dcm"), out, "Error: file not loaded!"},
        {fixtures::corpusFile("CT_small.dcm"), nowhere, "Error: couldn't create file:" + nowhere},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c[0]);
        LogCapture log;
        EXPECT_FALSE(KQItem::convertFilePrivateTags(c[0].c_str(), c[1].c_str()));
        EXPECT_EQ(std::vector<std::string>{c[2]}, log.lines());
        EXPECT_EQ((std::vector<std::string>{"garbage.dcm"}), fixtures::listDir(dir.path()));
    }
}

TEST(KQItemFile, CorpusFilesPassThrough)
{
    fixtures::TempDir dir;
    for (const char* name : {"CT_small.dcm", "MR_small_implicit.dcm", "MR_small_bigendian.dcm", "JPEG2000.dcm",
                             "MR_small_RLE.dcm", "rtplan.dcm", "UN_sequence.dcm", "ExplVR_LitEndNoMeta.dcm"})
    {
        SCOPED_TRACE(name);
        const std::string in = fixtures::corpusFile(name);
        const std::string out = dir.file(name);
        ASSERT_TRUE(KQItem::convertFilePrivateTags(in.c_str(), out.c_str()));
        DcmFileFormat before, after;
        ASSERT_TRUE(before.loadFile(in.c_str()).good());
        ASSERT_TRUE(after.loadFile(out.c_str()).good());
        EXPECT_EQ(before.getDataset()->getOriginalXfer(), after.getDataset()->getOriginalXfer());
        EXPECT_EQ(before.getDataset()->card(), after.getDataset()->card());
        DcmElement* pixelsBefore = NULL;
        DcmElement* pixelsAfter = NULL;
        if (before.getDataset()->findAndGetElement(DCM_PixelData, pixelsBefore).good())
        {
            ASSERT_TRUE(after.getDataset()->findAndGetElement(DCM_PixelData, pixelsAfter).good());
            EXPECT_EQ(pixelsBefore->getLength(), pixelsAfter->getLength());
        }
    }
}
