// Sending: whole blocks, P-DATA-TF PDUs, and data sets split to the peer's
// maximum PDU length.
#include <cstring>

#include "network/dicomsocket.h"
#include "platform/dynbuffer.h"
#include "trace/pdu.h"

bool CDicomSocket::Create(unsigned port, int type, const std::u16string& address)
{
    bool created = CZelSocket::Create(port, type, address);
    if (created) {
        int32_t timeout = m_nTimeout;
        SetSockOpt(kReceiveTimeoutOption, &timeout, 4, kSocketLevel);
    }
    return created;
}

int CDicomSocket::Send(const void* buffer, int length, int)
{
    const auto* bytes = static_cast<const unsigned char*>(buffer);
    DicomTraceSend(m_sTraceName, bytes, length, 1);
    DicomTraceSend(m_sTraceName, bytes, length, 0);
    if (length < 1)
        return 0;
    int sent = 0;
    while (sent < length) {
        int count = CZelSocket::Send(bytes + sent, length - sent, 0);
        if (count < 0)
            return -1;
        sent += count;
    }
    return sent;
}

int CDicomSocket::SendDataPdu(const void* data, int length, int last, int command)
{
    if (length < 0)
        return 0;
    if (Trace())
        DicomTraceAnalyzeBlock(m_sTraceName, static_cast<const unsigned char*>(data), static_cast<uint32_t>(length), 0);
    // Header, PDV item header and fragment in one block, so that the PDU
    // leaves in one write.
    uint32_t pduLength = static_cast<uint32_t>(length) + 6;
    unsigned char head[12] = {zeldicom::pdu::kDataTf, 0};
    for (int i = 0; i < 4; ++i) {
        head[2 + i] = static_cast<unsigned char>(pduLength >> (24 - 8 * i));
        head[6 + i] = static_cast<unsigned char>((pduLength - 4) >> (24 - 8 * i));
    }
    head[10] = m_ucPresContextID;
    head[11] = static_cast<unsigned char>((command ? zeldicom::pdu::kCommandBit : 0) |
                                          (last ? zeldicom::pdu::kLastFragmentBit : 0));
    CDynBuffer block;
    if (!block.Reserve(pduLength + 6) || !block.Add(head, 12) ||
        (length > 0 && !block.Add(data, static_cast<uint32_t>(length)))) {
        SetError(kErrorNoMemory);
        return 0;
    }
    if (Send(block.GetData(), static_cast<int>(block.m_nSize)) == -1) {
        m_nSystemError = GetLastError();
        return 0;
    }
    return 1;
}

int CDicomSocket::SendData(const void* data, int length)
{
    const auto* bytes = static_cast<const unsigned char*>(data);
    uint32_t remaining = length > 0 ? static_cast<uint32_t>(length) : 0;
    int result;
    do {
        uint32_t fragment = remaining < m_nMaxSendFragment ? remaining : m_nMaxSendFragment;
        bool last = fragment == remaining;
        result = SendDataPdu(bytes, static_cast<int>(fragment), last ? 1 : 0, 0);
        if (result != 1)
            break;
        UpdateCommInfo(fragment);
        bytes += fragment;
        remaining -= fragment;
        if (last)
            break;
    } while (true);
    return result;
}

void CDicomSocket::UpdateCommInfo(unsigned long) {}
