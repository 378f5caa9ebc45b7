#pragma once
// Where encoded DICOM bytes go: the writer commands that a receiver hands
// data set bytes to as they arrive, and the file writer callback used by
// CDicomItem::SaveToFile and the in-place rewrite.
#include <cstdint>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

class CDataInMemory;
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

// An output file opened for CDicomFileWriter::WriteProc: the descriptor, a
// write buffer, and the path it was opened with (the path goes into the error
// log). Large values that lie in the source image (the mapped file the tree
// was loaded from) are copied file to file by the kernel, so the mapped
// pixel data is neither faulted in nor copied through user space.
class CDicomOutputFile {
public:
    CDicomOutputFile() = default;
    ~CDicomOutputFile();
    CDicomOutputFile(const CDicomOutputFile&) = delete;
    CDicomOutputFile& operator=(const CDicomOutputFile&) = delete;

    // Creates or truncates the file. False (and the reason logged) when it
    // cannot be opened.
    bool Open(const std::string& path);
    // Creates a new file with a unique name beside target (in its folder),
    // with the permissions target has, or those of a new file when it does
    // not exist yet. m_sPath names the new file.
    bool OpenTemporaryBeside(const std::string& target);
    // The file image the values point into; where it is mapped, its bytes
    // may be copied directly. It must outlive the writes. nullptr: every
    // byte goes through the buffer.
    void SetSource(const CDataInMemory* image) { m_pSource = image; }
    // Writes count bytes; false with errno set on failure.
    bool Write(const void* bytes, size_t count);
    // Flushes buffered bytes and forces them to the disk; false on error.
    bool Sync();
    // Flushes and closes; false when a buffered write failed on the way.
    bool Close();
    bool IsOpen() const { return m_nFd >= 0; }
    int Descriptor() const { return m_nFd; }
    // The system error number of the first failure (0 when none).
    int GetError() const { return m_nError; }

    std::string m_sPath;

private:
    bool Flush();
    bool Failed(int code);
    bool WriteAll(const unsigned char* bytes, size_t count);
    // How many of the leading bytes went out by copy_file_range: 0 when
    // they do not lie in the source file or the kernel cannot copy them.
    size_t CopyFromSource(const unsigned char* bytes, size_t count);

    int m_nFd = -1;
    // Allocated on the first open and left uninitialised: a small file
    // touches only the pages it fills.
    std::unique_ptr<unsigned char[]> m_Buffer;
    size_t m_nUsed = 0;
    const CDataInMemory* m_pSource = nullptr;
    int m_nSourceFd = -1;
    bool m_bCopyFailed = false;
    int m_nError = 0;
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
