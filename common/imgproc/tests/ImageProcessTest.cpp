// The image process driver: what the handlers collect, what the walk removes, frames of the
// pixel path, the pixel path's messages, and the KqR content.
#include "common/imgproc/src/kqrcontent.h"
#include "common/imgproc/tests/ImgprocTestSupport.h"

#include "privatetags/KQItem.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/oflog/oflog.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>

using namespace imgproctest;

namespace {

struct AttributeCase
{
    const char* name;
    std::function<void(DcmDataset&)> fill;
    std::function<void(const TestProcess&)> check;
};

} // namespace

TEST(ImageProcess, HandlersCollectTheImageDescription)
{
    const AttributeCase cases[] = {
        {"Number of Slices wins over Number of Frames",
         [](DcmDataset& ds) {
             ds.putAndInsertString(DCM_NumberOfFrames, "4");
             ds.putAndInsertUint16(DCM_NumberOfSlices, 2);
         },
         [](const TestProcess& p) { EXPECT_EQ(p.getNumberOfFrames(), 2u); }},
        {"Number of Frames alone, the full count above 65535",
         [](DcmDataset& ds) { ds.putAndInsertString(DCM_NumberOfFrames, "70000"); },
         [](const TestProcess& p) { EXPECT_EQ(p.getNumberOfFrames(), 70000u); }},
        {"MONOCHROME2: code 1, no inversion",
         [](DcmDataset& ds) { ds.putAndInsertString(DCM_PhotometricInterpretation, "MONOCHROME2"); },
         [](const TestProcess& p) {
             EXPECT_EQ(p.getPhotometric(), 1u);
             EXPECT_FALSE(p.getInvertMonochrome1());
         }},
        {"MONOCHROME1 is inverted",
         [](DcmDataset& ds) { ds.putAndInsertString(DCM_PhotometricInterpretation, "MONOCHROME1"); },
         [](const TestProcess& p) { EXPECT_TRUE(p.getInvertMonochrome1()); }},
        {"MONOCHROME1 of the Zentravox 1.0 capture device is not",
         [](DcmDataset& ds) {
             ds.putAndInsertString(DCM_PhotometricInterpretation, "MONOCHROME1");
             ds.putAndInsertString(DCM_SecondaryCaptureDeviceManufacturerModelName, "Zentravox");
             ds.putAndInsertString(DCM_SecondaryCaptureDeviceSoftwareVersions, "1.0");
         },
         [](const TestProcess& p) { EXPECT_FALSE(p.getInvertMonochrome1()); }},
        {"YBR_FULL_422 and its samples",
         [](DcmDataset& ds) {
             ds.putAndInsertString(DCM_PhotometricInterpretation, "YBR_FULL_422");
             ds.putAndInsertUint16(DCM_SamplesPerPixel, 3);
         },
         [](const TestProcess& p) {
             EXPECT_EQ(p.getPhotometric(), 7u);
             EXPECT_EQ(p.getSamplesPerPixel(), 3);
         }},
        {"geometry, window, rescale, spacing, modality",
         [](DcmDataset& ds) {
             ds.putAndInsertUint16(DCM_Rows, 7);
             ds.putAndInsertUint16(DCM_Columns, 9);
             ds.putAndInsertUint16(DCM_BitsAllocated, 16);
             ds.putAndInsertUint16(DCM_BitsStored, 12);
             ds.putAndInsertUint16(DCM_HighBit, 11);
             ds.putAndInsertUint16(DCM_PixelRepresentation, 1);
             ds.putAndInsertString(DCM_WindowCenter, "40\\400");
             ds.putAndInsertString(DCM_WindowWidth, "350");
             ds.putAndInsertString(DCM_RescaleIntercept, "-1024");
             ds.putAndInsertString(DCM_RescaleSlope, "2.5");
             ds.putAndInsertString(DCM_PixelSpacing, "0.5\\0.25");
             ds.putAndInsertString(DCM_Modality, "CT");
         },
         [](const TestProcess& p) {
             std::ostringstream got;
             got << p.getRows() << " " << p.getColumns() << " " << p.getBitsStored() << " " << p.getHighBit() << " "
                 << p.getPixelRepresentation() << " " << p.getWindowCenter() << " " << p.getWindowWidth() << " "
                 << p.getRescaleIntercept() << " " << p.getRescaleSlope() << " " << p.getPixelSpacing()[1] << " "
                 << p.getModality();
             EXPECT_EQ("7 9 12 11 1 40 350 -1024 2.5 0.25 CT", got.str());
         }},
        {"palette descriptors: US unsigned, SS signed first mapped value",
         [](DcmDataset& ds) {
             ds.putAndInsertString(DcmTag(DCM_RedPaletteColorLookupTableDescriptor, EVR_US), "0\\16\\16");
             ds.putAndInsertString(DcmTag(DCM_GreenPaletteColorLookupTableDescriptor, EVR_SS), "256\\-5\\8");
             ds.putAndInsertString(DcmTag(DCM_BluePaletteColorLookupTableDescriptor, EVR_US), "256\\0");
         },
         [](const TestProcess& p) {
             EXPECT_EQ(p.getPaletteEntries(0), 0);
             EXPECT_EQ(p.getPaletteBits(0), 16);
             EXPECT_EQ(p.getPaletteFirstMapped(1), -5);
             EXPECT_EQ(p.getPaletteBits(1), 8);
             EXPECT_EQ(p.getPaletteEntries(2), 0); // two values: not read
         }},
    };
    for (const AttributeCase& c : cases)
    {
        SCOPED_TRACE(c.name);
        DcmDataset ds;
        c.fill(ds);
        TestProcess process(&ds);
        EXPECT_EQ(process.process(), 0);
        c.check(process);
    }
}

TEST(ImageProcess, PhotometricDefaultsAndUnknownValues)
{
    DcmDataset ds;
    TestProcess p(&ds);
    p.setPhotometricInterpretation("RGB", nullptr);
    EXPECT_EQ(p.getPhotometric(), 0u);
    EXPECT_EQ(p.getSamplesPerPixel(), 3);
    p.setPhotometricInterpretation("HSV", nullptr);
    EXPECT_EQ(p.getPhotometric(), 0u);
    p.setPhotometricInterpretation("PALETTE COLOR", nullptr);
    EXPECT_EQ(p.getSamplesPerPixel(), 1);
    p.setPhotometricInterpretation("MONOCHROME3", nullptr);
    EXPECT_EQ(p.getPhotometric(), 1u);
    EXPECT_FALSE(p.getInvertMonochrome1());
    EXPECT_EQ(CImageProcess::escapeNewLines("a\nb\rc"), "a\\nb\\rc");
    // the one capture device whose quirk is known: model and version both
    EXPECT_TRUE(CImageProcess::checkSCDevice("Zentravox", "1.0"));
    EXPECT_FALSE(CImageProcess::checkSCDevice("Zentravox", "1.1") || CImageProcess::checkSCDevice("Other", "1.0"));
}

TEST(ImageProcess, WalkRemovesConsumedElementsAndRefusedPrivateOnes)
{
    for (const bool noHandlers : {false, true})
    {
        SCOPED_TRACE(noHandlers ? "no tag handlers" : "tag handlers");
        auto file = image(4, 4, 1);
        DcmDataset* ds = file->getDataset();
        ds->insertSequenceItem(DCM_IconImageSequence, new DcmItem());
        ds->putAndInsertString(DcmTag(0x0029, 0x0010, EVR_LO), "Vendor");
        ds->putAndInsertString(DcmTag(0x0029, 0x1010, EVR_LO), "vendor data");
        ds->putAndInsertString(DcmTag(0xF215, 0x0010, EVR_LO), "KQ group A");
        ds->putAndInsertString(DcmTag(0xF215, 0x1015, EVR_DA), "20200101");
        ds->putAndInsertUint8Array(DCM_EncapsulatedDocument, reinterpret_cast<const Uint8*>("%PDF"), 4);
        TestProcess p(ds, noHandlers);
        p.m_refusedGroup = 0x0029;
        EXPECT_EQ(p.process(), 0);
        EXPECT_EQ(ds->tagExists(DCM_PixelData), noHandlers);
        EXPECT_EQ(ds->tagExists(DCM_IconImageSequence), noHandlers);
        EXPECT_EQ(ds->tagExists(DCM_EncapsulatedDocument), noHandlers);
        EXPECT_EQ(ds->tagExists(DcmTagKey(0x0029, 0x1010)), noHandlers);
        EXPECT_TRUE(ds->tagExists(DcmTagKey(0xF215, 0x1015)));
        EXPECT_EQ(p.frames().size(), noHandlers ? 0u : 1u);
    }
}

TEST(ImageProcess, FramesGoToTheMemoryByFrameNumber)
{
    const unsigned short rows = 3, columns = 5;
    const unsigned int frameBytes = rows * columns * 2;
    for (const int specific : {0, 2})
    {
        SCOPED_TRACE(specific);
        auto file = image(rows, columns, 3);
        const Uint16* samples = nullptr;
        file->getDataset()->findAndGetUint16Array(DCM_PixelData, samples);
        const std::string all(reinterpret_cast<const char*>(samples), 3 * frameBytes);
        TestProcess p(file->getDataset(), false, specific);
        EXPECT_EQ(p.process(), 0);
        if (specific == 0)
        {
            ASSERT_EQ(p.frames().size(), 3u);
            for (int f = 1; f <= 3; ++f)
                EXPECT_EQ(p.m_memory.content(f), all.substr((f - 1) * frameBytes, frameBytes));
            EXPECT_EQ(p.m_progress, (std::vector<std::pair<unsigned, unsigned>>{{1, 3}, {2, 3}, {3, 3}}));
        }
        else
        {
            ASSERT_EQ(p.frames().size(), 1u);
            EXPECT_EQ(p.m_memory.content(2), all.substr(frameBytes, frameBytes));
        }
        EXPECT_EQ(p.m_memory.m_releases, specific ? 1 : 3);
        EXPECT_EQ(p.getImageCount(), specific ? 1u : 3u);
    }
}

TEST(ImageProcess, PixelPathMessages)
{
    OFLog::configure(OFLogger::WARN_LOG_LEVEL);
    struct Case { const char* name; std::function<void(DcmDataset&)> change; int specific, status; const char* message; };
    const Case cases[] = {
        {"frame beyond the object", [](DcmDataset&) {}, 5, 0,
         "Invalid specific frame number 5. There are only 3 frames in the object"},
        {"no columns", [](DcmDataset& ds) { ds.putAndInsertUint16(DCM_Columns, 0); }, 0, 1,
         "PixelData present but one or more of Rows/Columns/SamplesPerPixel is invalid/zero"},
        {"colour without planar configuration",
         [](DcmDataset& ds) {
             ds.putAndInsertUint16(DCM_SamplesPerPixel, 3);
             ds.putAndInsertString(DCM_PhotometricInterpretation, "RGB");
             ds.putAndInsertUint16(DCM_Columns, 2); // 2 x 2 x 3 x 2 bytes x 3 frames fits the samples
             ds.putAndInsertUint16(DCM_Rows, 2);
         },
         0, 0,
         "Non-compliant image: Samples Per Pixel (0028,002) = 3 and Planar Configuration (0028,0006) "
         "missing.\nW: This may break decompression. Inserting Planar Configuration value of 0"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        auto file = image(4, 4, 3);
        c.change(*file->getDataset());
        TestProcess p(file->getDataset(), false, c.specific);
        int status = -1;
        const std::string log = fixtures::capture([&] { status = p.process(); }).err;
        EXPECT_EQ(status, c.status);
        EXPECT_NE(log.find(c.message), std::string::npos) << log;
        EXPECT_TRUE(p.getPixelDataSeen());
    }
}

TEST(ImageProcess, KqRContentScopes)
{
    struct Case { const char* scope; int status, recorded; };
    const Case cases[] = {{nullptr, 0, CKqRContent::SCOPE_NONE},
                          {"STUDY", 0, CKqRContent::SCOPE_STUDY},
                          {"PARTIAL", 0, CKqRContent::SCOPE_PARTIAL},
                          {"SERIES", 1, CKqRContent::SCOPE_NONE}};
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.scope ? c.scope : "absent");
        DcmDataset ds;
        ds.putAndInsertString(DCM_SOPClassUID, IMGPROC_KQR_SOP_CLASS_UID);
        KQItem kq(ds);
        kq.putAndInsertKQString(0x3A, "description");
        if (c.scope)
            kq.putAndInsertKQString(0x45, c.scope);
        kq.putAndInsertKQString(0x47, "20240102");
        DcmItem* item = nullptr;
        kq.findOrCreateKQSequenceItem(0x46, item, 0);
        item->putAndInsertString(DCM_ReferencedSOPClassUID, UID_CTImageStorage);
        kq.findOrCreateKQSequenceItem(0x49, item, 0);
        item->putAndInsertString(DCM_SeriesInstanceUID, "1.2.3");
        KQItem(*item).putAndInsertKQString(0x45, "STUDY");
        TestProcess p(&ds);
        EXPECT_EQ(p.process(), c.status);

        CKqRContent content(&p);
        ASSERT_TRUE(content.init());
        EXPECT_EQ(content.postProcess(), c.status);
        EXPECT_EQ(content.m_scope, c.recorded);
        EXPECT_EQ(content.m_description, "description");
        if (c.recorded == CKqRContent::SCOPE_PARTIAL)
        {
            EXPECT_EQ(content.m_date, "20240102");
            EXPECT_EQ(content.m_instanceModalities, std::vector<std::string>{"CT"});
            ASSERT_EQ(content.m_series.size(), 1u);
            EXPECT_EQ(content.m_series[0].uid, "1.2.3");
            EXPECT_EQ(content.m_series[0].scope, "STUDY");
        }
        else
            EXPECT_TRUE(content.m_series.empty());
    }
}
