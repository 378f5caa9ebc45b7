// One association of the storage server, from the A-ASSOCIATE-RQ to its
// end: the contexts it accepts, C-ECHO and C-STORE answered, A-RELEASE,
// A-ABORT and the time-outs (see storageserver.h).
#include <cstring>
#include <string_view>

#include "dicomdata/dictionary.h"
#include "network/storageserver.h"
#include "network/usersocket.h"
#include "dicomdata/datawriter.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

constexpr char kVerification[] = "1.2.840.10008.1.1";
constexpr uint16_t kStoreRq = 0x0001;
constexpr uint16_t kEchoRq = 0x0030;
constexpr uint16_t kCancelRq = 0x0FFF;
constexpr uint16_t kNoDataSet = 0x0101;
constexpr uint16_t kUnrecognizedOperation = 0x0211;  // PS3.7 C.5.6

// The transfer syntaxes accepted by default, preferred first: the
// uncompressed ones (a received object is kept as it came, so the caller's
// own encoding costs nothing), then the compressed ones as proposed.
constexpr const char* kTransferSyntaxes[] = {
    "1.2.840.10008.1.2.1",     // explicit VR little endian
    "1.2.840.10008.1.2",       // implicit VR little endian
    "1.2.840.10008.1.2.1.99",  // deflated explicit VR little endian
    "1.2.840.10008.1.2.2",     // explicit VR big endian
    "1.2.840.10008.1.2.4.50",  "1.2.840.10008.1.2.4.51",  "1.2.840.10008.1.2.4.57",  "1.2.840.10008.1.2.4.70",
    "1.2.840.10008.1.2.4.80",  "1.2.840.10008.1.2.4.81",  "1.2.840.10008.1.2.4.90",  "1.2.840.10008.1.2.4.91",
    "1.2.840.10008.1.2.4.92",  "1.2.840.10008.1.2.4.93",  "1.2.840.10008.1.2.4.201", "1.2.840.10008.1.2.4.202",
    "1.2.840.10008.1.2.4.203", "1.2.840.10008.1.2.4.100", "1.2.840.10008.1.2.4.101", "1.2.840.10008.1.2.4.102",
    "1.2.840.10008.1.2.4.103", "1.2.840.10008.1.2.4.104", "1.2.840.10008.1.2.4.105", "1.2.840.10008.1.2.4.106",
    "1.2.840.10008.1.2.4.107", "1.2.840.10008.1.2.4.108", "1.2.840.10008.1.2.5",     "1.2.840.10008.1.2.1.98",
};

// Takes a data set nobody needs (the one a C-ECHO-RQ should not carry).
class Discard : public CDicomDataWriterCmd {
public:
    bool WriteData(const void*, int) override { return true; }
};

std::string Trimmed(const char* text)
{
    std::string value(text);
    while (!value.empty() && value.back() == ' ')
        value.pop_back();
    return value;
}

// How an association that did not end with A-RELEASE ended, in words.
std::string EndingWords(const CUserSocket& socket)
{
    switch (socket.GetLocalError()) {
    case kErrorAbort: return "aborted by the peer";
    case kErrorInterrupted: return "aborted: the server stops";
    case kErrorReceive:
        return socket.GetSystemError() != 0 ? "the peer closed the connection" : "aborted: " + socket.GetErrorDetail();
    default: return "aborted: " + socket.GetErrorDetail();
    }
}

}  // namespace

bool CStorageServer::IsAcceptedAbstractSyntax(const std::string& uid)
{
    if (uid == kVerification)
        return true;
    const UidEntry* entry = FindUid(uid);
    if (!entry || std::string_view(entry->type()) != "SOP Class")
        return false;
    // Storage SOP classes are named "... Storage" (PS3.6 A): not the storage
    // commitment or management classes, nor the media-only directory class.
    const std::string_view keyword = entry->keyword();
    return keyword.find("Storage") != std::string_view::npos && keyword.rfind("Storage", 0) != 0 &&
           keyword != "MediaStorageDirectoryStorage";
}

const std::vector<std::string>& CStorageServer::DefaultTransferSyntaxes()
{
    static const std::vector<std::string> syntaxes(std::begin(kTransferSyntaxes), std::end(kTransferSyntaxes));
    return syntaxes;
}

void CStorageServer::Reject(CUserSocket& socket)
{
    socket.m_sTraceName = m_settings.traceName;
    socket.SetTimeout(m_settings.timeoutMs);
    ACCEPT_POLICY policy;
    policy.reject = {2, 3, 2};  // PS3.8 9.3.4: transient, service provider (presentation), local limit exceeded
    socket.AcceptAssociation(policy);
    STORAGE_EVENT event;
    event.kind = STORAGE_EVENT::kRejected;
    event.association = ++m_serial;
    event.peerTitle = Trimmed(socket.m_AssociateData.m_szCallingAETitle);
    event.words = socket.m_Rejection.result != 0 ? "rejected: local limit exceeded" : socket.GetErrorText();
    Emit(event);
    socket.Close();
}

void CStorageServer::Serve(CUserSocket& socket, const std::string& peerAddress)
{
    STORAGE_EVENT event;
    event.association = ++m_serial;
    event.peerAddress = peerAddress;
    socket.m_sTraceName = m_settings.traceName;
    // One time-out for each wait: the association request after the
    // connection (ARTIM) and each message after the last bytes (DIMSE).
    socket.SetTimeout(m_settings.timeoutMs);
    socket.SetInterruptCheck([this] { return m_aborting.load(); });

    ACCEPT_POLICY policy;
    policy.accepts = IsAcceptedAbstractSyntax;
    policy.transferSyntaxes = m_settings.transferSyntaxes;
    policy.maxPduLength = m_settings.maxPduLength;
    policy.calledTitle = m_settings.aeTitle;
    if (!socket.AcceptAssociation(policy)) {
        event.kind = STORAGE_EVENT::kRejected;
        event.peerTitle = Trimmed(socket.m_AssociateData.m_szCallingAETitle);
        event.words = socket.GetErrorDetail().empty() ? socket.GetErrorText() : socket.GetErrorDetail();
        Emit(event);
        socket.AbortAndClose();
        return;
    }
    event.kind = STORAGE_EVENT::kAssociated;
    event.peerTitle = Trimmed(socket.m_AssociateData.m_szCallingAETitle);
    event.calledTitle = Trimmed(socket.m_AssociateData.m_szCalledAETitle);
    Emit(event);

    CStoreResponder responder(m_settings.folder, m_settings.durable);
    responder.SetNamer(m_settings.namer);
    for (;;) {
        DICOM_CMND_MSG request;
        if (!socket.ReceiveCommand(request)) {
            if (socket.GetLocalError() == kErrorReleaseRequested) {
                socket.SendReleaseRsp();
                event.words = "released";
            } else {
                event.words = EndingWords(socket);
            }
            break;
        }
        const CPresentationContext* context = socket.m_AssociateData.GetPresContextByID(request.ucPresContextID);
        if (!context || context->m_ucResult != 0) {
            // PS3.8 9.3.5: a PDV on a context that was not accepted is an
            // invalid PDU parameter: the association is aborted.
            socket.SetErrorText(kErrorMalformedPdu, FormatText("a message on presentation context %d, which was not accepted",
                                                               request.ucPresContextID));
            event.words = "aborted: " + socket.GetErrorDetail();
            break;
        }
        if (request.wCommandField == kStoreRq) {
            STORAGE_EVENT stored = event;
            stored.kind = STORAGE_EVENT::kStored;
            if (!responder.Answer(socket, request, stored.stored)) {
                event.words = EndingWords(socket);
                ++event.failedCount;
                break;
            }
            event.bytes += stored.stored.bytes;
            ++(stored.stored.status == 0 ? event.storedCount : event.failedCount);
            Emit(stored);
            continue;
        }
        // Anything else: its data set (if one comes) is read and dropped.
        Discard sink;
        if (request.wDataSetType != kNoDataSet && !socket.ReceiveDataSet(request, sink)) {
            event.words = EndingWords(socket);
            break;
        }
        if (request.wCommandField == kCancelRq)
            continue;  // nothing of this server's can be cancelled
        const uint16_t status = request.wCommandField == kEchoRq ? 0x0000 : kUnrecognizedOperation;
        if (!socket.SendCommand({{0x0002, CommandElement::kUid, context->m_sAbstractSyntax},
                                 {0x0100, CommandElement::kUs, "", static_cast<uint16_t>(request.wCommandField | 0x8000)},
                                 {0x0120, CommandElement::kUs, "", request.wMessageID},
                                 {0x0800, CommandElement::kUs, "", kNoDataSet},
                                 {0x0900, CommandElement::kUs, "", status}})) {
            event.words = EndingWords(socket);
            break;
        }
        if (request.wCommandField == kEchoRq) {
            STORAGE_EVENT echo = event;
            echo.kind = STORAGE_EVENT::kEcho;
            Emit(echo);
        }
    }
    event.kind = STORAGE_EVENT::kEnded;
    if (event.words == "released")
        socket.Close();
    else
        socket.AbortAndClose();
    Emit(event);
}
