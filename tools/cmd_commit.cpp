// zeldicom commit --listen PORT [OPTIONS] HOST PORT FILE...
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
    OptionReader reader("commit", "HOST PORT FILE...",
                        "Asks a storage commitment SCP to commit the files' instances and prints its report.");
    AssociationOptions options;
    unsigned listenPort = 0;
    reader.Add("--listen", "PORT", "where the peer's N-EVENT-REPORT association is accepted (required)",
               [&listenPort](const std::string& text) { return ReadPort(text, listenPort); });
    AddAssociationOptions(reader, options);
    reader.Note("The DIMSE time-out also bounds the wait for the report.");
    reader.Example("zeldicom commit -aec ORTHANC --listen 11113 -v localhost 4242 ct.dcm");
    if (int status = ReadAssociationArguments(reader, options, argc, argv); status >= 0)
        return status;
    if (listenPort == 0)
        return reader.BadArgument("--listen missing: the port where the report is to come");
    std::vector<COMMIT_RESULT::Instance> instances;
    for (const std::string& path : options.operands) {
        CDicomItem root(u"Root");
        std::string sopClass, sopInstance;
        if (root.LoadObject(zeldicom::Utf8ToUtf16(path))) {
            if (const auto* header = static_cast<const CDicomItem*>(root.GetChildItem(std::u16string(u"Header")))) {
                sopClass = MetaUid(*header, 0x0002);
                sopInstance = MetaUid(*header, 0x0003);
            }
        }
        if (sopClass.empty() || sopInstance.empty())
            return reader.Failure(path + ": not a DICOM file with SOP class and instance in its meta information");
        instances.push_back({sopClass, sopInstance, 0});
    }

    HOST_INFO host;
    host.Set(options.host, options.port, options.called, options.calling);
    CUserSocket socket;
    ApplyTimeouts(options, socket);
    options.Verbose("Requesting association with %s at %s as %s; N-ACTION for %zu instances, report awaited on port %u",
                    options.called.c_str(), options.Peer().c_str(), options.calling.c_str(), instances.size(),
                    listenPort);
    COMMIT_RESULT result;
    int error = socket.Do_StorageCommitment(host, instances, listenPort, result);
    if (error != 0)
        return reader.Failure(options.Peer() + ": " + socket.GetErrorText());
    options.Verbose("N-ACTION status 0x%04X; report with event type %u", result.actionStatus, result.eventType);
    for (const auto& instance : result.committed)
        std::printf("committed %s %s\n", instance.sopInstance.c_str(), GetClearUID(instance.sopClass).c_str());
    for (const auto& instance : result.failed)
        std::printf("failed %s %s: reason 0x%04X (%s)\n", instance.sopInstance.c_str(),
                    GetClearUID(instance.sopClass).c_str(), instance.failureReason,
                    CUserSocket::GetNStatusText(instance.failureReason).c_str());
    if (result.reportedTransactionUid != result.transactionUid)
        std::fprintf(stderr, "zeldicom commit: the report names transaction %s, not %s\n",
                     result.reportedTransactionUid.c_str(), result.transactionUid.c_str());
    if (!options.Quiet())
        std::printf("%zu committed, %zu failed (transaction %s)\n", result.committed.size(), result.failed.size(),
                    result.transactionUid.c_str());
    if (!FinishOutput("commit"))
        return 1;
    return result.failed.empty() && result.committed.size() == instances.size() &&
                   result.reportedTransactionUid == result.transactionUid
               ? 0
               : 1;
}
