#pragma once
// One object received by C-STORE, written to a file of the destination
// folder as it arrives: the file meta information (PS3.10 7.1) built from
// the request and the association, then the data set fragments in the
// transfer syntax of their presentation context. The object is written to
// a hidden temporary in the same folder and renamed into place only when
// it is complete and checked, so a partial object is never visible under
// its final name; an unfinished temporary is removed when the writer goes.
//
// Results are C-STORE status words (PS3.4 B.2.3): 0 Success, 0xA700 Out of
// Resources (the folder or the disk refused the bytes), 0xA900 Data Set does
// not match SOP Class (its SOP class or instance differs from the request),
// 0xC000 Cannot understand (no usable file name, or a data set that ends
// inside an element). A process that runs under
// a file size limit must ignore SIGXFSZ, so that the write past the limit
// fails with EFBIG (answered 0xA700) instead of ending the process.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

struct RECEIVED_INSTANCE {
    std::string sopClass;        // Affected SOP Class UID of the request
    std::string sopInstance;     // Affected SOP Instance UID of the request
    std::string transferSyntax;  // of the presentation context the data set came on
    std::string sourceTitle;     // the calling AE title of the association
};

class CReceivedFile {
public:
    static constexpr uint16_t kSuccess = 0x0000;
    static constexpr uint16_t kOutOfResources = 0xA700;
    static constexpr uint16_t kDataSetMismatch = 0xA900;
    static constexpr uint16_t kCannotUnderstand = 0xC000;

    // The file name (no folder) an instance is stored under.
    using Namer = std::function<std::string(const RECEIVED_INSTANCE&)>;
    // "<SOP Instance UID>.dcm"; characters a UID cannot hold become '_', so a
    // peer's UID never names a path outside the folder.
    static std::string DefaultName(const RECEIVED_INSTANCE& instance);

    // durable: each file and the folder entry are flushed to the disk
    // (fsync) before Finish reports success.
    CReceivedFile(std::string folder, bool durable = false);
    ~CReceivedFile();
    CReceivedFile(const CReceivedFile&) = delete;
    CReceivedFile& operator=(const CReceivedFile&) = delete;

    // Creates the temporary and writes the file meta information.
    uint16_t Begin(const RECEIVED_INSTANCE& instance);
    // Appends data set bytes. After a failure every further call fails too.
    uint16_t Append(const void* bytes, size_t size);
    // Checks the data set against the request, names the file and renames
    // it into place (an object of the same name is replaced). On any failure
    // the temporary is removed.
    uint16_t Finish(const Namer& namer, std::string& path);
    // Removes the temporary of an object that will not be finished.
    void Abandon();

    // Why the last call failed, in words.
    const std::string& GetError() const { return m_error; }
    uint64_t GetDataSetSize() const { return m_dataSetSize; }

private:
    uint16_t Fail(uint16_t status, const std::string& why);
    bool WriteAll(const void* bytes, size_t size);
    bool DataSetMatchesRequest();
    bool DataSetIsWhole();

    std::string m_folder;
    bool m_durable;
    RECEIVED_INSTANCE m_instance;
    std::string m_temporary;
    int m_fd = -1;
    bool m_failed = false;
    uint64_t m_dataSetSize = 0;
    size_t m_metaSize = 0;  // bytes of the preamble and file meta information
    std::string m_head;  // the first bytes of the data set, for the UID check
    std::string m_error;
};
