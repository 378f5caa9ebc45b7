// Printing the storage server's events (see receive_output.h).
#include "tools/receive_output.h"

#include <unistd.h>

#include <cstdio>
#include <memory>

#include "dicomdata/dictionary.h"
#include "network/usersocket.h"

namespace {

std::string SopClassName(const std::string& uid)
{
    const zeldicom::UidEntry* entry = zeldicom::FindUid(uid);
    return entry ? entry->name() : uid;
}

std::string From(const STORAGE_EVENT& event)
{
    std::string words = "association " + std::to_string(event.association);
    if (!event.peerTitle.empty())
        words += " from " + event.peerTitle;
    if (!event.peerAddress.empty())
        words += " at " + event.peerAddress;
    return words;
}

struct Totals {
    long long files = 0, bytes = 0;
    bool progressShown = false;
};

}  // namespace

CStorageServer::EventCallback ReceiveReporter(const AssociationOptions& options)
{
    const bool progress = isatty(1) != 0 && options.verbosity == AssociationOptions::kNormal;
    auto totals = std::make_shared<Totals>();
    // A line of its own after the progress line.
    auto endProgress = [totals] {
        if (totals->progressShown)
            std::fputc('\n', stdout);
        totals->progressShown = false;
    };
    return [&options, progress, totals, endProgress](const STORAGE_EVENT& event) {
        switch (event.kind) {
        case STORAGE_EVENT::kAssociated:
            options.Verbose("%s: accepted (called %s)", From(event).c_str(), event.calledTitle.c_str());
            break;
        case STORAGE_EVENT::kRejected:
            endProgress();
            std::fprintf(stderr, "%s: %s\n", From(event).c_str(), event.words.c_str());
            break;
        case STORAGE_EVENT::kEcho: options.Verbose("%s: C-ECHO answered", From(event).c_str()); break;
        case STORAGE_EVENT::kStored: {
            const STORED_INSTANCE& stored = event.stored;
            if (stored.status != 0) {
                endProgress();
                std::fprintf(stderr, "%s: %s not stored: 0x%04X %s: %s\n", From(event).c_str(),
                             stored.instance.sopInstance.c_str(), stored.status,
                             CUserSocket::GetStoreStatusText(stored.status).c_str(), stored.error.c_str());
                break;
            }
            ++totals->files;
            totals->bytes += static_cast<long long>(stored.bytes);
            if (progress) {
                totals->progressShown = true;
                std::printf("\rreceived %lld files, %.1f MiB ", totals->files, totals->bytes / 1048576.0);
                std::fflush(stdout);
            } else if (!options.Quiet()) {
                std::printf("%s: %s from %s, %llu bytes\n", stored.path.c_str(),
                            SopClassName(stored.instance.sopClass).c_str(), stored.instance.sourceTitle.c_str(),
                            static_cast<unsigned long long>(stored.bytes));
                std::fflush(stdout);
            }
            break;
        }
        case STORAGE_EVENT::kEnded:
            if (options.Quiet())
                break;
            endProgress();
            std::printf("%s: %d stored, %d failed, %llu bytes; %s\n", From(event).c_str(), event.storedCount,
                        event.failedCount, static_cast<unsigned long long>(event.bytes), event.words.c_str());
            std::fflush(stdout);
            break;
        }
    };
}
