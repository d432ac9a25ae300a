// The binary arithmetic (range) encoder of the "GW10" stream.
#ifndef GWAV_ARITHMETICENCODER_H
#define GWAV_ARITHMETICENCODER_H

#include "gwav/BitModel.h"

#include <cstddef>
#include <cstdint>

// Codes binary decisions into a caller's buffer of `capacity` bytes. A byte is written only once
// no later decision can change it (carries are held back), so the bytes written are always a
// prefix of the stream the encoder would write without limit. full() turns true when the buffer
// holds `capacity` such bytes: the caller stops there, and the buffer is the longest prefix that
// fits. finish() ends a complete stream so that every decision coded can be decoded whatever
// bytes follow it.
class ArithmeticEncoder
{
public:
    // The encoder writes into out (not owned), at most capacity bytes.
    ArithmeticEncoder(unsigned char* out, size_t capacity);

    // Codes bit (0 or 1) with the model's probability, then adapts the model.
    void encode(int bit, BitModel& model)
    {
        const uint32_t bound = (m_range >> 16) * model.m_one;
        if (bit)
            m_range = bound;
        else
        {
            m_low += bound;
            m_range -= bound;
        }
        model.update(bit);
        while (m_range < (1u << 24))
        {
            m_range <<= 8;
            shiftLow();
        }
    }
    // Codes bit with probability one half.
    void encodeEven(int bit);
    // Ends a complete stream with the fewest bytes that settle every decision.
    void finish();
    // True when capacity bytes are settled: nothing more fits.
    bool full() const { return m_written >= m_capacity; }
    // Bytes in the buffer (at most capacity).
    size_t length() const { return m_written < m_capacity ? m_written : m_capacity; }

private:
    void shiftLow();

    uint64_t m_low;
    uint32_t m_range;
    uint8_t m_cache;     // the byte waiting for a possible carry
    uint64_t m_pending;  // the waiting byte and the 0xFF bytes behind it
    bool m_first;        // the first waiting byte is always 0 and is not written
    unsigned char* m_out;
    size_t m_capacity;
    size_t m_written;
};

#endif
