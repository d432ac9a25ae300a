// The 4-2 integer lifting filter: four-tap prediction of the odd samples, two-tap update of the
// even samples and a low-pass gain of 152/128. Exactly reversible for every integer line.
#ifndef GWAV_FILTER4_2_H
#define GWAV_FILTER4_2_H

#include "gwav/Filter.h"

#include <cstddef>
#include <vector>

// The integer type the filter computes in: 16-bit samples are widened to int, wider ones keep
// their type.
template <typename T>
struct FilterWide
{
    typedef T Type;
};
template <>
struct FilterWide<short>
{
    typedef int Type;
};

// Filter4_2<T> works on lines of T samples. Forward:
//   extend the boundaries (whole-sample symmetric), then for every odd i
//   x[i] -= r16(9 (x[i-1] + x[i+1]) - (x[i-3] + x[i+3]));
//   x[0] = up(x[0] + r2(x[1])); x[i] = up(x[i] + r4(x[i-1] + x[i+1])) for inner even i;
//   a last even sample without right neighbour: x[i] = up(x[i] + r2(x[i-1])).
// r16, r4 and r2 divide rounding halves away from zero; up multiplies by 152/128 and down by
// 128/152, both rounding halves away from zero; down(up(v)) == v for every integer v.
// T = short holds 8-bit planes only: 16-bit samples overflow it (the low-pass gain over five
// levels is about 5.6). T = int computes in 32 bits: enough for the forward transform of 16-bit
// samples over up to ten levels (no value exceeds 151 times the largest sample, so 152 v stays
// below 2^31) and for inverse transforms of coefficients below 2^18 (no value on the way exceeds
// 36 times the largest coefficient). T = long holds anything else.
template <typename T>
class Filter4_2 : public Filter<T>
{
public:
    typedef typename FilterWide<T>::Type W;

    // Size of the fixed line buffer of the copying forms, and where a line starts in it.
    static const int LINE_BUFFER = 33501;
    static const int LINE_START = 7;

    Filter4_2() {}
    ~Filter4_2() override {}

    void transform(T* line, int count, unsigned long stride) override { transformFast(line, count, stride); }
    void transformInner(T* line, int count) override;
    void untransform(T* line, int count, unsigned long stride) override { untransformFast(line, count, stride); }
    void untransformInner(T* line, int count) override;
    void transformCopy(T* line, int count, unsigned long stride) override;
    void untransformCopy(T* line, int count, unsigned long stride) override;
    void transformFast(T* line, int count, unsigned long stride) override { transformT<1>(line, count, stride); }
    void untransformFast(T* line, int count, unsigned long stride) override { untransformT<1>(line, count, stride); }

    // Forward filter of N adjacent lines at once, in place: line k starts at line + k, its
    // samples are stride elements apart (stride >= N). Same results as N calls of
    // transformInner.
    template <int N>
    void transformT(T* line, int count, std::ptrdiff_t stride);
    // Inverse filter of N adjacent lines at once, in place (see transformT).
    template <int N>
    void untransformT(T* line, int count, std::ptrdiff_t stride);
    // Forward filter of a contiguous line, in place, through its even and odd samples taken
    // apart so that every step runs along memory. Same results as transformInner.
    void transformRow(T* line, int count);
    // Inverse filter of a contiguous line, in place (see transformRow).
    void untransformRow(T* line, int count);

    // The rounded divisions and scalings, as written: truncating division of the value moved
    // half a divisor away from zero.
    static W r16(W v) { return v >= 0 ? (v + 8) / 16 : (v - 8) / 16; }
    static W r4(W v) { return v >= 0 ? (v + 2) / 4 : (v - 2) / 4; }
    static W r2(W v) { return v >= 0 ? (v + 1) / 2 : (v - 1) / 2; }
    static W up(W v) { return v >= 0 ? (152 * v + 64) / 128 : (152 * v - 64) / 128; }
    static W down(W v) { return v >= 0 ? (128 * v + 64) / 152 : (128 * v - 64) / 152; }

private:
    // The same roundings with an arithmetic shift: floor((v + h - [v < 0]) / 2h) equals the
    // truncated (v +- h) / 2h for both signs; branch-free, so the loops vectorise.
    static W s16(W v) { return (v + 8 - W(v < 0)) >> 4; }
    static W s4(W v) { return (v + 2 - W(v < 0)) >> 2; }
    static W s2(W v) { return (v + 1 - W(v < 0)) >> 1; }
    static W sUp(W v) { return (152 * v + 64 - W(v < 0)) >> 7; }

    // Index of sample i of a line of n >= 2 samples under whole-sample symmetric extension.
    static int mirror(int i, int n);
    // Splits line into m_even (from index 1, with the mirrored neighbours the prediction reads
    // around it) and m_odd; returns the even samples' array.
    W* split(const T* line, int count);
    // The predictions of the odd samples from the split even ones, subtracted (sign -1) or added.
    void predictSplit(int count, int sign);

    std::vector<W> m_even;
    std::vector<W> m_odd;
    // The line buffer of the copying forms, with room for count samples and the spare ones.
    T* lineBuffer(int count);

    std::vector<T> m_buffer;
};

template <typename T>
int Filter4_2<T>::mirror(int i, int n)
{
    const int period = 2 * (n - 1);
    i %= period;
    if (i < 0)
        i += period;
    return i < n ? i : period - i;
}

template <typename T>
void Filter4_2<T>::transformInner(T* x, int n)
{
    if (n < 2)
        return;
    // boundary extension, in this order: for n < 5 later cells read earlier ones
    x[-1] = x[1];
    x[n] = x[n - 2];
    x[-2] = x[2];
    x[n + 1] = x[n - 3];
    x[-3] = x[3];
    x[n + 2] = x[n - 4];
    for (int i = 1; i < n; i += 2)
        x[i] = T(x[i] - r16(9 * (W(x[i - 1]) + W(x[i + 1])) - (W(x[i - 3]) + W(x[i + 3]))));
    x[0] = T(up(x[0] + r2(x[1])));
    int i = 2;
    for (; i + 1 < n; i += 2)
        x[i] = T(up(x[i] + r4(W(x[i - 1]) + W(x[i + 1]))));
    if (i == n - 1 && i >= 2)
        x[i] = T(up(x[i] + r2(x[i - 1])));
}

template <typename T>
void Filter4_2<T>::untransformInner(T* x, int n)
{
    if (n < 2)
        return;
    x[0] = T(down(x[0]) - r2(x[1]));
    int i = 2;
    for (; i + 1 < n; i += 2)
        x[i] = T(down(x[i]) - r4(W(x[i - 1]) + W(x[i + 1])));
    if (i == n - 1 && i >= 2)
        x[i] = T(down(x[i]) - r2(x[i - 1]));
    x[-1] = x[1];
    x[n] = x[n - 2];
    x[-2] = x[2];
    x[n + 1] = x[n - 3];
    x[-3] = x[3];
    x[n + 2] = x[n - 4];
    for (i = 1; i < n; i += 2)
        x[i] = T(x[i] + r16(9 * (W(x[i - 1]) + W(x[i + 1])) - (W(x[i - 3]) + W(x[i + 3]))));
}

template <typename T>
typename Filter4_2<T>::W* Filter4_2<T>::split(const T* x, int n)
{
    const int evens = (n + 1) / 2;
    if (m_even.size() < size_t(evens) + 3)
    {
        m_even.resize(size_t(evens) + 3);
        m_odd.resize(size_t(evens) + 3);
    }
    W* e = m_even.data() + 1;
    W* o = m_odd.data();
    for (int j = 0; j < evens; ++j)
        e[j] = x[2 * j];
    for (int j = 0; j < n / 2; ++j)
        o[j] = x[2 * j + 1];
    return e;
}

template <typename T>
void Filter4_2<T>::predictSplit(int n, int sign)
{
    W* e = m_even.data() + 1;
    W* o = m_odd.data();
    const int evens = (n + 1) / 2;
    // the even samples the predictions read beyond the line: x[-2], x[2 evens], x[2 evens + 2]
    e[-1] = e[mirror(-2, n) / 2];
    e[evens] = e[mirror(2 * evens, n) / 2];
    e[evens + 1] = e[mirror(2 * evens + 2, n) / 2];
    const int odds = n / 2;
    if (sign < 0)
        for (int j = 0; j < odds; ++j)
            o[j] -= s16(9 * (e[j] + e[j + 1]) - (e[j - 1] + e[j + 2]));
    else
        for (int j = 0; j < odds; ++j)
            o[j] += s16(9 * (e[j] + e[j + 1]) - (e[j - 1] + e[j + 2]));
}

template <typename T>
void Filter4_2<T>::transformRow(T* x, int n)
{
    if (n < 2)
        return;
    W* e = split(x, n);
    W* o = m_odd.data();
    predictSplit(n, -1);
    const int evens = (n + 1) / 2;
    const int odds = n / 2;
    e[0] = sUp(e[0] + s2(o[0]));
    for (int j = 1; j < odds; ++j)
        e[j] = sUp(e[j] + s4(o[j - 1] + o[j]));
    if (evens > odds && evens >= 2)
        e[evens - 1] = sUp(e[evens - 1] + s2(o[evens - 2]));
    for (int j = 0; j < evens; ++j)
        x[2 * j] = T(e[j]);
    for (int j = 0; j < odds; ++j)
        x[2 * j + 1] = T(o[j]);
}

template <typename T>
void Filter4_2<T>::untransformRow(T* x, int n)
{
    if (n < 2)
        return;
    W* e = split(x, n);
    W* o = m_odd.data();
    const int evens = (n + 1) / 2;
    const int odds = n / 2;
    e[0] = down(e[0]) - s2(o[0]);
    for (int j = 1; j < odds; ++j)
        e[j] = down(e[j]) - s4(o[j - 1] + o[j]);
    if (evens > odds && evens >= 2)
        e[evens - 1] = down(e[evens - 1]) - s2(o[evens - 2]);
    predictSplit(n, 1);
    for (int j = 0; j < evens; ++j)
        x[2 * j] = T(e[j]);
    for (int j = 0; j < odds; ++j)
        x[2 * j + 1] = T(o[j]);
}

template <typename T>
T* Filter4_2<T>::lineBuffer(int count)
{
    // lines longer than the fixed buffer (columns beyond 33,491) get a larger one instead of
    // running past its end
    const size_t needed = size_t(count) + 2 * LINE_START;
    if (m_buffer.size() < needed || m_buffer.size() < size_t(LINE_BUFFER))
        m_buffer.resize(needed < size_t(LINE_BUFFER) ? size_t(LINE_BUFFER) : needed);
    return m_buffer.data() + LINE_START;
}

template <typename T>
void Filter4_2<T>::transformCopy(T* line, int count, unsigned long stride)
{
    if (count < 2)
        return;
    T* buffer = lineBuffer(count);
    for (int i = 0; i < count; ++i)
        buffer[i] = line[i * stride];
    transformInner(buffer, count);
    for (int i = 0; i < count; ++i)
        line[i * stride] = buffer[i];
}

template <typename T>
void Filter4_2<T>::untransformCopy(T* line, int count, unsigned long stride)
{
    if (count < 2)
        return;
    T* buffer = lineBuffer(count);
    for (int i = 0; i < count; ++i)
        buffer[i] = line[i * stride];
    untransformInner(buffer, count);
    for (int i = 0; i < count; ++i)
        line[i * stride] = buffer[i];
}

template <typename T>
template <int N>
void Filter4_2<T>::transformT(T* x, int n, std::ptrdiff_t s)
{
    if (n < 2)
        return;
    // predict the odd samples from the even ones, which do not change meanwhile; the first
    // and the last few read mirrored samples. Each step computes all N lanes before storing
    // them, so the lanes are free of aliasing and vectorise.
    W lane[N];
    const int innerEnd = n - 3; // odd i < innerEnd have i + 3 inside the line
    for (int i = 1; i < n; i += 2)
    {
        T* p = x + i * s;
        if (i >= 3 && i < innerEnd)
        {
            for (; i < innerEnd; i += 2, p += 2 * s)
            {
                for (int k = 0; k < N; ++k)
                    lane[k] = W(p[k]) - s16(9 * (W(p[k - s]) + W(p[k + s])) - (W(p[k - 3 * s]) + W(p[k + 3 * s])));
                for (int k = 0; k < N; ++k)
                    p[k] = T(lane[k]);
            }
            i -= 2;
            continue;
        }
        const T* a = x + mirror(i - 3, n) * s;
        const T* b = x + mirror(i - 1, n) * s;
        const T* c = x + mirror(i + 1, n) * s;
        const T* d = x + mirror(i + 3, n) * s;
        for (int k = 0; k < N; ++k)
            lane[k] = W(p[k]) - s16(9 * (W(b[k]) + W(c[k])) - (W(a[k]) + W(d[k])));
        for (int k = 0; k < N; ++k)
            p[k] = T(lane[k]);
    }
    // update and scale the even samples
    for (int k = 0; k < N; ++k)
        lane[k] = sUp(W(x[k]) + s2(x[s + k]));
    for (int k = 0; k < N; ++k)
        x[k] = T(lane[k]);
    int i = 2;
    for (T* p = x + 2 * s; i + 1 < n; i += 2, p += 2 * s)
    {
        for (int k = 0; k < N; ++k)
            lane[k] = sUp(W(p[k]) + s4(W(p[k - s]) + W(p[k + s])));
        for (int k = 0; k < N; ++k)
            p[k] = T(lane[k]);
    }
    if (i == n - 1)
    {
        T* p = x + i * s;
        for (int k = 0; k < N; ++k)
            lane[k] = sUp(W(p[k]) + s2(p[k - s]));
        for (int k = 0; k < N; ++k)
            p[k] = T(lane[k]);
    }
}

template <typename T>
template <int N>
void Filter4_2<T>::untransformT(T* x, int n, std::ptrdiff_t s)
{
    if (n < 2)
        return;
    W lane[N];
    for (int k = 0; k < N; ++k)
        lane[k] = down(x[k]) - s2(x[s + k]);
    for (int k = 0; k < N; ++k)
        x[k] = T(lane[k]);
    int i = 2;
    for (T* p = x + 2 * s; i + 1 < n; i += 2, p += 2 * s)
    {
        for (int k = 0; k < N; ++k)
            lane[k] = down(p[k]) - s4(W(p[k - s]) + W(p[k + s]));
        for (int k = 0; k < N; ++k)
            p[k] = T(lane[k]);
    }
    if (i == n - 1)
    {
        T* p = x + i * s;
        for (int k = 0; k < N; ++k)
            lane[k] = down(p[k]) - s2(p[k - s]);
        for (int k = 0; k < N; ++k)
            p[k] = T(lane[k]);
    }
    const int innerEnd = n - 3;
    for (i = 1; i < n; i += 2)
    {
        T* p = x + i * s;
        if (i >= 3 && i < innerEnd)
        {
            for (; i < innerEnd; i += 2, p += 2 * s)
            {
                for (int k = 0; k < N; ++k)
                    lane[k] = W(p[k]) + s16(9 * (W(p[k - s]) + W(p[k + s])) - (W(p[k - 3 * s]) + W(p[k + 3 * s])));
                for (int k = 0; k < N; ++k)
                    p[k] = T(lane[k]);
            }
            i -= 2;
            continue;
        }
        const T* a = x + mirror(i - 3, n) * s;
        const T* b = x + mirror(i - 1, n) * s;
        const T* c = x + mirror(i + 1, n) * s;
        const T* d = x + mirror(i + 3, n) * s;
        for (int k = 0; k < N; ++k)
            lane[k] = W(p[k]) + s16(9 * (W(b[k]) + W(c[k])) - (W(a[k]) + W(d[k])));
        for (int k = 0; k < N; ++k)
            p[k] = T(lane[k]);
    }
}

extern template class Filter4_2<short>;
extern template class Filter4_2<int>;
extern template class Filter4_2<long>;

#endif
