#include "common/imgproc/src/histogram.h"

#include <cstdint>
#include <cstring>

CHistogram::CHistogram()
  : m_offset(0)
  , m_count(0)
{
}

void CHistogram::clear()
{
    m_bins.clear();
    m_offset = 0;
    m_count = 0;
}

void CHistogram::addSamples(const unsigned char* data, unsigned long count, unsigned int bytesPerSample,
                            bool isSigned)
{
    if (data == nullptr || count == 0 || (bytesPerSample != 1 && bytesPerSample != 2))
        return;
    const long offset = isSigned ? -(1L << (8 * bytesPerSample - 1)) : 0;
    const size_t bins = size_t(1) << (8 * bytesPerSample);
    // a different kind of samples than before (another object): start again
    if (m_bins.size() != bins || m_offset != offset)
    {
        m_bins.assign(bins, 0);
        m_offset = offset;
        m_count = 0;
    }
    unsigned long long* counts = m_bins.data();
    if (bytesPerSample == 1)
    {
        for (unsigned long i = 0; i < count; ++i)
            ++counts[isSigned ? uint8_t(data[i] ^ 0x80) : data[i]];
    }
    else
    {
        for (unsigned long i = 0; i < count; ++i)
        {
            uint16_t v;
            memcpy(&v, data + 2 * i, 2);
            ++counts[isSigned ? uint16_t(v ^ 0x8000) : v];
        }
    }
    m_count += count;
}

bool CHistogram::estimateWindow(double& center, double& width) const
{
    if (m_count == 0)
        return false;
    const unsigned long long low = m_count / 100;
    const unsigned long long high = m_count - 1 - m_count / 100;
    unsigned long long seen = 0;
    long lowValue = 0;
    long highValue = 0;
    bool lowFound = false;
    for (size_t i = 0; i < m_bins.size(); ++i)
    {
        if (m_bins[i] == 0)
            continue;
        const unsigned long long next = seen + m_bins[i];
        if (!lowFound && next > low)
        {
            lowValue = long(i) + m_offset;
            lowFound = true;
        }
        if (next > high)
        {
            highValue = long(i) + m_offset;
            break;
        }
        seen = next;
    }
    width = double(highValue - lowValue + 1);
    center = (double(lowValue) + double(highValue) + 1.0) / 2.0;
    return true;
}
