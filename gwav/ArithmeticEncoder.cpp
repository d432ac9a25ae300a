#include "gwav/ArithmeticEncoder.h"

ArithmeticEncoder::ArithmeticEncoder(unsigned char* out, size_t capacity)
    : m_low(0)
    , m_range(0xFFFFFFFFu)
    , m_cache(0)
    , m_pending(1)
    , m_first(true)
    , m_out(out)
    , m_capacity(capacity)
    , m_written(0)
{
}

void ArithmeticEncoder::encodeEven(int bit)
{
    const uint32_t half = m_range >> 1;
    if (bit)
        m_range = half;
    else
    {
        m_low += half;
        m_range -= half;
    }
    while (m_range < (1u << 24))
    {
        m_range <<= 8;
        shiftLow();
    }
}

void ArithmeticEncoder::shiftLow()
{
    if (uint32_t(m_low) < 0xFF000000u || (m_low >> 32) != 0)
    {
        const uint8_t carry = uint8_t(m_low >> 32);
        uint8_t byte = m_cache;
        do
        {
            if (!m_first)
            {
                if (m_written < m_capacity)
                    m_out[m_written] = uint8_t(byte + carry);
                ++m_written;
            }
            m_first = false;
            byte = 0xFF;
        } while (--m_pending != 0);
        m_cache = uint8_t(m_low >> 24);
    }
    ++m_pending;
    m_low = (m_low & 0x00FFFFFFu) << 8;
}

void ArithmeticEncoder::finish()
{
    // the shortest value whose every continuation stays inside the final interval
    int bytes = 1;
    for (; bytes < 4; ++bytes)
    {
        const uint64_t mask = (uint64_t(1) << (32 - 8 * bytes)) - 1;
        const uint64_t value = (m_low + mask) & ~mask;
        if (value + mask < m_low + m_range)
        {
            m_low = value;
            break;
        }
    }
    for (int i = 0; i <= bytes; ++i)
        shiftLow();
}
