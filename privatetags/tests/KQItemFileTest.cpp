// The private block through files: the dictionary's VRs in implicit VR, and the conversion
// of whole files.
#include "privatetags/tests/KQTestSupport.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcmetinf.h"
#include "dcmtk/dcmdata/dcxfer.h"

#include <gtest/gtest.h>

#include <memory>

using namespace kqtest;

namespace {

typedef std::vector<Uint16> Elements;

// An image carrying soft-edit data the way an earlier release wrote it.
DcmFileFormat* makeLegacyObject()
{
    fixtures::ObjectSpec spec;
    spec.rows = 64;
    spec.columns = 64; // pixel data beyond the 4096 bytes loaded up front
    DcmFileFormat* file = fixtures::makeObject(spec);
    DcmDataset& ds = *file->getDataset();
    putCreator(ds, 0xBA, KQ_LEGACY_CREATOR);
    putCreator(ds, 0xDA, KQ_LEGACY_CREATOR);
    putPrivate(ds, 0xBA51, "20190305", EVR_DA);
    putPrivate(ds, 0xBA52, "101500", EVR_TM);
    putPrivate(ds, 0xBA08, "dropped");
    DcmItem* change = appendItem(ds, f215(0xDA31));
    change->putAndInsertString(DCM_PatientName, "Changed^Name");
    putCreator(*change, 0xDA, KQ_LEGACY_CREATOR);
    DcmItem* series = appendItem(*change, f215(0xDA32));
    series->putAndInsertString(DCM_SeriesInstanceUID, "1.2.3.4");
    ds.putAndInsertString(DcmTag(0x0009, 0x0010, DcmVR(EVR_LO)), "Other vendor");
    ds.putAndInsertString(DcmTag(0x0009, 0x1001, DcmVR(EVR_LO)), "kept");
    return file;
}

std::string transferSyntaxOf(const std::string& path)
{
    return fixtures::attribute(path, DCM_TransferSyntaxUID);
}

// Checks the private data of a converted legacy object.
void expectConverted(DcmDataset& ds)
{
    EXPECT_EQ((Elements{0x0010, 0x1015, 0x1016, 0x1062}), privateElements(ds));
    EXPECT_EQ(KQ_PRIVATE_CREATOR, stringOf(ds, f215(0x0010)));
    EXPECT_EQ("20190305", stringOf(ds, f215(0x1015)));
    EXPECT_EQ("101500", stringOf(ds, f215(0x1016)));
    EXPECT_TRUE(has(ds, DcmTagKey(0x0009, 0x1001)));

    KQItem kq(ds);
    DcmItem* change = NULL;
    ASSERT_TRUE(kq.findAndGetKQSequenceItem(0x62, change).good());
    EXPECT_EQ("Changed^Name", stringOf(*change, DCM_PatientName));
    EXPECT_EQ((Elements{0x0010, 0x1063}), privateElements(*change));
    KQItem changeItem(*change);
    DcmItem* series = NULL;
    ASSERT_TRUE(changeItem.findAndGetKQSequenceItem(0x63, series).good());
    EXPECT_EQ("1.2.3.4", stringOf(*series, DCM_SeriesInstanceUID));
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
        ASSERT_TRUE(kq.putAndInsertKQString(0x16, "235959").good());
        ASSERT_TRUE(kq.putAndInsertKQString(0x45, "SERIES").good());
        const Uint8 overlay[] = {1, 2, 3, 4};
        ASSERT_TRUE(kq.putAndInsertKQUint8Array(0x73, overlay, 4).good());
        DcmItem* change = NULL;
        ASSERT_TRUE(kq.findOrCreateKQSequenceItem(0x62, change).good());
        change->putAndInsertString(DCM_PatientID, "NEW-ID");
        KQItem changeItem(*change);
        DcmItem* series = NULL;
        ASSERT_TRUE(changeItem.findOrCreateKQSequenceItem(0x63, series).good());
        series->putAndInsertString(DCM_SeriesInstanceUID, "1.2.3");
        ASSERT_TRUE(file.saveFile(path.c_str(), EXS_LittleEndianImplicit).good());
    }

    DcmFileFormat file;
    ASSERT_TRUE(file.loadFile(path.c_str()).good());
    ASSERT_EQ(EXS_LittleEndianImplicit, file.getDataset()->getOriginalXfer());
    DcmDataset& ds = *file.getDataset();
    DcmElement* element = NULL;
    ASSERT_TRUE(ds.findAndGetElement(f215(0x1115), element).good());
    EXPECT_EQ(EVR_DA, element->ident());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, element->getTag().getPrivateCreator());
    ASSERT_TRUE(ds.findAndGetElement(f215(0x1116), element).good());
    EXPECT_EQ(EVR_TM, element->ident());
    ASSERT_TRUE(ds.findAndGetElement(f215(0x1145), element).good());
    EXPECT_EQ(EVR_CS, element->ident());
    ASSERT_TRUE(ds.findAndGetElement(f215(0x1173), element).good());
    EXPECT_EQ(EVR_OB, element->ident());
    // the same element number under another creator is unknown to the dictionary
    ASSERT_TRUE(ds.findAndGetElement(f215(0x1015), element).good());
    EXPECT_NE(EVR_DA, element->ident());

    KQItem kq(ds);
    EXPECT_EQ(0x1115, kq.getTag(0x15).getElement());
    const char* value = NULL;
    ASSERT_TRUE(kq.findAndGetKQString(0x15, value).good());
    EXPECT_STREQ("20231224", value);
    DcmItem* change = NULL;
    ASSERT_TRUE(kq.findAndGetKQSequenceItem(0x62, change).good());
    EXPECT_EQ("NEW-ID", stringOf(*change, DCM_PatientID));
    DcmSequenceOfItems* seriesSeq = NULL;
    ASSERT_TRUE(KQItem(*change).findAndGetKQSequence(0x63, seriesSeq).good());
    ASSERT_EQ(1u, seriesSeq->card());
    EXPECT_EQ("1.2.3", stringOf(*seriesSeq->getItem(0), DCM_SeriesInstanceUID));
}

TEST(KQItemFile, ConvertsLegacyFiles)
{
    fixtures::TempDir dir;
    const struct
    {
        E_TransferSyntax xfer;
        E_EncodingType encoding;
    } cases[] = {
        {EXS_LittleEndianExplicit, EET_ExplicitLength},
        {EXS_LittleEndianImplicit, EET_UndefinedLength}, // legacy sequences readable without a dictionary
        {EXS_BigEndianExplicit, EET_ExplicitLength},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(DcmXfer(c.xfer).getXferName());
        const std::string in = dir.file("legacy.dcm");
        const std::string out = dir.file("converted.dcm");
        std::unique_ptr<DcmFileFormat> legacy(makeLegacyObject());
        ASSERT_TRUE(legacy->saveFile(in.c_str(), c.xfer, c.encoding).good());
        const std::string original = fixtures::readFile(in);

        ASSERT_TRUE(KQItem::convertFilePrivateTags(in.c_str(), out.c_str()));
        EXPECT_EQ(original, fixtures::readFile(in));
        EXPECT_EQ(transferSyntaxOf(in), transferSyntaxOf(out));

        DcmFileFormat converted;
        ASSERT_TRUE(converted.loadFile(out.c_str()).good());
        expectConverted(*converted.getDataset());

        // everything else is carried over as it was, pixel data included
        DcmFileFormat before;
        ASSERT_TRUE(before.loadFile(in.c_str()).good());
        const Uint16* pixelsBefore = NULL;
        const Uint16* pixelsAfter = NULL;
        unsigned long countBefore = 0, countAfter = 0;
        ASSERT_TRUE(before.getDataset()->findAndGetUint16Array(DCM_PixelData, pixelsBefore, &countBefore).good());
        ASSERT_TRUE(converted.getDataset()->findAndGetUint16Array(DCM_PixelData, pixelsAfter, &countAfter).good());
        ASSERT_EQ(64u * 64u, countAfter);
        ASSERT_EQ(countBefore, countAfter);
        EXPECT_EQ(0, memcmp(pixelsBefore, pixelsAfter, countAfter * 2));
        for (const DcmTagKey& key : {DCM_PatientName, DCM_SOPInstanceUID, DCM_StudyInstanceUID, DCM_Modality})
            EXPECT_EQ(stringOf(*before.getDataset(), key), stringOf(*converted.getDataset(), key)) << key;
    }
}

TEST(KQItemFile, ConvertsInPlace)
{
    fixtures::TempDir dir;
    const std::string path = dir.file("legacy.dcm");
    std::unique_ptr<DcmFileFormat> legacy(makeLegacyObject());
    ASSERT_TRUE(legacy->saveFile(path.c_str(), EXS_LittleEndianExplicit).good());
    ASSERT_TRUE(KQItem::convertFilePrivateTags(path.c_str(), path.c_str()));
    DcmFileFormat converted;
    ASSERT_TRUE(converted.loadFile(path.c_str()).good());
    expectConverted(*converted.getDataset());
}

TEST(KQItemFile, ConversionFailuresWriteNothing)
{
    fixtures::TempDir dir;
    LogCapture log;
    const std::string out = dir.file("out.dcm");

    const std::string missing = dir.file("missing.dcm");
    EXPECT_FALSE(KQItem::convertFilePrivateTags(missing.c_str(), out.c_str()));
    EXPECT_TRUE(log.contains("Error: couldn't access file:" + missing));

    const std::string garbage = dir.file("garbage.dcm");
    ASSERT_TRUE(fixtures::writeFile(garbage, "this is not DICOM"));
    EXPECT_FALSE(KQItem::convertFilePrivateTags(garbage.c_str(), out.c_str()));
    EXPECT_TRUE(log.contains("Error: file not loaded!"));

    const std::string truncated = fixtures::corpusFile("MR_truncated.dcm");
    EXPECT_FALSE(KQItem::convertFilePrivateTags(truncated.c_str(), out.c_str()));
    EXPECT_EQ((std::vector<std::string>{"garbage.dcm"}), fixtures::listDir(dir.path()));

    const std::string good = fixtures::corpusFile("CT_small.dcm");
    const std::string nowhere = dir.file("no/such/dir/out.dcm");
    EXPECT_FALSE(KQItem::convertFilePrivateTags(good.c_str(), nowhere.c_str()));
    EXPECT_TRUE(log.contains("Error: couldn't create file:" + nowhere));
    EXPECT_EQ((std::vector<std::string>{"garbage.dcm"}), fixtures::listDir(dir.path()));
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
        EXPECT_EQ(stringOf(*before.getDataset(), DCM_SOPInstanceUID), stringOf(*after.getDataset(), DCM_SOPInstanceUID));
        DcmElement* pixelsBefore = NULL;
        DcmElement* pixelsAfter = NULL;
        if (before.getDataset()->findAndGetElement(DCM_PixelData, pixelsBefore).good())
        {
            ASSERT_TRUE(after.getDataset()->findAndGetElement(DCM_PixelData, pixelsAfter).good());
            EXPECT_EQ(pixelsBefore->getLength(), pixelsAfter->getLength());
        }
    }
}
