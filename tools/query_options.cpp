// Options and output shared by `zeldicom find`, `move` and `get`.
#include "tools/query_options.h"

#include <csignal>
#include <cstdio>
#include <memory>

#include "dicomdata/dictionary.h"

namespace {
volatile std::sig_atomic_t g_interrupts = 0;
// The first two go to the exchange (C-CANCEL, then A-ABORT; the first
// alone stops a connection or negotiation still under way); a third, for
// a wait nobody watches, ends the program.
extern "C" void CountInterrupt(int)
{
    g_interrupts = g_interrupts + 1;
    if (g_interrupts >= 3) {
        std::signal(SIGINT, SIG_DFL);
        std::raise(SIGINT);
    }
}
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

void AddQueryOptions(OptionReader& reader, QR_REQUEST& request)
{
    // The patient root model starts at PATIENT unless a level is given.
    auto levelGiven = std::make_shared<bool>(false);
    auto setModel = [&request, levelGiven](QR_REQUEST::Model model) {
        request.model = model;
        if (!*levelGiven)
            request.level = model == QR_REQUEST::kPatientRoot ? "PATIENT" : "STUDY";
    };
    reader.Add("--model", "patient|study", "information model (default study)",
               [setModel](const std::string& model) {
                   if (model != "patient" && model != "study")
                       return "'" + model + "' is neither patient nor study";
                   setModel(model == "patient" ? QR_REQUEST::kPatientRoot : QR_REQUEST::kStudyRoot);
                   return std::string();
               });
    reader.Add("-P", nullptr, "patient root model (--model patient)", [setModel](const std::string&) {
        setModel(QR_REQUEST::kPatientRoot);
        return std::string();
    });
    reader.Add("-S", nullptr, "study root model (--model study)", [setModel](const std::string&) {
        setModel(QR_REQUEST::kStudyRoot);
        return std::string();
    });
    auto setLevel = [&request, levelGiven](const std::string& level) {
        for (const char* known : {"PATIENT", "STUDY", "SERIES", "IMAGE"})
            if (level == known) {
                request.level = level;
                *levelGiven = true;
                return std::string();
            }
        return "'" + level + "' is not PATIENT, STUDY, SERIES or IMAGE";
    };
    reader.Add("--level", "LEVEL", "PATIENT, STUDY, SERIES or IMAGE (default STUDY, PATIENT for -P)", setLevel);
    reader.Add("--key -k", "KEY[=VALUE]", "a keyword or gggg,eeee; without =VALUE the attribute is returned",
               [&request, setLevel](const std::string& text) {
                   QueryKey key;
                   if (!ParseQueryKey(text, key))
                       return "'" + text + "' is neither a keyword nor a tag gggg,eeee";
                   // (0008,0052) given as a key is the level, as findscu takes it.
                   if (key.group == 0x0008 && key.element == 0x0052)
                       return setLevel(key.value);
                   request.keys.push_back(key);
                   return std::string();
               });
    struct Syntax {
        const char* names;
        const char* help;
        const char* uid;
    };
    static const Syntax kSyntaxes[] = {
        {"--implicit -xi", "propose implicit VR little endian only", "1.2.840.10008.1.2"},
        {"--explicit -xe", "propose explicit VR little endian only", "1.2.840.10008.1.2.1"},
        {"--big-endian -xb", "propose explicit VR big endian only", "1.2.840.10008.1.2.2"},
    };
    for (const Syntax& syntax : kSyntaxes)
        reader.Add(syntax.names, nullptr, syntax.help, [&request, uid = syntax.uid](const std::string&) {
            request.transferSyntaxes = {uid};
            return std::string();
        });
}

void PrintSubOperationCounts(const char* what, const DICOM_CMND_MSG& response)
{
    std::printf("%s: %u remaining, %u completed, %u failed, %u warning\n", what, response.wRemainingSubOperations,
                response.wCompletedSubOperations, response.wFailedSubOperations, response.wWarningSubOperations);
    std::fflush(stdout);
}

void PrintRetrieveStatus(const DICOM_CMND_MSG& response)
{
    // The C-GET statuses are those of C-MOVE less Move Destination unknown (PS3.4 C.4.3.1.4).
    std::printf("final status 0x%04X: %s%s%s\n", response.wStatus, CUserSocket::GetMoveStatusText(response.wStatus).c_str(),
                response.szExtraText[0] ? " - " : "", response.szExtraText);
}
