// Between the caller's pixels and the planes the wavelet transforms.
#ifndef GWAV_SAMPLEPLANES_H
#define GWAV_SAMPLEPLANES_H

#include "gwav/ImageData.h"

// Number of planes for a number of bytes per pixel: 3 for RGB, 1 otherwise.
int planeCount(int bytesPerPixel);

// Fills the planes from columns x rows pixels: 8-bit samples as they are; 16-bit samples (in
// the machine's byte order) as signed or unsigned, whichever spans the smaller range (a CT with
// negative values reads as signed, a full-range unsigned image as unsigned); interleaved RGB
// through the reversible colour transform Y = (R + 2G + B) >> 2, Cb = B - G, Cr = R - G.
// Returns true when 16-bit samples were read as signed.
template <typename T>
bool loadPlanes(const void* pixels, int bytesPerPixel, ImageData<T>& image);

// Writes the planes back as pixels, clamping every sample to its type's range.
template <typename T>
void storePlanes(const ImageData<T>& image, int bytesPerPixel, bool isSigned, void* pixels);

#endif
