// Storage (C-STORE, PS3.7 9.1.1 and 9.3.1): the request command set, the
// data set sent straight from its file, the response, and whole batches of
// files with their presentation contexts and on-the-fly conversion.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <new>
#include <set>
#include <utility>

#include "dicomdata/deflate.h"
#include "dicomdata/dicomitem.h"
#include "imageinfo/transfersyntax.h"
#include "network/dataset_codec.h"
#include "network/usersocket.h"
#include "platform/datainmemory.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "trace/dimse_status.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

namespace {
constexpr uint16_t kStoreRq = 0x0001;
constexpr uint16_t kMediumPriority = 0x0000;
constexpr uint16_t kDataSetPresent = 0x0000;
constexpr int64_t kReadInOneCall = 1 << 20;
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
    if (length <= kReadInOneCall) {
        // A small data set is read in one call and sent from memory: one
        // send per PDU instead of a header, a sendfile and the SIGPIPE mask
        // around it.
        std::unique_ptr<unsigned char[]> bytes(new (std::nothrow) unsigned char[static_cast<size_t>(length)]);
        if (bytes && pread(fd, bytes.get(), static_cast<size_t>(length), offset) == length) {
            close(fd);
            return SendDataPdus(bytes.get(), length, true);
        }
    }
    int result = SendDataPdusFromFile(fd, offset, length, true);
    close(fd);
    return result;
}

int CUserSocket::ReceiveStoreRsp(DICOM_CMND_MSG& response)
{
    CDynBuffer data;
    return AwaitResponse(kStoreRq, response, data);
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
    // "refused: out of resources" is printed "refused 0xA701: out of resources".
    const DimseStatus* row = FindDimseStatus(kStoreRq, status);
    if (!row || row->request != kStoreRq)
        return FormatText("status 0x%04X (%s)", status, GetClearStatus(status).c_str());
    const std::string words = row->words;
    const size_t colon = words.find(": ");
    if (colon == std::string::npos)
        return words;
    return FormatText("%s 0x%04X: %s", words.substr(0, colon).c_str(), status, words.substr(colon + 2).c_str());
}

// --- a batch of files (Do_CSTORE_Request)

namespace {

constexpr char kImplicitLE[] = "1.2.840.10008.1.2";
constexpr char kExplicitLE[] = "1.2.840.10008.1.2.1";
constexpr char kDeflatedLE[] = "1.2.840.10008.1.2.1.99";
constexpr char kMediaDirectory[] = "1.2.840.10008.1.3.10";
// Odd context IDs 1 to 255 (PS3.8 9.3.2.2).
constexpr size_t kMaxContexts = 128;

// What reading a file found: enough to propose its contexts and send it.
struct StoreFile {
    std::u16string path;
    std::string sopClass, sopInstance;
    std::string fileSyntax;
    // Transfer syntaxes it may go in, preferred first.
    std::vector<std::string> syntaxes;
    // Its data set bytes can go out as they lie in the file when its own
    // syntax is accepted (not for a bare or deflated data set, which are
    // encoded again from the element tree).
    bool sendsAsItLies = false;
    int64_t dataOffset = 0, dataLength = 0;
};

std::string Text(const CDicomItem* node, int group, int element)
{
    std::u16string value;
    if (!node || !node->GetTagValue(group, element, value))
        return {};
    std::string text = Utf16ToUtf8(Trim(value));
    while (!text.empty() && text.back() == '\0')
        text.pop_back();
    return text;
}

// A UID's name and the UID, or the UID alone when it has no name here.
std::string UidWords(const std::string& uid)
{
    if (const zeldicom::TransferSyntaxInfo* syntax = zeldicom::FindTransferSyntax(uid))
        return FormatText("%s (%s)", syntax->name, uid.c_str());
    std::string name = GetClearUID(uid);
    return name.rfind("Unknown", 0) == 0 ? uid : FormatText("%s (%s)", name.c_str(), uid.c_str());
}

// Reads the whole file (so that a truncated or damaged one is found before
// anything is sent): true when it is an instance to send; otherwise the
// outcome says why not.
bool ReadStoreFile(const std::u16string& path, StoreFile& file, STORE_OUTCOME& outcome)
{
    outcome.path = file.path = path;
    CDicomItem root(u"Object");
    if (!root.LoadObject(path)) {
        const CLastError& error = root.GetLastError();
        outcome.result = error.GetCode() == CLastError::kNotDicom ? STORE_OUTCOME::kSkipped : STORE_OUTCOME::kFailed;
        outcome.reason = error.GetCode() == CLastError::kNotDicom ? "not a DICOM file" : error.GetText();
        return false;
    }
    const auto* header = static_cast<const CDicomItem*>(root.GetChildItem(std::u16string(u"Header")));
    const auto* data = static_cast<const CDicomItem*>(root.GetChildItem(std::u16string(u"Data")));
    // PS3.4 B.2: the receiver checks the command against the data set, so
    // its own SOP Class and Instance UIDs are the ones to name.
    file.sopClass = Text(data, 0x0008, 0x0016);
    file.sopInstance = Text(data, 0x0008, 0x0018);
    if (file.sopClass.empty())
        file.sopClass = Text(header, 0x0002, 0x0002);
    if (file.sopInstance.empty())
        file.sopInstance = Text(header, 0x0002, 0x0003);
    outcome.sopClass = file.sopClass;
    outcome.sopInstance = file.sopInstance;
    if (file.sopClass == kMediaDirectory || Text(header, 0x0002, 0x0002) == kMediaDirectory) {
        outcome.result = STORE_OUTCOME::kSkipped;
        outcome.reason = "a DICOMDIR (a media directory is not an instance to store)";
        return false;
    }
    if (file.sopClass.empty() || file.sopInstance.empty()) {
        outcome.result = STORE_OUTCOME::kFailed;
        outcome.reason = "no SOP Class UID (0008,0016) or SOP Instance UID (0008,0018), "
                         "in the data set or the file meta information";
        return false;
    }
    // No file meta information: the data set starts the file.
    bool bare = root.GetDataSetOffset() == 0;
    std::string syntax = Text(header, 0x0002, 0x0010);
    bool explicitVR = root.IsDataSetExplicitVR();
    if (bare || syntax == kImplicitLE || syntax == kExplicitLE) {
        // The encoding the data set carries, which a few writers label wrongly.
        file.fileSyntax = explicitVR ? kExplicitLE : kImplicitLE;
        file.sendsAsItLies = !bare;
        // Its own encoding first; a bare data set implicit VR little endian
        // first, the default every SCP accepts (PS3.5 10.1).
        if (bare || !explicitVR)
            file.syntaxes = {kImplicitLE, kExplicitLE};
        else
            file.syntaxes = {kExplicitLE, kImplicitLE};
    } else if (syntax == kDeflatedLE) {
        file.fileSyntax = syntax;
        file.syntaxes = {kDeflatedLE, kExplicitLE, kImplicitLE};
    } else {
        // Compressed (or unknown) transfer syntaxes go as they are.
        file.fileSyntax = syntax;
        file.syntaxes = {syntax};
        file.sendsAsItLies = true;
    }
    file.dataOffset = root.GetDataSetOffset();
    file.dataLength = static_cast<int64_t>(root.m_pFileImage->GetSize()) - file.dataOffset;
    outcome.fileSyntax = file.fileSyntax;
    return true;
}

// A writer callback that sends what the encoder hands it as the data PDVs
// of one message: small pieces are gathered into full fragments, large
// values go out from where they lie (the mapped file's from the page cache).
// Finish() sends the rest as the last fragment.
class DataSetStream {
public:
    DataSetStream(CUserSocket& socket, const CDataInMemory* image)
        : m_socket(socket), m_image(image && image->IsMapped() ? image : nullptr),
          m_fragment(std::max<uint32_t>(socket.GetMaxSendFragment(), 1))
    {
        m_pending.reserve(m_fragment);
    }
    ~DataSetStream()
    {
        if (m_file >= 0)
            close(m_file);
    }
    DataSetStream(const DataSetStream&) = delete;
    DataSetStream& operator=(const DataSetStream&) = delete;
    static uint32_t WriteProc(const void* bytes, uint32_t count, void* context)
    {
        auto* stream = static_cast<DataSetStream*>(context);
        return stream->Write(static_cast<const unsigned char*>(bytes), count) ? count : 0xFFFFFFFFu;
    }
    bool Finish() { return m_socket.SendDataPdu(m_pending.data(), static_cast<int>(m_pending.size()), 1, 0) == 1; }
    int64_t Total() const { return m_total; }
    bool SendFailed() const { return m_sendFailed; }

private:
    bool Write(const unsigned char* bytes, uint64_t count)
    {
        m_total += static_cast<int64_t>(count);
        // A full fragment waits until more comes: the last one must carry
        // the last-fragment bit, and only Finish knows which one that is.
        while (count > 0) {
            if (m_pending.size() == m_fragment && !Flush())
                return false;
            if (m_pending.empty() && count > m_fragment) {
                uint64_t direct = (count - 1) / m_fragment * m_fragment;
                if (!SendDirect(bytes, direct))
                    return Failed();
                bytes += direct;
                count -= direct;
                continue;
            }
            size_t take = static_cast<size_t>(std::min<uint64_t>(count, m_fragment - m_pending.size()));
            m_pending.insert(m_pending.end(), bytes, bytes + take);
            bytes += take;
            count -= take;
        }
        return true;
    }
    // Whole fragments from where they lie: a run inside the mapped file goes
    // from the page cache (neither faulted in here nor copied), anything
    // else from memory.
    bool SendDirect(const unsigned char* bytes, uint64_t count)
    {
        const unsigned char* base = m_image ? m_image->GetData() : nullptr;
        if (base && bytes >= base && count <= m_image->GetSize() &&
            static_cast<uint64_t>(bytes - base) <= m_image->GetSize() - count) {
            if (m_file < 0)
                m_file = m_image->OpenSameFile();
            if (m_file >= 0)
                return m_socket.SendDataPdusFromFile(m_file, bytes - base, static_cast<int64_t>(count), false) == 1;
        }
        return m_socket.SendDataPdus(bytes, static_cast<int64_t>(count), false) == 1;
    }
    bool Flush()
    {
        if (m_socket.SendDataPdus(m_pending.data(), static_cast<int64_t>(m_pending.size()), false) != 1)
            return Failed();
        m_pending.clear();
        return true;
    }
    bool Failed()
    {
        m_sendFailed = true;
        return false;
    }

    CUserSocket& m_socket;
    const CDataInMemory* m_image;
    const uint32_t m_fragment;
    int m_file = -1;  // the mapped file, opened again for sendfile when first needed
    std::vector<unsigned char> m_pending;
    int64_t m_total = 0;
    bool m_sendFailed = false;
};

// Counts what the encoder would write, so that a data set that cannot be
// encoded in a syntax is known before its request goes out.
uint32_t CountProc(const void*, uint32_t count, void*) { return count; }

// The sending of one batch over as many associations as it takes.
struct StoreBatch {
    CUserSocket& socket;
    const CUserSocket::StoreOutcomeCallback& onOutcome;
    STORE_SUMMARY& summary;

    void Report(const STORE_OUTCOME& outcome)
    {
        switch (outcome.result) {
        case STORE_OUTCOME::kStored: ++summary.stored; summary.bytes += outcome.bytes; break;
        case STORE_OUTCOME::kRefused: ++summary.refused; break;
        case STORE_OUTCOME::kFailed: ++summary.failed; break;
        case STORE_OUTCOME::kSkipped: ++summary.skipped; break;
        }
        if (onOutcome)
            onOutcome(outcome);
    }

    // The contexts of files [first, last): one transfer syntax each, so that
    // the peer may accept a file's own syntax and another one beside it.
    static void Propose(CAssociateData& data, const std::vector<StoreFile>& files, size_t first, size_t last)
    {
        data.RemovePresContexts();
        std::set<std::pair<std::string, std::string>> proposed;
        for (size_t i = first; i < last; ++i)
            for (const std::string& syntax : files[i].syntaxes)
                if (proposed.insert({files[i].sopClass, syntax}).second) {
                    auto* context = new CPresentationContext;
                    context->m_sAbstractSyntax = files[i].sopClass;
                    context->AddTransferSyntax(syntax);
                    context->m_ucPresContextID = static_cast<unsigned char>(2 * data.GetPresContextCount() + 1);
                    data.AddPresContext(context);
                }
    }
    // The end of the run of files from first whose contexts fit one association.
    static size_t SegmentEnd(const std::vector<StoreFile>& files, size_t first)
    {
        std::set<std::pair<std::string, std::string>> keys;
        size_t last = first;
        for (; last < files.size(); ++last) {
            size_t added = 0;
            for (const std::string& syntax : files[last].syntaxes)
                added += keys.count({files[last].sopClass, syntax}) == 0 ? 1 : 0;
            if (keys.size() + added > kMaxContexts && last > first)
                break;
            for (const std::string& syntax : files[last].syntaxes)
                keys.insert({files[last].sopClass, syntax});
        }
        return last;
    }

    // The accepted context the file goes in (the first of its syntaxes the
    // peer accepted), 0 and the refusal in words when none.
    unsigned char ChooseContext(const StoreFile& file, std::string& syntax, std::string& refusal) const
    {
        const CAssociateData& data = socket.m_AssociateData;
        for (const std::string& candidate : file.syntaxes)
            if (unsigned char id = socket.FindAcceptedContext(file.sopClass, candidate)) {
                syntax = candidate;
                return id;
            }
        std::string answers;
        for (const std::string& candidate : file.syntaxes)
            for (int i = 0; i < data.GetPresContextCount(); ++i) {
                const CPresentationContext* context = data.GetPresContext(i);
                if (context->m_sAbstractSyntax != file.sopClass || context->GetTransferSyntaxCount() != 1 ||
                    context->GetTransferSyntax(0) != candidate)
                    continue;
                answers += (answers.empty() ? "" : "; ") + UidWords(candidate) + ": " +
                           GetClearContextAck(context->m_ucResult);
            }
        refusal = FormatText("the peer refused the presentation context for %s in %s",
                             UidWords(file.sopClass).c_str(), answers.c_str());
        return 0;
    }

    // Encodes the file's data set from its element tree in syntax and sends
    // it: the request goes out only once the encoding is known to succeed.
    bool SendEncoded(const StoreFile& file, const std::string& syntax, STORE_OUTCOME& outcome, bool& broken)
    {
        CDicomItem root(u"Object");
        if (!root.LoadObject(file.path)) {
            outcome.reason = "cannot be read again: " + root.GetLastError().GetText();
            return false;
        }
        auto* data = static_cast<CDicomItem*>(root.GetChildItem(std::u16string(u"Data")));
        const bool deflated = syntax == kDeflatedLE;
        const bool explicitVR = syntax != kImplicitLE;
        if (!data || data->RecalcTags(explicitVR, 0) == 0xFFFFFFFFu ||
            data->SaveTags(explicitVR, CountProc, nullptr) == 0xFFFFFFFFu) {
            outcome.reason = "the data set cannot be encoded in " + UidWords(syntax);
            if (data && !data->GetLastError().GetText().empty())
                outcome.reason += ": " + data->GetLastError().GetText();
            return false;
        }
        if (!socket.SendStoreReqCmnd(file.sopClass, file.sopInstance)) {
            broken = true;
            return false;
        }
        DataSetStream stream(socket, root.m_pFileImage);
        bool sent;
        if (deflated) {
            // PS3.5 A.5: one raw deflate stream, padded to even length with
            // a single null byte.
            zeldicom::DeflateWriter compressor(DataSetStream::WriteProc, &stream);
            sent = data->SaveTags(true, zeldicom::DeflateWriter::WriteProc, &compressor) != 0xFFFFFFFFu &&
                   compressor.Finish();
            const unsigned char pad = 0;
            if (sent && stream.Total() % 2 != 0)
                sent = DataSetStream::WriteProc(&pad, 1, &stream) == 1;
        } else {
            sent = data->SaveTags(explicitVR, DataSetStream::WriteProc, &stream) != 0xFFFFFFFFu;
        }
        return Finish(stream, sent, syntax, outcome, broken);
    }

    // Ends the message of a data set written into stream (written: without
    // a fault); false when it could not be completed.
    static bool Finish(DataSetStream& stream, bool written, const std::string& syntax, STORE_OUTCOME& outcome,
                       bool& broken)
    {
        if (!written || !stream.Finish()) {
            // The message is incomplete: the association cannot go on.
            broken = true;
            if (!stream.SendFailed())
                outcome.reason = "the data set could not be encoded in " + UidWords(syntax);
            return false;
        }
        outcome.bytes = stream.Total();
        return true;
    }

    // Sends an uncompressed data set in the other little endian syntax,
    // written again element by element from the mapped file (values go
    // out from where they lie, nothing of it is held in memory). False,
    // with nothing sent, when the file's bytes do not walk cleanly: the
    // element tree then encodes it (SendEncoded).
    bool SendConverted(const StoreFile& file, const std::string& syntax, STORE_OUTCOME& outcome, bool& broken,
                       bool& tried)
    {
        tried = false;
        CDataInMemory image(file.path);
        if (!image.IsValid() || file.dataOffset < 0 || static_cast<uint64_t>(file.dataOffset) > image.GetSize() ||
            image.GetSize() - static_cast<uint64_t>(file.dataOffset) != static_cast<uint64_t>(file.dataLength))
            return false;
        const unsigned char* bytes = image.GetData() + file.dataOffset;
        const size_t size = static_cast<size_t>(file.dataLength);
        const dataset::Encoding from{file.fileSyntax != kImplicitLE, false};
        const dataset::Encoding to{syntax != kImplicitLE, false};
        if (!dataset::Reencode(bytes, size, from, to, nullptr, nullptr))
            return false;
        tried = true;
        if (!socket.SendStoreReqCmnd(file.sopClass, file.sopInstance)) {
            broken = true;
            return false;
        }
        DataSetStream stream(socket, &image);
        const bool written = dataset::Reencode(bytes, size, from, to, DataSetStream::WriteProc, &stream);
        return Finish(stream, written, syntax, outcome, broken);
    }

    // Sends one file over the open association; broken when the
    // association cannot carry another file.
    void Send(const StoreFile& file, STORE_OUTCOME& outcome, bool& broken)
    {
        std::string syntax, refusal;
        unsigned char id = ChooseContext(file, syntax, refusal);
        if (id == 0) {
            outcome.result = STORE_OUTCOME::kRefused;
            outcome.reason = refusal;
            return;
        }
        socket.SetPresentationContext(id);
        outcome.result = STORE_OUTCOME::kFailed;
        bool sent = false;
        if (file.sendsAsItLies && syntax == file.fileSyntax) {
            sent = socket.SendStoreReqCmnd(file.sopClass, file.sopInstance) &&
                   socket.SendDataFromFile(file.path, file.dataLength, file.dataOffset);
            broken = !sent;
            outcome.bytes = file.dataLength;
        } else {
            bool tried = false;
            // Explicit and implicit VR little endian differ only in their
            // element headers (PS3.5 7.1): those are written again.
            const bool uncompressed = file.fileSyntax == kImplicitLE || file.fileSyntax == kExplicitLE;
            if (file.sendsAsItLies && uncompressed && (syntax == kImplicitLE || syntax == kExplicitLE))
                sent = SendConverted(file, syntax, outcome, broken, tried);
            if (!tried)
                sent = SendEncoded(file, syntax, outcome, broken);
        }
        DICOM_CMND_MSG response;
        if (sent && !socket.ReceiveStoreRsp(response)) {
            sent = false;
            broken = true;
        }
        if (!sent) {
            outcome.bytes = 0;
            if (broken) {
                socket.MarkFailedStep(ExchangeStep::kService, "C-STORE");
                if (outcome.reason.empty())
                    outcome.reason = socket.GetErrorText();
            }
            return;
        }
        outcome.sentSyntax = syntax;
        outcome.status = response.wStatus;
        // PS3.4 B.2.3: success and the warnings store the instance.
        const StatusClass statusClass = ClassifyDimseStatus(kStoreRq, response.wStatus);
        if (statusClass == StatusClass::kSuccess || statusClass == StatusClass::kWarning) {
            outcome.result = STORE_OUTCOME::kStored;
            if (response.wStatus != 0)
                outcome.reason = CUserSocket::GetStoreStatusText(response.wStatus);
        } else {
            outcome.result = STORE_OUTCOME::kRefused;
            outcome.reason = CUserSocket::GetStoreStatusText(response.wStatus);
        }
    }
};

}

int CUserSocket::Do_CSTORE_Request(const HOST_INFO& host, const std::vector<std::u16string>& paths,
                                   const StoreOutcomeCallback& onOutcome, STORE_SUMMARY& summary)
{
    summary = STORE_SUMMARY{};
    BeginExchange();
    StoreBatch batch{*this, onOutcome, summary};
    std::vector<StoreFile> files;
    for (const std::u16string& path : paths) {
        StoreFile file;
        STORE_OUTCOME outcome;
        if (ReadStoreFile(path, file, outcome))
            files.push_back(std::move(file));
        else
            batch.Report(outcome);
    }
    for (size_t first = 0; first < files.size();) {
        const size_t last = StoreBatch::SegmentEnd(files, first);
        bool open = false;
        for (size_t i = first; i < last; ++i) {
            if (!open) {
                SetError(0);
                StoreBatch::Propose(m_AssociateData, files, first, last);
                if (!OpenAssociation(host, false)) {
                    // The peer cannot be reached: the files left are not sent.
                    std::string reason = "not sent: " + GetErrorText();
                    for (size_t j = i; j < files.size(); ++j) {
                        STORE_OUTCOME outcome;
                        outcome.path = files[j].path;
                        outcome.sopClass = files[j].sopClass;
                        outcome.sopInstance = files[j].sopInstance;
                        outcome.fileSyntax = files[j].fileSyntax;
                        outcome.reason = reason;
                        batch.Report(outcome);
                    }
                    return ErrorCode();
                }
                open = true;
                ++summary.associations;
            }
            STORE_OUTCOME outcome;
            outcome.path = files[i].path;
            outcome.sopClass = files[i].sopClass;
            outcome.sopInstance = files[i].sopInstance;
            outcome.fileSyntax = files[i].fileSyntax;
            bool broken = false;
            batch.Send(files[i], outcome, broken);
            if (broken) {
                // An association that cannot carry the next file is aborted
                // (or was, by the peer): the next file opens a new one.
                AbortAndClose();
                open = false;
            }
            batch.Report(outcome);
        }
        if (open)
            FinishExchange();
        first = last;
    }
    return 0;
}
