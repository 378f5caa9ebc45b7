// zeldicom move [--aet AE] [--aec AE] --dest AE [--model patient|study] [--level LEVEL] [-k KEY=VALUE]... HOST PORT
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

namespace {

int Usage(FILE* out, int status)
{
    std::fprintf(out,
                 "Usage: zeldicom move --dest AE [OPTIONS] [-k KEY=VALUE]... HOST PORT\n"
                 "Asks a C-MOVE SCP to send the matching instances to the AE title DEST.\n"
                 "  --dest, -aem AE       move destination (required)\n"
                 "  --aet, -aet CALLING   calling AE title (default ZELDICOM)\n"
                 "  --aec, -aec CALLED    called AE title (default ANY-SCP)\n"
                 "  --model patient|study information model (default study; -P, -S)\n"
                 "  --level LEVEL         PATIENT, STUDY, SERIES or IMAGE (default STUDY, PATIENT for -P)\n"
                 "  -k, --key KEY=VALUE   a keyword or gggg,eeee and its value\n"
                 "  -xi, -xe, -xb         propose implicit VR, explicit VR little or big endian only\n"
                 "  --timeout SECONDS     connect and receive time-out (default 30)\n"
                 "  --trace DIR           write the analysed protocol trace DIR/DICOMyyyymmdd.LOG\n"
                 "Exit status 0 when every sub-operation succeeded, 1 otherwise, 2 on wrong arguments.\n");
    return status;
}

void PrintCounts(const char* what, const DICOM_CMND_MSG& response)
{
    std::printf("%s: %u remaining, %u completed, %u failed, %u warning\n", what, response.wRemainingSubOperations,
                response.wCompletedSubOperations, response.wFailedSubOperations, response.wWarningSubOperations);
    std::fflush(stdout);
}

}

int RunMove(int argc, char** argv)
{
    std::vector<char*> withoutDest;
    std::string destination;
    for (int i = 0; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--dest" || arg == "-aem") {
            if (i + 1 >= argc)
                return Usage(stderr, 2);
            destination = argv[++i];
        } else {
            withoutDest.push_back(argv[i]);
        }
    }
    QR_REQUEST request;
    bool json = false;
    std::vector<char*> rest;
    int status = ReadQueryOptions("move", static_cast<int>(withoutDest.size()), withoutDest.data(), request, json, rest);
    if (status >= 0)
        return status;
    if (json) {
        std::fprintf(stderr, "zeldicom move: unknown option '--json'\n");
        return 2;
    }
    AssociationOptions options;
    status = ReadAssociationOptions("move", static_cast<int>(rest.size()), rest.data(), 2, 2, Usage, options);
    if (status >= 0)
        return status;
    if (destination.empty() || destination.size() > 16) {
        std::fprintf(stderr, "zeldicom move: --dest needs an AE title of 1 to 16 characters\n");
        return 2;
    }
    request.moveDestination = destination;

    HOST_INFO host;
    host.Set(options.operands[0], options.port, options.called, options.calling);
    CUserSocket socket;
    socket.SetTimeout(static_cast<int>(options.timeout * 1000));
    socket.SetCancellation(0, CatchInterrupts());
    DICOM_CMND_MSG final;
    int error = socket.Do_CMOVE_Request(
        host, request, [](const DICOM_CMND_MSG& response) { PrintCounts("pending", response); }, final);
    const std::string peer = options.operands[0] + ":" + options.operands[1];
    if (error != 0) {
        std::fprintf(stderr, "zeldicom move: %s: %s\n", peer.c_str(), socket.GetErrorText().c_str());
        return 1;
    }
    PrintCounts("final", final);
    std::printf("final status 0x%04X: %s%s%s\n", final.wStatus, CUserSocket::GetMoveStatusText(final.wStatus).c_str(),
                final.szExtraText[0] ? " - " : "", final.szExtraText);
    if (!FinishOutput("move"))
        return 1;
    return final.wStatus == 0x0000 ? 0 : 1;
}
