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

// What an A-ASSOCIATE-AC says (PS3.8 9.3.3).
struct ContextResult {
    uint8_t id = 0;
    uint8_t result = 0;
    std::string transferSyntax;  // empty unless accepted
};
struct AssociateAc {
    uint16_t protocolVersion = 0;
    std::string calledTitle, callingTitle;  // 16 characters as they travel
    std::vector<ContextResult> contexts;
    bool hasMaxLength = false;
    uint32_t maxLength = 0;  // 0: no limit
    std::string implementationClass, implementationVersion;
};
// Reads a whole A-ASSOCIATE-AC PDU, header included. False when it is not
// one, is shorter than its fixed part, or an item or sub-item runs past its
// container; `problem` then names what was wrong.
bool ReadAssociateAc(const unsigned char* pdu, size_t size, AssociateAc& out, std::string* problem = nullptr);

// What an A-ASSOCIATE-RQ proposes (PS3.8 9.3.2), for the accepting side.
struct ProposedContext {
    uint8_t id = 0;
    std::string abstractSyntax;
    std::vector<std::string> transferSyntaxes;
};
struct RoleSelection {
    std::string sopClass;
    uint8_t scu = 0, scp = 0;
};
struct AssociateRq {
    std::string calledTitle, callingTitle;
    std::vector<ProposedContext> contexts;  // at most 128
    std::vector<RoleSelection> roles;
    uint32_t maxLength = 0;
};
bool ReadAssociateRq(const unsigned char* pdu, size_t size, AssociateRq& out, std::string* problem = nullptr);

struct AssociateRj {
    uint8_t result = 0;  // 1 permanent, 2 transient
    uint8_t source = 0;  // 1 service user, 2 provider (ACSE), 3 provider (presentation)
    uint8_t reason = 0;
};
bool ReadAssociateRj(const unsigned char* pdu, size_t size, AssociateRj& out);

struct Abort {
    uint8_t source = 0;  // 0 service user, 2 service provider
    uint8_t reason = 0;
};
bool ReadAbort(const unsigned char* pdu, size_t size, Abort& out);

// --- writers: big-endian fields appended to a byte vector
using Bytes = std::vector<unsigned char>;
void PutUint16(Bytes& out, uint16_t value);
void PutUint32(Bytes& out, uint32_t value);
// An item (or sub-item) of at most 65535 value bytes.
void PutItem(Bytes& out, uint8_t type, const void* value, size_t length);
void PutItem(Bytes& out, uint8_t type, const std::string& value);
// The 6-byte header in front of a body.
Bytes MakePdu(uint8_t type, const Bytes& body);
// A 16-byte AE title field: the characters, then `filler` bytes.
void PutTitle(Bytes& out, const std::string& title, char filler);

}
