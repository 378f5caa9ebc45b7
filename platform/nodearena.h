#pragma once
// Where the nodes of an item tree come from while a data set is parsed: one
// block of memory per loaded object instead of one heap allocation per node.
//
// While a NodeArenaScope is open on a thread, every CXmlItem created on that
// thread is placed in the scope's arena; outside any scope nodes come from
// the heap. Each node remembers where it came from, so a node is deleted the
// same way wherever it ends up (moved to another tree, removed by an edit).
// An arena is freed when its scope has closed and its last node is gone;
// a node that outlives its tree keeps the arena's memory until it is deleted.
// Like the trees themselves, the nodes of one arena are used by one thread
// at a time.
#include <cstddef>

namespace zeldicom {

class NodeArena;

class NodeArenaScope {
public:
    // Opens an arena unless one is open on this thread already (a parse
    // inside a parse shares the outer one).
    NodeArenaScope();
    ~NodeArenaScope();
    NodeArenaScope(const NodeArenaScope&) = delete;
    NodeArenaScope& operator=(const NodeArenaScope&) = delete;

private:
    NodeArena* m_pOpened = nullptr;
};

// The storage of one node: from the open arena, else from the heap. Null
// when no memory is left.
void* AllocateNode(size_t size);
void FreeNode(void* node);

}  // namespace zeldicom
