// zeldicom store [OPTIONS] HOST PORT PATH...
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
    OptionReader reader("store", "HOST PORT PATH...",
                        "Sends the DICOM files and the files under the folders given to HOST:PORT.\n"
                        "Uncompressed files go in the peer's choice of explicit or implicit VR little endian,\n"
                        "converted on the way; a file that fails to read is reported and the batch goes on.\n"
                        "Files that are not DICOM, and DICOMDIRs, are skipped.");
    AssociationOptions options;
    AddAssociationOptions(reader, options);
    reader.Example("zeldicom store -aec STORESCP -v localhost 11112 study/");
    if (int status = ReadAssociationArguments(reader, options, argc, argv); status >= 0)
        return status;
    const std::vector<std::string>& operands = options.operands;

    std::vector<std::string> missing;
    std::vector<std::string> found = CollectPaths(operands, missing);
    for (const std::string& path : missing)
        std::fprintf(stderr, "%s: not stored: no such file or folder\n", path.c_str());
    std::vector<std::u16string> paths;
    for (const std::string& path : found)
        paths.push_back(std::filesystem::path(path).u16string());

    HOST_INFO host;
    host.Set(options.host, options.port, options.called, options.calling);
    CUserSocket socket;
    ApplyTimeouts(options, socket);
    options.Verbose("Requesting association with %s at %s as %s to store %zu files", options.called.c_str(),
                    options.Peer().c_str(), options.calling.c_str(), paths.size());

    // A progress line, rewritten after every file, when a person watches.
    const bool progress = isatty(2) != 0 && !options.Quiet() && options.verbosity < AssociationOptions::kVerbose;
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
        if (options.verbosity >= AssociationOptions::kVerbose) {
            static const char* const kResults[] = {"stored", "refused", "failed", "skipped"};
            std::string detail = outcome.sentSyntax.empty() ? "" : "sent as " + outcome.sentSyntax;
            if (!outcome.reason.empty())
                detail += (detail.empty() ? "" : ", ") + outcome.reason;
            options.Verbose("%s: %s, status 0x%04X%s%s", path.c_str(), kResults[outcome.result], outcome.status,
                            detail.empty() ? "" : ": ", detail.c_str());
        } else if (!outcome.reason.empty()) {
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
    const std::string peer = options.Peer();
    if (error != 0)
        std::fprintf(stderr, "zeldicom store: %s: %s\n", peer.c_str(), socket.GetErrorText().c_str());
    if (summary.stored + summary.refused + summary.failed == 0 && missing.empty() && error == 0)
        std::fprintf(stderr, "zeldicom store: no DICOM file to send\n");
    const int failed = summary.failed + static_cast<int>(missing.size());
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!options.Quiet())
        std::printf("stored %d of %d files (%lld bytes) to %s at %s in %.2f s: %d refused, %d failed, %d skipped\n",
                    summary.stored, summary.stored + summary.refused + failed, static_cast<long long>(summary.bytes),
                    options.called.c_str(), peer.c_str(), seconds, summary.refused, failed, summary.skipped);
    if (!FinishOutput("store"))
        return 1;
    return summary.refused == 0 && failed == 0 && summary.stored > 0 ? 0 : 1;
}
