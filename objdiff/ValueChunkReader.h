// Reads a binary element's value in consecutive pieces, from memory or straight from the file
// it was loaded from, so that a long value never has to be held whole.
#ifndef VALUECHUNKREADER_H
#define VALUECHUNKREADER_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcelem.h"
#include "dcmtk/dcmdata/dcfcache.h"

class ValueChunkReader
{
public:
    // Bytes per piece: the size of each of the scratch buffers below.
    static constexpr Uint32 CHUNK_SIZE = 262144;

    explicit ValueChunkReader(DcmElement* element);

    // True when pieces of the element carry exactly the bytes that its whole-value accessors
    // (getUint8Array, getUint16Array) give, in the machine's byte order: OB, UN and pixel item
    // values, and OW values of an even length.
    static bool suits(DcmElement* element);

    // Reads the next count bytes into buffer; false when they cannot be read (the element's
    // whole-value accessors then say why).
    bool read(Uint8* buffer, Uint32 count);

    Uint32 remaining() const { return m_length - m_offset; }

    // Two scratch buffers of CHUNK_SIZE bytes each, kept for the life of the thread, so that
    // comparing object after object allocates nothing.
    static Uint8* scratch(int index);

private:
    ValueChunkReader(const ValueChunkReader&);
    ValueChunkReader& operator=(const ValueChunkReader&);

    DcmElement* m_element;
    DcmFileCache m_cache;
    Uint32 m_offset;
    Uint32 m_length;
};

#endif
