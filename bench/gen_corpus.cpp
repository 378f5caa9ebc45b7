// zeldicom_gen_corpus: writes the benchmark corpus into a folder.
//
//   zeldicom_gen_corpus [FOLDER] [--small N] [--frames N] [--no-large]
//
// FOLDER (default build-bench/corpus) receives small/ct_NNN.dcm (N small CT
// objects, default 500) and large/multiframe.dcm (a multi-frame object of
// 512 x 512 x 16-bit frames, default 1024 frames = 512 MiB, written one frame
// at a time). A file named "complete" is written last, listing what was made,
// so that an interrupted run is recognised and redone.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "bench/corpus.h"

namespace {

bool ParseCount(const char* text, int& value)
{
    char* end = nullptr;
    const long parsed = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || parsed < 0 || parsed > 100000)
        return false;
    value = static_cast<int>(parsed);
    return true;
}

int Usage()
{
    std::fprintf(stderr, "usage: zeldicom_gen_corpus [FOLDER] [--small N] [--frames N] [--no-large]\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    std::string folder = "build-bench/corpus";
    int smallCount = 500;
    int frames = 1024;
    bool large = true;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--small" && i + 1 < argc) {
            if (!ParseCount(argv[++i], smallCount))
                return Usage();
        } else if (argument == "--frames" && i + 1 < argc) {
            if (!ParseCount(argv[++i], frames) || frames == 0)
                return Usage();
        } else if (argument == "--no-large") {
            large = false;
        } else if (argument == "--help" || argument == "-h" || (!argument.empty() && argument[0] == '-')) {
            return Usage();
        } else {
            folder = argument;
        }
    }

    namespace fs = std::filesystem;
    std::error_code failure;
    fs::remove(fs::path(folder) / "complete", failure);
    fs::create_directories(fs::path(folder) / "small", failure);
    if (large)
        fs::create_directories(fs::path(folder) / "large", failure);
    if (failure) {
        std::fprintf(stderr, "zeldicom_gen_corpus: cannot create %s: %s\n", folder.c_str(),
                     failure.message().c_str());
        return 1;
    }

    std::string error;
    for (int index = 0; index < smallCount; ++index) {
        char name[32];
        std::snprintf(name, sizeof name, "ct_%03d.dcm", index);
        if (!zelbench::WriteSmallCtFile((fs::path(folder) / "small" / name).string(), index, error)) {
            std::fprintf(stderr, "zeldicom_gen_corpus: %s\n", error.c_str());
            return 1;
        }
    }
    const int rows = 512;
    const int columns = 512;
    if (large &&
        !zelbench::WriteMultiFrameFile((fs::path(folder) / "large" / "multiframe.dcm").string(), frames, rows,
                                       columns, error)) {
        std::fprintf(stderr, "zeldicom_gen_corpus: %s\n", error.c_str());
        return 1;
    }

    const std::string marker = (fs::path(folder) / "complete").string();
    std::FILE* file = std::fopen(marker.c_str(), "w");
    if (!file) {
        std::fprintf(stderr, "zeldicom_gen_corpus: cannot create %s\n", marker.c_str());
        return 1;
    }
    std::fprintf(file, "small %d\nframes %d\n", smallCount, large ? frames : 0);
    std::fclose(file);
    std::printf("wrote %d small objects%s to %s\n", smallCount,
                large ? (" and a " + std::to_string(frames) + "-frame object").c_str() : "", folder.c_str());
    return 0;
}
