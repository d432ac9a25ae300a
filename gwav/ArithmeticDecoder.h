// The binary arithmetic (range) decoder of the "GW10" stream.
#ifndef GWAV_ARITHMETICDECODER_H
#define GWAV_ARITHMETICDECODER_H

#include "gwav/BitModel.h"

#include <cstddef>
#include <cstdint>

// Decodes the decisions of an ArithmeticEncoder from `size` bytes; nothing beyond them is read.
// The bytes may be any prefix of a stream: the decoder keeps track of what the missing bytes
// could be, returns each decision that every possible continuation agrees on, and turns
// exhausted() at the first one the prefix does not settle. From then on every call returns 0.
class ArithmeticDecoder
{
public:
    // Decodes from data (not owned), size bytes.
    ArithmeticDecoder(const unsigned char* data, size_t size);

    // The next decision under the model's probability; the model adapts as in the encoder.
    int decode(BitModel& model)
    {
        if (m_exhausted)
            return 0;
        const uint32_t bound = (m_range >> 16) * model.m_one;
        int bit;
        if (m_code >= bound)
        {
            bit = 0;
            m_code -= bound;
            m_range -= bound;
        }
        else if (highest() < bound)
        {
            bit = 1;
            m_range = bound;
        }
        else
        {
            m_exhausted = true;
            return 0;
        }
        model.update(bit);
        while (m_range < (1u << 24))
        {
            m_range <<= 8;
            m_code = (m_code << 8) | next();
        }
        return bit;
    }
    // The next decision of probability one half.
    int decodeEven();
    // True once the bytes given do not settle the next decision.
    bool exhausted() const { return m_exhausted; }

private:
    // The largest code value any continuation of the bytes could give.
    uint64_t highest() const
    {
        const uint64_t high = uint64_t(m_code) + m_slack;
        return high < m_range ? high : uint64_t(m_range) - 1;
    }
    uint32_t next()
    {
        if (m_position < m_end)
            return *m_position++;
        // a byte beyond the data: any of 0x00..0xFF
        m_slack = (m_slack << 8) | 0xFF;
        if (m_slack > 0xFFFFFFFFu)
            m_slack = 0xFFFFFFFFu;
        return 0;
    }

    uint32_t m_code;  // the code value with the missing bytes taken as 0x00
    uint32_t m_range;
    uint64_t m_slack; // what the missing bytes could add to m_code
    const unsigned char* m_position;
    const unsigned char* m_end;
    bool m_exhausted;
};

#endif
