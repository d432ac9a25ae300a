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
    try
    {
        const size_t w = size_t(m_band.m_width);
        const size_t h = size_t(m_band.m_height);
        m_leaves.assign((w + 2) * (h + 2), 0);
        m_magnitude.assign(w * h, 0);
        m_nodeOffset.assign(size_t(m_treeLevels) + 1, 0);
        size_t nodes = 0;
        for (int k = 1; k <= m_treeLevels; ++k)
        {
            m_nodeOffset[k] = nodes;
            nodes += size_t(m_levelWidth[k] + 2) * size_t(m_levelHeight[k] + 2);
        }
        m_nodes.assign(nodes, 0);
        if (encoder)
        {
            m_bitsOffset.assign(size_t(m_treeLevels) + 1, 0);
            size_t cells = 0;
            for (int k = 0; k <= m_treeLevels; ++k)
            {
                m_bitsOffset[k] = cells;
                cells += size_t(m_levelWidth[k]) * size_t(m_levelHeight[k]);
            }
            m_bits.assign(cells, 0);
        }
        return true;
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
}
