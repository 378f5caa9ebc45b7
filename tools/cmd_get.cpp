// zeldicom get [OPTIONS] [-k KEY=VALUE]... --dir DIR HOST PORT
// A C-GET: the peer sends the matching instances back on the same
// association; each is written to DIR as "<SOP Instance UID>.dcm", the
// sub-operation counts are printed as each response arrives, then the final
// status and how many files were written.
#include <cstdio>
#include <string>
#include <vector>

#include "network/storeresponder.h"
#include "network/usersocket.h"
#include "tools/association_options.h"
#include "tools/commands.h"
#include "tools/query_options.h"

int RunGet(int argc, char** argv)
{
    OptionReader reader("get", "HOST PORT",
                        "Asks a C-GET SCP for the matching instances and writes them to DIR as they arrive.");
    QR_REQUEST request;
    AssociationOptions options;
    std::string folder;
    std::vector<std::string> addedClasses;
    reader.Add("--dir -od", "DIR", "the folder the instances are written to (required, must exist)",
               [&folder](const std::string& path) {
                   folder = path;
                   return CheckFolder(path);
               });
    reader.Texts("--storage-class", "UID",
                 "propose this storage SOP class too, besides the common image and document classes", addedClasses);
    AddAssociationOptions(reader, options);
    AddQueryOptions(reader, request);
    reader.Example("zeldicom get -aec QRSCP -k StudyInstanceUID=1.2.3 --dir study localhost 11112");
    if (int status = ReadAssociationArguments(reader, options, argc, argv); status >= 0)
        return status;
    if (folder.empty())
        return reader.BadArgument("--dir missing: the folder that receives the instances");
    if (!addedClasses.empty()) {
        request.storageClasses = CUserSocket::GetDefaultStorageClasses();
        request.storageClasses.insert(request.storageClasses.end(), addedClasses.begin(), addedClasses.end());
    }

    HOST_INFO host;
    host.Set(options.host, options.port, options.called, options.calling);
    CUserSocket socket;
    ApplyTimeouts(options, socket);
    socket.SetCancellation(0, CatchInterrupts());
    options.Verbose("Requesting association with %s at %s as %s; C-GET at level %s into %s", options.called.c_str(),
                    options.Peer().c_str(), options.calling.c_str(), request.level.c_str(), folder.c_str());
    int written = 0;
    DICOM_CMND_MSG final;
    int error = socket.Do_CGET_Request(
        host, request, folder,
        [&options](const DICOM_CMND_MSG& response) {
            if (!options.Quiet())
                PrintSubOperationCounts("pending", response);
        },
        [&options, &written](const STORED_INSTANCE& stored) {
            if (stored.status == 0x0000) {
                ++written;
                options.Verbose("%s: written", stored.path.c_str());
            } else {
                std::fprintf(stderr, "zeldicom get: %s (%s) answered 0x%04X: %s\n",
                             stored.instance.sopInstance.c_str(), stored.instance.sopClass.c_str(), stored.status,
                             stored.error.c_str());
            }
        },
        final);
    if (error != 0)
        return reader.Failure(options.Peer() + ": " + socket.GetErrorText() + " (" + std::to_string(written) +
                              " files written)");
    if (!options.Quiet()) {
        PrintSubOperationCounts("final", final);
        PrintRetrieveStatus(final);
        std::printf("%d file%s written to %s\n", written, written == 1 ? "" : "s", folder.c_str());
    }
    if (!FinishOutput("get"))
        return 1;
    return final.wStatus == 0x0000 ? 0 : 1;
}
