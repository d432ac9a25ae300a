// The two-dimensional transform: the level rule, agreement with line-by-line filtering, exact
// inversion and the stop flag.
#include "gwav/Wavelet.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

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
