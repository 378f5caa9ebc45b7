// zeldicom receive [OPTIONS] PORT DIR
// A storage SCP: accepts associations on PORT and writes each instance
// received by C-STORE into DIR, until SIGINT or SIGTERM. Running
// associations then get the time-out to end and are aborted after it.
#include <csignal>
#include <cstdio>
#include <string>

#include "network/storageserver.h"
#include "tools/association_options.h"
#include "tools/commands.h"
#include "tools/receive_output.h"

namespace {

CStorageServer* g_server = nullptr;
int g_graceMs = 0;
volatile sig_atomic_t g_signals = 0;

// The first signal stops accepting and lets running associations end
// within the time-out; a second aborts them at once.
void StopOnSignal(int)
{
    const bool first = g_signals == 0;
    g_signals = 1;
    if (g_server)
        g_server->Stop(first ? g_graceMs : 0);
}

}  // namespace

int RunReceive(int argc, char** argv)
{
    OptionReader reader("receive", "PORT DIR",
                        "Receives DICOM instances: a storage SCP on PORT that writes each one to\n"
                        "DIR/<SOP Instance UID>.dcm. SIGINT or SIGTERM stops it (exit status 0).");
    STORAGE_SERVER_SETTINGS settings;
    AssociationOptions options;
    double seconds = 30, associations = 16, pduKiB = 128;
    reader.Add("--aet -aet", "AE", "this side's AE title: calls to another are rejected (default: any)",
               [&settings](const std::string& title) {
                   settings.aeTitle = title;
                   return CheckAeTitle(title);
               });
    reader.Number("--max-associations", "N", "associations at once; more are rejected (default 16)", 1, 1000,
                  associations, true);
    reader.Number("--timeout", "SECONDS", "for the association request and each message (default 30)", 0.001,
                  86400, seconds);
    reader.Number("--max-pdu", "KIB", "the largest PDU offered to callers (default 128)", 4, 4096, pduKiB, true);
    reader.Flag("--fsync", "make each file durable before answering success", settings.durable);
    AddOutputOptions(reader, options);
    reader.Example("zeldicom receive --aet STORESCP 11112 received/");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    unsigned port = 0;
    if (std::string fault = ReadPort(reader.Operands()[0], port); !fault.empty())
        return reader.BadArgument("PORT: " + fault);
    settings.folder = reader.Operands()[1];
    if (std::string fault = CheckFolder(settings.folder); !fault.empty())
        return reader.BadArgument("DIR: " + fault);
    settings.maxAssociations = static_cast<int>(associations);
    settings.timeoutMs = static_cast<int>(seconds * 1000);
    settings.maxPduLength = static_cast<uint32_t>(pduKiB) * 1024;
    ApplyOutputOptions(options);

    CStorageServer server(settings);
    server.SetEventCallback(ReceiveReporter(options));
    if (!server.Listen(port))
        return reader.Failure(server.GetError());
    g_server = &server;
    g_graceMs = settings.timeoutMs;
    struct sigaction action = {};
    action.sa_handler = StopOnSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    // A write past a file size limit fails (answered Out of Resources)
    // instead of ending the process.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    options.Verbose("Listening on port %u, writing to %s", server.GetPort(), settings.folder.c_str());
    server.Run();
    g_server = nullptr;
    options.Verbose("Stopped");
    return FinishOutput("receive") ? kExitDone : kExitFailed;
}
