// zeldicom echo [OPTIONS] HOST PORT
// Verifies a DICOM peer: association, C-ECHO, release. Exit status 0 when
// the peer answered with success; otherwise 1 and one line naming the failure.
#include <cstdio>
#include <string>

#include "network/usersocket.h"
#include "platform/text.h"
#include "tools/association_options.h"
#include "tools/commands.h"

int RunEcho(int argc, char** argv)
{
    OptionReader reader("echo", "HOST PORT", "Opens an association with HOST:PORT, sends C-ECHO and releases it.");
    AssociationOptions options;
    AddAssociationOptions(reader, options);
    reader.Example("zeldicom echo -aec STORESCP -v localhost 11112");
    if (int status = ReadAssociationArguments(reader, options, argc, argv); status >= 0)
        return status;

    CUserSocket socket;
    ApplyTimeouts(options, socket);
    options.Verbose("Requesting association with %s at %s as %s (Verification)", options.called.c_str(),
                    options.Peer().c_str(), options.calling.c_str());
    int result = socket.Do_CECHO_Request(zeldicom::Utf8ToUtf16(options.host), options.port, options.called,
                                         options.calling);
    if (result != 0)
        return reader.Failure(options.Peer() + ": " + socket.GetErrorText());
    options.Verbose("C-ECHO answered with status 0x0000 (Success); association released");
    if (!options.Quiet())
        std::printf("C-ECHO to %s at %s: success\n", options.called.c_str(), options.Peer().c_str());
    return FinishOutput("echo") ? kExitDone : kExitFailed;
}
