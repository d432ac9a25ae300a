#include "dcmutils/codec/D2MemoryStream.h"

#include <cstring>

namespace {

// OpenJPEG copies through a buffer of its own; a codestream rarely needs more.
const OPJ_SIZE_T streamChunkSize = 1024 * 1024;

} // namespace

D2MemoryStream::D2MemoryStream(const Uint8* data, size_t length)
: m_input(data)
, m_length(length)
, m_position(0)
, m_stream(NULL)
{
    OPJ_SIZE_T chunk = length < streamChunkSize ? OPJ_SIZE_T(length) : streamChunkSize;
    if (chunk == 0)
        chunk = 1;
    m_stream = opj_stream_create(chunk, OPJ_TRUE);
    if (m_stream)
    {
        opj_stream_set_user_data(m_stream, this, NULL);
        opj_stream_set_user_data_length(m_stream, OPJ_UINT64(length));
        opj_stream_set_read_function(m_stream, read);
        opj_stream_set_skip_function(m_stream, skip);
        opj_stream_set_seek_function(m_stream, seek);
    }
}

D2MemoryStream::D2MemoryStream()
: m_input(NULL)
, m_length(0)
, m_position(0)
, m_stream(NULL)
{
    m_stream = opj_stream_create(streamChunkSize, OPJ_FALSE);
    if (m_stream)
    {
        opj_stream_set_user_data(m_stream, this, NULL);
        opj_stream_set_write_function(m_stream, write);
        opj_stream_set_skip_function(m_stream, skip);
        opj_stream_set_seek_function(m_stream, seek);
    }
}

D2MemoryStream::~D2MemoryStream()
{
    if (m_stream)
        opj_stream_destroy(m_stream);
}

size_t D2MemoryStream::size() const
{
    return m_input ? m_length : m_output.size();
}

OPJ_SIZE_T D2MemoryStream::read(void* buffer, OPJ_SIZE_T count, void* self)
{
    D2MemoryStream* s = static_cast<D2MemoryStream*>(self);
    if (s->m_position >= s->m_length)
        return OPJ_SIZE_T(-1); // end of stream
    const size_t available = s->m_length - s->m_position;
    const size_t n = count < available ? size_t(count) : available;
    memcpy(buffer, s->m_input + s->m_position, n);
    s->m_position += n;
    return OPJ_SIZE_T(n);
}

OPJ_SIZE_T D2MemoryStream::write(void* buffer, OPJ_SIZE_T count, void* self)
{
    D2MemoryStream* s = static_cast<D2MemoryStream*>(self);
    const size_t end = s->m_position + size_t(count);
    if (end > s->m_output.size())
        s->m_output.resize(end);
    memcpy(s->m_output.data() + s->m_position, buffer, count);
    s->m_position = end;
    return count;
}

OPJ_OFF_T D2MemoryStream::skip(OPJ_OFF_T count, void* self)
{
    D2MemoryStream* s = static_cast<D2MemoryStream*>(self);
    const OPJ_OFF_T target = OPJ_OFF_T(s->m_position) + count;
    if (target < 0)
        return OPJ_OFF_T(-1);
    if (s->m_input && size_t(target) > s->m_length)
    {
        // a skip past the end of a codestream: stop at the end, report failure
        s->m_position = s->m_length;
        return OPJ_OFF_T(-1);
    }
    // an output stream grows when the encoder skips ahead
    if (!s->m_input && size_t(target) > s->m_output.size())
        s->m_output.resize(size_t(target));
    s->m_position = size_t(target);
    return count;
}

OPJ_BOOL D2MemoryStream::seek(OPJ_OFF_T position, void* self)
{
    D2MemoryStream* s = static_cast<D2MemoryStream*>(self);
    if (position < 0 || size_t(position) > s->size())
        return OPJ_FALSE;
    s->m_position = size_t(position);
    return OPJ_TRUE;
}
