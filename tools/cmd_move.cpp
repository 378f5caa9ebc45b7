// zeldicom move --dest AE [--receive DIR [--port P]] [OPTIONS] [-k KEY=VALUE]... HOST PORT
// A C-MOVE: the peer sends the matching instances to the destination AE;
// the sub-operation counts are printed as each response arrives, then the
// final status. With --receive, the destination is this command itself: a
// storage server on port P takes the sub-operations into DIR and stops
// once the final response has come.
#include <csignal>
#include <cstdio>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "network/storageserver.h"
#include "network/usersocket.h"
#include "tools/association_options.h"
#include "tools/commands.h"
#include "tools/query_options.h"
#include "tools/receive_output.h"

int RunMove(int argc, char** argv)
{
    OptionReader reader("move", "HOST PORT", "Asks a C-MOVE SCP to send the matching instances to the AE title DEST.");
    QR_REQUEST request;
    AssociationOptions options;
    reader.Add("--dest -aem", "AE", "move destination (required)", [&request](const std::string& title) {
        request.moveDestination = title;
        return CheckAeTitle(title);
    });
    std::string receiveFolder;
    double receivePort = 11112;
    reader.Add("--receive", "DIR", "receive the instances here: this command is the destination AE",
               [&receiveFolder](const std::string& folder) {
                   receiveFolder = folder;
                   return CheckFolder(folder);
               });
    reader.Number("--port", "P", "the port --receive listens on (default 11112)", 1, 65535, receivePort, true);
    AddAssociationOptions(reader, options);
    AddQueryOptions(reader, request);
    reader.Example("zeldicom move -aec QRSCP --dest STORESCP -k StudyInstanceUID=1.2.3 localhost 11112");
    reader.Example("zeldicom move -aec QRSCP --dest ME --receive study/ --port 11113 -k StudyInstanceUID=1.2.3 qr 11112");
    if (int status = ReadAssociationArguments(reader, options, argc, argv); status >= 0)
        return status;
    if (request.moveDestination.empty())
        return reader.BadArgument("--dest missing: the AE title that receives the instances");

    // The receiver listens before the C-MOVE goes out, so that the first
    // sub-operation finds the port open; it runs until the final response.
    std::optional<CStorageServer> receiver;
    std::thread serving;
    if (!receiveFolder.empty()) {
        STORAGE_SERVER_SETTINGS settings;
        settings.folder = receiveFolder;
        settings.aeTitle = request.moveDestination;
        settings.timeoutMs = AssociationOptions::Milliseconds(options.dimseTimeout);
        receiver.emplace(settings);
        receiver->SetEventCallback(ReceiveReporter(options));
        if (!receiver->Listen(static_cast<unsigned>(receivePort)))
            return reader.Failure(receiver->GetError());
        std::signal(SIGXFSZ, SIG_IGN);
        serving = std::thread([&receiver] { receiver->Run(); });
        options.Verbose("Receiving as %s on port %u into %s", request.moveDestination.c_str(), receiver->GetPort(),
                        receiveFolder.c_str());
    }
    // Running associations of the receiver may finish within the time-out.
    auto stopReceiving = [&] {
        if (!receiver)
            return;
        receiver->Stop(AssociationOptions::Milliseconds(options.dimseTimeout));
        serving.join();
    };

    HOST_INFO host;
    host.Set(options.host, options.port, options.called, options.calling);
    CUserSocket socket;
    ApplyTimeouts(options, socket);
    socket.SetCancellation(0, CatchInterrupts());
    options.Verbose("Requesting association with %s at %s as %s; C-MOVE at level %s to %s", options.called.c_str(),
                    options.Peer().c_str(), options.calling.c_str(), request.level.c_str(),
                    request.moveDestination.c_str());
    DICOM_CMND_MSG final;
    int error = socket.Do_CMOVE_Request(
        host, request,
        [&options](const DICOM_CMND_MSG& response) {
            if (!options.Quiet())
                PrintSubOperationCounts("pending", response);
        },
        final);
    stopReceiving();
    if (error != 0)
        return reader.Failure(options.Peer() + ": " + socket.GetErrorText());
    if (!options.Quiet()) {
        PrintSubOperationCounts("final", final);
        PrintRetrieveStatus(final);
    }
    if (!FinishOutput("move"))
        return 1;
    return final.wStatus == 0x0000 ? 0 : 1;
}
