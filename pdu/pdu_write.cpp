// PDU writers, one for every reader: whole PDUs with big-endian lengths
// (PS3.8 9.3). A field too long for its length field fails the writer.
#include "pdu/pdu.h"

#include <algorithm>

namespace zeldicom::pdu {

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

void WriteHeader(uint8_t type, uint32_t length, unsigned char (&head)[kHeaderSize])
{
    head[0] = type;
    head[1] = 0;
    for (int i = 0; i < 4; ++i)
        head[2 + i] = static_cast<unsigned char>(length >> (24 - 8 * i));
}

bool PutItem(Bytes& out, uint8_t type, const void* value, size_t length)
{
    if (length > 0xFFFF)
        return false;
    out.push_back(type);
    out.push_back(0);
    PutUint16(out, static_cast<uint16_t>(length));
    const auto* bytes = static_cast<const unsigned char*>(value);
    out.insert(out.end(), bytes, bytes + length);
    return true;
}

bool PutItem(Bytes& out, uint8_t type, const std::string& value) { return PutItem(out, type, value.data(), value.size()); }

namespace {

bool FinishPdu(uint8_t type, const Bytes& body, Bytes& out)
{
    if (body.size() > 0xFFFFFFFFu - kHeaderSize)
        return false;
    unsigned char head[kHeaderSize];
    WriteHeader(type, static_cast<uint32_t>(body.size()), head);
    out.assign(head, head + kHeaderSize);
    out.insert(out.end(), body.begin(), body.end());
    return true;
}

Bytes FixedPdu(uint8_t type, uint8_t byte7, uint8_t byte8, uint8_t byte9)
{
    return {type, 0, 0, 0, 0, 4, 0, byte7, byte8, byte9};
}

// PS3.8 9.3.2: an AE title field is 16 bytes. The reader hands out the 16
// bytes as they travelled; a shorter title is filled with zero bytes.
void PutTitle(Bytes& out, const std::string& title)
{
    for (size_t i = 0; i < 16; ++i)
        out.push_back(static_cast<unsigned char>(i < title.size() ? title[i] : '\0'));
}

// The fixed fields, the application context, the presentation context
// items the caller appended to `contexts`, and the user information.
bool WriteAssociate(uint8_t type, const AssociateFields& fields, const Bytes& contexts, Bytes& out)
{
    Bytes body;
    PutUint16(body, fields.protocolVersion);
    PutUint16(body, 0);
    PutTitle(body, fields.calledTitle);
    PutTitle(body, fields.callingTitle);
    body.insert(body.end(), 32, 0);
    if (!PutItem(body, kApplicationContextItem, fields.applicationContext))
        return false;
    body.insert(body.end(), contexts.begin(), contexts.end());

    // PS3.7 D.3.3: maximum length, implementation class UID, role
    // selections, implementation version name.
    Bytes user;
    if (fields.hasMaxLength) {
        Bytes maximum;
        PutUint32(maximum, fields.maxLength);
        if (!PutItem(user, kMaxLengthSubItem, maximum.data(), maximum.size()))
            return false;
    }
    if (!fields.implementationClass.empty() && !PutItem(user, kImplementationClassSubItem, fields.implementationClass))
        return false;
    for (const RoleSelection& role : fields.roles) {
        if (role.sopClass.size() > 0xFFFF - 4)
            return false;
        Bytes value;
        PutUint16(value, static_cast<uint16_t>(role.sopClass.size()));
        value.insert(value.end(), role.sopClass.begin(), role.sopClass.end());
        value.push_back(role.scu);
        value.push_back(role.scp);
        if (!PutItem(user, kRoleSelectionSubItem, value.data(), value.size()))
            return false;
    }
    if (!fields.implementationVersion.empty() &&
        !PutItem(user, kImplementationVersionSubItem, fields.implementationVersion))
        return false;
    return PutItem(body, kUserInfoItem, user.data(), user.size()) && FinishPdu(type, body, out);
}

}

bool WriteAssociateRq(const AssociateRq& request, Bytes& out)
{
    Bytes contexts;
    for (const ProposedContext& context : request.contexts) {
        Bytes value{context.id, 0, 0, 0};
        if (!PutItem(value, kAbstractSyntaxSubItem, context.abstractSyntax))
            return false;
        for (const std::string& uid : context.transferSyntaxes)
            if (!PutItem(value, kTransferSyntaxSubItem, uid))
                return false;
        if (!PutItem(contexts, kPresentationContextRqItem, value.data(), value.size()))
            return false;
    }
    return WriteAssociate(kAssociateRq, request, contexts, out);
}

bool WriteAssociateAc(const AssociateAc& answer, Bytes& out)
{
    Bytes contexts;
    for (const ContextResult& context : answer.contexts) {
        Bytes value{context.id, 0, context.result, 0};
        // PS3.8 9.3.3.2: a refused context still carries a transfer syntax
        // sub-item, which the requestor ignores; an accepted one carries its own.
        const std::string& uid = context.result != 0 && context.transferSyntax.empty()
                                     ? std::string("1.2.840.10008.1.2")
                                     : context.transferSyntax;
        if (!PutItem(value, kTransferSyntaxSubItem, uid) ||
            !PutItem(contexts, kPresentationContextAcItem, value.data(), value.size()))
            return false;
    }
    return WriteAssociate(kAssociateAc, answer, contexts, out);
}

Bytes WriteAssociateRj(const AssociateRj& rejection)
{
    return FixedPdu(kAssociateRj, rejection.result, rejection.source, rejection.reason);
}

Bytes WriteAbort(const Abort& abort) { return FixedPdu(kAbort, 0, abort.source, abort.reason); }

Bytes WriteReleaseRq() { return FixedPdu(kReleaseRq, 0, 0, 0); }

Bytes WriteReleaseRp() { return FixedPdu(kReleaseRp, 0, 0, 0); }

bool WriteDataTf(const std::vector<Pdv>& pdvs, Bytes& out)
{
    Bytes body;
    for (const Pdv& pdv : pdvs) {
        if (pdv.fragmentLength > 0xFFFFFFFFu - 2)
            return false;
        PutUint32(body, pdv.fragmentLength + 2);
        body.push_back(pdv.contextId);
        body.push_back(pdv.control);
        if (pdv.fragmentLength > 0)
            body.insert(body.end(), pdv.fragment, pdv.fragment + pdv.fragmentLength);
    }
    return FinishPdu(kDataTf, body, out);
}

bool WriteDataTfHead(unsigned char (&head)[kDataTfHeadSize], uint64_t fragmentLength, uint8_t contextId,
                     uint8_t control)
{
    // The PDU length counts the PDV item header (4) and the PDV's own two
    // bytes in front of the fragment.
    if (fragmentLength > 0xFFFFFFFFu - 6)
        return false;
    const uint32_t pduLength = static_cast<uint32_t>(fragmentLength) + 6;
    unsigned char pduHead[kHeaderSize];
    WriteHeader(kDataTf, pduLength, pduHead);
    std::copy(pduHead, pduHead + kHeaderSize, head);
    for (int i = 0; i < 4; ++i)
        head[6 + i] = static_cast<unsigned char>((pduLength - 4) >> (24 - 8 * i));
    head[10] = contextId;
    head[11] = control;
    return true;
}

}
