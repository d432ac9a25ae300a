// An image in the form the wavelet codec takes, with PGM/PPM reading and writing for the gwav
// program.
#ifndef GWAV_RASTERIMAGE_H
#define GWAV_RASTERIMAGE_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// columns x rows pixels of 1 (grey), 2 (16-bit grey, machine byte order) or 3 (interleaved RGB)
// bytes, and the one-byte image parameter that travels in the stream. The gwav program's
// convention for the parameter: the number of significant bits of a sample, plus 128 when the
// samples are signed (two's complement). A parameter of 0 means full 8 or 16 unsigned bits.
class RasterImage
{
public:
    static const int SIGNED = 0x80;

    RasterImage();
    // An image of the given size with zeroed pixels.
    RasterImage(int bytesPerPixel, int columns, int rows, int parameter);

    int bytesPerPixel() const { return m_bytesPerPixel; }
    int columns() const { return m_columns; }
    int rows() const { return m_rows; }
    int parameter() const { return m_parameter; }
    void setParameter(int parameter) { m_parameter = parameter & 0xFF; }
    // The pixels, columns x rows x bytes per pixel bytes; the image owns them.
    unsigned char* pixels() { return m_pixels.data(); }
    const unsigned char* pixels() const { return m_pixels.data(); }
    size_t size() const { return m_pixels.size(); }

    // Bits per displayed sample: from the parameter, else 8 or 16.
    int depth() const;
    // True when the parameter marks the samples as signed.
    bool isSigned() const { return m_bytesPerPixel == 2 && (m_parameter & SIGNED) != 0; }
    // Sample i (of columns x rows x channels) as an unsigned value below 2^depth(): signed
    // samples are moved up by half the range, values outside it are clamped.
    unsigned displaySample(size_t i) const;
    // Samples per pixel: 3 for RGB, 1 otherwise.
    int channels() const { return m_bytesPerPixel == 3 ? 3 : 1; }

    // Reads a binary PGM (P5, maxval up to 65535) or PPM (P6, maxval up to 255). False with a
    // reason in error when the file cannot be read or is no such image.
    bool readPnm(const std::string& path, std::string& error);
    // Writes the image as binary PGM or PPM of depth() bits.
    bool writePnm(const std::string& path, std::string& error) const;
    // Writes the binary PGM/PPM onto an open stream (not closed); false when a write failed.
    bool writePnm(FILE* stream) const;

private:
    int m_bytesPerPixel;
    int m_columns;
    int m_rows;
    int m_parameter;
    std::vector<unsigned char> m_pixels;
};

#endif
