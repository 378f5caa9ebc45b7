#pragma once
// A file's complete content, mapped read-only for as long as the object lives.
#include <cstdint>
#include <string>

class CDataInMemory {
public:
    // The flag is accepted for the callers' sake; every file is mapped read-only.
    CDataInMemory(const std::u16string& path, bool flag = false);
    virtual ~CDataInMemory();
    CDataInMemory(const CDataInMemory&) = delete;
    CDataInMemory& operator=(const CDataInMemory&) = delete;

    // True when the whole file is available. Empty, missing and unreadable
    // files (and directories) are invalid.
    bool IsValid() const { return m_pData != nullptr; }
    const unsigned char* GetData() const { return m_pData; }
    uint64_t GetSize() const { return m_nSize; }
    // Why the file is not valid (empty while it is valid).
    const std::string& GetError() const { return m_sError; }

private:
    const unsigned char* m_pData = nullptr;
    uint64_t m_nSize = 0;
    std::string m_sError;
};
