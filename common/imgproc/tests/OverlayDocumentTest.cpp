// Overlays (status codes, modes, embedded bits, storage in the KQ block, files) and
// encapsulated documents (which objects are documents, the pad byte).
#include "common/imgproc/src/overlay.h"
#include "common/imgproc/src/overlayarray.h"
#include "common/imgproc/tests/ImgprocTestSupport.h"

#include "privatetags/KQItem.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

using namespace imgproctest;

TEST(Overlay, StatusCodes)
{
    const unsigned char bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    // putBytes 0: no putData
    struct Case { const char* name; unsigned short bitsAllocated, bitPosition, rows, columns;
                  unsigned int size, putBytes, init, put, finalized; };
    const Case cases[] = {
        {"separate data, complete", 1, 0, 4, 4, 2, 2, 0, 0, 7},
        {"separate data, short: not an error", 1, 0, 4, 4, 4, 2, 0, 0, 7},
        {"embedded: more bits than pixels", 16, 12, 1, 4, 1, 0, 0, 0, 6},
        {"separate data longer than the buffer", 1, 0, 4, 4, 2, 3, 0, 6, 6},
        {"embedded bits at position 12", 16, 12, 2, 4, 1, 0, 0, 0, 7},
        {"embedded bits: wrong operation", 16, 12, 2, 4, 1, 2, 0, 1, 7},
        {"one bit at position 3: unusable", 1, 3, 4, 4, 2, 2, 1, 1, 1},
        {"size 0", 1, 0, 4, 4, 0, 0, 3, 0, 3},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        COverlay overlay("0");
        overlay.m_bitsAllocated = c.bitsAllocated;
        overlay.m_bitPosition = c.bitPosition;
        overlay.m_rows = c.rows;
        overlay.m_columns = c.columns;
        EXPECT_EQ(overlay.initData(c.size, OVERLAY_READ_AUTO), c.init);
        if (c.putBytes)
        {
            EXPECT_EQ(overlay.putData(bytes, c.putBytes), c.put);
        }
        if (overlay.m_mode == OVERLAY_READ_EMBEDDED)
        {
            for (int i = 0; i < 8 && overlay.m_status == OVERLAY_OK; ++i)
                overlay.putBit(1);
        }
        EXPECT_EQ(overlay.finalizeData(), c.finalized);
        if (c.init == 0)
        {
            EXPECT_EQ(overlay.initData(c.size, OVERLAY_READ_AUTO), 2u);
        }
    }
}

namespace {

void addOverlayGroup(DcmDataset& ds, Uint16 group, Uint16 rows, Uint16 columns, Uint16 bits, Uint16 position,
                     const std::string& data)
{
    ds.putAndInsertUint16(DcmTagKey(group, 0x0010), rows);
    ds.putAndInsertUint16(DcmTagKey(group, 0x0011), columns);
    ds.putAndInsertString(DcmTagKey(group, 0x0040), "G");
    ds.putAndInsertString(DcmTagKey(group, 0x0050), "1\\1");
    ds.putAndInsertUint16(DcmTagKey(group, 0x0100), bits);
    ds.putAndInsertUint16(DcmTagKey(group, 0x0102), position);
    if (!data.empty())
        ds.putAndInsertUint8Array(DcmTag(group, 0x3000, EVR_OB), reinterpret_cast<const Uint8*>(data.data()),
                                  data.size());
}

} // namespace

TEST(Overlay, SeparateAndEmbeddedOverlaysEndInTheKQBlock)
{
    // a signed 12-bit image in 16-bit words, overlay bits in bit 12 (group 6002) and a separate
    // overlay in group 6000
    auto file = image(2, 4, 1);
    DcmDataset* ds = file->getDataset();
    ds->putAndInsertUint16(DCM_PixelRepresentation, 1);
    const Uint16 samples[8] = {0x1FFF, 0x07FF, 0x1001, 0x0800, 0xE000, 0x0FFF, 0x1000, 0x0001};
    ds->putAndInsertUint16Array(DCM_PixelData, samples, 8);
    addOverlayGroup(*ds, 0x6000, 2, 4, 1, 0, std::string("\xA5\x00", 2));
    addOverlayGroup(*ds, 0x6002, 2, 4, 16, 12, "");
    TestProcess p(ds);
    EXPECT_EQ(p.process(), 0);

    ASSERT_NE(p.getOverlays().get(0), nullptr);
    ASSERT_NE(p.getOverlays().get(1), nullptr);
    EXPECT_EQ(p.getOverlays().get(0)->m_name, "0");
    EXPECT_EQ(p.getOverlays().get(1)->m_name, "1");
    EXPECT_EQ(p.getOverlays().get(0)->m_status, 7u);
    EXPECT_EQ(p.getOverlays().get(1)->m_mode, OVERLAY_READ_EMBEDDED);
    EXPECT_EQ(p.getOverlayMask(), 1 << 12);
    EXPECT_FALSE(ds->tagExists(DcmTagKey(0x6000, 0x3000)));

    // the overlay bit is gone and the samples are sign-extended from bit 11
    const Uint16 expected[8] = {0xFFFF, 0x07FF, 0x0001, 0xF800, 0x0000, 0xFFFF, 0x0000, 0x0001};
    ASSERT_EQ(p.frames().size(), 1u);
    EXPECT_EQ(p.frames()[0], std::string(reinterpret_cast<const char*>(expected), 16));

    KQItem kq(*ds);
    const char* compression = nullptr;
    DcmItem* item = nullptr;
    ASSERT_TRUE(kq.findAndGetKQSequenceItem(0x71, item, 0).good());
    EXPECT_TRUE(KQItem(*item).findAndGetKQString(0x72, compression).good());
    EXPECT_STREQ(compression, "NONE");
    ASSERT_TRUE(kq.findAndGetKQSequenceItem(0x71, item, 1).good());
    DcmElement* bits = nullptr;
    ASSERT_TRUE(KQItem(*item).findAndGetKQElement(0x73, bits).good());
    Uint8* bytes = nullptr;
    bits->getUint8Array(bytes);
    // bits 12 of the eight samples, least significant bit first: 1 0 1 0 0 0 1 0; the buffer
    // is sized (8 >> 3) + 1 bytes by the sizing rule of embedded overlays
    ASSERT_EQ(bits->getLength(), 2u);
    EXPECT_EQ(bytes[0], 0x45);
    EXPECT_EQ(bytes[1], 0);

    // unsigned samples lose the overlay bit and are not extended
    auto plain = image(2, 4, 1);
    plain->getDataset()->putAndInsertUint16Array(DCM_PixelData, samples, 8);
    addOverlayGroup(*plain->getDataset(), 0x6002, 2, 4, 16, 12, "");
    TestProcess q(plain->getDataset());
    EXPECT_EQ(q.process(), 0);
    const Uint16 unsignedSamples[8] = {0x0FFF, 0x07FF, 0x0001, 0x0800, 0x0000, 0x0FFF, 0x0000, 0x0001};
    ASSERT_EQ(q.frames().size(), 1u);
    EXPECT_EQ(q.frames()[0], std::string(reinterpret_cast<const char*>(unsignedSamples), 16));
}

TEST(Overlay, WriteToFiles)
{
    fixtures::TempDir dir;
    COverlayArray overlays;
    EXPECT_EQ(overlays.createNewOverlay(), 0);
    EXPECT_EQ(overlays.createNewOverlay(), 1);
    overlays.get(0)->m_bitsAllocated = 1;
    overlays.get(0)->initData(3, OVERLAY_READ_AUTO);
    overlays.get(0)->putData(reinterpret_cast<const unsigned char*>("abc"), 3);
    // the second has no data: 1
    EXPECT_EQ(overlays.writeOverlays(dir.file("ovl").c_str()), 1u);
    EXPECT_EQ(fixtures::readFile(dir.file("ovl_0.ovl")), "abc");
    EXPECT_FALSE(fixtures::fileExists(dir.file("ovl_1.ovl")));
    EXPECT_EQ(overlays.get(0)->writeToFile(dir.file("missing/x.ovl").c_str()), 2u);
    for (int i = 2; i < 16; ++i)
        overlays.createNewOverlay();
    EXPECT_EQ(overlays.createNewOverlay(), -1);
}

TEST(EncapsulatedDocument, WhichObjectsAndWhichBytes)
{
    struct Case
    {
        const char* name;
        const char* sopClass;
        const char* mime;
        std::string bytes;
        std::string extracted; // "-" when no document is made
    };
    const std::string pdf = "%PDF-1.4x";
    const std::string zero(1, '\0');
    const Case cases[] = {
        {"PDF with its pad byte", "1.2.840.10008.5.1.4.1.1.104.1", nullptr, pdf + zero, pdf},
        {"odd length kept whole", "1.2.840.10008.5.1.4.1.1.104.1", nullptr, pdf.substr(0, 8) + zero,
         pdf.substr(0, 8) + zero},
        {"even length ending otherwise", "1.2.840.10008.5.1.4.1.1.104.1", nullptr, pdf + "y", pdf + "y"},
        {"no SOP class: MIME type decides", nullptr, "application/pdf", pdf + zero, pdf},
        {"another SOP class is no document whatever the MIME type", UID_SecondaryCaptureImageStorage,
         "application/pdf", pdf, "-"},
        {"neither", nullptr, nullptr, pdf, "-"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        DcmDataset ds;
        if (c.sopClass)
            ds.putAndInsertString(DCM_SOPClassUID, c.sopClass);
        if (c.mime)
            ds.putAndInsertString(DCM_MIMETypeOfEncapsulatedDocument, c.mime);
        ds.putAndInsertUint8Array(DCM_EncapsulatedDocument, reinterpret_cast<const Uint8*>(c.bytes.data()),
                                  c.bytes.size());
        TestProcess p(&ds);
        EXPECT_EQ(p.process(), 0);
        EXPECT_EQ(p.m_documents.size(), c.extracted == "-" ? 0u : 1u);
        if (!p.m_documents.empty())
        {
            EXPECT_EQ(p.m_documents[0], c.extracted);
        }
        EXPECT_FALSE(ds.tagExists(DCM_EncapsulatedDocument));
    }
}
