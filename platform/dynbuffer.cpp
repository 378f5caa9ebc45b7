#include "platform/dynbuffer.h"

#include <cstdlib>
#include <cstring>

CDynBuffer::~CDynBuffer()
{
    std::free(m_pData);
}

bool CDynBuffer::Grow(uint64_t needed)
{
    if (needed > UINT32_MAX)
        return false;
    if (needed <= m_nCapacity)
        return true;
    uint64_t capacity = m_nCapacity ? m_nCapacity : 256;
    while (capacity < needed)
        capacity *= 2;
    if (capacity > UINT32_MAX)
        capacity = UINT32_MAX;
    auto* grown = static_cast<unsigned char*>(std::realloc(m_pData, static_cast<size_t>(capacity)));
    if (!grown)
        return false;
    m_pData = grown;
    m_nCapacity = static_cast<uint32_t>(capacity);
    return true;
}

bool CDynBuffer::Reserve(uint32_t capacity)
{
    return Grow(capacity);
}

bool CDynBuffer::Add(const void* bytes, uint32_t count)
{
    return Insert(bytes, count, m_nSize);
}

bool CDynBuffer::Insert(const void* bytes, uint32_t count, uint32_t position)
{
    if (count == 0)
        return true;
    if (!Grow(static_cast<uint64_t>(m_nSize) + count))
        return false;
    if (position > m_nSize)
        position = m_nSize;
    std::memmove(m_pData + position + count, m_pData + position, m_nSize - position);
    if (bytes)
        std::memcpy(m_pData + position, bytes, count);
    else
        std::memset(m_pData + position, 0, count);
    m_nSize += count;
    return true;
}

uint32_t CDynBuffer::WriteProc(const void* bytes, uint32_t count, void* buffer)
{
    if (!buffer)
        return 0xFFFFFFFFu;
    return static_cast<CDynBuffer*>(buffer)->Add(bytes, count) ? count : 0xFFFFFFFFu;
}
