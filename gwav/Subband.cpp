#include "gwav/Subband.h"

namespace {

// log2 of the synthesis gain of one coefficient of the 4-2 filter, in 1/16 bit units, for
// levels 1 to 12: a high-pass coefficient of that level, and a low-pass one.
const int HIGH_GAIN[12] = {-5, -4, -1, 3, 7, 11, 15, 19, 24, 28, 32, 36};
const int LOW_GAIN[12] = {2, 6, 10, 14, 18, 22, 26, 30, 34, 38, 42, 46};

int gain(int level, bool high)
{
    if (level < 1)
        return 0;
    if (level > 12)
        level = 12;
    return high ? HIGH_GAIN[level - 1] : LOW_GAIN[level - 1];
}

} // namespace

std::vector<Subband> subbandLayout(int components, int width, int height, int levels,
                                   const std::vector<int>& componentWeights)
{
    std::vector<Subband> bands;
    for (int c = 0; c < components; ++c)
    {
        const int extra = c < int(componentWeights.size()) ? componentWeights[c] : 0;
        Subband ll;
        ll.m_component = c;
        ll.m_level = levels;
        ll.m_orientation = SUBBAND_LL;
        ll.m_step = 1 << levels;
        ll.m_width = (width - 1) / ll.m_step + 1;
        ll.m_height = (height - 1) / ll.m_step + 1;
        ll.m_weight = 2 * gain(levels, false) + extra;
        bands.push_back(ll);
        for (int level = levels; level >= 1; --level)
        {
            const int step = 1 << (level - 1); // the step the level's filter works at
            const int across = (width - 1) / step + 1;
            const int down = (height - 1) / step + 1;
            for (int o = SUBBAND_HL; o <= SUBBAND_HH; ++o)
            {
                Subband band;
                band.m_component = c;
                band.m_level = level;
                band.m_orientation = SUBBAND_ORIENTATION(o);
                band.m_step = 2 * step;
                const bool highAcross = o != SUBBAND_LH;
                const bool highDown = o != SUBBAND_HL;
                band.m_x0 = highAcross ? step : 0;
                band.m_y0 = highDown ? step : 0;
                band.m_width = highAcross ? across / 2 : (across + 1) / 2;
                band.m_height = highDown ? down / 2 : (down + 1) / 2;
                band.m_weight = gain(level, highAcross) + gain(level, highDown) + extra;
                // the band of the same orientation one level coarser was added three bands ago
                band.m_parent = level < levels ? int(bands.size()) - 3 : -1;
                bands.push_back(band);
            }
        }
    }
    return bands;
}
