#pragma once
// Basic Grayscale Print Management (PS3.4 H) as the SCU: one image on one
// film. The host fills a DICOM_PRINT_PARAM, runs ThreadProc on a worker
// thread of its own and learns the outcome through the record's callback.
//
// Files: printsocket.cpp (the job and its steps), printresponse.cpp (the
// responses every print client reads: command, message ID, status and
// the printer status), filmbox.cpp (the film box and image box data sets).
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "network/usersocket.h"
#include "print/filmbox.h"

class CDicomPrintSocket;

// The notifications of a print job: the message number, then its two parameters.
constexpr uint32_t kPrintMessage = 1106;       // 0x0452
constexpr uint32_t kPrintImageBoxFailed = 9998;  // first parameter: the image box was not set
constexpr uint32_t kPrintJobDone = 9999;         // first parameter: the job is over, second the result

// The notification channel: message, first and second parameter, and the
// socket of the job (its printer status, warnings and error words; valid
// during the call only).
using PRINT_NOTIFY =
    std::function<void(uint32_t message, uint32_t first, uint32_t second, const CDicomPrintSocket& socket)>;

struct DICOM_PRINT_PARAM {
    PRINT_NOTIFY notify;  // none: no notification
    char szHost[64] = {};
    unsigned nPort = 104;
    char szCalledAETitle[17] = {};
    char szCallingAETitle[17] = {};
    CDicomFilmBox FilmBox;    // its number of copies also goes into the film session
    CDicomImageBox ImageBox;  // the image, with the path of its pixel file (deleted after the job)
    int bWaitForEventReport = 0;  // after the session is deleted, read one N-EVENT-REPORT
    char szFilmSessionUID[65] = {};
};

// Printer Status (2110,0010), Printer Status Info (2110,0020), Printer Name (2110,0030).
struct PRINTER_STATUS {
    char szStatus[17] = {};
    char szStatusInfo[17] = {};
    char szPrinterName[65] = {};
};

// The print SOP classes (PS3.4 H.5).
namespace printuid {
constexpr char kGrayscaleMeta[] = "1.2.840.10008.5.1.1.9";
constexpr char kFilmSession[] = "1.2.840.10008.5.1.1.1";
constexpr char kFilmBox[] = "1.2.840.10008.5.1.1.2";
constexpr char kPrinter[] = "1.2.840.10008.5.1.1.16";
constexpr char kPrinterInstance[] = "1.2.840.10008.5.1.1.17";
constexpr char kPresentationLut[] = "1.2.840.10008.5.1.1.23";
constexpr char kImplicitLittleEndian[] = "1.2.840.10008.1.2";
}

// The DIMSE-N requests of a print job (PS3.7 E.1) and what their commands carry.
namespace printcmd {
constexpr uint16_t kEventReportRq = 0x0100;
constexpr uint16_t kGetRq = 0x0110;
constexpr uint16_t kSetRq = 0x0120;
constexpr uint16_t kActionRq = 0x0130;
constexpr uint16_t kCreateRq = 0x0140;
constexpr uint16_t kDeleteRq = 0x0150;
constexpr uint16_t kNoDataSet = 0x0101;
constexpr uint16_t kPrintAction = 1;  // Action Type ID of Print (PS3.4 H.4.1.1.4, H.4.2.2.4)
}

// What the print clients share: reading a DIMSE-N response to the request
// sent last, the printer status, and the warnings a printer reported.
class CPrintClient : public CUserSocket {
public:
    // DICOMINFO::ReadTags callback filling a PRINTER_STATUS.
    static void PrinterStatusProc(TAG_HEADER* element, PRINTER_STATUS* status);
    const PRINTER_STATUS& GetPrinterStatus() const { return m_PrinterStatus; }
    // One line per warning status a printer answered ("N-SET: 0xB604 ...").
    const std::vector<std::string>& GetWarnings() const { return m_aWarnings; }

protected:
    // Receives the response to the request sent last: 1 when it answers
    // that request (command field and message ID) with success or a
    // warning status; else 0 with local error 747 (another command or
    // message) or 715 (a failure status).
    int ReadResponse(uint16_t requestCommand, DICOM_CMND_MSG& response, CDynBuffer& data);
    // The N-GET of Printer Status and Printer Status Info.
    int SendGetPrinterStatusCmnd();
    // Its response: 0 with local error 748 when the printer reports FAILURE.
    int ReadGetPrinterStatusRsp();
    // One N-EVENT-REPORT from the printer, answered; 0 with 748 on FAILURE.
    int ReadPrintEventReport();
    // The Referenced Image Box Sequence of a film box N-CREATE response into filmBox.
    static void ReadImageBoxReferences(const CDynBuffer& data, CDicomFilmBox& filmBox);

    PRINTER_STATUS m_PrinterStatus;
    std::vector<std::string> m_aWarnings;
};

class CDicomPrintSocket : public CPrintClient {
public:
    explicit CDicomPrintSocket(DICOM_PRINT_PARAM* param);
    ~CDicomPrintSocket() override = default;

    // The worker-thread entry: the whole job, the notifications, then the
    // record and the pixel file are deleted. Returns 0.
    static unsigned long ThreadProc(DICOM_PRINT_PARAM* param);

    using CPrintClient::ReadGetPrinterStatusRsp;
    using CPrintClient::ReadPrintEventReport;
    using CPrintClient::SendGetPrinterStatusCmnd;
    int CreateFilmSession(CDicomFilmBox* filmBox);
    // Index -1 (or a null label, memory 0 or less) leaves the attribute out.
    int SendCreateSessionAtrb(int copies, int priority, int medium, int destination, const char* label,
                              int memoryAllocation);
    int ReadCreateFilmSessionRsp();
    // The film session data set (group 2000, group length in front); false
    // for an index outside its list.
    static bool FillSessionAtrb(CDynBuffer& buffer, int copies, int priority, int medium, int destination,
                                const char* label, int memoryAllocation);
    // The value lists the session's indexes select from (PS3.3 C.13.1); null off the list.
    static const char* PriorityText(int index);
    static const char* MediumText(int index);
    static const char* DestinationText(int index);
    int CreateFilmBox(CDicomFilmBox* filmBox);
    int SendCreateFilmBoxAtrb(CDicomFilmBox* filmBox);
    int ReadCreateFilmBoxRsp(CDicomFilmBox* filmBox);
    int SetImageBox(CDicomImageBox* imageBox);
    int SendSetImageBoxAtrb(CDicomImageBox* imageBox);
    int ReadSetImageBoxRsp();
    int PrintAction();
    int ReadPrintActionRsp();
    int DeleteFilmSession();
    int ReadDeleteFilmSessionRsp();

    std::string m_sFilmSessionUID;
    std::string m_sFilmBoxUID;  // the session UID followed by ".1"
    std::string m_sImageBoxSOPClassUID;
    std::string m_sImageBoxSOPInstanceUID;
};
