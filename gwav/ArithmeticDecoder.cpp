#include "gwav/ArithmeticDecoder.h"

ArithmeticDecoder::ArithmeticDecoder(const unsigned char* data, size_t size)
    : m_code(0)
    , m_range(0xFFFFFFFFu)
    , m_slack(0)
    , m_position(data)
    , m_end(data + size)
    , m_exhausted(false)
{
    for (int i = 0; i < 4; ++i)
        m_code = (m_code << 8) | next();
}

int ArithmeticDecoder::decodeEven()
{
    if (m_exhausted)
        return 0;
    const uint32_t half = m_range >> 1;
    int bit;
    if (m_code >= half)
    {
        bit = 0;
        m_code -= half;
        m_range -= half;
    }
    else if (highest() < half)
    {
        bit = 1;
        m_range = half;
    }
    else
    {
        m_exhausted = true;
        return 0;
    }
    while (m_range < (1u << 24))
    {
        m_range <<= 8;
        m_code = (m_code << 8) | next();
    }
    return bit;
}
