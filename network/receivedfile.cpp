// Writing a received C-STORE data set into a Part 10 file (see receivedfile.h).
#include "network/receivedfile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "imageinfo/dicominfo.h"
#include "network/dataset_codec.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

// The data set bytes kept for the SOP class and instance check: (0008,0016)
// and (0008,0018) come early, after at most a few short group 0008 elements.
constexpr size_t kHeadSize = 64 * 1024;

// The process's file creation mask, read once while the library loads
// (reading it means setting it, which must not race with other threads).
const mode_t kCreationMask = [] {
    const mode_t mask = ::umask(022);
    ::umask(mask);
    return mask;
}();

constexpr char kImplicitLittleEndian[] = "1.2.840.10008.1.2";
constexpr char kExplicitBigEndian[] = "1.2.840.10008.1.2.2";
constexpr char kDeflated[] = "1.2.840.10008.1.2.1.99";

std::string Trimmed(const unsigned char* value, size_t length)
{
    std::string text(reinterpret_cast<const char*>(value), length);
    while (!text.empty() && (text.back() == '\0' || text.back() == ' '))
        text.pop_back();
    return text;
}

std::string Reason(const char* what)
{
    return std::string(what) + ": " + std::strerror(errno);
}

}  // namespace

std::string CReceivedFile::DefaultName(const RECEIVED_INSTANCE& instance)
{
    std::string name = instance.sopInstance.empty() ? std::string("unnamed") : instance.sopInstance.substr(0, 64);
    for (char& c : name)
        if (!(c >= '0' && c <= '9') && c != '.')
            c = '_';
    if (name.front() == '.')
        name.front() = '_';
    return name + ".dcm";
}

CReceivedFile::CReceivedFile(std::string folder, bool durable)
    : m_folder(folder.empty() ? std::string(".") : std::move(folder)), m_durable(durable)
{
}

CReceivedFile::~CReceivedFile()
{
    Abandon();
}

uint16_t CReceivedFile::Fail(uint16_t status, const std::string& why)
{
    m_failed = true;
    m_error = why;
    Abandon();
    return status;
}

void CReceivedFile::Abandon()
{
    if (m_fd != -1)
        ::close(m_fd);
    m_fd = -1;
    if (!m_temporary.empty())
        ::unlink(m_temporary.c_str());
    m_temporary.clear();
}

bool CReceivedFile::WriteAll(const void* bytes, size_t size)
{
    const auto* p = static_cast<const unsigned char*>(bytes);
    while (size > 0) {
        ssize_t written = ::write(m_fd, p, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        p += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

uint16_t CReceivedFile::Begin(const RECEIVED_INSTANCE& instance)
{
    Abandon();
    m_instance = instance;
    m_failed = false;
    m_error.clear();
    m_head.clear();
    m_dataSetSize = 0;

    // A hidden name in the destination folder itself, so the final rename
    // stays on one file system and directory scanners skip the temporary.
    std::string name = m_folder + "/.zeldicom-XXXXXX.part";
    m_fd = ::mkstemps(name.data(), 5);
    if (m_fd == -1)
        return Fail(kOutOfResources, Reason(("cannot create a file in " + m_folder).c_str()));
    m_temporary = name;
    // mkstemps makes the temporary private; the object gets the mode any
    // new file of the process gets.
    ::fchmod(m_fd, 0666 & ~kCreationMask);

    metaHeaderInfo meta;
    meta.sMediaStorageSOPClassUID = AsciiToWide(instance.sopClass);
    meta.sMediaStorageSOPInstanceUID = AsciiToWide(instance.sopInstance);
    meta.sTransferSyntax = AsciiToWide(instance.transferSyntax);
    meta.sImplementationClassUID = DICOMINFO::GetDicomRoot();
    meta.sImplementationVersionName = DICOMINFO::DefaultImplementationVersionName();
    meta.sSourceAETitle = AsciiToWide(instance.sourceTitle);
    CDynBuffer head;
    DICOMINFO::CreateMetaHeaderBuffer(head, &meta);
    if (!WriteAll(head.GetData(), head.m_nSize))
        return Fail(kOutOfResources, Reason("cannot write the file meta information"));
    return kSuccess;
}

uint16_t CReceivedFile::Append(const void* bytes, size_t size)
{
    if (m_failed || m_fd == -1)
        return m_failed ? kOutOfResources : Fail(kOutOfResources, "no object has begun");
    if (m_head.size() < kHeadSize)
        m_head.append(static_cast<const char*>(bytes), std::min(size, kHeadSize - m_head.size()));
    if (!WriteAll(bytes, size))
        return Fail(kOutOfResources, Reason("cannot write the data set"));
    m_dataSetSize += size;
    return kSuccess;
}

// False when the data set names another SOP class or instance than the
// request. A deflated data set, or UIDs beyond the kept head, are not checked.
bool CReceivedFile::DataSetMatchesRequest()
{
    const std::string& syntax = m_instance.transferSyntax;
    if (syntax == kDeflated)
        return true;
    const dataset::Encoding encoding{syntax != kImplicitLittleEndian, syntax == kExplicitBigEndian};
    ByteCursor cursor(reinterpret_cast<const unsigned char*>(m_head.data()), m_head.size());
    dataset::ElementHeader header;
    while (dataset::ReadHeader(cursor, encoding, header)) {
        const uint32_t tag = (uint32_t{header.group} << 16) | header.element;
        if (tag > 0x00080018)
            break;
        if (header.length == dataset::kUndefined) {
            if (!dataset::SkipUndefinedValue(cursor, encoding, header, 0))
                break;
            continue;
        }
        if (!cursor.has(header.length))
            break;
        if (tag == 0x00080016 || tag == 0x00080018) {
            const std::string value = Trimmed(cursor.here(), header.length);
            const std::string& requested = tag == 0x00080016 ? m_instance.sopClass : m_instance.sopInstance;
            if (value != requested) {
                m_error = std::string(tag == 0x00080016 ? "SOP Class UID" : "SOP Instance UID") + " " + value +
                          " of the data set differs from " + requested + " of the request";
                return false;
            }
        }
        cursor.skip(header.length);
    }
    return true;
}

uint16_t CReceivedFile::Finish(const Namer& namer, std::string& path)
{
    if (m_failed || m_fd == -1)
        return m_failed ? kOutOfResources : Fail(kOutOfResources, "no object has begun");
    if (!DataSetMatchesRequest())
        return Fail(kDataSetMismatch, m_error);
    const std::string name = namer ? namer(m_instance) : DefaultName(m_instance);
    if (name.empty() || name.find('/') != std::string::npos || name == "." || name == "..")
        return Fail(kCannotUnderstand, "no usable file name for " + m_instance.sopInstance);
    if (m_durable && ::fsync(m_fd) != 0)
        return Fail(kOutOfResources, Reason("cannot flush the object to the disk"));
    if (::close(m_fd) != 0) {
        m_fd = -1;
        return Fail(kOutOfResources, Reason("cannot close the object"));
    }
    m_fd = -1;
    path = m_folder + "/" + name;
    if (::rename(m_temporary.c_str(), path.c_str()) != 0)
        return Fail(kOutOfResources, Reason(("cannot name the object " + path).c_str()));
    m_temporary.clear();
    if (m_durable) {
        // The new directory entry is durable only once the folder is flushed.
        int folder = ::open(m_folder.c_str(), O_RDONLY | O_DIRECTORY);
        bool flushed = folder != -1 && ::fsync(folder) == 0;
        if (folder != -1)
            ::close(folder);
        if (!flushed) {
            m_error = Reason("cannot flush the folder entry");
            return kOutOfResources;
        }
    }
    return kSuccess;
}
