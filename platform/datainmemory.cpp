#include "platform/datainmemory.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/text.h"

CDataInMemory::CDataInMemory(const std::u16string& path, bool)
{
    std::string name = Utf16ToUtf8(path);
    int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        m_sError = std::strerror(errno);
        return;
    }
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        m_sError = std::strerror(errno);
    } else if (!S_ISREG(info.st_mode)) {
        m_sError = "not a regular file";
    } else if (info.st_size == 0) {
        m_sError = "empty file";
    } else {
        void* mapped = ::mmap(nullptr, static_cast<size_t>(info.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
        if (mapped == MAP_FAILED) {
            m_sError = std::strerror(errno);
        } else {
            m_pData = static_cast<const unsigned char*>(mapped);
            m_nSize = static_cast<uint64_t>(info.st_size);
        }
    }
    ::close(fd);
}

CDataInMemory::~CDataInMemory()
{
    if (m_pData)
        ::munmap(const_cast<unsigned char*>(m_pData), static_cast<size_t>(m_nSize));
}
