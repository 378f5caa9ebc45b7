// Retrieval on one association (C-GET; PS3.4 C.4.3, PS3.7 9.1.3): the
// request, the storage sub-operations that the peer sends back on the same
// association as C-STORE-RQs (each written to a file as it arrives and
// answered), and the C-GET responses with their counts.
#include <algorithm>
#include <cstring>

#include "dicomdata/datawriter.h"
#include "network/receivedfile.h"
#include "network/usersocket.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

namespace {
constexpr uint16_t kGetRq = 0x0010;
constexpr uint16_t kStoreRq = 0x0001;
constexpr uint16_t kStoreRsp = 0x8001;
constexpr uint16_t kDataSetPresent = 0x0000;
constexpr uint16_t kNoDataSet = 0x0101;
// PS3.8 9.3.2: presentation context IDs are the odd numbers 1 to 255.
constexpr size_t kMostContexts = 128;

const char* GetSopClass(QR_REQUEST::Model model)
{
    return model == QR_REQUEST::kPatientRoot ? "1.2.840.10008.5.1.4.1.2.1.3" : "1.2.840.10008.5.1.4.1.2.2.3";
}

// The storage classes proposed when the caller names none (PS3.4 B.5).
constexpr const char* kDefaultStorageClasses[] = {
    "1.2.840.10008.5.1.4.1.1.1",       // Computed Radiography Image
    "1.2.840.10008.5.1.4.1.1.1.1",     // Digital X-Ray Image - For Presentation
    "1.2.840.10008.5.1.4.1.1.1.1.1",   // Digital X-Ray Image - For Processing
    "1.2.840.10008.5.1.4.1.1.1.2",     // Digital Mammography X-Ray Image - For Presentation
    "1.2.840.10008.5.1.4.1.1.1.2.1",   // Digital Mammography X-Ray Image - For Processing
    "1.2.840.10008.5.1.4.1.1.2",       // CT Image
    "1.2.840.10008.5.1.4.1.1.2.1",     // Enhanced CT Image
    "1.2.840.10008.5.1.4.1.1.3.1",     // Ultrasound Multi-frame Image
    "1.2.840.10008.5.1.4.1.1.4",       // MR Image
    "1.2.840.10008.5.1.4.1.1.4.1",     // Enhanced MR Image
    "1.2.840.10008.5.1.4.1.1.6.1",     // Ultrasound Image
    "1.2.840.10008.5.1.4.1.1.7",       // Secondary Capture Image
    "1.2.840.10008.5.1.4.1.1.7.1",     // Multi-frame Single Bit Secondary Capture Image
    "1.2.840.10008.5.1.4.1.1.7.2",     // Multi-frame Grayscale Byte Secondary Capture Image
    "1.2.840.10008.5.1.4.1.1.7.3",     // Multi-frame Grayscale Word Secondary Capture Image
    "1.2.840.10008.5.1.4.1.1.7.4",     // Multi-frame True Color Secondary Capture Image
    "1.2.840.10008.5.1.4.1.1.12.1",    // X-Ray Angiographic Image
    "1.2.840.10008.5.1.4.1.1.12.2",    // X-Ray Radiofluoroscopic Image
    "1.2.840.10008.5.1.4.1.1.20",      // Nuclear Medicine Image
    "1.2.840.10008.5.1.4.1.1.128",     // Positron Emission Tomography Image
    "1.2.840.10008.5.1.4.1.1.77.1.4",  // VL Photographic Image
    "1.2.840.10008.5.1.4.1.1.481.1",   // RT Image
    "1.2.840.10008.5.1.4.1.1.481.2",   // RT Dose
    "1.2.840.10008.5.1.4.1.1.481.3",   // RT Structure Set
    "1.2.840.10008.5.1.4.1.1.481.5",   // RT Plan
    "1.2.840.10008.5.1.4.1.1.88.11",   // Basic Text SR
    "1.2.840.10008.5.1.4.1.1.88.22",   // Enhanced SR
    "1.2.840.10008.5.1.4.1.1.88.33",   // Comprehensive SR
    "1.2.840.10008.5.1.4.1.1.88.59",   // Key Object Selection Document
    "1.2.840.10008.5.1.4.1.1.11.1",    // Grayscale Softcopy Presentation State
    "1.2.840.10008.5.1.4.1.1.104.1",   // Encapsulated PDF
    "1.2.840.10008.5.1.4.1.1.66",      // Raw Data
};

void AddContext(CAssociateData& data, const std::string& abstractSyntax, const std::vector<std::string>& syntaxes)
{
    auto* context = new CPresentationContext;
    context->m_sAbstractSyntax = abstractSyntax;
    for (const std::string& uid : syntaxes)
        context->AddTransferSyntax(uid);
    context->m_ucPresContextID = static_cast<unsigned char>(2 * data.GetPresContextCount() + 1);
    data.AddPresContext(context);
}

// Hands the data set of a received message to its place: a C-STORE-RQ's
// into the received file, begun at its first bytes, any other into a
// buffer. A failure of the file is kept for the C-STORE-RSP status; the
// rest of the data set is still read, so the association goes on.
class SubOperationWriter : public CDicomDataWriterCmd {
public:
    SubOperationWriter(const DICOM_CMND_MSG& message, const CAssociateData& associate, CReceivedFile& file,
                       CDynBuffer& other)
        : m_message(message), m_associate(associate), m_file(file), m_other(other)
    {
    }
    bool WriteData(const void* bytes, int count) override
    {
        if (m_message.wCommandField != kStoreRq)
            return m_other.Add(bytes, static_cast<size_t>(count)) != 0;
        if (!m_begun && !Begin())
            return true;
        if (m_status == CReceivedFile::kSuccess)
            m_status = m_file.Append(bytes, static_cast<size_t>(count));
        return true;
    }
    // Begins the file (also for a C-STORE-RQ without a data set, so that
    // Finish finds it wanting); false when the message's context carries none.
    bool Begin()
    {
        m_begun = true;
        const CPresentationContext* context = AcceptedContext();
        if (!context)
            return false;
        RECEIVED_INSTANCE instance{m_message.szAffectedSOPClassUID, m_message.szAffectedSOPInstanceUID,
                                   context->m_sAcceptedTransferSyntax,
                                   std::string(m_associate.m_szCalledAETitle, strnlen(m_associate.m_szCalledAETitle, 16))};
        while (!instance.sourceTitle.empty() && instance.sourceTitle.back() == ' ')
            instance.sourceTitle.pop_back();
        m_status = m_file.Begin(instance);
        return true;
    }
    const CPresentationContext* AcceptedContext() const
    {
        const CPresentationContext* context = m_associate.GetPresContextByID(m_message.ucPresContextID);
        return context && context->m_ucResult == 0 ? context : nullptr;
    }
    bool Begun() const { return m_begun; }
    uint16_t Status() const { return m_status; }

private:
    const DICOM_CMND_MSG& m_message;
    const CAssociateData& m_associate;
    CReceivedFile& m_file;
    CDynBuffer& m_other;
    bool m_begun = false;
    uint16_t m_status = CReceivedFile::kSuccess;
};

// Finishes the file of one C-STORE-RQ and answers it with its status on
// the context it came on. False (the error set) when the request came on a
// context the association did not accept, which no answer can go on, or
// the answer cannot be sent.
bool AnswerStore(CUserSocket& socket, const DICOM_CMND_MSG& request, SubOperationWriter& writer, CReceivedFile& file,
                 const CUserSocket::GetStoreCallback& onStored)
{
    GET_SUBOPERATION outcome;
    outcome.sopClass = request.szAffectedSOPClassUID;
    outcome.sopInstance = request.szAffectedSOPInstanceUID;
    // PS3.8 9.3.5: a PDV names an accepted presentation context; one that
    // does not is an invalid parameter of the P-DATA-TF.
    if (!writer.AcceptedContext()) {
        file.Abandon();
        socket.SetErrorText(kErrorMalformedPdu,
                            FormatText("a C-STORE-RQ for %s arrived on presentation context %u, which was not accepted",
                                       outcome.sopInstance.c_str(), request.ucPresContextID));
        return false;
    }
    if (!writer.Begun())
        writer.Begin();
    outcome.status = writer.Status();
    if (outcome.status == CReceivedFile::kSuccess)
        outcome.status = file.Finish(CReceivedFile::DefaultName, outcome.path);
    else
        file.Abandon();
    if (outcome.status != CReceivedFile::kSuccess)
        outcome.reason = file.GetError();
    DicomTraceFormat("<%s> C-STORE sub-operation %s: status 0x%04X%s%s", socket.m_sTraceName.c_str(),
                     outcome.sopInstance.c_str(), outcome.status, outcome.reason.empty() ? "" : " - ",
                     outcome.reason.c_str());
    const bool sent = socket.SendCommand({{0x0002, CommandElement::kUid, outcome.sopClass},
                                          {0x0100, CommandElement::kUs, "", kStoreRsp},
                                          {0x0120, CommandElement::kUs, "", request.wMessageID},
                                          {0x0800, CommandElement::kUs, "", kNoDataSet},
                                          {0x0900, CommandElement::kUs, "", outcome.status},
                                          {0x1000, CommandElement::kUid, outcome.sopInstance}});
    if (onStored)
        onStored(outcome);
    return sent;
}

}

std::vector<std::string> CUserSocket::GetDefaultStorageClasses()
{
    return {std::begin(kDefaultStorageClasses), std::end(kDefaultStorageClasses)};
}

int CUserSocket::SendGetReqCmnd(const std::string& sopClass, uint16_t priority)
{
    return SendCommand({{0x0002, CommandElement::kUid, sopClass},
                        {0x0100, CommandElement::kUs, "", kGetRq},
                        {0x0110, CommandElement::kNextMessageId},
                        {0x0700, CommandElement::kUs, "", priority},
                        {0x0800, CommandElement::kUs, "", kDataSetPresent}});
}

int CUserSocket::Do_CGET_Request(const HOST_INFO& host, const QR_REQUEST& request, const std::string& folder,
                                 const MoveProgressCallback& onProgress, const GetStoreCallback& onStored,
                                 DICOM_CMND_MSG& finalResponse)
{
    std::memset(&finalResponse, 0, sizeof finalResponse);
    finalResponse.wStatus = 0xFFFF;
    BeginExchange();
    const std::string sopClass = GetSopClass(request.model);
    std::vector<std::string> storageClasses =
        request.storageClasses.empty() ? GetDefaultStorageClasses() : request.storageClasses;
    // Each class once, in the order given.
    for (size_t i = 0; i < storageClasses.size(); ++i)
        storageClasses.erase(std::remove(storageClasses.begin() + static_cast<long>(i) + 1, storageClasses.end(),
                                         storageClasses[i]),
                             storageClasses.end());
    if (storageClasses.size() + 1 > kMostContexts) {
        SetError(kErrorBadArgument, 0,
                 FormatText("%zu storage classes asked; an association carries at most %zu besides the C-GET one",
                            storageClasses.size(), kMostContexts - 1));
        return FailExchange(ExchangeStep::kAssociation, "C-GET");
    }
    AddContext(m_AssociateData, sopClass, request.transferSyntaxes);
    for (const std::string& storageClass : storageClasses)
        AddContext(m_AssociateData, storageClass, request.storageTransferSyntaxes);
    m_scpRoleSyntaxes = storageClasses;
    if (!OpenExchange(host, sopClass, "C-GET"))
        return ErrorCode();
    const unsigned char getContext = m_ucPresContextID;
    CDynBuffer identifier;
    if (!EncodeIdentifier(request, identifier) || !SendGetReqCmnd(sopClass, request.priority) ||
        !SendData(identifier.GetData(), static_cast<int>(identifier.m_nSize)))
        return FailExchange(ExchangeStep::kRequest, "C-GET");
    for (;;) {
        // A C-CANCEL-RQ goes on the C-GET's context, not on that of the last sub-operation.
        SetPresentationContext(getContext);
        DICOM_CMND_MSG message;
        CDynBuffer other;
        CReceivedFile file(folder);
        SubOperationWriter writer(message, m_AssociateData, file, other);
        if (!AwaitCancellableResponse(kGetRq, message, writer, true))
            return FailExchange(ExchangeStep::kResponse, "C-GET");
        if (message.wCommandField == kStoreRq) {
            if (!AnswerStore(*this, message, writer, file, onStored))
                return FailExchange(ExchangeStep::kResponse, "C-GET");
            continue;
        }
        if (message.wStatus != 0xFF00) {
            finalResponse = message;
            break;
        }
        if (onProgress)
            onProgress(message);
    }
    return FinishExchange();
}
