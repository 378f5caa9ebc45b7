#pragma once
// The bodies of the fuzz targets for the readers of peer bytes on the
// network side: the PDU codec, the association answer, the command-set
// decoder and the protocol trace's analyser. Same pattern as targets.h: a
// body returns kOk, or a Finding when an invariant broke.
#include <dirent.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "network/storageserver.h"
#include "network/usersocket.h"
#include "platform/apppath.h"
#include "targets.h"
#include "trace/dicomtrace.h"
#include "pdu/pdu.h"

namespace zelfuzz {

inline bool Inside(const unsigned char* p, size_t length, const uint8_t* data, size_t size)
{
    return p >= data && p <= data + size && length <= static_cast<size_t>(data + size - p);
}

// The codec over one PDU: its items and their sub-items (association
// PDUs), or its PDVs (P-DATA-TF). Every item and PDV handed out lies inside the input.
inline int PduTarget(const uint8_t* data, size_t size)
{
    namespace pdu = zeldicom::pdu;
    pdu::Header header;
    if (!pdu::ReadHeader(data, size, header))
        return kOk;
    size_t body = std::min<size_t>(header.length, size - pdu::kHeaderSize);
    const uint8_t* start = data + pdu::kHeaderSize;
    if (header.type == pdu::kDataTf) {
        pdu::PdvWalker pdvs(start, body);
        pdu::Pdv pdv;
        while (pdvs.Next(pdv))
            if (!Inside(pdv.fragment, pdv.fragmentLength, data, size))
                return kPointerOutsideInput;
        return kOk;
    }
    if (body < pdu::kAssociateFixedSize)
        return kOk;
    pdu::ItemWalker items(start + pdu::kAssociateFixedSize, body - pdu::kAssociateFixedSize);
    pdu::Item item;
    while (items.Next(item)) {
        if (!Inside(item.value, item.length, data, size))
            return kPointerOutsideInput;
        size_t skip = item.type == pdu::kUserInfoItem ? 0 : 4;
        if (item.length < skip)
            continue;
        pdu::ItemWalker subItems(item.value + skip, item.length - skip);
        pdu::Item sub;
        while (subItems.Next(sub))
            if (!Inside(sub.value, sub.length, data, size))
                return kPointerOutsideInput;
    }
    pdu::AssociateRj rejection;
    pdu::Abort abort;
    pdu::ReadAssociateRj(data, size, rejection);
    pdu::ReadAbort(data, size, abort);
    return kOk;
}

// Reads, writes, reads and writes again: what a reader accepts its writer
// writes, the writer's bytes are read back to the same fields, and writing
// those gives the same bytes (the codec's written form is a fixed point;
// fields a reader drops, such as reserved bytes and unknown items, are not
// written). kReloadFailed: the reader refused the writer's bytes;
// kTreeDiffers: the fields or the bytes of the second pass differ.
template <typename Fields, typename Reader, typename Writer>
inline int RoundTripThrough(const uint8_t* data, size_t size, Reader read, Writer write)
{
    Fields first;
    if (!read(data, size, first))
        return kOk;
    zeldicom::pdu::Bytes written, rewritten;
    if (!write(first, written))
        return kOk;  // a field too long for its length field: refused, not cut
    Fields second;
    if (!read(written.data(), written.size(), second))
        return kReloadFailed;
    if (!write(second, rewritten) || rewritten != written || !(second == first))
        return kTreeDiffers;
    return kOk;
}

inline int PduRoundTripTarget(const uint8_t* data, size_t size)
{
    namespace pdu = zeldicom::pdu;
    pdu::Header header;
    if (!pdu::ReadHeader(data, size, header))
        return kOk;
    switch (header.type) {
    case pdu::kAssociateRq:
        return RoundTripThrough<pdu::AssociateRq>(
            data, size, [](const uint8_t* d, size_t n, pdu::AssociateRq& out) { return pdu::ReadAssociateRq(d, n, out); },
            pdu::WriteAssociateRq);
    case pdu::kAssociateAc:
        return RoundTripThrough<pdu::AssociateAc>(
            data, size, [](const uint8_t* d, size_t n, pdu::AssociateAc& out) { return pdu::ReadAssociateAc(d, n, out); },
            pdu::WriteAssociateAc);
    case pdu::kAssociateRj:
        return RoundTripThrough<pdu::AssociateRj>(data, size, pdu::ReadAssociateRj,
                                                  [](const pdu::AssociateRj& in, pdu::Bytes& out) {
                                                      out = pdu::WriteAssociateRj(in);
                                                      return true;
                                                  });
    case pdu::kAbort:
        return RoundTripThrough<pdu::Abort>(data, size, pdu::ReadAbort, [](const pdu::Abort& in, pdu::Bytes& out) {
            out = pdu::WriteAbort(in);
            return true;
        });
    case pdu::kDataTf: {
        // Fragments point into the bytes read: compare their contents.
        struct DataTf {
            std::vector<pdu::Pdv> pdvs;
            bool operator==(const DataTf& other) const
            {
                if (pdvs.size() != other.pdvs.size())
                    return false;
                for (size_t i = 0; i < pdvs.size(); ++i) {
                    const pdu::Pdv &a = pdvs[i], &b = other.pdvs[i];
                    if (a.contextId != b.contextId || a.control != b.control || a.fragmentLength != b.fragmentLength ||
                        (a.fragmentLength && std::memcmp(a.fragment, b.fragment, a.fragmentLength) != 0))
                        return false;
                }
                return true;
            }
        };
        return RoundTripThrough<DataTf>(
            data, size, [](const uint8_t* d, size_t n, DataTf& out) { return pdu::ReadDataTf(d, n, out.pdvs); },
            [](const DataTf& in, pdu::Bytes& out) { return pdu::WriteDataTf(in.pdvs, out); });
    }
    default:
        return kOk;
    }
}

// A socketpair whose far end has sent the bytes and ended its writing; it
// stays open (closed by the caller) to take what the near end answers. The
// near end, or -1 when the bytes could not be sent.
inline int FedSocket(const uint8_t* data, size_t size, int& farEnd)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return -1;
    int buffer = 1 << 18;
    setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    const bool written = size == 0 || write(ends[1], data, size) == static_cast<ssize_t>(size);
    shutdown(ends[1], SHUT_WR);
    if (!written) {
        close(ends[0]);
        close(ends[1]);
        return -1;
    }
    farEnd = ends[1];
    return ends[0];
}

// The answer to an A-ASSOCIATE-RQ as the client receives it: the bytes
// arrive over a socketpair whose far end then stops sending, and the association
// reads them as it would from a peer (receive buffer, AC/RJ reader).
inline int AssociateAnswerTarget(const uint8_t* data, size_t size)
{
    if (size > 65536)
        return kOk;
    zeldicom::pdu::AssociateAc answer;
    zeldicom::pdu::ReadAssociateAc(data, size, answer);
    for (const auto& context : answer.contexts)
        if (context.transferSyntax.size() > size)
            return kConsumedTooMuch;
    int farEnd = -1;
    const int nearEnd = FedSocket(data, size, farEnd);
    if (nearEnd < 0)
        return kOk;
    CUserSocket client;
    client.Adopt(nearEnd);
    client.AddPresentationContext("1.2.840.10008.1.1", 1, "1.2.840.10008.1.2");
    client.AddPresentationContext("1.2.840.10008.5.1.4.1.1.2", 1, "1.2.840.10008.1.2.1");
    client.SetTimeout(1000);
    client.ReceiveAssociateRsp();
    client.GetErrorText();
    close(farEnd);
    return kOk;
}

// The storage server's side of one association, fed the bytes as a
// caller's stream that then ends: negotiation as acceptor (request,
// contexts, rejection), every PDU and message that follows (C-ECHO,
// C-STORE into files, release, abort). Whatever it wrote is removed, and no
// file or temporary may be left unnamed: a stored file must carry the name
// its request gave it.
inline int AcceptorTarget(const uint8_t* data, size_t size)
{
    if (size > 65536)
        return kOk;
    static const std::string folder = "/tmp/zeldicom-fuzz-acceptor-" + std::to_string(getpid());
    mkdir(folder.c_str(), 0700);
    int farEnd = -1;
    const int nearEnd = FedSocket(data, size, farEnd);
    if (nearEnd < 0)
        return kOk;
    STORAGE_SERVER_SETTINGS settings;
    settings.folder = folder;
    settings.timeoutMs = 1000;
    CStorageServer server(settings);
    int finding = kOk;
    server.SetEventCallback([&finding](const STORAGE_EVENT& event) {
        if (event.kind == STORAGE_EVENT::kStored && event.stored.status == 0 && event.stored.path.empty())
            finding = kSaveFailed;
    });
    CUserSocket socket;
    socket.Adopt(nearEnd);
    server.Serve(socket);
    close(farEnd);
    if (DIR* entries = opendir(folder.c_str())) {
        while (dirent* entry = readdir(entries)) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..")
                continue;
            // A temporary left behind after the association ended is a leak.
            if (name.rfind(".zeldicom-", 0) == 0)
                finding = kSaveFailed;
            unlink((folder + "/" + name).c_str());
        }
        closedir(entries);
    }
    return finding;
}

struct GroupWalk {
    const uint8_t* data;
    size_t size;
    int finding = kOk;
};

inline void GroupWalkProc(TAG_HEADER* element, void* context)
{
    auto* walk = static_cast<GroupWalk*>(context);
    const auto* header = reinterpret_cast<const uint8_t*>(element);
    if (!Inside(header, 8, walk->data, walk->size) || !Inside(header + 8, element->nLength, walk->data, walk->size))
        walk->finding = kValueOutsideInput;
}

// A received command set, decoded into the message record and walked as one group.
inline int CommandSetTarget(const uint8_t* data, size_t size)
{
    DICOM_CMND_MSG message;
    CDicomSocket::DecodeCommandSet(data, InputCount(size), message);
    // Text fields stay terminated within their width.
    if (strnlen(message.szAffectedSOPClassUID, 65) == 65 || strnlen(message.szExtraText, 256) == 256)
        return kConsumedTooMuch;
    GroupWalk walk{data, size};
    CDicomSocket::ReadDicomGroup(0x0000, data, InputCount(size), GroupWalkProc, &walk);
    return walk.finding;
}

// The trace analyser at level 1 or 2 over a PDU and over a data set. Byte
// 0: bit 0 level 2, bit 1 big endian. The trace file cannot be opened
// (its folder is not a folder), so every line is composed and dropped.
inline int TraceAnalyserTarget(const uint8_t* data, size_t size)
{
    if (size < 1)
        return kOk;
    CAppPath::GetAppPathInstance().SetPath(u"temp", u"/dev/null/");
    CDicomTraceSettings::SetTrace((data[0] & 1) ? 2 : 1);
    int bigEndian = (data[0] & 2) ? 1 : 0;
    const uint8_t* block = data + 1;
    int count = InputCount(size - 1);
    AnalyzeBlock("Fuzz", block, count);
    AnalyzeBlockDATA_TF("Fuzz", block, count);
    DicomTraceAnalyzeBlock("Fuzz", block, static_cast<uint32_t>(count), bigEndian);
    CDicomTraceSettings::SetTrace(0);
    return kOk;
}

}
