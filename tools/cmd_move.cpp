// zeldicom move --dest AE [OPTIONS] [-k KEY=VALUE]... HOST PORT
// A C-MOVE: the peer sends the matching instances to the destination AE;
// the sub-operation counts are printed as each response arrives, then the
// final status.
#include <cstdio>
#include <string>
#include <vector>

#include "network/usersocket.h"
#include "tools/association_options.h"
#include "tools/commands.h"
#include "tools/query_options.h"

int RunMove(int argc, char** argv)
{
    OptionReader reader("move", "HOST PORT", "Asks a C-MOVE SCP to send the matching instances to the AE title DEST.");
    QR_REQUEST request;
    AssociationOptions options;
    reader.Add("--dest -aem", "AE", "move destination (required)", [&request](const std::string& title) {
        request.moveDestination = title;
        return CheckAeTitle(title);
    });
    AddAssociationOptions(reader, options);
    AddQueryOptions(reader, request);
    reader.Example("zeldicom move -aec QRSCP --dest STORESCP -k StudyInstanceUID=1.2.3 localhost 11112");
    if (int status = ReadAssociationArguments(reader, options, argc, argv); status >= 0)
        return status;
    if (request.moveDestination.empty())
        return reader.BadArgument("--dest missing: the AE title that receives the instances");

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
