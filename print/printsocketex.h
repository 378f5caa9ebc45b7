#pragma once
// A print job of prepared pages (PS3.4 H): a job folder of Page0001.dcm,
// Page0002.dcm, ... whose data sets hold the film session (2000), film box
// (2010), image box (2020) and Presentation LUT reference (2050) groups,
// sent over one association: one film session, then per page a film box,
// its image box, print and delete. An IdentityPresentationLUT.dcm in the
// folder is created on the printer for the session and deleted at the end.
// The host runs ThreadProc on a worker thread of its own and is told of
// each page and of the end through its callback, synchronously.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "print/printsocket.h"

class CDicomItem;
class CDicomPrintSocketEx;

constexpr uint32_t kPrintJobMessage = 1101;  // 0x044D
constexpr uint32_t kPrintPageCode = 77;      // a page is about to be printed
constexpr uint32_t kPrintEndCode = 79;       // the job is over

// The record handed with every notification (its address is the second parameter).
struct PRINT_NOTIFICATION {
    CDicomPrintSocketEx* pSocket;
    uint32_t nCode;    // 77 or 79
    uint32_t nPage;    // from 1; 0 with 79
    uint32_t nResult;  // 79: 0 on success, else the local, system error, else 2000
    const char* pszPrinterStatusInfo;  // 79: (2110,0020) of a printer that failed, else empty
};

// The host's window: message number, first parameter (0), the record.
using PRINT_WINDOW = std::function<void(uint32_t message, uint32_t first, PRINT_NOTIFICATION* notification)>;

class CDicomPrintSocketEx : public CPrintClient {
public:
    CDicomPrintSocketEx(PRINT_WINDOW* window, const std::u16string& folder, int pageCount);
    ~CDicomPrintSocketEx() override = default;

    // Run after the job, and once more after a successful one.
    void SetSaveProc(std::function<void(CDicomPrintSocketEx*)> save) { m_SaveProc = std::move(save); }
    std::u16string GetPath() const { return m_sFolder; }
    PRINT_WINDOW* GetWnd() const { return m_pWindow; }
    // After the session is deleted, read one N-EVENT-REPORT from the printer.
    void SetWaitForEventReport(bool wait) { m_bWaitForEventReport = wait; }
    // The printer status info of a printer that reported FAILURE.
    const std::string& GetPrinterStatusInfo() const { return m_sPrinterStatusInfo; }

    // The worker-thread entry: Print, then the object is deleted. Returns 0.
    static unsigned long ThreadProc(CDicomPrintSocketEx* socket);
    static std::u16string GetFilePathForPresentationLut(const std::u16string& folder);
    // The page file of index (from 0): folder/Page%04d.dcm of index + 1.
    static std::u16string GetPagePath(const std::u16string& folder, int index);
    // Image box position (from 1) of page index: the page file itself for
    // 1, Page%04d-%02d.dcm (group 2020 alone) for a film of several images.
    static std::u16string GetImageBoxPath(const std::u16string& folder, int index, int position);

protected:
    bool Print();
    std::unique_ptr<CDicomItem> LoadPage(int index);
    bool OpenAssociation(CDicomItem* header);
    bool CreateFilmSession(CDicomItem* data);
    bool CreateFilmBox(CDicomItem* data);
    bool SendCreateFilmBoxAtrb(CDicomItem* data);
    bool ReadCreateFilmBoxRsp();
    bool SetImageBox(CDicomItem* data);
    // The image boxes of positions 2 and up, from their files (page index).
    bool SetFurtherImageBoxes(int index);
    bool PrintAction();
    bool DeleteFilmBox();
    bool DeleteFilmSession();
    // The instance UID of the LUT created on the printer, empty when none was.
    std::string LoadAndCreateIdentityPresentationLUT();
    static bool LoadIdentityPresentationLUTHeader(CDicomItem& root, std::string& sopClass, std::string& sopInstance);
    static CDicomItem* LoadIdentityPresentationLUTData(CDicomItem& root);
    bool CreateIdentityPresentationLUT(CDicomItem& group, const std::string& sopClass, const std::string& sopInstance);
    void DeleteIdentityPresentationLUT(const std::string& sopInstance);
    // A group of a page, re-encoded in the negotiated transfer syntax.
    bool EncodeGroup(CDicomItem* data, int group, CDynBuffer& out);
    bool SendGroupEncoded(CDicomItem* data, int group);
    bool ReadAnswer(uint16_t request);
    void Notify(uint32_t code, uint32_t page, uint32_t result);

    PRINT_WINDOW* m_pWindow;
    std::u16string m_sFolder;
    std::u16string m_sMetaSOPClassUID;
    std::string m_sFilmSessionUID;
    std::string m_sFilmBoxUID;
    std::string m_sImageBoxSOPClassUID;
    std::string m_sImageBoxSOPInstanceUID;
    // Every image box of the current film box, in the order of the response.
    std::vector<std::pair<std::string, std::string>> m_aImageBoxes;
    std::string m_sPrinterStatusInfo;
    bool m_bIdentityLut;
    int m_nPageCount;
    bool m_bWaitForEventReport = false;
    std::function<void(CDicomPrintSocketEx*)> m_SaveProc;
};
