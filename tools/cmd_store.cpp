// zeldicom store [--aet CALLING] [--aec CALLED] [--timeout SECONDS] [--trace DIR] HOST PORT PATH...
// Sends DICOM files, and the files under folders, to a storage SCP with the
// library's C-STORE batch: this command collects the paths, and prints one
// line for each file that was not stored and a summary.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "network/usersocket.h"
#include "tools/association_options.h"
#include "tools/commands.h"

namespace {

int Usage(FILE* out, int status)
{
    std::fprintf(out,
                 "Usage: zeldicom store [--aet CALLING] [--aec CALLED] [--timeout SECONDS] [--trace DIR] HOST PORT PATH...\n"
                 "Sends the DICOM files and the files under the folders given to HOST:PORT.\n"
                 "Uncompressed files go in the peer's choice of explicit or implicit VR little endian,\n"
                 "converted on the way; a file that fails to read is reported and the batch goes on.\n"
                 "  --aet, -aet CALLING   calling AE title (default ZELDICOM)\n"
                 "  --aec, -aec CALLED    called AE title (default ANY-SCP)\n"
                 "  --timeout SECONDS     connect and receive time-out (default 30)\n"
                 "  --trace DIR           write the analysed protocol trace DIR/DICOMyyyymmdd.LOG\n"
                 "Exit status 0 when every DICOM file was stored (files that are not DICOM, and DICOMDIRs,\n"
                 "are skipped), 1 when any was refused or failed, 2 on wrong arguments.\n");
    return status;
}

// The files named and those under the folders named, each folder's in name order.
std::vector<std::string> CollectPaths(const std::vector<std::string>& operands, std::vector<std::string>& missing)
{
    std::vector<std::string> paths;
    for (const std::string& operand : operands) {
        std::error_code error;
        if (std::filesystem::is_directory(operand, error)) {
            std::vector<std::string> found;
            for (auto it = std::filesystem::recursive_directory_iterator(operand, error);
                 !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error))
                if (it->is_regular_file(error))
                    found.push_back(it->path().string());
            std::sort(found.begin(), found.end());
            paths.insert(paths.end(), found.begin(), found.end());
        } else if (std::filesystem::is_regular_file(operand, error)) {
            paths.push_back(operand);
        } else {
            missing.push_back(operand);
        }
    }
    return paths;
}

}

int RunStore(int argc, char** argv)
{
    AssociationOptions options;
    int status = ReadAssociationOptions("store", argc, argv, 3, static_cast<size_t>(-1), Usage, options);
    if (status >= 0)
        return status;
    const std::vector<std::string>& operands = options.operands;

    std::vector<std::string> missing;
    std::vector<std::string> found =
        CollectPaths(std::vector<std::string>(operands.begin() + 2, operands.end()), missing);
    for (const std::string& path : missing)
        std::fprintf(stderr, "%s: not stored: no such file or folder\n", path.c_str());
    std::vector<std::u16string> paths;
    for (const std::string& path : found)
        paths.push_back(std::filesystem::path(path).u16string());

    HOST_INFO host;
    host.Set(operands[0], options.port, options.called, options.calling);
    CUserSocket socket;
    socket.SetTimeout(static_cast<int>(options.timeout * 1000));

    // A progress line, rewritten after every file, when a person watches.
    const bool progress = isatty(2) != 0;
    bool progressShown = false;
    size_t done = 0;
    int64_t sentBytes = 0;
    auto start = std::chrono::steady_clock::now();
    auto onOutcome = [&](const STORE_OUTCOME& outcome) {
        std::string path = std::filesystem::path(outcome.path).string();
        ++done;
        sentBytes += outcome.bytes;
        const char* what = outcome.result == STORE_OUTCOME::kStored    ? "stored with"
                           : outcome.result == STORE_OUTCOME::kSkipped ? "skipped:"
                                                                        : "not stored:";
        if (!outcome.reason.empty()) {
            if (progressShown)
                std::fputc('\n', stderr);
            progressShown = false;
            std::fprintf(stderr, "%s: %s %s\n", path.c_str(), what, outcome.reason.c_str());
        }
        if (progress) {
            double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            double mib = static_cast<double>(sentBytes) / (1 << 20);
            progressShown = true;
            std::fprintf(stderr, "\r%zu/%zu files, %.1f MiB, %.1f MiB/s ", done, paths.size(), mib,
                         elapsed > 0 ? mib / elapsed : 0.0);
        }
    };
    STORE_SUMMARY summary;
    int error = socket.Do_CSTORE_Request(host, paths, onOutcome, summary);
    if (progressShown)
        std::fputc('\n', stderr);
    const std::string peer = operands[0] + ":" + operands[1];
    if (error != 0)
        std::fprintf(stderr, "zeldicom store: %s: %s\n", peer.c_str(), socket.GetErrorText().c_str());
    if (summary.stored + summary.refused + summary.failed == 0 && missing.empty() && error == 0)
        std::fprintf(stderr, "zeldicom store: no DICOM file to send\n");
    const int failed = summary.failed + static_cast<int>(missing.size());
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("stored %d of %d files (%lld bytes) to %s at %s in %.2f s: %d refused, %d failed, %d skipped\n",
                summary.stored, summary.stored + summary.refused + failed, static_cast<long long>(summary.bytes),
                options.called.c_str(), peer.c_str(), seconds, summary.refused, failed, summary.skipped);
    if (!FinishOutput("store"))
        return 1;
    return summary.refused == 0 && failed == 0 && summary.stored > 0 ? 0 : 1;
}
