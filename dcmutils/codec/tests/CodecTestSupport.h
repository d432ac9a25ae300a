// Images for the codec tests: generated pixel data of any layout, and the pixel bytes of a dataset.
#ifndef CODECTESTSUPPORT_H
#define CODECTESTSUPPORT_H

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctk.h"
#include "dcmtk/dcmdata/dcpxitem.h"

#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace codectest {

struct ImageLayout
{
    ImageLayout(Uint16 rows_ = 64, Uint16 columns_ = 48, Uint16 samples_ = 1, Uint16 allocated_ = 16,
                Uint16 stored_ = 12, bool signed_ = false, Uint16 planar_ = 0, unsigned frames_ = 1,
                const char* photometric_ = "", int noise_ = 0)
    : rows(rows_), columns(columns_), samplesPerPixel(samples_), bitsAllocated(allocated_), bitsStored(stored_),
      isSigned(signed_), planarConfiguration(planar_), frames(frames_), photometric(photometric_), noise(noise_)
    {
    }
    Uint16 rows, columns, samplesPerPixel, bitsAllocated, bitsStored;
    bool isSigned;
    Uint16 planarConfiguration;
    unsigned int frames;
    std::string photometric; // empty: MONOCHROME2 or RGB
    int noise;               // noise on top of the smooth image, in sample units
};

// Sample values over the whole stored range, colour-by-pixel: a gradient, rings, the extremes
// in two corners, optional deterministic noise.
inline std::vector<int> sampleValues(const ImageLayout& layout)
{
    const int bits = layout.bitsStored;
    const int minValue = layout.isSigned ? -(1 << (bits - 1)) : 0;
    const int maxValue = layout.isSigned ? (1 << (bits - 1)) - 1 : (1 << bits) - 1;
    const double span = double(maxValue) - double(minValue);
    std::vector<int> values;
    uint32_t state = 12345u + layout.rows * 7u + layout.bitsStored;
    for (unsigned int f = 0; f < layout.frames; ++f)
        for (Uint16 y = 0; y < layout.rows; ++y)
            for (Uint16 x = 0; x < layout.columns; ++x)
                for (Uint16 s = 0; s < layout.samplesPerPixel; ++s)
                {
                    const double g = (double(x) / layout.columns + double(y) / layout.rows) / 2.0;
                    const double r = std::sin((x * x + y * y) / (40.0 + 10.0 * s + 5.0 * f)) * 0.2;
                    double v = minValue + span * (0.2 + 0.7 * g + r);
                    state = state * 1664525u + 1013904223u;
                    if (layout.noise > 0)
                        v += int((state >> 8) % (2 * layout.noise + 1)) - layout.noise;
                    int value = y == 0 && x == 0 ? minValue : y == 0 && x + 1 == layout.columns ? maxValue : int(v);
                    values.push_back(std::min(maxValue, std::max(minValue, value)));
                }
    return values;
}

// Stored bytes of the values in the layout's layout (two's complement, little endian words).
inline std::vector<Uint8> storedBytes(const ImageLayout& layout, const std::vector<int>& values)
{
    const size_t pixels = size_t(layout.rows) * layout.columns, spp = layout.samplesPerPixel;
    const size_t bytes = layout.bitsAllocated / 8;
    std::vector<Uint8> out(values.size() * bytes);
    for (size_t i = 0; i < values.size(); ++i)
    {
        const size_t within = i % (pixels * spp); // colour-by-plane moves the samples
        const size_t index = layout.planarConfiguration == 1 ? i - within + (within % spp) * pixels + within / spp : i;
        for (size_t b = 0; b < bytes; ++b)
            out[index * bytes + b] = Uint8(values[i] >> (8 * b));
    }
    return out;
}

inline DcmFileFormat* makeImage(const ImageLayout& layout)
{
    DcmFileFormat* file = new DcmFileFormat();
    DcmDataset* ds = file->getDataset();
    ds->putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    ds->putAndInsertString(DCM_SOPInstanceUID, "1.2.826.0.1.3680043.2.1125.9.1");
    const std::string photometric =
        !layout.photometric.empty() ? layout.photometric : (layout.samplesPerPixel == 3 ? "RGB" : "MONOCHROME2");
    ds->putAndInsertUint16(DCM_SamplesPerPixel, layout.samplesPerPixel);
    ds->putAndInsertString(DCM_PhotometricInterpretation, photometric.c_str());
    if (layout.samplesPerPixel == 3)
        ds->putAndInsertUint16(DCM_PlanarConfiguration, layout.planarConfiguration);
    if (layout.frames > 1)
        ds->putAndInsertString(DCM_NumberOfFrames, std::to_string(layout.frames).c_str());
    ds->putAndInsertUint16(DCM_Rows, layout.rows);
    ds->putAndInsertUint16(DCM_Columns, layout.columns);
    ds->putAndInsertUint16(DCM_BitsAllocated, layout.bitsAllocated);
    ds->putAndInsertUint16(DCM_BitsStored, layout.bitsStored);
    ds->putAndInsertUint16(DCM_HighBit, Uint16(layout.bitsStored - 1));
    ds->putAndInsertUint16(DCM_PixelRepresentation, layout.isSigned ? 1 : 0);
    const std::vector<Uint8> bytes = storedBytes(layout, sampleValues(layout));
    if (layout.bitsAllocated == 8)
        ds->putAndInsertUint8Array(DCM_PixelData, bytes.data(), bytes.size());
    else // little endian words, as the machines this runs on hold them
        ds->putAndInsertUint16Array(DCM_PixelData, reinterpret_cast<const Uint16*>(bytes.data()), bytes.size() / 2);
    return file;
}

// The uncompressed pixel data of a dataset as little endian bytes, colour-by-pixel (decoding it
// if needed), without a padding byte; empty when it cannot be had.
inline std::vector<Uint8> pixelBytes(DcmDataset& ds)
{
    std::vector<Uint8> out;
    DcmElement* element = NULL;
    if (ds.chooseRepresentation(EXS_LittleEndianExplicit, NULL).bad() ||
        ds.findAndGetElement(DCM_PixelData, element).bad())
        return out;
    Uint16 bitsAllocated = 0, rows = 0, columns = 0, spp = 0, planar = 0;
    ds.findAndGetUint16(DCM_BitsAllocated, bitsAllocated);
    ds.findAndGetUint16(DCM_Rows, rows);
    ds.findAndGetUint16(DCM_Columns, columns);
    ds.findAndGetUint16(DCM_SamplesPerPixel, spp);
    ds.findAndGetUint16(DCM_PlanarConfiguration, planar);
    Sint32 frames = 1;
    if (ds.findAndGetSint32(DCM_NumberOfFrames, frames).bad() || frames < 1)
        frames = 1;
    const size_t pixels = size_t(rows) * columns, sampleSize = bitsAllocated / 8;
    const size_t size = pixels * spp * frames * sampleSize;
    Uint8* bytes = NULL; // words in the local byte order: little endian on the machines this runs on
    if (element->getLength() < size || element->getUint8Array(bytes).bad() || bytes == NULL)
        return out;
    out.assign(bytes, bytes + size);
    if (spp == 1 || planar != 1)
        return out;
    std::vector<Uint8> interleaved(out.size());
    for (size_t i = 0; i < size; ++i) // i: byte b of sample s of pixel p in frame f, by plane
    {
        const size_t b = i % sampleSize, s = i / sampleSize / pixels % spp, p = i / sampleSize % pixels;
        interleaved[i - i % (pixels * spp * sampleSize) + (p * spp + s) * sampleSize + b] = out[i];
    }
    return interleaved;
}

// The pixel sequence of the dataset's current representation, or null when the pixel data is
// not encapsulated (owned by the dataset).
inline DcmPixelSequence* pixelSequence(DcmDataset& ds)
{
    DcmElement* element = NULL;
    E_TransferSyntax xfer = EXS_Unknown;
    const DcmRepresentationParameter* param = NULL;
    DcmPixelSequence* sequence = NULL;
    if (ds.findAndGetElement(DCM_PixelData, element).bad())
        return NULL;
    DcmPixelData* pixelData = static_cast<DcmPixelData*>(element);
    pixelData->getCurrentRepresentationKey(xfer, param);
    return pixelData->getEncapsulatedRepresentation(xfer, param, sequence).good() ? sequence : NULL;
}

// Fragment i (1: the first) of the object's pixel sequence, or null.
inline DcmPixelItem* fragment(DcmFileFormat& file, unsigned long i = 1)
{
    DcmPixelSequence* sequence = pixelSequence(*file.getDataset());
    DcmPixelItem* item = NULL;
    return sequence != NULL && sequence->getItem(item, i).good() ? item : NULL;
}

// A corpus file, or null when it does not load.
inline std::unique_ptr<DcmFileFormat> load(const std::string& path)
{
    std::unique_ptr<DcmFileFormat> file(new DcmFileFormat());
    return file->loadFile(path.c_str()).good() ? std::move(file) : nullptr;
}

// Decodes frame no of the object from the given start fragment (0: found by the decoder).
inline OFCondition decodeFrame(DcmFileFormat& file, Uint32 no, std::vector<Uint8>& frame, Uint32 start = 0,
                               OFString* colourModel = NULL)
{
    DcmElement* element = NULL;
    Uint32 size = 0;
    OFString local;
    OFString& model = colourModel ? *colourModel : local;
    DcmDataset* ds = file.getDataset();
    if (ds->findAndGetElement(DCM_PixelData, element).bad())
        return EC_TagNotFound;
    DcmPixelData* pixels = static_cast<DcmPixelData*>(element);
    const OFCondition cond = pixels->getUncompressedFrameSize(ds, size);
    frame.resize(size);
    return cond.bad() ? cond : pixels->getUncompressedFrame(ds, no, start, frame.data(), size, model);
}

} // namespace codectest

#endif
