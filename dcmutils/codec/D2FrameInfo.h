// Layout of one uncompressed frame as the JPEG 2000 codecs read and write it.
#ifndef D2FRAMEINFO_H
#define D2FRAMEINFO_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/oftypes.h"

#include <cstddef>

struct D2FrameInfo
{
    Uint16 columns = 0;
    Uint16 rows = 0;
    // 1 or 3
    Uint16 samplesPerPixel = 1;
    // 1 (Bits Allocated 8) or 2 (Bits Allocated 16)
    Uint16 bytesPerSample = 1;
    // 0: colour-by-pixel, 1: colour-by-plane
    Uint16 planarConfiguration = 0;
    // bits of a stored value (High Bit + 1); higher bits of the container are not part of it
    Uint16 storedBits = 8;
    // Pixel Representation 1
    bool isSigned = false;

    size_t pixels() const { return size_t(columns) * rows; }
    size_t frameSize() const { return pixels() * samplesPerPixel * bytesPerSample; }
};

#endif
