// One image on one film (PS3.4 H.4): printer status, film session, film
// box, image box with the pixels from a file, print, delete, and the
// optional event report; the worker-thread entry and its notifications.
#include "print/printsocket.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "trace/dicomtrace.h"

using namespace zeldicom;

namespace {

using namespace printcmd;

constexpr const char* kPriorities[] = {"HIGH", "MED", "LOW"};
constexpr const char* kMediums[] = {"PAPER", "CLEAR FILM", "BLUE FILM"};
constexpr const char* kDestinations[] = {"MAGAZINE", "PROCESSOR"};

std::string Field(const char* text, size_t size) { return std::string(text, strnlen(text, size)); }

template <size_t N>
const char* Pick(const char* const (&list)[N], int index)
{
    return index >= 0 && static_cast<size_t>(index) < N ? list[index] : nullptr;
}

// A coded session attribute: nothing for -1, false for an index off its list.
bool AddCoded(CDynBuffer& buffer, uint16_t element, int index, const char* (*list)(int))
{
    if (index == -1)
        return true;
    const char* text = list(index);
    if (!text)
        return false;
    DICOMINFO::AddTagByVR(buffer, u"CS", 0x2000, element, text, static_cast<uint32_t>(std::strlen(text)));
    return true;
}

}

const char* CDicomPrintSocket::PriorityText(int index) { return Pick(kPriorities, index); }
const char* CDicomPrintSocket::MediumText(int index) { return Pick(kMediums, index); }
const char* CDicomPrintSocket::DestinationText(int index) { return Pick(kDestinations, index); }

CDicomPrintSocket::CDicomPrintSocket(DICOM_PRINT_PARAM* param)
{
    m_sTraceName = "DicomPrintSocket";
    if (param) {
        SetConnectionData(Field(param->szHost, sizeof param->szHost), param->nPort,
                          Field(param->szCalledAETitle, 16), Field(param->szCallingAETitle, 16));
        m_sFilmSessionUID = Field(param->szFilmSessionUID, 64);
    }
    m_sFilmBoxUID = m_sFilmSessionUID + ".1";
    // Implicit VR little endian alone: the film box and image box data sets
    // are written in it, so the syntax negotiated is the one they travel in.
    AddPresentationContext(printuid::kGrayscaleMeta, 1, printuid::kImplicitLittleEndian);
    SetPresentationContext(1);
}

int CDicomPrintSocket::CreateFilmSession(CDicomFilmBox* filmBox)
{
    if (!filmBox || !SendCreateReqCmnd(printuid::kFilmSession, m_sFilmSessionUID))
        return 0;
    if (!SendCreateSessionAtrb(filmBox->nCopies, -1, -1, -1, nullptr, 0))
        return 0;
    return ReadCreateFilmSessionRsp();
}

bool CDicomPrintSocket::FillSessionAtrb(CDynBuffer& buffer, int copies, int priority, int medium, int destination,
                                        const char* label, int memoryAllocation)
{
    buffer.m_nSize = 0;
    const std::string copiesText = FormatText("%d", copies);
    DICOMINFO::AddTagByVR(buffer, u"IS", 0x2000, 0x0010, copiesText.data(), static_cast<uint32_t>(copiesText.size()));
    if (!AddCoded(buffer, 0x0020, priority, PriorityText) || !AddCoded(buffer, 0x0030, medium, MediumText) ||
        !AddCoded(buffer, 0x0040, destination, DestinationText))
        return false;
    if (label)
        DICOMINFO::AddTagByVR(buffer, u"LO", 0x2000, 0x0050, label, static_cast<uint32_t>(std::strlen(label)));
    if (memoryAllocation > 0) {
        const std::string text = FormatText("%d", memoryAllocation);
        DICOMINFO::AddTagByVR(buffer, u"IS", 0x2000, 0x0060, text.data(), static_cast<uint32_t>(text.size()));
    }
    DICOMINFO::InsertTag(buffer, 0x2000, 0x0000, buffer.m_nSize, 0);
    return true;
}

int CDicomPrintSocket::SendCreateSessionAtrb(int copies, int priority, int medium, int destination, const char* label,
                                             int memoryAllocation)
{
    CDynBuffer buffer;
    if (!FillSessionAtrb(buffer, copies, priority, medium, destination, label, memoryAllocation)) {
        SetErrorText(kErrorBadArgument, "a film session attribute index lies outside its list");
        return 0;
    }
    return SendDataPdu(buffer.GetData(), static_cast<int>(buffer.m_nSize), 1, 0);
}

int CDicomPrintSocket::ReadCreateFilmSessionRsp()
{
    DICOM_CMND_MSG response;
    CDynBuffer data;
    return ReadResponse(kCreateRq, response, data);
}

int CDicomPrintSocket::CreateFilmBox(CDicomFilmBox* filmBox)
{
    if (!filmBox || !SendCreateReqCmnd(printuid::kFilmBox, m_sFilmBoxUID))
        return 0;
    filmBox->sRefFilmSessionSOPClassUID = AsciiToWide(printuid::kFilmSession);
    filmBox->sRefFilmSessionSOPInstanceUID = AsciiToWide(m_sFilmSessionUID);
    if (!SendCreateFilmBoxAtrb(filmBox))
        return 0;
    return ReadCreateFilmBoxRsp(filmBox);
}

int CDicomPrintSocket::SendCreateFilmBoxAtrb(CDicomFilmBox* filmBox)
{
    CDynBuffer buffer;
    if (!filmBox || !filmBox->FillFilmBoxAtrb(buffer)) {
        SetErrorText(kErrorBadArgument, "the film box attributes cannot be encoded (an index outside its list)");
        return 0;
    }
    return SendDataPdu(buffer.GetData(), static_cast<int>(buffer.m_nSize), 1, 0);
}

int CDicomPrintSocket::ReadCreateFilmBoxRsp(CDicomFilmBox* filmBox)
{
    DICOM_CMND_MSG response;
    CDynBuffer data;
    if (!filmBox || !ReadResponse(kCreateRq, response, data))
        return 0;
    ReadImageBoxReferences(data, *filmBox);
    return 1;
}

int CDicomPrintSocket::SetImageBox(CDicomImageBox* imageBox)
{
    if (!imageBox || !SendSetReqCmnd(m_sImageBoxSOPClassUID, m_sImageBoxSOPInstanceUID))
        return 0;
    if (!SendSetImageBoxAtrb(imageBox))
        return 0;
    return ReadSetImageBoxRsp();
}

int CDicomPrintSocket::SendSetImageBoxAtrb(CDicomImageBox* imageBox)
{
    CDynBuffer buffer;
    if (!imageBox || !imageBox->FillImageBoxAtrb(buffer)) {
        SetErrorText(kErrorBadArgument, "the image box is too large for a 32-bit length");
        return 0;
    }
    // The attributes, then the pixels straight from their file; the last
    // fragment of the pixels ends the data set.
    if (!SendDataPdu(buffer.GetData(), static_cast<int>(buffer.m_nSize), 0, 0))
        return 0;
    return SendDataFromFile(imageBox->sPixelFile, imageBox->nPixelDataLength);
}

int CDicomPrintSocket::ReadSetImageBoxRsp()
{
    DICOM_CMND_MSG response;
    CDynBuffer data;
    return ReadResponse(kSetRq, response, data);
}

int CDicomPrintSocket::PrintAction()
{
    if (!SendActionReqCmnd(printuid::kFilmBox, m_sFilmBoxUID, kNoDataSet, kPrintAction))
        return 0;
    return ReadPrintActionRsp();
}

int CDicomPrintSocket::ReadPrintActionRsp()
{
    DICOM_CMND_MSG response;
    CDynBuffer data;
    return ReadResponse(kActionRq, response, data);
}

int CDicomPrintSocket::DeleteFilmSession()
{
    if (!SendDeleteReq(printuid::kFilmSession, m_sFilmSessionUID))
        return 0;
    return ReadDeleteFilmSessionRsp();
}

int CDicomPrintSocket::ReadDeleteFilmSessionRsp()
{
    DICOM_CMND_MSG response;
    CDynBuffer data;
    return ReadResponse(kDeleteRq, response, data);
}

unsigned long CDicomPrintSocket::ThreadProc(DICOM_PRINT_PARAM* param)
{
    if (!param)
        return 0;
    std::unique_ptr<DICOM_PRINT_PARAM> record(param);
    auto socket = std::make_unique<CDicomPrintSocket>(record.get());
    auto notify = [&](uint32_t first, uint32_t second) {
        if (record->notify)
            record->notify(kPrintMessage, first, second, *socket);
    };
    bool success = false;
    bool connected = socket->Connect() != 0;
    if (!connected) {
        socket->MarkFailedStep(ExchangeStep::kConnect);
    } else if (!socket->SendAssociateReq(false) || !socket->ReceiveAssociateRsp()) {
        socket->MarkFailedStep(ExchangeStep::kAssociation);
    } else if (unsigned char context = socket->FindAcceptedContext(printuid::kGrayscaleMeta,
                                                                   printuid::kImplicitLittleEndian);
               context == 0) {
        socket->MarkFailedStep(ExchangeStep::kAssociation);
        socket->SetErrorText(kErrorNoContext, "the printer refused the Basic Grayscale Print Management context");
    } else if (!socket->SendGetPrinterStatusCmnd() || !socket->ReadGetPrinterStatusRsp()) {
        socket->m_sFailedStep = "printer status";
    } else if (!socket->CreateFilmSession(&record->FilmBox)) {
        socket->m_sFailedStep = "film session";
    } else if (!socket->CreateFilmBox(&record->FilmBox)) {
        socket->m_sFailedStep = "film box";
    } else {
        socket->m_sImageBoxSOPClassUID = WideToAscii(record->FilmBox.sRefImageBoxSOPClassUID);
        socket->m_sImageBoxSOPInstanceUID = WideToAscii(record->FilmBox.sRefImageBoxSOPInstanceUID);
        bool goOn = true;
        if (!socket->SetImageBox(&record->ImageBox)) {
            socket->m_sFailedStep = "image box";
            notify(kPrintImageBoxFailed, 0);
        } else if (!socket->PrintAction()) {
            socket->m_sFailedStep = "print";
            goOn = false;
        }
        // The session is deleted also when the image box was refused, so
        // that the printer keeps nothing of the job.
        if (goOn && !socket->DeleteFilmSession()) {
            socket->m_sFailedStep = "delete";
            goOn = false;
        }
        if (goOn && record->bWaitForEventReport && !socket->ReadPrintEventReport()) {
            socket->m_sFailedStep = "event report";
            goOn = false;
        }
        if (goOn) {
            success = socket->SendReleaseReq() && socket->ReceiveReleaseRsp();
            if (!success)
                socket->MarkFailedStep(ExchangeStep::kRelease);
        }
    }
    // A refusal in words (a failure status, a failed printer) leaves the
    // association usable: release it rather than drop the connection.
    uint32_t result = 0;
    if (!success) {
        result = socket->GetLocalError() != 0 ? socket->GetLocalError() : socket->GetSystemError();
        if (result == 0)
            result = kErrorReceive;
    }
    if (result == kErrorFailureStatus || result == kErrorPrinterFailure) {
        const std::string words = socket->GetErrorDetail(), step = socket->m_sFailedStep;
        if (socket->SendReleaseReq())
            socket->ReceiveReleaseRsp();
        socket->SetErrorText(result, words);
        socket->m_sFailedStep = step;
    }
    if (connected)
        socket->Close();
    DicomTraceFormat("<%s> Print job over: %u", socket->m_sTraceName.c_str(), result);
    notify(kPrintJobDone, result);
    if (!record->ImageBox.sPixelFile.empty())
        std::remove(Utf16ToUtf8(record->ImageBox.sPixelFile).c_str());
    return 0;
}
