// Writer commands and the file writer callback.
#include "dicomdata/datawriter.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/dynbuffer.h"
#include "platform/system.h"
#include "platform/text.h"

namespace {
constexpr uint32_t kFailed = 0xFFFFFFFFu;
// Large values arrive in chunks of megabytes; a buffer of this size keeps the
// many small header writes off the system call path without holding much.
constexpr size_t kStreamBuffer = 1u << 20;

// The log line of a failed file operation: the system's message and code,
// the byte count and the file.
void LogFileError(const char* source, int code, uint32_t count, const std::string& path)
{
    std::string message = " System Error : ";
    message += std::strerror(code);
    message += FormatText(" System Error Code : %d Params : lSize=%u, pDstFile=", code, count);
    message += path;
    CAuditManager::GetUniqueInstance().LogError(source, message);
}
}

bool CDicomDataWriterForBufferCmd::WriteData(const void* bytes, int count)
{
    if (!m_pBuffer || count < 0 || (count > 0 && !bytes))
        return false;
    return m_pBuffer->Add(bytes, static_cast<uint32_t>(count));
}

CDicomOutputFile::~CDicomOutputFile()
{
    if (m_pFile)
        std::fclose(m_pFile);
}

bool CDicomOutputFile::Open(const std::string& path)
{
    if (m_pFile)
        Close();
    m_sPath = path;
    m_pFile = std::fopen(path.c_str(), "wb");
    if (!m_pFile) {
        LogFileError("CDicomOutputFile::Open", errno, 0, path);
        return false;
    }
    std::setvbuf(m_pFile, nullptr, _IOFBF, kStreamBuffer);
    return true;
}

bool CDicomOutputFile::Sync()
{
    if (!m_pFile)
        return false;
    if (std::fflush(m_pFile) != 0 || fsync(fileno(m_pFile)) != 0) {
        LogFileError("CDicomOutputFile::Sync", errno, 0, m_sPath);
        return false;
    }
    return true;
}

bool CDicomOutputFile::Close()
{
    if (!m_pFile)
        return false;
    // A write that the stream buffered can still fail here (disk full).
    bool flushed = std::fflush(m_pFile) == 0;
    int code = errno;
    bool closed = std::fclose(m_pFile) == 0;
    if (!closed && flushed)
        code = errno;
    m_pFile = nullptr;
    if (!flushed || !closed) {
        LogFileError("CDicomOutputFile::Close", code, 0, m_sPath);
        return false;
    }
    return true;
}

uint32_t CDicomFileWriter::WriteProc(const void* bytes, uint32_t count, void* file)
{
    auto* out = static_cast<CDicomOutputFile*>(file);
    if (!out || !out->m_pFile || (count > 0 && !bytes))
        return kFailed;
    if (count == 0)
        return 0;
    errno = 0;
    size_t written = std::fwrite(bytes, 1, count, out->m_pFile);
    if (written != count || std::ferror(out->m_pFile)) {
        int code = errno != 0 ? errno : EIO;
        LogFileError("CDicomFileWriter::WriteProc", code, count, out->m_sPath);
        return kFailed;
    }
    return count;
}
