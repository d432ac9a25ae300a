#include "gwav/BandState.h"

#include <new>

BandState::BandState(const Subband& band)
    : m_band(band)
    , m_treeLevels(0)
{
    int w = band.m_width;
    int h = band.m_height;
    m_levelWidth.push_back(w);
    m_levelHeight.push_back(h);
    while (w > 1 || h > 1)
    {
        w = (w + 1) / 2;
        h = (h + 1) / 2;
        m_levelWidth.push_back(w);
        m_levelHeight.push_back(h);
        ++m_treeLevels;
    }
}

bool BandState::allocate(bool encoder)
{
    const size_t w = size_t(m_band.m_width);
    const size_t h = size_t(m_band.m_height);
    m_leaves.reset(static_cast<uint8_t*>(calloc((w + 2) * (h + 2), 1)));
    m_magnitude.reset(new (std::nothrow) uint32_t[w * h]);
    m_nodeOffset.assign(size_t(m_treeLevels) + 1, 0);
    size_t nodes = 0;
    for (int k = 1; k <= m_treeLevels; ++k)
    {
        m_nodeOffset[k] = nodes;
        nodes += size_t(m_levelWidth[k] + 2) * size_t(m_levelHeight[k] + 2);
    }
    m_nodes.reset(static_cast<uint8_t*>(calloc(nodes > 0 ? nodes : 1, 1)));
    if (!m_leaves || !m_magnitude || !m_nodes)
        return false;
    if (encoder)
    {
        m_bitsOffset.assign(size_t(m_treeLevels) + 1, 0);
        size_t cells = 0;
        for (int k = 0; k <= m_treeLevels; ++k)
        {
            m_bitsOffset[k] = cells;
            cells += size_t(m_levelWidth[k]) * size_t(m_levelHeight[k]);
        }
        m_bits.reset(new (std::nothrow) uint8_t[cells]);
        if (!m_bits)
            return false;
    }
    return true;
}

void BandState::setSignificant(int x, int y, int p, bool negative, bool decoder)
{
    leaf(x, y) = uint8_t(SIGNIFICANT | (negative ? NEGATIVE : 0) | (p << KNOWN_SHIFT));
    if (decoder)
        magnitude(x, y) = uint32_t(1) << p;
    const int w = m_band.m_width;
    const int h = m_band.m_height;
    m_significant.push_back(uint32_t(y) * uint32_t(w) + uint32_t(x));
    // the nodes above: once one is significant, so are all above it
    for (int k = 1; k <= m_treeLevels; ++k)
    {
        uint8_t& flags = node(k, x >> k, y >> k);
        if (flags & SIGNIFICANT)
            break;
        flags |= SIGNIFICANT;
    }
    const int left = x > 0 ? x - 1 : 0;
    const int right = x + 1 < w ? x + 1 : w - 1;
    const int top = y > 0 ? y - 1 : 0;
    const int bottom = y + 1 < h ? y + 1 : h - 1;
    for (int ny = top; ny <= bottom; ++ny)
    {
        uint8_t* row = &leaf(0, ny);
        for (int nx = left; nx <= right; ++nx)
        {
            if (!(row[nx] & (SIGNIFICANT | CANDIDATE)))
            {
                row[nx] |= CANDIDATE;
                m_candidates.push_back(uint32_t(ny) * uint32_t(w) + uint32_t(nx));
            }
        }
    }
}
