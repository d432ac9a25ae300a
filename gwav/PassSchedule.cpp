#include "gwav/PassSchedule.h"

#include <algorithm>

std::vector<CodingPass> passSchedule(const std::vector<Subband>& bands, int planes, int refinementOffset)
{
    struct Keyed
    {
        int m_key;
        CodingPass m_pass;
    };
    std::vector<Keyed> keyed;
    for (int b = 0; b < int(bands.size()); ++b)
    {
        for (int p = planes - 1; p >= 0; --p)
        {
            keyed.push_back({16 * p + bands[b].m_weight, {b, p, false}});
            // nothing is significant before the top plane
            if (p < planes - 1)
                keyed.push_back({16 * p + bands[b].m_weight + refinementOffset, {b, p, true}});
        }
    }
    std::stable_sort(keyed.begin(), keyed.end(), [](const Keyed& a, const Keyed& b) { return a.m_key > b.m_key; });
    std::vector<CodingPass> passes;
    passes.reserve(keyed.size());
    for (const Keyed& k : keyed)
        passes.push_back(k.m_pass);
    return passes;
}
