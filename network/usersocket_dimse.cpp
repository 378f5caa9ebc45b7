// DIMSE requests out and responses in (PS3.7 9, 10). Command sets are
// always implicit VR little endian, built with the raw element writers and
// sent as one command PDV; every request goes through SendCommand and every
// response through AwaitResponse, so a new service only adds its elements.
#include "dicomdata/datawriter.h"
#include "imageinfo/dicominfo.h"
#include "network/usersocket.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

namespace {
constexpr char kVerificationSopClass[] = "1.2.840.10008.1.1";
constexpr uint16_t kEchoRq = 0x0030;
constexpr uint16_t kEchoRsp = 0x8030;
constexpr uint16_t kNoDataSet = 0x0101;
constexpr uint16_t kStoreRq = 0x0001;

// "C-FIND" for C-FIND-RQ.
std::string ServiceName(uint16_t requestCommand)
{
    std::string name = GetClearMessage(requestCommand);
    if (name.size() > 3 && name.compare(name.size() - 3, 3, "-RQ") == 0)
        name.resize(name.size() - 3);
    return name;
}
}

int CUserSocket::SendCommand(std::initializer_list<CommandElement> elements)
{
    CDynBuffer command;
    for (const CommandElement& element : elements) {
        switch (element.kind) {
        case CommandElement::kUid:
            DICOMINFO::AddTagByVR(command, u"UI", 0x0000, element.element, element.text.data(),
                                  static_cast<uint32_t>(element.text.size()));
            break;
        case CommandElement::kAe:
            DICOMINFO::AddTagByVR(command, u"AE", 0x0000, element.element, element.text.data(),
                                  static_cast<uint32_t>(element.text.size()));
            break;
        case CommandElement::kAt:
            DICOMINFO::AddTagByVR(command, u"AT", 0x0000, element.element, element.text.data(),
                                  static_cast<uint32_t>(element.text.size()));
            break;
        case CommandElement::kUs: DICOMINFO::AddTag(command, 0x0000, element.element, element.number); break;
        case CommandElement::kNextMessageId:
            ++m_nMessageID;
            DICOMINFO::AddTag(command, 0x0000, element.element, static_cast<uint16_t>(m_nMessageID & 0xFFFF));
            break;
        }
    }
    // Command Group Length (0000,0000) in front: the bytes of everything behind it.
    DICOMINFO::InsertTag(command, 0x0000, 0x0000, command.m_nSize, 0);
    return SendDataPdu(command.GetData(), static_cast<int>(command.m_nSize), 1, 1);
}

int CUserSocket::AwaitResponse(uint16_t requestCommand, DICOM_CMND_MSG& response, CDynBuffer& data,
                               bool storeRequestsToo)
{
    data.m_nSize = 0;
    if (!ReceiveCommand(response))
        return 0;
    // PS3.4 C.4.3.3: the storage sub-operations of a C-GET arrive as
    // C-STORE-RQs on the same association, between its responses.
    if (storeRequestsToo && response.wCommandField == kStoreRq)
        return 1;
    CDicomDataWriterForBufferCmd writer(&data);
    if (!ReceiveDataSet(response, writer))
        return 0;
    if (response.wCommandField != (requestCommand | 0x8000)) {
        DicomTraceFormat("<%s> Bad command 0x%X to response to %s", m_sTraceName.c_str(), response.wCommandField,
                         GetClearMessage(requestCommand).c_str());
        SetError(kErrorUnexpectedCommand, 0,
                 FormatText("the peer answered %s with command 0x%04X (%s)", GetClearMessage(requestCommand).c_str(),
                            response.wCommandField, GetClearMessage(response.wCommandField).c_str()));
        return 0;
    }
    // The message ID is checked here, where every response is awaited.
    const uint16_t expected = static_cast<uint16_t>(m_nMessageID & 0xFFFF);
    if (response.wMessageIDBeingRespondedTo != expected) {
        SetError(requestCommand == kEchoRq ? kErrorEchoMessageId : kErrorUnexpectedCommand, 0,
                 FormatText("the %s response answers message %u, not %u", ServiceName(requestCommand).c_str(),
                            response.wMessageIDBeingRespondedTo, expected));
        return 0;
    }
    return 1;
}

int CUserSocket::SendEchoReq()
{
    return SendCommand({{0x0002, CommandElement::kUid, kVerificationSopClass},
                        {0x0100, CommandElement::kUs, "", kEchoRq},
                        {0x0110, CommandElement::kNextMessageId},
                        {0x0800, CommandElement::kUs, "", kNoDataSet}});
}

int CUserSocket::ReceiveEchoRsp()
{
    DICOM_CMND_MSG response;
    CDynBuffer data;
    if (!AwaitResponse(kEchoRq, response, data))
        return 0;
    if (response.wStatus == 0x0000)
        return 1;
    std::string status = FormatText("the C-ECHO response carries status 0x%04X (%s)", response.wStatus,
                                    GetClearStatus(response.wStatus).c_str());
    SetError(response.wStatus == 0xA700 ? kErrorEchoOutOfResources : kErrorFailureStatus, 0, status);
    return 0;
}
