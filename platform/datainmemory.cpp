#include "platform/datainmemory.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/text.h"

using namespace zeldicom;

CDataInMemory::CDataInMemory(const std::u16string& path, bool)
{
    std::string name = Utf16ToUtf8(path);
    int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        SetSystemError(errno);
        return;
    }
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        SetSystemError(errno);
    } else if (S_ISDIR(info.st_mode)) {
        SetSystemError(EISDIR);
    } else if (!S_ISREG(info.st_mode)) {
        m_nErrorCode = ENODEV;
        m_sError = "not a regular file";
    } else if (info.st_size == 0) {
        m_nErrorCode = ENODATA;
        m_sError = "empty file";
    } else if (static_cast<uint64_t>(info.st_size) <= kReadLimit) {
        // A small file costs less to read than to map, fault in and unmap.
        size_t size = static_cast<size_t>(info.st_size);
        auto* buffer = new unsigned char[size];
        size_t done = 0;
        ssize_t got = 1;
        while (done < size && got > 0) {
            got = ::read(fd, buffer + done, size - done);
            if (got < 0 && errno == EINTR)
                got = 1;
            else if (got > 0)
                done += static_cast<size_t>(got);
        }
        if (done != size) {
            if (got < 0) {
                SetSystemError(errno);
            } else {
                m_nErrorCode = EIO;
                m_sError = "the file shrank while it was read";
            }
            delete[] buffer;
        } else {
            m_pData = buffer;
            m_bOwned = true;
        }
    } else {
        void* mapped = ::mmap(nullptr, static_cast<size_t>(info.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
        if (mapped == MAP_FAILED)
            SetSystemError(errno);
        else
            m_pData = static_cast<const unsigned char*>(mapped);
    }
    if (m_pData) {
        m_nSize = static_cast<uint64_t>(info.st_size);
        m_sPath = name;
        m_nDevice = static_cast<uint64_t>(info.st_dev);
        m_nInode = static_cast<uint64_t>(info.st_ino);
    }
    ::close(fd);
}

void CDataInMemory::SetSystemError(int code)
{
    m_nErrorCode = code;
    m_sError = std::strerror(code);
}

CDataInMemory::~CDataInMemory()
{
    if (m_pData && m_bOwned)
        delete[] m_pData;
    else if (m_pData)
        ::munmap(const_cast<unsigned char*>(m_pData), static_cast<size_t>(m_nSize));
}

int CDataInMemory::OpenSameFile() const
{
    if (!m_pData)
        return -1;
    int fd = ::open(m_sPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    // The path may name another file by now (renamed, replaced).
    struct stat info {};
    if (::fstat(fd, &info) != 0 || static_cast<uint64_t>(info.st_dev) != m_nDevice ||
        static_cast<uint64_t>(info.st_ino) != m_nInode) {
        ::close(fd);
        return -1;
    }
    return fd;
}
