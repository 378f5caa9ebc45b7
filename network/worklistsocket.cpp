// The worklist query: association with one presentation context, the C-FIND
// request and its responses through the shared C-FIND exchange, the worker
// entry with its completion notification, and the audit records.
#include "network/worklistsocket.h"

#include <cstring>

#include "platform/audit.h"
#include "platform/profile.h"
#include "platform/system.h"
#include "platform/text.h"
#include "trace/dicomtrace.h"

using namespace zeldicom;

namespace {
// Modality Worklist Information Model - FIND (PS3.4 K.6.1.2).
constexpr char kWorklistFind[] = "1.2.840.10008.5.1.4.31";
constexpr char kImplicitLittleEndian[] = "1.2.840.10008.1.2";
// Data Set Type: any value but 0x0101 announces a data set (PS3.7 E.1).
constexpr uint16_t kIdentifierFollows = 0x0102;
// The first parameter of the completion notification.
constexpr uint32_t kNotifyDone = 99;

std::string Field(const char* text, size_t size) { return std::string(text, strnlen(text, size)); }
}

CWorklistSocket::CWorklistSocket(HOST_INFO* host)
{
    m_sTraceName = "WorklistSocket";
    if (host)
        SetConnectionData(Field(host->szHost, sizeof host->szHost), host->nPort,
                          Field(host->szCalledAETitle, 16), Field(host->szCallingAETitle, 16));
    // Milliseconds; 0 or below keeps the socket's 30 s.
    int timeout = HostProfile::GetProfileInt("Worklist", "TimeOut", -1);
    if (timeout > 0)
        SetTimeout(timeout);
    AddPresentationContext(kWorklistFind, 1, kImplicitLittleEndian);
}

int CWorklistSocket::SendFindRequest(WL_FIND* record)
{
    if (!record || !record->pRequest)
        return 0;
    if (!SendFindReqCmnd(kWorklistFind, 0x0000, kIdentifierFollows))
        return 0;
    // The identifier goes in the transfer syntax accepted for the context
    // and is split into PDUs no larger than the peer's Maximum Length
    // (PS3.8 D.1): a peer may abort on a PDU above what it announced, and it
    // decodes the data set by the negotiated syntax, not by our habit.
    const bool explicitVR = IsExplicitVR();
    CDicomItem& request = *record->pRequest;
    CDynBuffer identifier;
    if (IsBigEndian() || request.RecalcTags(explicitVR, 0) == 0xFFFFFFFF ||
        request.SaveTags(explicitVR, CDynBuffer::WriteProc, &identifier) == 0xFFFFFFFF) {
        SetErrorText(kErrorBadArgument, "the request cannot be encoded: " + request.GetLastError().GetText());
        return 0;
    }
    return SendData(identifier.GetData(), static_cast<int>(identifier.m_nSize));
}

int CWorklistSocket::ReceiveFindResponse(WL_FIND* record)
{
    if (!record)
        return 0;
    auto keepMatch = [&](const DICOM_CMND_MSG&, CDynBuffer& identifier) {
        auto match = std::make_unique<WL_DATA>();
        if (!LoadDataSet(identifier.GetData(), identifier.m_nSize, match->buffer, match->tree)) {
            SetErrorText(kErrorMalformedDataSet, "a C-FIND response carries a malformed identifier");
            return false;
        }
        record->aMatches.push_back(std::move(match));
        return true;
    };
    uint16_t finalStatus = 0xFFFF;
    if (!ReceiveFindResponses(keepMatch, finalStatus))
        return 0;
    record->wFinalStatus = finalStatus;
    std::string text;
    int good = 0, final = 1;
    AnalysFindResponseStatus(finalStatus, text, good, final);
    DicomTraceFormat("<%s> Study Find Status: %04X %s", m_sTraceName.c_str(), finalStatus, text.c_str());
    if (good)
        return 1;
    SetErrorText(kErrorFailureStatus, FormatText("final status 0x%04X: %s", finalStatus, text.c_str()));
    return 0;
}

int CWorklistSocket::Find(WL_FIND* record)
{
    if (!SendFindRequest(record)) {
        MarkFailedStep(ExchangeStep::kRequest, "C-FIND");
        return 0;
    }
    if (!ReceiveFindResponse(record)) {
        MarkFailedStep(ExchangeStep::kResponse, "C-FIND");
        return 0;
    }
    return 1;
}

void CWorklistSocket::ProccessRequest(WL_FIND* record)
{
    if (!record)
        return;
    record->nError = 0;
    record->wFinalStatus = 0xFFFF;
    record->sErrorText.clear();
    CWorklistSocket socket(record);
    socket.SetCancellation(record->nCancelAfter, nullptr);
    if (record->nConnectTimeout > 0 || record->nAcseTimeout > 0 || record->nDimseTimeout > 0) {
        auto orKept = [&socket](int milliseconds, CDicomSocket::Wait wait) {
            return milliseconds > 0 ? milliseconds : socket.GetTimeout(wait);
        };
        socket.SetTimeouts(orKept(record->nConnectTimeout, CDicomSocket::Wait::kConnect),
                           orKept(record->nAcseTimeout, CDicomSocket::Wait::kAssociation),
                           orKept(record->nDimseTimeout, CDicomSocket::Wait::kMessage));
    }
    bool success = false;
    auto keepError = [&] {
        uint32_t local = socket.GetLocalError();
        record->nError = local != 0 ? local : socket.GetSystemError();
        if (record->nError == 0)
            record->nError = kErrorReceive;
        record->sErrorText = socket.GetErrorText();
    };
    if (!socket.Connect()) {
        socket.MarkFailedStep(ExchangeStep::kConnect);
    } else if (!socket.SendAssociateReq(false) || !socket.ReceiveAssociateRsp()) {
        socket.FailExchange(ExchangeStep::kAssociation);
    } else if (unsigned char context = socket.FindAcceptedContext(kWorklistFind, kImplicitLittleEndian);
               context == 0) {
        socket.SetErrorText(kErrorNoContext, "the peer refused the Modality Worklist presentation context");
        socket.FailExchange(ExchangeStep::kAssociation);
    } else {
        socket.SetPresentationContext(context);
        success = socket.Find(record) != 0;
        if (!success)
            keepError();
        // A final failure status still ends the exchange: release the
        // association rather than drop it.
        if (success || record->wFinalStatus != 0xFFFF) {
            if (socket.FinishExchange() != 0) {
                if (success)
                    keepError();
                success = false;
            }
        } else {
            socket.AbortAndClose();
        }
    }
    if (!success && record->nError == 0)
        keepError();
    socket.Close();
    if (!success)
        CAuditManager::GetUniqueInstance().LogWarning(u"Worklist Find Request has failed.",
                                                      u"Please check your directory settings.");
    LogATNAWorklistQuery(record, success);
}

unsigned int CWorklistSocket::FindThreadProc(WL_FIND* record)
{
    ProccessRequest(record);
    // The host owns the record and may free it from here on.
    if (record && record->notify && record->nMessage != 0)
        record->notify(record->nMessage, kNotifyDone, record);
    return 0;
}

void CWorklistSocket::LogATNAWorklistQuery(WL_FIND* record, bool success)
{
    if (!record)
        return;
    std::u16string calling = Utf8ToUtf16(Field(record->szCallingAETitle, 16));
    std::u16string called = Utf8ToUtf16(Field(record->szCalledAETitle, 16));
    std::u16string user;
    if (CSecurityFrameworkForDLL* framework = CSecurityFrameworkForDLL::GetUniqueInstance())
        user = framework->GetCurrentUserName();
    CDicomEventsLogger& logger = CAuditTrailManager::GetUniqueInstance().GetDicomEventsLogger();
    if (success)
        logger.LogDoModalityWorklistQuerySuccessfull(calling, called, user);
    else
        logger.LogDoModalityWorklistQueryFailure(calling, called, user);
}
