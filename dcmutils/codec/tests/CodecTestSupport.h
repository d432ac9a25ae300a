// Images for the codec tests: generated pixel data of any layout, and the uncompressed pixel
// bytes of a dataset.
#ifndef CODECTESTSUPPORT_H
#define CODECTESTSUPPORT_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcpixseq.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace codectest {

struct ImageSpec
{
    ImageSpec(Uint16 rows_ = 64, Uint16 columns_ = 48, Uint16 samplesPerPixel_ = 1, Uint16 bitsAllocated_ = 16,
              Uint16 bitsStored_ = 12, bool isSigned_ = false, Uint16 planarConfiguration_ = 0,
              unsigned int frames_ = 1, const std::string& photometric_ = std::string(), int noise_ = 0)
    : rows(rows_)
    , columns(columns_)
    , samplesPerPixel(samplesPerPixel_)
    , bitsAllocated(bitsAllocated_)
    , bitsStored(bitsStored_)
    , isSigned(isSigned_)
    , planarConfiguration(planarConfiguration_)
    , frames(frames_)
    , photometric(photometric_)
    , noise(noise_)
    {
    }

    Uint16 rows;
    Uint16 columns;
    Uint16 samplesPerPixel;
    Uint16 bitsAllocated;
    Uint16 bitsStored;
    bool isSigned;
    Uint16 planarConfiguration;
    unsigned int frames;
    std::string photometric; // empty: MONOCHROME2 or RGB
    // 0: smooth image with structure; larger: that much noise on top (in sample units)
    int noise;
    std::string modality = "CT";
};

// Deterministic pseudo-random numbers.
inline uint32_t nextRandom(uint32_t& state)
{
    state = state * 1664525u + 1013904223u;
    return state >> 8;
}

// Sample values over the whole stored range: a gradient, rings, the extreme values in the
// corners, optional noise.
inline std::vector<int> sampleValues(const ImageSpec& spec)
{
    const int bits = spec.bitsStored;
    const int minValue = spec.isSigned ? -(1 << (bits - 1)) : 0;
    const int maxValue = spec.isSigned ? (1 << (bits - 1)) - 1 : (1 << bits) - 1;
    const double span = double(maxValue) - double(minValue);
    std::vector<int> values;
    uint32_t state = 12345u + spec.rows * 7u + spec.bitsStored;
    for (unsigned int f = 0; f < spec.frames; ++f)
        for (Uint16 y = 0; y < spec.rows; ++y)
            for (Uint16 x = 0; x < spec.columns; ++x)
                for (Uint16 s = 0; s < spec.samplesPerPixel; ++s)
                {
                    const double g = (double(x) / spec.columns + double(y) / spec.rows) / 2.0;
                    const double r = std::sin((x * x + y * y) / (40.0 + 10.0 * s + 5.0 * f)) * 0.2;
                    double v = minValue + span * (0.1 + 0.7 * g + r + 0.1);
                    if (spec.noise > 0)
                        v += int(nextRandom(state) % (2 * spec.noise + 1)) - spec.noise;
                    int value = int(v);
                    if ((x == 0 && y == 0) || (x + 1 == spec.columns && y == 0))
                        value = (x == 0) ? minValue : maxValue;
                    if (value < minValue)
                        value = minValue;
                    if (value > maxValue)
                        value = maxValue;
                    values.push_back(value);
                }
    return values;
}

// Stored bytes of the values in the spec's layout (two's complement, little endian words).
inline std::vector<Uint8> storedBytes(const ImageSpec& spec, const std::vector<int>& values)
{
    const size_t pixels = size_t(spec.rows) * spec.columns;
    const size_t spp = spec.samplesPerPixel;
    const size_t bytes = spec.bitsAllocated / 8;
    std::vector<Uint8> out(values.size() * bytes);
    for (size_t i = 0; i < values.size(); ++i)
    {
        // values are pixel-interleaved; colour-by-plane moves them
        size_t index = i;
        if (spp > 1 && spec.planarConfiguration == 1)
        {
            const size_t frame = i / (pixels * spp);
            const size_t within = i % (pixels * spp);
            index = frame * pixels * spp + (within % spp) * pixels + within / spp;
        }
        const unsigned int v = unsigned(values[i]);
        out[index * bytes] = Uint8(v & 0xFF);
        if (bytes == 2)
            out[index * bytes + 1] = Uint8((v >> 8) & 0xFF);
    }
    return out;
}

inline DcmFileFormat* makeImage(const ImageSpec& spec)
{
    DcmFileFormat* file = new DcmFileFormat();
    DcmDataset* ds = file->getDataset();
    ds->putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    ds->putAndInsertString(DCM_SOPInstanceUID, "1.2.826.0.1.3680043.2.1125.9.1");
    ds->putAndInsertString(DCM_StudyInstanceUID, "1.2.826.0.1.3680043.2.1125.9");
    ds->putAndInsertString(DCM_SeriesInstanceUID, "1.2.826.0.1.3680043.2.1125.9.2");
    ds->putAndInsertString(DCM_PatientName, "Codec^Test");
    if (!spec.modality.empty())
        ds->putAndInsertString(DCM_Modality, spec.modality.c_str());
    const std::string photometric =
        !spec.photometric.empty() ? spec.photometric : (spec.samplesPerPixel == 3 ? "RGB" : "MONOCHROME2");
    ds->putAndInsertUint16(DCM_SamplesPerPixel, spec.samplesPerPixel);
    ds->putAndInsertString(DCM_PhotometricInterpretation, photometric.c_str());
    if (spec.samplesPerPixel == 3)
        ds->putAndInsertUint16(DCM_PlanarConfiguration, spec.planarConfiguration);
    if (spec.frames > 1)
        ds->putAndInsertString(DCM_NumberOfFrames, std::to_string(spec.frames).c_str());
    ds->putAndInsertUint16(DCM_Rows, spec.rows);
    ds->putAndInsertUint16(DCM_Columns, spec.columns);
    ds->putAndInsertUint16(DCM_BitsAllocated, spec.bitsAllocated);
    ds->putAndInsertUint16(DCM_BitsStored, spec.bitsStored);
    ds->putAndInsertUint16(DCM_HighBit, Uint16(spec.bitsStored - 1));
    ds->putAndInsertUint16(DCM_PixelRepresentation, spec.isSigned ? 1 : 0);
    const std::vector<Uint8> bytes = storedBytes(spec, sampleValues(spec));
    if (spec.bitsAllocated == 8)
        ds->putAndInsertUint8Array(DCM_PixelData, bytes.data(), bytes.size());
    else
    {
        std::vector<Uint16> words(bytes.size() / 2);
        for (size_t i = 0; i < words.size(); ++i)
            words[i] = Uint16(bytes[2 * i] | (bytes[2 * i + 1] << 8));
        ds->putAndInsertUint16Array(DCM_PixelData, words.data(), words.size());
    }
    return file;
}

// The uncompressed pixel data of a dataset as little endian bytes (decoding it if needed),
// without a padding byte; empty when it cannot be had.
inline std::vector<Uint8> pixelBytes(DcmDataset& ds)
{
    std::vector<Uint8> out;
    if (ds.chooseRepresentation(EXS_LittleEndianExplicit, NULL).bad())
        return out;
    DcmElement* element = NULL;
    if (ds.findAndGetElement(DCM_PixelData, element).bad())
        return out;
    Uint16 bitsAllocated = 0;
    Uint16 rows = 0, columns = 0, spp = 0;
    ds.findAndGetUint16(DCM_BitsAllocated, bitsAllocated);
    ds.findAndGetUint16(DCM_Rows, rows);
    ds.findAndGetUint16(DCM_Columns, columns);
    ds.findAndGetUint16(DCM_SamplesPerPixel, spp);
    Sint32 frames = 1;
    if (ds.findAndGetSint32(DCM_NumberOfFrames, frames).bad() || frames < 1)
        frames = 1;
    const size_t size = size_t(rows) * columns * spp * frames * (bitsAllocated / 8);
    if (bitsAllocated == 8)
    {
        Uint8* data = NULL;
        if (element->getUint8Array(data).bad() || data == NULL || element->getLength() < size)
            return out;
        out.assign(data, data + size);
    }
    else
    {
        Uint16* data = NULL;
        if (element->getUint16Array(data).bad() || data == NULL || element->getLength() < size)
            return out;
        for (size_t i = 0; i < size / 2; ++i)
        {
            out.push_back(Uint8(data[i] & 0xFF));
            out.push_back(Uint8(data[i] >> 8));
        }
    }
    return out;
}

inline std::string stringOf(DcmItem& item, const DcmTagKey& key)
{
    OFString value;
    if (item.findAndGetOFStringArray(key, value).bad())
        return "<missing>";
    return value.c_str();
}

// The pixel sequence of the dataset's current representation, or null when the pixel data is
// not encapsulated (owned by the dataset).
inline DcmPixelSequence* pixelSequence(DcmDataset& ds)
{
    DcmElement* element = NULL;
    if (ds.findAndGetElement(DCM_PixelData, element).bad())
        return NULL;
    DcmPixelData* pixelData = static_cast<DcmPixelData*>(element);
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* param = NULL;
    DcmPixelSequence* sequence = NULL;
    pixelData->getCurrentRepresentationKey(xfer, param);
    if (pixelData->getEncapsulatedRepresentation(xfer, param, sequence).bad())
        return NULL;
    return sequence;
}

// Total size of the compressed fragments (without the offset table).
inline size_t compressedSize(DcmDataset& ds)
{
    DcmPixelSequence* sequence = pixelSequence(ds);
    size_t total = 0;
    for (unsigned long i = 1; sequence != NULL && i < sequence->card(); ++i)
    {
        DcmPixelItem* item = NULL;
        if (sequence->getItem(item, i).good())
            total += item->getLength();
    }
    return total;
}

} // namespace codectest

#endif
