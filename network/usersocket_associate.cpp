// Association negotiation as the requesting side (PS3.8 7.1, 9.3).
#include <cstdarg>
#include <cstring>

#include "imageinfo/dicominfo.h"
#include "network/usersocket.h"
#include "platform/text.h"
#include "pdu/pdu.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

namespace {
const std::string kHyphens(91, '-');

// The library's own implementation class UID (UUID-derived, PS3.5 B.2),
// sent when the host has set no UID root.
constexpr char kLibraryImplementationClass[] = "2.25.135358127703870177945697021926943424524";

// PS3.5 9.1: 1 to 64 characters, digits in components separated by dots.
bool IsUid(const std::string& text)
{
    if (text.empty() || text.size() > 64 || text.front() == '.' || text.back() == '.')
        return false;
    for (size_t i = 0; i < text.size(); ++i)
        if (!(text[i] >= '0' && text[i] <= '9') && !(text[i] == '.' && text[i - 1] != '.'))
            return false;
    return true;
}
}

std::string CUserSocket::GetImplementationClassUid()
{
    // PS3.7 D.3.3.2: the sub-item is mandatory and holds a UID; a root that is
    // not one is not sent.
    std::string root = WideToAscii(DICOMINFO::GetDicomRoot());
    return IsUid(root) ? root : kLibraryImplementationClass;
}

void CUserSocket::FillUserInformation(pdu::AssociateFields& fields) const
{
    fields.hasMaxLength = true;
    fields.maxLength = static_cast<uint32_t>(m_nReceiveBufferSize);
    fields.implementationClass = GetImplementationClassUid();
    fields.implementationVersion = FormatText("%d_%d_%d", DICOMINFO::GetVersionMajor(), DICOMINFO::GetVersionMinor(),
                                              DICOMINFO::GetVersionRev());
}

int CUserSocket::SendWholePdu(const pdu::Bytes& bytes)
{
    if (Send(bytes.data(), static_cast<int>(bytes.size())) == -1) {
        SetError(0, GetLastError());
        return 0;
    }
    return 1;
}

CUserSocket::CUserSocket() { m_sTraceName = "DicomUserSocket"; }

void CUserSocket::SetConnectionData(const std::string& host, unsigned port, const std::string& calledTitle,
                                    const std::string& callingTitle)
{
    m_sHost = Utf8ToUtf16(host);
    m_nPort = port;
    // Each title over a field of 16 blanks: a shorter title set after a
    // longer one leaves none of the earlier characters behind.
    for (char* field : {m_AssociateData.m_szCalledAETitle, m_AssociateData.m_szCallingAETitle}) {
        std::memset(field, ' ', 16);
        field[16] = '\0';
    }
    std::memcpy(m_AssociateData.m_szCalledAETitle, calledTitle.data(), std::min<size_t>(calledTitle.size(), 16));
    std::memcpy(m_AssociateData.m_szCallingAETitle, callingTitle.data(), std::min<size_t>(callingTitle.size(), 16));
}

std::string CUserSocket::CheckAETitle(const std::string& title)
{
    // PS3.5 6.2: AE is 1 to 16 characters of the default repertoire without
    // control characters and the backslash; blanks alone are no title.
    if (title.empty())
        return "an AE title cannot be empty";
    if (title.size() > 16)
        return FormatText("the AE title '%s' has %zu characters, more than 16", title.c_str(), title.size());
    bool blank = true;
    for (char c : title) {
        if (c < 0x20 || c > 0x7E || c == '\\')
            return FormatText("the AE title '%s' holds a character outside the AE repertoire", title.c_str());
        blank = blank && c == ' ';
    }
    if (blank)
        return "an AE title cannot be all spaces";
    return "";
}

void CUserSocket::AddPresentationContext(const char* abstractSyntax, int count, ...)
{
    std::vector<std::string> transferSyntaxes;
    va_list syntaxes;
    va_start(syntaxes, count);
    for (int i = 0; i < count; ++i) {
        const char* uid = va_arg(syntaxes, const char*);
        transferSyntaxes.push_back(uid ? uid : "");
    }
    va_end(syntaxes);
    AddPresentationContext(abstractSyntax ? abstractSyntax : "", transferSyntaxes);
}

void CUserSocket::AddPresentationContext(const std::string& abstractSyntax,
                                         const std::vector<std::string>& transferSyntaxes)
{
    auto* context = new CPresentationContext;
    context->m_sAbstractSyntax = abstractSyntax;
    for (const std::string& uid : transferSyntaxes)
        context->AddTransferSyntax(uid);
    context->m_ucPresContextID = static_cast<unsigned char>(2 * m_AssociateData.GetPresContextCount() + 1);
    m_AssociateData.AddPresContext(context);
}

int CUserSocket::Connect()
{
    if (!Create(0, 1, u"")) {
        m_nSystemError = GetLastError();
        return 0;
    }
    if (Trace()) {
        DicomTraceStr("");
        DicomTraceStr(kHyphens);
        DicomTraceFormat("<%s> OPENING CONNECTION WITH HOST '%s' (IP: %s, Port: %d)", m_sTraceName.c_str(),
                         std::string(m_AssociateData.m_szCalledAETitle, strnlen(m_AssociateData.m_szCalledAETitle, 16)).c_str(),
                         Utf16ToUtf8(m_sHost).c_str(), static_cast<int>(m_nPort));
        DicomTraceStr(kHyphens);
    }
    // The connection has its own time-out, and the interrupt check is asked
    // while it is pending, as while a receive waits.
    if (!ConnectWithin(m_sHost, m_nPort, m_nConnectTimeout, m_fnInterrupted)) {
        m_nSystemError = GetLastError();
        if (m_nSystemError == kInterrupted)
            SetError(kErrorInterrupted, 0, "interrupted");
        // The handle goes with the failed connection: the next Connect on
        // this object starts from a fresh socket.
        CZelSocket::Close();
        return 0;
    }
    return 1;
}

int CUserSocket::SendAssociateReq(bool storageCommitmentRole)
{
    pdu::AssociateRq request;
    request.calledTitle.assign(m_AssociateData.m_szCalledAETitle, strnlen(m_AssociateData.m_szCalledAETitle, 16));
    request.callingTitle.assign(m_AssociateData.m_szCallingAETitle, strnlen(m_AssociateData.m_szCallingAETitle, 16));
    for (int i = 0; i < m_AssociateData.GetPresContextCount(); ++i) {
        const CPresentationContext* context = m_AssociateData.GetPresContext(i);
        pdu::ProposedContext proposed{context->m_ucPresContextID, context->m_sAbstractSyntax, {}};
        for (int t = 0; t < context->GetTransferSyntaxCount(); ++t)
            proposed.transferSyntaxes.push_back(context->GetTransferSyntax(t));
        request.contexts.push_back(std::move(proposed));
    }
    FillUserInformation(request);
    // SCP/SCU role selection for storage commitment push (PS3.7 D.3.3.4):
    // this side takes the SCP role, so the event report may come back.
    if (storageCommitmentRole)
        request.roles.push_back({"1.2.840.10008.1.20.1", 0x00, 0x01});
    // The same for the storage classes of a C-GET (PS3.4 C.4.3): the peer
    // sends their instances on this association as C-STORE-RQs.
    for (const std::string& syntax : m_scpRoleSyntaxes)
        request.roles.push_back({syntax, 0x00, 0x01});
    pdu::Bytes bytes;
    if (!pdu::WriteAssociateRq(request, bytes)) {
        SetError(kErrorMalformedPdu, 0, "the A-ASSOCIATE-RQ does not fit its length fields");
        return 0;
    }
    return SendWholePdu(bytes);
}

int CUserSocket::ReceiveAssociateRsp()
{
    if (!ReceiveAssociationPdu())
        return 0;
    size_t size = static_cast<size_t>(m_nPduLength) + pdu::kHeaderSize;
    SetPduEmpty();
    uint8_t type = PduBytes()[0];
    // Whatever came but a rejection leaves a peer that expects this side to
    // release or abort (PS3.8 AA-8 for an answer that is not one).
    m_bAssociated = type != pdu::kAssociateRj;
    if (type == pdu::kAssociateAc)
        return ReadAssociateAc();
    if (type == pdu::kAssociateRj) {
        pdu::AssociateRj rejection;
        pdu::ReadAssociateRj(PduBytes(), size, rejection);
        m_Rejection = {rejection.result, rejection.source, rejection.reason};
        uint32_t error = kErrorRejected;
        // PS3.8 9.3.4: the reason's meaning depends on the source.
        switch (m_Rejection.reason) {
        case 1: error = m_Rejection.source == 3 ? kErrorRejectedCongestion : kErrorRejectedNoReason; break;
        case 2:
            error = m_Rejection.source == 3   ? kErrorRejectedLocalLimit
                    : m_Rejection.source == 2 ? kErrorRejectedProtocolVersion
                                              : kErrorRejectedApplicationContext;
            break;
        case 3: error = kErrorRejectedCallingTitle; break;
        case 7: error = kErrorRejectedCalledTitle; break;
        default: break;
        }
        SetError(error);
        return 0;
    }
    SetError(kErrorNotAssociateAnswer, 0,
             FormatText("the answer to A-ASSOCIATE-RQ is a PDU of type 0x%02X, neither A-ASSOCIATE-AC nor -RJ", type));
    return 0;
}

int CUserSocket::ReadAssociateAc()
{
    pdu::AssociateAc answer;
    std::string problem;
    if (!pdu::ReadAssociateAc(PduBytes(), static_cast<size_t>(m_nReceiveBufferSize), answer, &problem)) {
        SetError(kErrorMalformedPdu, 0, "malformed A-ASSOCIATE-AC: " + problem);
        return 0;
    }
    for (const pdu::ContextResult& context : answer.contexts)
        m_AssociateData.ValidatePresContext(context.id, context.result, context.transferSyntax);
    // A maximum of 0 means no limit: the fragment size wraps to near 2^32
    // and data is never split.
    if (answer.hasMaxLength)
        m_nMaxSendFragment = answer.maxLength - 12u;
    return 1;
}

int CDicomCommonSocket::SendReleaseReq()
{
    const pdu::Bytes release = pdu::WriteReleaseRq();
    int sent = Send(release.data(), static_cast<int>(release.size()));
    DicomTraceFormat("<%s> A-RELEASE-RQ PDU Length = 0x%08x", m_sTraceName.c_str(), 4);
    if (sent == -1) {
        SetError(0, GetLastError());
        return 0;
    }
    return 1;
}

int CUserSocket::ReceiveReleaseRsp()
{
    for (;;) {
        if (!ReceiveAssociationPdu()) {
            m_bAssociated = false;
            return 0;
        }
        SetPduEmpty();
        uint8_t type = PduBytes()[0];
        if (type == pdu::kReleaseRp) {
            m_bAssociated = false;
            return 1;
        }
        if (type == pdu::kReleaseRq) {
            // PS3.8 7.2 release collision, requestor side: answer the peer's
            // A-RELEASE-RQ with A-RELEASE-RP, then wait for the answer to ours.
            DicomTraceFormat("<%s> Release collision: answering the peer's A-RELEASE-RQ", m_sTraceName.c_str());
            if (!SendWholePdu(pdu::WriteReleaseRp()))
                return 0;
            continue;
        }
        if (type == pdu::kDataTf) {
            // PS3.8 Sta7: data may still arrive while the release is awaited.
            DicomTraceFormat("<%s> P-DATA-TF while awaiting A-RELEASE-RP: ignored", m_sTraceName.c_str());
            continue;
        }
        SetError(kErrorNoReleaseAnswer, 0, FormatText("a PDU of type 0x%02X (%s) came instead of A-RELEASE-RP", type,
                                                      GetClearPduType(type).c_str()));
        return 0;
    }
}

void CUserSocket::Close()
{
    if (Trace()) {
        DicomTraceStr(kHyphens);
        if (m_nLocalError != 0 || m_nSystemError != 0) {
            DicomTraceStr("<CUserSocket> CLOSING CONNECTION - !!! ERROR !!!");
            DicomTraceFormat("<CUserSocket>\t SystemError = %d (%s)", static_cast<int>(m_nSystemError),
                             GetClearSocketError(static_cast<int>(m_nSystemError)).c_str());
            DicomTraceFormat("<CUserSocket>\t LocalError  = %d", static_cast<int>(m_nLocalError));
        } else {
            DicomTraceStr("<CUserSocket> CLOSING CONNECTION - NO ERROR");
        }
        DicomTraceStr(kHyphens);
    }
    m_bAssociated = false;
    CZelSocket::Close();
}
