// Image information: ReadInfo of a small CT object in memory, and of a
// multi-frame header whose pixel data is not there at all (the record must
// not look at it, so the cost is that of the header).
#include <benchmark/benchmark.h>

#include <string>

#include "bench/bench_util.h"
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

// The record of the 512 MiB corpus file through ReadFileInfo: mapping,
// parsing, the frame offsets and unmapping, without reading the pixels.
void BM_ReadFileInfo_CorpusMultiFrameFile(benchmark::State& state)
{
    const std::string path = zelbench::CorpusFolder() + "/large/multiframe.dcm";
    const std::u16string widePath(path.begin(), path.end());
    {
        DICOMINFO info;
        if (!info.ReadFileInfo(widePath)) {
            state.SkipWithError(("no corpus file " + path + " (run zeldicom_gen_corpus)").c_str());
            return;
        }
    }
    for (auto _ : state) {
        DICOMINFO info;
        benchmark::DoNotOptimize(info.ReadFileInfo(widePath));
    }
}
BENCHMARK(BM_ReadFileInfo_CorpusMultiFrameFile);

}  // namespace
