#include "trace/pdu.h"

namespace zeldicom::pdu {

bool ReadHeader(const unsigned char* data, size_t size, Header& out)
{
    ByteCursor cursor(data, size);
    return cursor.readUint8(out.type) && cursor.skip(1) && cursor.readUint32BE(out.length);
}

bool ItemWalker::Next(Item& out)
{
    if (m_malformed || m_cursor.remaining() == 0)
        return false;
    if (!m_cursor.readUint8(out.type) || !m_cursor.skip(1) || !m_cursor.readUint16BE(out.length) ||
        !m_cursor.has(out.length)) {
        m_malformed = true;
        return false;
    }
    out.value = m_cursor.here();
    m_cursor.skip(out.length);
    return true;
}

bool PdvWalker::Next(Pdv& out)
{
    if (m_malformed || m_cursor.remaining() == 0)
        return false;
    uint32_t length = 0;
    if (!m_cursor.readUint32BE(length) || length < 2 || !m_cursor.has(length)) {
        m_malformed = true;
        return false;
    }
    m_cursor.readUint8(out.contextId);
    m_cursor.readUint8(out.control);
    out.fragment = m_cursor.here();
    out.fragmentLength = length - 2;
    m_cursor.skip(out.fragmentLength);
    return true;
}

namespace {

std::string Text(const unsigned char* bytes, size_t length)
{
    return std::string(reinterpret_cast<const char*>(bytes), length);
}

bool Refuse(std::string* problem, const char* what)
{
    if (problem)
        *problem = what;
    return false;
}

bool ReadContextResult(const Item& item, ContextResult& out, std::string* problem)
{
    // Context ID, reserved, result/reason, reserved, then one transfer syntax sub-item.
    ByteCursor cursor(item.value, item.length);
    if (!cursor.readUint8(out.id) || !cursor.skip(1) || !cursor.readUint8(out.result) || !cursor.skip(1))
        return Refuse(problem, "presentation context item shorter than 4 bytes");
    ItemWalker subItems(cursor.here(), cursor.remaining());
    Item sub;
    while (subItems.Next(sub))
        if (sub.type == kTransferSyntaxSubItem && out.result == 0 && out.transferSyntax.empty())
            out.transferSyntax = Text(sub.value, sub.length);
    if (subItems.Malformed())
        return Refuse(problem, "transfer syntax sub-item runs past its presentation context item");
    // A UID padded to even length carries a trailing zero byte.
    while (!out.transferSyntax.empty() && (out.transferSyntax.back() == '\0' || out.transferSyntax.back() == ' '))
        out.transferSyntax.pop_back();
    return true;
}

bool ReadUserInfo(const Item& item, AssociateAc& out, std::string* problem)
{
    ItemWalker subItems(item.value, item.length);
    Item sub;
    while (subItems.Next(sub)) {
        if (sub.type == kMaxLengthSubItem) {
            ByteCursor value(sub.value, sub.length);
            if (!value.readUint32BE(out.maxLength))
                return Refuse(problem, "maximum length sub-item shorter than 4 bytes");
            out.hasMaxLength = true;
        } else if (sub.type == kImplementationClassSubItem)
            out.implementationClass = Text(sub.value, sub.length);
        else if (sub.type == kImplementationVersionSubItem)
            out.implementationVersion = Text(sub.value, sub.length);
    }
    if (subItems.Malformed())
        return Refuse(problem, "sub-item runs past the user information item");
    return true;
}

}

bool ReadAssociateAc(const unsigned char* pdu, size_t size, AssociateAc& out, std::string* problem)
{
    out = AssociateAc{};
    Header header;
    if (!ReadHeader(pdu, size, header) || header.type != kAssociateAc)
        return Refuse(problem, "not an A-ASSOCIATE-AC");
    if (header.length > size - kHeaderSize)
        return Refuse(problem, "PDU length runs past the bytes received");
    if (header.length < kAssociateFixedSize)
        return Refuse(problem, "A-ASSOCIATE-AC shorter than its fixed fields");
    ByteCursor cursor(pdu + kHeaderSize, header.length);
    cursor.readUint16BE(out.protocolVersion);
    cursor.skip(2);
    out.calledTitle = Text(cursor.here(), 16);
    cursor.skip(16);
    out.callingTitle = Text(cursor.here(), 16);
    cursor.skip(16 + 32);
    ItemWalker items(cursor.here(), cursor.remaining());
    Item item;
    while (items.Next(item)) {
        if (item.type == kPresentationContextAcItem) {
            ContextResult context;
            if (!ReadContextResult(item, context, problem))
                return false;
            out.contexts.push_back(std::move(context));
        } else if (item.type == kUserInfoItem && !ReadUserInfo(item, out, problem))
            return false;
    }
    if (items.Malformed())
        return Refuse(problem, "item length runs past the end of the A-ASSOCIATE-AC");
    return true;
}

bool ReadAssociateRq(const unsigned char* pdu, size_t size, AssociateRq& out, std::string* problem)
{
    out = AssociateRq{};
    Header header;
    if (!ReadHeader(pdu, size, header) || header.type != kAssociateRq)
        return Refuse(problem, "not an A-ASSOCIATE-RQ");
    if (header.length > size - kHeaderSize)
        return Refuse(problem, "PDU length runs past the bytes received");
    if (header.length < kAssociateFixedSize)
        return Refuse(problem, "A-ASSOCIATE-RQ shorter than its fixed fields");
    ByteCursor cursor(pdu + kHeaderSize, header.length);
    cursor.skip(4);
    out.calledTitle = Text(cursor.here(), 16);
    cursor.skip(16);
    out.callingTitle = Text(cursor.here(), 16);
    cursor.skip(16 + 32);
    ItemWalker items(cursor.here(), cursor.remaining());
    Item item;
    while (items.Next(item)) {
        if (item.type == kPresentationContextRqItem) {
            // Context ID, three reserved bytes, the abstract syntax, the transfer syntaxes.
            ProposedContext context;
            ByteCursor value(item.value, item.length);
            if (!value.readUint8(context.id) || !value.skip(3))
                return Refuse(problem, "presentation context item shorter than 4 bytes");
            ItemWalker subItems(value.here(), value.remaining());
            Item sub;
            while (subItems.Next(sub)) {
                std::string uid = Text(sub.value, sub.length);
                while (!uid.empty() && (uid.back() == '\0' || uid.back() == ' '))
                    uid.pop_back();
                if (sub.type == kAbstractSyntaxSubItem)
                    context.abstractSyntax = uid;
                else if (sub.type == kTransferSyntaxSubItem && context.transferSyntaxes.size() < 64)
                    context.transferSyntaxes.push_back(uid);
            }
            if (subItems.Malformed())
                return Refuse(problem, "sub-item runs past its presentation context item");
            if (out.contexts.size() < 128)
                out.contexts.push_back(std::move(context));
        } else if (item.type == kUserInfoItem) {
            ItemWalker subItems(item.value, item.length);
            Item sub;
            while (subItems.Next(sub)) {
                ByteCursor value(sub.value, sub.length);
                uint16_t uidLength = 0;
                if (sub.type == kMaxLengthSubItem)
                    value.readUint32BE(out.maxLength);
                else if (sub.type == kRoleSelectionSubItem && value.readUint16BE(uidLength) && value.has(uidLength + 2u)) {
                    RoleSelection role;
                    role.sopClass = Text(value.here(), uidLength);
                    value.skip(uidLength);
                    value.readUint8(role.scu);
                    value.readUint8(role.scp);
                    if (out.roles.size() < 128)
                        out.roles.push_back(role);
                }
            }
            if (subItems.Malformed())
                return Refuse(problem, "sub-item runs past the user information item");
        }
    }
    if (items.Malformed())
        return Refuse(problem, "item length runs past the end of the A-ASSOCIATE-RQ");
    return true;
}

bool ReadAssociateRj(const unsigned char* pdu, size_t size, AssociateRj& out)
{
    Header header;
    if (!ReadHeader(pdu, size, header) || header.type != kAssociateRj || header.length < 4 || size < 10)
        return false;
    out.result = pdu[7];
    out.source = pdu[8];
    out.reason = pdu[9];
    return true;
}

bool ReadAbort(const unsigned char* pdu, size_t size, Abort& out)
{
    Header header;
    if (!ReadHeader(pdu, size, header) || header.type != kAbort || header.length < 4 || size < 10)
        return false;
    out.source = pdu[8];
    out.reason = pdu[9];
    return true;
}

void PutUint16(Bytes& out, uint16_t value)
{
    out.push_back(static_cast<unsigned char>(value >> 8));
    out.push_back(static_cast<unsigned char>(value));
}

void PutUint32(Bytes& out, uint32_t value)
{
    PutUint16(out, static_cast<uint16_t>(value >> 16));
    PutUint16(out, static_cast<uint16_t>(value));
}

void PutItem(Bytes& out, uint8_t type, const void* value, size_t length)
{
    if (length > 0xFFFF)
        length = 0xFFFF;
    out.push_back(type);
    out.push_back(0);
    PutUint16(out, static_cast<uint16_t>(length));
    const auto* bytes = static_cast<const unsigned char*>(value);
    out.insert(out.end(), bytes, bytes + length);
}

void PutItem(Bytes& out, uint8_t type, const std::string& value) { PutItem(out, type, value.data(), value.size()); }

Bytes MakePdu(uint8_t type, const Bytes& body)
{
    Bytes out;
    out.reserve(kHeaderSize + body.size());
    out.push_back(type);
    out.push_back(0);
    PutUint32(out, static_cast<uint32_t>(body.size()));
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

void PutTitle(Bytes& out, const std::string& title, char filler)
{
    for (size_t i = 0; i < 16; ++i)
        out.push_back(static_cast<unsigned char>(i < title.size() ? title[i] : filler));
}

}
