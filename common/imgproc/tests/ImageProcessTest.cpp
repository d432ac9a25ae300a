// The image pipeline and its tag walker; real files against pydicom, DCMTK and GDCM as independent readers.
#include "common/imgproc/src/dicomparser.h"
#include "common/imgproc/src/dicomtaggrouplist.h"
#include "common/imgproc/src/imagememory.h"
#include "common/imgproc/src/imageprocess.h"
#include "common/imgproc/src/imageprocessprogress.h"
#include "common/imgproc/src/kqrcontent.h"
#include "common/imgproc/src/overlay.h"
#include "common/imgproc/src/overlayarray.h"
#include "common/imgproc/src/rawimage.h"

#include "dcmutils/codec/CodecRegistry.h"
#include "privatetags/KQItem.h"
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/oflog/oflog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

using fixtures::TempDir;

namespace {

// Keeps every buffer by index; chunk() moves the content, so the image must go on with the new buffer.
class KeepingMemory : public CImageMemory
{
public:
    char* allocate(unsigned int size, int index) override { return &m_buffers[index].assign(size, '\0')[0]; }
    void release(char* data, unsigned int, int index) override { m_releases += data == &m_buffers[index][0]; }
    char* chunk(char*, unsigned int, unsigned int size, int index) override
    {
        m_old[index] = m_buffers[index].substr(0, size);
        m_buffers[index].swap(m_old[index]); // the old storage stays alive in m_old
        return &m_buffers[index][0];
    }
    std::map<int, std::string> m_buffers, m_old; // the frames by number
    int m_releases = 0; // of the buffer that chunk() returned
};

// Samples stay as decoded: no bitmap optimisation.
struct TestRawImage : CRawImage { using CRawImage::CRawImage; void optimizeBitmap() override {} };

// A process over a dataset that keeps frames (memory index = frame number) and documents.
class TestProcess : public CImageProcess, public IImageProcessProgress
{
public:
    explicit TestProcess(DcmDataset* dataset, bool noTagHandlers = false, int specificFrame = 0, bool print = false)
      : CImageProcess(dataset, nullptr, print, noTagHandlers, false, specificFrame)
    {
        setImageMemory(&m_memory);
        setProgressCallback(this);
    }
    CRawImage* createRawImage() override { return new TestRawImage(this, getCurrentFrame()); }
    CEncapsulatedDocument* createEncapsulatedDocument(DOCUMENT_TYPE type, unsigned int length) override
    {
        return new CEncapsulatedDocument(this, type, length);
    }
    bool postProcess(CExtractedData* data) override
    {
        const bool done = CImageProcess::postProcess(data);
        if (data->getKind() == EXTRACTED_DOCUMENT && data->getBuffer())
            m_documents.push_back(std::string(reinterpret_cast<char*>(data->getBuffer()), data->getLength()));
        return done;
    }
    bool postProcessImage() override
    {
        m_bytesPerSample = getRawImage()->getBytesPerSample();
        return CImageProcess::postProcessImage();
    }
    bool isIncluded(const DcmTag& tag) override { return tag.getGroup() != m_refusedGroup; }
    void imageProgress(unsigned int frame, unsigned int count) override { m_progress.push_back({frame, count}); }
    KeepingMemory m_memory;
    unsigned short m_refusedGroup = 0;
    unsigned int m_bytesPerSample = 1;
    std::vector<std::string> m_documents;
    std::vector<std::pair<unsigned int, unsigned int>> m_progress;
};

// A monochrome image of rows x columns x frames, a ramp of samples (16 bits: 12 stored).
std::unique_ptr<DcmFileFormat> image(unsigned short rows, unsigned short columns, unsigned int frames,
                                     unsigned short bits = 16)
{
    fixtures::ObjectSpec shape;
    shape.rows = rows;
    shape.columns = columns;
    shape.frames = frames;
    shape.bitsAllocated = bits;
    return std::unique_ptr<DcmFileFormat>(fixtures::makeObject(shape));
}

// A corpus file and the decoder whose native copy pydicom reads ("": the file itself).
const std::pair<const char*, const char*> CORPUS[] = {
    {"CT_small.dcm", ""}, {"MR_small.dcm", ""}, {"MR_small_bigendian.dcm", ""}, {"MR_small_expb.dcm", ""},
    {"MR_small_implicit.dcm", ""}, {"MR_small_padded.dcm", ""}, {"MR_small_RLE.dcm", ""},
    {"MR_small_RLE.dcm", "dcmdrle"}, {"MR_small_jp2klossless.dcm", "gdcmconv"},
    {"MR_small_jpeg_ls_lossless.dcm", "dcmdjpls"}, {"693_J2KI.dcm", "gdcmconv"},
    {"J2K_pixelrep_mismatch.dcm", "gdcmconv"}, {"JPEG2000.dcm", "gdcmconv"}, {"GDCMJ2K_TextGBR.dcm", "gdcmconv"},
    {"SC_rgb_gdcm_KY.dcm", "gdcmconv"}, {"JPEG-lossy.dcm", "dcmdjpeg"}, {"JPGExtended.dcm", "dcmdjpeg"},
    {"SC_jpeg_no_color_transform.dcm", "dcmdjpeg"}, {"SC_jpeg_no_color_transform_2.dcm", "dcmdjpeg"},
    {"SC_rgb_dcmtk_+eb+cr.dcm", "dcmdjpeg"}, {"SC_rgb_dcmtk_+eb+cy+n1.dcm", "dcmdjpeg"},
    {"SC_rgb_dcmtk_+eb+cy+n2.dcm", "dcmdjpeg"}, {"SC_rgb_dcmtk_+eb+cy+np.dcm", "dcmdjpeg"},
    {"SC_rgb_dcmtk_+eb+cy+s2.dcm", "dcmdjpeg"}, {"SC_rgb_dcmtk_+eb+cy+s4.dcm", "dcmdjpeg"},
    {"SC_rgb_jpeg_app14_dcmd.dcm", "dcmdjpeg"}, {"SC_rgb_jpeg_dcmtk.dcm", "dcmdjpeg"},
    {"SC_rgb_jpeg_gdcm.dcm", "dcmdjpeg"}, {"SC_rgb_jpeg_gdcm.dcm", "gdcmconv"},
    {"SC_rgb_jpeg_lossy_gdcm.dcm", "dcmdjpeg"}, {"SC_rgb_small_odd_jpeg.dcm", "dcmdjpeg"},
    {"SC_rgb_jpeg_dcmd.dcm", ""}, {"ExplVR_BigEnd.dcm", ""}, {"SC_rgb_small_odd.dcm", ""},
    {"SC_ybr_full_422_uncompressed.dcm", ""}, {"SC_rgb_rle.dcm", ""}, {"SC_rgb_rle_2frame.dcm", ""},
    {"SC_rgb_rle_16bit.dcm", ""}, {"SC_rgb_rle_16bit_2frame.dcm", ""}, {"SC_rgb_rle_32bit.dcm", ""},
    {"SC_rgb_rle_32bit_2frame.dcm", "dcmdrle"}, {"image_dfl.dcm", ""}, {"liver_1frame.dcm", ""},
    {"liver_expb_1frame.dcm", ""}, {"rtdose.dcm", ""}, {"rtdose_1frame.dcm", ""}, {"rtdose_expb.dcm", ""},
    {"rtdose_expb_1frame.dcm", ""}, {"rtdose_rle.dcm", ""}, {"rtdose_rle_1frame.dcm", "dcmdrle"},
};

// Every frame (width: bytes a sample), the first overlay (a byte a pixel) and the documents of an object.
struct Decoded
{
    int status = -1;
    std::string samples, overlay;
    unsigned int width = 1;
    std::vector<std::string> documents;
};

Decoded decode(const std::string& path)
{
    Decoded result;
    DcmFileFormat file;
    if (file.loadFile(path.c_str()).bad())
        return result;
    TestProcess process(file.getDataset());
    result.status = process.process();
    for (const auto& frame : process.m_memory.m_buffers)
        result.samples += frame.second;
    result.width = process.m_bytesPerSample;
    result.documents = process.m_documents;
    const COverlay* overlay = process.getOverlays().get(0);
    for (unsigned int i = 0; overlay && overlay->m_data && i < 8 * overlay->m_size; ++i)
        result.overlay += char((overlay->m_data[i / 8] >> (i % 8)) & 1);
    return result;
}

// Largest difference between two buffers, byte by byte.
int maxDifference(const std::string& a, const std::string& b)
{
    int worst = 0;
    for (size_t i = 0; i < a.size() && i < b.size(); ++i)
        worst = std::max(worst, std::abs(int(uint8_t(a[i])) - int(uint8_t(b[i]))));
    return worst;
}

// Runs the reference script over lines of kind, input and output; a line it cannot read fails.
void runReference(const TempDir& dir, const std::vector<std::array<std::string, 3>>& lines)
{
    std::string manifest;
    for (const auto& line : lines)
        manifest += line[0] + "\t" + line[1] + "\t" + line[2] + "\n";
    fixtures::writeFile(dir.file("manifest"), manifest);
    const std::string command = "/usr/bin/python3 " KQ_IMGPROC_TEST_DIR "/pixel_reference.py <" + dir.file("manifest");
    ASSERT_EQ(system(command.c_str()), 0);
    for (const auto& line : lines)
        ASSERT_FALSE(fixtures::fileExists(line[2] + ".error")) << fixtures::readFile(line[2] + ".error");
}

std::string nativeCopy(const TempDir& dir, const char* file, const std::string& decoder, int index)
{
    const std::string source = fixtures::corpusFile(file);
    if (decoder.empty())
        return source;
    const std::string target = dir.file("native" + std::to_string(index) + ".dcm");
    std::vector<std::string> argv{"/usr/bin/" + decoder, source, target};
    if (decoder == "gdcmconv")
        argv.insert(argv.begin() + 1, "--raw");
    const fixtures::RunResult run = fixtures::run(argv);
    EXPECT_EQ(run.status, 0) << decoder << " " << file << ": " << run.err;
    return target;
}


typedef std::vector<std::pair<DcmTag, std::string>> Values;

void put(DcmItem& item, const Values& values)
{
    for (const auto& v : values)
        EXPECT_TRUE(item.putAndInsertString(v.first, v.second.c_str()).good()) << v.first.toString();
}

// A 2 x 4 overlay in group, of the bits allocated and bit position given.
void addOverlayGroup(DcmDataset& ds, Uint16 group, Uint16 bits, Uint16 position)
{
    put(ds, {{DcmTag(group, 0x0010, EVR_US), "2"}, {DcmTag(group, 0x0011, EVR_US), "4"},
             {DcmTag(group, 0x0040, EVR_CS), "G"}, {DcmTag(group, 0x0050, EVR_SS), "1\\1"},
             {DcmTag(group, 0x0100, EVR_US), std::to_string(bits)},
             {DcmTag(group, 0x0102, EVR_US), std::to_string(position)}});
}

typedef std::vector<std::string> Log;

struct Walker : CDicomTagParser2 { void InitPrivateData() override { ++m_walks; } int m_walks = 0; };

// Logs "<handler>(gggg,eeee)@index"; handler R also removes the element.
template <char NAME> void handler(IDicomTagParser2* p)
{
    char text[64];
    const DcmTagKey tag = p->getCurrentObject()->getTag();
    snprintf(text, sizeof(text), "%c(%04x,%04x)@%d", NAME, tag.getGroup(), tag.getElement(), p->getIndex());
    static_cast<Log*>(p->getUserData())->push_back(text);
    if (NAME == 'R')
        p->removeElement();
}

int visited = 0;
bool countingPreprocess(IDicomTagParser2*) { return ++visited > 0; }

struct Registration { DcmTagKey tag; DicomTagHandler handler; const char* creator; unsigned int flags; };
struct WalkCase { const char* name; std::vector<Registration> registrations; Values elements; Log expected; };

DcmTag LO(Uint16 group, Uint16 element) { return DcmTag(group, element, EVR_LO); }
DcmTag US(Uint16 group) { return DcmTag(group, 0x0010, EVR_US); }

} // namespace

TEST(ImageProcess, HandlersCollectTheImageDescription)
{
    struct Case { const char* name; Values values; std::function<void(const TestProcess&)> check; };
    const DcmTagKey model = DCM_SecondaryCaptureDeviceManufacturerModelName;
    const DcmTagKey version = DCM_SecondaryCaptureDeviceSoftwareVersions;
    const Case cases[] = {
        {"Number of Slices wins over Number of Frames", {{DCM_NumberOfFrames, "4"}, {DCM_NumberOfSlices, "2"}},
         [](const TestProcess& p) { EXPECT_EQ(p.getNumberOfFrames(), 2u); }},
        {"Number of Frames alone, above 65535", {{DCM_NumberOfFrames, "70000"}},
         [](const TestProcess& p) { EXPECT_EQ(p.getNumberOfFrames(), 70000u); }},
        {"MONOCHROME2: not inverted", {{DCM_PhotometricInterpretation, "MONOCHROME2"}},
         [](const TestProcess& p) { EXPECT_EQ(p.getPhotometric() * 10 + p.getInvertMonochrome1(), 10u); }},
        {"MONOCHROME1 is inverted, also from another version of the known device",
         {{model, "Zentravox"}, {version, "1.1"}, {DCM_PhotometricInterpretation, "MONOCHROME1"}},
         [](const TestProcess& p) { EXPECT_TRUE(p.getInvertMonochrome1()); }},
        {"MONOCHROME1 of the Zentravox 1.0 capture device is not",
         {{DCM_PhotometricInterpretation, "MONOCHROME1"}, {model, "Zentravox"}, {version, "1.0"}},
         [](const TestProcess& p) { EXPECT_FALSE(p.getInvertMonochrome1()); }},
        {"YBR_FULL_422 and its samples", {{DCM_PhotometricInterpretation, "YBR_FULL_422"}, {DCM_SamplesPerPixel, "3"}},
         [](const TestProcess& p) { EXPECT_EQ(p.getPhotometric() * 10 + p.getSamplesPerPixel(), 73u); }},
        {"geometry, window, rescale, spacing, modality",
         {{DCM_Rows, "7"}, {DCM_Columns, "9"}, {DCM_BitsAllocated, "16"}, {DCM_BitsStored, "12"}, {DCM_HighBit, "11"},
          {DCM_PixelRepresentation, "1"}, {DCM_WindowCenter, "40\\400"}, {DCM_WindowWidth, "350"},
          {DCM_RescaleIntercept, "-1024"}, {DCM_RescaleSlope, "2.5"}, {DCM_PixelSpacing, "0.5\\0.25"},
          {DCM_Modality, "CT"}},
         [](const TestProcess& p) {
             EXPECT_EQ(std::vector<double>({double(p.getRows()), double(p.getColumns()), double(p.getBitsStored()),
                                            double(p.getHighBit()), double(p.getPixelRepresentation()),
                                            p.getWindowCenter(), p.getWindowWidth(), p.getRescaleIntercept(),
                                            p.getRescaleSlope(), p.getPixelSpacing()[1]}),
                       std::vector<double>({7, 9, 12, 11, 1, 40, 350, -1024, 2.5, 0.25}));
             EXPECT_EQ(p.getModality(), std::string("CT"));
         }},
        {"palette descriptors: US unsigned, SS signed first mapped value, two values not read",
         {{DcmTag(DCM_RedPaletteColorLookupTableDescriptor, EVR_US), "0\\16\\16"},
          {DcmTag(DCM_GreenPaletteColorLookupTableDescriptor, EVR_SS), "256\\-5\\8"},
          {DcmTag(DCM_BluePaletteColorLookupTableDescriptor, EVR_US), "256\\0"}},
         [](const TestProcess& p) {
             EXPECT_EQ(std::vector<int>({p.getPaletteEntries(0), p.getPaletteBits(0), p.getPaletteFirstMapped(1),
                                         p.getPaletteBits(1), p.getPaletteEntries(2)}),
                       std::vector<int>({0, 16, -5, 8, 0}));
         }},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        DcmDataset ds;
        put(ds, c.values);
        TestProcess process(&ds);
        EXPECT_EQ(process.process(), 0);
        c.check(process);
    }
}

TEST(ImageProcess, WalkRemovesConsumedAndRefusedElementsAndPrints)
{
    for (const bool noHandlers : {false, true})
    {
        SCOPED_TRACE(noHandlers ? "no tag handlers" : "tag handlers");
        auto file = image(4, 4, 1);
        DcmDataset* ds = file->getDataset();
        ds->insertSequenceItem(DCM_IconImageSequence, new DcmItem());
        put(*ds, {{LO(0x0029, 0x0010), "Vendor"}, {LO(0x0029, 0x1010), "vendor data"},
                  {LO(0xF215, 0x0010), "KQ group A"}, {DcmTag(0xF215, 0x1015, EVR_DA), "20200101"}});
        ds->putAndInsertUint8Array(DCM_EncapsulatedDocument, reinterpret_cast<const Uint8*>("%PDF"), 4);
        TestProcess p(ds, noHandlers);
        p.m_refusedGroup = 0x0029;
        EXPECT_EQ(p.process(), 0);
        for (const DcmTagKey& gone : {DCM_PixelData, DCM_IconImageSequence, DCM_EncapsulatedDocument, {0x0029, 0x1010}})
            EXPECT_EQ(ds->tagExists(gone), noHandlers) << gone.toString();
        EXPECT_TRUE(ds->tagExists(DcmTagKey(0xF215, 0x1015)));
        EXPECT_TRUE(ds->tagExists(DCM_PatientName));
        EXPECT_EQ(p.m_memory.m_buffers.size(), noHandlers ? 0u : 1u);
    }
    // printing every element visited: short binary values as values, long ones by their length
    DcmDataset ds;
    DcmItem* item = nullptr;
    ds.findOrCreateSequenceItem(DCM_RequestAttributesSequence, item, -2);
    put(ds, {{DCM_PatientName, "A\nB"}});
    put(*item, {{DCM_StudyID, "7"}});
    const Uint8 bytes[66] = {1, 2};
    ds.putAndInsertUint8Array(DcmTag(0x0009, 0x1010, EVR_OB), bytes, 2);
    ds.putAndInsertUint8Array(DcmTag(0x0009, 0x1011, EVR_OB), bytes, 66);
    TestProcess p(&ds, false, 0, true);
    std::ostringstream out;
    p.setOutputStream(&out);
    EXPECT_EQ(p.process(), 0);
    EXPECT_EQ(out.str(), "(0009,1010) OB 01\\02\n(0009,1011) OB (66 bytes)\n(0010,0010) PN A\nB\n(0040,0275) SQ "
                         "(1 items)\n  **start**\n   **start**\n   (0020,0010) SH 7\n   **end**\n  **end**\n");
    EXPECT_EQ(CImageProcess::escapeNewLines("a\nb\rc"), "a\\nb\\rc");
}

TEST(ImageProcess, FramesByNumberAndMessagesOfThePixelPath)
{
    OFLog::configure(OFLogger::WARN_LOG_LEVEL);
    struct Case { const char* name; Values change; int specific, status; std::vector<int> frames; const char* log; };
    const Case cases[] = {
        {"every frame", {}, 0, 0, {1, 2, 3}, ""},
        {"a specific frame", {}, 2, 0, {2}, ""},
        {"frame beyond the object", {}, 5, 0, {}, "Invalid specific frame number 5. There are only 3 frames in the"},
        {"no columns", {{DCM_Columns, "0"}}, 0, 1, {},
         "PixelData present but one or more of Rows/Columns/SamplesPerPixel is invalid/zero"},
        {"colour without planar configuration (2 x 2 x 3 x 2 bytes x 3 frames fit the samples)",
         {{DCM_SamplesPerPixel, "3"}, {DCM_PhotometricInterpretation, "RGB"}, {DCM_Columns, "2"}, {DCM_Rows, "2"}},
         0, 0, {1, 2, 3},
         "Non-compliant image: Samples Per Pixel (0028,002) = 3 and Planar Configuration (0028,0006) "
         "missing.\nW: This may break decompression. Inserting Planar Configuration value of 0"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        auto file = image(3, 5, 3);
        const Uint16* samples = nullptr;
        file->getDataset()->findAndGetUint16Array(DCM_PixelData, samples);
        const std::string all(reinterpret_cast<const char*>(samples), 3 * 3 * 5 * 2);
        put(*file->getDataset(), c.change);
        TestProcess p(file->getDataset(), false, c.specific);
        int status = -1;
        const std::string log = fixtures::capture([&] { status = p.process(); }).err;
        EXPECT_EQ(status, c.status);
        EXPECT_NE(log.find(c.log), std::string::npos) << log;
        EXPECT_TRUE(p.getPixelDataSeen());
        // frame f in memory index f, each released once, progress reported for each
        ASSERT_EQ(p.m_memory.m_buffers.size(), c.frames.size());
        std::vector<std::pair<unsigned, unsigned>> progress;
        for (const int f : c.frames)
        {
            const size_t size = p.m_memory.m_buffers.begin()->second.size();
            EXPECT_EQ(p.m_memory.m_buffers[f], all.substr((f - 1) * size, size)) << f;
            progress.push_back({f, 3});
        }
        EXPECT_EQ(p.m_memory.m_releases, int(c.frames.size()));
        EXPECT_EQ(p.getImageCount(), c.frames.size());
        EXPECT_EQ(p.m_progress, progress);
        if (c.frames.size() == 3 && c.change.empty())
        {
            // without a window in the object: from the lowest to the highest of these 45 stored values
            std::vector<Uint16> stored(all.size() / 2);
            memcpy(stored.data(), all.data(), all.size());
            const auto range = std::minmax_element(stored.begin(), stored.end());
            EXPECT_EQ(p.getWindowWidth(), *range.second - *range.first + 1);
            EXPECT_EQ(p.getWindowCenter(), (*range.first + *range.second + 1) / 2.0);
        }
    }
}

TEST(ImageProcess, KqRContentScopes)
{
    struct Case { const char* scope; int status, recorded; };
    const Case cases[] = {{nullptr, 0, CKqRContent::SCOPE_NONE}, {"STUDY", 0, CKqRContent::SCOPE_STUDY},
                          {"PARTIAL", 0, CKqRContent::SCOPE_PARTIAL}, {"SERIES", 1, CKqRContent::SCOPE_NONE}};
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
        DcmItem *instance = nullptr, *series = nullptr;
        kq.findOrCreateKQSequenceItem(0x46, instance, 0);
        kq.findOrCreateKQSequenceItem(0x49, series, 0);
        put(*instance, {{DCM_ReferencedSOPClassUID, UID_CTImageStorage}});
        put(*series, {{DCM_SeriesInstanceUID, "1.2.3"}});
        KQItem(*series).putAndInsertKQString(0x45, "STUDY");
        TestProcess p(&ds);
        EXPECT_EQ(p.process(), c.status);
        CKqRContent content(&p);
        ASSERT_TRUE(content.init());
        EXPECT_EQ(content.postProcess(), c.status);
        EXPECT_EQ(content.m_scope, c.recorded);
        EXPECT_EQ(content.m_description, "description");
        const bool partial = c.recorded == CKqRContent::SCOPE_PARTIAL;
        ASSERT_EQ(content.m_series.size(), partial ? 1u : 0u);
        if (!partial)
            continue;
        EXPECT_EQ(content.m_instanceModalities, std::vector<std::string>{"CT"});
        const CKqRContent::Series& first = content.m_series[0];
        EXPECT_EQ(content.m_date + " " + first.uid + " " + first.scope, "20240102 1.2.3 STUDY");
    }
}

TEST(Overlay, StatusCodes)
{
    const unsigned char bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    struct Case { const char* name; unsigned short bitsAllocated, bitPosition, rows, columns;
                  unsigned int size, putBytes, init, put, finalized; }; // putBytes 0: no putData
    const Case cases[] = {
        {"separate data, complete", 1, 0, 4, 4, 2, 2, 0, 0, 7},
        {"separate data, short: not an error", 1, 0, 4, 4, 4, 2, 0, 0, 7},
        {"separate data longer than the buffer", 1, 0, 4, 4, 2, 3, 0, 6, 6},
        {"embedded: more bits than pixels", 16, 12, 1, 4, 1, 0, 0, 0, 6}, {"embedded", 16, 12, 2, 4, 1, 0, 0, 0, 7},
        {"embedded bits: wrong operation", 16, 12, 2, 4, 1, 2, 0, 1, 7},
        {"one bit at position 3: unusable", 1, 3, 4, 4, 2, 2, 1, 1, 1}, {"size 0", 1, 0, 4, 4, 0, 0, 3, 0, 3},
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
        EXPECT_EQ(c.putBytes ? overlay.putData(bytes, c.putBytes) : c.put, c.put);
        for (int i = 0; i < 8 && overlay.m_mode == OVERLAY_READ_EMBEDDED && overlay.m_status == OVERLAY_OK; ++i)
            overlay.putBit(1);
        EXPECT_EQ(overlay.finalizeData(), c.finalized);
        EXPECT_EQ(c.init == 0 ? overlay.initData(c.size, OVERLAY_READ_AUTO) : 2u, 2u); // already initialised
    }
    COverlayArray overlays; // sixteen slots
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(overlays.createNewOverlay(), i);
    EXPECT_EQ(overlays.createNewOverlay(), -1);
}

TEST(Overlay, EmbeddedBitsLeaveTheSamplesAndAllOverlaysEndInTheKQBlock)
{
    // 2 x 4 samples, a separate overlay in group 6000, one embedded in the bit above the stored bits
    struct Case { const char* name; Uint16 bits, stored, pixelRepresentation; std::vector<Uint16> samples, expected;
                  Uint8 overlay; };
    const Case cases[] = {
        {"16 bits, signed: sign-extended from bit 11", 16, 12, 1,
         {0x1FFF, 0x07FF, 0x1001, 0x0800, 0xE000, 0x0FFF, 0x1000, 0x0001},
         {0xFFFF, 0x07FF, 0x0001, 0xF800, 0x0000, 0xFFFF, 0x0000, 0x0001}, 0x45},
        {"16 bits, unsigned: not extended", 16, 12, 0, {0x1FFF, 0x07FF, 0x1001, 0x0800, 0xE000, 0x0FFF, 0x1000, 0x0001},
         {0x0FFF, 0x07FF, 0x0001, 0x0800, 0x0000, 0x0FFF, 0x0000, 0x0001}, 0x45},
        {"8 bits, unsigned", 8, 6, 0, {0xFF, 0x40, 0x3F, 0x80, 0xC1, 0x00, 0x21, 0x7F},
         {0x3F, 0x00, 0x3F, 0x00, 0x01, 0x00, 0x21, 0x3F}, 0x93},
        {"8 bits, signed", 8, 6, 1, {0xFF, 0x40, 0x3F, 0x80, 0xC1, 0x00, 0x21, 0x7F},
         {0xFF, 0x00, 0xFF, 0x00, 0x01, 0x00, 0xE1, 0xFF}, 0x93},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        auto file = image(2, 4, 1, c.bits);
        DcmDataset* ds = file->getDataset();
        put(*ds, {{DCM_BitsStored, std::to_string(c.stored)}, {DCM_HighBit, std::to_string(c.stored - 1)},
                  {DCM_PixelRepresentation, std::to_string(c.pixelRepresentation)}});
        std::string bytes, expected;
        for (size_t i = 0; i < 8; ++i)
        {
            bytes.append(reinterpret_cast<const char*>(&c.samples[i]), c.bits / 8);
            expected.append(reinterpret_cast<const char*>(&c.expected[i]), c.bits / 8);
        }
        ds->putAndInsertUint8Array(DCM_PixelData, reinterpret_cast<const Uint8*>(bytes.data()), bytes.size());
        addOverlayGroup(*ds, 0x6000, 1, 0);
        ds->putAndInsertUint8Array(DcmTag(0x6000, 0x3000, EVR_OB), reinterpret_cast<const Uint8*>("\xA5"), 2);
        addOverlayGroup(*ds, 0x6002, c.bits, c.stored);
        addOverlayGroup(*ds, 0x6004, c.bits, 16); // names no bit of a sample: takes none
        TestProcess p(ds);
        EXPECT_EQ(p.process(), 0);
        EXPECT_EQ(p.m_memory.m_buffers, (std::map<int, std::string>{{1, expected}}));
        for (int i = 0; i < 3; ++i)
            ASSERT_NE(p.getOverlays().get(i), nullptr);
        EXPECT_EQ(p.getOverlays().get(2)->m_written + p.getOverlays().get(2)->m_bitCounter, 0u);
        EXPECT_EQ(p.getOverlays().get(0)->m_name + p.getOverlays().get(1)->m_name, "01");
        EXPECT_EQ(p.getOverlays().get(0)->m_status, 7u);
        EXPECT_EQ(p.getOverlays().get(1)->m_mode, OVERLAY_READ_EMBEDDED);
        EXPECT_EQ(p.getOverlayMask(), 1 << c.stored);
        EXPECT_FALSE(ds->tagExists(DcmTagKey(0x6000, 0x3000)));
        // in the KQ block: embedded bits, least significant first, in (8 >> 3) + 1 bytes as sized
        const char* compression = nullptr;
        DcmItem *first = nullptr, *second = nullptr;
        DcmElement* bits = nullptr;
        Uint8* overlay = nullptr;
        ASSERT_TRUE(KQItem(*ds).findAndGetKQSequenceItem(0x71, first, 0).good());
        ASSERT_TRUE(KQItem(*ds).findAndGetKQSequenceItem(0x71, second, 1).good());
        EXPECT_TRUE(KQItem(*first).findAndGetKQString(0x72, compression).good());
        EXPECT_STREQ(compression, "NONE");
        ASSERT_TRUE(KQItem(*second).findAndGetKQElement(0x73, bits).good() && bits->getUint8Array(overlay).good());
        EXPECT_EQ(std::vector<Uint8>(overlay, overlay + bits->getLength()), std::vector<Uint8>({c.overlay, 0}));
    }
}

TEST(EncapsulatedDocument, WhichObjectsAndWhichBytes)
{
    struct Case { const char* name; Values values; std::string bytes, extracted; }; // "-": no document
    const std::string pdf = "%PDF-1.4x", zero(1, '\0');
    const Values pdfClass = {{DCM_SOPClassUID, "1.2.840.10008.5.1.4.1.1.104.1"}};
    const Case cases[] = {
        {"PDF with its pad byte", pdfClass, pdf + zero, pdf},
        {"odd length kept whole", pdfClass, pdf.substr(0, 8) + zero, pdf.substr(0, 8) + zero},
        {"even length ending otherwise", pdfClass, pdf + "y", pdf + "y"},
        {"no SOP class: MIME type decides", {{DCM_MIMETypeOfEncapsulatedDocument, "application/pdf"}}, pdf + zero, pdf},
        {"another SOP class is no document whatever the MIME type",
         {{DCM_SOPClassUID, UID_SecondaryCaptureImageStorage}, {DCM_MIMETypeOfEncapsulatedDocument, "application/pdf"}},
         pdf, "-"},
        {"neither", {}, pdf, "-"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        DcmDataset ds;
        put(ds, c.values);
        ds.putAndInsertUint8Array(DCM_EncapsulatedDocument, reinterpret_cast<const Uint8*>(c.bytes.data()),
                                  c.bytes.size());
        TestProcess p(&ds);
        EXPECT_EQ(p.process(), 0);
        EXPECT_EQ(p.m_documents, std::vector<std::string>(c.extracted != "-", c.extracted));
        EXPECT_FALSE(ds.tagExists(DCM_EncapsulatedDocument));
    }
}

TEST(DicomParser, DispatchesByRegistrationOrderGroupRangeAndPrivateBlock)
{
    const DcmTagKey ov(0x6000, 0x0010), kq(0xF215, 0x001D);
    const WalkCase cases[] = {
        {"same tag twice: both, in registration order; other groups untouched",
         {{DCM_Rows, handler<'B'>, nullptr, 0x10001}, {DCM_Columns, handler<'A'>, nullptr, 0x10001},
          {DCM_Rows, handler<'A'>, nullptr, 0x10001}},
         {{DCM_PatientName, "X"}, {DCM_Rows, "2"}, {DCM_Columns, "3"}},
         {"B(0028,0010)@1", "A(0028,0010)@1", "A(0028,0011)@2"}},
        {"one overlay registration serves 6000-60FE, not odd groups nor 6100",
         {{ov, handler<'A'>, nullptr, 0x1000001}},
         {{US(0x6000), "4"}, {LO(0x6001, 0x0010), "creator"}, {US(0x6002), "4"},
          {US(0x60FE), "4"}, {US(0x6100), "4"}},
         {"A(6000,0010)@0", "A(6002,0010)@2", "A(60fe,0010)@3"}},
        {"a later group's node passed over at its end leaves the open range alone",
         {{ov, handler<'A'>, nullptr, 0x1000001}, {DcmTagKey(0x6002, 0x0010), handler<'B'>, nullptr, 0x10001}},
         {{US(0x6000), "4"}, {DcmTag(0x6003, 0x0000, EVR_UL), "0"}, {US(0x6004), "4"}},
         {"A(6000,0010)@0", "A(6004,0010)@2"}},
        {"private data element dispatched by its offset once the creator matched in the group",
         {{DcmTagKey(0xF215, 0x101D), handler<'A'>, "KQ group A", 0x10001}},
         {{LO(0xF215, 0x0010), "Other creator"}, {LO(0xF215, 0x0011), "KQ group A"}, {LO(0xF215, 0x111D), "ours"},
          {LO(0xF215, 0x111E), "next"}},
         {"A(f215,111d)@2"}},
        {"a data element before any matching creator: nothing", {{kq, handler<'A'>, "KQ group A", 0x10001}},
         {{LO(0xF215, 0x0010), "Other creator"}, {LO(0xF215, 0x101D), "theirs"}}, {}},
        {"block byte not compared: any creator match opens every block of the group",
         {{kq, handler<'A'>, "KQ group A", 0x10001}},
         {{LO(0xF215, 0x0010), "Other creator"}, {LO(0xF215, 0x0011), "KQ group A"}, {LO(0xF215, 0x101D), "theirs"}},
         {"A(f215,101d)@2"}},
        {"an element range calls its first element twice",
         {{DCM_Rows, handler<'A'>, nullptr, 0x10002}, {DCM_BitsAllocated, handler<'B'>, nullptr, 0x10001}},
         {{DCM_Rows, "2"}, {DCM_Columns, "3"}, {DCM_BitsAllocated, "8"}},
         {"A(0028,0010)@0", "A(0028,0010)@0", "A(0028,0011)@1", "B(0028,0100)@2"}},
        {"a removed element: the walk goes on with the next, index not advanced",
         {{DCM_Rows, handler<'R'>, nullptr, 0x10001}, {DCM_Columns, handler<'A'>, nullptr, 0x10001}},
         {{DCM_PatientName, "X"}, {DCM_Rows, "2"}, {DCM_Columns, "3"}},
         {"R(0028,0010)@1", "A(0028,0011)@1"}},
        {"no registrations: every element visited, nothing called", {}, {{DCM_PatientName, "X"}, {DCM_Rows, "2"}}, {}},
    };
    for (const WalkCase& c : cases)
    {
        SCOPED_TRACE(c.name);
        SDicomTagGroupList registry;
        for (const Registration& r : c.registrations)
            registry.addTag(r.tag, r.handler, r.creator, r.flags);
        for (int walk = 0; walk < 2; ++walk) // a registry serves many walks
        {
            DcmItem item;
            put(item, c.elements);
            Walker walker;
            Log log;
            visited = 0;
            walker.parseTags(&item, &log, &registry, countingPreprocess);
            EXPECT_EQ(log, c.expected);
            EXPECT_EQ(walker.getCurrentObject(), nullptr);
            EXPECT_EQ(walker.m_walks, 1);
            EXPECT_EQ(visited, int(c.elements.size()));
            EXPECT_EQ(walker.getIndex(), int(item.card()) - 1);
            const auto removed = std::count_if(log.begin(), log.end(), [](const auto& l) { return l[0] == 'R'; });
            EXPECT_EQ(c.elements.size() - item.card(), size_t(removed)); // a removed element is gone
        }
    }
}

TEST(Corpus, DecodedObjectsEqualIndependentReaders)
{
    OFLog::configure(OFLogger::ERROR_LOG_LEVEL);
    CodecRegistry registry;
    TempDir dir;
    // a 64 x 64 overlay put into MR_small by dcmodify, a dcmquant palette, an odd-length PDF by pdf2dcm
    std::string bits(64 * 64 / 8, '\0');
    for (size_t i = 0; i < bits.size(); ++i)
        bits[i] = char((i * 29 + 3) & 0xFF);
    fixtures::writeFile(dir.file("bits"), bits);
    fixtures::writeFile(dir.file("overlay.dcm"), fixtures::readFile(fixtures::corpusFile("MR_small.dcm")));
    fixtures::writeFile(dir.file("doc.pdf"), "%PDF-1.4\n1 0 obj<<>>endobj\ntrailer<<>>\n%%EOF\n");
    for (const std::vector<std::string>& argv :
         {std::vector<std::string>{"/usr/bin/dcmodify", "-nb", "-i", "(6000,0010)=64", "-i", "(6000,0011)=64", "-i",
                                   "(6000,0040)=G", "-i", "(6000,0050)=1\\1", "-i", "(6000,0100)=1", "-i",
                                   "(6000,0102)=0", "-if", "(6000,3000)=" + dir.file("bits"), dir.file("overlay.dcm")},
          {"/usr/bin/dcmquant", "+pc", "256", fixtures::corpusFile("SC_rgb_small_odd.dcm"), dir.file("palette.dcm")},
          {"/usr/bin/pdf2dcm", dir.file("doc.pdf"), dir.file("pdf.dcm")}})
    {
        const fixtures::RunResult run = fixtures::run(argv);
        ASSERT_EQ(run.status, 0) << argv[0] << ": " << run.err;
    }
    std::vector<std::array<std::string, 3>> lines = {{"overlay", dir.file("overlay.dcm"), dir.file("overlay.ref")},
                                                     {"frames", dir.file("palette.dcm"), dir.file("palette.ref")},
                                                     {"document", dir.file("pdf.dcm"), dir.file("pdf.ref")}};
    const int count = int(sizeof(CORPUS) / sizeof(CORPUS[0]));
    for (int i = 0; i < count; ++i)
        lines.push_back(
            {"frames", nativeCopy(dir, CORPUS[i].first, CORPUS[i].second, i), dir.file("ref" + std::to_string(i))});
    runReference(dir, lines);

    for (int i = 0; i < count; ++i)
    {
        SCOPED_TRACE(std::string(CORPUS[i].first) + " / " + (*CORPUS[i].second ? CORPUS[i].second : "pydicom"));
        const std::string ref = dir.file("ref" + std::to_string(i));
        std::string expected = fixtures::readFile(ref);
        const Decoded decoded = decode(fixtures::corpusFile(CORPUS[i].first));
        EXPECT_EQ(decoded.status, 0);
        ASSERT_EQ(decoded.samples.size(), expected.size());
        if (fixtures::readFile(ref + ".pi") == "YBR_FULL")
        {
            // the same colour conversion on both sides; pydicom's own conversion agrees within 1
            const std::string pydicomRGB = fixtures::readFile(ref + ".rgb");
            CRawImage::convertYbrFullToRgb(reinterpret_cast<unsigned char*>(&expected[0]),
                                           expected.size() / 3 / decoded.width, decoded.width, 8);
            EXPECT_LE(maxDifference(expected, pydicomRGB), 1);
        }
        EXPECT_TRUE(decoded.samples == expected) << "bytes differ by " << maxDifference(decoded.samples, expected);
    }

    const Decoded overlay = decode(dir.file("overlay.dcm")), palette = decode(dir.file("palette.dcm")),
                  pdf = decode(dir.file("pdf.dcm"));
    for (const Decoded* decoded : {&overlay, &palette, &pdf})
        EXPECT_EQ(decoded->status, 0);
    EXPECT_EQ(overlay.overlay, fixtures::readFile(dir.file("overlay.ref")));
    EXPECT_TRUE(palette.samples == fixtures::readFile(dir.file("palette.ref")));
    EXPECT_EQ(pdf.documents, std::vector<std::string>{fixtures::readFile(dir.file("pdf.ref"))});
    EXPECT_EQ(pdf.documents, std::vector<std::string>{fixtures::readFile(dir.file("doc.pdf"))});

    // objects no independent reader decodes: the process reports them without harm
    OFLog::configure(OFLogger::FATAL_LOG_LEVEL);
    const std::pair<const char*, int> damaged[] = {
        {"MR_truncated.dcm", -1}, {"SC_rgb_jpeg.dcm", -1},    // DCMTK loads neither
        {"JPEG2000-embedded-sequence-delimiter.dcm", 1},      // OpenJPEG refuses it, as in gdcmconv
        {"badVR.dcm", 0}};                                    // Number of Frames "1A": one frame
    for (const auto& c : damaged)
        EXPECT_EQ(decode(fixtures::corpusFile(c.first)).status, c.second) << c.first;
}
