// A growable block of bytes that is never zero-filled: a whole file read into it, or an object
// encoded into it, costs one copy of the bytes and nothing more.
#ifndef DCMUTILS_BYTEBUFFER_H
#define DCMUTILS_BYTEBUFFER_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>

/** Owns its bytes; grows geometrically; moves, does not copy. */
class ByteBuffer
{
public:
    ByteBuffer() : m_size(0), m_capacity(0) {}
    ByteBuffer(ByteBuffer&&) = default;
    ByteBuffer& operator=(ByteBuffer&&) = default;

    /** The bytes (null while nothing was ever reserved). */
    const char* data() const { return m_data.get(); }
    char* data() { return m_data.get(); }
    /** The number of bytes held. */
    size_t size() const { return m_size; }
    /** The number of bytes there is room for. */
    size_t capacity() const { return m_capacity; }

    /** Makes room for capacity bytes in all, keeping the bytes held. */
    void reserve(size_t capacity)
    {
        if (capacity <= m_capacity)
            return;
        std::unique_ptr<char[]> grown(new char[capacity]);
        if (m_size)
            memcpy(grown.get(), m_data.get(), m_size);
        m_data = std::move(grown);
        m_capacity = capacity;
    }
    /** Sets the size to size bytes; new bytes are left as they are (not initialised). */
    void resize(size_t size)
    {
        reserve(size);
        m_size = size;
    }
    /** Appends count bytes. */
    void append(const void* bytes, size_t count)
    {
        if (m_size + count > m_capacity)
            reserve(std::max(m_size + count, 2 * m_capacity));
        memcpy(m_data.get() + m_size, bytes, count);
        m_size += count;
    }
    /** Gives the memory back. */
    void release()
    {
        m_data.reset();
        m_size = m_capacity = 0;
    }

private:
    ByteBuffer(const ByteBuffer&) = delete;
    ByteBuffer& operator=(const ByteBuffer&) = delete;

    std::unique_ptr<char[]> m_data;
    size_t m_size;
    size_t m_capacity;
};

#endif
