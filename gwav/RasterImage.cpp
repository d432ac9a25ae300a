#include "gwav/RasterImage.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

struct FileCloser
{
    void operator()(FILE* file) const
    {
        if (file != nullptr)
            fclose(file);
    }
};
typedef std::unique_ptr<FILE, FileCloser> File;

// Next header number of a PNM file, skipping white space and comments; -1 when there is none.
long headerNumber(FILE* file)
{
    int c = fgetc(file);
    while (c != EOF && (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '#'))
    {
        if (c == '#')
            while (c != EOF && c != '\n')
                c = fgetc(file);
        c = fgetc(file);
    }
    if (c < '0' || c > '9')
        return -1;
    long value = 0;
    while (c >= '0' && c <= '9')
    {
        value = value * 10 + (c - '0');
        if (value > 0xFFFFFF)
            return -1;
        c = fgetc(file);
    }
    // one white space character ends the number
    return value;
}

int bitsFor(long maxValue)
{
    int bits = 1;
    while ((1L << bits) - 1 < maxValue)
        ++bits;
    return bits;
}

} // namespace

RasterImage::RasterImage()
    : m_bytesPerPixel(1)
    , m_columns(0)
    , m_rows(0)
    , m_parameter(0)
{
}

RasterImage::RasterImage(int bytesPerPixel, int columns, int rows, int parameter)
    : m_bytesPerPixel(bytesPerPixel)
    , m_columns(columns)
    , m_rows(rows)
    , m_parameter(parameter & 0xFF)
    , m_pixels(size_t(columns) * size_t(rows) * size_t(bytesPerPixel), 0)
{
}

int RasterImage::depth() const
{
    const int full = m_bytesPerPixel == 2 ? 16 : 8;
    const int bits = m_parameter & 0x7F;
    return bits >= 1 && bits <= full ? bits : full;
}

unsigned RasterImage::displaySample(size_t i) const
{
    if (m_bytesPerPixel != 2)
        return m_pixels[i];
    uint16_t raw;
    memcpy(&raw, &m_pixels[2 * i], 2);
    const long top = (1L << depth()) - 1;
    long value = isSigned() ? long(int16_t(raw)) + (1L << (depth() - 1)) : long(raw);
    value = value < 0 ? 0 : (value > top ? top : value);
    return unsigned(value);
}

bool RasterImage::readPnm(const std::string& path, std::string& error)
{
    File file(fopen(path.c_str(), "rb"));
    if (!file)
    {
        error = std::string(strerror(errno)) + ": " + path;
        return false;
    }
    char magic[2] = {0, 0};
    const bool magicRead = fread(magic, 1, 2, file.get()) == 2;
    if (!magicRead || magic[0] != 'P' || (magic[1] != '5' && magic[1] != '6'))
    {
        error = "not a binary PGM or PPM image: " + path;
        return false;
    }
    const bool colour = magic[1] == '6';
    const long columns = headerNumber(file.get());
    const long rows = headerNumber(file.get());
    const long maxValue = headerNumber(file.get());
    if (columns < 1 || columns > 0xFFFF || rows < 1 || rows > 0xFFFF || maxValue < 1 || maxValue > 0xFFFF ||
        (colour && maxValue > 255))
    {
        error = "unsupported PGM or PPM header (size 1-65535, PPM up to 8 bits): " + path;
        return false;
    }
    const bool wide = maxValue > 255;
    const int bitsPerSample = bitsFor(maxValue);
    RasterImage image(colour ? 3 : (wide ? 2 : 1), int(columns), int(rows), bitsPerSample == 8 || bitsPerSample == 16 ? 0 : bitsPerSample);
    if (fread(image.pixels(), 1, image.size(), file.get()) != image.size())
    {
        error = "truncated image data: " + path;
        return false;
    }
    if (wide)
    {
        // PGM stores 16-bit samples big endian
        for (size_t i = 0; i < image.size(); i += 2)
        {
            const uint16_t value = uint16_t(image.m_pixels[i] << 8 | image.m_pixels[i + 1]);
            memcpy(&image.m_pixels[i], &value, 2);
        }
    }
    *this = std::move(image);
    return true;
}

bool RasterImage::writePnm(const std::string& path, std::string& error) const
{
    File file(fopen(path.c_str(), "wb"));
    if (!file || !writePnm(file.get()) || fflush(file.get()) != 0)
    {
        error = std::string(strerror(errno)) + ": " + path;
        return false;
    }
    return true;
}

bool RasterImage::writePnm(FILE* stream) const
{
    const long maxValue = (1L << depth()) - 1;
    const size_t samples = size_t(m_columns) * size_t(m_rows) * size_t(channels());
    fprintf(stream, "P%c\n%d %d\n%ld\n", channels() == 3 ? '6' : '5', m_columns, m_rows, maxValue);
    std::vector<unsigned char> data;
    data.reserve(samples * (maxValue > 255 ? 2 : 1));
    for (size_t i = 0; i < samples; ++i)
    {
        const unsigned value = displaySample(i);
        if (maxValue > 255)
            data.push_back((unsigned char)(value >> 8));
        data.push_back((unsigned char)(value & 0xFF));
    }
    return fwrite(data.data(), 1, data.size(), stream) == data.size();
}
