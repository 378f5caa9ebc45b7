#pragma once
// The requesting side (SCU) of an association and its DIMSE messages.
//
// Files: usersocket_associate.cpp (connect, A-ASSOCIATE-RQ and its answer,
// release, close), usersocket_dimse.cpp (command sets out, responses in),
// usersocket_codec.cpp (data-set elements in the negotiated transfer
// syntax), usersocket_store.cpp, usersocket_query.cpp (C-FIND, C-MOVE),
// usersocket_nservice.cpp (DIMSE-N requests, event reports, storage
// commitment), usersocket_echo.cpp (the verification exchange and its
// failure words), usersocket_exchange.cpp (the exchange every service runs
// on: open, failed step, abort, release, cancel).
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "network/dicomsocket.h"
#include "network/queryrecords.h"

class CDicomItem;
class CDynBuffer;
struct STORED_INSTANCE;
namespace zeldicom::pdu {
struct AssociateFields;
}

// A callback of ReadTags: one element, its value copied (and swapped to
// this machine's byte order for big endian); the copy lives for the call.
typedef void (*DICOM_READ_TAG_PROC)(uint16_t group, uint16_t element, uint32_t length, const unsigned char* value,
                                    void* parameter);

// One key of a query identifier: a tag and its value as text (numbers for
// binary VRs; empty asks for the attribute to be returned).
struct QueryKey {
    uint16_t group = 0, element = 0;
    std::string value;
};

// What a storage commitment request asked and what the peer reported.
struct COMMIT_RESULT {
    struct Instance {
        std::string sopClass, sopInstance;
        uint16_t failureReason = 0;  // (0008,1197) of a failed instance
    };
    std::string transactionUid;          // sent in the N-ACTION
    std::string reportedTransactionUid;  // received in the N-EVENT-REPORT
    uint16_t actionStatus = 0xFFFF;
    uint16_t eventType = 0;              // 1 all committed, 2 failures exist
    std::vector<Instance> committed, failed;
};

// A complete query or retrieval, for Do_CFIND_Request, Do_CMOVE_Request and Do_CGET_Request.
struct QR_REQUEST {
    enum Model { kPatientRoot, kStudyRoot };
    Model model = kStudyRoot;
    std::string level = "STUDY";             // Query/Retrieve Level (0008,0052)
    std::vector<QueryKey> keys;              // (0008,0052) is added from level
    std::string moveDestination;             // C-MOVE only
    // Transfer syntaxes proposed for the identifier, preferred first.
    std::vector<std::string> transferSyntaxes = {"1.2.840.10008.1.2.1", "1.2.840.10008.1.2.2", "1.2.840.10008.1.2"};
    uint16_t priority = 0x0000;
    // C-GET only: the storage SOP classes proposed for the sub-operations
    // (empty: CUserSocket::GetDefaultStorageClasses()), each with these
    // transfer syntaxes, preferred first.
    std::vector<std::string> storageClasses;
    std::vector<std::string> storageTransferSyntaxes = {"1.2.840.10008.1.2.1", "1.2.840.10008.1.2"};
};

// The requesting side of the association: no members of its own.
class CDicomCommonSocket : public CDicomSocket {
public:
    int SendReleaseReq();

protected:
    CDicomCommonSocket() = default;
};

// What became of one file of a C-STORE batch (Do_CSTORE_Request).
struct STORE_OUTCOME {
    enum Result {
        kStored,   // the peer answered success or a warning (status, and words for a warning in reason)
        kRefused,  // the peer refused it: a failure status, or no context for its SOP class and syntax
        kFailed,   // not stored for a reason of this side or of the connection (reason)
        kSkipped,  // not an instance to store: not DICOM, or a DICOMDIR (reason)
    };
    Result result = kFailed;
    std::u16string path;
    std::string sopClass, sopInstance;  // from the data set; the meta information only where it lacks them
    std::string fileSyntax;             // the encoding the file holds
    std::string sentSyntax;             // the transfer syntax it went in; empty when it was not sent
    uint16_t status = 0xFFFF;           // the C-STORE response status; 0xFFFF when none came
    std::string reason;
    int64_t bytes = 0;                  // data set bytes sent
};

// The counts of a whole batch.
struct STORE_SUMMARY {
    int stored = 0, refused = 0, failed = 0, skipped = 0;
    int64_t bytes = 0;
    int associations = 0;
};

// The steps of one exchange, in the order they run; the step that failed
// names a failure (GetErrorText).
enum class ExchangeStep {
    kNone,
    kListen,
    kConnect,
    kAssociation,         // request and answer, or the service's context refused
    kAssociationRequest,
    kAssociationAnswer,
    kRequest,             // the service's request (command and data set)
    kResponse,            // its responses
    kReleaseRequest,
    kReleaseAnswer,
    kRelease,
    kReport,              // the N-EVENT-REPORT of storage commitment
    kService,             // request and response of one operation together (a C-STORE of one file)
};

// How the accepting side answers an A-ASSOCIATE-RQ (PS3.8 9.3.2, 9.3.3).
struct ACCEPT_POLICY {
    // True for an abstract syntax to accept; empty: none.
    std::function<bool(const std::string& abstractSyntax)> accepts;
    // Transfer syntaxes in the order this side prefers them; the first one
    // the caller proposed is accepted. Empty: the library's own order
    // (CPresentationContext::SelectValidTransferSyntax).
    std::vector<std::string> transferSyntaxes;
    // Maximum Length offered (PS3.8 D.1); 0: the receive buffer's size.
    uint32_t maxPduLength = 0;
    // When set, a request to another called AE title is rejected
    // (permanent, service user, called AE title not recognized).
    std::string calledTitle;
    // The A-ASSOCIATE-RJ to send instead of accepting: result 0, accept.
    // PS3.8 9.3.4: transient, service provider (presentation), local limit
    // exceeded is {2, 3, 2}.
    struct {
        uint8_t result = 0, source = 0, reason = 0;
    } reject;
};

// One element of a request command set (PS3.7 E.1).
struct CommandElement {
    enum Kind { kUid, kAe, kUs, kAt, kNextMessageId };
    uint16_t element;
    Kind kind;
    std::string text = "";
    uint16_t number = 0;
};

class CUserSocket : public CDicomCommonSocket {
public:
    CUserSocket();
    ~CUserSocket() override = default;

    // --- association (usersocket_associate.cpp)
    // Empty when the title is a valid AE title (1 to 16 characters of the AE
    // repertoire, not all blanks), else the words of what is wrong.
    static std::string CheckAETitle(const std::string& title);
    // Host and port; each title's characters over 16 blanks.
    void SetConnectionData(const std::string& host, unsigned port, const std::string& calledTitle,
                           const std::string& callingTitle);
    // A context with the abstract syntax and count transfer syntaxes (const
    // char*), given the ID 1, 3, 5, ... by its position.
    void AddPresentationContext(const char* abstractSyntax, int count, ...);
    void AddPresentationContext(const std::string& abstractSyntax, const std::vector<std::string>& transferSyntaxes);
    // Connects to the host and port of SetConnectionData; the socket's own
    // Connect(host, port) stays callable.
    using CZelSocket::Connect;
    int Connect();
    int SendAssociateReq(bool storageCommitmentRole);
    int ReceiveAssociateRsp();
    int ReadAssociateAc();
    int ReceiveReleaseRsp();
    void Close() override;
    // The Implementation Class UID this side sends (PS3.7 D.3.3.2): the UID
    // root when it is a valid UID, else the library's own.
    static std::string GetImplementationClassUid();

    // --- DIMSE (usersocket_dimse.cpp)
    int SendEchoReq();
    int ReceiveEchoRsp();
    // Builds a command set from the elements (group length in front) and
    // sends it as one command PDV. The one path every request takes.
    int SendCommand(std::initializer_list<CommandElement> elements);
    // Receives the response to the request sent last, with the given
    // command field: 1 when a message came that answers that command and
    // that request's Message ID.
    // With storeRequestsToo a C-STORE-RQ (a C-GET's sub-operation) is
    // taken as well, its command set only: its data set is for the caller
    // to receive (CStoreResponder).
    int AwaitResponse(uint16_t requestCommand, DICOM_CMND_MSG& response, CDynBuffer& data,
                      bool storeRequestsToo = false);

    // --- one exchange (usersocket_exchange.cpp)
    // Clears what the last exchange left (errors, failed step, contexts, an
    // open handle), so that an object serves a new association after any failure.
    void BeginExchange();
    // Connects, negotiates the contexts already added and makes the accepted
    // context of abstractSyntax the outgoing one; false (closed, the step
    // recorded) when any of it fails.
    bool OpenExchange(const HOST_INFO& host, const std::string& abstractSyntax, const std::string& service,
                      bool storageCommitmentRole = false);
    // Records the failed step, aborts an established association (A-ABORT)
    // and closes; returns the error code (local, else system, else 1).
    int FailExchange(ExchangeStep step, const std::string& service = "");
    // The second half of FailExchange: A-ABORT when the association stands, then close.
    void AbortAndClose();
    // Releases and closes after the last response: 0, whatever became of the release.
    int FinishExchange();
    // C-CANCEL-RQ for the C-FIND, C-MOVE or C-GET with that Message ID.
    int SendCancelReq(uint16_t messageId);
    // Cancelling a C-FIND or C-MOVE (PS3.7 9.3.2.3, 9.3.4.3). After
    // afterMatches matches (0: never) a C-FIND sends C-CANCEL-RQ and reports
    // no further match. interruption is asked while responses are awaited:
    // 0 go on, 1 send C-CANCEL-RQ and await the final response (within the
    // time-out), 2 (or a second request after the cancel) abort the association.
    void SetCancellation(int afterMatches, std::function<int()> interruption);
    // AwaitResponse for C-FIND, C-MOVE and C-GET, sending C-CANCEL-RQ when asked.
    int AwaitCancellableResponse(uint16_t requestCommand, DICOM_CMND_MSG& response, CDynBuffer& data,
                                 bool storeRequestsToo = false);
    // A-ABORT (PS3.8 9.3.8): source 0 service user, 2 service provider.
    int SendAbort(uint8_t source, uint8_t reason);
    void MarkFailedStep(ExchangeStep step, const std::string& service = "");
    static std::string StepWords(ExchangeStep step, const std::string& service);
    int ErrorCode() const;

    // --- data-set elements in the negotiated transfer syntax (usersocket_codec.cpp)
    // Appends one element, its VR from the data dictionary: 0 (nothing
    // appended) for a tag the dictionary does not know, else 1.
    int AddTag(CDynBuffer& buffer, uint16_t group, uint16_t element, const void* value, uint32_t length);
    int AddTag(CDynBuffer& buffer, uint16_t group, uint16_t element, uint16_t value);
    int AddTag(CDynBuffer& buffer, uint16_t group, uint16_t element, uint32_t value);
    // Walks an encoded data set: true when every element was handed to the
    // callback, false when one runs past the end or is malformed. A value
    // of undefined length is handed over whole, through its delimiter.
    virtual bool ReadTags(const unsigned char* buffer, int size, DICOM_READ_TAG_PROC callback, void* parameter);
    // A ReadTags callback that fills the DICOM_CMND_MSG given as parameter
    // (as CommandMessageProc, without the Move Destination).
    static void CommandTagProc(uint16_t group, uint16_t element, uint32_t length, const unsigned char* value,
                               void* message);
    // At most size - 1 bytes of the value, terminated, trailing blanks removed.
    static void GetTagString(const unsigned char* value, int length, char* destination, int size);
    // The writer callback for the element tree's save operations.
    static int WriteProc(const void* data, int length, CDynBuffer* buffer);
    // The negotiated encoding of the outgoing context, as flags.
    bool IsExplicitVR() const { return m_bExplicitVR != 0; }
    bool IsBigEndian() const { return m_bBigEndian != 0; }
    // Loads a received data set (in the outgoing context's encoding) into
    // an element tree node; the tree keeps pointing into keep, which must
    // outlive it. False when the data set is malformed.
    bool LoadDataSet(const unsigned char* bytes, uint32_t size, CDynBuffer& keep, CDicomItem& dataSet) const;

    // --- storage (usersocket_store.cpp)
    // The C-STORE-RQ command set (medium priority, a data set follows).
    int SendStoreReqCmnd(const std::string& sopClass, const std::string& sopInstance);
    // Sends length bytes of the file from offset as the data set, mapped a
    // window at a time so that a large file is never held in memory whole.
    int SendDataFromFile(const std::u16string& path, int64_t length, int64_t offset = 0);
    // Reads the C-STORE-RSP to the last request into response: 1 when it
    // came and answers that request (its status is for the caller to judge).
    int ReceiveStoreRsp(DICOM_CMND_MSG& response);
    // The ID of an accepted context with this abstract and transfer syntax, 0 when none.
    unsigned char FindAcceptedContext(const std::string& abstractSyntax, const std::string& transferSyntax) const;
    // Words for a C-STORE response status (PS3.4 B.2.3).
    static std::string GetStoreStatusText(uint16_t status);
    // Called once for each file of a batch, in the order its fate is known.
    using StoreOutcomeCallback = std::function<void(const STORE_OUTCOME& outcome)>;
    // A whole C-STORE of many files (PS3.4 B.2): each file is read through
    // before it is sent, and sent under the SOP class and instance that its
    // data set names. Uncompressed files (and bare data sets) are proposed in
    // implicit and explicit VR little endian and converted on the fly to the
    // one the peer accepted, a deflated file also as deflated; any other
    // transfer syntax goes as it is. Contexts are decided here, at most 128
    // an association. When the peer aborts or the connection drops, a new
    // association carries on with the next file. 0 when every file got its
    // outcome; else the error of an association that could not be opened
    // (GetErrorText words it; the files left were reported failed).
    int Do_CSTORE_Request(const HOST_INFO& host, const std::vector<std::u16string>& paths,
                          const StoreOutcomeCallback& onOutcome, STORE_SUMMARY& summary);

    // --- query and retrieval (usersocket_query.cpp)
    // The SOP class of a model's C-FIND (0x0020), C-MOVE (0x0021) or C-GET (0x0010).
    static std::string GetQueryRetrieveSopClass(QR_REQUEST::Model model, uint16_t requestCommand);
    int SendFindReqCmnd(const std::string& sopClass, uint16_t priority, uint16_t dataSetType);
    int SendMoveReqCmnd(const std::string& sopClass, uint16_t priority, const std::string& destination);
    // PS3.4 C.4.1.1.4: words for a C-FIND status, good (not a failure) and
    // final (no further response follows).
    static void AnalysFindResponseStatus(uint16_t status, std::string& text, int& good, int& final);
    // Words for a C-MOVE status (PS3.4 C.4.2.1.5).
    static std::string GetMoveStatusText(uint16_t status);
    // The identifier of request in the negotiated encoding: Query/Retrieve
    // Level and the keys in ascending tag order. False when a key's tag is
    // not in the dictionary (named in the error detail).
    bool EncodeIdentifier(const QR_REQUEST& request, CDynBuffer& identifier);
    // Called for each match with its identifier as an element tree data set.
    using FindMatchCallback = std::function<void(const CDicomItem& identifier)>;
    // Called for each pending C-FIND response that carries an identifier,
    // with its bytes in the negotiated encoding; false ends the exchange
    // (the callback has set the error).
    using FindResponseCallback = std::function<bool(const DICOM_CMND_MSG& response, CDynBuffer& identifier)>;
    // The responses to the C-FIND-RQ sent last, up to the final one, each
    // checked to answer it (command field and message ID): 1 when the final
    // response came (its status in finalStatus), else 0 with the error set.
    int ReceiveFindResponses(const FindResponseCallback& onIdentifier, uint16_t& finalStatus);
    // Called for each C-MOVE response with its sub-operation counts.
    using MoveProgressCallback = std::function<void(const DICOM_CMND_MSG& response)>;
    // A whole C-FIND: association, request, every response, release. 0 when
    // the exchange completed (the final status, success or not, is in
    // finalStatus), else the local or system error (GetErrorText words it).
    int Do_CFIND_Request(const HOST_INFO& host, const QR_REQUEST& request, const FindMatchCallback& onMatch,
                         uint16_t& finalStatus);
    // A whole C-MOVE; the last response (final status and counts) in finalResponse.
    int Do_CMOVE_Request(const HOST_INFO& host, const QR_REQUEST& request, const MoveProgressCallback& onProgress,
                         DICOM_CMND_MSG& finalResponse);

    // --- retrieval on the same association (usersocket_get.cpp)
    // The storage classes a C-GET proposes when the request names none:
    // the common image, structured report, document and presentation classes.
    static std::vector<std::string> GetDefaultStorageClasses();
    int SendGetReqCmnd(const std::string& sopClass, uint16_t priority);
    // Called for each storage sub-operation once it is answered.
    using GetStoreCallback = std::function<void(const STORED_INSTANCE& subOperation)>;
    // A whole C-GET (PS3.4 C.4.3): the association proposes the GET model
    // and the request's storage classes with this side in the SCP role
    // (PS3.7 D.3.3.4); each C-STORE-RQ that arrives between the C-GET
    // responses is written into folder and answered by CStoreResponder
    // ("<SOP Instance UID>.dcm"), then handed to onStored; each pending
    // C-GET response goes to onProgress. 0 when the exchange completed (the
    // last response in finalResponse), else the error (GetErrorText).
    int Do_CGET_Request(const HOST_INFO& host, const QR_REQUEST& request, const std::string& folder,
                        const MoveProgressCallback& onProgress, const GetStoreCallback& onStored,
                        DICOM_CMND_MSG& finalResponse);

    // --- DIMSE-N and storage commitment (usersocket_nservice.cpp)
    int SendCreateReqCmnd(const std::string& sopClass, const std::string& sopInstance);
    int SendSetReqCmnd(const std::string& sopClass, const std::string& sopInstance);
    // tags: group in the low 16 bits, element in the high 16 bits.
    int SendGetReq(const std::string& sopClass, const std::string& sopInstance, int count, const uint32_t* tags);
    int SendActionReqCmnd(const std::string& sopClass, const std::string& sopInstance, uint16_t dataSetType,
                          uint16_t actionTypeId);
    int SendDeleteReq(const std::string& sopClass, const std::string& sopInstance);
    // The counter is not advanced: this answers the peer's message.
    int SendEventReportRspCmnd(const std::string& sopClass, const std::string& sopInstance, uint16_t messageId,
                               uint16_t dataSetType, uint16_t eventTypeId);
    // The whole tree as one PDV, implicit VR, never split.
    bool SendStorageCommitmentEventReportMsg(CDicomItem* item, bool lastFragment, bool command);
    // Words for a DIMSE-N status (PS3.7 C).
    static std::string GetNStatusText(uint16_t status);

    // --- storage commitment push (usersocket_commit.cpp)
    // A whole commitment: listens on listenPort, sends the N-ACTION over an
    // association to host, then accepts the peer's association and answers
    // its N-EVENT-REPORT (within the time-out). 0 when the report came.
    int Do_StorageCommitment(const HOST_INFO& host, const std::vector<COMMIT_RESULT::Instance>& instances,
                             unsigned listenPort, COMMIT_RESULT& result);
    // The accepting side on a socket that took a caller: reads its
    // A-ASSOCIATE-RQ and answers it, accepting the listed abstract syntaxes
    // and the roles as proposed.
    int AcceptAssociation(const std::vector<std::string>& abstractSyntaxes);
    // The same under a whole policy (usersocket_accept.cpp): 1 when the
    // A-ASSOCIATE-AC went out; 0 when the request was unreadable, rejected
    // (A-ASSOCIATE-RJ sent, m_Rejection holds it) or the connection failed.
    int AcceptAssociation(const ACCEPT_POLICY& policy);
    // Receives an N-EVENT-REPORT-RQ of storage commitment, answers it and
    // adds its instances to result.
    int ReceiveCommitmentReport(COMMIT_RESULT& result);
    // The N-ACTION's Transaction UID and Referenced SOP Sequence.
    bool EncodeCommitmentRequest(const std::string& transactionUid,
                                 const std::vector<COMMIT_RESULT::Instance>& instances, CDynBuffer& out);
    int SendReleaseRsp();
    // After the N-ACTION response: the report on this association or on
    // one the peer opens to the listener, within the time-out.
    int AwaitCommitmentReport(CUserSocket& listener, unsigned listenPort, COMMIT_RESULT& result);
    int AcceptCommitmentReport(CUserSocket& listener, unsigned listenPort, COMMIT_RESULT& result);

    // --- verification (usersocket_echo.cpp)
    // 0 on success, else the local error (or the system error when there is none).
    int Do_CECHO_Request(const std::u16string& host, unsigned port, const std::string& calledTitle,
                         const std::string& callingTitle);
    // The exchange behind Do_CECHO_Request, from the title check to the release.
    int RunEcho(const std::string& calledTitle, const std::string& callingTitle);
    // One line of words for the last failure: the step it happened in and what went wrong.
    std::string GetErrorText() const;
    // Records a failure found above the transport (local error and its words).
    void SetErrorText(uint32_t local, const std::string& detail);

protected:
    // Sends the group of a loaded tree as it lies in its source buffer.
    bool SendGroup(CDicomItem* item, int group);
    // Puts the P-DATA-TF header in front of a prebuilt body and sends it.
    int SendPdu(CDynBuffer& body);
    // Sends a whole PDU built by the codec; 0 with the system error on failure.
    int SendWholePdu(const std::vector<unsigned char>& bytes);
    // Maximum length, implementation class and version of this side.
    void FillUserInformation(zeldicom::pdu::AssociateFields& fields) const;
    // Connects, proposes the contexts already added and negotiates; the
    // step that failed is left in m_sFailedStep.
    int OpenAssociation(const HOST_INFO& host, bool storageCommitmentRole);

public:
    uint32_t m_nMessageID = 0;
    std::u16string m_sHost;
    unsigned m_nPort = 104;
    int m_nEchoDuration = 0;
    // Result, source and reason of the last A-ASSOCIATE-RJ received (PS3.8 9.3.4).
    struct Rejection {
        uint8_t result = 0, source = 0, reason = 0;
    } m_Rejection;
    // The step that failed last, and its words ("connect", "C-FIND
    // response", ...; empty when none did).
    ExchangeStep m_nFailedStep = ExchangeStep::kNone;
    std::string m_sFailedStep;
    // An A-ASSOCIATE-AC came and the association is neither released nor aborted.
    bool m_bAssociated = false;
    // Cancellation of the running C-FIND or C-MOVE (SetCancellation).
    int m_nCancelAfter = 0;
    std::function<int()> m_fnInterruption;
    bool m_bCancelSent = false;
    // Abstract syntaxes for which the next A-ASSOCIATE-RQ proposes this side
    // in the SCP role only (the storage classes of a C-GET).
    std::vector<std::string> m_scpRoleSyntaxes;
};
