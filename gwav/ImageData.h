// Planes of integer samples that the wavelet transforms in place.
#ifndef GWAV_IMAGEDATA_H
#define GWAV_IMAGEDATA_H

#include <cstddef>
#include <memory>
#include <new>

// planes() planes of width() x height() samples of type T, rows stride() samples apart. The
// object owns its samples; they are left uninitialised. An allocation that fails leaves an
// object without planes (valid() false) instead of throwing.
template <typename T>
class ImageData
{
public:
    // Allocates the planes; check valid() afterwards.
    ImageData(int planes, int width, int height)
        : m_planes(0)
        , m_width(0)
        , m_height(0)
        , m_stride(0)
    {
        if (planes <= 0 || width <= 0 || height <= 0)
            return;
        const size_t count = size_t(planes) * size_t(width) * size_t(height);
        m_samples.reset(new (std::nothrow) T[count]);
        if (!m_samples)
            return;
        m_planes = planes;
        m_width = width;
        m_height = height;
        m_stride = (unsigned long)width;
    }

    // True when the planes were allocated.
    bool valid() const { return m_samples != nullptr; }
    // Number of planes (0 when the allocation failed).
    int planes() const { return m_planes; }
    // Samples per row.
    int width() const { return m_width; }
    // Rows per plane.
    int height() const { return m_height; }
    // Distance between the starts of two rows, in samples.
    unsigned long stride() const { return m_stride; }
    // First sample of a plane; the object keeps ownership.
    T* plane(int index) { return m_samples.get() + size_t(index) * m_stride * size_t(m_height); }
    const T* plane(int index) const { return m_samples.get() + size_t(index) * m_stride * size_t(m_height); }

private:
    int m_planes;
    int m_width;
    int m_height;
    unsigned long m_stride;
    std::unique_ptr<T[]> m_samples;
};

#endif
