// The multi-level two-dimensional integer wavelet transform built on Filter4_2.
#ifndef GWAV_WAVELET_H
#define GWAV_WAVELET_H

#include "gwav/Filter4_2.h"
#include "gwav/ImageData.h"

#include <atomic>
#include <vector>

// Transforms every plane of an ImageData in place and back, exactly. Level l (step s = 2^l)
// filters every row at a multiple of s over its samples at multiples of s, then every column at
// a multiple of s likewise; the result stays interleaved in the plane (the low-pass band of
// level l at multiples of 2s). The number of levels starts at the maximum (5 by default) and
// decreases while 2^L exceeds half the width or half the height. A stop flag, checked between
// planes and levels, ends the work early.
//
// The work is done level by level on compact copies: after level l the samples at multiples of
// 2s are gathered into a buffer a quarter the size, where the next level's rows and columns are
// adjacent, and are put back when the levels below are done. Rows are filtered through their
// even and odd samples apart, columns eight at a time; the results equal those of the plain line
// filter.
template <typename T>
class Wavelet
{
public:
    // A transform of at most maxLevels levels (5 unless the caller asks for more).
    explicit Wavelet(int maxLevels = 5)
        : m_planes(0)
        , m_width(0)
        , m_height(0)
        , m_stride(0)
        , m_stop(false)
        , m_maxLevels(maxLevels)
    {
    }

    // Forward transform of all planes of image, in place; does nothing once stopped.
    void transform(ImageData<T>* image);
    // Inverse transform of all planes of image, in place; does nothing once stopped.
    void untransform(ImageData<T>* image);

    // Sets the stop flag (from any thread); the running transform ends at its next check.
    void stop() { m_stop = true; }
    // Clears the stop flag.
    void resume() { m_stop = false; }
    // True when the stop flag is set.
    bool stopped() const { return m_stop; }

    // Number of levels for a plane of the given size.
    static int levels(int width, int height, int maxLevels = 5);
    // Levels of the layout last transformed.
    int levels() const { return levels(m_width, m_height, m_maxLevels); }

private:
    void takeLayout(const ImageData<T>& image);
    // Levels `first` to `last` - 1 of a width x height array (rows stride apart), forward or back.
    void run(T* samples, int width, int height, size_t stride, int first, int last, bool forward);
    void rows(T* samples, int width, int height, size_t stride, bool forward);
    void columns(T* samples, int width, int height, size_t stride, bool forward);

    int m_planes;
    int m_width;
    int m_height;
    unsigned long m_stride;
    std::atomic<bool> m_stop;
    int m_maxLevels;
    Filter4_2<T> m_filter;
    std::vector<std::vector<T>> m_compact; // the low-pass samples of each level, compact
};

template <typename T>
int Wavelet<T>::levels(int width, int height, int maxLevels)
{
    int count = maxLevels;
    while (count > 0 && ((1 << count) > width / 2 || (1 << count) > height / 2))
        --count;
    return count;
}

template <typename T>
void Wavelet<T>::takeLayout(const ImageData<T>& image)
{
    m_planes = image.planes();
    m_width = image.width();
    m_height = image.height();
    m_stride = image.stride();
}

template <typename T>
void Wavelet<T>::transform(ImageData<T>* image)
{
    if (m_stop || image == nullptr)
        return;
    takeLayout(*image);
    const int count = levels();
    if (m_compact.size() < size_t(count))
        m_compact.resize(size_t(count)); // before the levels hold references into it
    for (int p = 0; p < m_planes && !m_stop; ++p)
        run(image->plane(p), m_width, m_height, m_stride, 0, count, true);
}

template <typename T>
void Wavelet<T>::untransform(ImageData<T>* image)
{
    if (m_stop || image == nullptr)
        return;
    takeLayout(*image);
    const int count = levels();
    if (m_compact.size() < size_t(count))
        m_compact.resize(size_t(count)); // before the levels hold references into it
    for (int p = 0; p < m_planes && !m_stop; ++p)
        run(image->plane(p), m_width, m_height, m_stride, 0, count, false);
}

template <typename T>
void Wavelet<T>::run(T* samples, int width, int height, size_t stride, int first, int last, bool forward)
{
    if (first >= last)
        return;
    if (forward)
    {
        if (m_stop)
            return;
        rows(samples, width, height, stride, true);
        columns(samples, width, height, stride, true);
    }
    if (first + 1 < last)
    {
        // the low-pass samples, at even rows and columns, compact for the next level
        const int w = (width + 1) / 2;
        const int h = (height + 1) / 2;
        std::vector<T>& compact = m_compact[size_t(first)];
        compact.resize(size_t(w) * size_t(h));
        for (int y = 0; y < h; ++y)
        {
            const T* from = samples + size_t(2 * y) * stride;
            T* to = compact.data() + size_t(y) * size_t(w);
            for (int x = 0; x < w; ++x)
                to[x] = from[2 * x];
        }
        run(compact.data(), w, h, size_t(w), first + 1, last, forward);
        for (int y = 0; y < h; ++y)
        {
            T* to = samples + size_t(2 * y) * stride;
            const T* from = compact.data() + size_t(y) * size_t(w);
            for (int x = 0; x < w; ++x)
                to[2 * x] = from[x];
        }
    }
    if (!forward && !m_stop)
    {
        columns(samples, width, height, stride, false);
        rows(samples, width, height, stride, false);
    }
}

template <typename T>
void Wavelet<T>::rows(T* samples, int width, int height, size_t stride, bool forward)
{
    for (int y = 0; y < height; ++y)
    {
        if (forward)
            m_filter.transformRow(samples + size_t(y) * stride, width);
        else
            m_filter.untransformRow(samples + size_t(y) * stride, width);
    }
}

template <typename T>
void Wavelet<T>::columns(T* samples, int width, int height, size_t stride, bool forward)
{
    // adjacent columns in groups: each row of a group is one run of memory
    const std::ptrdiff_t s = std::ptrdiff_t(stride);
    int x = 0;
    for (; x + 8 <= width; x += 8)
        forward ? m_filter.template transformT<8>(samples + x, height, s)
                : m_filter.template untransformT<8>(samples + x, height, s);
    for (; x + 4 <= width; x += 4)
        forward ? m_filter.template transformT<4>(samples + x, height, s)
                : m_filter.template untransformT<4>(samples + x, height, s);
    for (; x < width; ++x)
        forward ? m_filter.template transformT<1>(samples + x, height, s)
                : m_filter.template untransformT<1>(samples + x, height, s);
}

#endif
