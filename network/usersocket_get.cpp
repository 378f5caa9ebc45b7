// Retrieval on one association (C-GET; PS3.4 C.4.3, PS3.7 9.1.3): the
// request, the storage sub-operations that the peer sends back on the same
// association as C-STORE-RQs (each written to a file as it arrives and
// answered), and the C-GET responses with their counts.
#include <cstring>
#include <set>

#include "network/storeresponder.h"
#include "network/usersocket.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

namespace {
constexpr uint16_t kGetRq = 0x0010;
constexpr uint16_t kStoreRq = 0x0001;
constexpr uint16_t kDataSetPresent = 0x0000;
// PS3.8 9.3.2: presentation context IDs are the odd numbers 1 to 255.
constexpr size_t kMostContexts = 128;

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
    const std::string sopClass = GetQueryRetrieveSopClass(request.model, kGetRq);
    // Each class once, in the order given.
    std::vector<std::string> storageClasses;
    std::set<std::string> seen;
    for (const std::string& uid : request.storageClasses.empty() ? GetDefaultStorageClasses() : request.storageClasses)
        if (seen.insert(uid).second)
            storageClasses.push_back(uid);
    if (storageClasses.size() + 1 > kMostContexts) {
        SetError(kErrorBadArgument, 0,
                 FormatText("%zu storage classes asked; an association carries at most %zu besides the C-GET one",
                            storageClasses.size(), kMostContexts - 1));
        return FailExchange(ExchangeStep::kAssociation, "C-GET");
    }
    AddPresentationContext(sopClass, request.transferSyntaxes);
    for (const std::string& storageClass : storageClasses)
        AddPresentationContext(storageClass, request.storageTransferSyntaxes);
    m_scpRoleSyntaxes = storageClasses;
    if (!OpenExchange(host, sopClass, "C-GET"))
        return ErrorCode();
    const unsigned char getContext = m_ucPresContextID;
    CDynBuffer identifier;
    if (!EncodeIdentifier(request, identifier) || !SendGetReqCmnd(sopClass, request.priority) ||
        !SendData(identifier.GetData(), static_cast<int>(identifier.m_nSize)))
        return FailExchange(ExchangeStep::kRequest, "C-GET");
    // The instances come from the peer: its title is their Source AE Title.
    CStoreResponder responder(folder);
    responder.SetSourceTitle(std::string(host.szCalledAETitle, strnlen(host.szCalledAETitle, 16)));
    for (;;) {
        // A C-CANCEL-RQ goes on the C-GET's context, not on that of the last sub-operation.
        SetPresentationContext(getContext);
        DICOM_CMND_MSG message;
        CDynBuffer data;
        if (!AwaitCancellableResponse(kGetRq, message, data, true))
            return FailExchange(ExchangeStep::kResponse, "C-GET");
        if (message.wCommandField == kStoreRq) {
            STORED_INSTANCE stored;
            if (!responder.Answer(*this, message, stored))
                return FailExchange(ExchangeStep::kResponse, "C-GET");
            DicomTraceFormat("<%s> C-GET sub-operation %s: answered 0x%04X%s%s", m_sTraceName.c_str(),
                             stored.instance.sopInstance.c_str(), stored.status, stored.error.empty() ? "" : " - ",
                             stored.error.c_str());
            if (onStored)
                onStored(stored);
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
