#include "gwav/StreamCoder.h"

#include "gwav/ArithmeticDecoder.h"
#include "gwav/ArithmeticEncoder.h"
#include "gwav/BandState.h"
#include "gwav/PassCoder.h"
#include "gwav/PassSchedule.h"
#include "gwav/SamplePlanes.h"
#include "gwav/StreamHeader.h"
#include "gwav/Subband.h"
#include "gwav/Wavelet.h"

#include <algorithm>
#include <new>
#include <vector>

namespace {

// Bits of the "largest magnitude" field, and the most any valid stream can need: 16-bit samples
// grow by at most 151 (about 2^7.3) through ten levels, 8-bit ones and the colour differences
// stay below 2^17.
const int PLANE_FIELD_BITS = 5;
int maxPlanes(int bytesPerPixel)
{
    return bytesPerPixel == 2 ? 25 : 18;
}

// Extra weight of each plane in 1/16 bits: an error in Y reaches all three colours (gain
// sqrt 3), one in Cb or Cr about sqrt(11/16) of one.
std::vector<int> componentWeights(int bytesPerPixel)
{
    if (bytesPerPixel == 3)
        return {13, -4, -4};
    return {0};
}

// The bands and their coding state; the states refer to the bands, which stay put.
struct BandSet
{
    std::vector<Subband> m_bands;
    std::vector<BandState> m_states;

    BandSet(const BandSet&) = delete;
    BandSet& operator=(const BandSet&) = delete;
    BandSet(int components, int columns, int rows, int levels, int bytesPerPixel)
        : m_bands(subbandLayout(components, columns, rows, levels, componentWeights(bytesPerPixel)))
    {
        m_states.reserve(m_bands.size());
        for (const Subband& band : m_bands)
            m_states.emplace_back(band);
    }
};

template <class Side>
void runPasses(Side& side, BandSet& set, int planes, const StreamSettings& settings)
{
    PassCoder<Side> coder(side, set.m_states);
    const std::vector<CodingPass> passes =
        passSchedule(set.m_bands, planes, settings.m_propagationOffset, settings.m_refinementOffset);
    for (const CodingPass& pass : passes)
    {
        if (side.done())
            return;
        if (pass.m_kind == PASS_PROPAGATION)
            coder.propagation(pass.m_band, pass.m_plane);
        else if (pass.m_kind == PASS_REFINEMENT)
            coder.refinement(pass.m_band, pass.m_plane);
        else
            coder.cleanup(pass.m_band, pass.m_plane);
    }
}

// Magnitude of a significant coefficient: its known bits plus a guess at the unknown ones.
long reconstructed(BandState& state, uint32_t index, const StreamSettings& settings)
{
    const int x = int(index % uint32_t(state.width()));
    const int y = int(index / uint32_t(state.width()));
    const uint8_t flags = state.leaf(x, y);
    const int known = flags >> BandState::KNOWN_SHIFT;
    long value = long(state.magnitude(x, y));
    if (known > 0)
    {
        const int eighths = (flags & BandState::REFINED) ? settings.m_laterOffset : settings.m_firstOffset;
        value += (long(eighths) << known) >> 4;
    }
    return value;
}

// Places the decoded coefficients (the others are 0), transforms back and writes the pixels.
template <typename T>
STREAM_STATUS reconstructImage(BandSet& set, const StreamHeader& header, bool isSigned, const StreamSettings& settings,
                               unsigned char* out)
{
    const int components = planeCount(header.m_bytesPerPixel);
    ImageData<T> image(components, header.m_columns, header.m_rows);
    if (!image.valid())
        return STREAM_NO_MEMORY;
    for (int c = 0; c < components; ++c)
        std::fill(image.plane(c), image.plane(c) + size_t(header.m_columns) * size_t(header.m_rows), T(0));
    for (BandState& state : set.m_states)
    {
        const Subband& band = state.band();
        T* plane = image.plane(band.m_component);
        for (uint32_t index : state.significant())
        {
            const int x = int(index % uint32_t(band.m_width));
            const int y = int(index / uint32_t(band.m_width));
            const T value = T(reconstructed(state, index, settings));
            plane[size_t(band.m_y0 + y * band.m_step) * image.stride() + size_t(band.m_x0 + x * band.m_step)] =
                (state.leaf(x, y) & BandState::NEGATIVE) ? T(-value) : value;
        }
    }
    Wavelet<T> wavelet(settings.m_maxLevels);
    wavelet.untransform(&image);
    storePlanes(image, header.m_bytesPerPixel, isSigned, out);
    return STREAM_OK;
}

} // namespace

unsigned long encodeStream(const void* pixels, int parameter, int bytesPerPixel, int columns, int rows,
                           unsigned char* out, unsigned long budget, const StreamSettings& settings, bool* noMemory)
{
    if (noMemory != nullptr)
        *noMemory = false;
    StreamHeader header;
    header.m_bytesPerPixel = bytesPerPixel;
    header.m_parameter = parameter & 0xFF;
    header.m_columns = columns;
    header.m_rows = rows;
    if (pixels == nullptr || out == nullptr || !header.valid() || budget < StreamHeader::SIZE)
        return 0;

    const int components = planeCount(bytesPerPixel);
    // 32-bit planes hold the forward transform of 8 and 16-bit samples (see Filter4_2)
    ImageData<int> image(components, columns, rows);
    if (!image.valid())
    {
        if (noMemory != nullptr)
            *noMemory = true;
        return 0;
    }
    const bool isSigned = loadPlanes(pixels, bytesPerPixel, image);
    Wavelet<int> wavelet(settings.m_maxLevels);
    wavelet.transform(&image);

    BandSet set(components, columns, rows, wavelet.levels(), bytesPerPixel);
    int planes = 0;
    std::vector<int> coefficients;
    for (BandState& state : set.m_states)
    {
        const Subband& band = state.band();
        if (!state.allocate(true))
        {
            if (noMemory != nullptr)
                *noMemory = true;
            return 0;
        }
        coefficients.resize(size_t(band.m_width) * size_t(band.m_height));
        gatherSubband(image, band, coefficients.data());
        const int bits = state.load(coefficients.data());
        planes = bits > planes ? bits : planes;
    }

    header.write(out);
    ArithmeticEncoder encoder(out + StreamHeader::SIZE, budget - StreamHeader::SIZE);
    if (bytesPerPixel == 2)
        encoder.encodeEven(isSigned ? 1 : 0);
    for (int i = PLANE_FIELD_BITS - 1; i >= 0; --i)
        encoder.encodeEven((planes >> i) & 1);
    EncoderSide side(encoder);
    runPasses(side, set, planes, settings);
    if (!encoder.full())
        encoder.finish();
    return (unsigned long)(StreamHeader::SIZE + encoder.length());
}

STREAM_STATUS decodeStream(const unsigned char* stream, size_t size, unsigned char* out, const StreamSettings& settings)
{
    StreamHeader header;
    if (!header.read(stream, size) || out == nullptr)
        return STREAM_INVALID;
    ArithmeticDecoder decoder(stream + StreamHeader::SIZE, size - StreamHeader::SIZE);
    bool isSigned = false;
    if (header.m_bytesPerPixel == 2)
        isSigned = decoder.decodeEven() != 0;
    int planes = 0;
    for (int i = 0; i < PLANE_FIELD_BITS; ++i)
        planes = (planes << 1) | decoder.decodeEven();
    if (decoder.exhausted())
        planes = 0; // nothing known yet: a blank image
    else if (planes > maxPlanes(header.m_bytesPerPixel))
        return STREAM_INVALID;

    const int components = planeCount(header.m_bytesPerPixel);
    const int levels = Wavelet<long>::levels(header.m_columns, header.m_rows, settings.m_maxLevels);
    BandSet set(components, header.m_columns, header.m_rows, levels, header.m_bytesPerPixel);
    for (BandState& state : set.m_states)
        if (!state.allocate(false))
            return STREAM_NO_MEMORY;
    DecoderSide side(decoder);
    runPasses(side, set, planes, settings);

    // 32-bit planes when the coefficients are small enough for the inverse transform in them
    long largest = 0;
    for (BandState& state : set.m_states)
        for (uint32_t index : state.significant())
            largest = std::max(largest, reconstructed(state, index, settings));
    if (largest < (1L << 18))
        return reconstructImage<int>(set, header, isSigned, settings, out);
    return reconstructImage<long>(set, header, isSigned, settings, out);
}
