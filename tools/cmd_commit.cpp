// zeldicom commit [--aet AE] [--aec AE] --listen PORT HOST PORT FILE...
// Storage commitment push: asks the peer to commit the files' instances
// (N-ACTION), waits on --listen for the association that brings the
// N-EVENT-REPORT, answers it and prints the committed and failed instances.
#include <cstdio>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "network/usersocket.h"
#include "platform/text.h"
#include "tools/association_options.h"
#include "tools/commands.h"
#include "trace/vocabulary.h"

namespace {

int Usage(FILE* out, int status)
{
    std::fprintf(out,
                 "Usage: zeldicom commit --listen PORT [OPTIONS] HOST PORT FILE...\n"
                 "Asks a storage commitment SCP to commit the files' instances and prints its report.\n"
                 "  --listen PORT         where the peer's N-EVENT-REPORT association is accepted (required)\n"
                 "  --aet, -aet CALLING   calling AE title (default ZELDICOM)\n"
                 "  --aec, -aec CALLED    called AE title (default ANY-SCP)\n"
                 "  --timeout SECONDS     time-out of each answer and of the wait for the report (default 30)\n"
                 "  --trace DIR           write the analysed protocol trace DIR/DICOMyyyymmdd.LOG\n"
                 "Exit status 0 when every instance was committed, 1 otherwise, 2 on wrong arguments.\n");
    return status;
}

std::string MetaUid(const CDicomItem& header, int element)
{
    const CDicomItem* node = header.GetTagItem(0x0002, element);
    if (!node || !node->GetData() || node->GetDataSize() <= 0)
        return "";
    std::string text(reinterpret_cast<const char*>(node->GetData()), static_cast<size_t>(node->GetDataSize()));
    while (!text.empty() && (text.back() == '\0' || text.back() == ' '))
        text.pop_back();
    return text;
}

}

int RunCommit(int argc, char** argv)
{
    std::vector<char*> rest;
    std::string listen;
    for (int i = 0; i < argc; ++i) {
        if (std::string(argv[i]) == "--listen") {
            if (i + 1 >= argc)
                return Usage(stderr, 2);
            listen = argv[++i];
        } else {
            rest.push_back(argv[i]);
        }
    }
    AssociationOptions options;
    int status = ReadAssociationOptions("commit", static_cast<int>(rest.size()), rest.data(), 3,
                                        static_cast<size_t>(-1), Usage, options);
    if (status >= 0)
        return status;
    char* end = nullptr;
    long listenPort = std::strtol(listen.c_str(), &end, 10);
    if (listen.empty() || *end != '\0' || listenPort < 1 || listenPort > 65535) {
        std::fprintf(stderr, "zeldicom commit: --listen needs a port number (1-65535)\n");
        return 2;
    }
    std::vector<COMMIT_RESULT::Instance> instances;
    for (size_t i = 2; i < options.operands.size(); ++i) {
        const std::string& path = options.operands[i];
        CDicomItem root(u"Root");
        std::string sopClass, sopInstance;
        if (root.LoadObject(zeldicom::Utf8ToUtf16(path))) {
            if (const auto* header = static_cast<const CDicomItem*>(root.GetChildItem(std::u16string(u"Header")))) {
                sopClass = MetaUid(*header, 0x0002);
                sopInstance = MetaUid(*header, 0x0003);
            }
        }
        if (sopClass.empty() || sopInstance.empty()) {
            std::fprintf(stderr, "zeldicom commit: %s: not a DICOM file with SOP class and instance in its meta information\n",
                         path.c_str());
            return 1;
        }
        instances.push_back({sopClass, sopInstance, 0});
    }

    HOST_INFO host;
    host.Set(options.operands[0], options.port, options.called, options.calling);
    CUserSocket socket;
    socket.SetTimeout(static_cast<int>(options.timeout * 1000));
    COMMIT_RESULT result;
    int error = socket.Do_StorageCommitment(host, instances, static_cast<unsigned>(listenPort), result);
    const std::string peer = options.operands[0] + ":" + options.operands[1];
    if (error != 0) {
        std::fprintf(stderr, "zeldicom commit: %s: %s\n", peer.c_str(), socket.GetErrorText().c_str());
        return 1;
    }
    for (const auto& instance : result.committed)
        std::printf("committed %s %s\n", instance.sopInstance.c_str(), GetClearUID(instance.sopClass).c_str());
    for (const auto& instance : result.failed)
        std::printf("failed %s %s: reason 0x%04X (%s)\n", instance.sopInstance.c_str(),
                    GetClearUID(instance.sopClass).c_str(), instance.failureReason,
                    CUserSocket::GetNStatusText(instance.failureReason).c_str());
    if (result.reportedTransactionUid != result.transactionUid)
        std::fprintf(stderr, "zeldicom commit: the report names transaction %s, not %s\n",
                     result.reportedTransactionUid.c_str(), result.transactionUid.c_str());
    std::printf("%zu committed, %zu failed (transaction %s)\n", result.committed.size(), result.failed.size(),
                result.transactionUid.c_str());
    if (!FinishOutput("commit"))
        return 1;
    return result.failed.empty() && result.committed.size() == instances.size() &&
                   result.reportedTransactionUid == result.transactionUid
               ? 0
               : 1;
}
