// Encoding: the recalculation pass and the save pass into a growing buffer
// (CDynBuffer::WriteProc), as the network sender does for every data set.
//
// Every save adds a "WriteSize" attribute to each element it writes and keeps
// the earlier ones, so saving one tree over and over measures a tree that
// grows with every iteration. Each iteration therefore encodes a freshly
// parsed tree; the parse is outside the timed region.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "bench/bench_util.h"
#include "bench/corpus.h"
#include "dicomdata/dicomitem.h"
#include "platform/dynbuffer.h"

namespace {

const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

// RecalcTags + SaveTags of a parsed small CT data set, explicit (arg 1) or
// implicit (arg 0) VR. The corpus writes sequence lengths the way the encoder
// recalculates them, so the output must equal the input byte for byte.
void BM_RecalcSaveTags_SmallCt(benchmark::State& state)
{
    const bool explicitVR = state.range(0) != 0;
    const std::string dataSet = zelbench::SmallCtDataSet(7, explicitVR);
    CDicomItem data(u"Data");
    if (data.LoadTags(Bytes(dataSet), static_cast<int>(dataSet.size()), explicitVR, -1) != dataSet.size()) {
        state.SkipWithError("LoadTags did not consume the whole data set");
        return;
    }
    const long elements = zelbench::CountElements(&data);
    CDynBuffer out;
    data.RecalcTags(explicitVR, 0);
    if (data.SaveTags(explicitVR, CDynBuffer::WriteProc, &out) != dataSet.size() ||
        std::memcmp(out.GetData(), dataSet.data(), dataSet.size()) != 0) {
        state.SkipWithError("the encoder does not reproduce the parsed data set");
        return;
    }
    for (auto _ : state) {
        state.PauseTiming();
        CDicomItem fresh(u"Data");
        fresh.LoadTags(Bytes(dataSet), static_cast<int>(dataSet.size()), explicitVR, -1);
        out.m_nSize = 0;
        state.ResumeTiming();
        benchmark::DoNotOptimize(fresh.RecalcTags(explicitVR, 0));
        benchmark::DoNotOptimize(fresh.SaveTags(explicitVR, CDynBuffer::WriteProc, &out));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(dataSet.size()));
    state.counters["elements"] = static_cast<double>(elements);
    state.counters["elements/s"] =
        benchmark::Counter(static_cast<double>(elements), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_RecalcSaveTags_SmallCt)->ArgName("explicit")->Arg(1)->Arg(0);

// A whole small CT object (preamble, meta information, data set) through SaveObject.
void BM_SaveObject_SmallCt(benchmark::State& state)
{
    const std::string file = zelbench::SmallCtFile(7);
    CDicomItem root(u"Object");
    if (!root.LoadObject(Bytes(file), static_cast<int>(file.size()))) {
        state.SkipWithError("LoadObject refused the small CT object");
        return;
    }
    CDynBuffer out;
    if (!root.SaveObject(CDynBuffer::WriteProc, &out) || out.m_nSize != file.size()) {
        state.SkipWithError("SaveObject did not write the object back whole");
        return;
    }
    for (auto _ : state) {
        state.PauseTiming();
        CDicomItem fresh(u"Object");
        fresh.LoadObject(Bytes(file), static_cast<int>(file.size()));
        out.m_nSize = 0;
        state.ResumeTiming();
        benchmark::DoNotOptimize(fresh.SaveObject(CDynBuffer::WriteProc, &out));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(file.size()));
}
BENCHMARK(BM_SaveObject_SmallCt);

// A multi-frame data set of 1 to 64 frames of 512 x 512 x 16 bits: the
// pixel data dominates, so this is the copy rate of large values into the
// buffer (in pieces of the copy chunk size).
void BM_RecalcSaveTags_MultiFrame(benchmark::State& state)
{
    const int frames = static_cast<int>(state.range(0));
    const std::string header = zelbench::MultiFrameHeader(frames, 512, 512);
    const uint32_t pixelBytes = zelbench::MultiFramePixelBytes(frames, 512, 512);
    std::string file = header;
    file.resize(header.size() + pixelBytes);
    for (size_t i = header.size(); i < file.size(); ++i)
        file[i] = static_cast<char>(i * 7);
    CDicomItem root(u"Object");
    if (!root.LoadObject(Bytes(file), static_cast<int>(file.size()))) {
        state.SkipWithError("LoadObject refused the multi-frame object");
        return;
    }
    CDynBuffer out;
    for (auto _ : state) {
        state.PauseTiming();
        CDicomItem fresh(u"Object");
        fresh.LoadObject(Bytes(file), static_cast<int>(file.size()));
        auto* data = static_cast<CDicomItem*>(fresh.GetChildItem(u"Data"));
        out.m_nSize = 0;
        state.ResumeTiming();
        benchmark::DoNotOptimize(data->RecalcTags(true, 0));
        benchmark::DoNotOptimize(data->SaveTags(true, CDynBuffer::WriteProc, &out));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(out.m_nSize));
}
BENCHMARK(BM_RecalcSaveTags_MultiFrame)->ArgName("frames")->Arg(1)->Arg(16)->Arg(64);

}  // namespace
