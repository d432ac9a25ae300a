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
// decreases while 2^L exceeds half the width or half the height. Columns are filtered several
// at a time, gathered into a buffer when they are not adjacent; the results equal those of the
// plain line filter. A stop flag, checked between planes and levels, ends the work early.
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
    void rows(T* plane, int step, bool forward);
    void columns(T* plane, int step, bool forward);
    template <int N>
    void columnGroup(T* first, int count, int step, bool forward);

    int m_planes;
    int m_width;
    int m_height;
    unsigned long m_stride;
    std::atomic<bool> m_stop;
    int m_maxLevels;
    Filter4_2<T> m_filter;
    std::vector<T> m_gathered; // columns of one group, side by side
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
    const int larger = m_width > m_height ? m_width : m_height;
    for (int p = 0; p < m_planes; ++p)
    {
        for (int level = 0; level < count && (1 << level) < larger; ++level)
        {
            if (m_stop)
                return;
            rows(image->plane(p), 1 << level, true);
            columns(image->plane(p), 1 << level, true);
        }
    }
}

template <typename T>
void Wavelet<T>::untransform(ImageData<T>* image)
{
    if (m_stop || image == nullptr)
        return;
    takeLayout(*image);
    const int count = levels();
    const int larger = m_width > m_height ? m_width : m_height;
    for (int p = 0; p < m_planes; ++p)
    {
        int top = 0;
        while (top < count && (1 << top) < larger)
            ++top;
        for (int level = top - 1; level >= 0; --level)
        {
            if (m_stop)
                return;
            columns(image->plane(p), 1 << level, false);
            rows(image->plane(p), 1 << level, false);
        }
    }
}

template <typename T>
void Wavelet<T>::rows(T* plane, int step, bool forward)
{
    const int count = (m_width - 1) / step + 1;
    if (step == 1)
    {
        // whole rows: each through its even and odd samples apart
        for (int y = 0; y < m_height; ++y)
        {
            if (forward)
                m_filter.transformRow(plane + size_t(y) * m_stride, count);
            else
                m_filter.untransformRow(plane + size_t(y) * m_stride, count);
        }
        return;
    }
    // eight rows at a time, side by side in the buffer, so that the filter works on all eight at
    // once; the rest one by one in place
    const size_t rowStep = size_t(step) * m_stride;
    if (m_gathered.size() < size_t(count) * 8)
        m_gathered.resize(size_t(count) * 8);
    T* buffer = m_gathered.data();
    int y = 0;
    for (; y + 7 * step < m_height; y += 8 * step)
    {
        T* first = plane + size_t(y) * m_stride;
        for (int k = 0; k < 8; ++k)
        {
            const T* row = first + k * rowStep;
            for (int i = 0; i < count; ++i)
                buffer[i * 8 + k] = row[size_t(i) * step];
        }
        if (forward)
            m_filter.template transformT<8>(buffer, count, 8);
        else
            m_filter.template untransformT<8>(buffer, count, 8);
        for (int k = 0; k < 8; ++k)
        {
            T* row = first + k * rowStep;
            for (int i = 0; i < count; ++i)
                row[size_t(i) * step] = buffer[i * 8 + k];
        }
    }
    for (; y < m_height; y += step)
    {
        T* row = plane + size_t(y) * m_stride;
        if (forward)
            m_filter.template transformT<1>(row, count, step);
        else
            m_filter.template untransformT<1>(row, count, step);
    }
}

template <typename T>
template <int N>
void Wavelet<T>::columnGroup(T* first, int count, int step, bool forward)
{
    const std::ptrdiff_t stride = std::ptrdiff_t(step) * std::ptrdiff_t(m_stride);
    if (step == 1)
    {
        // adjacent columns: each row of the group is one run of memory
        if (forward)
            m_filter.template transformT<N>(first, count, stride);
        else
            m_filter.template untransformT<N>(first, count, stride);
        return;
    }
    T* buffer = m_gathered.data();
    for (int i = 0; i < count; ++i)
        for (int k = 0; k < N; ++k)
            buffer[i * N + k] = first[i * stride + k * step];
    if (forward)
        m_filter.template transformT<N>(buffer, count, N);
    else
        m_filter.template untransformT<N>(buffer, count, N);
    for (int i = 0; i < count; ++i)
        for (int k = 0; k < N; ++k)
            first[i * stride + k * step] = buffer[i * N + k];
}

template <typename T>
void Wavelet<T>::columns(T* plane, int step, bool forward)
{
    const int count = (m_height - 1) / step + 1;
    const int lines = (m_width - 1) / step + 1;
    if (step > 1 && m_gathered.size() < size_t(count) * 8)
        m_gathered.resize(size_t(count) * 8);
    int x = 0;
    for (; x + 8 <= lines; x += 8)
        columnGroup<8>(plane + size_t(x) * step, count, step, forward);
    for (; x + 4 <= lines; x += 4)
        columnGroup<4>(plane + size_t(x) * step, count, step, forward);
    for (; x + 2 <= lines; x += 2)
        columnGroup<2>(plane + size_t(x) * step, count, step, forward);
    for (; x < lines; ++x)
        columnGroup<1>(plane + size_t(x) * step, count, step, forward);
}

#endif
