// The audit trail file, its DICOM events and the host's security framework.
#include "platform/audit.h"

#include <atomic>
#include <cstdio>
#include <ctime>

#include "platform/system.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

std::atomic<CSecurityFrameworkForDLL*> g_framework{nullptr};

// A field without line breaks, so that one record stays one line.
std::string OneLine(const std::u16string& text)
{
    std::string utf8 = Utf16ToUtf8(text);
    for (char& c : utf8) {
        if (c == '\n' || c == '\r')
            c = ' ';
    }
    return utf8;
}

}

CAuditTrailManager& CAuditTrailManager::GetUniqueInstance()
{
    static CAuditTrailManager instance;
    return instance;
}

void CAuditTrailManager::SetLogFile(const std::string& path)
{
    std::lock_guard<std::mutex> lock(m_Lock);
    m_sLogFile = path;
}

bool CAuditTrailManager::Write(const char* event, const std::u16string& first, const std::u16string& second,
                               const std::u16string& third)
{
    std::lock_guard<std::mutex> lock(m_Lock);
    if (m_sLogFile.empty())
        return true;
    std::tm local{};
    char stamp[32] = "";
    if (GetLocalTime(local))
        std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &local);
    FILE* file = std::fopen(m_sLogFile.c_str(), "a");
    if (!file)
        return false;
    std::string line = std::string(stamp) + " " + event + " | " + OneLine(first) + " | " + OneLine(second) + " | " +
                       OneLine(third) + "\n";
    bool written = std::fwrite(line.data(), 1, line.size(), file) == line.size();
    return std::fclose(file) == 0 && written;
}

void CDicomEventsLogger::LogDoModalityWorklistQuerySuccessfull(const std::u16string& callingTitle,
                                                               const std::u16string& calledTitle,
                                                               const std::u16string& user)
{
    CAuditTrailManager::GetUniqueInstance().Write("WORKLIST-QUERY SUCCESS", callingTitle, calledTitle, user);
}

void CDicomEventsLogger::LogDoModalityWorklistQueryFailure(const std::u16string& callingTitle,
                                                           const std::u16string& calledTitle,
                                                           const std::u16string& user)
{
    CAuditTrailManager::GetUniqueInstance().Write("WORKLIST-QUERY FAILURE", callingTitle, calledTitle, user);
}

CSecurityFrameworkForDLL* CSecurityFrameworkForDLL::GetUniqueInstance() { return g_framework.load(); }

void CSecurityFrameworkForDLL::Install(CSecurityFrameworkForDLL* framework) { g_framework.store(framework); }
