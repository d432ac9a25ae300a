#include "gwav/gwav.h"

#include "gwav/StreamCoder.h"
#include "gwav/StreamHeader.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctypes.h"

#include <new>

unsigned long gwavcompress(void* pixels, int parameter, int bytesPerPixel, int columns, int rows, unsigned char* out,
                           unsigned long budget)
{
    if (pixels == nullptr || out == nullptr || bytesPerPixel < 1 || bytesPerPixel > 3 || columns < 1 ||
        columns > 0xFFFF || rows < 1 || rows > 0xFFFF)
    {
        DCMDATA_ERROR("Cannot compress image: " << columns << " x " << rows << " pixels of " << bytesPerPixel
                                                << " bytes is no image the wavelet codec holds");
        return 0;
    }
    if (budget < StreamHeader::SIZE)
    {
        DCMDATA_ERROR("Cannot compress image: a budget of " << budget << " bytes is below the stream header's "
                                                            << StreamHeader::SIZE);
        return 0;
    }
    try
    {
        bool noMemory = false;
        const unsigned long length =
            encodeStream(pixels, parameter, bytesPerPixel, columns, rows, out, budget, StreamSettings(), &noMemory);
        if (noMemory)
            DCMDATA_ERROR("Cannot compress image: out of memory");
        return length;
    }
    catch (const std::bad_alloc&)
    {
        DCMDATA_ERROR("Cannot compress image: out of memory");
        return 0;
    }
}

bool gwavinfo(unsigned char* stream, int& parameter, int& bytesPerPixel, int& columns, int& rows)
{
    StreamHeader header;
    if (!header.read(stream, StreamHeader::SIZE))
        return false;
    parameter = header.m_parameter;
    bytesPerPixel = header.m_bytesPerPixel;
    columns = header.m_columns;
    rows = header.m_rows;
    return true;
}

bool gwavdecompress(unsigned char* stream, unsigned char* out, unsigned long size)
{
    STREAM_STATUS status = STREAM_NO_MEMORY;
    try
    {
        status = out == nullptr ? STREAM_INVALID : decodeStream(stream, size, out);
    }
    catch (const std::bad_alloc&)
    {
        status = STREAM_NO_MEMORY;
    }
    if (status == STREAM_INVALID)
        DCMDATA_ERROR("Invalid compressed bitstream");
    else if (status == STREAM_NO_MEMORY)
        DCMDATA_ERROR("Cannot decompress image: out of memory");
    return status == STREAM_OK;
}
