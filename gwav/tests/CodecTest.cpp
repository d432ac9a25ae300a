// The binary arithmetic coder and the codec's entry points: every prefix of a stream decodes to
// what it settles, bytes after a complete stream change nothing, a budget gives the stream's
// prefix; the codec's header, refusals, damaged streams, and the quality of 4096-byte dumps of
// real images.
#include "gwav/ArithmeticDecoder.h"
#include "gwav/ArithmeticEncoder.h"
#include "gwav/gwav.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcfilefo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
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

struct Image { int bytesPerPixel; int columns; int rows; std::vector<unsigned char> pixels; };

Image makeImage(int bytesPerPixel, int columns, int rows, std::mt19937& random, bool smooth)
{
    Image image{bytesPerPixel, columns, rows, std::vector<unsigned char>(size_t(bytesPerPixel) * columns * rows)};
    std::uniform_int_distribution<int> byte(0, 255);
    for (size_t i = 0; i < image.pixels.size(); ++i)
    {
        const size_t pixel = i / size_t(bytesPerPixel);
        const int x = int(pixel % size_t(columns));
        const int y = int(pixel / size_t(columns));
        image.pixels[i] = smooth ? (unsigned char)(x * 3 + y * 5 + (i % size_t(bytesPerPixel)) * 40 + byte(random) % 4)
                                 : (unsigned char)byte(random);
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

std::vector<unsigned char> compress(Image& image, unsigned long budget)
{
    std::vector<unsigned char> out(budget);
    const unsigned long length = gwavcompress(image.pixels.data(), 7, image.bytesPerPixel, image.columns, image.rows,
                                              out.data(), budget);
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

// A 16-bit grey frame of the pydicom corpus.
Image corpusImage(const char* name)
{
    DcmFileFormat file;
    EXPECT_TRUE(file.loadFile(fixtures::corpusFile(name).c_str()).good()) << name;
    Uint16 rows = 0, columns = 0;
    const Uint16* words = nullptr;
    unsigned long count = 0;
    DcmDataset* dataset = file.getDataset();
    dataset->findAndGetUint16(DCM_Rows, rows);
    dataset->findAndGetUint16(DCM_Columns, columns);
    dataset->findAndGetUint16Array(DCM_PixelData, words, &count);
    EXPECT_EQ(size_t(rows) * columns, count);
    return sixteenBit(columns, rows, std::vector<uint16_t>(words, words + count));
}

// Squared error of signed 16-bit samples, and the PSNR with the original's maximum as peak.
double squaredError(const Image& original, const std::vector<unsigned char>& decoded)
{
    double sum = 0;
    for (size_t i = 0; i + 1 < decoded.size(); i += 2)
    {
        int16_t a, b;
        memcpy(&a, &original.pixels[i], 2);
        memcpy(&b, &decoded[i], 2);
        sum += double(a - b) * double(a - b);
    }
    return sum;
}

double psnr(const Image& original, const std::vector<unsigned char>& decoded)
{
    double peak = -32768;
    for (size_t i = 0; i < original.pixels.size(); i += 2)
    {
        int16_t a;
        memcpy(&a, &original.pixels[i], 2);
        peak = std::max(peak, double(a));
    }
    const double mse = squaredError(original, decoded) / double(original.pixels.size() / 2);
    return mse == 0 ? INFINITY : 10 * std::log10(peak * peak / mse);
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

TEST(CodecTest, HeaderAndInfo)
{
    std::mt19937 random(1);
    Image image = makeImage(2, 300, 5, random, true);
    std::vector<unsigned char> out(4096);
    const unsigned long length = gwavcompress(image.pixels.data(), 0x1234, 2, 300, 5, out.data(), 4096);
    ASSERT_GE(length, 10u);
    EXPECT_EQ(0, memcmp(out.data(), "GW10\x02\x34\x2c\x01\x05\x00", 10));
    int parameter = 0, bytesPerPixel = 0, columns = 0, rows = 0;
    ASSERT_TRUE(gwavinfo(out.data(), parameter, bytesPerPixel, columns, rows));
    EXPECT_EQ(0x34, parameter);
    EXPECT_EQ(2, bytesPerPixel);
    EXPECT_EQ(300, columns);
    EXPECT_EQ(5, rows);
    out[2] = 'X';
    EXPECT_FALSE(gwavinfo(out.data(), parameter, bytesPerPixel, columns, rows));
}

TEST(CodecTest, LosslessWithALargeBudgetAndDeterministic)
{
    std::mt19937 random(2);
    std::vector<Image> images;
    for (int bytesPerPixel = 1; bytesPerPixel <= 3; ++bytesPerPixel)
        for (const auto& size : {std::make_pair(1, 1), std::make_pair(1, 17), std::make_pair(17, 1), std::make_pair(2, 2),
                                 std::make_pair(33, 20), std::make_pair(70, 3), std::make_pair(130, 97)})
            for (bool smooth : {false, true})
                images.push_back(makeImage(bytesPerPixel, size.first, size.second, random, smooth));
    images.push_back(sixteenBit(41, 37, {0x8000, 0x7FFF, 0x7FFF, 0x8000, 0}));   // signed extremes
    images.push_back(sixteenBit(41, 37, {0, 0xFFFF, 0xFFFF, 0, 0x1234}));        // unsigned extremes
    images.push_back(sixteenBit(64, 64, {0xFC18, 0xFC18, 0x0028, 0x0BB8}));      // a CT: -1000, 40, 3000
    // FNV-1a over every complete and every budgeted stream: stored dumps must decode with later
    // versions, so a change of the coder's tables, contexts or filters (round trips stay exact) shows
    unsigned long long format = 14695981039346656037ull;
    for (Image& image : images)
    {
        const unsigned long budget = 64 + (unsigned long)image.pixels.size() * 3;
        const std::vector<unsigned char> stream = compress(image, budget);
        for (const std::vector<unsigned char>& bytes : {stream, compress(image, 12 + budget / 10)})
            for (unsigned char b : bytes)
                format = (format ^ b) * 1099511628211ull;
        ASSERT_GT(stream.size(), 10u);
        ASSERT_LT(stream.size(), budget) << "the stream ends before the budget when it is complete";
        EXPECT_EQ(image.pixels, decompress(stream, stream.size(), image))
            << image.bytesPerPixel << " bytes, " << image.columns << " x " << image.rows;
        EXPECT_EQ(stream, compress(image, budget)) << "the same image gives the same bytes";
        // bytes after a complete stream change nothing
        std::vector<unsigned char> padded = stream;
        for (int i = 0; i < 256; ++i)
            padded.push_back((unsigned char)random());
        EXPECT_EQ(image.pixels, decompress(padded, padded.size(), image));
    }    EXPECT_EQ(0x1d6b1bf48fab80c1ull, format) << std::hex << format;
}

TEST(CodecTest, BudgetIsKeptAndEveryPrefixDecodesNoWorse)
{
    Image image = corpusImage("MR_small.dcm");
    for (unsigned long budget : {10ul, 11ul, 100ul, 1000ul})
        EXPECT_EQ(budget, compress(image, budget).size());
    const std::vector<unsigned char> stream = compress(image, 1200);
    ASSERT_EQ(1200u, stream.size());
    // Each byte settles more of every coefficient, but a refined estimate of one coefficient
    // can land farther from its value than the guess before (about a quarter of them do), so
    // the image's error is not smaller after every single byte: it may not fall back more than
    // a fraction of a decibel below the best of the shorter prefixes, and a prefix twice as
    // long is never worse.
    std::vector<double> quality(stream.size() + 1, 0);
    double best = 0;
    for (size_t size = 10; size <= stream.size(); ++size)
    {
        bool ok = false;
        quality[size] = psnr(image, decompress(stream, size, image, &ok));
        ASSERT_TRUE(ok) << "prefix of " << size << " bytes";
        ASSERT_GT(quality[size], best - (size < 64 ? 0.6 : 0.2)) << "prefix of " << size << " bytes";
        if (size >= 20)
        {
            ASSERT_GE(quality[size], quality[size / 2]) << "prefix of " << size << " bytes";
        }
        best = std::max(best, quality[size]);
    }
    // a prefix is the same stream cut short: the stream of a smaller budget
    const std::vector<unsigned char> small = compress(image, 500);
    EXPECT_TRUE(std::equal(small.begin(), small.end(), stream.begin()));
}

TEST(CodecTest, RefusesWhatIsNoStreamOrNoImage)
{
    std::mt19937 random(4);
    Image image = makeImage(1, 8, 8, random, true);
    const std::vector<unsigned char> stream = compress(image, 4096);
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
    std::vector<unsigned char> out(4096);
    EXPECT_EQ(0u, gwavcompress(image.pixels.data(), 0, 4, 8, 8, out.data(), 4096));
    EXPECT_EQ(0u, gwavcompress(image.pixels.data(), 0, 1, 0, 8, out.data(), 4096));
    EXPECT_EQ(0u, gwavcompress(image.pixels.data(), 0, 1, 8, 70000, out.data(), 4096));
    EXPECT_EQ(0u, gwavcompress(image.pixels.data(), 0, 1, 8, 8, out.data(), 9));
    EXPECT_EQ(0u, gwavcompress(nullptr, 0, 1, 8, 8, out.data(), 4096));
}

TEST(CodecTest, DamagedStreamsDecodeWithoutHarm)
{
    std::mt19937 random(5);
    Image image = corpusImage("CT_small.dcm");
    const std::vector<unsigned char> stream = compress(image, 3000);
    std::uniform_int_distribution<size_t> position(10, stream.size() - 1);
    for (int trial = 0; trial < 200; ++trial)
    {
        std::vector<unsigned char> bad = stream;
        for (int flips = 0; flips <= trial % 5; ++flips)
            bad[position(random)] ^= (unsigned char)(1 + random() % 255);
        const size_t size = 10 + random() % (bad.size() - 9);
        decompress(bad, size, image); // the sanitizers watch what it reads and writes
    }
}

TEST(CodecTest, DumpsOfRealImagesBeatJpeg2000)
{
    // OpenJPEG's irreversible 9/7 at the largest rate that fits 4086 bytes of codestream
    const struct { const char* name; double jpeg2000; } cases[] = {{"CT_small.dcm", 49.97}, {"MR_small.dcm", 71.9}};
    for (const auto& c : cases)
    {
        Image image = corpusImage(c.name);
        const std::vector<unsigned char> stream = compress(image, 4096);
        EXPECT_GE(psnr(image, decompress(stream, stream.size(), image)), c.jpeg2000) << c.name;
    }
}
