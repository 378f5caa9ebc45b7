// zeldicom echo [--aet CALLING] [--aec CALLED] [--timeout SECONDS] [--trace DIR] HOST PORT
// Verifies a DICOM peer: association, C-ECHO, release. Exit status 0 when
// the peer answered with success; otherwise 1 and one line naming the failure.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "imageinfo/dicominfo.h"
#include "network/usersocket.h"
#include "platform/apppath.h"
#include "platform/text.h"
#include "tools/association_options.h"
#include "tools/commands.h"

using namespace zeldicom;

namespace {


int Usage(FILE* out, int status)
{
    std::fprintf(out,
                 "Usage: zeldicom echo [--aet CALLING] [--aec CALLED] [--timeout SECONDS] [--trace DIR] HOST PORT\n"
                 "Opens an association with HOST:PORT, sends C-ECHO and releases the association.\n"
                 "  --aet, -aet CALLING   calling AE title (default ZELDICOM)\n"
                 "  --aec, -aec CALLED    called AE title (default ANY-SCP)\n"
                 "  --timeout SECONDS     connect and receive time-out (default 30)\n"
                 "  --trace DIR           write the analysed protocol trace DIR/DICOMyyyymmdd.LOG\n"
                 "Exit status 0 when the peer answered with success, 1 on failure, 2 on wrong arguments.\n");
    return status;
}

}

int RunEcho(int argc, char** argv)
{
    AssociationOptions options;
    int status = ReadAssociationOptions("echo", argc, argv, 2, 2, Usage, options);
    if (status >= 0)
        return status;
    const std::string& calling = options.calling;
    const std::string& called = options.called;
    const std::vector<std::string>& operands = options.operands;
    const unsigned port = options.port;
    const double timeout = options.timeout;

    CUserSocket socket;
    socket.SetTimeout(static_cast<int>(timeout * 1000));
    const std::string& host = operands[0];
    int result = socket.Do_CECHO_Request(Utf8ToUtf16(host), port, called, calling);
    if (result == 0) {
        std::printf("C-ECHO to %s at %s:%s: success\n", called.c_str(), host.c_str(), operands[1].c_str());
        return 0;
    }
    std::fprintf(stderr, "zeldicom echo: %s:%s: %s\n", host.c_str(), operands[1].c_str(), socket.GetErrorText().c_str());
    return 1;
}
