#include "gwav/SamplePlanes.h"

#include <algorithm>
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

template <typename T>
bool loadPlanes(const void* pixels, int bytesPerPixel, ImageData<T>& image)
{
    const size_t count = size_t(image.width()) * size_t(image.height());
    const unsigned char* bytes = static_cast<const unsigned char*>(pixels);
    T* plane = image.plane(0);
    if (bytesPerPixel == 1)
    {
        for (size_t i = 0; i < count; ++i)
            plane[i] = bytes[i];
        return false;
    }
    if (bytesPerPixel == 2)
    {
        int unsignedLow = 0xFFFF, unsignedHigh = 0, signedLow = 0x7FFF, signedHigh = -0x8000;
        for (size_t i = 0; i < count; ++i)
        {
            uint16_t v;
            memcpy(&v, bytes + 2 * i, 2);
            const int u = v;
            const int s = int16_t(v);
            plane[i] = T(u);
            unsignedLow = std::min(unsignedLow, u);
            unsignedHigh = std::max(unsignedHigh, u);
            signedLow = std::min(signedLow, s);
            signedHigh = std::max(signedHigh, s);
        }
        const bool isSigned = signedHigh - signedLow < unsignedHigh - unsignedLow;
        if (isSigned)
            for (size_t i = 0; i < count; ++i)
                plane[i] = T(int16_t(uint16_t(plane[i])));
        return isSigned;
    }
    T* cb = image.plane(1);
    T* cr = image.plane(2);
    for (size_t i = 0; i < count; ++i)
    {
        const T r = bytes[3 * i];
        const T g = bytes[3 * i + 1];
        const T b = bytes[3 * i + 2];
        plane[i] = T((r + 2 * g + b) >> 2);
        cb[i] = T(b - g);
        cr[i] = T(r - g);
    }
    return false;
}

template <typename T>
void storePlanes(const ImageData<T>& image, int bytesPerPixel, bool isSigned, void* pixels)
{
    const size_t count = size_t(image.width()) * size_t(image.height());
    unsigned char* bytes = static_cast<unsigned char*>(pixels);
    const T* plane = image.plane(0);
    if (bytesPerPixel == 1)
    {
        for (size_t i = 0; i < count; ++i)
            bytes[i] = (unsigned char)clampTo(plane[i], 0, 255);
        return;
    }
    if (bytesPerPixel == 2)
    {
        const T low = isSigned ? -0x8000 : 0;
        const T high = isSigned ? 0x7FFF : 0xFFFF;
        for (size_t i = 0; i < count; ++i)
        {
            const uint16_t v = uint16_t(std::min(std::max(plane[i], low), high));
            memcpy(bytes + 2 * i, &v, 2);
        }
        return;
    }
    const T* cb = image.plane(1);
    const T* cr = image.plane(2);
    for (size_t i = 0; i < count; ++i)
    {
        const long g = long(plane[i]) - ((long(cb[i]) + long(cr[i])) >> 2);
        bytes[3 * i] = (unsigned char)clampTo(cr[i] + g, 0, 255);
        bytes[3 * i + 1] = (unsigned char)clampTo(g, 0, 255);
        bytes[3 * i + 2] = (unsigned char)clampTo(cb[i] + g, 0, 255);
    }
}

template bool loadPlanes<int>(const void*, int, ImageData<int>&);
template bool loadPlanes<long>(const void*, int, ImageData<long>&);
template void storePlanes<int>(const ImageData<int>&, int, bool, void*);
template void storePlanes<long>(const ImageData<long>&, int, bool, void*);
