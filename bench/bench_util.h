#pragma once
// Helpers shared by the benchmark files.
#include <sys/mman.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "dicomdata/dicomitem.h"

namespace zelbench {

// Element nodes (names "eXXXX") in the subtree below node, sequence items,
// their contents and delimiters included: the work a parser does.
inline long CountElements(const CXmlItem* node)
{
    long count = 0;
    for (const CXmlItem* child : node->m_children) {
        if (child->m_sName.size() == 5 && child->m_sName[0] == u'e')
            ++count;
        count += CountElements(child);
    }
    return count;
}

// The corpus folder written by zeldicom_gen_corpus: $ZELDICOM_BENCH_CORPUS,
// else build-bench/corpus below the current directory.
inline std::string CorpusFolder()
{
    const char* configured = std::getenv("ZELDICOM_BENCH_CORPUS");
    return configured && *configured ? configured : "build-bench/corpus";
}

// A large read-only-in-practice buffer whose pages cost nothing until they
// are touched: a multi-frame image held this way is only paid for where the
// code under test actually reads it (a parser that does not copy values
// touches the header page and nothing else).
class LazyBuffer {
public:
    explicit LazyBuffer(size_t size) : m_size(size)
    {
        void* mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        m_data = mapped == MAP_FAILED ? nullptr : static_cast<unsigned char*>(mapped);
    }
    ~LazyBuffer()
    {
        if (m_data)
            munmap(m_data, m_size);
    }
    LazyBuffer(const LazyBuffer&) = delete;
    LazyBuffer& operator=(const LazyBuffer&) = delete;
    unsigned char* Data() const { return m_data; }
    size_t Size() const { return m_size; }

private:
    unsigned char* m_data = nullptr;
    size_t m_size;
};

}  // namespace zelbench
