// Writer commands and the file writer callback.
#include "dicomdata/datawriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/datainmemory.h"
#include "platform/dynbuffer.h"
#include "platform/system.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
constexpr uint32_t kFailed = 0xFFFFFFFFu;
// Large values arrive in chunks of megabytes; a buffer of this size keeps the
// many small header writes off the system call path without holding much.
constexpr size_t kStreamBuffer = 1u << 20;
// Values from this size on are worth a copy_file_range call of their own.
constexpr size_t kDirectCopy = 256u << 10;

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

// The permissions of a new file under the process's umask (read from
// /proc, since umask() cannot be read without changing it).
mode_t NewFileMode()
{
    mode_t mask = 022;
    if (FILE* status = std::fopen("/proc/self/status", "re")) {
        char line[128];
        unsigned value = 0;
        while (std::fgets(line, sizeof line, status))
            if (std::sscanf(line, "Umask: %o", &value) == 1) {
                mask = static_cast<mode_t>(value);
                break;
            }
        std::fclose(status);
    }
    return 0666 & ~mask;
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
    if (m_nFd >= 0)
        ::close(m_nFd);
    if (m_nSourceFd >= 0)
        ::close(m_nSourceFd);
}

bool CDicomOutputFile::Open(const std::string& path)
{
    if (m_nFd >= 0)
        Close();
    m_sPath = path;
    m_nUsed = 0;
    m_nError = 0;
    m_nFd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (m_nFd < 0) {
        m_nError = errno;
        LogFileError("CDicomOutputFile::Open", m_nError, 0, path);
        return false;
    }
    if (!m_Buffer)
        m_Buffer.reset(new unsigned char[kStreamBuffer]);
    return true;
}

bool CDicomOutputFile::OpenTemporaryBeside(const std::string& target)
{
    if (m_nFd >= 0)
        Close();
    m_nUsed = 0;
    m_nError = 0;
    std::string name = target + ".XXXXXX";
    m_nFd = ::mkostemp(name.data(), O_CLOEXEC);
    m_sPath = name;
    if (m_nFd < 0) {
        m_nError = errno;
        m_sPath = target;
        LogFileError("CDicomOutputFile::OpenTemporaryBeside", m_nError, 0, target);
        return false;
    }
    struct stat existing {};
    if (::stat(target.c_str(), &existing) == 0) {
        ::fchmod(m_nFd, existing.st_mode & 07777);
        // The owner is kept where the process may set it; elsewhere the new
        // file belongs to the caller.
        [[maybe_unused]] int owned = ::fchown(m_nFd, existing.st_uid, existing.st_gid);
    } else {
        ::fchmod(m_nFd, NewFileMode());
    }
    if (!m_Buffer)
        m_Buffer.reset(new unsigned char[kStreamBuffer]);
    return true;
}

bool CDicomOutputFile::Failed(int code)
{
    if (m_nError == 0)
        m_nError = code != 0 ? code : EIO;
    return false;
}

bool CDicomOutputFile::WriteAll(const unsigned char* bytes, size_t count)
{
    while (count > 0) {
        ssize_t written = ::write(m_nFd, bytes, count);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            if (written == 0)
                errno = EIO;
            return false;
        }
        bytes += written;
        count -= static_cast<size_t>(written);
    }
    return true;
}

bool CDicomOutputFile::Flush()
{
    size_t used = m_nUsed;
    m_nUsed = 0;
    return WriteAll(m_Buffer.get(), used);
}

size_t CDicomOutputFile::CopyFromSource(const unsigned char* bytes, size_t count)
{
    // Only a mapping shows what the file holds now; a copy read earlier
    // could differ from the file by the time it is saved.
    if (!m_pSource || !m_pSource->IsMapped() || m_bCopyFailed)
        return 0;
    const unsigned char* begin = m_pSource->GetData();
    uint64_t size = m_pSource->GetSize();
    if (!begin || bytes < begin || static_cast<uint64_t>(bytes - begin) > size ||
        count > size - static_cast<uint64_t>(bytes - begin))
        return 0;
    if (m_nSourceFd < 0 && (m_nSourceFd = m_pSource->OpenSameFile()) < 0) {
        m_bCopyFailed = true;
        return 0;
    }
    loff_t from = static_cast<loff_t>(bytes - begin);
    size_t done = 0;
    while (done < count) {
        ssize_t copied = copy_file_range(m_nSourceFd, &from, m_nFd, nullptr, count - done, 0);
        if (copied < 0 && errno == EINTR)
            continue;
        if (copied <= 0) {
            // Not possible between these files (another file system on an
            // old kernel, a special file) or the source shrank: the rest
            // goes out from memory, and so does every later value.
            m_bCopyFailed = true;
            break;
        }
        done += static_cast<size_t>(copied);
    }
    return done;
}

bool CDicomOutputFile::Write(const void* bytes, size_t count)
{
    if (m_nFd < 0) {
        errno = EBADF;
        return Failed(EBADF);
    }
    const auto* p = static_cast<const unsigned char*>(bytes);
    if (count >= kDirectCopy) {
        // The buffered bytes go first; the value follows, copied by the
        // kernel where it lies in the source file, written otherwise.
        if (m_nUsed > 0 && !Flush())
            return Failed(errno);
        size_t copied = CopyFromSource(p, count);
        return WriteAll(p + copied, count - copied) || Failed(errno);
    }
    if (m_nUsed + count > kStreamBuffer && !Flush())
        return Failed(errno);
    std::memcpy(m_Buffer.get() + m_nUsed, p, count);
    m_nUsed += count;
    return true;
}

bool CDicomOutputFile::Sync()
{
    if (m_nFd < 0)
        return false;
    // The bytes still buffered belong to the writes the file writer took:
    // their failure is the file writer's, with their count.
    size_t pending = m_nUsed;
    if (!Flush()) {
        Failed(errno);
        LogFileError("CDicomFileWriter::WriteProc", m_nError, static_cast<uint32_t>(pending), m_sPath);
        return false;
    }
    if (::fsync(m_nFd) != 0) {
        Failed(errno);
        LogFileError("CDicomOutputFile::Sync", m_nError, 0, m_sPath);
        return false;
    }
    return true;
}

bool CDicomOutputFile::Close()
{
    if (m_nFd < 0)
        return false;
    // A buffered write can still fail here (disk full): it is logged as the
    // file writer's failure, with the count of the bytes it held.
    size_t pending = m_nUsed;
    bool flushed = Flush();
    if (!flushed) {
        Failed(errno);
        LogFileError("CDicomFileWriter::WriteProc", m_nError, static_cast<uint32_t>(pending), m_sPath);
    }
    bool closed = ::close(m_nFd) == 0;
    if (!closed) {
        Failed(errno);
        if (flushed)
            LogFileError("CDicomOutputFile::Close", m_nError, 0, m_sPath);
    }
    m_nFd = -1;
    if (m_nSourceFd >= 0) {
        ::close(m_nSourceFd);
        m_nSourceFd = -1;
    }
    return flushed && closed && m_nError == 0;
}

uint32_t CDicomFileWriter::WriteProc(const void* bytes, uint32_t count, void* file)
{
    auto* out = static_cast<CDicomOutputFile*>(file);
    if (!out || !out->IsOpen() || (count > 0 && !bytes))
        return kFailed;
    if (count == 0)
        return 0;
    if (!out->Write(bytes, count)) {
        LogFileError("CDicomFileWriter::WriteProc", out->GetError(), count, out->m_sPath);
        return kFailed;
    }
    return count;
}
