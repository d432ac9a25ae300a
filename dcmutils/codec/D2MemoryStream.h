// An OpenJPEG stream over memory: reads a codestream held by the caller, or collects the
// codestream the encoder writes.
#ifndef D2MEMORYSTREAM_H
#define D2MEMORYSTREAM_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/oftypes.h"

#include <openjpeg.h>

#include <cstddef>
#include <vector>

class D2MemoryStream
{
public:
    // Input stream over length bytes at data; the bytes are not copied and must outlive
    // the stream.
    D2MemoryStream(const Uint8* data, size_t length);

    // Output stream into a buffer that grows as the encoder writes.
    D2MemoryStream();

    ~D2MemoryStream();

    // The OpenJPEG stream, or NULL when it could not be made.
    opj_stream_t* stream() const { return m_stream; }

    // What was written to an output stream.
    const std::vector<Uint8>& written() const { return m_output; }

private:
    D2MemoryStream(const D2MemoryStream&);
    D2MemoryStream& operator=(const D2MemoryStream&);

    static OPJ_SIZE_T read(void* buffer, OPJ_SIZE_T count, void* self);
    static OPJ_SIZE_T write(void* buffer, OPJ_SIZE_T count, void* self);
    static OPJ_OFF_T skip(OPJ_OFF_T count, void* self);
    static OPJ_BOOL seek(OPJ_OFF_T position, void* self);

    size_t size() const;

    const Uint8* m_input;
    size_t m_length;
    size_t m_position;
    std::vector<Uint8> m_output;
    opj_stream_t* m_stream;
};

#endif
