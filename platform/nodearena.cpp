#include "platform/nodearena.h"

#include <cstdint>
#include <cstdlib>

namespace zeldicom {

namespace {
// Every node is preceded by the arena it came from (null: the heap); 16
// bytes keep the node aligned as malloc aligns.
constexpr size_t kPrefix = 16;
constexpr size_t kFirstChunk = 32 * 1024;

#if defined(__SANITIZE_ADDRESS__)
// AddressSanitizer checks every node on its own only when each comes from the heap.
constexpr bool kUseArena = false;
#else
constexpr bool kUseArena = true;
#endif
}

class NodeArena {
public:
    void* Allocate(size_t size)
    {
        size = (size + 15) & ~static_cast<size_t>(15);
        if (!m_pChunk || m_nUsed + size > m_nChunkSize) {
            if (!NewChunk(size))
                return nullptr;
        }
        void* block = m_pChunk + kChunkHeader + m_nUsed;
        m_nUsed += size;
        ++m_nLive;
        return block;
    }
    // One node fewer; true when the arena can go.
    bool Release() { return --m_nLive == 0 && !m_bOpen; }
    bool Unused() const { return m_nLive == 0; }
    void Close() { m_bOpen = false; }
    ~NodeArena()
    {
        while (m_pChunk) {
            unsigned char* previous = *reinterpret_cast<unsigned char**>(m_pChunk);
            std::free(m_pChunk);
            m_pChunk = previous;
        }
    }

private:
    // A chunk begins with the link to the chunk before it.
    static constexpr size_t kChunkHeader = 16;
    bool NewChunk(size_t size)
    {
        size_t chunkSize = m_nChunkSize ? m_nChunkSize * 2 : kFirstChunk;
        if (chunkSize < size)
            chunkSize = size;
        auto* chunk = static_cast<unsigned char*>(std::malloc(kChunkHeader + chunkSize));
        if (!chunk)
            return false;
        *reinterpret_cast<unsigned char**>(chunk) = m_pChunk;
        m_pChunk = chunk;
        m_nChunkSize = chunkSize;
        m_nUsed = 0;
        return true;
    }
    unsigned char* m_pChunk = nullptr;
    size_t m_nChunkSize = 0;
    size_t m_nUsed = 0;
    size_t m_nLive = 0;
    bool m_bOpen = true;
};

namespace {
thread_local NodeArena* t_openArena = nullptr;
}

NodeArenaScope::NodeArenaScope()
{
    if (kUseArena && !t_openArena) {
        m_pOpened = new NodeArena;
        t_openArena = m_pOpened;
    }
}

NodeArenaScope::~NodeArenaScope()
{
    if (!m_pOpened)
        return;
    t_openArena = nullptr;
    m_pOpened->Close();
    if (m_pOpened->Unused())
        delete m_pOpened;
}

void* AllocateNode(size_t size)
{
    NodeArena* arena = t_openArena;
    void* block = arena ? arena->Allocate(kPrefix + size) : std::malloc(kPrefix + size);
    if (!block)
        return nullptr;
    *static_cast<NodeArena**>(block) = arena;
    return static_cast<unsigned char*>(block) + kPrefix;
}

void FreeNode(void* node)
{
    if (!node)
        return;
    void* block = static_cast<unsigned char*>(node) - kPrefix;
    NodeArena* arena = *static_cast<NodeArena**>(block);
    if (!arena)
        std::free(block);
    else if (arena->Release())
        delete arena;
}

}  // namespace zeldicom
