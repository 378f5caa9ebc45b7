// zeldicom find [OPTIONS] [-k KEY[=VALUE]]... [--json] HOST PORT
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

int RunFind(int argc, char** argv)
{
    OptionReader reader("find", "HOST PORT", "Queries a C-FIND SCP and prints each match and the final status.");
    QR_REQUEST request;
    bool json = false;
    AssociationOptions options;
    AddAssociationOptions(reader, options);
    AddQueryOptions(reader, request);
    reader.Flag("--json", "the matches as a JSON array of DICOM JSON objects", json);
    double cancelAfter = 0;
    reader.Number("--cancel", "N", "send C-CANCEL after N matches (Ctrl-C: C-CANCEL, twice: A-ABORT)", 1, 1000000,
                  cancelAfter, true);
    reader.Example("zeldicom find -aec QRSCP -P -k PatientName=DOE* -k PatientID localhost 11112");
    if (int status = ReadAssociationArguments(reader, options, argc, argv); status >= 0)
        return status;

    HOST_INFO host;
    host.Set(options.host, options.port, options.called, options.calling);
    CUserSocket socket;
    ApplyTimeouts(options, socket);
    socket.SetCancellation(static_cast<int>(cancelAfter), CatchInterrupts());
    options.Verbose("Requesting association with %s at %s as %s; C-FIND at level %s", options.called.c_str(),
                    options.Peer().c_str(), options.calling.c_str(), request.level.c_str());
    DumpOutput out(stdout);
    int matches = 0;
    if (json)
        out.Append('[');
    uint16_t finalStatus = 0;
    int error = socket.Do_CFIND_Request(
        host, request,
        [&](const CDicomItem& identifier) {
            ++matches;
            options.Verbose("match %d", matches);
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
    if (error != 0)
        return reader.Failure(options.Peer() + ": " + socket.GetErrorText());
    std::string text;
    int good = 0, final = 1;
    CUserSocket::AnalysFindResponseStatus(finalStatus, text, good, final);
    if (!options.Quiet())
        std::fprintf(json ? stderr : stdout, "%d match%s, final status 0x%04X: %s\n", matches, matches == 1 ? "" : "es",
                     finalStatus, text.c_str());
    return finalStatus == 0x0000 ? 0 : 1;
}
