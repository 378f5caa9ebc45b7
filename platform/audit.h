#pragma once
// The audit trail a host can collect: the DICOM events (who queried which
// node, and whether it worked) and the name of the user the host says is
// working. Every record is one line appended to a file the host names; with
// no file named, nothing is written. (Warnings and errors go to the error
// log, CAuditManager in platform/system.h.)
#include <mutex>
#include <string>

// The DICOM events of the audit trail (DICOM Audit Message "Query", PS3.15 A.5.3.12).
class CDicomEventsLogger {
public:
    void LogDoModalityWorklistQuerySuccessfull(const std::u16string& callingTitle, const std::u16string& calledTitle,
                                                const std::u16string& user);
    void LogDoModalityWorklistQueryFailure(const std::u16string& callingTitle, const std::u16string& calledTitle,
                                           const std::u16string& user);
};

class CAuditTrailManager {
public:
    static CAuditTrailManager& GetUniqueInstance();
    // Appends to path from now on; an empty path stops the trail.
    void SetLogFile(const std::string& path);
    // One line: local time, the event, then the fields separated by " | ".
    // False when a file is named but cannot be written.
    bool Write(const char* event, const std::u16string& first, const std::u16string& second,
               const std::u16string& third);
    CDicomEventsLogger& GetDicomEventsLogger() { return m_DicomEvents; }

private:
    CDicomEventsLogger m_DicomEvents;
    std::mutex m_Lock;
    std::string m_sLogFile;
};

// The host's security framework, as far as the library asks it: who is
// working. No framework is there until the host installs one.
class CSecurityFrameworkForDLL {
public:
    // Null when the host has installed no framework.
    static CSecurityFrameworkForDLL* GetUniqueInstance();
    static void Install(CSecurityFrameworkForDLL* framework);
    virtual ~CSecurityFrameworkForDLL() = default;
    // The current user's name, empty when nobody is logged in.
    virtual std::u16string GetCurrentUserName() const = 0;
};
