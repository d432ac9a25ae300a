// Where the subbands of a transformed image lie in its planes.
#ifndef GWAV_SUBBAND_H
#define GWAV_SUBBAND_H

#include "gwav/ImageData.h"

#include <vector>

// Orientation of a subband: LL (low-pass both ways), HL (high-pass across the row), LH
// (high-pass down the column) and HH.
enum SUBBAND_ORIENTATION
{
    SUBBAND_LL = 0,
    SUBBAND_HL = 1,
    SUBBAND_LH = 2,
    SUBBAND_HH = 3
};

// One subband of one plane: its coefficients lie at (m_x0 + i * m_step, m_y0 + j * m_step) for
// i < m_width, j < m_height.
struct Subband
{
    int m_component = 0; // plane of the image
    int m_level = 0;     // 1 (finest) to the number of levels; the LL band has the coarsest
    SUBBAND_ORIENTATION m_orientation = SUBBAND_LL;
    int m_x0 = 0;
    int m_y0 = 0;
    int m_step = 1;
    int m_width = 0;
    int m_height = 0;
    int m_parent = -1;   // index of the band one level coarser with the same orientation and plane
    int m_weight = 0;    // log2 of the band's synthesis gain (plane weight included), 1/16 bit units
};

// The subbands of `components` planes of width x height samples after `levels` levels, coarse to
// fine: per plane the LL band, then HL, LH, HH from the coarsest level down. componentWeights
// holds each plane's extra weight in 1/16 bit units (the colour transform's gains).
std::vector<Subband> subbandLayout(int components, int width, int height, int levels,
                                   const std::vector<int>& componentWeights);

// Copies the coefficients of band out of the plane into dst (band width x height, row by row).
template <typename T, typename D>
void gatherSubband(const ImageData<T>& image, const Subband& band, D* dst)
{
    const T* plane = image.plane(band.m_component);
    const size_t rowStep = size_t(band.m_step) * image.stride();
    const T* row = plane + size_t(band.m_y0) * image.stride() + band.m_x0;
    for (int j = 0; j < band.m_height; ++j, row += rowStep)
        for (int i = 0; i < band.m_width; ++i)
            *dst++ = D(row[size_t(i) * band.m_step]);
}

// Copies the band's coefficients from src back into the plane.
template <typename T, typename D>
void scatterSubband(ImageData<T>& image, const Subband& band, const D* src)
{
    T* plane = image.plane(band.m_component);
    const size_t rowStep = size_t(band.m_step) * image.stride();
    T* row = plane + size_t(band.m_y0) * image.stride() + band.m_x0;
    for (int j = 0; j < band.m_height; ++j, row += rowStep)
        for (int i = 0; i < band.m_width; ++i)
            row[size_t(i) * band.m_step] = T(*src++);
}

#endif
