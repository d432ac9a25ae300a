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
    return m_bytesPerPixel >= 1 && m_bytesPerPixel <= 3 && m_columns >= 1 && m_columns <= 0xFFFF && m_rows >= 1 &&
           m_rows <= 0xFFFF;
}
