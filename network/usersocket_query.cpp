// Query and retrieval (C-FIND, C-MOVE; PS3.4 C.4, PS3.7 9.1.2, 9.1.4): the
// request command sets, the identifier in the negotiated transfer syntax,
// the statuses in words, and the whole exchanges from connect to close.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dictionary.h"
#include "network/dataset_codec.h"
#include "network/usersocket.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "trace/dimse_status.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

namespace {
constexpr uint16_t kFindRq = 0x0020;
constexpr uint16_t kMoveRq = 0x0021;
constexpr uint16_t kDataSetPresent = 0x0000;
constexpr uint16_t kNoDataSet = 0x0101;

// PS3.4 C.6: the SOP classes of the two root information models.
struct ModelSopClass {
    QR_REQUEST::Model model;
    uint16_t requestCommand;
    const char* uid;
};
constexpr ModelSopClass kModelSopClasses[] = {
    {QR_REQUEST::kPatientRoot, 0x0020, "1.2.840.10008.5.1.4.1.2.1.1"},  // FIND
    {QR_REQUEST::kPatientRoot, 0x0021, "1.2.840.10008.5.1.4.1.2.1.2"},  // MOVE
    {QR_REQUEST::kPatientRoot, 0x0010, "1.2.840.10008.5.1.4.1.2.1.3"},  // GET
    {QR_REQUEST::kStudyRoot, 0x0020, "1.2.840.10008.5.1.4.1.2.2.1"},
    {QR_REQUEST::kStudyRoot, 0x0021, "1.2.840.10008.5.1.4.1.2.2.2"},
    {QR_REQUEST::kStudyRoot, 0x0010, "1.2.840.10008.5.1.4.1.2.2.3"},
};

// A key's text as the value bytes of its VR: numbers for the binary VRs,
// the characters for the rest. False when a number does not read.
bool KeyValueBytes(const char* vr, const std::string& text, std::string& out)
{
    out.clear();
    int width = dataset::SwapWidth(vr);
    if (width == 0 || text.empty() || std::strncmp(vr, "AT", 2) == 0 || std::strncmp(vr, "O", 1) == 0) {
        out = text;
        return true;
    }
    // Several values separated by backslashes.
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('\\', start);
        std::string part = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
        char* stop = nullptr;
        unsigned char bytes[8] = {};
        if (vr[0] == 'F') {
            double number = std::strtod(part.c_str(), &stop);
            if (width == 4) {
                float single = static_cast<float>(number);
                std::memcpy(bytes, &single, 4);
            } else {
                std::memcpy(bytes, &number, 8);
            }
        } else {
            long long number = std::strtoll(part.c_str(), &stop, 10);
            // The value must fit the VR (PS3.5 6.2): US 70000 is refused, not sent as 4464.
            const bool isSigned = vr[0] == 'S';
            if (width < 8) {
                const long long highest = isSigned ? (1LL << (8 * width - 1)) - 1 : (1LL << (8 * width)) - 1;
                const long long lowest = isSigned ? -(1LL << (8 * width - 1)) : 0;
                if (number < lowest || number > highest)
                    return false;
            } else if (!isSigned && number < 0) {
                return false;
            }
            for (int i = 0; i < width; ++i)
                bytes[i] = static_cast<unsigned char>(static_cast<unsigned long long>(number) >> (8 * i));
        }
        if (part.empty() || !stop || *stop != '\0')
            return false;
        out.append(reinterpret_cast<const char*>(bytes), static_cast<size_t>(width));
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    return true;
}

// PS3.5 6.1.2.3: the VRs whose values Specific Character Set governs.
bool IsCharacterSetText(const char* vr)
{
    static const char* const kTextVRs[] = {"SH", "LO", "ST", "LT", "PN", "UC", "UT"};
    for (const char* text : kTextVRs)
        if (vr[0] == text[0] && vr[1] == text[1])
            return true;
    return false;
}

}

std::string CUserSocket::GetQueryRetrieveSopClass(QR_REQUEST::Model model, uint16_t requestCommand)
{
    for (const ModelSopClass& row : kModelSopClasses)
        if (row.model == model && row.requestCommand == requestCommand)
            return row.uid;
    return "";
}

int CUserSocket::SendFindReqCmnd(const std::string& sopClass, uint16_t priority, uint16_t dataSetType)
{
    return SendCommand({{0x0002, CommandElement::kUid, sopClass},
                        {0x0100, CommandElement::kUs, "", kFindRq},
                        {0x0110, CommandElement::kNextMessageId},
                        {0x0700, CommandElement::kUs, "", priority},
                        {0x0800, CommandElement::kUs, "", dataSetType}});
}

int CUserSocket::SendMoveReqCmnd(const std::string& sopClass, uint16_t priority, const std::string& destination)
{
    return SendCommand({{0x0002, CommandElement::kUid, sopClass},
                        {0x0100, CommandElement::kUs, "", kMoveRq},
                        {0x0110, CommandElement::kNextMessageId},
                        {0x0600, CommandElement::kAe, destination},
                        {0x0700, CommandElement::kUs, "", priority},
                        {0x0800, CommandElement::kUs, "", 0x0102}});
}

void CUserSocket::AnalysFindResponseStatus(uint16_t status, std::string& text, int& good, int& final)
{
    const DimseStatus* row = FindDimseStatus(kFindRq, status);
    const StatusClass statusClass = ClassifyDimseStatus(kFindRq, status);
    text = row && row->request == kFindRq ? row->words : "Unknown status";
    good = statusClass == StatusClass::kSuccess || statusClass == StatusClass::kPending ? 1 : 0;
    final = statusClass == StatusClass::kPending ? 0 : 1;
}

std::string CUserSocket::GetMoveStatusText(uint16_t status)
{
    const DimseStatus* row = FindDimseStatus(kMoveRq, status);
    return row && row->request == kMoveRq ? row->words : "Unknown status (" + GetClearStatus(status) + ")";
}

bool CUserSocket::EncodeIdentifier(const QR_REQUEST& request, CDynBuffer& identifier)
{
    std::vector<QueryKey> keys = request.keys;
    keys.erase(std::remove_if(keys.begin(), keys.end(),
                              [](const QueryKey& key) { return key.group == 0x0008 && key.element == 0x0052; }),
               keys.end());
    keys.push_back({0x0008, 0x0052, request.level});
    // PS3.5 6.1.2.5: text values go in the character set that Specific
    // Character Set (0008,0005) declares; a key of non-ASCII text without
    // one declares ISO_IR 192 (the keys are given as UTF-8).
    std::string characterSet;
    bool nonAscii = false;
    for (const QueryKey& key : keys) {
        if (key.group == 0x0008 && key.element == 0x0005)
            characterSet = key.value;
        const char* vr = ElementVR(key.group, key.element, nullptr, true);
        if (vr && IsCharacterSetText(vr))
            for (unsigned char c : key.value)
                nonAscii = nonAscii || c >= 0x80;
    }
    if (characterSet.empty() && nonAscii) {
        characterSet = "ISO_IR 192";
        keys.push_back({0x0008, 0x0005, characterSet});
    }
    // PS3.5 7.1: elements in ascending tag order; a later key for the same tag wins.
    std::stable_sort(keys.begin(), keys.end(), [](const QueryKey& a, const QueryKey& b) {
        return (static_cast<uint32_t>(a.group) << 16 | a.element) < (static_cast<uint32_t>(b.group) << 16 | b.element);
    });
    identifier.m_nSize = 0;
    for (size_t i = 0; i < keys.size(); ++i) {
        const QueryKey& key = keys[i];
        if (i + 1 < keys.size() && keys[i + 1].group == key.group && keys[i + 1].element == key.element)
            continue;
        const char* vr = ElementVR(key.group, key.element, nullptr, !IsExplicitVR());
        std::string bytes;
        if (vr && std::strncmp(vr, "SQ", 2) == 0 && !key.value.empty()) {
            SetError(kErrorBadArgument, 0,
                     FormatText("(%04X,%04X) is a sequence: only an empty value (return it) can be asked", key.group,
                                key.element));
            return false;
        }
        const bool declaredText = vr && IsCharacterSetText(vr) && !characterSet.empty();
        if (declaredText && !CDicomItem::TranslateTagValueFromUnicodeToDicom(Utf8ToUtf16(key.value), std::string(vr, 2),
                                                                             Utf8ToUtf16(characterSet), bytes)) {
            SetError(kErrorBadArgument, 0,
                     FormatText("'%s' of (%04X,%04X) cannot be written in the character set %s", key.value.c_str(),
                                key.group, key.element, characterSet.c_str()));
            return false;
        }
        if (!declaredText && vr && !KeyValueBytes(vr, key.value, bytes)) {
            SetError(kErrorBadArgument, 0,
                     FormatText("'%s' is not a value of (%04X,%04X) (VR %.2s)", key.value.c_str(), key.group,
                                key.element, vr));
            return false;
        }
        if (!AddTag(identifier, key.group, key.element, bytes.data(), static_cast<uint32_t>(bytes.size()))) {
            SetError(kErrorBadArgument, 0,
                     FormatText("(%04X,%04X) is not in the data dictionary, so its VR is unknown", key.group,
                                key.element));
            return false;
        }
    }
    return true;
}

int CUserSocket::OpenAssociation(const HOST_INFO& host, bool storageCommitmentRole)
{
    const std::string called(host.szCalledAETitle, strnlen(host.szCalledAETitle, 16));
    const std::string calling(host.szCallingAETitle, strnlen(host.szCallingAETitle, 16));
    MarkFailedStep(ExchangeStep::kNone);
    for (const std::string* title : {&called, &calling}) {
        std::string problem = CheckAETitle(*title);
        if (!problem.empty()) {
            SetError(kErrorBadArgument, 0, problem);
            return 0;
        }
    }
    SetConnectionData(std::string(host.szHost, strnlen(host.szHost, sizeof host.szHost)), host.nPort, called, calling);
    // A user's first interruption (Ctrl-C) stops the connection or the
    // negotiation too: there is no request to cancel yet.
    if (m_fnInterruption)
        SetInterruptCheck([this] { return m_fnInterruption() > 0; });
    const bool connected = Connect() != 0;
    const bool associated = connected && SendAssociateReq(storageCommitmentRole) && ReceiveAssociateRsp();
    SetInterruptCheck(nullptr);
    if (!connected) {
        MarkFailedStep(ExchangeStep::kConnect);
        return 0;
    }
    if (!associated) {
        FailExchange(ExchangeStep::kAssociation);
        return 0;
    }
    return 1;
}

void CUserSocket::SetErrorText(uint32_t local, const std::string& detail) { SetError(local, 0, detail); }

int CUserSocket::Do_CFIND_Request(const HOST_INFO& host, const QR_REQUEST& request, const FindMatchCallback& onMatch,
                                  uint16_t& finalStatus)
{
    finalStatus = 0xFFFF;
    BeginExchange();
    const std::string sopClass = GetQueryRetrieveSopClass(request.model, kFindRq);
    AddPresentationContext(sopClass, request.transferSyntaxes);
    if (!OpenExchange(host, sopClass, "C-FIND"))
        return ErrorCode();
    CDynBuffer identifier;
    if (!EncodeIdentifier(request, identifier) || !SendFindReqCmnd(sopClass, request.priority, kDataSetPresent) ||
        !SendData(identifier.GetData(), static_cast<int>(identifier.m_nSize)))
        return FailExchange(ExchangeStep::kRequest, "C-FIND");
    auto loadMatch = [&](const DICOM_CMND_MSG&, CDynBuffer& data) {
        CDynBuffer keep;
        CDicomItem match(u"Data");
        if (!LoadDataSet(data.GetData(), data.m_nSize, keep, match)) {
            SetError(kErrorMalformedDataSet, 0, "a C-FIND response carries a malformed identifier");
            return false;
        }
        if (onMatch)
            onMatch(match);
        return true;
    };
    if (!ReceiveFindResponses(loadMatch, finalStatus))
        return FailExchange(ExchangeStep::kResponse, "C-FIND");
    return FinishExchange();
}

int CUserSocket::ReceiveFindResponses(const FindResponseCallback& onIdentifier, uint16_t& finalStatus)
{
    int matches = 0;
    for (;;) {
        DICOM_CMND_MSG response;
        CDynBuffer data;
        if (!AwaitCancellableResponse(kFindRq, response, data))
            return 0;
        std::string text;
        int good = 0, final = 1;
        AnalysFindResponseStatus(response.wStatus, text, good, final);
        if (!final && response.wDataSetType != kNoDataSet) {
            // Matches that were on their way when C-CANCEL-RQ left are not reported.
            if (m_bCancelSent) {
                DicomTraceFormat("<%s> Match after C-CANCEL-RQ: not reported", m_sTraceName.c_str());
                continue;
            }
            // Each received identifier, element by element, as command sets are.
            if (Trace())
                DicomTraceAnalyzeBlock(m_sTraceName, data.GetData(), data.m_nSize, IsBigEndian() ? 1 : 0);
            if (onIdentifier && !onIdentifier(response, data))
                return 0;
            if (m_nCancelAfter > 0 && ++matches >= m_nCancelAfter) {
                if (!SendCancelReq(static_cast<uint16_t>(m_nMessageID & 0xFFFF)))
                    return 0;
                m_bCancelSent = true;
            }
        }
        if (final) {
            finalStatus = response.wStatus;
            return 1;
        }
    }
}

int CUserSocket::Do_CMOVE_Request(const HOST_INFO& host, const QR_REQUEST& request,
                                  const MoveProgressCallback& onProgress, DICOM_CMND_MSG& finalResponse)
{
    std::memset(&finalResponse, 0, sizeof finalResponse);
    finalResponse.wStatus = 0xFFFF;
    BeginExchange();
    const std::string sopClass = GetQueryRetrieveSopClass(request.model, kMoveRq);
    AddPresentationContext(sopClass, request.transferSyntaxes);
    if (!OpenExchange(host, sopClass, "C-MOVE"))
        return ErrorCode();
    CDynBuffer identifier;
    if (!EncodeIdentifier(request, identifier) ||
        !SendMoveReqCmnd(sopClass, request.priority, request.moveDestination) ||
        !SendData(identifier.GetData(), static_cast<int>(identifier.m_nSize)))
        return FailExchange(ExchangeStep::kRequest, "C-MOVE");
    for (;;) {
        DICOM_CMND_MSG response;
        CDynBuffer data;
        if (!AwaitCancellableResponse(kMoveRq, response, data))
            return FailExchange(ExchangeStep::kResponse, "C-MOVE");
        if (ClassifyDimseStatus(kMoveRq, response.wStatus) != StatusClass::kPending) {
            finalResponse = response;
            break;
        }
        if (onProgress)
            onProgress(response);
    }
    return FinishExchange();
}
