// Parsing: LoadObject / LoadTags over buffers in memory. Values are not
// copied, so the cost should follow the number of elements, not the bytes:
// the multi-frame cases keep the header fixed and grow only the pixel data.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cstring>
#include <string>

#include "bench/bench_util.h"
#include "bench/corpus.h"
#include "dicomdata/dicomitem.h"

namespace {

const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

// Elements per second, and the size of the object parsed. Bytes per second
// only where it means something: for the multi-frame objects the parser is
// not supposed to look at most of the bytes.
void ReportElements(benchmark::State& state, long elements, size_t bytes, bool bytesPerSecond = true)
{
    state.counters["elements"] = static_cast<double>(elements);
    state.counters["elements/s"] =
        benchmark::Counter(static_cast<double>(elements), benchmark::Counter::kIsIterationInvariantRate);
    state.counters["MiB"] = static_cast<double>(bytes) / (1024.0 * 1024.0);
    if (bytesPerSecond)
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

// A whole small CT file image: preamble check, meta information, data set;
// the tree is released in every iteration as well.
void BM_LoadObject_SmallCt(benchmark::State& state)
{
    const std::string file = zelbench::SmallCtFile(7);
    long elements = 0;
    {
        CDicomItem root(u"Object");
        if (!root.LoadObject(Bytes(file), static_cast<int>(file.size()))) {
            state.SkipWithError("LoadObject refused the small CT object");
            return;
        }
        elements = zelbench::CountElements(&root);
    }
    for (auto _ : state) {
        CDicomItem root(u"Object");
        benchmark::DoNotOptimize(root.LoadObject(Bytes(file), static_cast<int>(file.size())));
    }
    ReportElements(state, elements, file.size());
}
BENCHMARK(BM_LoadObject_SmallCt);

// The data set alone through LoadTags, explicit (arg 1) and implicit (arg 0) VR.
void BM_LoadTags_SmallCt(benchmark::State& state)
{
    const bool explicitVR = state.range(0) != 0;
    const std::string dataSet = zelbench::SmallCtDataSet(7, explicitVR);
    const int count = static_cast<int>(dataSet.size());
    long elements = 0;
    {
        CDicomItem data(u"Data");
        if (data.LoadTags(Bytes(dataSet), count, explicitVR, -1) != static_cast<uint32_t>(count)) {
            state.SkipWithError("LoadTags did not consume the whole data set");
            return;
        }
        elements = zelbench::CountElements(&data);
    }
    for (auto _ : state) {
        CDicomItem data(u"Data");
        benchmark::DoNotOptimize(data.LoadTags(Bytes(dataSet), count, explicitVR, -1));
    }
    ReportElements(state, elements, dataSet.size());
}
BENCHMARK(BM_LoadTags_SmallCt)->ArgName("explicit")->Arg(1)->Arg(0);

// Multi-frame objects of 512 x 512 x 16-bit frames, 1 to 1024 frames (512
// MiB) with the same header. The frames live in untouched anonymous pages,
// so only bytes the parser reads are ever paid for.
void BM_LoadObject_MultiFrame(benchmark::State& state)
{
    const int frames = static_cast<int>(state.range(0));
    const std::string header = zelbench::MultiFrameHeader(frames, 512, 512);
    const size_t total = header.size() + zelbench::MultiFramePixelBytes(frames, 512, 512);
    zelbench::LazyBuffer buffer(total);
    if (!buffer.Data()) {
        state.SkipWithError("cannot reserve address space for the object");
        return;
    }
    std::memcpy(buffer.Data(), header.data(), header.size());
    long elements = 0;
    {
        CDicomItem root(u"Object");
        if (!root.LoadObject(buffer.Data(), static_cast<int>(total))) {
            state.SkipWithError("LoadObject refused the multi-frame object");
            return;
        }
        elements = zelbench::CountElements(&root);
    }
    for (auto _ : state) {
        CDicomItem root(u"Object");
        benchmark::DoNotOptimize(root.LoadObject(buffer.Data(), static_cast<int>(total)));
    }
    ReportElements(state, elements, total, false);
}
BENCHMARK(BM_LoadObject_MultiFrame)->ArgName("frames")->Arg(1)->Arg(16)->Arg(256)->Arg(1024);

// The 512 MiB corpus file through LoadObject(path): mapping, parsing and
// unmapping, as an application opening the file does.
void BM_LoadObject_CorpusMultiFrameFile(benchmark::State& state)
{
    const std::string path = zelbench::CorpusFolder() + "/large/multiframe.dcm";
    const std::u16string widePath(path.begin(), path.end());
    long elements = 0;
    {
        CDicomItem root(u"Object");
        if (!root.LoadObject(widePath)) {
            state.SkipWithError(("no corpus file " + path + " (run zeldicom_gen_corpus)").c_str());
            return;
        }
        elements = zelbench::CountElements(&root);
    }
    for (auto _ : state) {
        CDicomItem root(u"Object");
        benchmark::DoNotOptimize(root.LoadObject(widePath));
    }
    struct stat info {};
    ReportElements(state, elements, stat(path.c_str(), &info) == 0 ? static_cast<size_t>(info.st_size) : 0, false);
}
BENCHMARK(BM_LoadObject_CorpusMultiFrameFile);

}  // namespace
