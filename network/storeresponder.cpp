// Answering one C-STORE-RQ (see storeresponder.h).
#include "network/storeresponder.h"

#include "dicomdata/datawriter.h"
#include "network/usersocket.h"

namespace {

constexpr uint16_t kStoreRsp = 0x8001;
constexpr uint16_t kNoDataSet = 0x0101;

std::string Trimmed(const char* text)
{
    std::string value(text);
    while (!value.empty() && value.back() == ' ')
        value.pop_back();
    size_t start = value.find_first_not_of(' ');
    return start == std::string::npos ? std::string() : value.substr(start);
}

// Hands PDV fragments to the file. A write that fails does not end the
// receive: the rest of the data set is read and dropped, so that the
// association stays in step and the failure is answered as a status.
class FileWriter : public CDicomDataWriterCmd {
public:
    FileWriter(CReceivedFile& file, uint16_t status) : m_file(file), m_status(status) {}
    bool WriteData(const void* bytes, int count) override
    {
        m_bytes += static_cast<uint64_t>(count);
        if (m_status == CReceivedFile::kSuccess)
            m_status = m_file.Append(bytes, static_cast<size_t>(count));
        return true;
    }
    uint16_t Status() const { return m_status; }
    uint64_t Bytes() const { return m_bytes; }

private:
    CReceivedFile& m_file;
    uint16_t m_status;
    uint64_t m_bytes = 0;
};

}  // namespace

CStoreResponder::CStoreResponder(std::string folder, bool durable) : m_folder(std::move(folder)), m_durable(durable) {}

int CStoreResponder::Answer(CUserSocket& socket, const DICOM_CMND_MSG& request, STORED_INSTANCE& outcome)
{
    outcome = STORED_INSTANCE{};
    RECEIVED_INSTANCE& instance = outcome.instance;
    instance.sopClass = request.szAffectedSOPClassUID;
    instance.sopInstance = request.szAffectedSOPInstanceUID;
    instance.sourceTitle = m_sourceTitle.empty() ? Trimmed(socket.m_AssociateData.m_szCallingAETitle) : m_sourceTitle;

    CReceivedFile file(m_folder, m_durable);
    uint16_t status = CReceivedFile::kSuccess;
    const CPresentationContext* context = socket.m_AssociateData.GetPresContextByID(request.ucPresContextID);
    if (!context || context->m_ucResult != 0 || context->m_sAbstractSyntax != instance.sopClass) {
        status = kSopClassNotSupported;
        outcome.error = "the request's SOP class " + instance.sopClass + " was not accepted on presentation context " +
                        std::to_string(request.ucPresContextID);
    } else if (instance.sopInstance.empty()) {
        status = CReceivedFile::kCannotUnderstand;
        outcome.error = "the request names no Affected SOP Instance UID";
    } else {
        instance.transferSyntax = context->m_sAcceptedTransferSyntax;
        status = file.Begin(instance);
    }

    FileWriter writer(file, status);
    const bool received = request.wDataSetType != kNoDataSet && socket.ReceiveDataSet(request, writer);
    outcome.bytes = writer.Bytes();
    if (!received && request.wDataSetType != kNoDataSet) {
        file.Abandon();
        outcome.error = socket.GetErrorDetail();
        return 0;
    }
    status = writer.Status();
    if (request.wDataSetType == kNoDataSet && status == CReceivedFile::kSuccess) {
        status = CReceivedFile::kCannotUnderstand;
        outcome.error = "the C-STORE-RQ announces no data set";
    }
    if (status == CReceivedFile::kSuccess)
        status = file.Finish(m_namer, outcome.path);
    if (status != CReceivedFile::kSuccess) {
        file.Abandon();
        outcome.path.clear();
        if (outcome.error.empty())
            outcome.error = file.GetError();
    }

    // PS3.7 9.3.1.2: the response echoes the request's SOP class and instance.
    if (!socket.SendCommand({{0x0002, CommandElement::kUid, instance.sopClass},
                             {0x0100, CommandElement::kUs, "", kStoreRsp},
                             {0x0120, CommandElement::kUs, "", request.wMessageID},
                             {0x0800, CommandElement::kUs, "", kNoDataSet},
                             {0x0900, CommandElement::kUs, "", status},
                             {0x1000, CommandElement::kUid, instance.sopInstance}}))
        return 0;
    outcome.status = status;
    return 1;
}
