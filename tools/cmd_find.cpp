// zeldicom find [--aet AE] [--aec AE] [--model patient|study] [--level LEVEL] [-k KEY[=VALUE]]... [--json] HOST PORT
// A C-FIND query: prints each match (one line per attribute, or a JSON
// array of DICOM JSON objects) and the final status.
#include <cstdio>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "network/usersocket.h"
#include "tools/association_options.h"
#include "tools/commands.h"
#include "tools/dump_writers.h"
#include "tools/query_options.h"

namespace {

int Usage(FILE* out, int status)
{
    std::fprintf(out,
                 "Usage: zeldicom find [OPTIONS] [-k KEY[=VALUE]]... HOST PORT\n"
                 "Queries a C-FIND SCP and prints each match and the final status.\n"
                 "  --aet, -aet CALLING   calling AE title (default ZELDICOM)\n"
                 "  --aec, -aec CALLED    called AE title (default ANY-SCP)\n"
                 "  --model patient|study information model (default study; -P, -S)\n"
                 "  --level LEVEL         PATIENT, STUDY, SERIES or IMAGE (default STUDY, PATIENT for -P)\n"
                 "  -k, --key KEY[=VALUE] a keyword or gggg,eeee; without =VALUE the attribute is returned\n"
                 "  --json                the matches as a JSON array of DICOM JSON objects\n"
                 "  --cancel N            send C-CANCEL after N matches (Ctrl-C: C-CANCEL, twice: A-ABORT)\n"
                 "  -xi, -xe, -xb         propose implicit VR, explicit VR little or big endian only\n"
                 "  --timeout SECONDS     connect and receive time-out (default 30)\n"
                 "  --trace DIR           write the analysed protocol trace DIR/DICOMyyyymmdd.LOG\n"
                 "Exit status 0 when the query ended with Success, 1 otherwise, 2 on wrong arguments.\n");
    return status;
}

}

int RunFind(int argc, char** argv)
{
    QR_REQUEST request;
    bool json = false;
    std::vector<char*> withoutCancel, rest;
    int cancelAfter = 0;
    for (int i = 0; i < argc; ++i) {
        if (std::string(argv[i]) != "--cancel") {
            withoutCancel.push_back(argv[i]);
            continue;
        }
        if (i + 1 >= argc || !ReadCancelCount("find", argv[++i], cancelAfter))
            return Usage(stderr, 2);
    }
    int status = ReadQueryOptions("find", static_cast<int>(withoutCancel.size()), withoutCancel.data(), request, json,
                                  rest);
    if (status >= 0)
        return status;
    AssociationOptions options;
    status = ReadAssociationOptions("find", static_cast<int>(rest.size()), rest.data(), 2, 2, Usage, options);
    if (status >= 0)
        return status;

    HOST_INFO host;
    host.Set(options.operands[0], options.port, options.called, options.calling);
    CUserSocket socket;
    socket.SetTimeout(static_cast<int>(options.timeout * 1000));
    socket.SetCancellation(cancelAfter, CatchInterrupts());
    DumpOutput out(stdout);
    int matches = 0;
    if (json)
        out.Append('[');
    uint16_t finalStatus = 0;
    int error = socket.Do_CFIND_Request(
        host, request,
        [&](const CDicomItem& identifier) {
            ++matches;
            if (json) {
                out.Append(matches > 1 ? ",\n" : "\n");
                WriteJsonDataSet(identifier, out, 0);
            } else {
                out.AppendFormat("# match %d\n", matches);
                WriteTextDataSet(identifier, out, 0);
            }
        },
        finalStatus);
    if (json)
        out.Append(matches > 0 ? "\n]\n" : "]\n");
    if (!out.Flush() || !FinishOutput("find"))
        return 1;
    const std::string peer = options.operands[0] + ":" + options.operands[1];
    if (error != 0) {
        std::fprintf(stderr, "zeldicom find: %s: %s\n", peer.c_str(), socket.GetErrorText().c_str());
        return 1;
    }
    std::string text;
    int good = 0, final = 1;
    CUserSocket::AnalysFindResponseStatus(finalStatus, text, good, final);
    std::fprintf(json ? stderr : stdout, "%d match%s, final status 0x%04X: %s\n", matches, matches == 1 ? "" : "es",
                 finalStatus, text.c_str());
    return finalStatus == 0x0000 ? 0 : 1;
}
