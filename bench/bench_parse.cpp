// Parsing: LoadObject / LoadTags over buffers in memory. Values are not
// copied, so the cost should follow the number of elements, not the bytes:
// the multi-frame cases keep the header fixed and grow only the pixel data.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

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

// An implicit VR RT plan: beams with control points, nearly every tag outside
// the fixed 990-entry dictionary, so each element's VR (and whether it is a
// sequence) comes from the full registry.
std::string RtPlanDataSet(int beams, int points)
{
    zelbench::ElementWriter w(false);
    w.Text(0x0008, 0x0016, "UI", "1.2.840.10008.5.1.4.1.1.481.5");
    w.Text(0x0010, 0x0010, "PN", "Plan^Patient");
    w.Text(0x300A, 0x0002, "SH", "PLAN1");
    w.Text(0x300A, 0x0006, "DA", "20260101");
    w.Text(0x300A, 0x000C, "CS", "PATIENT");
    std::vector<std::string> beamItems;
    for (int b = 0; b < beams; ++b) {
        std::vector<std::string> pointItems;
        for (int p = 0; p < points; ++p) {
            zelbench::ElementWriter cp(false);
            cp.Text(0x300A, 0x0112, "IS", std::to_string(p));
            cp.Text(0x300A, 0x0114, "DS", "6");
            cp.Text(0x300A, 0x011E, "DS", "180");
            cp.Text(0x300A, 0x011F, "CS", "NONE");
            cp.Text(0x300A, 0x0120, "DS", "0");
            cp.Text(0x300A, 0x012C, "DS", "0\\0\\0");
            cp.Text(0x300A, 0x0134, "DS", zelbench::DecimalText(p / static_cast<double>(points)));
            pointItems.push_back(std::move(cp.Result()));
        }
        zelbench::ElementWriter beam(false);
        beam.Text(0x300A, 0x00B2, "SH", "LINAC");
        beam.Text(0x300A, 0x00B3, "CS", "MU");
        beam.Text(0x300A, 0x00C0, "IS", std::to_string(b + 1));
        beam.Text(0x300A, 0x00C2, "LO", "Beam " + std::to_string(b + 1));
        beam.Text(0x300A, 0x00C4, "CS", "STATIC");
        beam.Text(0x300A, 0x00C6, "CS", "PHOTON");
        beam.Text(0x300A, 0x0110, "IS", std::to_string(points));
        beam.Sequence(0x300A, 0x0111, pointItems, b % 2 == 0);
        beamItems.push_back(std::move(beam.Result()));
    }
    w.Sequence(0x300A, 0x00B0, beamItems, true);
    return std::move(w.Result());
}

void BM_LoadTags_RtPlanImplicit(benchmark::State& state)
{
    const std::string dataSet = RtPlanDataSet(8, 16);
    const int count = static_cast<int>(dataSet.size());
    long elements = 0;
    {
        CDicomItem data(u"Data");
        if (data.LoadTags(Bytes(dataSet), count, false, -1) != static_cast<uint32_t>(count)) {
            state.SkipWithError("LoadTags did not consume the whole RT plan");
            return;
        }
        elements = zelbench::CountElements(&data);
    }
    for (auto _ : state) {
        CDicomItem data(u"Data");
        benchmark::DoNotOptimize(data.LoadTags(Bytes(dataSet), count, false, -1));
    }
    ReportElements(state, elements, dataSet.size());
}
BENCHMARK(BM_LoadTags_RtPlanImplicit);

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
