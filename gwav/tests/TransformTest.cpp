// The 4-2 lifting filter and the two-dimensional transform: the filter's arithmetic on small
// lines, exact inversion, the fast and unrolled forms against the plain steps; the level rule,
// agreement with line-by-line filtering and the stop flag.
#include "gwav/Filter4_2.h"
#include "gwav/Wavelet.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

// A line with the three spare cells on each side that the inner forms need.
template <typename T>
struct PaddedLine
{
    explicit PaddedLine(const std::vector<T>& values) : cells(values.size() + 6, T(0x5A5A))
    {
        std::copy(values.begin(), values.end(), cells.begin() + 3);
    }
    T* line() { return cells.data() + 3; }
    std::vector<T> values() const { return std::vector<T>(cells.begin() + 3, cells.end() - 3); }
    std::vector<T> cells;
};

template <typename T>
std::vector<T> randomLine(std::mt19937& random, int count, long amplitude)
{
    std::uniform_int_distribution<long> value(-amplitude, amplitude);
    std::vector<T> values(static_cast<size_t>(count));
    for (T& v : values)
        v = T(value(random));
    return values;
}

template <typename T>
std::vector<T> forwardInner(const std::vector<T>& values)
{
    PaddedLine<T> padded(values);
    Filter4_2<T>().transformInner(padded.line(), int(values.size()));
    return padded.values();
}

template <typename T>
std::vector<T> samples(const ImageData<T>& image)
{
    const size_t count = size_t(image.planes()) * image.width() * image.height();
    return std::vector<T>(image.plane(0), image.plane(0) + count);
}

template <typename T>
void fill(ImageData<T>& image, std::mt19937& random, long low, long high)
{
    std::uniform_int_distribution<long> value(low, high);
    const size_t count = size_t(image.planes()) * image.width() * image.height();
    for (size_t i = 0; i < count; ++i)
        image.plane(0)[i] = T(value(random));
}

// The transform written out with the plain copying filter, one line at a time.
template <typename T>
void plainTransform(ImageData<T>& image, int levels)
{
    Filter4_2<T> filter;
    const int w = image.width();
    const int h = image.height();
    for (int p = 0; p < image.planes(); ++p)
    {
        for (int l = 0; l < levels; ++l)
        {
            const int s = 1 << l;
            T* plane = image.plane(p);
            for (int y = 0; y < h; y += s)
                filter.transformCopy(plane + size_t(y) * image.stride(), (w - 1) / s + 1, s);
            for (int x = 0; x < w; x += s)
                filter.transformCopy(plane + x, (h - 1) / s + 1, s * image.stride());
        }
    }
}

} // namespace

TEST(Filter4_2Test, RoundingsAreHalfAwayFromZeroAndScalingsInvert)
{
    typedef Filter4_2<long> F;
    const struct
    {
        long v, r16, r4, r2;
    } cases[] = {{0, 0, 0, 0}, {8, 1, 2, 4}, {7, 0, 2, 4}, {-8, -1, -2, -4}, {-7, 0, -2, -4}, {24, 2, 6, 12}, {-1, 0, 0, -1}, {1, 0, 0, 1}};
    for (const auto& c : cases)
    {
        EXPECT_EQ(c.r16, F::r16(c.v)) << c.v;
        EXPECT_EQ(c.r4, F::r4(c.v)) << c.v;
        EXPECT_EQ(c.r2, F::r2(c.v)) << c.v;
    }
    EXPECT_EQ(2, F::up(2));   // (304 + 64) / 128
    EXPECT_EQ(-2, F::up(-2));
    EXPECT_EQ(6, F::up(5));   // (760 + 64) / 128
    for (long v = -100000; v <= 100000; ++v)
        ASSERT_EQ(v, F::down(F::up(v))) << v;
    for (long v : {1L << 40, -(1L << 40) - 7, (1L << 50) + 12345})
        EXPECT_EQ(v, F::down(F::up(v))) << v;
}

TEST(Filter4_2Test, SmallLinesFollowTheBoundaryRules)
{
    typedef Filter4_2<long> F;
    // two samples: x1 is predicted from x0 and the extension x2 = x0
    EXPECT_EQ((std::vector<long>{F::up(10 + F::r2(7)), 7}), forwardInner<long>({10, 17}));
    // a constant line: odd samples 0, even ones up(value)
    for (int n = 2; n <= 9; ++n)
    {
        const std::vector<long> out = forwardInner<long>(std::vector<long>(size_t(n), 100));
        for (int i = 0; i < n; ++i)
            EXPECT_EQ(i % 2 ? 0 : F::up(100), out[size_t(i)]) << "n " << n << " i " << i;
    }
    // three samples: x1 - r16(9 (x0 + x2) - (x2 + x0)), last even sample without right neighbour
    const std::vector<long> three = forwardInner<long>({0, 50, 32});
    const long d = 50 - F::r16(9 * 32 - 32);
    EXPECT_EQ((std::vector<long>{F::up(F::r2(d)), d, F::up(32 + F::r2(d))}), three);
    // fewer than two samples stay as they are
    EXPECT_EQ((std::vector<long>{42}), forwardInner<long>({42}));
    PaddedLine<long> one({42});
    Filter4_2<long>().untransformInner(one.line(), 1);
    EXPECT_EQ((std::vector<long>{42}), one.values());
}

// Every form of the filter, forward then inverse, for every length up to 70.
template <typename T>
void checkAllForms(long amplitude)
{
    std::mt19937 random(7);
    Filter4_2<T> filter;
    for (int n = 1; n <= 70; ++n)
    {
        const std::vector<T> original = randomLine<T>(random, n, amplitude);
        const std::vector<T> expected = forwardInner(original);
        // strided line of stride 3 inside a larger buffer
        std::vector<T> strided(size_t(n) * 3, T(1));
        for (int i = 0; i < n; ++i)
            strided[size_t(i) * 3] = original[size_t(i)];
        std::vector<T> fast = strided;
        filter.transformCopy(strided.data(), n, 3);
        filter.transform(fast.data(), n, 3);
        for (int i = 0; i < n; ++i)
        {
            ASSERT_EQ(expected[size_t(i)], strided[size_t(i) * 3]) << "copy n " << n << " i " << i;
            ASSERT_EQ(expected[size_t(i)], fast[size_t(i) * 3]) << "fast n " << n << " i " << i;
        }
        filter.untransformCopy(strided.data(), n, 3);
        filter.untransformFast(fast.data(), n, 3);
        PaddedLine<T> inner(expected);
        filter.untransformInner(inner.line(), n);
        EXPECT_EQ(original, inner.values()) << "inner n " << n;
        std::vector<T> row = original;
        filter.transformRow(row.data(), n);
        EXPECT_EQ(expected, row) << "row n " << n;
        filter.untransformRow(row.data(), n);
        EXPECT_EQ(original, row) << "row n " << n;
        for (int i = 0; i < n; ++i)
        {
            ASSERT_EQ(original[size_t(i)], strided[size_t(i) * 3]) << "copy n " << n;
            ASSERT_EQ(original[size_t(i)], fast[size_t(i) * 3]) << "fast n " << n;
            ASSERT_EQ(T(1), strided[size_t(i) * 3 + 1]) << "a sample between the strided ones changed";
        }
    }
}

TEST(Filter4_2Test, EveryFormInvertsExactlyAndMatchesThePlainSteps)
{
    checkAllForms<long>(70000);
    checkAllForms<int>(70000);
    checkAllForms<short>(255);
}

// N lines at once, side by side, equal N plain filters.
template <int N>
void checkUnrolled(std::mt19937& random)
{
    Filter4_2<long> filter;
    for (int n = 1; n <= 40; ++n)
    {
        std::vector<std::vector<long>> lines;
        for (int k = 0; k < N; ++k)
            lines.push_back(randomLine<long>(random, n, 1 << 20));
        std::vector<long> block(size_t(n) * N);
        for (int i = 0; i < n; ++i)
            for (int k = 0; k < N; ++k)
                block[size_t(i) * N + size_t(k)] = lines[size_t(k)][size_t(i)];
        filter.template transformT<N>(block.data(), n, N);
        for (int k = 0; k < N; ++k)
        {
            const std::vector<long> expected = forwardInner(lines[size_t(k)]);
            for (int i = 0; i < n; ++i)
                ASSERT_EQ(expected[size_t(i)], block[size_t(i) * N + size_t(k)]) << "N " << N << " n " << n << " line " << k;
        }
        filter.template untransformT<N>(block.data(), n, N);
        for (int k = 0; k < N; ++k)
            for (int i = 0; i < n; ++i)
                ASSERT_EQ(lines[size_t(k)][size_t(i)], block[size_t(i) * N + size_t(k)]) << "N " << N << " n " << n;
    }
}

TEST(Filter4_2Test, UnrolledFormsEqualThePlainSteps)
{
    std::mt19937 random(11);
    checkUnrolled<1>(random);
    checkUnrolled<2>(random);
    checkUnrolled<4>(random);
    checkUnrolled<8>(random);
}

TEST(Filter4_2Test, LinesLongerThanTheFixedBufferAreFilteredWhole)
{
    std::mt19937 random(3);
    const int n = Filter4_2<long>::LINE_BUFFER + 100;
    const std::vector<long> original = randomLine<long>(random, n, 65535);
    std::vector<long> copy = original;
    std::vector<long> fast = original;
    Filter4_2<long> filter;
    filter.transformCopy(copy.data(), n, 1);
    filter.transformFast(fast.data(), n, 1);
    EXPECT_EQ(fast, copy);
    filter.untransformCopy(copy.data(), n, 1);
    EXPECT_EQ(original, copy);
}

TEST(WaveletTest, LevelRule)
{
    const struct
    {
        int width, height, levels;
    } cases[] = {{512, 512, 5}, {16, 16, 3}, {3, 3, 0}, {1, 100, 0}, {100, 1, 0}, {2, 2, 0}, {4, 4, 1},
                 {64, 64, 5}, {63, 64, 4}, {2048, 8, 2}, {70, 70, 5}};
    for (const auto& c : cases)
        EXPECT_EQ(c.levels, Wavelet<long>::levels(c.width, c.height)) << c.width << " x " << c.height;
    EXPECT_EQ(8, Wavelet<long>::levels(512, 512, 8));
}

TEST(WaveletTest, EqualsLineByLineFilteringAndInvertsForEverySize)
{
    std::mt19937 random(5);
    Wavelet<long> wavelet;
    for (int w = 1; w <= 70; ++w)
    {
        for (int h = 1; h <= 70; h += (w % 7 == 0 ? 1 : 5))
        {
            ImageData<long> image(1, w, h);
            fill(image, random, -32768, 65535);
            const std::vector<long> original = samples(image);
            ImageData<long> plain(1, w, h);
            std::copy(original.begin(), original.end(), plain.plane(0));
            wavelet.transform(&image);
            plainTransform(plain, Wavelet<long>::levels(w, h));
            ASSERT_EQ(samples(plain), samples(image)) << w << " x " << h;
            if (Wavelet<long>::levels(w, h) == 0)
            {
                ASSERT_EQ(original, samples(image)) << w << " x " << h << " has no level and stays";
            }
            wavelet.untransform(&image);
            ASSERT_EQ(original, samples(image)) << w << " x " << h;
        }
    }
}

TEST(WaveletTest, InvertsExtremeSixteenBitPlanesAndEightBitPlanesInShorts)
{
    // alternating extremes give the largest coefficients
    for (const long low : {-32768L, 0L})
    {
        ImageData<long> image(2, 130, 97);
        const size_t count = size_t(2) * 130 * 97;
        for (size_t i = 0; i < count; ++i)
            image.plane(0)[i] = ((i / 130 + i) % 2) ? low + 65535 : low;
        const std::vector<long> original = samples(image);
        Wavelet<long> wavelet(8);
        wavelet.transform(&image);
        EXPECT_NE(original, samples(image));
        wavelet.untransform(&image);
        EXPECT_EQ(original, samples(image));
    }
    std::mt19937 random(9);
    ImageData<short> bytes(1, 257, 129);
    fill(bytes, random, 0, 255);
    const std::vector<short> original = samples(bytes);
    Wavelet<short> wavelet;
    wavelet.transform(&bytes);
    wavelet.untransform(&bytes);
    EXPECT_EQ(original, samples(bytes));
}

TEST(WaveletTest, StopFlagLeavesThePlanesAlone)
{
    std::mt19937 random(1);
    ImageData<long> image(1, 64, 64);
    fill(image, random, 0, 4095);
    const std::vector<long> original = samples(image);
    Wavelet<long> wavelet;
    wavelet.stop();
    EXPECT_TRUE(wavelet.stopped());
    wavelet.transform(&image);
    EXPECT_EQ(original, samples(image));
    wavelet.resume();
    wavelet.transform(&image);
    EXPECT_NE(original, samples(image));
}
