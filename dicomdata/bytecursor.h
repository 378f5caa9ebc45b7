#pragma once
// The one checked reader of untrusted bytes. Every read first asks whether
// the bytes are there; a length taken from the data is compared with what
// remains before it is used.
#include <cstddef>
#include <cstdint>
#include <cstring>

class ByteCursor {
public:
    ByteCursor(const unsigned char* data, size_t size) : m_data(data), m_size(data ? size : 0) {}

    size_t position() const { return m_pos; }
    size_t size() const { return m_size; }
    size_t remaining() const { return m_size - m_pos; }
    bool has(size_t count) const { return count <= remaining(); }
    const unsigned char* here() const { return m_data + m_pos; }
    const unsigned char* data() const { return m_data; }

    bool skip(size_t count)
    {
        if (!has(count))
            return false;
        m_pos += count;
        return true;
    }
    bool seek(size_t position)
    {
        if (position > m_size)
            return false;
        m_pos = position;
        return true;
    }

    // Peeks at offset bytes ahead of the current position.
    bool peekUint16LE(size_t offset, uint16_t& out) const { return readAt(offset, out, 2, false); }
    bool peekUint32LE(size_t offset, uint32_t& out) const { return readAt(offset, out, 4, false); }
    bool peekUint16BE(size_t offset, uint16_t& out) const { return readAt(offset, out, 2, true); }
    bool peekUint32BE(size_t offset, uint32_t& out) const { return readAt(offset, out, 4, true); }

    bool readUint8(uint8_t& out)
    {
        if (!has(1))
            return false;
        out = m_data[m_pos++];
        return true;
    }
    bool readUint16LE(uint16_t& out) { return take(out, 2, false); }
    bool readUint32LE(uint32_t& out) { return take(out, 4, false); }
    bool readUint16BE(uint16_t& out) { return take(out, 2, true); }
    bool readUint32BE(uint32_t& out) { return take(out, 4, true); }
    bool readBytes(void* out, size_t count)
    {
        if (!has(count))
            return false;
        std::memcpy(out, m_data + m_pos, count);
        m_pos += count;
        return true;
    }

    static uint16_t loadUint16LE(const unsigned char* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
    static uint32_t loadUint32LE(const unsigned char* p)
    {
        return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
               (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
    }

private:
    template <typename T>
    bool readAt(size_t offset, T& out, size_t width, bool bigEndian) const
    {
        if (offset > remaining() || width > remaining() - offset)
            return false;
        const unsigned char* p = m_data + m_pos + offset;
        uint32_t value = 0;
        for (size_t i = 0; i < width; ++i)
            value |= static_cast<uint32_t>(p[bigEndian ? width - 1 - i : i]) << (8 * i);
        out = static_cast<T>(value);
        return true;
    }
    template <typename T>
    bool take(T& out, size_t width, bool bigEndian)
    {
        if (!readAt(0, out, width, bigEndian))
            return false;
        m_pos += width;
        return true;
    }

    const unsigned char* m_data;
    size_t m_size;
    size_t m_pos = 0;
};
