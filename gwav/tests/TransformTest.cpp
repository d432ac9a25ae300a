// The 4-2 lifting filter (every form against the plain steps, exact inversion) and the
// two-dimensional transform (level rule, line-by-line agreement, inversion, stop flag).
#include "gwav/Filter4_2.h"
#include "gwav/Wavelet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

namespace {


template <typename T>
std::vector<T> randomLine(std::mt19937& random, int count, long amplitude)
{
    std::uniform_int_distribution<long> value(-amplitude, amplitude);
    std::vector<T> values(static_cast<size_t>(count));
    std::generate(values.begin(), values.end(), [&] { return T(value(random)); });
    return values;
}

// The plain steps, forward or inverse, on a copy with the three spare cells on each side they need.
template <typename T>
std::vector<T> inner(const std::vector<T>& values, bool forward)
{
    std::vector<T> cells(values.size() + 6, T(0x5A5A));
    std::copy(values.begin(), values.end(), cells.begin() + 3);
    Filter4_2<T> filter;
    forward ? filter.transformInner(&cells[3], int(values.size())) : filter.untransformInner(&cells[3], int(values.size()));
    return std::vector<T>(cells.begin() + 3, cells.end() - 3);
}

template <typename T>
std::vector<T> samples(const ImageData<T>& image)
{
    return std::vector<T>(image.plane(0), image.plane(0) + size_t(image.planes()) * image.width() * image.height());
}

// The transform of a single plane written out with the plain copying filter, line by line.
template <typename T>
void plainTransform(ImageData<T>& image, int levels)
{
    Filter4_2<T> filter;
    const int w = image.width(), h = image.height();
    for (int s = 1; s < (1 << levels); s *= 2)
    {
        for (int y = 0; y < h; y += s)
            filter.transformCopy(image.plane(0) + size_t(y) * image.stride(), (w - 1) / s + 1, s);
        for (int x = 0; x < w; x += s)
            filter.transformCopy(image.plane(0) + x, (h - 1) / s + 1, s * image.stride());
    }
}

} // namespace

// Every form of the filter, forward then inverse, for every length up to 70 and one longer than
// the fixed line buffer; strided lines leave the cells between and after them alone.
template <typename T>
void checkAllForms(long amplitude)
{
    std::mt19937 random(7);
    Filter4_2<T> filter;
    std::vector<int> lengths(70);
    std::iota(lengths.begin(), lengths.end(), 1);
    lengths.push_back(Filter4_2<T>::LINE_BUFFER + 101);
    for (int n : lengths)
    {
        const std::vector<T> original = randomLine<T>(random, n, amplitude);
        const std::vector<T> expected = inner(original, true);
        std::vector<T> strided(size_t(n) * 3 + 3, T(1));
        for (int i = 0; i < n; ++i)
            strided[size_t(i) * 3] = original[size_t(i)];
        std::vector<T> copy = strided, fast = strided, want = strided;
        for (int i = 0; i < n; ++i)
            want[size_t(i) * 3] = expected[size_t(i)];
        filter.transformCopy(copy.data(), n, 3);
        filter.transform(fast.data(), n, 3);
        ASSERT_EQ(want, copy) << "copy n " << n;
        ASSERT_EQ(want, fast) << "fast n " << n;
        filter.untransformCopy(copy.data(), n, 3);
        filter.untransformFast(fast.data(), n, 3);
        ASSERT_EQ(strided, copy) << "copy n " << n;
        ASSERT_EQ(strided, fast) << "fast n " << n;
        EXPECT_EQ(original, inner(expected, false)) << "inner n " << n;
        std::vector<T> row = original;
        filter.transformRow(row.data(), n);
        EXPECT_EQ(expected, row) << "row n " << n;
        filter.untransformRow(row.data(), n);
        EXPECT_EQ(original, row) << "row n " << n;
    }
}

TEST(Filter4_2Test, EveryFormInvertsExactlyAndMatchesThePlainSteps)
{
    checkAllForms<long>(70000);
    checkAllForms<int>(70000);
    checkAllForms<short>(255);
}

TEST(WaveletTest, LevelRule)
{
    const struct { int width, height, levels; } cases[] = {{512, 512, 5}, {16, 16, 3}, {3, 3, 0}, {1, 100, 0},
        {100, 1, 0}, {2, 2, 0}, {4, 4, 1}, {64, 64, 5}, {63, 64, 4}, {2048, 8, 2}, {70, 70, 5}};
    for (const auto& c : cases)
        EXPECT_EQ(c.levels, Wavelet<long>::levels(c.width, c.height)) << c.width << " x " << c.height;
    EXPECT_EQ(8, Wavelet<long>::levels(512, 512, 8));
}

TEST(WaveletTest, EqualsLineByLineFilteringAndInvertsForEverySize)
{
    std::mt19937 random(5);
    std::uniform_int_distribution<long> value(-32768, 65535);
    Wavelet<long> wavelet;
    for (int w = 1; w <= 70; ++w)
        for (int h = 1; h <= 70; h += (w % 7 == 0 ? 1 : 5))
        {
            ImageData<long> image(1, w, h);
            std::generate(image.plane(0), image.plane(0) + w * h, [&] { return value(random); });
            const std::vector<long> original = samples(image);
            ImageData<long> plain(1, w, h);
            std::copy(original.begin(), original.end(), plain.plane(0));
            wavelet.transform(&image);
            plainTransform(plain, Wavelet<long>::levels(w, h));
            ASSERT_EQ(samples(plain), samples(image)) << w << " x " << h;
            wavelet.untransform(&image);
            ASSERT_EQ(original, samples(image)) << w << " x " << h;
        }
}

TEST(WaveletTest, InvertsExtremeSixteenBitPlanesAndStopsOnRequest)
{
    for (const long low : {-32768L, 0L}) // alternating extremes give the largest coefficients
    {
        ImageData<long> image(2, 130, 97);
        for (size_t i = 0; i < size_t(2) * 130 * 97; ++i)
            image.plane(0)[i] = ((i / 130 + i) % 2) ? low + 65535 : low;
        const std::vector<long> original = samples(image);
        Wavelet<long> wavelet(8);
        wavelet.stop(); // the stop flag leaves the planes alone until resumed
        wavelet.transform(&image);
        EXPECT_EQ(original, samples(image));
        wavelet.resume();
        wavelet.transform(&image);
        EXPECT_NE(original, samples(image));
        wavelet.untransform(&image);
        EXPECT_EQ(original, samples(image));
    }
}
