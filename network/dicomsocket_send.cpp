// Sending: whole blocks, P-DATA-TF PDUs, and data sets split to the peer's
// maximum PDU length.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "network/dicomsocket.h"
#include "platform/dynbuffer.h"
#include "pdu/pdu.h"

using namespace zeldicom;

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
    unsigned char head[pdu::kDataTfHeadSize];
    if (!pdu::WriteDataTfHead(head, static_cast<uint32_t>(length), m_ucPresContextID, pdu::Control(command != 0, last != 0))) {
        SetError(kErrorMalformedPdu, 0, "a fragment too long for one P-DATA-TF");
        return 0;
    }
    CDynBuffer block;
    if (!block.Reserve(static_cast<uint32_t>(length) + 12) || !block.Add(head, 12) ||
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
    if (length <= 0)
        return SendDataPdu("", 0, 1, 0);
    return SendDataPdus(static_cast<const unsigned char*>(data), length, true);
}

int CDicomSocket::SendDataPdus(const unsigned char* data, int64_t length, bool endsMessage)
{
    const int64_t fragmentSize = m_nMaxSendFragment > 0 ? m_nMaxSendFragment : 1;
    const bool traced = Trace();
    unsigned char head[pdu::kDataTfHeadSize];
    for (int64_t position = 0; position < length;) {
        const int64_t fragment = std::min(length - position, fragmentSize);
        const bool last = endsMessage && position + fragment == length;
        if (traced) {
            // The trace analyses and logs every PDU from one block.
            if (SendDataPdu(data + position, static_cast<int>(fragment), last ? 1 : 0, 0) != 1)
                return 0;
        } else {
            // One PDU a call, header and fragment gathered from where they
            // lie. Against storescp on loopback, batches of 4 to 64 PDUs a
            // call were no faster and often slower (the peer then copies
            // data that has left the cache).
            if (!pdu::WriteDataTfHead(head, static_cast<uint64_t>(fragment), m_ucPresContextID, pdu::Control(false, last))) {
                SetError(kErrorMalformedPdu, 0, "a fragment too long for one P-DATA-TF");
                return 0;
            }
            iovec parts[2] = {{head, sizeof head},
                              {const_cast<unsigned char*>(data + position), static_cast<size_t>(fragment)}};
            if (SendAll(parts, 2) < 0) {
                m_nSystemError = GetLastError();
                return 0;
            }
        }
        UpdateCommInfo(static_cast<unsigned long>(fragment));
        position += fragment;
    }
    return 1;
}

int CDicomSocket::SendDataPdusFromFile(int fd, int64_t offset, int64_t length, bool endsMessage)
{
    const int64_t fragmentSize = m_nMaxSendFragment > 0 ? m_nMaxSendFragment : 1;
    const bool traced = Trace();
    std::vector<unsigned char> copy;
    unsigned char head[pdu::kDataTfHeadSize];
    // SIGPIPE blocked once for the whole run, not around each PDU.
    FileRun run(*this);
    for (int64_t position = 0; position < length;) {
        const int64_t fragment = std::min(length - position, fragmentSize);
        const bool last = endsMessage && position + fragment == length;
        if (traced) {
            // The trace analyses the bytes of every PDU.
            copy.resize(static_cast<size_t>(fragment));
            if (pread(fd, copy.data(), copy.size(), offset + position) != fragment) {
                SetError(kErrorFileMap, 0, "the file ended before its data set did");
                return 0;
            }
            if (SendDataPdu(copy.data(), static_cast<int>(fragment), last ? 1 : 0, 0) != 1)
                return 0;
        } else {
            if (!pdu::WriteDataTfHead(head, static_cast<uint64_t>(fragment), m_ucPresContextID, pdu::Control(false, last))) {
                SetError(kErrorMalformedPdu, 0, "a fragment too long for one P-DATA-TF");
                return 0;
            }
            if (SendFileRange(head, sizeof head, fd, offset + position, fragment) < 0) {
                m_nSystemError = GetLastError();
                return 0;
            }
        }
        UpdateCommInfo(static_cast<unsigned long>(fragment));
        position += fragment;
    }
    return 1;
}

void CDicomSocket::UpdateCommInfo(unsigned long) {}
