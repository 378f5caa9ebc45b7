#pragma once
// The DICOM upper layer transport over one TCP connection: whole PDUs in,
// PDVs handed out one by one, DIMSE messages reassembled (command set, then
// data set), outgoing data split into P-DATA-TF PDUs no larger than the
// peer accepts, the association's presentation contexts, the last error,
// and a trace line for every block that passes.
//
// Files: dicomsocket_receive.cpp (PDUs, PDVs, messages in),
// dicomsocket_send.cpp (blocks, P-DATA-TF out, fragmenting),
// dicomsocket_command.cpp (command set decoding, presentation contexts).
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "dicomdata/tagheader.h"
#include "network/associatedata.h"
#include "platform/zelsocket.h"
#include "trace/dicomtrace.h"

class CDicomDataWriterCmd;
class CDynBuffer;

// The decoded command set of one received DIMSE message (PS3.7 E.1).
struct DICOM_CMND_MSG {
    unsigned char ucPresContextID;
    char szRequestedSOPClassUID[65];
    char szAffectedSOPClassUID[65];
    uint16_t wCommandField;
    uint16_t wMessageID;
    uint16_t wMessageIDBeingRespondedTo;
    char szMoveDestination[17];
    uint16_t wPriority;
    uint16_t wDataSetType;
    uint16_t wStatus;
    char szAffectedSOPInstanceUID[67];
    char szRequestedSOPInstanceUID[65];
    uint16_t wEventTypeID;
    uint16_t wRemainingSubOperations;
    uint16_t wCompletedSubOperations;
    uint16_t wFailedSubOperations;
    uint16_t wWarningSubOperations;
    char szExtraText[256];
};

// The library's local error codes (the socket's local error field).
enum DicomSocketError : uint32_t {
    kErrorReceive = 701,                // a receive failed or timed out
    kErrorAbort = 702,                  // an A-ABORT arrived
    kErrorRejected = 703,               // association rejected, reason not below
    kErrorNoReleaseAnswer = 710,        // another PDU than A-RELEASE-RP answered A-RELEASE-RQ
    kErrorEchoMessageId = 714,          // a C-ECHO response answers another message
    kErrorFailureStatus = 715,          // a response carries a failure status
    kErrorEchoOutOfResources = 716,     // a C-ECHO response carries 0xA700
    kErrorFileOpen = 717,
    kErrorFileMap = 718,
    kErrorNoMemory = 719,
    kErrorNotAssociateAnswer = 720,     // neither A-ASSOCIATE-AC nor -RJ answered the request
    kErrorMalformedPdu = 721,           // an item, sub-item or PDV runs past its PDU
    kErrorPduTooLarge = 722,            // the peer announced a PDU larger than this side accepts
    kErrorNoContext = 723,              // the peer accepted no presentation context for the service
    kErrorMalformedDataSet = 724,       // a received data set (identifier, event information) is malformed
    kErrorBadArgument = 725,            // a request the library cannot encode (unknown key tag, bad value)
    kErrorInterrupted = 726,            // the caller's interruption check asked to stop waiting
    kErrorUnexpectedPdu = 745,          // not a P-DATA-TF where PDVs were expected
    kErrorPdvKind = 746,                // data PDV in a command, or command PDV in data
    kErrorUnexpectedCommand = 747,      // a response to another command than the one sent
    kErrorPrinterFailure = 748,
    kErrorReleaseRequested = 752,       // an A-RELEASE-RQ arrived where PDVs were expected
    kErrorRejectedCongestion = 2002,    // rejection reasons (PS3.8 9.3.4)
    kErrorRejectedNoReason = 2003,
    kErrorRejectedLocalLimit = 2004,
    kErrorRejectedProtocolVersion = 2005,
    kErrorRejectedApplicationContext = 2006,
    kErrorRejectedCallingTitle = 2007,
    kErrorRejectedCalledTitle = 2008,
};

class CDicomSocket : public CZelSocket, public CDicomTraceSettings {
public:
    static constexpr int kInitialBufferSize = 32768;
    // The largest PDU this side reads (header included): the receive buffer
    // never grows beyond it, whatever length a peer announces.
    static constexpr uint32_t kDefaultLargestPdu = 4u << 20;

    CDicomSocket();
    ~CDicomSocket() override = default;

    bool Create(unsigned port = 0, int type = 1, const std::u16string& address = u"") override;
    // Whole-block transfers: all bytes or -1.
    int Send(const void* buffer, int length, int flags = 0) override;
    int Receive(void* buffer, int length, int flags = 0) override;

    // One DIMSE message: the command set decoded into message, the data set
    // (when the command announces one) handed to writer / appended to data.
    int ReceiveMessage(DICOM_CMND_MSG& message, const CDicomDataWriterCmd& writer);
    int ReceiveMessage(DICOM_CMND_MSG& message, CDynBuffer& data);
    // The two halves of ReceiveMessage, for a receiver that decides from the
    // command where its data set goes (a C-STORE-RQ's into a file): the
    // command set alone, then the data set it announces (none: 1 at once).
    int ReceiveCommand(DICOM_CMND_MSG& message);
    int ReceiveDataSet(const DICOM_CMND_MSG& message, const CDicomDataWriterCmd& writer);

    // One P-DATA-TF with one PDV of length bytes; last and command set the
    // message control header's bits.
    int SendDataPdu(const void* data, int length, int last, int command);
    // A data set split into PDVs of at most the maximum send fragment.
    int SendData(const void* data, int length);
    // Length bytes as consecutive P-DATA-TF PDUs of one data PDV each, of at
    // most the maximum send fragment, sent from where they lie (never copied);
    // the last PDV ends the message when endsMessage.
    int SendDataPdus(const unsigned char* data, int64_t length, bool endsMessage);
    // The same for length bytes of the open file fd from offset, handed to
    // the connection from the page cache (never mapped or read here unless
    // the trace needs the bytes).
    int SendDataPdusFromFile(int fd, int64_t offset, int64_t length, bool endsMessage);

    // Makes id the outgoing context and takes the encoding of its accepted
    // transfer syntax; returns the previous id.
    int SetPresentationContext(unsigned char id);
    std::u16string GetCalledAETitle() const;
    std::u16string GetCallingAETitle() const;

    // Walks an implicit VR little endian command group: 1 when its elements
    // were handed to the callback, 0 when the group is not as announced.
    static int ReadDicomGroup(uint16_t group, const unsigned char* buffer, int size,
                              void (*callback)(TAG_HEADER*, void*), void* parameter);
    // Stores one command element into the message.
    static void CommandMessageProc(TAG_HEADER* element, DICOM_CMND_MSG* message);
    // Decodes a whole command set into message (cleared first).
    static void DecodeCommandSet(const unsigned char* bytes, int size, DICOM_CMND_MSG& message);

    void SetTimeout(int milliseconds) { m_nTimeout = milliseconds; }
    // Asked about every 100 ms while a receive waits: true ends the wait
    // with local error 726 (a user's Ctrl-C, for one). Empty: never asked.
    void SetInterruptCheck(std::function<bool()> check) { m_fnInterrupted = std::move(check); }
    int GetTimeout() const { return m_nTimeout; }
    // The most data bytes one PDV carries to this peer.
    uint32_t GetMaxSendFragment() const { return m_nMaxSendFragment; }
    void SetLargestPdu(uint32_t bytes) { m_nLargestPdu = bytes; }
    uint32_t GetLocalError() const { return m_nLocalError; }
    uint32_t GetSystemError() const { return m_nSystemError; }
    // Words for the last failure that the codes alone do not tell (which
    // item was malformed, what length was announced); empty otherwise.
    const std::string& GetErrorDetail() const { return m_sErrorDetail; }
    // The type of the PDU last read (0 before any).
    uint8_t GetLastPduType() const { return m_ucLastPduType; }

    std::string m_sTraceName = "GenericDicomSocket";
    CAssociateData m_AssociateData;

protected:
    int ReceivePdu();
    // The next PDV's length (fragment + 2) and, in pdv, its context ID byte; -1 on failure.
    int GetPdv(const unsigned char*& pdv);
    // Empty also after SetPduEmpty (position 0): no PDU is being read.
    int IsPduEmpty() const { return m_nReadPosition == 0 || m_nReadPosition >= 6 + m_nPduLength ? 1 : 0; }
    void SetPduEmpty() { m_nPduLength = m_nReadPosition = 0; }
    virtual void UpdateCommInfo(unsigned long bytes);
    void SetError(uint32_t local, uint32_t system = 0, std::string detail = "");
    const unsigned char* PduBytes() const { return m_pReceiveBuffer.get(); }

    std::unique_ptr<unsigned char[]> m_pReceiveBuffer;
    int m_nReceiveBufferSize = kInitialBufferSize;
    int m_nPduLength = 0;
    int m_nReadPosition = 0;
    uint32_t m_nLocalError = 0;
    uint32_t m_nSystemError = 0;
    unsigned char m_ucPresContextID = 1;
    int m_bBigEndian = 0;
    int m_bExplicitVR = 0;
    uint32_t m_nMaxSendFragment = 32768;
    int m_nTimeout = 30000;
    std::function<bool()> m_fnInterrupted;
    bool m_bBetweenPdus = false;  // the interruption check only stops a wait before a PDU begins
    uint32_t m_nLargestPdu = kDefaultLargestPdu;
    uint8_t m_ucLastPduType = 0;
    std::string m_sErrorDetail;

private:
    int ReceivePdvs(DICOM_CMND_MSG& message, bool command, CDynBuffer* commandBytes,
                    const CDicomDataWriterCmd* writer);
};
