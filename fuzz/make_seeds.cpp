// fuzz_seeds <directory>: writes the seed corpora of the binary fuzz targets into
// <directory>/kqr, /compare, /jpeg2000 and /gwav, from KqR files made here, objects of the
// pydicom corpus (and edited copies of them), codestreams of the corpus and of images encoded
// here, and wavelet streams of small images made here.
#include "dcmutils/codec/CodecRegistry.h"
#include "privatetags/KQDictionary.h"
#include "privatetags/KQItem.h"
#include "dcmutils/KqRWriter.h"
#include "gwav/gwav.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcpxitem.h"
#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/oflog/oflog.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// The UIDs of fuzz_kqr's target object.
#define KQFUZZ_SERIES_UID "1.2.826.0.1.3680043.2.1125.1.1.1"
#define KQFUZZ_SOP_UID "1.2.826.0.1.3680043.2.1125.1.1.1.1"

namespace {

std::string corpus(const std::string& name)
{
    return std::string(KQ_PYDICOM_CORPUS) + "/" + name;
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

bool writeFile(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    return bool(out);
}

int written = 0;

void seed(const std::string& dir, const std::string& name, const std::string& content)
{
    if (!content.empty() && writeFile(dir + "/" + name, content))
        ++written;
}

std::string saved(DcmFileFormat& file, const std::string& scratch, E_TransferSyntax xfer = EXS_Unknown)
{
    if (file.saveFile(scratch.c_str(), xfer).bad())
        return "";
    const std::string content = readFile(scratch);
    unlink(scratch.c_str());
    return content;
}

void kqrSeeds(const std::string& dir, const std::string& scratch)
{
    {
        KqRWriter writer;
        writer.setStudyAttribute(DCM_PatientName, "Seed^Study");
        writer.setStudyAttribute(DCM_PatientID, "SEED");
        seed(dir, "study", saved(writer.fileFormat(), scratch));
        seed(dir, "study-implicit", saved(writer.fileFormat(), scratch, EXS_LittleEndianImplicit));
    }
    {
        KqRWriter writer;
        writer.setStudyAttribute(DCM_StudyDescription, "All levels");
        writer.setSeriesAttribute(KQFUZZ_SERIES_UID, DCM_SeriesDescription, "Series level");
        writer.setSeriesAttribute("1.2.3.4", DCM_SeriesDescription, "Other series");
        writer.setInstanceAttribute(KQFUZZ_SERIES_UID, KQFUZZ_SOP_UID, DCM_InstanceNumber, "7");
        writer.setInstanceAttribute(KQFUZZ_SERIES_UID, "1.2.3.4.5", DCM_InstanceNumber, "8");
        seed(dir, "levels", saved(writer.fileFormat(), scratch));
    }
    {
        // dates and times in another UTC offset than the target's
        KqRWriter writer;
        writer.setTimezoneOffset("-0500");
        writer.setStudyAttribute(DCM_StudyDate, "20210304");
        writer.setStudyAttribute(DCM_StudyTime, "235959.123");
        writer.setStudyAttribute(DCM_AcquisitionDateTime, "20210304235959+0100");
        writer.setSeriesAttribute(KQFUZZ_SERIES_UID, DCM_SeriesDate, "20210305");
        writer.setSeriesAttribute(KQFUZZ_SERIES_UID, DCM_SeriesTime, "0001");
        seed(dir, "timezone", saved(writer.fileFormat(), scratch));
    }
    {
        // a sequence, a modality and an element that cannot be copied
        KqRWriter writer;
        DcmItem* item = nullptr;
        writer.changeItem(item);
        DcmItem* reference = nullptr;
        item->findOrCreateSequenceItem(DCM_ReferencedStudySequence, reference, 0);
        reference->putAndInsertString(DCM_ReferencedSOPClassUID, "1.2.840.10008.3.1.2.3.1");
        reference->putAndInsertString(DCM_ReferencedSOPInstanceUID, "1.2.3");
        writer.setStudyAttribute(DCM_Modality, "CT");
        seed(dir, "sequence", saved(writer.fileFormat(), scratch));
        const Uint8 bytes[] = {1, 2, 3, 4};
        item->putAndInsertUint8Array(DCM_ICCProfile, bytes, 4);
        seed(dir, "binary", saved(writer.fileFormat(), scratch));
    }
    {
        // a series item without its UID
        KqRWriter writer;
        writer.setSeriesAttribute(KQFUZZ_SERIES_UID, DCM_SeriesDescription, "no UID");
        DcmItem* series = nullptr;
        writer.seriesItem(KQFUZZ_SERIES_UID, series);
        series->findAndDeleteElement(DCM_SeriesInstanceUID);
        seed(dir, "series-without-uid", saved(writer.fileFormat(), scratch));
    }
    {
        // the legacy layout: creator "Morvellanite" in block DA, change sequence at DA31
        DcmFileFormat kqr;
        DcmDataset* ds = kqr.getDataset();
        ds->putAndInsertString(DCM_SOPClassUID, KQ_KQR_SOP_CLASS_UID);
        ds->putAndInsertString(DCM_SOPInstanceUID, "1.2.3.4.5");
        ds->putAndInsertString(DcmTag(0xF215, 0x00DA, EVR_LO), "Morvellanite");
        DcmSequenceOfItems* change = new DcmSequenceOfItems(DcmTag(0xF215, 0xDA31, EVR_SQ));
        DcmItem* item = new DcmItem();
        item->putAndInsertString(DCM_PatientName, "Legacy^Edit");
        item->putAndInsertString(DcmTag(0xF215, 0x00DA, EVR_LO), "Morvellanite");
        DcmSequenceOfItems* series = new DcmSequenceOfItems(DcmTag(0xF215, 0xDA32, EVR_SQ));
        DcmItem* seriesItem = new DcmItem();
        seriesItem->putAndInsertString(DCM_SeriesInstanceUID, KQFUZZ_SERIES_UID);
        seriesItem->putAndInsertString(DCM_SeriesDescription, "Legacy series");
        series->append(seriesItem);
        item->insert(series);
        change->append(item);
        ds->insert(change);
        seed(dir, "legacy", saved(kqr, scratch, EXS_LittleEndianExplicit));
    }
}

// An object of the corpus with a few attributes changed.
std::string edited(const std::string& name, const std::string& scratch)
{
    DcmFileFormat file;
    if (file.loadFile(corpus(name).c_str()).bad())
        return "";
    file.getDataset()->putAndInsertString(DCM_StudyDescription, "Changed for the comparison");
    file.getDataset()->putAndInsertString(DCM_PatientName, "Other^Name");
    file.getDataset()->putAndInsertString(DCM_InstanceNumber, "99");
    return saved(file, scratch);
}

std::string pair(const std::string& first, const std::string& second)
{
    if (first.empty() || second.empty())
        return "";
    std::string out(4, '\0');
    const size_t n = first.size();
    for (int i = 0; i < 4; ++i)
        out[size_t(i)] = char((n >> (8 * i)) & 0xFF);
    return out + first + second;
}

void compareSeeds(const std::string& dir, const std::string& scratch)
{
    const char* const same[] = {"CT_small.dcm",    "MR_small.dcm",  "MR_small_bigendian.dcm", "JPEG2000.dcm",
                                "MR_small_RLE.dcm", "image_dfl.dcm", "test-SR.dcm",            "rtstruct.dcm",
                                "SC_rgb_rle.dcm",  "JPEG-lossy.dcm", "MR_small_jpeg_ls_lossless.dcm",
                                "ExplVR_LitEndNoMeta.dcm", "UN_sequence.dcm"};
    for (const char* name : same)
    {
        const std::string bytes = readFile(corpus(name));
        seed(dir, std::string("same-") + name, pair(bytes, bytes));
        seed(dir, std::string("edited-") + name, pair(bytes, edited(name, scratch)));
    }
    const char* const encodings[][2] = {{"MR_small.dcm", "MR_small_bigendian.dcm"},
                                        {"MR_small.dcm", "MR_small_jp2klossless.dcm"},
                                        {"MR_small.dcm", "MR_small_RLE.dcm"},
                                        {"MR_small.dcm", "MR_small_implicit.dcm"},
                                        {"SC_rgb_rle.dcm", "SC_rgb_dcmtk_+eb+cr.dcm"},
                                        {"CT_small.dcm", "MR_small.dcm"}};
    for (const auto& e : encodings)
        seed(dir, std::string("pair-") + e[0] + "-" + e[1], pair(readFile(corpus(e[0])), readFile(corpus(e[1]))));
}

int photometricIndex(const std::string& photometric)
{
    const char* const names[] = {"MONOCHROME2", "MONOCHROME1", "RGB", "YBR_RCT", "YBR_ICT", "YBR_FULL"};
    for (int i = 0; i < 6; ++i)
        if (photometric == names[i])
            return i;
    return 0;
}

// The eight-byte image header of fuzz_jpeg2000 and the first codestream of a JPEG 2000 dataset.
std::string codestreamSeed(DcmDataset& ds)
{
    DcmElement* element = nullptr;
    if (ds.findAndGetElement(DCM_PixelData, element).bad())
        return "";
    DcmPixelData* pixelData = static_cast<DcmPixelData*>(element);
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* parameter = nullptr;
    pixelData->getCurrentRepresentationKey(xfer, parameter);
    DcmPixelSequence* sequence = nullptr;
    DcmPixelItem* item = nullptr;
    Uint8* bytes = nullptr;
    if (pixelData->getEncapsulatedRepresentation(xfer, parameter, sequence).bad() || sequence == nullptr ||
        sequence->getItem(item, 1).bad() || item->getUint8Array(bytes).bad() || bytes == nullptr)
        return "";
    Uint16 rows = 0, columns = 0, bitsAllocated = 8, bitsStored = 8, pixelRepresentation = 0, samples = 1,
           planar = 0;
    const char* photometric = "";
    ds.findAndGetUint16(DCM_Rows, rows);
    ds.findAndGetUint16(DCM_Columns, columns);
    ds.findAndGetUint16(DCM_BitsAllocated, bitsAllocated);
    ds.findAndGetUint16(DCM_BitsStored, bitsStored);
    ds.findAndGetUint16(DCM_PixelRepresentation, pixelRepresentation);
    ds.findAndGetUint16(DCM_SamplesPerPixel, samples);
    ds.findAndGetUint16(DCM_PlanarConfiguration, planar);
    ds.findAndGetString(DCM_PhotometricInterpretation, photometric);
    std::string header(8, '\0');
    header[0] = char(rows & 0xFF);
    header[1] = char(rows >> 8);
    header[2] = char(columns & 0xFF);
    header[3] = char(columns >> 8);
    header[4] = char((bitsAllocated > 8 ? 1 : 0) | (pixelRepresentation ? 2 : 0) | (planar ? 4 : 0) |
                     (xfer == EXS_JPEG2000 ? 8 : 0) | (photometricIndex(photometric ? photometric : "") << 4));
    header[5] = char(bitsStored > 0 ? bitsStored - 1 : 0);
    header[6] = char(samples == 3 ? 1 : 0);
    return header + std::string(reinterpret_cast<const char*>(bytes), item->getLength());
}

DcmDataset* generatedImage(Uint16 rows, Uint16 columns, Uint16 bits, Uint16 stored, bool isSigned, Uint16 samples)
{
    DcmDataset* ds = new DcmDataset();
    ds->putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    ds->putAndInsertString(DCM_SOPInstanceUID, "1.2.826.0.1.3680043.2.1125.9.8");
    ds->putAndInsertString(DCM_Modality, "OT");
    ds->putAndInsertUint16(DCM_Rows, rows);
    ds->putAndInsertUint16(DCM_Columns, columns);
    ds->putAndInsertUint16(DCM_BitsAllocated, bits);
    ds->putAndInsertUint16(DCM_BitsStored, stored);
    ds->putAndInsertUint16(DCM_HighBit, Uint16(stored - 1));
    ds->putAndInsertUint16(DCM_PixelRepresentation, isSigned ? 1 : 0);
    ds->putAndInsertUint16(DCM_SamplesPerPixel, samples);
    ds->putAndInsertString(DCM_PhotometricInterpretation, samples == 3 ? "RGB" : "MONOCHROME2");
    if (samples == 3)
        ds->putAndInsertUint16(DCM_PlanarConfiguration, 0);
    const size_t count = size_t(rows) * columns * samples;
    if (bits == 8)
    {
        std::vector<Uint8> pixels(count);
        for (size_t i = 0; i < count; ++i)
            pixels[i] = Uint8((i * 37 + i / columns * 11) & 0xFF);
        ds->putAndInsertUint8Array(DCM_PixelData, pixels.data(), count);
    }
    else
    {
        std::vector<Uint16> pixels(count);
        for (size_t i = 0; i < count; ++i)
            pixels[i] = Uint16((i * 131 + i / columns * 17) & ((1u << stored) - 1));
        ds->putAndInsertUint16Array(DCM_PixelData, pixels.data(), count);
    }
    return ds;
}

void jpeg2000Seeds(const std::string& dir)
{
    const char* const files[] = {"JPEG2000.dcm", "MR_small_jp2klossless.dcm", "693_J2KI.dcm", "GDCMJ2K_TextGBR.dcm"};
    for (const char* name : files)
    {
        DcmFileFormat file;
        if (file.loadFile(corpus(name).c_str()).good() && file.loadAllDataIntoMemory().good())
            seed(dir, name, codestreamSeed(*file.getDataset()));
    }
    // small images encoded here: quick to decode, many per second
    CodecRegistry registry;
    struct Kind
    {
        const char* name;
        Uint16 rows, columns, bits, stored;
        bool isSigned;
        Uint16 samples;
        E_TransferSyntax xfer;
    };
    const Kind kinds[] = {{"mono8", 16, 16, 8, 8, false, 1, EXS_JPEG2000LosslessOnly},
                          {"mono12signed", 12, 20, 16, 12, true, 1, EXS_JPEG2000LosslessOnly},
                          {"mono16", 8, 8, 16, 16, false, 1, EXS_JPEG2000LosslessOnly},
                          {"rgb", 10, 14, 8, 8, false, 3, EXS_JPEG2000LosslessOnly},
                          {"lossy", 32, 32, 16, 12, false, 1, EXS_JPEG2000},
                          {"lossy-rgb", 24, 16, 8, 8, false, 3, EXS_JPEG2000}};
    for (const Kind& kind : kinds)
    {
        DcmDataset* ds = generatedImage(kind.rows, kind.columns, kind.bits, kind.stored, kind.isSigned, kind.samples);
        DcmRepresentationParameter* parameter = registry.getRepresentationParameter(*ds, kind.xfer);
        if (ds->chooseRepresentation(kind.xfer, parameter).good())
            seed(dir, std::string("encoded-") + kind.name, codestreamSeed(*ds));
        delete parameter;
        delete ds;
    }
}

// Single objects for fuzz_imgproc: the corpus's images of every encoding, small ones first, and
// a generated image with overlays (separate and embedded) and a private block.
void imgprocSeeds(const std::string& dir, const std::string& scratch)
{
    const char* const objects[] = {"MR_small.dcm", "MR_small_bigendian.dcm", "MR_small_RLE.dcm",
                                   "MR_small_jp2klossless.dcm", "MR_small_jpeg_ls_lossless.dcm", "JPGExtended.dcm",
                                   "SC_rgb_small_odd.dcm", "SC_rgb_small_odd_jpeg.dcm", "SC_ybr_full_422_uncompressed.dcm",
                                   "SC_rgb_rle_16bit_2frame.dcm", "ExplVR_BigEnd.dcm", "rtdose.dcm", "rtdose_expb.dcm",
                                   "liver_1frame.dcm", "image_dfl.dcm", "GDCMJ2K_TextGBR.dcm", "badVR.dcm"};
    for (const char* name : objects)
        seed(dir, name, readFile(corpus(name)));
    DcmFileFormat file;
    DcmDataset* ds = generatedImage(8, 8, 16, 12, true, 1);
    file.getDataset()->copyFrom(*ds);
    delete ds;
    DcmDataset* image = file.getDataset();
    image->putAndInsertString(DCM_NumberOfFrames, "1");
    for (Uint16 group : {Uint16(0x6000), Uint16(0x6002)})
    {
        image->putAndInsertUint16(DcmTagKey(group, 0x0010), 8);
        image->putAndInsertUint16(DcmTagKey(group, 0x0011), 8);
        image->putAndInsertString(DcmTagKey(group, 0x0040), "G");
        image->putAndInsertString(DcmTagKey(group, 0x0050), "1\\1");
        image->putAndInsertUint16(DcmTagKey(group, 0x0100), group == 0x6000 ? 1 : 16);
        image->putAndInsertUint16(DcmTagKey(group, 0x0102), group == 0x6000 ? 0 : 13);
    }
    const Uint8 bits[8] = {0x81, 0x42, 0x24, 0x18, 0x18, 0x24, 0x42, 0x81};
    image->putAndInsertUint8Array(DcmTag(0x6000, 0x3000, EVR_OB), bits, 8);
    image->putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x0010, EVR_LO), KQ_PRIVATE_CREATOR);
    image->putAndInsertString(DcmTag(KQ_PRIVATE_GROUP, 0x101D, EVR_LO), "reference");
    seed(dir, "overlays", saved(file, scratch, EXS_LittleEndianExplicit));
}

// "GW10" streams of small grey, 16-bit and colour images, whole and cut at several budgets.
void gwavSeeds(const std::string& dir)
{
    const struct
    {
        int bytesPerPixel, columns, rows;
    } images[] = {{1, 16, 16}, {2, 33, 20}, {3, 24, 16}, {2, 64, 64}, {1, 1, 7}};
    for (const auto& image : images)
    {
        std::vector<unsigned char> pixels(size_t(image.bytesPerPixel) * image.columns * image.rows);
        for (size_t i = 0; i < pixels.size(); ++i)
            pixels[i] = (unsigned char)((i * 7 + (i / size_t(image.columns)) * 13) ^ (i % 5 == 0 ? 0x40 : 0));
        for (unsigned long budget : {24ul, 200ul, 100000ul})
        {
            std::vector<unsigned char> stream(budget);
            const unsigned long length = gwavcompress(pixels.data(), 12, image.bytesPerPixel, image.columns,
                                                      image.rows, stream.data(), budget);
            seed(dir,
                 "gw" + std::to_string(image.bytesPerPixel) + "-" + std::to_string(image.columns) + "x" +
                     std::to_string(image.rows) + "-" + std::to_string(budget),
                 std::string(stream.begin(), stream.begin() + long(length)));
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        fprintf(stderr, "usage: fuzz_seeds <directory>\n");
        return 1;
    }
    KQDictionary::registerEntries();
    OFLog::configure(OFLogger::FATAL_LOG_LEVEL);
    const std::string out = argv[1];
    const std::string scratch = out + "/.scratch.dcm";
    for (const char* sub : {"", "/kqr", "/compare", "/jpeg2000", "/imgproc", "/gwav"})
        mkdir((out + sub).c_str(), 0755);
    kqrSeeds(out + "/kqr", scratch);
    compareSeeds(out + "/compare", scratch);
    jpeg2000Seeds(out + "/jpeg2000");
    imgprocSeeds(out + "/imgproc", scratch);
    gwavSeeds(out + "/gwav");
    printf("%d seed files written to %s\n", written, out.c_str());
    return written > 0 ? 0 : 1;
}
