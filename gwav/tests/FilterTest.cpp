// The 4-2 lifting filter: its arithmetic on small lines, exact inversion, and the fast and
// unrolled forms against the plain steps.
#include "gwav/Filter4_2.h"

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
