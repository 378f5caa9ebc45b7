// Receiving: whole blocks within the time-out, PDUs into the receive buffer,
// PDVs out of P-DATA-TF PDUs, and DIMSE messages reassembled from them.
#include <cstring>
#include <new>

#include "dicomdata/datawriter.h"
#include "network/dicomsocket.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "pdu/pdu.h"

using namespace zeldicom;

namespace {
// A command set is a few hundred bytes; one that keeps growing is a peer
// that never sets the last-fragment bit.
constexpr uint32_t kLargestCommandSet = 1u << 20;
}

CDicomSocket::CDicomSocket() : m_pReceiveBuffer(new unsigned char[kInitialBufferSize]) {}

void CDicomSocket::SetError(uint32_t local, uint32_t system, std::string detail)
{
    m_nLocalError = local;
    m_nSystemError = system;
    m_sErrorDetail = std::move(detail);
}

int CDicomSocket::Receive(void* buffer, int length, int)
{
    m_nLocalError = m_nSystemError = 0;
    if (length < 1)
        return 0;
    auto* bytes = static_cast<unsigned char*>(buffer);
    int received = 0;
    // The time-out counts from the last data received, so a slow but
    // steady peer is not cut off.
    uint64_t lastData = GetTickCountMs();
    while (received < length) {
        uint64_t waited = GetTickCountMs() - lastData;
        if (m_nTimeout > 0 && waited >= static_cast<uint64_t>(m_nTimeout)) {
            DicomTraceFormat("<%s> Receive Timeout Error", m_sTraceName.c_str());
            SetError(kErrorReceive, 0, FormatText("no data for %d ms", m_nTimeout));
            return -1;
        }
        int wait = m_nTimeout > 0 ? m_nTimeout - static_cast<int>(waited) : -1;
        if (m_fnInterrupted && m_bBetweenPdus && received == 0) {
            if (m_fnInterrupted()) {
                SetError(kErrorInterrupted, 0, "interrupted");
                return -1;
            }
            wait = wait < 0 || wait > 100 ? 100 : wait;
        }
        int count = ReceiveWithin(bytes + received, length - received, wait);
        if (count > 0) {
            received += count;
            lastData = GetTickCountMs();
            continue;
        }
        uint32_t error = GetLastError();
        if (count == 0 || error == kWouldBlock || error == kTimedOut)
            continue;  // the clock decides at the top of the loop
        DicomTraceFormat("<%s> Receive Error: %d", m_sTraceName.c_str(), static_cast<int>(error));
        SetError(kErrorReceive, error);
        return -1;
    }
    return received;
}

int CDicomSocket::ReceivePdu()
{
    m_bBetweenPdus = true;
    const int headerBytes = Receive(m_pReceiveBuffer.get(), 6);
    m_bBetweenPdus = false;
    if (headerBytes != 6)
        return 0;
    pdu::Header header;
    pdu::ReadHeader(m_pReceiveBuffer.get(), 6, header);
    m_ucLastPduType = header.type;
    // The announced length is checked before anything is allocated: a peer
    // that claims gigabytes gets a failure, not a buffer.
    if (header.length > m_nLargestPdu - pdu::kHeaderSize) {
        DicomTraceFormat("<%s> PDU Type 0x%02X announces %u bytes, more than the %u accepted", m_sTraceName.c_str(),
                         header.type, header.length, m_nLargestPdu - 6);
        SetError(kErrorPduTooLarge, 0,
                 FormatText("the peer announced a PDU (type 0x%02X) of %u bytes; at most %u are accepted",
                            header.type, header.length, m_nLargestPdu - 6));
        return 0;
    }
    int length = static_cast<int>(header.length);
    if (m_nReceiveBufferSize <= length + 6) {
        std::unique_ptr<unsigned char[]> grown(new (std::nothrow) unsigned char[static_cast<size_t>(length) + 7]);
        if (!grown) {
            SetError(kErrorNoMemory);
            return 0;
        }
        std::memcpy(grown.get(), m_pReceiveBuffer.get(), 6);
        m_pReceiveBuffer = std::move(grown);
        m_nReceiveBufferSize = length + 7;
    }
    if (length > 0 && Receive(m_pReceiveBuffer.get() + 6, length) != length)
        return 0;
    DicomTraceReceive(m_sTraceName, m_pReceiveBuffer.get(), length + 6, 1, 0);
    if (header.type == pdu::kAbort) {
        pdu::Abort abort;
        std::string detail = "the peer aborted the association (A-ABORT)";
        if (pdu::ReadAbort(m_pReceiveBuffer.get(), static_cast<size_t>(length) + 6, abort))
            detail = FormatText("the peer aborted the association (A-ABORT, source %d, reason %d)", abort.source,
                                abort.reason);
        SetError(kErrorAbort, 0, detail);
        return 0;
    }
    m_nPduLength = length;
    m_nReadPosition = 6;
    return 1;
}

int CDicomSocket::GetPdv(const unsigned char*& pdv)
{
    if (IsPduEmpty()) {
        if (!ReceivePdu())
            return -1;
        uint8_t type = m_pReceiveBuffer[0];
        if (type == pdu::kReleaseRq) {
            DicomTraceFormat("<%s> A_RELEASE_RQ PDU received", m_sTraceName.c_str());
            SetError(kErrorReleaseRequested, 0, "the peer asked to release the association (A-RELEASE-RQ)");
            SetPduEmpty();
            return -1;
        }
        if (type != pdu::kDataTf) {
            DicomTraceFormat("<%s> GetPdv() Error: PDU Type incorrect 0x%02X", m_sTraceName.c_str(), type);
            SetError(kErrorUnexpectedPdu, 0, FormatText("a PDU of type 0x%02X arrived where P-DATA-TF was expected", type));
            SetPduEmpty();
            return -1;
        }
    }
    pdu::PdvWalker walker(m_pReceiveBuffer.get() + m_nReadPosition,
                          static_cast<size_t>(6 + m_nPduLength - m_nReadPosition));
    pdu::Pdv item;
    if (!walker.Next(item)) {
        DicomTraceFormat("<%s> GetPdv() Error: PDV length runs past the PDU", m_sTraceName.c_str());
        SetError(kErrorMalformedPdu, 0, "a PDV item length runs past the end of its P-DATA-TF");
        SetPduEmpty();
        return -1;
    }
    pdv = item.fragment - 2;
    m_nReadPosition += static_cast<int>(walker.Position());
    return static_cast<int>(item.fragmentLength + 2);
}

int CDicomSocket::ReceivePdvs(DICOM_CMND_MSG& message, bool command, CDynBuffer* commandBytes,
                              const CDicomDataWriterCmd* writer)
{
    bool first = command;
    for (;;) {
        const unsigned char* pdv = nullptr;
        int length = GetPdv(pdv);
        if (length < 0)
            return 0;
        unsigned char id = pdv[0], control = pdv[1];
        if (first)
            message.ucPresContextID = id;
        else if (id != message.ucPresContextID)
            DicomTraceFormat("<%s> Warning: Pres.context ID %d is different from %d", m_sTraceName.c_str(), id,
                             message.ucPresContextID);
        first = false;
        bool commandPdv = (control & pdu::kCommandBit) != 0;
        if (command && !commandPdv) {
            DicomTraceFormat("<%s> Error: Data PDV in command", m_sTraceName.c_str());
            SetError(kErrorPdvKind, 0, "a data PDV arrived inside a command set");
            return 0;
        }
        if (!command && commandPdv) {
            DicomTraceFormat("<%s> Error: Command PDV in Data", m_sTraceName.c_str());
            SetError(kErrorPdvKind, 0, "a command PDV arrived inside a data set");
            return 0;
        }
        const unsigned char* fragment = pdv + 2;
        uint32_t fragmentLength = static_cast<uint32_t>(length - 2);
        if (command) {
            if (commandBytes->m_nSize + fragmentLength > kLargestCommandSet) {
                SetError(kErrorMalformedPdu, 0, "a command set runs on past 1 MiB without its last fragment");
                return 0;
            }
            if (!commandBytes->Add(fragment, fragmentLength)) {
                SetError(kErrorNoMemory);
                return 0;
            }
        } else if (writer && !const_cast<CDicomDataWriterCmd*>(writer)->WriteData(fragment, static_cast<int>(fragmentLength))) {
            SetError(kErrorNoMemory, 0, "the received data set could not be stored");
            return 0;
        }
        if (control & pdu::kLastFragmentBit)
            return 1;
    }
}

int CDicomSocket::ReceiveCommand(DICOM_CMND_MSG& message)
{
    DicomTraceFormat("<%s> ReceiveMessage()", m_sTraceName.c_str());
    std::memset(&message, 0, sizeof message);
    CDynBuffer command;
    if (!ReceivePdvs(message, true, &command, nullptr))
        return 0;
    unsigned char id = message.ucPresContextID;
    SetPresentationContext(id);
    DecodeCommandSet(command.GetData(), static_cast<int>(command.m_nSize), message);
    message.ucPresContextID = id;
    if (Trace())
        DicomTraceAnalyzeBlock(m_sTraceName, command.GetData(), command.m_nSize, 0);
    return 1;
}

int CDicomSocket::ReceiveDataSet(const DICOM_CMND_MSG& message, const CDicomDataWriterCmd& writer)
{
    if (message.wDataSetType == 0x0101)
        return 1;
    DICOM_CMND_MSG context = message;
    return ReceivePdvs(context, false, nullptr, &writer);
}

int CDicomSocket::ReceiveMessage(DICOM_CMND_MSG& message, const CDicomDataWriterCmd& writer)
{
    return ReceiveCommand(message) && ReceiveDataSet(message, writer) ? 1 : 0;
}

int CDicomSocket::ReceiveMessage(DICOM_CMND_MSG& message, CDynBuffer& data)
{
    data.m_nSize = 0;
    CDicomDataWriterForBufferCmd writer(&data);
    return ReceiveMessage(message, writer);
}
