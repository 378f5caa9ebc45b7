// DIMSE-N requests (PS3.7 10.1), the N-EVENT-REPORT response, and the
// senders of prebuilt data: a loaded tree's group as it lies in its source,
// a whole PDU body, and a tree encoded as one PDV.
#include <cstring>

#include "dicomdata/dicomitem.h"
#include "imageinfo/dicominfo.h"
#include "network/usersocket.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "pdu/pdu.h"
#include "trace/dimse_status.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

int CUserSocket::SendCreateReqCmnd(const std::string& sopClass, const std::string& sopInstance)
{
    return SendCommand({{0x0002, CommandElement::kUid, sopClass},
                        {0x0100, CommandElement::kUs, "", 0x0140},
                        {0x0110, CommandElement::kNextMessageId},
                        {0x0800, CommandElement::kUs, "", 0x0001},
                        {0x1000, CommandElement::kUid, sopInstance}});
}

int CUserSocket::SendSetReqCmnd(const std::string& sopClass, const std::string& sopInstance)
{
    return SendCommand({{0x0003, CommandElement::kUid, sopClass},
                        {0x0100, CommandElement::kUs, "", 0x0120},
                        {0x0110, CommandElement::kNextMessageId},
                        {0x0800, CommandElement::kUs, "", 0x0000},
                        {0x1001, CommandElement::kUid, sopInstance}});
}

int CUserSocket::SendGetReq(const std::string& sopClass, const std::string& sopInstance, int count,
                            const uint32_t* tags)
{
    // Each tag's little-endian bytes are group then element: the AT value as it travels.
    std::string list;
    for (int i = 0; tags && i < count; ++i)
        for (int b = 0; b < 4; ++b)
            list.push_back(static_cast<char>(tags[i] >> (8 * b)));
    return SendCommand({{0x0003, CommandElement::kUid, sopClass},
                        {0x0100, CommandElement::kUs, "", 0x0110},
                        {0x0110, CommandElement::kNextMessageId},
                        {0x0800, CommandElement::kUs, "", 0x0101},
                        {0x1001, CommandElement::kUid, sopInstance},
                        {0x1005, CommandElement::kAt, list}});
}

int CUserSocket::SendActionReqCmnd(const std::string& sopClass, const std::string& sopInstance,
                                   uint16_t dataSetType, uint16_t actionTypeId)
{
    return SendCommand({{0x0003, CommandElement::kUid, sopClass},
                        {0x0100, CommandElement::kUs, "", 0x0130},
                        {0x0110, CommandElement::kNextMessageId},
                        {0x0800, CommandElement::kUs, "", dataSetType},
                        {0x1001, CommandElement::kUid, sopInstance},
                        {0x1008, CommandElement::kUs, "", actionTypeId}});
}

int CUserSocket::SendDeleteReq(const std::string& sopClass, const std::string& sopInstance)
{
    return SendCommand({{0x0003, CommandElement::kUid, sopClass},
                        {0x0100, CommandElement::kUs, "", 0x0150},
                        {0x0110, CommandElement::kNextMessageId},
                        {0x0800, CommandElement::kUs, "", 0x0101},
                        {0x1001, CommandElement::kUid, sopInstance}});
}

int CUserSocket::SendEventReportRspCmnd(const std::string& sopClass, const std::string& sopInstance,
                                        uint16_t messageId, uint16_t dataSetType, uint16_t eventTypeId)
{
    // Status (0000,0900) Success is included: PS3.7 10.3.1 makes it
    // mandatory in every response, and peers check it.
    return SendCommand({{0x0002, CommandElement::kUid, sopClass},
                        {0x0100, CommandElement::kUs, "", 0x8100},
                        {0x0120, CommandElement::kUs, "", messageId},
                        {0x0800, CommandElement::kUs, "", dataSetType},
                        {0x0900, CommandElement::kUs, "", 0x0000},
                        {0x1000, CommandElement::kUid, sopInstance},
                        {0x1002, CommandElement::kUs, "", eventTypeId}});
}

bool CUserSocket::SendGroup(CDicomItem* item, int group)
{
    if (!item)
        return false;
    const CDicomItem* length = item->GetTagItem(group, 0x0000);
    if (!length || !length->GetData() || length->GetDataSize() != 4)
        return false;
    // The 8-byte header in front of the group length's value, the value,
    // then the group's elements: the bytes as the tree was loaded from them.
    const unsigned char* start = length->GetData() - 8;
    uint32_t groupLength = ByteCursor::loadUint32LE(length->GetData());
    if (groupLength > 0x7FFFFFFF - 12)
        return false;
    return SendData(start, static_cast<int>(12 + groupLength)) == 1;
}

int CUserSocket::SendPdu(CDynBuffer& body)
{
    unsigned char header[pdu::kHeaderSize];
    pdu::WriteHeader(pdu::kDataTf, body.m_nSize, header);
    if (!body.Insert(header, 6, 0)) {
        SetError(kErrorNoMemory);
        return 0;
    }
    return Send(body.GetData(), static_cast<int>(body.m_nSize)) == -1 ? 0 : 1;
}

bool CUserSocket::SendStorageCommitmentEventReportMsg(CDicomItem* item, bool lastFragment, bool command)
{
    if (!item)
        return false;
    // In the transfer syntax negotiated for the outgoing context: a peer in an
    // explicit VR context reads nothing else (PS3.5 10.1).
    CDynBuffer bytes;
    const bool explicitVR = IsExplicitVR();
    if (item->RecalcTags(explicitVR, 0) == 0xFFFFFFFF ||
        item->SaveTags(explicitVR, CDynBuffer::WriteProc, &bytes) == 0xFFFFFFFF)
        return false;
    return SendDataPdu(bytes.GetData(), static_cast<int>(bytes.m_nSize), lastFragment ? 1 : 0, command ? 1 : 0) == 1;
}

std::string CUserSocket::GetNStatusText(uint16_t status)
{
    if (const DimseStatus* row = FindDimseStatus(0, status))
        return row->words;
    return FormatText("status 0x%04X (%s)", status, GetClearStatus(status).c_str());
}
