#pragma once
// DICOM upper layer PDUs (PS3.8 9.3) as bytes: headers, items, sub-items and
// PDVs read through the checked byte cursor, and the writers that build
// them. Nothing here knows sockets: the transport, the association, the
// trace analyser and the fuzz targets all read peer bytes through these.
// Every length a peer sends is checked against the bytes that are there.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "dicomdata/bytecursor.h"

namespace zeldicom::pdu {

enum PduType : uint8_t {
    kAssociateRq = 0x01,
    kAssociateAc = 0x02,
    kAssociateRj = 0x03,
    kDataTf = 0x04,
    kReleaseRq = 0x05,
    kReleaseRp = 0x06,
    kAbort = 0x07,
};

enum ItemType : uint8_t {
    kApplicationContextItem = 0x10,
    kPresentationContextRqItem = 0x20,
    kPresentationContextAcItem = 0x21,
    kAbstractSyntaxSubItem = 0x30,
    kTransferSyntaxSubItem = 0x40,
    kUserInfoItem = 0x50,
    kMaxLengthSubItem = 0x51,
    kImplementationClassSubItem = 0x52,
    kAsyncOperationsSubItem = 0x53,
    kRoleSelectionSubItem = 0x54,
    kImplementationVersionSubItem = 0x55,
};

constexpr size_t kHeaderSize = 6;
// Association PDUs: protocol version, reserved, two AE titles, 32 reserved
// bytes between the header and the first item.
constexpr size_t kAssociateFixedSize = 68;
constexpr char kApplicationContextName[] = "1.2.840.10008.3.1.1.1";
// The PDV message control header (PS3.8 E.2).
constexpr uint8_t kCommandBit = 0x01;
constexpr uint8_t kLastFragmentBit = 0x02;

struct Header {
    uint8_t type = 0;
    uint32_t length = 0;  // bytes behind the 6-byte header
};
// The header at the start of data; false when fewer than 6 bytes are given.
bool ReadHeader(const unsigned char* data, size_t size, Header& out);

// An item or sub-item: type, reserved byte, 16-bit big-endian length, value.
struct Item {
    uint8_t type = 0;
    const unsigned char* value = nullptr;
    uint16_t length = 0;
};

// Walks the items that fill a byte range. Next() is false at the end, or
// when an item's length runs past the range (Malformed() then says so).
class ItemWalker {
public:
    ItemWalker(const unsigned char* data, size_t size) : m_cursor(data, size) {}
    bool Next(Item& out);
    bool Malformed() const { return m_malformed; }

private:
    ByteCursor m_cursor;
    bool m_malformed = false;
};

// A presentation data value of a P-DATA-TF (PS3.8 9.3.5.1).
struct Pdv {
    uint8_t contextId = 0;
    uint8_t control = 0;
    const unsigned char* fragment = nullptr;
    uint32_t fragmentLength = 0;
    bool IsCommand() const { return (control & kCommandBit) != 0; }
    bool IsLast() const { return (control & kLastFragmentBit) != 0; }
};

// Walks the PDV items of a P-DATA-TF body (the bytes behind the header). An
// item shorter than its 2-byte control part, or longer than what is left,
// is malformed.
class PdvWalker {
public:
    PdvWalker(const unsigned char* body, size_t size) : m_cursor(body, size) {}
    bool Next(Pdv& out);
    bool Malformed() const { return m_malformed; }
    size_t Position() const { return m_cursor.position(); }

private:
    ByteCursor m_cursor;
    bool m_malformed = false;
};

// The fields that A-ASSOCIATE-RQ and -AC share (PS3.8 9.3.2, 9.3.3): the
// fixed part, the application context and the user information sub-items
// this library reads and writes (PS3.7 D.3.3).
struct RoleSelection {
    std::string sopClass;
    uint8_t scu = 0, scp = 0;
    bool operator==(const RoleSelection&) const = default;
};
struct AssociateFields {
    uint16_t protocolVersion = 1;
    // The 16 bytes as they travel; a writer fills a shorter title with zero bytes.
    std::string calledTitle, callingTitle;
    std::string applicationContext = kApplicationContextName;
    bool hasMaxLength = false;
    uint32_t maxLength = 0;  // 0: no limit
    std::string implementationClass, implementationVersion;
    std::vector<RoleSelection> roles;  // at most 128 are read
    bool operator==(const AssociateFields&) const = default;
};

// What an A-ASSOCIATE-AC says (PS3.8 9.3.3).
struct ContextResult {
    uint8_t id = 0;
    uint8_t result = 0;
    std::string transferSyntax;  // empty unless accepted
    bool operator==(const ContextResult&) const = default;
};
struct AssociateAc : AssociateFields {
    std::vector<ContextResult> contexts;
    bool operator==(const AssociateAc&) const = default;
};
// Reads a whole A-ASSOCIATE-AC PDU, header included. False when it is not
// one, is shorter than its fixed part, or an item or sub-item runs past its
// container; `problem` then names what was wrong.
bool ReadAssociateAc(const unsigned char* pdu, size_t size, AssociateAc& out, std::string* problem = nullptr);

// What an A-ASSOCIATE-RQ proposes (PS3.8 9.3.2).
struct ProposedContext {
    uint8_t id = 0;
    std::string abstractSyntax;
    std::vector<std::string> transferSyntaxes;  // at most 64 are read
    bool operator==(const ProposedContext&) const = default;
};
struct AssociateRq : AssociateFields {
    std::vector<ProposedContext> contexts;  // at most 128 are read
    bool operator==(const AssociateRq&) const = default;
};
bool ReadAssociateRq(const unsigned char* pdu, size_t size, AssociateRq& out, std::string* problem = nullptr);

struct AssociateRj {
    uint8_t result = 0;  // 1 permanent, 2 transient
    uint8_t source = 0;  // 1 service user, 2 provider (ACSE), 3 provider (presentation)
    uint8_t reason = 0;
    bool operator==(const AssociateRj&) const = default;
};
bool ReadAssociateRj(const unsigned char* pdu, size_t size, AssociateRj& out);

struct Abort {
    uint8_t source = 0;  // 0 service user, 2 service provider
    uint8_t reason = 0;
    bool operator==(const Abort&) const = default;
};
bool ReadAbort(const unsigned char* pdu, size_t size, Abort& out);

// The PDVs of a whole P-DATA-TF PDU, header included; the fragments point
// into the PDU. False when it is not one or a PDV is malformed.
bool ReadDataTf(const unsigned char* pdu, size_t size, std::vector<Pdv>& out);

// --- writers: the counterpart of every reader. Each builds a whole PDU,
// header included, into `out` (replacing what it held). A writer whose
// field does not fit its length field (an item of more than 65535 bytes, a
// PDU of more than 4 GiB) returns false instead of cutting it short.
using Bytes = std::vector<unsigned char>;
// The 6-byte PDU header in front of a body of `length` bytes.
void WriteHeader(uint8_t type, uint32_t length, unsigned char (&head)[kHeaderSize]);
void PutUint16(Bytes& out, uint16_t value);
void PutUint32(Bytes& out, uint32_t value);
// An item (or sub-item) of at most 65535 value bytes; false, with nothing
// appended, for a longer value.
[[nodiscard]] bool PutItem(Bytes& out, uint8_t type, const void* value, size_t length);
[[nodiscard]] bool PutItem(Bytes& out, uint8_t type, const std::string& value);

[[nodiscard]] bool WriteAssociateRq(const AssociateRq& request, Bytes& out);
[[nodiscard]] bool WriteAssociateAc(const AssociateAc& answer, Bytes& out);
Bytes WriteAssociateRj(const AssociateRj& rejection);
Bytes WriteAbort(const Abort& abort);
Bytes WriteReleaseRq();
Bytes WriteReleaseRp();
[[nodiscard]] bool WriteDataTf(const std::vector<Pdv>& pdvs, Bytes& out);

// The 12 bytes in front of a P-DATA-TF that carries one PDV: the PDU
// header and the PDV item header, the fragment itself left to the caller
// (so that a large fragment leaves from where it lies). False when the
// fragment is too long for a PDU.
constexpr size_t kDataTfHeadSize = 12;
[[nodiscard]] bool WriteDataTfHead(unsigned char (&head)[kDataTfHeadSize], uint64_t fragmentLength, uint8_t contextId,
                                   uint8_t control);
// The message control header of a PDV.
constexpr uint8_t Control(bool command, bool last)
{
    return static_cast<uint8_t>((command ? kCommandBit : 0) | (last ? kLastFragmentBit : 0));
}

}
