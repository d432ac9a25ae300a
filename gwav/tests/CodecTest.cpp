// The binary arithmetic coder and the codec's calls: pinned stream bytes, lossless complete
// streams, budgets and prefixes, the header, refusals, damaged streams.
#include "gwav/ArithmeticDecoder.h"
#include "gwav/ArithmeticEncoder.h"
#include "gwav/gwav.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace {

// Decisions in four adaptive contexts of different skew; context 4 is the even decision.
struct Decisions { std::vector<int> bits, contexts; };

std::vector<unsigned char> encode(const Decisions& d)
{
    std::vector<unsigned char> out(1 << 20);
    ArithmeticEncoder encoder(out.data(), out.size());
    BitModel models[4];
    for (size_t i = 0; i < d.bits.size(); ++i)
        d.contexts[i] == 4 ? encoder.encodeEven(d.bits[i]) : encoder.encode(d.bits[i], models[d.contexts[i]]);
    encoder.finish();
    out.resize(encoder.length());
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

struct Image { int bytesPerPixel; int columns; int rows; std::vector<unsigned char> pixels; };

Image makeImage(int bytesPerPixel, int columns, int rows, std::mt19937& random, bool smooth)
{
    Image image{bytesPerPixel, columns, rows, std::vector<unsigned char>(size_t(bytesPerPixel) * columns * rows)};
    for (size_t i = 0; i < image.pixels.size(); ++i)
    {
        const size_t x = i / size_t(bytesPerPixel) % size_t(columns), y = i / size_t(bytesPerPixel) / size_t(columns);
        image.pixels[i] = (unsigned char)(smooth ? x * 3 + y * 5 + (i % size_t(bytesPerPixel)) * 40 + random() % 4 : random());
    }
    return image;
}

Image sixteenBit(int columns, int rows, const std::vector<uint16_t>& values)
{
    Image image{2, columns, rows, std::vector<unsigned char>(size_t(columns) * rows * 2)};
    for (size_t i = 0; i < size_t(columns) * rows; ++i)
        memcpy(&image.pixels[2 * i], &values[i % values.size()], 2);
    return image;
}

// A 16-bit grey frame of the pydicom corpus.
Image corpusImage(const char* name)
{
    DcmFileFormat file;
    EXPECT_TRUE(file.loadFile(fixtures::corpusFile(name).c_str()).good()) << name;
    Uint16 rows = 0, columns = 0;
    const Uint16* words = nullptr;
    file.getDataset()->findAndGetUint16(DCM_Rows, rows);
    file.getDataset()->findAndGetUint16(DCM_Columns, columns);
    file.getDataset()->findAndGetUint16Array(DCM_PixelData, words);
    return sixteenBit(columns, rows, std::vector<uint16_t>(words, words + size_t(rows) * columns));
}

std::vector<unsigned char> compress(Image& image, unsigned long budget)
{
    std::vector<unsigned char> out(budget + 16, 0xA5);
    const unsigned long length =
        gwavcompress(image.pixels.data(), 7, image.bytesPerPixel, image.columns, image.rows, out.data(), budget);
    EXPECT_EQ(16, std::count(out.begin() + long(budget), out.end(), 0xA5)) << "written beyond the budget";
    out.resize(length);
    return out;
}

std::vector<unsigned char> decompress(std::vector<unsigned char> stream, size_t size, const Image& like, bool* ok = nullptr)
{
    std::vector<unsigned char> out(like.pixels.size(), 0xEE);
    const bool result = gwavdecompress(stream.data(), out.data(), (unsigned long)size);
    if (ok != nullptr)
        *ok = result;
    return out;
}

// PSNR of signed 16-bit samples with the original's maximum as peak.
double psnr(const Image& original, const std::vector<unsigned char>& decoded)
{
    double peak = -32768, sum = 0;
    for (size_t i = 0; i + 1 < decoded.size(); i += 2)
    {
        int16_t a, b;
        memcpy(&a, &original.pixels[i], 2);
        memcpy(&b, &decoded[i], 2);
        peak = std::max(peak, double(a));
        sum += double(a - b) * double(a - b);
    }
    return sum == 0 ? INFINITY : 10 * std::log10(peak * peak * double(decoded.size() / 2) / sum);
}

uint64_t fnv1a(const std::vector<unsigned char>& bytes)
{
    uint64_t hash = 14695981039346656037ull;
    for (unsigned char b : bytes)
        hash = (hash ^ b) * 1099511628211ull;
    return hash;
}

} // namespace

TEST(ArithmeticCoderTest, EveryPrefixDecodesMoreOfTheDecisions)
{
    std::mt19937 random(21);
    for (int trial = 0; trial < 30; ++trial)
    {
        Decisions d;
        for (int i = 0; i < 50 + trial * 97; ++i)
        {
            // trial 0 starts with seven even 1s and an even 0, which leave the range at exactly 2^24
            const int c = trial == 0 && i < 8 ? 4 : int(random() % 5);
            d.contexts.push_back(c);
            d.bits.push_back(trial == 0 && i < 8 ? i < 7 : int(random() % 100) < (c == 4 ? 50 : 3 + 30 * c));
        }
        std::vector<unsigned char> stream = encode(d);
        size_t previous = 0;
        for (size_t size = 0; size <= stream.size(); ++size)
        {
            const size_t count = decodeCount(d, stream, size);
            ASSERT_GE(count, previous) << "prefix " << size;
            previous = count;
        }
        EXPECT_EQ(d.bits.size(), previous) << "the complete stream decodes every decision";
        for (int i = 0; i < 8; ++i)
            stream.push_back((unsigned char)random());
        EXPECT_EQ(d.bits.size(), decodeCount(d, stream, stream.size())) << "bytes after the stream change nothing";
    }
}

// Stored dumps must decode with later versions: stream bytes are pinned, so that a change of the
// coder's tables, contexts or filters shows where round trips stay exact. Dumps of real images
// beat OpenJPEG's irreversible 9/7 at the same size.
TEST(CodecTest, CompleteStreamsAreLosslessAndStreamBytesArePinned)
{
    std::mt19937 random(3);
    // budget 0: large enough for a complete stream, which ends before it and decodes losslessly
    struct Case { const char* what; Image image; unsigned long budget; size_t size; uint64_t fnv; double psnr; };
    Case cases[] = {
        {"8-bit 1 x 1", makeImage(1, 1, 1, random, false), 0, 12, 0xd4cdf64644014c39ull, 0},
        {"RGB 1 x 17", makeImage(3, 1, 17, random, false), 0, 71, 0x5ac3c0b459a52ce1ull, 0},
        {"16-bit 17 x 1", makeImage(2, 17, 1, random, true), 0, 42, 0x7f5ee5e4aea7bae4ull, 0},
        {"8-bit 2 x 2", makeImage(1, 2, 2, random, false), 0, 16, 0xf5c1dfa8bf50b9a7ull, 0},
        {"8-bit noise", makeImage(1, 33, 21, random, false), 0, 807, 0xc2f2d2856bd28faaull, 0},
        {"16-bit noise", makeImage(2, 33, 20, random, false), 0, 1436, 0x336f2a07cbc04586ull, 0},
        {"RGB noise", makeImage(3, 70, 3, random, false), 0, 700, 0x98c4ad767a5e8430ull, 0},
        {"8-bit smooth", makeImage(1, 130, 97, random, true), 0, 6347, 0x55c6192fae8b1bull, 0},
        {"16-bit smooth", makeImage(2, 130, 97, random, true), 0, 18994, 0x9a819d0854fb6019ull, 0},
        {"RGB smooth", makeImage(3, 71, 43, random, true), 0, 5740, 0x32f745da2feaa46dull, 0},
        {"RGB smooth, budgeted", makeImage(3, 71, 43, random, true), 700, 700, 0x65303a4d9b29999cull, 0},
        {"signed extremes", sixteenBit(41, 37, {0x8000, 0x7FFF, 0x7FFF, 0x8000, 0}), 0, 2505, 0xbe1774455549929cull, 0},
        {"unsigned extremes", sixteenBit(41, 37, {0, 0xFFFF, 0xFFFF, 0, 0x1234}), 0, 2159, 0x947b0a5b190eb1a8ull, 0},
        {"CT levels", sixteenBit(67, 65, {0xFC18, 0xFC18, 0x0028, 0x0BB8, 0x0BB8, 0x0028}), 0, 4873, 0x9f9b690fe0413047ull, 0},
        {"MR_small, budgeted", corpusImage("MR_small.dcm"), 1000, 1000, 0xfd5fe567a3ce1888ull, 0},
        {"MR_small dump", corpusImage("MR_small.dcm"), 4096, 4096, 0x235471ebf1a7b076ull, 71.9},
        {"CT_small dump", corpusImage("CT_small.dcm"), 4096, 4096, 0xa3e707a362c25eddull, 49.97},
    };
    for (Case& c : cases)
    {
        const unsigned long budget = c.budget != 0 ? c.budget : 64 + (unsigned long)c.image.pixels.size() * 3;
        std::vector<unsigned char> stream = compress(c.image, budget);
        EXPECT_EQ(c.size, stream.size()) << c.what;
        EXPECT_EQ(c.fnv, fnv1a(stream)) << c.what << std::hex << " 0x" << fnv1a(stream);
        EXPECT_EQ(c.budget == 0, stream.size() < budget) << c.what;
        for (int i = 0; i < 256 && c.budget == 0; ++i) // bytes after a complete stream change nothing
            stream.push_back((unsigned char)random());
        const std::vector<unsigned char> pixels = decompress(stream, stream.size(), c.image);
        EXPECT_TRUE(c.budget != 0 || pixels == c.image.pixels) << c.what << ": a complete stream is lossless";
        EXPECT_GE(c.psnr > 0 ? psnr(c.image, pixels) : 1, c.psnr) << c.what;
    }
}

TEST(CodecTest, BudgetIsKeptAndEveryPrefixDecodesNoWorse)
{
    Image image = corpusImage("MR_small.dcm");
    for (unsigned long budget : {10ul, 11ul, 100ul, 1000ul})
        EXPECT_EQ(budget, compress(image, budget).size());
    const std::vector<unsigned char> stream = compress(image, 1200);
    ASSERT_EQ(1200u, stream.size());
    // a refined estimate may land farther from its value, so a byte may cost a fraction of a
    // decibel, but a prefix twice as long is never worse
    std::vector<double> quality(stream.size() + 1, 0);
    double best = 0;
    for (size_t size = 10; size <= stream.size(); ++size)
    {
        bool ok = false;
        quality[size] = psnr(image, decompress(stream, size, image, &ok));
        ASSERT_TRUE(ok) << "prefix of " << size << " bytes";
        ASSERT_GT(quality[size], best - (size < 64 ? 0.6 : 0.2)) << "prefix of " << size << " bytes";
        ASSERT_GE(quality[size], size >= 20 ? quality[size / 2] : 0) << "prefix of " << size << " bytes";
        best = std::max(best, quality[size]);
    }
    const std::vector<unsigned char> small = compress(image, 500);
    EXPECT_TRUE(std::equal(small.begin(), small.end(), stream.begin())) << "a smaller budget gives a prefix";
}

TEST(CodecTest, HeaderInfoRefusalsAndDamagedStreams)
{
    std::mt19937 random(4);
    Image image = makeImage(2, 300, 5, random, true);
    std::vector<unsigned char> out(4096);
    ASSERT_GE(gwavcompress(image.pixels.data(), 0x1234, 2, 300, 5, out.data(), 4096), 10u);
    EXPECT_EQ(0, memcmp(out.data(), "GW10\x02\x34\x2c\x01\x05\x00", 10));
    int parameter = 0, bytesPerPixel = 0, columns = 0, rows = 0;
    ASSERT_TRUE(gwavinfo(out.data(), parameter, bytesPerPixel, columns, rows));
    EXPECT_EQ((std::vector<int>{0x34, 2, 300, 5}), (std::vector<int>{parameter, bytesPerPixel, columns, rows}));
    out[2] = 'X';
    EXPECT_FALSE(gwavinfo(out.data(), parameter, bytesPerPixel, columns, rows));
    image = makeImage(1, 8, 8, random, true);
    std::vector<unsigned char> stream = compress(image, 4096);
    bool ok = true;
    decompress(stream, 9, image, &ok);
    EXPECT_FALSE(ok) << "shorter than the header";
    for (const auto& damage : {std::make_pair(0, int('g')), std::make_pair(4, 0), std::make_pair(4, 4), std::make_pair(6, 0)})
    {
        std::vector<unsigned char> bad = stream;
        bad[size_t(damage.first)] = (unsigned char)damage.second;
        bad[7] = damage.first == 6 ? 0 : bad[7]; // no columns
        decompress(bad, bad.size(), image, &ok);
        EXPECT_FALSE(ok) << "byte " << damage.first;
    }
    EXPECT_EQ(0u, gwavcompress(image.pixels.data(), 0, 4, 8, 8, out.data(), 4096));
    EXPECT_EQ(0u, gwavcompress(image.pixels.data(), 0, 1, 0, 8, out.data(), 4096));
    EXPECT_EQ(0u, gwavcompress(image.pixels.data(), 0, 1, 8, 70000, out.data(), 4096));
    EXPECT_EQ(0u, gwavcompress(image.pixels.data(), 0, 1, 8, 8, out.data(), 9));
    EXPECT_EQ(0u, gwavcompress(nullptr, 0, 1, 8, 8, out.data(), 4096));
    // flipped bits: a crash fails the test, and the sanitizers watch what the decoder touches
    image = corpusImage("CT_small.dcm");
    stream = compress(image, 3000);
    for (int trial = 0; trial < 200; ++trial)
    {
        std::vector<unsigned char> bad = stream;
        for (int flips = 0; flips <= trial % 5; ++flips)
            bad[10 + random() % (bad.size() - 10)] ^= (unsigned char)(1 + random() % 255);
        decompress(bad, 10 + random() % (bad.size() - 9), image);
    }
}
