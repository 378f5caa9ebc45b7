// One exchange from connect to close, shared by every service: open the
// association and pick the service's context, record the step that failed,
// end with A-ABORT or A-RELEASE, cancel a running C-FIND, C-MOVE or C-GET.
#include <cstring>

#include "network/usersocket.h"
#include "pdu/pdu.h"
#include "platform/text.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

namespace {
constexpr uint16_t kCancelRq = 0x0FFF;
constexpr uint16_t kNoDataSet = 0x0101;

// PS3.8 9.3.8: A-ABORT source and reason for a failure of this side.
struct AbortCause {
    uint8_t source, reason;
};
AbortCause AbortCauseOf(uint32_t localError)
{
    switch (localError) {
    // PS3.8 AA-8: an invalid or unexpected PDU is answered by the service
    // provider's A-ABORT (source 2).
    case kErrorUnexpectedPdu:
    case kErrorNotAssociateAnswer:
    case kErrorReleaseRequested: return {2, 2};  // unexpected PDU
    case kErrorMalformedPdu:
    case kErrorPduTooLarge:
    case kErrorPdvKind: return {2, 6};  // invalid PDU parameter value
    default: return {0, 0};             // this side gives up (service user)
    }
}
}

std::string CUserSocket::StepWords(ExchangeStep step, const std::string& service)
{
    switch (step) {
    case ExchangeStep::kNone: return "";
    case ExchangeStep::kListen: return "listen" + (service.empty() ? "" : " " + service);
    case ExchangeStep::kConnect: return "connect";
    case ExchangeStep::kAssociation: return "association";
    case ExchangeStep::kAssociationRequest: return "association request";
    case ExchangeStep::kAssociationAnswer: return "association answer";
    case ExchangeStep::kRequest: return service + " request";
    case ExchangeStep::kResponse: return service + " response";
    case ExchangeStep::kReleaseRequest: return "release request";
    case ExchangeStep::kReleaseAnswer: return "release answer";
    case ExchangeStep::kRelease: return "release";
    case ExchangeStep::kReport: return "N-EVENT-REPORT";
    case ExchangeStep::kService: return service;
    }
    return "";
}

void CUserSocket::MarkFailedStep(ExchangeStep step, const std::string& service)
{
    m_nFailedStep = step;
    m_sFailedStep = StepWords(step, service);
}

int CUserSocket::ErrorCode() const
{
    return static_cast<int>(m_nLocalError != 0 ? m_nLocalError : (m_nSystemError != 0 ? m_nSystemError : 1));
}

void CUserSocket::BeginExchange()
{
    // A new association on the same object starts clean whatever the last
    // one left: errors, the failed step, its contexts, an open handle.
    CZelSocket::Close();
    SetError(0);
    MarkFailedStep(ExchangeStep::kNone);
    m_AssociateData.RemovePresContexts();
    m_bAssociated = false;
    m_bCancelSent = false;
    m_scpRoleSyntaxes.clear();
}

int CUserSocket::SendAbort(uint8_t source, uint8_t reason)
{
    m_bAssociated = false;
    DicomTraceFormat("<%s> A-ABORT (source %d, reason %d)", m_sTraceName.c_str(), source, reason);
    const pdu::Bytes abort = pdu::WriteAbort({source, reason});
    return Send(abort.data(), static_cast<int>(abort.size())) == -1 ? 0 : 1;
}

int CUserSocket::FailExchange(ExchangeStep step, const std::string& service)
{
    MarkFailedStep(step, service);
    AbortAndClose();
    return ErrorCode();
}

void CUserSocket::AbortAndClose()
{
    // An association that cannot go on is aborted, not just dropped (PS3.8
    // 7.3); not when the peer aborted it or the connection itself failed.
    if (m_bAssociated && m_nLocalError != kErrorAbort && m_nSystemError == 0) {
        const AbortCause cause = AbortCauseOf(m_nLocalError);
        uint32_t local = m_nLocalError;
        std::string detail = m_sErrorDetail;
        SendAbort(cause.source, cause.reason);
        SetError(local, 0, detail);
    }
    m_bAssociated = false;
    Close();
}

int CUserSocket::FinishExchange()
{
    if (!SendReleaseReq())
        return FailExchange(ExchangeStep::kReleaseRequest);
    if (ReceiveReleaseRsp()) {
        Close();
        return 0;
    }
    // The last response had arrived, so the operation's outcome stands when
    // the peer ends the association its own way instead of answering
    // A-RELEASE-RQ: an A-ABORT or a close of the connection.
    if (m_nLocalError == kErrorAbort || (m_nLocalError == kErrorReceive && m_nSystemError != 0)) {
        DicomTraceFormat("<%s> The peer ended the association instead of A-RELEASE-RP; the exchange had completed",
                         m_sTraceName.c_str());
        SetError(0);
        Close();
        return 0;
    }
    return FailExchange(ExchangeStep::kReleaseAnswer);
}

bool CUserSocket::OpenExchange(const HOST_INFO& host, const std::string& abstractSyntax, const std::string& service,
                               bool storageCommitmentRole)
{
    if (!OpenAssociation(host, storageCommitmentRole))
        return false;
    for (int i = 0; i < m_AssociateData.GetPresContextCount(); ++i) {
        const CPresentationContext* context = m_AssociateData.GetPresContext(i);
        if (context->m_sAbstractSyntax == abstractSyntax && context->m_ucResult == 0) {
            SetPresentationContext(context->m_ucPresContextID);
            return true;
        }
    }
    // The context refused is the one proposed for this service's abstract syntax.
    const CPresentationContext* refused = nullptr;
    for (int i = 0; i < m_AssociateData.GetPresContextCount() && !refused; ++i)
        if (m_AssociateData.GetPresContext(i)->m_sAbstractSyntax == abstractSyntax)
            refused = m_AssociateData.GetPresContext(i);
    SetError(kErrorNoContext, 0,
             FormatText("the peer refused the presentation context for %s (%s)%s%s", GetClearUID(abstractSyntax).c_str(),
                        abstractSyntax.c_str(), refused ? ": " : ": not proposed",
                        refused ? GetClearContextAck(refused->m_ucResult).c_str() : ""));
    FailExchange(ExchangeStep::kAssociation, service);
    return false;
}

int CUserSocket::SendCancelReq(uint16_t messageId)
{
    // PS3.7 9.3.2.3, 9.3.3.3, 9.3.4.3: C-FIND-, C-GET- and C-MOVE-CANCEL name the
    // request by its Message ID; the message ID counter is not advanced.
    DicomTraceFormat("<%s> C-CANCEL-RQ for message %u", m_sTraceName.c_str(), messageId);
    return SendCommand({{0x0100, CommandElement::kUs, "", kCancelRq},
                        {0x0120, CommandElement::kUs, "", messageId},
                        {0x0800, CommandElement::kUs, "", kNoDataSet}});
}

void CUserSocket::SetCancellation(int afterMatches, std::function<int()> interruption)
{
    m_nCancelAfter = afterMatches;
    m_fnInterruption = std::move(interruption);
}

int CUserSocket::AwaitCancellableResponse(uint16_t requestCommand, DICOM_CMND_MSG& response, CDynBuffer& data,
                                          bool storeRequestsToo)
{
    const uint16_t messageId = static_cast<uint16_t>(m_nMessageID & 0xFFFF);
    for (;;) {
        if (m_fnInterruption) {
            const int asked = m_bCancelSent ? 1 : 0;
            SetInterruptCheck([this, asked] { return m_fnInterruption() > asked; });
        }
        int received = AwaitResponse(requestCommand, response, data, storeRequestsToo);
        SetInterruptCheck(nullptr);
        if (received || m_nLocalError != kErrorInterrupted)
            return received;
        if (m_bCancelSent || m_fnInterruption() >= 2) {
            // The caller's FailExchange ends the association with A-ABORT.
            SetError(kErrorInterrupted, 0, "stopped: the association was aborted");
            return 0;
        }
        if (!SendCancelReq(messageId))
            return 0;
        m_bCancelSent = true;
    }
}
