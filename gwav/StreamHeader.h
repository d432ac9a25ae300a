// The ten-byte header of a "GW10" stream.
#ifndef GWAV_STREAMHEADER_H
#define GWAV_STREAMHEADER_H

#include <cstddef>

// Bytes 0-3 "GW10"; byte 4 bytes per pixel (1, 2 or 3); byte 5 the image parameter; bytes 6-7
// columns and 8-9 rows, unsigned 16-bit little endian. The coded data follows from byte 10.
struct StreamHeader
{
    static const size_t SIZE = 10;
    // Samples of an image at most (64 Mi: 8192 x 8192 grey): 512 MB of coefficients.
    static constexpr unsigned long long MAX_SAMPLES = 64ull << 20;

    int m_bytesPerPixel = 0;
    int m_parameter = 0; // stored and returned; the codec does not interpret it
    int m_columns = 0;
    int m_rows = 0;

    // Reads the header from the first size bytes of stream; false when they are fewer than 10,
    // lack the magic, or describe no image the codec can hold (bytes per pixel other than 1, 2
    // or 3, no columns or no rows, more than MAX_SAMPLES samples).
    bool read(const unsigned char* stream, size_t size);
    // Writes the ten bytes to out.
    void write(unsigned char* out) const;
    // True when the fields describe an image the codec can hold.
    bool valid() const;
};

#endif
