#include "common/imgproc/src/overlay.h"

#include <cstdio>
#include <cstring>
#include <new>

COverlay::COverlay(const std::string& name)
  : m_name(name)
  , m_data(nullptr)
  , m_size(0)
  , m_rows(0)
  , m_columns(0)
  , m_originRow(1)
  , m_originColumn(1)
  , m_bitsAllocated(0)
  , m_bitPosition(0)
  , m_isROI(false)
  , m_mode(OVERLAY_READ_AUTO)
  , m_pixelCount(0)
  , m_bitCounter(0)
  , m_written(0)
  , m_cursor(nullptr)
  , m_status(OVERLAY_OK)
{
}

COverlay::~COverlay()
{
    delete[] m_data;
}

unsigned int COverlay::initData(unsigned int size, OVERLAY_READ_MODE mode)
{
    if (mode == OVERLAY_READ_AUTO)
    {
        if (m_bitsAllocated == 1 && m_bitPosition == 0)
            mode = OVERLAY_READ_SEPARATE;
        else if (m_bitsAllocated < 2 || m_bitPosition == 0)
            return m_status = OVERLAY_UNUSABLE;
        else
            mode = OVERLAY_READ_EMBEDDED;
    }
    m_mode = mode;
    m_status = OVERLAY_OK;
    if (m_data != nullptr)
        return m_status = OVERLAY_ALREADY_INITIALISED;
    m_pixelCount = static_cast<unsigned int>(m_rows) * m_columns;
    if (size == 0)
        return m_status = OVERLAY_SIZE_ZERO;
    // a damaged length must not end the process: no buffer is an unusable overlay
    m_data = new (std::nothrow) unsigned char[size]();
    if (m_data == nullptr)
        return m_status = OVERLAY_NO_DATA;
    m_size = size;
    m_written = 0;
    m_bitCounter = 0;
    m_cursor = m_data;
    return OVERLAY_OK;
}

unsigned int COverlay::putData(const unsigned char* bytes, unsigned int n)
{
    if (m_status != OVERLAY_OK || m_mode != OVERLAY_READ_SEPARATE)
        return OVERLAY_UNUSABLE;
    if (m_data == nullptr || bytes == nullptr)
        return m_status = OVERLAY_NO_DATA;
    if (static_cast<unsigned long long>(m_written) + n > m_size)
        return m_status = OVERLAY_OVERFLOW;
    memcpy(m_cursor, bytes, n);
    m_cursor += n;
    m_written += n;
    return OVERLAY_OK;
}

void COverlay::putBit(unsigned int bit)
{
    if (m_status != OVERLAY_OK || m_mode != OVERLAY_READ_EMBEDDED || m_data == nullptr)
        return;
    if (m_written >= m_size)
    {
        m_status = OVERLAY_OVERFLOW;
        return;
    }
    *m_cursor |= static_cast<unsigned char>((bit & 1) << m_bitCounter);
    if (++m_bitCounter == 8)
    {
        ++m_cursor;
        ++m_written;
        m_bitCounter = 0;
    }
}

unsigned int COverlay::finalizeData()
{
    if (m_status != OVERLAY_OK)
        return m_status;
    int remainder = 0;
    if (m_mode == OVERLAY_READ_SEPARATE)
        remainder = static_cast<int>(m_size - m_written);
    else if (m_mode == OVERLAY_READ_EMBEDDED)
        remainder = static_cast<int>(m_pixelCount - m_bitCounter - 8 * m_written);
    else
        return m_status = OVERLAY_UNUSABLE;
    return m_status = (remainder < 0 ? OVERLAY_OVERFLOW : OVERLAY_FINALISED);
}

unsigned int COverlay::writeToFile(const char* path) const
{
    if (m_data == nullptr)
        return 1;
    FILE* file = fopen(path, "wb");
    if (file == nullptr)
        return 2;
    const bool complete = fwrite(m_data, 1, m_size, file) == m_size;
    const bool closed = fclose(file) == 0;
    if (!complete || !closed)
    {
        remove(path);
        return 3;
    }
    return 0;
}
