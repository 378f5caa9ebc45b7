// Options shared by `zeldicom find` and `zeldicom move`.
#include "tools/query_options.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "dicomdata/dictionary.h"

namespace {
volatile std::sig_atomic_t g_interrupts = 0;
// The first two go to the exchange (C-CANCEL, then A-ABORT); a third, for a
// wait the exchange does not watch (connecting, negotiating), ends the program.
extern "C" void CountInterrupt(int)
{
    g_interrupts = g_interrupts + 1;
    if (g_interrupts >= 3) {
        std::signal(SIGINT, SIG_DFL);
        std::raise(SIGINT);
    }
}
}

bool ReadCancelCount(const char* name, const char* text, int& count)
{
    char* end = nullptr;
    long value = std::strtol(text, &end, 10);
    if (!end || *end != '\0' || end == text || value < 1 || value > 1000000) {
        std::fprintf(stderr, "zeldicom %s: --cancel takes a count of matches from 1, not '%s'\n", name, text);
        return false;
    }
    count = static_cast<int>(value);
    return true;
}

std::function<int()> CatchInterrupts()
{
    struct sigaction action = {};
    action.sa_handler = CountInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    return [] { return static_cast<int>(g_interrupts); };
}

bool ParseQueryKey(const std::string& text, QueryKey& key)
{
    size_t equals = text.find('=');
    std::string name = text.substr(0, equals);
    key.value = equals == std::string::npos ? "" : text.substr(equals + 1);
    if (name.size() > 2 && name.front() == '(' && name.back() == ')')
        name = name.substr(1, name.size() - 2);
    unsigned group = 0, element = 0;
    char tail = 0;
    if (std::sscanf(name.c_str(), "%4x,%4x%c", &group, &element, &tail) == 2 && name.size() == 9) {
        key.group = static_cast<uint16_t>(group);
        key.element = static_cast<uint16_t>(element);
        return true;
    }
    if (const zeldicom::AttributeEntry* entry = zeldicom::FindAttributeByKeyword(name)) {
        key.group = static_cast<uint16_t>(entry->tag >> 16);
        key.element = static_cast<uint16_t>(entry->tag & 0xFFFF);
        return true;
    }
    return false;
}

int ReadQueryOptions(const char* name, int argc, char** argv, QR_REQUEST& request, bool& json,
                     std::vector<char*>& rest)
{
    static const char* const kLevels[] = {"PATIENT", "STUDY", "SERIES", "IMAGE"};
    bool levelGiven = false;
    for (int i = 0; i < argc; ++i) {
        std::string arg = argv[i];
        auto missing = [&] {
            std::fprintf(stderr, "zeldicom %s: %s needs a value\n", name, arg.c_str());
            return 2;
        };
        if (arg == "--model") {
            if (i + 1 >= argc)
                return missing();
            std::string model = argv[++i];
            if (model != "patient" && model != "study") {
                std::fprintf(stderr, "zeldicom %s: --model is patient or study, not '%s'\n", name, model.c_str());
                return 2;
            }
            request.model = model == "patient" ? QR_REQUEST::kPatientRoot : QR_REQUEST::kStudyRoot;
        } else if (arg == "-P" || arg == "-S") {
            request.model = arg == "-P" ? QR_REQUEST::kPatientRoot : QR_REQUEST::kStudyRoot;
        } else if (arg == "--level") {
            if (i + 1 >= argc)
                return missing();
            request.level = argv[++i];
            bool known = false;
            for (const char* level : kLevels)
                known = known || request.level == level;
            if (!known) {
                std::fprintf(stderr, "zeldicom %s: --level is PATIENT, STUDY, SERIES or IMAGE, not '%s'\n", name,
                             request.level.c_str());
                return 2;
            }
            levelGiven = true;
        } else if (arg == "-k" || arg == "--key") {
            if (i + 1 >= argc)
                return missing();
            QueryKey key;
            if (!ParseQueryKey(argv[++i], key)) {
                std::fprintf(stderr, "zeldicom %s: '%s' is neither a keyword nor a tag gggg,eeee\n", name, argv[i]);
                return 2;
            }
            // (0008,0052) given as a key is the level, as findscu takes it.
            if (key.group == 0x0008 && key.element == 0x0052) {
                request.level = key.value;
                levelGiven = true;
            } else {
                request.keys.push_back(key);
            }
        } else if (arg == "--json") {
            json = true;
        } else if (arg == "-xi" || arg == "--implicit") {
            request.transferSyntaxes = {"1.2.840.10008.1.2"};
        } else if (arg == "-xe" || arg == "--explicit") {
            request.transferSyntaxes = {"1.2.840.10008.1.2.1"};
        } else if (arg == "-xb" || arg == "--big-endian") {
            request.transferSyntaxes = {"1.2.840.10008.1.2.2"};
        } else {
            rest.push_back(argv[i]);
        }
    }
    if (!levelGiven && request.model == QR_REQUEST::kPatientRoot)
        request.level = "PATIENT";
    return -1;
}
