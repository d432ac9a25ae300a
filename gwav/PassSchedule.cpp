#include "gwav/PassSchedule.h"

#include <algorithm>

std::vector<CodingPass> passSchedule(const std::vector<Subband>& bands, int planes, int propagationOffset,
                                     int refinementOffset)
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
            const int key = 16 * p + bands[b].m_weight;
            // nothing is significant before the top plane
            if (p < planes - 1)
            {
                keyed.push_back({key + propagationOffset, {b, p, PASS_PROPAGATION}});
                keyed.push_back({key + refinementOffset, {b, p, PASS_REFINEMENT}});
            }
            keyed.push_back({key, {b, p, PASS_CLEANUP}});
        }
    }
    std::stable_sort(keyed.begin(), keyed.end(), [](const Keyed& a, const Keyed& b) { return a.m_key > b.m_key; });
    std::vector<CodingPass> passes;
    passes.reserve(keyed.size());
    for (const Keyed& k : keyed)
        passes.push_back(k.m_pass);
    return passes;
}
