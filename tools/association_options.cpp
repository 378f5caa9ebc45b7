// Options shared by the network commands (see association_options.h).
#include "tools/association_options.h"

#include <cstdlib>

#include "imageinfo/dicominfo.h"
#include "network/usersocket.h"
#include "platform/apppath.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

// The implementation class UID sent when the host set no UID root (a UUID-derived UID, PS3.5 B.2).
constexpr char16_t kToolImplementationClass[] = u"2.25.135358127703870177945697021926943424524";

bool ParseNumber(const std::string& text, double low, double high, double& out)
{
    char* end = nullptr;
    out = std::strtod(text.c_str(), &end);
    return !text.empty() && end && *end == '\0' && out >= low && out <= high;
}

}

int ReadAssociationOptions(const char* name, int argc, char** argv, size_t minOperands, size_t maxOperands,
                           int (*usage)(FILE* out, int status), AssociationOptions& options)
{
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
            return usage(stdout, 0);
        if (arg == "--aet" || arg == "-aet") {
            if (!value(options.calling))
                return usage(stderr, 2);
        } else if (arg == "--aec" || arg == "-aec") {
            if (!value(options.called))
                return usage(stderr, 2);
        } else if (arg == "--timeout" || arg == "-to") {
            if (!value(text) || !ParseNumber(text, 0.001, 86400, options.timeout)) {
                std::fprintf(stderr, "zeldicom %s: --timeout needs a number of seconds\n", name);
                return 2;
            }
        } else if (arg == "--trace") {
            if (!value(options.traceDir))
                return usage(stderr, 2);
        } else if (arg.size() > 1 && arg[0] == '-') {
            std::fprintf(stderr, "zeldicom %s: unknown option '%s'\n", name, arg.c_str());
            return 2;
        } else {
            options.operands.push_back(arg);
        }
    }
    double port = 0;
    size_t count = options.operands.size();
    if (count < minOperands || count > maxOperands || !ParseNumber(options.operands[1], 1, 65535, port))
        return usage(stderr, 2);
    options.port = static_cast<unsigned>(port);
    for (const std::string* title : {&options.calling, &options.called})
        if (title->empty() || title->size() > 16) {
            std::fprintf(stderr, "zeldicom %s: an AE title has 1 to 16 characters: '%s'\n", name, title->c_str());
            return 2;
        }
    if (!options.traceDir.empty()) {
        CAppPath::GetAppPathInstance().SetPath(u"temp", Utf8ToUtf16(options.traceDir));
        CDicomSocket::SetTrace(2);
    }
    if (DICOMINFO::GetDicomRoot().empty())
        DICOMINFO::SetDicomRoot(kToolImplementationClass);
    return -1;
}
