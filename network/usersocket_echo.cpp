// The verification exchange (C-ECHO, PS3.7 9.1.5) from connect to close,
// and the words that name a failed exchange.
#include <cstring>
#include <ctime>

#include "network/usersocket.h"
#include "platform/text.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

int CUserSocket::Do_CECHO_Request(const std::u16string& host, unsigned port, const std::string& calledTitle,
                                  const std::string& callingTitle)
{
    // Whatever a previous exchange left on this object (a local error, an
    // open handle) does not decide this one.
    BeginExchange();
    m_sHost = host;
    m_nPort = port;
    std::memset(m_AssociateData.m_szCalledAETitle, 0, 16);
    std::memset(m_AssociateData.m_szCallingAETitle, 0, 16);
    std::memcpy(m_AssociateData.m_szCalledAETitle, calledTitle.data(), std::min<size_t>(calledTitle.size(), 16));
    std::memcpy(m_AssociateData.m_szCallingAETitle, callingTitle.data(), std::min<size_t>(callingTitle.size(), 16));
    AddPresentationContext("1.2.840.10008.1.1", 1, "1.2.840.10008.1.2");
    SetPresentationContext(1);

    std::time_t start = std::time(nullptr);
    int result = RunEcho(calledTitle, callingTitle);
    m_nEchoDuration = static_cast<int>(std::time(nullptr) - start);
    return result;
}

int CUserSocket::RunEcho(const std::string& calledTitle, const std::string& callingTitle)
{
    for (const std::string* title : {&calledTitle, &callingTitle}) {
        std::string problem = CheckAETitle(*title);
        if (!problem.empty()) {
            SetError(kErrorBadArgument, 0, problem);
            return ErrorCode();
        }
    }
    if (!Connect()) {
        m_nSystemError = GetLastError();
        if (m_nSystemError == kTimedOut)
            m_nLocalError = kErrorReceive;
        MarkFailedStep(ExchangeStep::kConnect);
        return ErrorCode();
    }
    if (!SendAssociateReq(false))
        return FailExchange(ExchangeStep::kAssociationRequest);
    if (!ReceiveAssociateRsp())
        return FailExchange(ExchangeStep::kAssociationAnswer);
    if (!SendEchoReq())
        return FailExchange(ExchangeStep::kRequest, "C-ECHO");
    if (!ReceiveEchoRsp())
        return FailExchange(ExchangeStep::kResponse, "C-ECHO");
    return FinishExchange();
}

namespace {

std::string RejectionWords(const CUserSocket::Rejection& rejection)
{
    // PS3.8 9.3.4: the source, then the reason as that source defines it.
    static const char* const kSources[] = {"", "the called application (service user)",
                                           "the peer's association control (service provider, ACSE)",
                                           "the peer's presentation layer (service provider)"};
    const char* source = rejection.source >= 1 && rejection.source <= 3 ? kSources[rejection.source] : "an unknown source";
    std::string reason;
    switch (rejection.source * 16 + rejection.reason) {
    case 0x11: case 0x21: reason = "no reason given"; break;
    case 0x12: reason = "application context name not supported"; break;
    case 0x13: reason = "calling AE title not recognised"; break;
    case 0x17: reason = "called AE title not recognised"; break;
    case 0x22: reason = "protocol version not supported"; break;
    case 0x31: reason = "temporary congestion"; break;
    case 0x32: reason = "local limit exceeded"; break;
    default: reason = FormatText("reason %d", rejection.reason); break;
    }
    return FormatText("association rejected (%s) by %s: %s", rejection.result == 2 ? "transient" : "permanent",
                      source, reason.c_str());
}

}

std::string CUserSocket::GetErrorText() const
{
    std::string step = m_sFailedStep.empty() ? "" : m_sFailedStep + ": ";
    uint32_t local = m_nLocalError, system = m_nSystemError;
    // The time-out of the wait that failed.
    Wait wait = Wait::kMessage;
    switch (m_nFailedStep) {
    case ExchangeStep::kConnect: wait = Wait::kConnect; break;
    case ExchangeStep::kAssociation: case ExchangeStep::kAssociationRequest: case ExchangeStep::kAssociationAnswer:
    case ExchangeStep::kReleaseRequest: case ExchangeStep::kReleaseAnswer: case ExchangeStep::kRelease:
        wait = Wait::kAssociation;
        break;
    default: break;
    }
    double seconds = GetTimeout(wait) / 1000.0;
    if (local == 0 || (local == kErrorReceive && m_nFailedStep == ExchangeStep::kConnect)) {
        switch (system) {
        case 0: return step + "failed";
        case kConnectionRefused: return step + "connection refused";
        case kConnectionReset: case 10053: case 10058: return step + "the peer closed the connection";
        case kTimedOut: return step + FormatText("timed out after %g s", seconds);
        case 11001: case 11002: case 11003: case 11004: return step + "host not found";
        default: return step + FormatText("%s (socket error %u)", GetClearSocketError(static_cast<int>(system)).c_str(), system);
        }
    }
    switch (local) {
    case kErrorReceive:
        if (system == 0) {
            if (m_nFailedStep == ExchangeStep::kReport && !m_sErrorDetail.empty())
                return step + m_sErrorDetail;
            if (m_nFailedStep == ExchangeStep::kReleaseAnswer)
                return FormatText("release not answered: no A-RELEASE-RP within %g s (timed out)", seconds);
            return step + FormatText("timed out: no answer from the peer within %g s", seconds);
        }
        if (system == kConnectionReset || system == 10053 || system == 10058)
            return step + "the peer closed the connection";
        return step + FormatText("receive failed: %s (socket error %u)", GetClearSocketError(static_cast<int>(system)).c_str(), system);
    case kErrorAbort: return step + "aborted: " + m_sErrorDetail;
    case kErrorRejected: case kErrorRejectedCongestion: case kErrorRejectedNoReason: case kErrorRejectedLocalLimit:
    case kErrorRejectedProtocolVersion: case kErrorRejectedApplicationContext: case kErrorRejectedCallingTitle:
    case kErrorRejectedCalledTitle:
        return step + RejectionWords(m_Rejection);
    case kErrorNoReleaseAnswer: return "release not answered: " + m_sErrorDetail;
    case kErrorNotAssociateAnswer: case kErrorMalformedPdu: case kErrorPduTooLarge: case kErrorUnexpectedPdu:
        return step + "malformed PDU: " + m_sErrorDetail;
    default:
        return step + (m_sErrorDetail.empty() ? FormatText("failed with local error %u", local) : m_sErrorDetail);
    }
}
