// Storage (C-STORE, PS3.7 9.1.1 and 9.3.1): the request command set, the
// data set sent straight from its file, and the response.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "network/usersocket.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

namespace {
constexpr uint16_t kStoreRq = 0x0001;
constexpr uint16_t kMediumPriority = 0x0000;
constexpr uint16_t kDataSetPresent = 0x0000;
// The part of the file mapped at once: big enough to send whole PDUs from
// each view, small enough to keep the resident memory of a large file low.
constexpr int64_t kWindow = 8 << 20;
}

int CUserSocket::SendStoreReqCmnd(const std::string& sopClass, const std::string& sopInstance)
{
    return SendCommand({{0x0002, CommandElement::kUid, sopClass},
                        {0x0100, CommandElement::kUs, "", kStoreRq},
                        {0x0110, CommandElement::kNextMessageId},
                        {0x0700, CommandElement::kUs, "", kMediumPriority},
                        {0x0800, CommandElement::kUs, "", kDataSetPresent},
                        {0x1000, CommandElement::kUid, sopInstance}});
}

int CUserSocket::SendDataFromFile(const std::u16string& path, int64_t length, int64_t offset)
{
    std::string name = Utf16ToUtf8(path);
    int fd = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        DicomTraceFormat("<%s> File '%s' open error", m_sTraceName.c_str(), name.c_str());
        SetError(kErrorFileOpen, 0, FormatText("cannot open '%s'", name.c_str()));
        return 0;
    }
    struct stat info {};
    if (fstat(fd, &info) != 0 || length < 0 || offset < 0 || offset > info.st_size || length > info.st_size - offset) {
        close(fd);
        SetError(kErrorFileMap, 0, FormatText("'%s' is shorter than the data set to send", name.c_str()));
        return 0;
    }
    if (length == 0) {
        close(fd);
        return SendDataPdu("", 0, 1, 0);
    }
    const int64_t page = sysconf(_SC_PAGESIZE);
    int64_t position = offset, end = offset + length;
    int result = 1;
    while (result == 1 && position < end) {
        int64_t base = position / page * page;
        int64_t viewEnd = std::min(end, base + kWindow);
        size_t viewSize = static_cast<size_t>(viewEnd - base);
        void* view = mmap(nullptr, viewSize, PROT_READ, MAP_SHARED, fd, base);
        if (view == MAP_FAILED) {
            DicomTraceFormat("<%s> File '%s' mapping error", m_sTraceName.c_str(), name.c_str());
            SetError(kErrorFileMap, 0, FormatText("cannot map '%s'", name.c_str()));
            result = 0;
            break;
        }
        madvise(view, viewSize, MADV_SEQUENTIAL);
        const auto* bytes = static_cast<const unsigned char*>(view);
        result = SendDataPdus(bytes + (position - base), viewEnd - position, viewEnd == end);
        position = viewEnd;
        munmap(view, viewSize);
    }
    close(fd);
    return result;
}

int CUserSocket::ReceiveStoreRsp(DICOM_CMND_MSG& response)
{
    CDynBuffer data;
    if (!AwaitResponse(kStoreRq, response, data))
        return 0;
    if (response.wMessageIDBeingRespondedTo != (m_nMessageID & 0xFFFF)) {
        SetError(kErrorUnexpectedCommand, 0,
                 FormatText("the C-STORE response answers message %u, not %u", response.wMessageIDBeingRespondedTo,
                            m_nMessageID & 0xFFFF));
        return 0;
    }
    return 1;
}

unsigned char CUserSocket::FindAcceptedContext(const std::string& abstractSyntax,
                                               const std::string& transferSyntax) const
{
    for (int i = 0; i < m_AssociateData.GetPresContextCount(); ++i) {
        const CPresentationContext* context = m_AssociateData.GetPresContext(i);
        if (context->m_ucResult == 0 && context->m_sAbstractSyntax == abstractSyntax &&
            context->m_sAcceptedTransferSyntax == transferSyntax)
            return context->m_ucPresContextID;
    }
    return 0;
}

std::string CUserSocket::GetStoreStatusText(uint16_t status)
{
    if (status == 0x0000)
        return "success";
    if (status == 0xB000 || status == 0xB007 || status == 0xB006)
        return FormatText("warning 0x%04X: %s", status,
                          status == 0xB000   ? "coercion of data elements"
                          : status == 0xB006 ? "elements discarded"
                                             : "data set does not match SOP class");
    if ((status & 0xFF00) == 0xA700)
        return FormatText("refused 0x%04X: out of resources", status);
    if ((status & 0xFF00) == 0xA900)
        return FormatText("failed 0x%04X: data set does not match SOP class", status);
    if ((status & 0xF000) == 0xC000)
        return FormatText("failed 0x%04X: cannot understand", status);
    switch (status) {
    case 0x0122: return "refused 0x0122: SOP class not supported";
    case 0x0124: return "refused 0x0124: not authorized";
    case 0x0211: return "failed 0x0211: unrecognized operation";
    case 0x0212: return "failed 0x0212: mistyped argument";
    case 0x0117: return "failed 0x0117: invalid SOP instance";
    case 0x0110: return "failed 0x0110: processing failure";
    case 0x0111: return "failed 0x0111: duplicate SOP instance";
    default: return FormatText("status 0x%04X (%s)", status, GetClearStatus(status).c_str());
    }
}
