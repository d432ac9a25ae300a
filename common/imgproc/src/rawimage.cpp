#include "common/imgproc/src/rawimage.h"
#include "common/imgproc/src/imagememory.h"
#include "common/imgproc/src/imageprocess.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

// Reads sample i of width bytes (1, 2 or 4) as a signed or unsigned value.
inline int64_t readSample(const unsigned char* data, unsigned long i, unsigned int width, bool isSigned)
{
    switch (width)
    {
    case 1:
        return isSigned ? int64_t(int8_t(data[i])) : int64_t(data[i]);
    case 2:
    {
        uint16_t v;
        memcpy(&v, data + 2 * i, 2);
        return isSigned ? int64_t(int16_t(v)) : int64_t(v);
    }
    default:
    {
        uint32_t v;
        memcpy(&v, data + 4 * i, 4);
        return isSigned ? int64_t(int32_t(v)) : int64_t(v);
    }
    }
}

inline void writeSample(unsigned char* data, unsigned long i, unsigned int width, int64_t value)
{
    switch (width)
    {
    case 1:
        data[i] = uint8_t(value);
        break;
    case 2:
    {
        const uint16_t v = uint16_t(value);
        memcpy(data + 2 * i, &v, 2);
        break;
    }
    default:
    {
        const uint32_t v = uint32_t(value);
        memcpy(data + 4 * i, &v, 4);
        break;
    }
    }
}

} // namespace

CRawImage::CRawImage(CImageProcess* process, int frameNumber)
  : CExtractedData(process, EXTRACTED_RAW_IMAGE)
  , m_frameNumber(frameNumber)
  , m_rows(0)
  , m_columns(0)
  , m_samplesPerPixel(1)
  , m_bitsAllocated(0)
  , m_bitsStored(0)
  , m_highBit(0)
  , m_bytesPerSample(1)
  , m_planarConfiguration(0)
  , m_signed(false)
  , m_monochrome1(false)
  , m_photometric(PHOTOMETRIC_MONOCHROME)
{
}

bool CRawImage::init()
{
    if (m_process == nullptr)
        return false;
    m_rows = m_process->getRows();
    m_columns = m_process->getColumns();
    m_samplesPerPixel = m_process->getSamplesPerPixel();
    m_bitsAllocated = m_process->getBitsAllocated();
    m_bitsStored = m_process->getBitsStored();
    m_highBit = m_process->getHighBit();
    m_planarConfiguration = m_process->getPlanarConfiguration();
    m_signed = m_process->getPixelRepresentation() == 1;
    m_photometric = m_process->getPhotometric();
    m_monochrome1 = m_photometric == PHOTOMETRIC_MONOCHROME && m_process->getInvertMonochrome1();
    m_bytesPerSample = m_bitsAllocated <= 8 ? 1 : (m_bitsAllocated + 7) / 8;
    if (m_bitsAllocated != 1 && m_bitsAllocated != 8 && m_bitsAllocated != 16 && m_bitsAllocated != 32)
        return false;

    const unsigned long long pixels = static_cast<unsigned long long>(m_rows) * m_columns;
    const unsigned long long decoded = m_process->getFrameSize();
    unsigned long long needed = decoded + (decoded & 1); // decoders may write a pad byte
    unsigned long long converted = pixels * m_samplesPerPixel * m_bytesPerSample;
    if (m_photometric == PHOTOMETRIC_PALETTE)
        converted = pixels * 3 * 2;
    else if (m_photometric == PHOTOMETRIC_YBR_FULL_422 || m_photometric == PHOTOMETRIC_YBR_PARTIAL_422)
        converted = pixels * 3 * m_bytesPerSample;
    needed = std::max(needed, converted);
    if (needed == 0 || needed > 0xFFFFFFFFull)
        return false;
    return allocateBuffer(static_cast<unsigned int>(needed), m_frameNumber);
}

bool CRawImage::addSamples(unsigned int n)
{
    if (m_buffer == nullptr || n > getFreeSpace())
        return false;
    m_length += n;
    return true;
}

bool CRawImage::addSamples(const unsigned char* data, unsigned int n)
{
    if (data == nullptr || m_buffer == nullptr || n > getFreeSpace())
        return false;
    memcpy(m_buffer + m_length, data, n);
    m_length += n;
    return true;
}

unsigned long CRawImage::sampleCount() const
{
    return static_cast<unsigned long>(m_rows) * m_columns * m_samplesPerPixel;
}

int CRawImage::postProcess()
{
    if (m_buffer == nullptr || m_process == nullptr || m_length < m_process->getFrameSize() || m_length == 0)
        return 1;
    m_length = m_process->getFrameSize();
    if (m_bitsAllocated == 1)
    {
        // one byte per bit, from the back so that the expansion can work in place
        const unsigned long count = sampleCount();
        if (count > m_capacity || (count + 7) / 8 > m_length)
            return 1;
        for (unsigned long i = count; i-- > 0;)
            m_buffer[i] = (m_buffer[i >> 3] >> (i & 7)) & 1;
        m_length = static_cast<unsigned int>(count);
        m_bitsAllocated = 8;
        m_bitsStored = 1;
        m_highBit = 0;
        m_bytesPerSample = 1;
    }
    if (!toInterleaved() || !toRGB() || !shiftToOrigin())
        return 1;
    if (m_samplesPerPixel == 1 && m_process->needsWindowEstimate())
        m_process->getHistogram().addSamples(m_buffer, sampleCount(), m_bytesPerSample, m_signed);
    optimizeBitmap();
    CImageMemory* memory = m_process->getImageMemory();
    if (memory != nullptr)
    {
        char* data = memory->chunk(reinterpret_cast<char*>(m_buffer), 0, m_length, m_frameNumber);
        if (data != nullptr)
            m_buffer = reinterpret_cast<unsigned char*>(data);
    }
    return 0;
}

bool CRawImage::toInterleaved()
{
    if (m_samplesPerPixel != 3 || m_planarConfiguration != 1)
        return true;
    const unsigned long pixels = static_cast<unsigned long>(m_rows) * m_columns;
    const unsigned long bytes = pixels * 3 * m_bytesPerSample;
    if (bytes > m_length)
        return false;
    std::vector<unsigned char> planes(m_buffer, m_buffer + bytes);
    const unsigned int width = m_bytesPerSample;
    for (unsigned long p = 0; p < pixels; ++p)
        for (unsigned int c = 0; c < 3; ++c)
            memcpy(m_buffer + (p * 3 + c) * width, planes.data() + (c * pixels + p) * width, width);
    m_planarConfiguration = 0;
    return true;
}

void CRawImage::convertYbrFullToRgb(unsigned char* data, unsigned long count, unsigned int bytesPerSample,
                                    unsigned int bitsStored)
{
    if (bytesPerSample != 1 && bytesPerSample != 2)
        return;
    if (bitsStored == 0 || bitsStored > 8 * bytesPerSample)
        bitsStored = 8 * bytesPerSample;
    const double centre = double(1u << (bitsStored - 1));
    const double maximum = double((1u << bitsStored) - 1);
    for (unsigned long p = 0; p < count; ++p)
    {
        const double y = double(readSample(data, 3 * p, bytesPerSample, false));
        const double cb = double(readSample(data, 3 * p + 1, bytesPerSample, false)) - centre;
        const double cr = double(readSample(data, 3 * p + 2, bytesPerSample, false)) - centre;
        const double rgb[3] = {y + 1.402 * cr, y - 0.114 * 1.772 / 0.587 * cb - 0.299 * 1.402 / 0.587 * cr,
                               y + 1.772 * cb};
        for (int c = 0; c < 3; ++c)
            writeSample(data, 3 * p + c, bytesPerSample, int64_t(std::floor(std::min(std::max(rgb[c] + 0.5, 0.0), maximum))));
    }
}

bool CRawImage::toRGB()
{
    const unsigned long pixels = static_cast<unsigned long>(m_rows) * m_columns;
    const unsigned int width = m_bytesPerSample;
    if ((m_photometric == PHOTOMETRIC_YBR_FULL_422 || m_photometric == PHOTOMETRIC_YBR_PARTIAL_422) &&
        m_samplesPerPixel == 3)
    {
        // Y1 Y2 Cb Cr for each pair of pixels: expanded from the back, in place
        const unsigned long pairs = pixels / 2;
        if (pixels % 2 != 0 || pairs * 4 * width > m_length || pixels * 3 * width > m_capacity)
            return false;
        for (unsigned long k = pairs; k-- > 0;)
        {
            const int64_t y1 = readSample(m_buffer, 4 * k, width, false);
            const int64_t y2 = readSample(m_buffer, 4 * k + 1, width, false);
            const int64_t cb = readSample(m_buffer, 4 * k + 2, width, false);
            const int64_t cr = readSample(m_buffer, 4 * k + 3, width, false);
            const int64_t out[6] = {y1, cb, cr, y2, cb, cr};
            for (int i = 0; i < 6; ++i)
                writeSample(m_buffer, 6 * k + i, width, out[i]);
        }
        m_length = static_cast<unsigned int>(pixels * 3 * width);
        m_photometric = m_photometric == PHOTOMETRIC_YBR_FULL_422 ? PHOTOMETRIC_YBR_FULL : PHOTOMETRIC_YBR_PARTIAL_422;
    }
    if (m_photometric == PHOTOMETRIC_YBR_FULL && m_samplesPerPixel == 3)
    {
        if (pixels * 3 * width > m_length)
            return false;
        convertYbrFullToRgb(m_buffer, pixels, width, m_bitsStored);
        m_photometric = PHOTOMETRIC_RGB;
    }
    else if (m_photometric == PHOTOMETRIC_PALETTE && m_samplesPerPixel == 1)
    {
        const unsigned long entries = m_process->getPaletteEntries(0) ? m_process->getPaletteEntries(0) : 65536;
        const unsigned long lutBytes = m_process->getPaletteDataLength(0);
        const unsigned int entryWidth = lutBytes == entries ? 1 : 2;
        const unsigned char* luts[3];
        for (int c = 0; c < 3; ++c)
        {
            luts[c] = m_process->getPaletteData(c);
            if (luts[c] == nullptr || m_process->getPaletteDataLength(c) < entries * entryWidth)
                return false;
        }
        if (pixels * width > m_length || pixels * 3 * entryWidth > m_capacity || width > 2)
            return false;
        const int firstMapped = m_process->getPaletteFirstMapped(0);
        const int shift = m_highBit + 1 > m_bitsStored ? m_highBit + 1 - m_bitsStored : 0;
        // from the back: every pixel's output lies at or after its index
        for (unsigned long p = pixels; p-- > 0;)
        {
            int64_t index = readSample(m_buffer, p, width, m_signed) >> shift;
            index = index < firstMapped ? 0 : index - firstMapped;
            if (index >= int64_t(entries))
                index = int64_t(entries) - 1;
            for (int c = 2; c >= 0; --c)
                writeSample(m_buffer, 3 * p + c, entryWidth, readSample(luts[c], static_cast<unsigned long>(index), entryWidth, false));
        }
        m_samplesPerPixel = 3;
        m_bytesPerSample = entryWidth;
        m_bitsAllocated = static_cast<unsigned short>(8 * entryWidth);
        m_bitsStored = m_process->getPaletteBits(0) && m_process->getPaletteBits(0) <= 8 * entryWidth
                           ? m_process->getPaletteBits(0)
                           : m_bitsAllocated;
        m_highBit = static_cast<unsigned short>(m_bitsStored - 1);
        m_signed = false;
        m_length = static_cast<unsigned int>(pixels * 3 * entryWidth);
        m_photometric = PHOTOMETRIC_RGB;
    }
    return true;
}

bool CRawImage::shiftToOrigin()
{
    if (m_bitsStored == 0 || m_highBit + 1 <= m_bitsStored || m_highBit >= 8 * m_bytesPerSample)
        return true;
    const unsigned int shift = m_highBit + 1 - m_bitsStored;
    const unsigned long count = std::min<unsigned long>(sampleCount(), m_length / m_bytesPerSample);
    for (unsigned long i = 0; i < count; ++i)
        writeSample(m_buffer, i, m_bytesPerSample, readSample(m_buffer, i, m_bytesPerSample, m_signed) >> shift);
    m_highBit = static_cast<unsigned short>(m_bitsStored - 1);
    return true;
}

void CRawImage::optimizeBitmap()
{
    if (m_samplesPerPixel != 1 || m_photometric != PHOTOMETRIC_MONOCHROME || m_bytesPerSample > 2 ||
        m_bitsStored == 0 || m_bitsStored > 8 * m_bytesPerSample)
        return;
    const unsigned long count = std::min<unsigned long>(sampleCount(), m_length / m_bytesPerSample);
    const int64_t offset = m_signed ? int64_t(1) << (m_bitsStored - 1) : 0;
    const int64_t maximum = (int64_t(1) << m_bitsStored) - 1;
    for (unsigned long i = 0; i < count; ++i)
    {
        // offset into 0 .. 2^bits - 1, then inverted for MONOCHROME1
        int64_t v = readSample(m_buffer, i, m_bytesPerSample, m_signed) + offset;
        v = std::min(std::max(v, int64_t(0)), maximum);
        if (m_monochrome1)
            v = maximum - v;
        writeSample(m_buffer, i, m_bytesPerSample, v);
    }
    m_signed = false;
    m_monochrome1 = false;
}

unsigned char CRawImage::getImageParameter() const
{
    const unsigned int bits = m_bitsStored <= 63 ? m_bitsStored : 0;
    return static_cast<unsigned char>(bits | (m_signed ? 0x40 : 0) | (m_monochrome1 ? 0x80 : 0));
}
