// Reads a binary element's value in consecutive pieces, from memory or straight from the file
// it was loaded from, so that a long value never has to be held whole.
#include "objdiff/ValueChunkReader.h"

#include <memory>

ValueChunkReader::ValueChunkReader(DcmElement* element)
  : m_element(element)
  , m_cache()
  , m_offset(0)
  , m_length(element ? element->getLengthField() : 0)
{
}

bool ValueChunkReader::suits(DcmElement* element)
{
    if (element == NULL)
        return false;
    const DcmEVR vr = element->getTag().getEVR();
    if (vr == EVR_OW)
        return (element->getLengthField() & 1) == 0;
    return vr == EVR_OB || vr == EVR_UN || vr == EVR_pixelItem;
}

bool ValueChunkReader::read(Uint8* buffer, Uint32 count)
{
    if (count > remaining())
        return false;
    if (count == 0)
        return true;
    // the file cache keeps the value's stream open from one piece to the next
    if (m_element->getPartialValue(buffer, m_offset, count, &m_cache, gLocalByteOrder).bad())
        return false;
    m_offset += count;
    return true;
}

Uint8* ValueChunkReader::scratch(int index)
{
    static thread_local std::unique_ptr<Uint8[]> buffers[2];
    std::unique_ptr<Uint8[]>& buffer = buffers[index ? 1 : 0];
    if (!buffer)
        buffer.reset(new Uint8[CHUNK_SIZE]);
    return buffer.get();
}
