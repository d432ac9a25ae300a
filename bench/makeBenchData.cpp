// makeBenchData: writes the benchmark's objects, the same bytes on every run.
//
//   makeBenchData study <dir> <images>        CT images of 512x512 16-bit samples, IM0001...
//   makeBenchData small <dir> <images>        small images of 128x150 16-bit samples (40 KB)
//   makeBenchData mixed <dir> <images>        small images, every tenth a 512x512 CT, and one
//                                             multi-frame object of 40 frames (20 MB)
//   makeBenchData multiframe <file> <frames>  one multi-frame object of 512x512 16-bit frames
//   makeBenchData encapsulated <file> <MiB>   one object of that many MiB of encapsulated
//                                             fragments (1 MiB each, deterministic bytes that no
//                                             run decodes), written piece by piece
//
// The CT images carry the attributes an archive typically holds (patient, study, series,
// equipment, geometry, a few sequences), so that per-attribute costs weigh as they do in
// real studies; samples are a smooth phantom with deterministic noise.

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctk.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

unsigned short ROWS = 512;
unsigned short COLUMNS = 512;
const char* const UID_ROOT = "1.2.826.0.1.3680043.2.1125.9";
const int SERIES_COUNT = 3;

std::string uid(const std::string& tail)
{
    return std::string(UID_ROOT) + "." + tail;
}

// Deterministic noise (a 32-bit linear congruential generator).
struct Noise
{
    Uint32 state;
    explicit Noise(Uint32 seed)
      : state(seed)
    {
    }
    Uint32 next()
    {
        state = state * 1664525u + 1013904223u;
        return state >> 16;
    }
};

void fillFrame(Uint16* samples, Uint32 seed)
{
    Noise noise(seed);
    for (int y = 0; y < ROWS; ++y)
        for (int x = 0; x < COLUMNS; ++x)
        {
            const int dx = x - COLUMNS / 2;
            const int dy = y - ROWS / 2;
            const int r2 = dx * dx + dy * dy;
            int value = r2 < 200 * 200 ? 1000 + (r2 < 60 * 60 ? 300 : 0) : 0;
            value += int(noise.next() % 40);
            samples[y * COLUMNS + x] = Uint16(value);
        }
}

void putString(DcmItem& item, const DcmTagKey& key, const std::string& value)
{
    item.putAndInsertString(key, value.c_str());
}

void putCommon(DcmDataset& ds, const std::string& sopClass, const std::string& sopInstance,
               const std::string& series, int seriesNumber, int instance)
{
    putString(ds, DCM_SpecificCharacterSet, "ISO_IR 100");
    putString(ds, DCM_ImageType, "ORIGINAL\\PRIMARY\\AXIAL");
    putString(ds, DCM_InstanceCreationDate, "20240311");
    putString(ds, DCM_InstanceCreationTime, "101500");
    putString(ds, DCM_SOPClassUID, sopClass);
    putString(ds, DCM_SOPInstanceUID, sopInstance);
    putString(ds, DCM_StudyDate, "20240311");
    putString(ds, DCM_SeriesDate, "20240311");
    putString(ds, DCM_AcquisitionDate, "20240311");
    putString(ds, DCM_ContentDate, "20240311");
    putString(ds, DCM_StudyTime, "101010");
    putString(ds, DCM_SeriesTime, "101200");
    putString(ds, DCM_AcquisitionTime, "101300.250000");
    putString(ds, DCM_ContentTime, "101300.250000");
    putString(ds, DCM_AccessionNumber, "ACC20240311001");
    putString(ds, DCM_Modality, "CT");
    putString(ds, DCM_Manufacturer, "Bench Imaging Systems");
    putString(ds, DCM_InstitutionName, "Bench General Hospital");
    putString(ds, DCM_InstitutionAddress, "1 Benchmark Road\\Testtown");
    putString(ds, DCM_ReferringPhysicianName, "Referrer^Robert^^Dr.");
    putString(ds, DCM_StationName, "CTBENCH01");
    putString(ds, DCM_StudyDescription, "CT THORAX ABDOMEN WITH CONTRAST");
    putString(ds, DCM_SeriesDescription, "Thorax 1.0 B30f");
    putString(ds, DCM_OperatorsName, "Tech^Tina");
    putString(ds, DCM_ManufacturerModelName, "Bench CT 128");

    DcmItem* code = NULL;
    if (ds.findOrCreateSequenceItem(DCM_ProcedureCodeSequence, code, 0).good())
    {
        putString(*code, DCM_CodeValue, "CTTHAB");
        putString(*code, DCM_CodingSchemeDesignator, "99BENCH");
        putString(*code, DCM_CodeMeaning, "CT Thorax Abdomen");
    }
    DcmItem* reference = NULL;
    if (instance > 1 && ds.findOrCreateSequenceItem(DCM_ReferencedImageSequence, reference, 0).good())
    {
        putString(*reference, DCM_ReferencedSOPClassUID, sopClass);
        putString(*reference, DCM_ReferencedSOPInstanceUID,
                  uid("3." + std::to_string(seriesNumber) + "." + std::to_string(instance - 1)));
    }

    putString(ds, DCM_PatientName, "Bench^Patient^Middle");
    putString(ds, DCM_PatientID, "BENCH0001");
    putString(ds, DCM_IssuerOfPatientID, "BENCHHOSP");
    putString(ds, DCM_PatientBirthDate, "19600229");
    putString(ds, DCM_PatientSex, "O");
    putString(ds, DCM_PatientAge, "064Y");
    putString(ds, DCM_PatientWeight, "72.5");
    putString(ds, DCM_BodyPartExamined, "CHEST");
    putString(ds, DCM_SliceThickness, "1.0");
    putString(ds, DCM_KVP, "120");
    putString(ds, DCM_DataCollectionDiameter, "500");
    putString(ds, DCM_DeviceSerialNumber, "SN-000042");
    putString(ds, DCM_SoftwareVersions, "BENCH 1.0");
    putString(ds, DCM_ProtocolName, "Thorax Abdomen Routine");
    putString(ds, DCM_ReconstructionDiameter, "380");
    putString(ds, DCM_DistanceSourceToDetector, "1040");
    putString(ds, DCM_DistanceSourceToPatient, "570");
    putString(ds, DCM_GantryDetectorTilt, "0");
    putString(ds, DCM_TableHeight, "160");
    putString(ds, DCM_RotationDirection, "CW");
    putString(ds, DCM_ExposureTime, "500");
    putString(ds, DCM_XRayTubeCurrent, "210");
    putString(ds, DCM_Exposure, "105");
    putString(ds, DCM_FilterType, "FLAT");
    putString(ds, DCM_ConvolutionKernel, "B30f");
    putString(ds, DCM_PatientPosition, "HFS");
    putString(ds, DCM_StudyInstanceUID, uid("1"));
    putString(ds, DCM_SeriesInstanceUID, series);
    putString(ds, DCM_StudyID, "1");
    putString(ds, DCM_SeriesNumber, std::to_string(seriesNumber));
    putString(ds, DCM_AcquisitionNumber, "1");
    putString(ds, DCM_InstanceNumber, std::to_string(instance));
    putString(ds, DCM_FrameOfReferenceUID, uid("2"));
    putString(ds, DCM_PositionReferenceIndicator, "SN");
    putString(ds, DCM_ImageOrientationPatient, "1\\0\\0\\0\\1\\0");

    ds.putAndInsertUint16(DCM_SamplesPerPixel, 1);
    putString(ds, DCM_PhotometricInterpretation, "MONOCHROME2");
    ds.putAndInsertUint16(DCM_Rows, ROWS);
    ds.putAndInsertUint16(DCM_Columns, COLUMNS);
    putString(ds, DCM_PixelSpacing, "0.7421875\\0.7421875");
    ds.putAndInsertUint16(DCM_BitsAllocated, 16);
    ds.putAndInsertUint16(DCM_BitsStored, 12);
    ds.putAndInsertUint16(DCM_HighBit, 11);
    ds.putAndInsertUint16(DCM_PixelRepresentation, 0);
    putString(ds, DCM_WindowCenter, "40\\300");
    putString(ds, DCM_WindowWidth, "400\\1500");
    putString(ds, DCM_RescaleIntercept, "-1024");
    putString(ds, DCM_RescaleSlope, "1");
    putString(ds, DCM_RescaleType, "HU");
}

bool save(DcmFileFormat& file, const std::string& path)
{
    const OFCondition status =
        file.saveFile(path.c_str(), EXS_LittleEndianExplicit, EET_ExplicitLength, EGL_recalcGL, EPD_noChange, 0, 0,
                      EWM_createNewMeta);
    if (status.bad())
    {
        fprintf(stderr, "makeBenchData: cannot write %s [%s]\n", path.c_str(), status.text());
        return false;
    }
    return true;
}

int writeStudy(const std::string& dir, int images)
{
    if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST)
    {
        fprintf(stderr, "makeBenchData: cannot create %s\n", dir.c_str());
        return 1;
    }
    const unsigned long samples = OFstatic_cast(unsigned long, ROWS) * COLUMNS;
    for (int i = 1; i <= images; ++i)
    {
        const int seriesNumber = 1 + (i - 1) * SERIES_COUNT / images;
        DcmFileFormat file;
        DcmDataset& ds = *file.getDataset();
        const std::string sopInstance = uid("3." + std::to_string(seriesNumber) + "." + std::to_string(i));
        putCommon(ds, UID_CTImageStorage, sopInstance, uid("2." + std::to_string(seriesNumber)), seriesNumber, i);
        char position[64];
        snprintf(position, sizeof(position), "-190\\-190\\%.1f", -300.0 + i);
        putString(ds, DCM_ImagePositionPatient, position);
        snprintf(position, sizeof(position), "%.1f", -300.0 + i);
        putString(ds, DCM_SliceLocation, position);

        Uint16* pixels = NULL;
        DcmPixelData* pixelData = new DcmPixelData(DCM_PixelData);
        if (pixelData->createUint16Array(samples, pixels).bad() || ds.insert(pixelData).bad())
            return 1;
        fillFrame(pixels, Uint32(i));

        char name[32];
        snprintf(name, sizeof(name), "/IM%04d", i);
        if (!save(file, dir + name))
            return 1;
    }
    return 0;
}

int writeMultiframe(const std::string& path, unsigned long frames)
{
    DcmFileFormat file;
    DcmDataset& ds = *file.getDataset();
    putCommon(ds, UID_MultiframeGrayscaleWordSecondaryCaptureImageStorage, uid("4.1"), uid("2.4"), 4, 1);
    putString(ds, DCM_NumberOfFrames, std::to_string(frames));

    const unsigned long frameSamples = OFstatic_cast(unsigned long, ROWS) * COLUMNS;
    Uint16* pixels = NULL;
    DcmPixelData* pixelData = new DcmPixelData(DCM_PixelData);
    if (pixelData->createUint16Array(frameSamples * frames, pixels).bad() || ds.insert(pixelData).bad())
    {
        fprintf(stderr, "makeBenchData: cannot allocate %lu frames\n", frames);
        return 1;
    }
    for (unsigned long f = 0; f < frames; ++f)
        fillFrame(pixels + f * frameSamples, Uint32(1000 + f));
    return save(file, path) ? 0 : 1;
}

// A study of small images; with mixed, every tenth is a full CT image and one multi-frame object
// of 40 frames goes with them.
int writeSmallStudy(const std::string& dir, int images, bool mixed)
{
    for (int i = 1; i <= images; ++i)
    {
        const bool large = mixed && i % 10 == 0;
        ROWS = large ? 512 : 150;
        COLUMNS = large ? 512 : 128;
        const std::string one = dir + ".one";
        if (writeStudy(one, 1) != 0)
            return 1;
        char name[32];
        snprintf(name, sizeof(name), "/IM%04d", i);
        DcmFileFormat file;
        if (file.loadFile((one + "/IM0001").c_str()).bad())
            return 1;
        DcmDataset& ds = *file.getDataset();
        putString(ds, DCM_SOPInstanceUID, uid("5." + std::to_string(i)));
        putString(ds, DCM_InstanceNumber, std::to_string(i));
        if (!save(file, dir + name))
            return 1;
        remove((one + "/IM0001").c_str());
        rmdir(one.c_str());
    }
    ROWS = COLUMNS = 512;
    return mixed ? writeMultiframe(dir + "/MF0001", 40) : 0;
}

// An encapsulated object written piece by piece: its attributes through the toolkit, then the
// pixel data element of undefined length, an empty offset table and one fragment per MiB.
int writeEncapsulated(const std::string& path, unsigned long mebibytes)
{
    DcmFileFormat file;
    DcmDataset& ds = *file.getDataset();
    putCommon(ds, UID_MultiframeGrayscaleWordSecondaryCaptureImageStorage, uid("6.1"), uid("2.6"), 6, 1);
    putString(ds, DCM_NumberOfFrames, std::to_string(mebibytes));
    if (file.saveFile(path.c_str(), EXS_JPEG2000LosslessOnly).bad())
    {
        fprintf(stderr, "makeBenchData: cannot write %s\n", path.c_str());
        return 1;
    }
    FILE* out = fopen(path.c_str(), "ab");
    if (!out)
        return 1;
    const unsigned char header[] = {0xe0, 0x7f, 0x10, 0x00, 'O', 'B', 0, 0, 0xff, 0xff, 0xff, 0xff,
                                    0xfe, 0xff, 0x00, 0xe0, 0, 0, 0, 0};
    bool ok = fwrite(header, 1, sizeof(header), out) == sizeof(header);
    const Uint32 fragment = 1u << 20;
    std::string bytes(fragment, '\0');
    Noise noise(7);
    for (unsigned long f = 0; ok && f < mebibytes; ++f)
    {
        for (size_t i = 0; i < bytes.size(); i += 2)
            bytes[i] = char(noise.next());
        const unsigned char item[] = {0xfe, 0xff, 0x00, 0xe0, Uint8(fragment), Uint8(fragment >> 8),
                                      Uint8(fragment >> 16), Uint8(fragment >> 24)};
        ok = fwrite(item, 1, sizeof(item), out) == sizeof(item) && fwrite(bytes.data(), 1, fragment, out) == fragment;
    }
    const unsigned char end[] = {0xfe, 0xff, 0xdd, 0xe0, 0, 0, 0, 0};
    ok = ok && fwrite(end, 1, sizeof(end), out) == sizeof(end);
    return fclose(out) == 0 && ok ? 0 : 1;
}

int usage()
{
    fprintf(stderr, "makeBenchData { study | small | mixed } <dir> <images>\n"
                    "makeBenchData multiframe <file> <frames> | makeBenchData encapsulated <file> <MiB>\n");
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
        return usage();
    const long count = strtol(argv[3], NULL, 10);
    if (count <= 0)
        return usage();
    if (strcmp(argv[1], "study") == 0)
        return writeStudy(argv[2], int(count));
    if (strcmp(argv[1], "small") == 0 || strcmp(argv[1], "mixed") == 0)
        return mkdir(argv[2], 0755) == 0 || errno == EEXIST ? writeSmallStudy(argv[2], int(count), argv[1][0] == 'm')
                                                            : 1;
    if (strcmp(argv[1], "encapsulated") == 0)
        return writeEncapsulated(argv[2], OFstatic_cast(unsigned long, count));
    if (strcmp(argv[1], "multiframe") == 0)
        return writeMultiframe(argv[2], OFstatic_cast(unsigned long, count));
    return usage();
}
