// Image information: ReadInfo of a small CT object in memory, and of a
// multi-frame header whose pixel data is not there at all (the record must
// not look at it, so the cost is that of the header).
#include <benchmark/benchmark.h>

#include <string>

#include "bench/corpus.h"
#include "imageinfo/dicominfo.h"

namespace {

void BM_ReadInfo_SmallCt(benchmark::State& state)
{
    const std::string file = zelbench::SmallCtFile(7);
    for (auto _ : state) {
        DICOMINFO info;
        benchmark::DoNotOptimize(
            info.ReadInfo(reinterpret_cast<const unsigned char*>(file.data()), static_cast<uint32_t>(file.size())));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(file.size()));
}
BENCHMARK(BM_ReadInfo_SmallCt);

}  // namespace
