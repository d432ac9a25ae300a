#include "gwav/DicomFrame.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcpixel.h"

#include <cstring>

namespace {

std::string why(const OFCondition& condition, const std::string& what)
{
    return what + " [" + condition.text() + "]";
}

} // namespace

bool readDicomFrame(const std::string& path, unsigned long frame, RasterImage& image, std::string& error)
{
    DcmFileFormat file;
    OFCondition condition = file.loadFile(path.c_str());
    if (condition.bad())
    {
        error = why(condition, "cannot read DICOM file " + path);
        return false;
    }
    DcmDataset* dataset = file.getDataset();
    Uint16 rows = 0, columns = 0, bitsAllocated = 0, bitsStored = 0, representation = 0, samples = 1, planar = 0;
    dataset->findAndGetUint16(DCM_Rows, rows);
    dataset->findAndGetUint16(DCM_Columns, columns);
    dataset->findAndGetUint16(DCM_BitsAllocated, bitsAllocated);
    dataset->findAndGetUint16(DCM_BitsStored, bitsStored);
    dataset->findAndGetUint16(DCM_PixelRepresentation, representation);
    dataset->findAndGetUint16(DCM_SamplesPerPixel, samples);
    dataset->findAndGetUint16(DCM_PlanarConfiguration, planar);
    Sint32 frames = 1;
    if (dataset->findAndGetSint32(DCM_NumberOfFrames, frames).bad() || frames < 1)
        frames = 1;
    DcmElement* element = nullptr;
    if (dataset->findAndGetElement(DCM_PixelData, element).bad() || element == nullptr)
    {
        error = "no pixel data in " + path;
        return false;
    }
    const bool grey = samples == 1 && (bitsAllocated == 8 || bitsAllocated == 16);
    const bool colour = samples == 3 && bitsAllocated == 8;
    if (rows == 0 || columns == 0 || (!grey && !colour))
    {
        error = "unsupported image (" + std::to_string(columns) + " x " + std::to_string(rows) + ", " +
                std::to_string(samples) + " samples of " + std::to_string(bitsAllocated) + " bits) in " + path;
        return false;
    }
    if (frame < 1 || frame > (unsigned long)frames)
    {
        error = "no frame " + std::to_string(frame) + " in " + path + " (it has " + std::to_string(frames) + ")";
        return false;
    }
    if (bitsStored == 0 || bitsStored > bitsAllocated)
        bitsStored = bitsAllocated;

    DcmPixelData* pixelData = static_cast<DcmPixelData*>(element);
    Uint32 frameSize = 0;
    condition = pixelData->getUncompressedFrameSize(dataset, frameSize);
    const int bytesPerPixel = colour ? 3 : bitsAllocated / 8;
    const size_t expected = size_t(rows) * columns * size_t(bytesPerPixel);
    if (condition.good() && frameSize < expected)
        condition = EC_InvalidValue;
    if (condition.bad())
    {
        error = why(condition, "cannot size the frames of " + path);
        return false;
    }
    std::vector<unsigned char> buffer(frameSize + (frameSize & 1));
    Uint32 startFragment = 0;
    OFString colourModel;
    condition = pixelData->getUncompressedFrame(dataset, Uint32(frame - 1), startFragment, buffer.data(),
                                                Uint32(buffer.size()), colourModel);
    if (condition.bad())
    {
        error = why(condition, "cannot decode frame " + std::to_string(frame) + " of " + path);
        return false;
    }

    const bool isSigned = representation == 1;
    RasterImage result(bytesPerPixel, columns, rows, bitsStored | (isSigned && !colour ? RasterImage::SIGNED : 0));
    const size_t count = size_t(rows) * columns;
    unsigned char* out = result.pixels();
    if (colour)
    {
        if (planar == 1)
            for (size_t i = 0; i < count; ++i)
                for (int c = 0; c < 3; ++c)
                    out[3 * i + c] = buffer[c * count + i];
        else
            memcpy(out, buffer.data(), expected);
    }
    else if (bitsAllocated == 8)
    {
        const unsigned mask = (1u << bitsStored) - 1;
        for (size_t i = 0; i < count; ++i)
            out[i] = (unsigned char)(buffer[i] & mask);
    }
    else
    {
        // the buffer holds the frame's 16-bit words in the machine's byte order
        const uint32_t mask = (uint32_t(1) << bitsStored) - 1;
        const uint32_t sign = uint32_t(1) << (bitsStored - 1);
        for (size_t i = 0; i < count; ++i)
        {
            uint16_t word;
            memcpy(&word, &buffer[2 * i], 2);
            uint32_t value = word & mask;
            if (isSigned && (value & sign))
                value |= ~mask; // sign extension within 16 bits
            const uint16_t sample = uint16_t(value);
            memcpy(&out[2 * i], &sample, 2);
        }
    }
    image = std::move(result);
    return true;
}
