// The raw element walkers and writers of DICOMINFO: what the network client
// runs over every received command set and data set, and how it builds its
// identifiers, without an element tree.
#include <benchmark/benchmark.h>

#include <functional>
#include <iterator>
#include <string>

#include "bench/bench_util.h"
#include "bench/corpus.h"
#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/xmlitem.h"

namespace {

const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

struct WalkState {
    const unsigned char* end;
    long elements;
    uint64_t valueBytes;
};

// A typical receiving callback: counts every element and descends into
// undefined-length sequences through ReadSequence.
void CountElementProc(TAG_HEADER* element, void* context)
{
    auto* walk = static_cast<WalkState*>(context);
    ++walk->elements;
    const unsigned char* value = reinterpret_cast<const unsigned char*>(element) + sizeof(TAG_HEADER);
    if (element->nLength == kUndefinedLength && element->wGroup != 0xFFFE) {
        const int size = DICOMINFO::CalcSequenceSize(element, static_cast<int>(walk->end - value));
        if (size > 0)
            DICOMINFO::ReadSequence(value, size, CountElementProc, context);
    } else if (element->nLength != kUndefinedLength) {
        walk->valueBytes += element->nLength;
    }
}

// ReadTags over the implicit VR small CT data set, into its sequences.
void BM_ReadTags_SmallCt(benchmark::State& state)
{
    const std::string dataSet = zelbench::SmallCtDataSet(7, false);
    const int size = static_cast<int>(dataSet.size());
    WalkState walk {Bytes(dataSet) + dataSet.size(), 0, 0};
    DICOMINFO::ReadTags(Bytes(dataSet), size, CountElementProc, &walk);
    const long elements = walk.elements;
    if (elements < 100) {
        state.SkipWithError("ReadTags visited fewer elements than the data set holds");
        return;
    }
    for (auto _ : state) {
        walk.elements = 0;
        DICOMINFO::ReadTags(Bytes(dataSet), size, CountElementProc, &walk);
        benchmark::DoNotOptimize(walk.elements);
    }
    state.counters["elements"] = static_cast<double>(elements);
    state.counters["elements/s"] =
        benchmark::Counter(static_cast<double>(elements), benchmark::Counter::kIsIterationInvariantRate);
    state.counters["MiB"] = static_cast<double>(dataSet.size()) / (1024.0 * 1024.0);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(dataSet.size()));
}
BENCHMARK(BM_ReadTags_SmallCt);

// LoadDicomData: the display tree of the same data set (one item per known element).
void BM_LoadDicomData_SmallCt(benchmark::State& state)
{
    const std::string dataSet = zelbench::SmallCtDataSet(7, false);
    const int size = static_cast<int>(dataSet.size());
    long items = 0;
    {
        CXmlItem parent(u"DATA", u"", "ISO_IR 100");
        DICOMINFO::LoadDicomData(Bytes(dataSet), size, &parent);
        std::function<long(const CXmlItem*)> count = [&](const CXmlItem* node) {
            long found = 0;
            for (const CXmlItem* child : node->m_children)
                found += (child->m_sName == u"TAG" ? 1 : 0) + count(child);
            return found;
        };
        items = count(&parent);
    }
    if (items < 100) {
        state.SkipWithError("LoadDicomData made fewer items than the data set has elements");
        return;
    }
    for (auto _ : state) {
        CXmlItem parent(u"DATA", u"", "ISO_IR 100");
        benchmark::DoNotOptimize(DICOMINFO::LoadDicomData(Bytes(dataSet), size, &parent));
    }
    state.counters["elements"] = static_cast<double>(items);
    state.counters["elements/s"] =
        benchmark::Counter(static_cast<double>(items), benchmark::Counter::kIsIterationInvariantRate);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(dataSet.size()));
}
BENCHMARK(BM_LoadDicomData_SmallCt);

// The raw writers: a C-FIND study-level identifier of twelve keys, text
// values converted for their character set, appended to one buffer.
void BM_RawWriters_FindIdentifier(benchmark::State& state)
{
    struct Key {
        uint16_t group, element;
        const char16_t* vr;
        const char16_t* value;
    };
    static const Key keys[] = {
        {0x0008, 0x0005, u"CS", u"ISO_IR 100"},      {0x0008, 0x0020, u"DA", u"20260301-20260311"},
        {0x0008, 0x0030, u"TM", u""},                {0x0008, 0x0050, u"SH", u""},
        {0x0008, 0x0052, u"CS", u"STUDY"},           {0x0008, 0x0061, u"CS", u"CT\\MR"},
        {0x0008, 0x0090, u"PN", u""},                {0x0008, 0x1030, u"LO", u"*Thorax*"},
        {0x0010, 0x0010, u"PN", u"M\u00FCller^J*"}, {0x0010, 0x0020, u"LO", u""},
        {0x0020, 0x000D, u"UI", u""},                {0x0020, 0x1208, u"IS", u""},
    };
    CDynBuffer buffer;
    for (auto _ : state) {
        buffer.m_nSize = 0;
        for (const Key& key : keys)
            DICOMINFO::AddTagByVR(buffer, key.vr, key.group, key.element, key.value, u"ISO_IR 100");
        benchmark::DoNotOptimize(buffer.m_nSize);
    }
    state.counters["elements"] = static_cast<double>(std::size(keys));
    state.counters["elements/s"] =
        benchmark::Counter(static_cast<double>(std::size(keys)), benchmark::Counter::kIsIterationInvariantRate);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(buffer.m_nSize));
}
BENCHMARK(BM_RawWriters_FindIdentifier);

}  // namespace
