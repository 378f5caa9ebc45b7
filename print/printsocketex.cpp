// A job folder of prepared pages sent over one association (PS3.4 H): the
// film session from the first page, one film box per page with its image
// box, the optional identity Presentation LUT (PS3.4 H.4.9), and the page
// and end notifications.
#include "print/printsocketex.h"

#include <cstdio>
#include <filesystem>

#include "dicomdata/dicomitem.h"
#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "trace/dicomtrace.h"

using namespace zeldicom;

namespace {

using namespace printcmd;
// The result of a job that failed without a recorded error.
constexpr uint32_t kUnrecordedFailure = 2000;

std::u16string WithSlash(const std::u16string& folder)
{
    return folder.empty() || folder.back() == u'/' ? folder : folder + u"/";
}

CDicomItem* Child(CDicomItem& root, const char16_t* name)
{
    return static_cast<CDicomItem*>(root.GetChildItem(std::u16string(name)));
}

}

CDicomPrintSocketEx::CDicomPrintSocketEx(PRINT_WINDOW* window, const std::u16string& folder, int pageCount)
    : m_pWindow(window), m_sFolder(folder), m_nPageCount(pageCount)
{
    m_sTraceName = "DicomPrintSocketEx";
    std::error_code error;
    m_bIdentityLut = std::filesystem::exists(Utf16ToUtf8(GetFilePathForPresentationLut(folder)), error);
}

std::u16string CDicomPrintSocketEx::GetFilePathForPresentationLut(const std::u16string& folder)
{
    return WithSlash(folder) + u"IdentityPresentationLUT.dcm";
}

std::u16string CDicomPrintSocketEx::GetPagePath(const std::u16string& folder, int index)
{
    return WithSlash(folder) + AsciiToWide(FormatText("Page%04d.dcm", index + 1));
}

std::u16string CDicomPrintSocketEx::GetImageBoxPath(const std::u16string& folder, int index, int position)
{
    std::u16string page = GetPagePath(folder, index);
    if (position <= 1)
        return page;
    return page.substr(0, page.size() - 4) + AsciiToWide(FormatText("-%02d.dcm", position));
}

std::unique_ptr<CDicomItem> CDicomPrintSocketEx::LoadPage(int index)
{
    auto page = std::make_unique<CDicomItem>(u"Root");
    if (!page->LoadObject(GetPagePath(m_sFolder, index)))
        return nullptr;
    return page;
}

bool CDicomPrintSocketEx::OpenAssociation(CDicomItem* header)
{
    if (!header || !header->GetTagValue(0x0002, 0x0002, m_sMetaSOPClassUID)) {
        SetErrorText(kErrorBadArgument, "the first page names no SOP class in its meta information");
        return false;
    }
    const std::string meta = WideToAscii(m_sMetaSOPClassUID);
    AddPresentationContext(meta.c_str(), 1, printuid::kImplicitLittleEndian);
    if (m_bIdentityLut)
        AddPresentationContext(printuid::kPresentationLut, 1, printuid::kImplicitLittleEndian);
    if (!SendAssociateReq(false) || !ReceiveAssociateRsp())
        return false;
    unsigned char context = FindAcceptedContext(meta, printuid::kImplicitLittleEndian);
    if (context == 0) {
        SetErrorText(kErrorNoContext, "the printer refused the print management context");
        return false;
    }
    SetPresentationContext(context);
    return true;
}

bool CDicomPrintSocketEx::EncodeGroup(CDicomItem* data, int group, CDynBuffer& out)
{
    // The page's bytes are re-encoded rather than sent as they lie: the
    // printer decodes them by the negotiated transfer syntax (PS3.8 9.3.5),
    // whatever encoding the page file has.
    CDicomItem* groupItem = data ? data->GetGroupItem(group) : nullptr;
    if (!groupItem)
        return false;
    const bool explicitVR = IsExplicitVR();
    return groupItem->RecalcGroup(explicitVR, 0) != kWriteFailed &&
           groupItem->SaveGroup(explicitVR, CDynBuffer::WriteProc, &out) != kWriteFailed;
}

bool CDicomPrintSocketEx::SendGroupEncoded(CDicomItem* data, int group)
{
    CDynBuffer bytes;
    if (!EncodeGroup(data, group, bytes)) {
        SetErrorText(kErrorBadArgument, FormatText("the page's group %04X cannot be encoded", group));
        return false;
    }
    return SendData(bytes.GetData(), static_cast<int>(bytes.m_nSize)) == 1;
}

bool CDicomPrintSocketEx::ReadAnswer(uint16_t request)
{
    DICOM_CMND_MSG response;
    CDynBuffer data;
    return ReadResponse(request, response, data) == 1;
}

bool CDicomPrintSocketEx::CreateFilmSession(CDicomItem* data)
{
    m_sFilmSessionUID = WideToAscii(CDicomItem::GetUID());
    return SendCreateReqCmnd(printuid::kFilmSession, m_sFilmSessionUID) && SendGroupEncoded(data, 0x2000) &&
           ReadAnswer(kCreateRq);
}

bool CDicomPrintSocketEx::LoadIdentityPresentationLUTHeader(CDicomItem& root, std::string& sopClass,
                                                           std::string& sopInstance)
{
    CDicomItem* header = Child(root, u"Header");
    std::u16string classUid, instanceUid;
    if (!header || !header->GetTagValue(0x0002, 0x0002, classUid) ||
        !header->GetTagValue(0x0002, 0x0003, instanceUid))
        return false;
    sopClass = WideToAscii(classUid);
    sopInstance = WideToAscii(instanceUid);
    return EqualsNoCase(sopClass, std::string(printuid::kPresentationLut));
}

CDicomItem* CDicomPrintSocketEx::LoadIdentityPresentationLUTData(CDicomItem& root)
{
    CDicomItem* data = Child(root, u"Data");
    return data ? data->GetGroupItem(0x2050) : nullptr;
}

bool CDicomPrintSocketEx::CreateIdentityPresentationLUT(CDicomItem& group, const std::string& sopClass,
                                                        const std::string& sopInstance)
{
    CDynBuffer bytes;
    const bool explicitVR = IsExplicitVR();
    if (group.RecalcGroup(explicitVR, 0) == kWriteFailed ||
        group.SaveGroup(explicitVR, CDynBuffer::WriteProc, &bytes) == kWriteFailed)
        return false;
    if (!SendCreateReqCmnd(sopClass, sopInstance) ||
        !SendDataPdu(bytes.GetData(), static_cast<int>(bytes.m_nSize), 1, 0))
        return false;
    return ReadAnswer(kCreateRq);
}

std::string CDicomPrintSocketEx::LoadAndCreateIdentityPresentationLUT()
{
    CDicomItem root(u"Root");
    std::string sopClass, sopInstance;
    if (!root.LoadObject(GetFilePathForPresentationLut(m_sFolder)) ||
        !LoadIdentityPresentationLUTHeader(root, sopClass, sopInstance)) {
        DicomTraceFormat("<%s> IdentityPresentationLUT.dcm is not a Presentation LUT", m_sTraceName.c_str());
        return "";
    }
    CDicomItem* group = LoadIdentityPresentationLUTData(root);
    if (!group || !CreateIdentityPresentationLUT(*group, sopClass, sopInstance))
        return "";
    return sopInstance;
}

void CDicomPrintSocketEx::DeleteIdentityPresentationLUT(const std::string& sopInstance)
{
    if (!m_bIdentityLut || sopInstance.empty())
        return;
    if (SendDeleteReq(printuid::kPresentationLut, sopInstance))
        ReadAnswer(kDeleteRq);
}

bool CDicomPrintSocketEx::SendCreateFilmBoxAtrb(CDicomItem* data)
{
    // The film box refers to this session (PS3.4 H.4.2.2.1), whatever the page said.
    data->RemoveTag(0x2010, 0x0500);
    CDicomItem* sequence = data->InsertSequence(0x2010, 0x0500);
    CDicomItem* item = sequence ? sequence->InsertSequenceItem() : nullptr;
    if (!item || !item->AddTag(0x0008, 0x1150, AsciiToWide(printuid::kFilmSession), u"UI") ||
        !item->AddTag(0x0008, 0x1155, AsciiToWide(m_sFilmSessionUID), u"UI")) {
        SetErrorText(kErrorNoMemory, "the film box attributes cannot be built");
        return false;
    }
    CDynBuffer bytes;
    if (!EncodeGroup(data, 0x2010, bytes) || (m_bIdentityLut && data->GetGroupItem(0x2050) &&
                                              !EncodeGroup(data, 0x2050, bytes))) {
        SetErrorText(kErrorBadArgument, "the page's film box cannot be encoded");
        return false;
    }
    return SendDataPdu(bytes.GetData(), static_cast<int>(bytes.m_nSize), 1, 0) == 1;
}

bool CDicomPrintSocketEx::ReadCreateFilmBoxRsp()
{
    DICOM_CMND_MSG response;
    CDynBuffer data;
    if (!ReadResponse(kCreateRq, response, data))
        return false;
    CDicomFilmBox references;
    ReadImageBoxReferences(data, references);
    if (references.sRefImageBoxSOPClassUID.empty() || references.sRefImageBoxSOPInstanceUID.empty()) {
        SetErrorText(kErrorMalformedDataSet, "the film box response names no image box");
        return false;
    }
    // The items follow the image positions (PS3.4 H.4.2.2.1.2): the page's
    // own image goes into the first.
    m_aImageBoxes.clear();
    for (const auto& [sopClass, sopInstance] : references.aRefImageBoxes)
        m_aImageBoxes.emplace_back(WideToAscii(sopClass), WideToAscii(sopInstance));
    m_sImageBoxSOPClassUID = m_aImageBoxes.empty() ? "" : m_aImageBoxes[0].first;
    m_sImageBoxSOPInstanceUID = m_aImageBoxes.empty() ? "" : m_aImageBoxes[0].second;
    return true;
}

bool CDicomPrintSocketEx::CreateFilmBox(CDicomItem* data)
{
    m_sFilmBoxUID = WideToAscii(CDicomItem::GetUID());
    return SendCreateReqCmnd(printuid::kFilmBox, m_sFilmBoxUID) && SendCreateFilmBoxAtrb(data) &&
           ReadCreateFilmBoxRsp();
}

bool CDicomPrintSocketEx::SetImageBox(CDicomItem* data)
{
    return SendSetReqCmnd(m_sImageBoxSOPClassUID, m_sImageBoxSOPInstanceUID) && SendGroupEncoded(data, 0x2020) &&
           ReadAnswer(kSetRq);
}

bool CDicomPrintSocketEx::SetFurtherImageBoxes(int index)
{
    for (size_t position = 2; position <= m_aImageBoxes.size(); ++position) {
        CDicomItem box(u"Root");
        // A film of several images whose later positions have no file leaves them empty.
        if (!box.LoadObject(GetImageBoxPath(m_sFolder, index, static_cast<int>(position))))
            continue;
        CDicomItem* data = Child(box, u"Data");
        if (!data || !SendSetReqCmnd(m_aImageBoxes[position - 1].first, m_aImageBoxes[position - 1].second) ||
            !SendGroupEncoded(data, 0x2020) || !ReadAnswer(kSetRq))
            return false;
    }
    return true;
}

bool CDicomPrintSocketEx::PrintAction()
{
    return SendActionReqCmnd(printuid::kFilmBox, m_sFilmBoxUID, kNoDataSet, kPrintAction) && ReadAnswer(kActionRq);
}

bool CDicomPrintSocketEx::DeleteFilmBox()
{
    return SendDeleteReq(printuid::kFilmBox, m_sFilmBoxUID) && ReadAnswer(kDeleteRq);
}

bool CDicomPrintSocketEx::DeleteFilmSession()
{
    return SendDeleteReq(printuid::kFilmSession, m_sFilmSessionUID) && ReadAnswer(kDeleteRq);
}

void CDicomPrintSocketEx::Notify(uint32_t code, uint32_t page, uint32_t result)
{
    if (!m_pWindow || !*m_pWindow)
        return;
    PRINT_NOTIFICATION notification{this, code, page, result, m_sPrinterStatusInfo.c_str()};
    (*m_pWindow)(kPrintJobMessage, 0, &notification);
}

bool CDicomPrintSocketEx::Print()
{
    bool associated = false, sessionCreated = false, stopped = false;
    std::string lutInstance;
    const bool connected = Connect() != 0;
    if (!connected) {
        MarkFailedStep(ExchangeStep::kConnect);
        stopped = true;
    }
    for (int index = 0; connected && index < m_nPageCount; ++index) {
        std::unique_ptr<CDicomItem> page = LoadPage(index);
        if (!page)
            continue;  // a page that does not load is skipped
        CDicomItem* data = Child(*page, u"Data");
        CDicomItem* header = Child(*page, u"Header");
        if (!data || !header) {
            stopped = true;
            break;
        }
        if (!associated) {
            if (!OpenAssociation(header)) {
                MarkFailedStep(ExchangeStep::kAssociation);
                stopped = true;
                break;
            }
            associated = true;
            if (!SendGetPrinterStatusCmnd() || !ReadGetPrinterStatusRsp()) {
                m_sFailedStep = "printer status";
                if (GetLocalError() == kErrorPrinterFailure)
                    m_sPrinterStatusInfo = m_PrinterStatus.szStatusInfo;
                stopped = true;
                break;
            }
            if (!CreateFilmSession(data)) {
                m_sFailedStep = "film session";
                stopped = true;
                break;
            }
            sessionCreated = true;
            if (m_bIdentityLut)
                lutInstance = LoadAndCreateIdentityPresentationLUT();
        }
        if (!CreateFilmBox(data)) {
            m_sFailedStep = "film box";
            stopped = true;
            break;
        }
        Notify(kPrintPageCode, static_cast<uint32_t>(index + 1), 0);
        bool printed = SetImageBox(data) && SetFurtherImageBoxes(index);
        if (!printed)
            m_sFailedStep = "image box";
        else if (!(printed = PrintAction()))
            m_sFailedStep = "print";
        if (!DeleteFilmBox()) {
            m_sFailedStep = "delete film box";
            stopped = true;
            break;
        }
        if (!printed) {
            stopped = true;
            break;
        }
    }
    // The failure that stopped the job stays the job's error: the clean-up
    // below must not overwrite it.
    uint32_t local = GetLocalError(), system = GetSystemError();
    std::string detail = GetErrorDetail(), step = m_sFailedStep;
    // A connection that broke (nothing came, an abort, bytes that are no
    // PDU) carries no clean-up: every request would wait out its time-out.
    const bool broken = system != 0 || local == kErrorReceive || local == kErrorAbort ||
                        local == kErrorMalformedPdu || local == kErrorUnexpectedPdu || local == kErrorPdvKind;
    if (broken)
        associated = sessionCreated = false;
    if (sessionCreated) {
        DeleteIdentityPresentationLUT(lutInstance);
        bool deleted = DeleteFilmSession();
        if (!deleted && !stopped)
            m_sFailedStep = "delete film session";
        else if (deleted && !stopped && m_bWaitForEventReport && !ReadPrintEventReport()) {
            m_sFailedStep = "event report";
            if (GetLocalError() == kErrorPrinterFailure)
                m_sPrinterStatusInfo = m_PrinterStatus.szStatusInfo;
            deleted = false;
        }
        if (!deleted && !stopped) {
            stopped = true;
            local = GetLocalError();
            system = GetSystemError();
            detail = GetErrorDetail();
            step = m_sFailedStep;
        }
    }
    // A job counts as done when every page was printed and the release
    // answered: a host told "success" after a refused page would lose it.
    bool released = associated && SendReleaseReq() && ReceiveReleaseRsp();
    if (associated && !released && !stopped) {
        MarkFailedStep(ExchangeStep::kRelease);
        step = m_sFailedStep;
    }
    const bool success = released && !stopped;
    if (local != 0 || system != 0) {
        SetErrorText(local, detail);
        m_nSystemError = system;
        m_sFailedStep = step;
    }
    if (connected)
        Close();
    return success;
}

unsigned long CDicomPrintSocketEx::ThreadProc(CDicomPrintSocketEx* socket)
{
    if (!socket)
        return 0;
    std::unique_ptr<CDicomPrintSocketEx> owned(socket);
    const bool success = owned->Print();
    if (owned->m_SaveProc)
        owned->m_SaveProc(owned.get());
    uint32_t result = 0;
    if (!success) {
        result = owned->GetLocalError() != 0    ? owned->GetLocalError()
                 : owned->GetSystemError() != 0 ? owned->GetSystemError()
                                                : kUnrecordedFailure;
    } else if (owned->m_SaveProc) {
        owned->m_SaveProc(owned.get());
    }
    owned->Notify(kPrintEndCode, 0, result);
    return 0;
}
