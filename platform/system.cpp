#include "platform/system.h"

#include <atomic>
#include <cstdio>
#include <fstream>
#include <unistd.h>

#include "platform/text.h"

uint32_t CTicketGenerator::GetUniqueIDForSession()
{
    static std::atomic<uint32_t> next{static_cast<uint32_t>(::getpid()) * 2654435761u ^
                                      static_cast<uint32_t>(std::time(nullptr))};
    return next.fetch_add(1, std::memory_order_relaxed);
}

static uint32_t Fnv1a(const std::string& text)
{
    uint32_t hash = 2166136261u;
    for (unsigned char c : text) {
        hash ^= c;
        hash *= 16777619u;
    }
    return hash;
}

uint32_t zeldicom::GetMachineNumber()
{
    static const uint32_t number = [] {
        std::string id;
        for (const char* path : {"/etc/machine-id", "/var/lib/dbus/machine-id"}) {
            std::ifstream in(path);
            if (in && std::getline(in, id) && !id.empty())
                break;
        }
        if (id.empty()) {
            char host[256] = {};
            if (::gethostname(host, sizeof host - 1) == 0)
                id = host;
        }
        return Fnv1a(id);
    }();
    return number;
}

bool zeldicom::GetLocalTime(std::tm& out)
{
    std::time_t now = std::time(nullptr);
    return now != static_cast<std::time_t>(-1) && ::localtime_r(&now, &out) != nullptr;
}

CAuditManager& CAuditManager::GetUniqueInstance()
{
    static CAuditManager instance;
    return instance;
}

void CAuditManager::SetLogFile(const std::string& path)
{
    m_sLogFile = path;
}

void CAuditManager::LogWarning(const std::u16string& message, const std::u16string& detail)
{
    m_sLastError = "warning:" + zeldicom::Utf16ToUtf8(message) + " " + zeldicom::Utf16ToUtf8(detail);
    if (m_bQuiet || m_sLogFile.empty())
        return;
    if (FILE* file = std::fopen(m_sLogFile.c_str(), "a")) {
        std::fprintf(file, "%s\n", m_sLastError.c_str());
        std::fclose(file);
    }
}

void CAuditManager::LogError(const std::string& source, const std::string& message)
{
    m_sLastError = source + ":" + message;
    if (m_bQuiet)
        return;
    if (!m_sLogFile.empty()) {
        if (FILE* file = std::fopen(m_sLogFile.c_str(), "a")) {
            std::fprintf(file, "%s\n", m_sLastError.c_str());
            std::fclose(file);
            return;
        }
    }
    std::fprintf(stderr, "%s\n", m_sLastError.c_str());
}
