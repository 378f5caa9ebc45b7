// zeldicom store [--aet CALLING] [--aec CALLED] [--timeout SECONDS] [--trace DIR] HOST PORT PATH...
// Sends DICOM files, and the files under folders, to a storage SCP over one
// association. Each distinct SOP class and transfer syntax is proposed as
// one presentation context; every file goes in the context accepted for its
// own pair, its data set read from the file as it is stored there.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "dicomdata/bytecursor.h"
#include "imageinfo/dicominfo.h"
#include "imageinfo/transfersyntax.h"
#include "network/usersocket.h"
#include "platform/apppath.h"
#include "platform/text.h"
#include "tools/association_options.h"
#include "tools/commands.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

namespace {

constexpr char16_t kToolImplementationClass[] = u"2.25.135358127703870177945697021926943424524";
// The most contexts one association can carry: odd IDs 1 to 255.
constexpr size_t kMaxContexts = 128;
constexpr size_t kHeadBytes = 65536;

struct StoreFile {
    std::string path, sopClass, sopInstance, transferSyntax;
    int64_t dataOffset = 0, dataLength = 0;
};

int Usage(FILE* out, int status)
{
    std::fprintf(out,
                 "Usage: zeldicom store [--aet CALLING] [--aec CALLED] [--timeout SECONDS] [--trace DIR] HOST PORT PATH...\n"
                 "Sends the DICOM files and the files under the folders given to HOST:PORT over one association.\n"
                 "  --aet, -aet CALLING   calling AE title (default ZELDICOM)\n"
                 "  --aec, -aec CALLED    called AE title (default ANY-SCP)\n"
                 "  --timeout SECONDS     connect and receive time-out (default 30)\n"
                 "  --trace DIR           write the analysed protocol trace DIR/DICOMyyyymmdd.LOG\n"
                 "Exit status 0 when every DICOM file was stored, 1 when any was not, 2 on wrong arguments.\n");
    return status;
}


bool IsLongVR(const unsigned char* vr)
{
    static const char* const kLong[] = {"OB", "OW", "OF", "OD", "OL", "OV", "SQ", "UT", "UN", "UC", "UR", "SV", "UV"};
    for (const char* form : kLong)
        if (vr[0] == form[0] && vr[1] == form[1])
            return true;
    return false;
}

std::string UidText(const unsigned char* value, uint32_t length)
{
    std::string text(reinterpret_cast<const char*>(value), length);
    while (!text.empty() && (text.back() == '\0' || text.back() == ' '))
        text.pop_back();
    return text;
}

// Reads the file meta information (explicit VR little endian group 0002):
// empty reason when the file is a DICOM file this command can send.
std::string ReadStoreFile(const std::string& path, StoreFile& file)
{
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return "cannot be opened";
    std::vector<unsigned char> head(kHeadBytes);
    ssize_t count = pread(fd, head.data(), head.size(), 0);
    off_t size = lseek(fd, 0, SEEK_END);
    close(fd);
    if (count < 0 || size < 0)
        return "cannot be read";
    size_t n = static_cast<size_t>(count);
    if (!DICOMINFO::HasDicomMetaHeader(head.data(), n))
        return "not a DICOM file (no file meta information)";
    size_t pos = 132;
    while (n - pos >= 8 && ByteCursor::loadUint16LE(&head[pos]) == 0x0002) {
        uint16_t element = ByteCursor::loadUint16LE(&head[pos + 2]);
        size_t header = 8;
        uint32_t length = ByteCursor::loadUint16LE(&head[pos + 6]);
        if (IsLongVR(&head[pos + 4])) {
            if (n - pos < 12)
                break;
            header = 12;
            length = ByteCursor::loadUint32LE(&head[pos + 8]);
        }
        if (length > n - pos - header)
            return "file meta information truncated or too long";
        const unsigned char* value = &head[pos + header];
        if (element == 0x0002)
            file.sopClass = UidText(value, length);
        else if (element == 0x0003)
            file.sopInstance = UidText(value, length);
        else if (element == 0x0010)
            file.transferSyntax = UidText(value, length);
        pos += header + length;
    }
    if (n - pos < 8 && static_cast<off_t>(n) < size)
        return "file meta information truncated or too long";
    if (file.sopClass.empty() || file.sopInstance.empty() || file.transferSyntax.empty())
        return "file meta information without SOP class, SOP instance or transfer syntax";
    file.path = path;
    file.dataOffset = static_cast<int64_t>(pos);
    file.dataLength = static_cast<int64_t>(size) - file.dataOffset;
    return "";
}

// A UID's name and the UID, or the UID alone when it has no name here.
std::string UidWords(const std::string& uid)
{
    if (const TransferSyntaxInfo* syntax = FindTransferSyntax(uid))
        return FormatText("%s (%s)", syntax->name, uid.c_str());
    std::string name = GetClearUID(uid);
    return name.rfind("Unknown", 0) == 0 ? uid : FormatText("%s (%s)", name.c_str(), uid.c_str());
}

// Why no accepted context carries the file: the peer's answer to the one proposed for it.
std::string RefusalWords(const CUserSocket& socket, const StoreFile& file)
{
    std::string pair = UidWords(file.sopClass) + " in " + UidWords(file.transferSyntax);
    const CAssociateData& data = socket.m_AssociateData;
    for (int i = 0; i < data.GetPresContextCount(); ++i) {
        const CPresentationContext* context = data.GetPresContext(i);
        if (context->m_sAbstractSyntax == file.sopClass && context->GetTransferSyntax(0) == file.transferSyntax)
            return FormatText("the peer refused the presentation context for %s: %s", pair.c_str(),
                              GetClearContextAck(context->m_ucResult).c_str());
    }
    return FormatText("no presentation context left for %s (at most %zu pairs per association)", pair.c_str(),
                      kMaxContexts);
}

// The files named and those under the folders named, folders in name order.
std::vector<std::string> CollectPaths(const std::vector<std::string>& operands, std::vector<std::string>& missing)
{
    std::vector<std::string> paths;
    for (const std::string& operand : operands) {
        std::error_code error;
        if (std::filesystem::is_directory(operand, error)) {
            std::vector<std::string> found;
            for (auto it = std::filesystem::recursive_directory_iterator(operand, error);
                 !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error))
                if (it->is_regular_file(error))
                    found.push_back(it->path().string());
            std::sort(found.begin(), found.end());
            paths.insert(paths.end(), found.begin(), found.end());
        } else if (std::filesystem::is_regular_file(operand, error)) {
            paths.push_back(operand);
        } else {
            missing.push_back(operand);
        }
    }
    return paths;
}

}

int RunStore(int argc, char** argv)
{
    AssociationOptions options;
    int status = ReadAssociationOptions("store", argc, argv, 3, static_cast<size_t>(-1), Usage, options);
    if (status >= 0)
        return status;
    const std::string& calling = options.calling;
    const std::string& called = options.called;
    const std::vector<std::string>& operands = options.operands;
    const unsigned port = options.port;
    const double timeout = options.timeout;

    int failed = 0;
    std::vector<std::string> missing;
    std::vector<std::string> paths =
        CollectPaths(std::vector<std::string>(operands.begin() + 2, operands.end()), missing);
    for (const std::string& path : missing) {
        std::fprintf(stderr, "%s: not stored: no such file or folder\n", path.c_str());
        ++failed;
    }
    std::vector<StoreFile> files;
    for (const std::string& path : paths) {
        StoreFile file;
        std::string reason = ReadStoreFile(path, file);
        if (reason.empty())
            files.push_back(file);
        else
            std::fprintf(stderr, "%s: skipped: %s\n", path.c_str(), reason.c_str());
    }
    if (files.empty()) {
        std::fprintf(stderr, "zeldicom store: no DICOM file to send\n");
        return 1;
    }

    CUserSocket socket;
    socket.SetTimeout(static_cast<int>(timeout * 1000));
    socket.SetConnectionData(operands[0], port, called, calling);
    std::map<std::pair<std::string, std::string>, bool> proposed;
    for (const StoreFile& file : files) {
        auto key = std::make_pair(file.sopClass, file.transferSyntax);
        if (proposed.count(key) || proposed.size() >= kMaxContexts)
            continue;
        proposed[key] = true;
        socket.AddPresentationContext(file.sopClass.c_str(), 1, file.transferSyntax.c_str());
    }

    auto start = std::chrono::steady_clock::now();
    const std::string peer = operands[0] + ":" + operands[1];
    if (!socket.Connect()) {
        socket.m_sFailedStep = "connect";
        std::fprintf(stderr, "zeldicom store: %s: %s\n", peer.c_str(), socket.GetErrorText().c_str());
        return 1;
    }
    if (!socket.SendAssociateReq(false) || !socket.ReceiveAssociateRsp()) {
        socket.m_sFailedStep = "association";
        std::fprintf(stderr, "zeldicom store: %s: %s\n", peer.c_str(), socket.GetErrorText().c_str());
        socket.Close();
        return 1;
    }

    int stored = 0;
    int64_t bytes = 0;
    bool broken = false;
    // A progress line, rewritten after every file, when a person watches.
    const bool progress = isatty(2) != 0;
    size_t sentFiles = 0;
    int64_t sentBytes = 0;
    bool progressShown = false;
    auto endProgressLine = [&] {
        if (progressShown)
            std::fputc('\n', stderr);
        progressShown = false;
    };
    for (const StoreFile& file : files) {
        if (broken) {
            endProgressLine();
            std::fprintf(stderr, "%s: not stored: the association ended before it\n", file.path.c_str());
            ++failed;
            continue;
        }
        unsigned char id = socket.FindAcceptedContext(file.sopClass, file.transferSyntax);
        if (id == 0) {
            endProgressLine();
            std::fprintf(stderr, "%s: not stored: %s\n", file.path.c_str(), RefusalWords(socket, file).c_str());
            ++failed;
            continue;
        }
        socket.SetPresentationContext(id);
        DICOM_CMND_MSG response;
        if (!socket.SendStoreReqCmnd(file.sopClass, file.sopInstance) ||
            !socket.SendDataFromFile(Utf8ToUtf16(file.path), file.dataLength, file.dataOffset) ||
            !socket.ReceiveStoreRsp(response)) {
            socket.m_sFailedStep = "C-STORE";
            endProgressLine();
            std::fprintf(stderr, "%s: not stored: %s\n", file.path.c_str(), socket.GetErrorText().c_str());
            ++failed;
            broken = true;
            continue;
        }
        uint16_t status = response.wStatus;
        if (status == 0x0000 || (status & 0xF000) == 0xB000) {
            ++stored;
            bytes += file.dataLength;
            if (status != 0)
                std::fprintf(stderr, "%s: stored with %s\n", file.path.c_str(),
                             CUserSocket::GetStoreStatusText(status).c_str());
        } else {
            endProgressLine();
            std::fprintf(stderr, "%s: not stored: %s\n", file.path.c_str(),
                         CUserSocket::GetStoreStatusText(status).c_str());
            ++failed;
        }
        if (progress) {
            double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            double mib = static_cast<double>(sentBytes += file.dataLength) / (1 << 20);
            progressShown = true;
            std::fprintf(stderr, "\r%zu/%zu files, %.1f MiB, %.1f MiB/s ", ++sentFiles, files.size(), mib,
                         elapsed > 0 ? mib / elapsed : 0.0);
        }
    }
    endProgressLine();
    if (!broken && (!socket.SendReleaseReq() || !socket.ReceiveReleaseRsp()))
        std::fprintf(stderr, "zeldicom store: %s: %s\n", peer.c_str(), socket.GetErrorText().c_str());
    socket.Close();
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("stored %d of %d files (%lld bytes) to %s at %s in %.2f s\n", stored, stored + failed,
                static_cast<long long>(bytes), called.c_str(), peer.c_str(), seconds);
    if (!FinishOutput("store"))
        return 1;
    return failed == 0 ? 0 : 1;
}
