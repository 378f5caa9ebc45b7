#pragma once
// Small operating-system services: session ticket numbers, a stable number
// for this machine, local time, and the error log.
#include <cstdint>
#include <ctime>
#include <string>

class CTicketGenerator {
public:
    // A number unique within this process (never repeats until 2^32 calls),
    // started from a value that differs between processes.
    static uint32_t GetUniqueIDForSession();
};

namespace zeldicom {

// A number that stays the same for this machine across runs (from
// /etc/machine-id, else the host name); stands where a volume serial number
// is wanted.
uint32_t GetMachineNumber();

// Local broken-down time of now; false when it cannot be had.
bool GetLocalTime(std::tm& out);

}  // namespace zeldicom

// The error log. Lines go to standard error unless the host redirects them
// to a file; the last message is kept for callers that report it.
class CAuditManager {
public:
    static CAuditManager& GetUniqueInstance();
    void LogError(const std::string& source, const std::string& message);
    // A warning for the host's log: written to the log file only (the
    // caller reports the failure itself), and kept as the last message.
    void LogWarning(const std::u16string& message, const std::u16string& detail);
    void SetLogFile(const std::string& path);  // empty: standard error
    void SetQuiet(bool quiet) { m_bQuiet = quiet; }
    const std::string& GetLastError() const { return m_sLastError; }

private:
    std::string m_sLogFile;
    std::string m_sLastError;
    bool m_bQuiet = false;
};
