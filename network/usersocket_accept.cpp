// The accepting side of association establishment (PS3.8 7.1, 9.3.2-9.3.4):
// read the caller's A-ASSOCIATE-RQ, decide each proposed presentation
// context, and answer with A-ASSOCIATE-AC or A-ASSOCIATE-RJ.
#include <algorithm>
#include <cstring>

#include "network/usersocket.h"
#include "pdu/pdu.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

// PS3.8 9.3.4 rejection reasons this side gives.
constexpr uint8_t kPermanent = 1;
constexpr uint8_t kServiceUser = 1, kProviderAcse = 2;
constexpr uint8_t kApplicationContextNotSupported = 2;
constexpr uint8_t kProtocolVersionNotSupported = 2;
constexpr uint8_t kCalledTitleNotRecognized = 7;

std::string TrimmedTitle(const std::string& title)
{
    const size_t first = title.find_first_not_of(' ');
    const size_t last = title.find_last_not_of(' ');
    return first == std::string::npos ? std::string() : title.substr(first, last - first + 1);
}

void CopyTitle(char (&field)[17], const std::string& title)
{
    std::memset(field, ' ', 16);
    std::memcpy(field, title.data(), std::min<size_t>(title.size(), 16));
    field[16] = '\0';
}

}  // namespace

int CUserSocket::AcceptAssociation(const std::vector<std::string>& abstractSyntaxes)
{
    ACCEPT_POLICY policy;
    policy.accepts = [&abstractSyntaxes](const std::string& uid) {
        return std::find(abstractSyntaxes.begin(), abstractSyntaxes.end(), uid) != abstractSyntaxes.end();
    };
    return AcceptAssociation(policy);
}

int CUserSocket::AcceptAssociation(const ACCEPT_POLICY& policy)
{
    m_Rejection = {};
    m_AssociateData.RemovePresContexts();
    if (!ReceivePdu())
        return 0;
    size_t size = static_cast<size_t>(m_nPduLength) + pdu::kHeaderSize;
    SetPduEmpty();
    if (GetLastPduType() != pdu::kAssociateRq) {
        SetError(kErrorUnexpectedPdu, 0,
                 FormatText("a PDU of type 0x%02X arrived where A-ASSOCIATE-RQ was expected", GetLastPduType()));
        return 0;
    }
    pdu::AssociateRq request;
    std::string problem;
    if (!pdu::ReadAssociateRq(PduBytes(), size, request, &problem)) {
        SetError(kErrorMalformedPdu, 0, "the caller's association request: " + problem);
        return 0;
    }
    CopyTitle(m_AssociateData.m_szCalledAETitle, request.calledTitle);
    CopyTitle(m_AssociateData.m_szCallingAETitle, request.callingTitle);

    Rejection rejection{policy.reject.result, policy.reject.source, policy.reject.reason};
    if (rejection.result == 0 && (request.protocolVersion & 1) == 0)
        rejection = {kPermanent, kProviderAcse, kProtocolVersionNotSupported};
    if (rejection.result == 0 && request.applicationContext != pdu::kApplicationContextName)
        rejection = {kPermanent, kServiceUser, kApplicationContextNotSupported};
    if (rejection.result == 0 && !policy.calledTitle.empty() &&
        TrimmedTitle(request.calledTitle) != TrimmedTitle(policy.calledTitle))
        rejection = {kPermanent, kServiceUser, kCalledTitleNotRecognized};
    if (rejection.result != 0) {
        m_Rejection = rejection;
        DicomTraceFormat("<%s> A-ASSOCIATE-RJ (result %d, source %d, reason %d)", m_sTraceName.c_str(),
                         rejection.result, rejection.source, rejection.reason);
        SendWholePdu(pdu::WriteAssociateRj({rejection.result, rejection.source, rejection.reason}));
        SetError(kErrorRejected, 0,
                 FormatText("the association was rejected (result %d, source %d, reason %d)", rejection.result,
                            rejection.source, rejection.reason));
        return 0;
    }
    // PS3.8 D.1: the caller's Maximum Length bounds the PDUs sent to it; a
    // PDV item needs 6 bytes of it beyond the fragment, a P-DATA-TF header 6.
    if (request.maxLength > 12)
        m_nMaxSendFragment = request.maxLength - 12u;

    pdu::AssociateAc answer;
    answer.calledTitle = request.calledTitle;
    answer.callingTitle = request.callingTitle;
    for (const pdu::ProposedContext& proposed : request.contexts) {
        auto* context = new CPresentationContext;
        context->m_ucPresContextID = proposed.id;
        context->m_sAbstractSyntax = proposed.abstractSyntax;
        for (const std::string& uid : proposed.transferSyntaxes)
            context->AddTransferSyntax(uid);
        if (!policy.accepts || !policy.accepts(proposed.abstractSyntax)) {
            context->m_ucResult = 3;  // abstract syntax not supported
        } else if (policy.transferSyntaxes.empty()) {
            context->SelectValidTransferSyntax();
        } else {
            context->m_ucResult = 4;  // transfer syntaxes not supported
            for (const std::string& preferred : policy.transferSyntaxes)
                if (std::find(proposed.transferSyntaxes.begin(), proposed.transferSyntaxes.end(), preferred) !=
                    proposed.transferSyntaxes.end()) {
                    context->m_sAcceptedTransferSyntax = preferred;
                    context->m_ucResult = 0;
                    break;
                }
        }
        // PS3.8 9.3.2.2: a context ID appears once; a repeated one is refused.
        if (m_AssociateData.GetPresContextByID(proposed.id))
            context->m_ucResult = 2;
        answer.contexts.push_back({proposed.id, context->m_ucResult,
                                   context->m_ucResult == 0 ? context->m_sAcceptedTransferSyntax : std::string()});
        m_AssociateData.AddPresContext(context);
    }
    FillUserInformation(answer);
    if (policy.maxPduLength != 0)
        answer.maxLength = policy.maxPduLength;
    // PS3.7 D.3.3.4: each proposed role is answered as proposed.
    answer.roles = request.roles;
    pdu::Bytes bytes;
    if (!pdu::WriteAssociateAc(answer, bytes)) {
        SetError(kErrorMalformedPdu, 0, "the A-ASSOCIATE-AC does not fit its length fields");
        return 0;
    }
    if (!SendWholePdu(bytes))
        return 0;
    m_bAssociated = true;
    return 1;
}
