#include "gwav/StreamHeader.h"

#include <cstring>

namespace {
const char MAGIC[4] = {'G', 'W', '1', '0'};
}

bool StreamHeader::read(const unsigned char* stream, size_t size)
{
    if (stream == nullptr || size < SIZE || memcmp(stream, MAGIC, sizeof MAGIC) != 0)
        return false;
    m_bytesPerPixel = stream[4];
    m_parameter = stream[5];
    m_columns = stream[6] | stream[7] << 8;
    m_rows = stream[8] | stream[9] << 8;
    return valid();
}

void StreamHeader::write(unsigned char* out) const
{
    memcpy(out, MAGIC, sizeof MAGIC);
    out[4] = (unsigned char)m_bytesPerPixel;
    out[5] = (unsigned char)m_parameter;
    out[6] = (unsigned char)(m_columns & 0xFF);
    out[7] = (unsigned char)(m_columns >> 8);
    out[8] = (unsigned char)(m_rows & 0xFF);
    out[9] = (unsigned char)(m_rows >> 8);
}

bool StreamHeader::valid() const
{
    if (!(m_bytesPerPixel >= 1 && m_bytesPerPixel <= 3 && m_columns >= 1 && m_columns <= 0xFFFF && m_rows >= 1 &&
          m_rows <= 0xFFFF))
        return false;
    // the coder holds a 64-bit coefficient per sample: a header may not ask for more than a
    // frame of any real object needs, whatever the stream's length (a prefix decodes whole)
    const unsigned long long samples =
        (unsigned long long)m_columns * (unsigned long long)m_rows * (m_bytesPerPixel == 3 ? 3u : 1u);
    return samples <= MAX_SAMPLES;
}
