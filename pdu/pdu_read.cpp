// PDU readers: every length a peer sends is compared with the bytes there.
#include "pdu/pdu.h"

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

// A UID padded to even length carries a trailing zero byte (or, from some
// peers, a blank).
std::string Uid(const unsigned char* bytes, size_t length)
{
    std::string uid = Text(bytes, length);
    while (!uid.empty() && (uid.back() == '\0' || uid.back() == ' '))
        uid.pop_back();
    return uid;
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
    bool seen = false;
    while (subItems.Next(sub))
        if (sub.type == kTransferSyntaxSubItem && !seen) {
            seen = true;
            // PS3.8 9.3.3.2: the sub-item is not significant unless the context was accepted.
            if (out.result == 0)
                out.transferSyntax = Uid(sub.value, sub.length);
        }
    if (subItems.Malformed())
        return Refuse(problem, "transfer syntax sub-item runs past its presentation context item");
    return true;
}

bool ReadProposedContext(const Item& item, ProposedContext& out, std::string* problem)
{
    // Context ID, three reserved bytes, the abstract syntax, the transfer syntaxes.
    ByteCursor value(item.value, item.length);
    if (!value.readUint8(out.id) || !value.skip(3))
        return Refuse(problem, "presentation context item shorter than 4 bytes");
    ItemWalker subItems(value.here(), value.remaining());
    Item sub;
    while (subItems.Next(sub)) {
        if (sub.type == kAbstractSyntaxSubItem)
            out.abstractSyntax = Uid(sub.value, sub.length);
        else if (sub.type == kTransferSyntaxSubItem && out.transferSyntaxes.size() < 64)
            out.transferSyntaxes.push_back(Uid(sub.value, sub.length));
    }
    if (subItems.Malformed())
        return Refuse(problem, "sub-item runs past its presentation context item");
    return true;
}

bool ReadUserInfo(const Item& item, AssociateFields& out, std::string* problem)
{
    ItemWalker subItems(item.value, item.length);
    Item sub;
    while (subItems.Next(sub)) {
        ByteCursor value(sub.value, sub.length);
        uint16_t uidLength = 0;
        if (sub.type == kMaxLengthSubItem) {
            if (!value.readUint32BE(out.maxLength))
                return Refuse(problem, "maximum length sub-item shorter than 4 bytes");
            out.hasMaxLength = true;
        } else if (sub.type == kImplementationClassSubItem)
            out.implementationClass = Uid(sub.value, sub.length);
        else if (sub.type == kImplementationVersionSubItem)
            out.implementationVersion = Text(sub.value, sub.length);
        else if (sub.type == kRoleSelectionSubItem && value.readUint16BE(uidLength) && value.has(uidLength + 2u)) {
            RoleSelection role;
            role.sopClass = Uid(value.here(), uidLength);
            value.skip(uidLength);
            value.readUint8(role.scu);
            value.readUint8(role.scp);
            if (out.roles.size() < 128)
                out.roles.push_back(role);
        }
    }
    if (subItems.Malformed())
        return Refuse(problem, "sub-item runs past the user information item");
    return true;
}

// The header, the fixed fields and the items of an A-ASSOCIATE-RQ or -AC;
// readContext reads each presentation context item of the PDU's kind.
template <typename Pdu, typename Context>
bool ReadAssociate(const unsigned char* pdu, size_t size, uint8_t type, uint8_t contextItem, Pdu& out,
                   std::string* problem, bool (*readContext)(const Item&, Context&, std::string*))
{
    out = Pdu{};
    Header header;
    if (!ReadHeader(pdu, size, header) || header.type != type)
        return Refuse(problem, type == kAssociateAc ? "not an A-ASSOCIATE-AC" : "not an A-ASSOCIATE-RQ");
    if (header.length > size - kHeaderSize)
        return Refuse(problem, "PDU length runs past the bytes received");
    if (header.length < kAssociateFixedSize)
        return Refuse(problem, "association PDU shorter than its fixed fields");
    ByteCursor cursor(pdu + kHeaderSize, header.length);
    cursor.readUint16BE(out.protocolVersion);
    cursor.skip(2);
    out.calledTitle = Text(cursor.here(), 16);
    cursor.skip(16);
    out.callingTitle = Text(cursor.here(), 16);
    cursor.skip(16 + 32);
    out.applicationContext.clear();
    ItemWalker items(cursor.here(), cursor.remaining());
    Item item;
    while (items.Next(item)) {
        if (item.type == kApplicationContextItem) {
            out.applicationContext = Uid(item.value, item.length);
        } else if (item.type == kUserInfoItem) {
            if (!ReadUserInfo(item, out, problem))
                return false;
        } else if (item.type == contextItem) {
            Context context;
            if (!readContext(item, context, problem))
                return false;
            // Context IDs are odd numbers from 1 to 255: at most 128.
            if (out.contexts.size() < 128)
                out.contexts.push_back(std::move(context));
        }
    }
    if (items.Malformed())
        return Refuse(problem, "item length runs past the end of the association PDU");
    return true;
}

}

bool ReadAssociateAc(const unsigned char* pdu, size_t size, AssociateAc& out, std::string* problem)
{
    return ReadAssociate(pdu, size, kAssociateAc, kPresentationContextAcItem, out, problem, ReadContextResult);
}

bool ReadAssociateRq(const unsigned char* pdu, size_t size, AssociateRq& out, std::string* problem)
{
    return ReadAssociate(pdu, size, kAssociateRq, kPresentationContextRqItem, out, problem, ReadProposedContext);
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

bool ReadDataTf(const unsigned char* pdu, size_t size, std::vector<Pdv>& out)
{
    out.clear();
    Header header;
    if (!ReadHeader(pdu, size, header) || header.type != kDataTf || header.length > size - kHeaderSize)
        return false;
    PdvWalker walker(pdu + kHeaderSize, header.length);
    Pdv pdv;
    while (walker.Next(pdv))
        out.push_back(pdv);
    return !walker.Malformed();
}

}
