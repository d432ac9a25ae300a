// The binary arithmetic coder: every prefix of a stream decodes to the decisions it settles, a
// complete stream survives any bytes after it, and a budget gives the stream's prefix.
#include "gwav/ArithmeticDecoder.h"
#include "gwav/ArithmeticEncoder.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

struct Decisions
{
    std::vector<int> bits;
    std::vector<int> contexts; // 4 is the even (probability one half) decision
};

Decisions makeDecisions(std::mt19937& random, int count)
{
    Decisions d;
    std::uniform_int_distribution<int> context(0, 4);
    std::uniform_int_distribution<int> percent(0, 99);
    for (int i = 0; i < count; ++i)
    {
        const int c = context(random);
        d.contexts.push_back(c);
        d.bits.push_back(percent(random) < (c == 4 ? 50 : 3 + 30 * c));
    }
    return d;
}

std::vector<unsigned char> encode(const Decisions& d, size_t capacity, size_t* coded = nullptr)
{
    std::vector<unsigned char> out(capacity + 16, 0xA5);
    ArithmeticEncoder encoder(out.data(), capacity);
    BitModel models[4];
    size_t i = 0;
    for (; i < d.bits.size() && !encoder.full(); ++i)
    {
        if (d.contexts[i] == 4)
            encoder.encodeEven(d.bits[i]);
        else
            encoder.encode(d.bits[i], models[d.contexts[i]]);
    }
    if (!encoder.full())
        encoder.finish();
    for (size_t j = capacity; j < out.size(); ++j)
        EXPECT_EQ(0xA5, out[j]) << "written beyond the capacity";
    out.resize(encoder.length());
    if (coded != nullptr)
        *coded = i;
    return out;
}

// Decisions decoded from the bytes before the decoder runs out; all must be right.
size_t decodeCount(const Decisions& d, const std::vector<unsigned char>& bytes, size_t size)
{
    ArithmeticDecoder decoder(bytes.data(), size);
    BitModel models[4];
    for (size_t i = 0; i < d.bits.size(); ++i)
    {
        const int bit = d.contexts[i] == 4 ? decoder.decodeEven() : decoder.decode(models[d.contexts[i]]);
        if (decoder.exhausted())
            return i;
        EXPECT_EQ(d.bits[i], bit) << "decision " << i << " from " << size << " bytes";
        if (d.bits[i] != bit)
            return 0;
    }
    return d.bits.size();
}

} // namespace

TEST(ArithmeticCoderTest, EveryPrefixDecodesMoreOfTheDecisions)
{
    std::mt19937 random(21);
    for (int trial = 0; trial < 30; ++trial)
    {
        const Decisions d = makeDecisions(random, 50 + trial * 97);
        const std::vector<unsigned char> stream = encode(d, 1 << 20);
        size_t previous = 0;
        for (size_t size = 0; size <= stream.size(); ++size)
        {
            const size_t count = decodeCount(d, stream, size);
            ASSERT_GE(count, previous) << "prefix " << size;
            previous = count;
        }
        EXPECT_EQ(d.bits.size(), previous) << "the complete stream decodes every decision";
        // bytes after a complete stream change nothing
        std::vector<unsigned char> padded = stream;
        for (int i = 0; i < 8; ++i)
            padded.push_back((unsigned char)random());
        EXPECT_EQ(d.bits.size(), decodeCount(d, padded, padded.size()));
    }
}

TEST(ArithmeticCoderTest, BudgetGivesThePrefixOfTheFullStream)
{
    std::mt19937 random(4);
    const Decisions d = makeDecisions(random, 20000);
    const std::vector<unsigned char> full = encode(d, 1 << 20);
    for (size_t capacity : {size_t(0), size_t(1), size_t(5), full.size() / 3, full.size() - 1})
    {
        size_t coded = 0;
        const std::vector<unsigned char> cut = encode(d, capacity, &coded);
        ASSERT_EQ(capacity, cut.size());
        EXPECT_TRUE(std::equal(cut.begin(), cut.end(), full.begin())) << capacity;
        EXPECT_LE(decodeCount(d, cut, cut.size()), coded);
    }
}
