#include "gwav/PassCoder.h"

namespace {

// The nine neighbourhood classes of a leaf from its significant neighbours: h horizontal (0-2),
// v vertical (0-2), d diagonal (0-4). Bands high-pass down the column (and LL) lean on the
// horizontal neighbours, bands high-pass across the row on the vertical ones, HH on the
// diagonals.
int neighbourhoodMajor(int major, int minor, int d)
{
    if (major == 2)
        return 8;
    if (major == 1)
        return minor >= 1 ? 7 : (d >= 1 ? 6 : 5);
    if (minor == 2)
        return 4;
    if (minor == 1)
        return 3;
    return d >= 2 ? 2 : d;
}

int neighbourhoodDiagonal(int hv, int d)
{
    if (d >= 3)
        return 8;
    if (d == 2)
        return hv >= 1 ? 7 : 6;
    if (d == 1)
        return hv >= 2 ? 5 : (hv == 1 ? 4 : 3);
    return hv >= 2 ? 2 : hv;
}

// Sign context from the signs of the significant horizontal and vertical neighbours: the
// context and the bit that turns the coded decision into the sign.
struct SignContext
{
    int m_context;
    int m_flip;
};

SignContext signContext(int horizontal, int vertical)
{
    static const SignContext table[3][3] = {
        {{4, 1}, {3, 1}, {2, 1}}, // horizontal -1; vertical -1, 0, 1
        {{1, 1}, {0, 0}, {1, 0}}, // horizontal 0
        {{2, 0}, {3, 0}, {4, 0}}, // horizontal 1
    };
    return table[horizontal + 1][vertical + 1];
}

int signOf(uint8_t flags)
{
    if (!(flags & BandState::SIGNIFICANT))
        return 0;
    return (flags & BandState::NEGATIVE) ? -1 : 1;
}

int clampUnit(int v)
{
    return v < -1 ? -1 : (v > 1 ? 1 : v);
}

} // namespace

template <class Side>
PassCoder<Side>::PassCoder(Side& side, std::vector<BandState>& bands)
    : m_side(side)
    , m_bands(bands)
{
    // bits below the first refinement are nearly even: a slow, steady estimate codes them best
    for (int oc = 0; oc < 3; ++oc)
        m_refine[oc][2].m_limit = BitModel::SLOW_LIMIT;
}

template <class Side>
int PassCoder<Side>::orientationClass(const BandState& band) const
{
    switch (band.band().m_orientation)
    {
    case SUBBAND_HL:
        return 1;
    case SUBBAND_HH:
        return 2;
    default:
        return 0;
    }
}

template <class Side>
void PassCoder<Side>::cleanup(int b, int p)
{
    BandState& band = m_bands[b];
    visit(band, parentOf(band), band.treeLevels(), 0, 0, p, false, false);
}

template <class Side>
void PassCoder<Side>::propagation(int b, int p)
{
    BandState& band = m_bands[b];
    const int w = band.width();
    std::vector<uint32_t>& list = band.candidates();
    const uint8_t tested = uint8_t((p + 1) << BandState::KNOWN_SHIFT);
    size_t kept = 0;
    // leaves that turn significant add their neighbours at the end: they are coded in this pass
    for (size_t i = 0; i < list.size(); ++i)
    {
        const uint32_t index = list[i];
        const int x = int(index % uint32_t(w));
        const int y = int(index / uint32_t(w));
        uint8_t& flags = band.leaf(x, y);
        if (flags & BandState::SIGNIFICANT)
            continue;
        if ((flags & 0xF8) != tested)
        {
            const bool significant = codeLeaf(band, x, y, p, false, 0);
            if (m_side.done())
                return;
            if (significant)
                continue;
            flags = uint8_t((flags & 7) | tested);
        }
        list[kept++] = index;
    }
    list.resize(kept);
}

template <class Side>
bool PassCoder<Side>::visit(BandState& band, BandState* parent, int k, int x, int y, int p, bool forced, bool fresh)
{
    if (k == 0)
        return visitLeaf(band, x, y, p, forced, fresh);
    uint8_t& flags = band.node(k, x, y);
    bool newly = false;
    if (!(flags & BandState::SIGNIFICANT))
    {
        int bit = 1;
        if (!forced)
        {
            const size_t pw = band.paddedWidth(k);
            const uint8_t* cell = &flags;
            const std::ptrdiff_t up = -std::ptrdiff_t(pw);
            int neighbours = (cell[-1] & 1) + (cell[1] & 1) + (cell[up] & 1) + (cell[pw] & 1) + (cell[up - 1] & 1) +
                             (cell[up + 1] & 1) + (cell[pw - 1] & 1) + (cell[pw + 1] & 1);
            if (neighbours > 2)
                neighbours = 2;
            int parentClass = 2;
            if (parent != nullptr)
            {
                // the node of the coarser band over the same area, or the one above it when
                // that band's quadtree is shorter
                int pk = k - 1;
                int px = x;
                int py = y;
                if (pk > parent->treeLevels())
                {
                    px >>= pk - parent->treeLevels();
                    py >>= pk - parent->treeLevels();
                    pk = parent->treeLevels();
                }
                parentClass = 0;
                if (px < parent->levelWidth(pk) && py < parent->levelHeight(pk))
                {
                    const uint8_t pf = pk == 0 ? parent->leaf(px, py) : parent->node(pk, px, py);
                    parentClass = pf & BandState::SIGNIFICANT;
                }
            }
            const int levelClass = k >= 3 ? 2 : k - 1;
            BitModel& model = m_node[orientationClass(band)][levelClass][neighbours][parentClass][fresh ? 1 : 0];
            bit = m_side.code(Side::ENCODER ? int(band.bits(k, x, y) > p) : 0, model);
            if (m_side.done())
                return false;
        }
        if (!bit)
            return false;
        flags |= BandState::SIGNIFICANT;
        newly = true;
    }
    const int cw = band.levelWidth(k - 1);
    const int ch = band.levelHeight(k - 1);
    const int x0 = 2 * x;
    const int y0 = 2 * y;
    // the children that still need a decision; a node that just turned significant has a
    // significant one among them: the last, when all others are not
    const uint8_t tested = uint8_t((p + 1) << BandState::KNOWN_SHIFT);
    int open[4];
    int count = 0;
    for (int c = 0; c < 4; ++c)
    {
        const int cx = x0 + (c & 1);
        const int cy = y0 + (c >> 1);
        if (cx >= cw || cy >= ch)
            continue;
        if (k == 1)
        {
            const uint8_t leafFlags = band.leaf(cx, cy);
            if (!(leafFlags & BandState::SIGNIFICANT) && (leafFlags & 0xF8) == tested)
                continue;
        }
        open[count++] = c;
    }
    int insignificant = 0;
    for (int i = 0; i < count; ++i)
    {
        const int cx = x0 + (open[i] & 1);
        const int cy = y0 + (open[i] >> 1);
        const bool force = newly && i == count - 1 && insignificant == i;
        const bool significant = visit(band, parent, k - 1, cx, cy, p, force, newly);
        if (m_side.done())
            return true;
        if (!significant)
            ++insignificant;
    }
    return true;
}

template <class Side>
bool PassCoder<Side>::visitLeaf(BandState& band, int x, int y, int p, bool forced, bool fresh)
{
    if (band.leaf(x, y) & BandState::SIGNIFICANT)
        return true;
    return codeLeaf(band, x, y, p, forced, fresh ? 2 : 1);
}

template <class Side>
bool PassCoder<Side>::codeLeaf(BandState& band, int x, int y, int p, bool forced, int pass)
{
    uint8_t& flags = band.leaf(x, y);
    const size_t pw = band.paddedWidth(0);
    const uint8_t* cell = &flags;
    const uint8_t west = cell[-1];
    const uint8_t east = cell[1];
    const uint8_t north = cell[-std::ptrdiff_t(pw)];
    const uint8_t south = cell[pw];
    const int oc = orientationClass(band);
    if (!forced)
    {
        const int h = (west & 1) + (east & 1);
        const int v = (north & 1) + (south & 1);
        const int d = (cell[-std::ptrdiff_t(pw) - 1] & 1) + (cell[-std::ptrdiff_t(pw) + 1] & 1) + (cell[pw - 1] & 1) +
                      (cell[pw + 1] & 1);
        int hood;
        if (oc == 2)
            hood = neighbourhoodDiagonal(h + v, d);
        else if (oc == 1)
            hood = neighbourhoodMajor(v, h, d);
        else
            hood = neighbourhoodMajor(h, v, d);
        BitModel& model = m_leaf[oc][hood][pass];
        const int bit = m_side.code(Side::ENCODER ? int((band.magnitude(x, y) >> p) & 1) : 0, model);
        if (m_side.done() || !bit)
            return false;
    }
    const SignContext sc = signContext(clampUnit(signOf(west) + signOf(east)), clampUnit(signOf(north) + signOf(south)));
    const int negative = m_side.code(Side::ENCODER ? (((flags & BandState::NEGATIVE) ? 1 : 0) ^ sc.m_flip) : 0,
                                     m_sign[sc.m_context]) ^
                         sc.m_flip;
    if (m_side.done())
        return false;
    band.setSignificant(x, y, p, negative != 0, !Side::ENCODER);
    return true;
}

template <class Side>
void PassCoder<Side>::refinement(int b, int p)
{
    BandState& band = m_bands[b];
    const int oc = orientationClass(band);
    const int w = band.width();
    const size_t pw = band.paddedWidth(0);
    std::vector<uint32_t>& list = band.significant();
    const size_t count = list.size();
    for (size_t i = 0; i < count; ++i)
    {
        const int x = int(list[i] % uint32_t(w));
        const int y = int(list[i] / uint32_t(w));
        uint8_t& flags = band.leaf(x, y);
        if ((flags >> BandState::KNOWN_SHIFT) <= p)
            continue;
        int hood;
        if (flags & BandState::REFINED)
            hood = 2;
        else
        {
            const uint8_t* cell = &flags;
            const std::ptrdiff_t up = -std::ptrdiff_t(pw);
            const int any = (cell[-1] | cell[1] | cell[up] | cell[pw] | cell[up - 1] | cell[up + 1] | cell[pw - 1] |
                             cell[pw + 1]) &
                            1;
            hood = any;
        }
        uint32_t& magnitude = band.magnitude(x, y);
        const int bit = m_side.code(Side::ENCODER ? int((magnitude >> p) & 1) : 0, m_refine[oc][hood]);
        if (m_side.done())
            return;
        if (!Side::ENCODER)
            magnitude |= uint32_t(bit) << p;
        flags = uint8_t((flags & 7) | BandState::REFINED | (p << BandState::KNOWN_SHIFT));
    }
}

template class PassCoder<EncoderSide>;
template class PassCoder<DecoderSide>;
