// Storage commitment push as the requesting side (PS3.4 J): the N-ACTION
// with the instances to commit, then the N-EVENT-REPORT with the outcome,
// which a peer such as Orthanc sends on a new association that it opens to
// this side: so the accepting half of an association lives here too.
#include <cstring>

#include "dicomdata/dicomitem.h"
#include "imageinfo/dicominfo.h"
#include "network/dataset_codec.h"
#include "network/usersocket.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "pdu/pdu.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

namespace {
constexpr char kCommitmentSopClass[] = "1.2.840.10008.1.20.1";
constexpr char kCommitmentSopInstance[] = "1.2.840.10008.1.20.1.1";  // PS3.4 J.3.5: well-known instance
constexpr uint16_t kActionRq = 0x0130;
constexpr uint16_t kEventReportRq = 0x0100;
constexpr uint16_t kRequestCommitment = 1;

std::string UidOf(const CDicomItem* item, int group, int element)
{
    const CDicomItem* node = item ? item->GetTagItem(group, element) : nullptr;
    if (!node || !node->GetData() || node->GetDataSize() <= 0)
        return "";
    std::string text(reinterpret_cast<const char*>(node->GetData()), static_cast<size_t>(node->GetDataSize()));
    while (!text.empty() && (text.back() == '\0' || text.back() == ' '))
        text.pop_back();
    return text;
}

// The items of a sequence element of a loaded tree.
std::vector<const CDicomItem*> ItemsOf(const CDicomItem& dataSet, int group, int element)
{
    std::vector<const CDicomItem*> items;
    const CDicomItem* sequence = dataSet.GetTagItem(group, element);
    const CDicomItem* itemGroup = sequence ? sequence->GetGroupItem(0xFFFE) : nullptr;
    if (!itemGroup)
        return items;
    for (const CXmlItem* child : itemGroup->m_children)
        if (CDicomItem::ParseElementName(child->m_sName) == 0xE000)
            items.push_back(static_cast<const CDicomItem*>(child));
    return items;
}

}

int CUserSocket::SendReleaseRsp()
{
    return SendWholePdu(pdu::WriteReleaseRp());
}

bool CUserSocket::EncodeCommitmentRequest(const std::string& transactionUid,
                                          const std::vector<COMMIT_RESULT::Instance>& instances, CDynBuffer& out)
{
    const dataset::Encoding encoding{IsExplicitVR(), IsBigEndian()};
    CDynBuffer items;
    for (const COMMIT_RESULT::Instance& instance : instances) {
        CDynBuffer item;
        AddTag(item, 0x0008, 0x1150, instance.sopClass.data(), static_cast<uint32_t>(instance.sopClass.size()));
        AddTag(item, 0x0008, 0x1155, instance.sopInstance.data(), static_cast<uint32_t>(instance.sopInstance.size()));
        // An item header has no VR in any encoding: tag and 32-bit length.
        dataset::WriteHeader(items, dataset::Encoding{false, encoding.bigEndian}, 0xFFFE, 0xE000, "", item.m_nSize);
        items.Add(item.GetData(), item.m_nSize);
    }
    out.m_nSize = 0;
    return AddTag(out, 0x0008, 0x1195, transactionUid.data(), static_cast<uint32_t>(transactionUid.size())) &&
           AddTag(out, 0x0008, 0x1199, items.GetData(), items.m_nSize);
}

int CUserSocket::ReceiveCommitmentReport(COMMIT_RESULT& result)
{
    DICOM_CMND_MSG request;
    CDynBuffer data;
    if (!ReceiveMessage(request, data))
        return 0;
    if (request.wCommandField != kEventReportRq) {
        SetError(kErrorUnexpectedCommand, 0,
                 FormatText("the caller sent command 0x%04X (%s) instead of N-EVENT-REPORT-RQ", request.wCommandField,
                            GetClearMessage(request.wCommandField).c_str()));
        return 0;
    }
    CDynBuffer keep;
    CDicomItem report(u"Data");
    if (request.wDataSetType == 0x0101 || !LoadDataSet(data.GetData(), data.m_nSize, keep, report)) {
        SetError(kErrorMalformedDataSet, 0, "the N-EVENT-REPORT carries no readable event information");
        return 0;
    }
    // Answer first: the peer waits for the response whatever the report says.
    if (!SendEventReportRspCmnd(request.szAffectedSOPClassUID, request.szAffectedSOPInstanceUID, request.wMessageID,
                                0x0101, request.wEventTypeID))
        return 0;
    result.eventType = request.wEventTypeID;
    result.reportedTransactionUid = UidOf(&report, 0x0008, 0x1195);
    for (const CDicomItem* item : ItemsOf(report, 0x0008, 0x1199))
        result.committed.push_back({UidOf(item, 0x0008, 0x1150), UidOf(item, 0x0008, 0x1155), 0});
    for (const CDicomItem* item : ItemsOf(report, 0x0008, 0x1198)) {
        const CDicomItem* reason = item->GetTagItem(0x0008, 0x1197);
        uint16_t code = reason && reason->GetData() && reason->GetDataSize() >= 2 ? ByteCursor::loadUint16LE(reason->GetData()) : 0;
        result.failed.push_back({UidOf(item, 0x0008, 0x1150), UidOf(item, 0x0008, 0x1155), code});
    }
    return 1;
}

int CUserSocket::Do_StorageCommitment(const HOST_INFO& host, const std::vector<COMMIT_RESULT::Instance>& instances,
                                      unsigned listenPort, COMMIT_RESULT& result)
{
    result = COMMIT_RESULT{};
    BeginExchange();
    // Listen before asking, so that a quick report finds the port open.
    CUserSocket listener;
    if (!listener.Listen(listenPort)) {
        SetError(0, GetLastError());
        MarkFailedStep(ExchangeStep::kListen, FormatText("on port %u", listenPort));
        return ErrorCode();
    }
    AddPresentationContext(kCommitmentSopClass, 2, "1.2.840.10008.1.2.1", "1.2.840.10008.1.2");
    if (!OpenExchange(host, kCommitmentSopClass, "N-ACTION"))
        return ErrorCode();
    result.transactionUid = WideToAscii(CDicomItem::GetUID());
    CDynBuffer request;
    if (!EncodeCommitmentRequest(result.transactionUid, instances, request) ||
        !SendActionReqCmnd(kCommitmentSopClass, kCommitmentSopInstance, 0x0000, kRequestCommitment) ||
        !SendData(request.GetData(), static_cast<int>(request.m_nSize)))
        return FailExchange(ExchangeStep::kRequest, "N-ACTION");
    DICOM_CMND_MSG response;
    CDynBuffer data;
    if (!AwaitResponse(kActionRq, response, data))
        return FailExchange(ExchangeStep::kResponse, "N-ACTION");
    result.actionStatus = response.wStatus;
    if (response.wStatus != 0x0000) {
        SetError(kErrorFailureStatus, 0,
                 FormatText("the N-ACTION response carries status 0x%04X (%s)", response.wStatus,
                            GetNStatusText(response.wStatus).c_str()));
        return FailExchange(ExchangeStep::kResponse, "N-ACTION");
    }
    return AwaitCommitmentReport(listener, listenPort, result);
}

int CUserSocket::AwaitCommitmentReport(CUserSocket& listener, unsigned listenPort, COMMIT_RESULT& result)
{
    // PS3.4 J.3.3: the report comes on this association or on one that the
    // peer opens to the listener, whichever it chooses; the whole wait is
    // bounded by the time-out.
    const uint64_t deadline = GetTickCountMs() + static_cast<uint64_t>(m_nTimeout > 0 ? m_nTimeout : 0);
    bool open = true;
    for (;;) {
        int left = m_nTimeout > 0 ? static_cast<int>(deadline > GetTickCountMs() ? deadline - GetTickCountMs() : 0) : -1;
        const CZelSocket* sockets[2] = {&listener, this};
        // A PDU already in the buffer (the report behind the N-ACTION
        // response in one P-DATA-TF) needs no waiting.
        int ready = open && !IsPduEmpty() ? 1 : CZelSocket::WaitReadable(sockets, open ? 2 : 1, left);
        if (ready < 0) {
            SetError(kErrorReceive, 0,
                     FormatText("the peer never reported: no N-EVENT-REPORT within %g s, on the association or on port %u",
                                m_nTimeout / 1000.0, listenPort));
            return FailExchange(ExchangeStep::kReport);
        }
        if (ready == 1) {
            if (ReceiveCommitmentReport(result))
                return FinishExchange();
            if (m_nLocalError != kErrorReleaseRequested && m_nLocalError != kErrorAbort &&
                !(m_nLocalError == kErrorReceive && m_nSystemError != 0))
                return FailExchange(ExchangeStep::kReport);
            // The peer ends this association (release, abort or close): the
            // report can still come on a new one.
            if (m_nLocalError == kErrorReleaseRequested)
                SendReleaseRsp();
            SetError(0);
            m_bAssociated = false;
            Close();
            open = false;
            continue;
        }
        if (open)
            FinishExchange();
        listener.SetTimeout(m_nTimeout);
        return AcceptCommitmentReport(listener, listenPort, result);
    }
}

int CUserSocket::AcceptCommitmentReport(CUserSocket& listener, unsigned listenPort, COMMIT_RESULT& result)
{
    CUserSocket reporter;
    reporter.m_sTraceName = m_sTraceName;
    reporter.SetTimeout(m_nTimeout);
    if (!listener.Accept(reporter, nullptr, nullptr)) {
        SetError(kErrorReceive, GetLastError(), FormatText("no N-EVENT-REPORT association came to port %u", listenPort));
        MarkFailedStep(ExchangeStep::kReport);
        return ErrorCode();
    }
    bool reported = reporter.AcceptAssociation({kCommitmentSopClass, "1.2.840.10008.1.1"}) &&
                    reporter.ReceiveCommitmentReport(result);
    if (reported) {
        // The caller ends its association; an abort or a close ends it too.
        const unsigned char* pdv = nullptr;
        if (reporter.GetPdv(pdv) < 0 && reporter.GetLocalError() == kErrorReleaseRequested)
            reporter.SendReleaseRsp();
        reporter.SetError(0);
    } else {
        SetError(reporter.GetLocalError(), reporter.GetSystemError(), reporter.GetErrorDetail());
        MarkFailedStep(ExchangeStep::kReport);
    }
    reporter.Close();
    listener.CZelSocket::Close();
    return reported ? 0 : ErrorCode();
}
