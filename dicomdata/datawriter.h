#pragma once
// Where encoded DICOM bytes go: the writer commands that a receiver hands
// data set bytes to as they arrive, and the file writer callback used by
// CDicomItem::SaveToFile and the in-place rewrite.
#include <cstdint>
#include <cstdio>
#include <string>

class CDynBuffer;

// A sink for data set bytes. Only a base: derived commands decide where the
// bytes go.
class CDicomDataWriterCmd {
public:
    // True when all count bytes were taken.
    virtual bool WriteData(const void* bytes, int count) = 0;
    CDicomDataWriterCmd(const CDicomDataWriterCmd&) {}
    CDicomDataWriterCmd& operator=(const CDicomDataWriterCmd&) { return *this; }

protected:
    CDicomDataWriterCmd() = default;
    virtual ~CDicomDataWriterCmd() = default;
};

// Appends the bytes to a buffer that the caller owns.
class CDicomDataWriterForBufferCmd : public CDicomDataWriterCmd {
public:
    explicit CDicomDataWriterForBufferCmd(CDynBuffer* buffer) : m_pBuffer(buffer) {}
    ~CDicomDataWriterForBufferCmd() override = default;
    bool WriteData(const void* bytes, int count) override;

    CDynBuffer* m_pBuffer;
};

// An output file opened for CDicomFileWriter::WriteProc: the stream and the
// path it was opened with (the path goes into the error log).
class CDicomOutputFile {
public:
    CDicomOutputFile() = default;
    ~CDicomOutputFile();
    CDicomOutputFile(const CDicomOutputFile&) = delete;
    CDicomOutputFile& operator=(const CDicomOutputFile&) = delete;

    // Creates or truncates the file. False (and the reason logged) when it
    // cannot be opened.
    bool Open(const std::string& path);
    // Flushes buffered bytes and forces them to the disk; false on error.
    bool Sync();
    // Flushes and closes; false when a buffered write failed on the way.
    bool Close();
    bool IsOpen() const { return m_pFile != nullptr; }

    std::FILE* m_pFile = nullptr;
    std::string m_sPath;
};

// The file writer callback; never instantiated.
class CDicomFileWriter {
public:
    // Writes count bytes to the CDicomOutputFile given as context; count,
    // or 0xFFFFFFFF with the error logged.
    static uint32_t WriteProc(const void* bytes, uint32_t count, void* file);

private:
    CDicomFileWriter() = default;
    CDicomFileWriter(const CDicomFileWriter&) = default;
};
