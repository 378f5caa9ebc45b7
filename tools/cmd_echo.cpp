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
#include "tools/commands.h"

using namespace zeldicom;

namespace {

// The implementation class UID sent when the host set no UID root (a UUID-derived UID, PS3.5 B.2).
constexpr char16_t kToolImplementationClass[] = u"2.25.135358127703870177945697021926943424524";

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

bool ParseNumber(const std::string& text, double low, double high, double& out)
{
    char* end = nullptr;
    out = std::strtod(text.c_str(), &end);
    return !text.empty() && end && *end == '\0' && out >= low && out <= high;
}

}

int RunEcho(int argc, char** argv)
{
    std::string calling = "ZELDICOM", called = "ANY-SCP", traceDir;
    double timeout = 30;
    std::vector<std::string> operands;
    for (int i = 0; i < argc; ++i) {
        std::string arg = argv[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= argc)
                return false;
            out = argv[++i];
            return true;
        };
        std::string text;
        if (arg == "--help" || arg == "-h")
            return Usage(stdout, 0);
        if (arg == "--aet" || arg == "-aet") {
            if (!value(calling))
                return Usage(stderr, 2);
        } else if (arg == "--aec" || arg == "-aec") {
            if (!value(called))
                return Usage(stderr, 2);
        } else if (arg == "--timeout" || arg == "-to") {
            if (!value(text) || !ParseNumber(text, 0.001, 86400, timeout)) {
                std::fprintf(stderr, "zeldicom echo: --timeout needs a number of seconds\n");
                return 2;
            }
        } else if (arg == "--trace") {
            if (!value(traceDir))
                return Usage(stderr, 2);
        } else if (arg.size() > 1 && arg[0] == '-') {
            std::fprintf(stderr, "zeldicom echo: unknown option '%s'\n", arg.c_str());
            return 2;
        } else {
            operands.push_back(arg);
        }
    }
    double port = 0;
    if (operands.size() != 2 || !ParseNumber(operands[1], 1, 65535, port))
        return Usage(stderr, 2);
    for (const std::string* title : {&calling, &called})
        if (title->empty() || title->size() > 16) {
            std::fprintf(stderr, "zeldicom echo: an AE title has 1 to 16 characters: '%s'\n", title->c_str());
            return 2;
        }
    if (!traceDir.empty()) {
        CAppPath::GetAppPathInstance().SetPath(u"temp", Utf8ToUtf16(traceDir));
        CDicomSocket::SetTrace(2);
    }
    if (DICOMINFO::GetDicomRoot().empty())
        DICOMINFO::SetDicomRoot(kToolImplementationClass);

    CUserSocket socket;
    socket.SetTimeout(static_cast<int>(timeout * 1000));
    const std::string& host = operands[0];
    int result = socket.Do_CECHO_Request(Utf8ToUtf16(host), static_cast<unsigned>(port), called, calling);
    if (result == 0) {
        std::printf("C-ECHO to %s at %s:%s: success\n", called.c_str(), host.c_str(), operands[1].c_str());
        return 0;
    }
    std::fprintf(stderr, "zeldicom echo: %s:%s: %s\n", host.c_str(), operands[1].c_str(), socket.GetErrorText().c_str());
    return 1;
}
