#pragma once
// A file's complete content, read-only for as long as the object lives:
// mapped, or read into memory when it is small (up to kReadLimit bytes).
#include <cstdint>
#include <string>

class CDataInMemory {
public:
    static constexpr uint64_t kReadLimit = 1u << 20;

    // The flag is accepted for the callers' sake; every file is opened read-only.
    CDataInMemory(const std::u16string& path, bool flag = false);
    virtual ~CDataInMemory();
    CDataInMemory(const CDataInMemory&) = delete;
    CDataInMemory& operator=(const CDataInMemory&) = delete;

    // True when the whole file is available. Empty, missing and unreadable
    // files (and directories) are invalid.
    bool IsValid() const { return m_pData != nullptr; }
    const unsigned char* GetData() const { return m_pData; }
    uint64_t GetSize() const { return m_nSize; }
    // Why the file is not valid (empty while it is valid), and the system
    // error number that goes with it (0 while it is valid).
    const std::string& GetError() const { return m_sError; }
    int GetErrorCode() const { return m_nErrorCode; }
    // Whether the content is the file's own pages (mapped) rather than a
    // copy read at construction.
    bool IsMapped() const { return m_pData && !m_bOwned; }
    // Opens the mapped file again for reading (O_CLOEXEC): a descriptor of
    // the same file (device and inode) that the caller closes, or -1.
    int OpenSameFile() const;

private:
    void SetSystemError(int code);

    const unsigned char* m_pData = nullptr;
    uint64_t m_nSize = 0;
    std::string m_sError;
    int m_nErrorCode = 0;
    std::string m_sPath;
    uint64_t m_nDevice = 0;
    uint64_t m_nInode = 0;
    bool m_bOwned = false;  // read into a buffer of ours, not mapped
};
