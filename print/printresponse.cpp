// The responses every print client reads (PS3.7 10.1, PS3.4 H.4): each is
// checked to answer the request sent last, by command field and message ID,
// and its status judged by the DIMSE status table (a warning lets the job
// go on); the printer's status from an N-GET or an N-EVENT-REPORT.
#include <cstring>

#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "print/printsocket.h"
#include "trace/dicomtrace.h"
#include "trace/dimse_status.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

namespace {

using namespace printcmd;

void CopyText(const TAG_HEADER* element, char* out, int capacity) { DICOMINFO::GetStringTagValue(element, out, capacity); }

void PrinterStatusTrampoline(TAG_HEADER* element, void* status)
{
    CPrintClient::PrinterStatusProc(element, static_cast<PRINTER_STATUS*>(status));
}

}

void CPrintClient::PrinterStatusProc(TAG_HEADER* element, PRINTER_STATUS* status)
{
    if (!element || !status || element->wGroup != 0x2110)
        return;
    if (element->wElement == 0x0010)
        CopyText(element, status->szStatus, sizeof status->szStatus);
    else if (element->wElement == 0x0020)
        CopyText(element, status->szStatusInfo, sizeof status->szStatusInfo);
    else if (element->wElement == 0x0030)
        CopyText(element, status->szPrinterName, sizeof status->szPrinterName);
}

void CPrintClient::ReadImageBoxReferences(const CDynBuffer& data, CDicomFilmBox& filmBox)
{
    DICOMINFO::ReadTags(
        data.GetData(), static_cast<int>(data.m_nSize),
        [](TAG_HEADER* element, void* box) { CDicomFilmBox::ReadResponseProc(element, static_cast<CDicomFilmBox*>(box)); },
        &filmBox);
}

int CPrintClient::ReadResponse(uint16_t requestCommand, DICOM_CMND_MSG& response, CDynBuffer& data)
{
    if (!AwaitResponse(requestCommand, response, data))
        return 0;
    const std::string name = GetClearMessage(requestCommand | 0x8000);
    // PS3.7 9.3.1: a response names the request it answers; one that
    // answers another message is not this request's outcome.
    if (response.wMessageIDBeingRespondedTo != (m_nMessageID & 0xFFFF)) {
        DicomTraceFormat("<%s> %s answers message %u, not %u", m_sTraceName.c_str(), name.c_str(),
                         response.wMessageIDBeingRespondedTo, m_nMessageID & 0xFFFF);
        SetErrorText(kErrorUnexpectedCommand,
                     FormatText("the %s answers message %u, not %u", name.c_str(), response.wMessageIDBeingRespondedTo,
                                m_nMessageID & 0xFFFF));
        return 0;
    }
    if (response.wStatus == 0x0000)
        return 1;
    // PS3.7 C, PS3.4 H.4: warnings mean the object was created, set or
    // printed, and the printer says what it changed.
    const std::string words = CUserSocket::GetNStatusText(response.wStatus);
    if (ClassifyDimseStatus(requestCommand, response.wStatus) == StatusClass::kWarning) {
        if (requestCommand == kGetRq)
            DicomTraceFormat("<%s> N-GET-RSP Warning: Attribute list error", m_sTraceName.c_str());
        else
            DicomTraceFormat("<%s> %s Warning 0x%04X: %s", m_sTraceName.c_str(), name.c_str(), response.wStatus,
                             words.c_str());
        m_aWarnings.push_back(FormatText("%s warning 0x%04X: %s", name.c_str(), response.wStatus, words.c_str()));
        return 1;
    }
    if (requestCommand == kGetRq)
        DicomTraceFormat("<%s> N-GET-RSP status error 0x%x ", m_sTraceName.c_str(), response.wStatus);
    else
        DicomTraceFormat("<%s> %s status error 0x%X ", m_sTraceName.c_str(), name.c_str(), response.wStatus);
    SetErrorText(kErrorFailureStatus, FormatText("%s status 0x%04X: %s", name.c_str(), response.wStatus, words.c_str()));
    return 0;
}

int CPrintClient::SendGetPrinterStatusCmnd()
{
    // Each tag's group in the low half: its little-endian bytes are the
    // attribute tag as it travels (10 21 10 00 10 21 20 00).
    const uint32_t attributes[] = {0x00102110u, 0x00202110u};
    return SendGetReq(printuid::kPrinter, printuid::kPrinterInstance, 2, attributes);
}

int CPrintClient::ReadGetPrinterStatusRsp()
{
    DICOM_CMND_MSG response;
    CDynBuffer data;
    if (!ReadResponse(kGetRq, response, data))
        return 0;
    m_PrinterStatus = PRINTER_STATUS();
    DICOMINFO::ReadTags(data.GetData(), static_cast<int>(data.m_nSize), PrinterStatusTrampoline, &m_PrinterStatus);
    DicomTraceFormat("<%s> Printer Status: %s (%s)", m_sTraceName.c_str(), m_PrinterStatus.szStatus,
                     m_PrinterStatus.szStatusInfo);
    if (std::strcmp(m_PrinterStatus.szStatus, "FAILURE") == 0) {
        SetErrorText(kErrorPrinterFailure, FormatText("the printer reports FAILURE (%s)", m_PrinterStatus.szStatusInfo));
        return 0;
    }
    return 1;
}

int CPrintClient::ReadPrintEventReport()
{
    DICOM_CMND_MSG message;
    CDynBuffer data;
    if (!ReceiveMessage(message, data))
        return 0;
    if (message.wCommandField != kEventReportRq) {
        DicomTraceFormat("<%s> ReadPrintEventReport(): Bad command 0x%X", m_sTraceName.c_str(), message.wCommandField);
        SetErrorText(kErrorUnexpectedCommand,
                     FormatText("the printer sent command 0x%04X (%s) instead of an N-EVENT-REPORT",
                                message.wCommandField, GetClearMessage(message.wCommandField).c_str()));
        return 0;
    }
    PRINTER_STATUS status;
    DICOMINFO::ReadTags(data.GetData(), static_cast<int>(data.m_nSize), PrinterStatusTrampoline, &status);
    DicomTraceFormat("<%s> Printer Status: %s (%s)", m_sTraceName.c_str(), status.szStatus, status.szStatusInfo);
    if (!SendEventReportRspCmnd(message.szAffectedSOPClassUID, message.szAffectedSOPInstanceUID, message.wMessageID,
                                kNoDataSet, message.wEventTypeID))
        return 0;
    // A report without printer status (a print job's, PS3.4 H.4.5) leaves
    // the status learnt from the N-GET as it was.
    if (status.szStatus[0])
        m_PrinterStatus = status;
    if (std::strcmp(status.szStatus, "FAILURE") == 0) {
        SetErrorText(kErrorPrinterFailure, FormatText("the printer reports FAILURE (%s)", status.szStatusInfo));
        return 0;
    }
    return 1;
}
