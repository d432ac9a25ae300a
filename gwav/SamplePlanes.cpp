#include "gwav/SamplePlanes.h"

#include <cstdint>
#include <cstring>

namespace {

long clampTo(long v, long low, long high)
{
    return v < low ? low : (v > high ? high : v);
}

} // namespace

int planeCount(int bytesPerPixel)
{
    return bytesPerPixel == 3 ? 3 : 1;
}

bool loadPlanes(const void* pixels, int bytesPerPixel, ImageData<long>& image)
{
    const size_t count = size_t(image.width()) * size_t(image.height());
    const unsigned char* bytes = static_cast<const unsigned char*>(pixels);
    long* plane = image.plane(0);
    if (bytesPerPixel == 1)
    {
        for (size_t i = 0; i < count; ++i)
            plane[i] = bytes[i];
        return false;
    }
    if (bytesPerPixel == 2)
    {
        long unsignedLow = 0xFFFF, unsignedHigh = 0, signedLow = 0x7FFF, signedHigh = -0x8000;
        for (size_t i = 0; i < count; ++i)
        {
            uint16_t v;
            memcpy(&v, bytes + 2 * i, 2);
            const long u = v;
            const long s = int16_t(v);
            plane[i] = u;
            unsignedLow = u < unsignedLow ? u : unsignedLow;
            unsignedHigh = u > unsignedHigh ? u : unsignedHigh;
            signedLow = s < signedLow ? s : signedLow;
            signedHigh = s > signedHigh ? s : signedHigh;
        }
        const bool isSigned = signedHigh - signedLow < unsignedHigh - unsignedLow;
        if (isSigned)
            for (size_t i = 0; i < count; ++i)
                plane[i] = int16_t(uint16_t(plane[i]));
        return isSigned;
    }
    long* cb = image.plane(1);
    long* cr = image.plane(2);
    for (size_t i = 0; i < count; ++i)
    {
        const long r = bytes[3 * i];
        const long g = bytes[3 * i + 1];
        const long b = bytes[3 * i + 2];
        plane[i] = (r + 2 * g + b) >> 2;
        cb[i] = b - g;
        cr[i] = r - g;
    }
    return false;
}

void storePlanes(const ImageData<long>& image, int bytesPerPixel, bool isSigned, void* pixels)
{
    const size_t count = size_t(image.width()) * size_t(image.height());
    unsigned char* bytes = static_cast<unsigned char*>(pixels);
    const long* plane = image.plane(0);
    if (bytesPerPixel == 1)
    {
        for (size_t i = 0; i < count; ++i)
            bytes[i] = (unsigned char)clampTo(plane[i], 0, 255);
        return;
    }
    if (bytesPerPixel == 2)
    {
        const long low = isSigned ? -0x8000 : 0;
        const long high = isSigned ? 0x7FFF : 0xFFFF;
        for (size_t i = 0; i < count; ++i)
        {
            const uint16_t v = uint16_t(clampTo(plane[i], low, high));
            memcpy(bytes + 2 * i, &v, 2);
        }
        return;
    }
    const long* cb = image.plane(1);
    const long* cr = image.plane(2);
    for (size_t i = 0; i < count; ++i)
    {
        const long g = plane[i] - ((cb[i] + cr[i]) >> 2);
        bytes[3 * i] = (unsigned char)clampTo(cr[i] + g, 0, 255);
        bytes[3 * i + 1] = (unsigned char)clampTo(g, 0, 255);
        bytes[3 * i + 2] = (unsigned char)clampTo(cb[i] + g, 0, 255);
    }
}
