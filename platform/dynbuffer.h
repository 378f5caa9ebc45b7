#pragma once
// A growable contiguous byte buffer: the target of every encoder and raw writer.
#include <cstdint>

class CDynBuffer {
public:
    CDynBuffer() = default;
    ~CDynBuffer();
    CDynBuffer(const CDynBuffer&) = delete;
    CDynBuffer& operator=(const CDynBuffer&) = delete;

    // Current length in bytes; callers set it to 0 to reuse the buffer.
    uint32_t m_nSize = 0;

    // Appends count bytes (null bytes: count zero bytes). False when the
    // buffer would exceed 4 GiB or memory runs out; the buffer is unchanged then.
    bool Add(const void* bytes, uint32_t count);
    // Inserts count bytes before position (clamped to the length).
    bool Insert(const void* bytes, uint32_t count, uint32_t position);
    bool Reserve(uint32_t capacity);

    operator char*() const { return reinterpret_cast<char*>(m_pData); }
    operator unsigned char*() const { return m_pData; }
    operator void*() const { return m_pData; }
    unsigned char* GetData() const { return m_pData; }

    // Writer callback: appends the bytes to the CDynBuffer given as context.
    static uint32_t WriteProc(const void* bytes, uint32_t count, void* buffer);

private:
    bool Grow(uint64_t needed);
    unsigned char* m_pData = nullptr;
    uint32_t m_nCapacity = 0;
};
