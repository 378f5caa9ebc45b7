#pragma once
// Named PDU byte fixtures for the codec, transport and hostile-peer tests,
// written out field by field (PS3.8 9.3) without the library's writers.
#include <cstdint>
#include <string>
#include <vector>

#include "support/dicomwriter.h"

namespace pdufix {

using testsupport::Bytes;
using testsupport::cat;

inline void be16(Bytes& out, uint32_t v) { out.insert(out.end(), {uint8_t(v >> 8), uint8_t(v)}); }
inline void be32(Bytes& out, uint32_t v) { be16(out, v >> 16); be16(out, v & 0xFFFF); }
// An item or sub-item; length overrides the true value length when given.
inline Bytes item(uint8_t type, const Bytes& value, long length = -1)
{
    Bytes out{type, 0};
    be16(out, static_cast<uint32_t>(length < 0 ? value.size() : static_cast<size_t>(length)));
    out.insert(out.end(), value.begin(), value.end());
    return out;
}
inline Bytes item(uint8_t type, const std::string& text) { return item(type, Bytes(text.begin(), text.end())); }
inline Bytes pdu(uint8_t type, const Bytes& body, long length = -1)
{
    Bytes out{type, 0};
    be32(out, static_cast<uint32_t>(length < 0 ? body.size() : static_cast<size_t>(length)));
    out.insert(out.end(), body.begin(), body.end());
    return out;
}
inline Bytes title(const std::string& text)
{
    Bytes out(text.begin(), text.end());
    out.resize(16, ' ');
    return out;
}
// Protocol version, reserved, called and calling titles, 32 reserved bytes.
inline Bytes fixedFields()
{
    Bytes out{0x00, 0x01, 0x00, 0x00};
    return cat({out, title("ANY-SCP"), title("ZELDICOM"), Bytes(32, 0)});
}
inline Bytes contextAc(uint8_t id, uint8_t result, const std::string& syntax)
{
    return item(0x21, cat({Bytes{id, 0, result, 0}, item(0x40, syntax)}));
}
inline Bytes maxLength(uint32_t value)
{
    Bytes v;
    be32(v, value);
    return item(0x51, v);
}
inline Bytes associateAc(const Bytes& contexts, uint32_t maximum = 16384)
{
    return pdu(0x02, cat({fixedFields(), item(0x10, "1.2.840.10008.3.1.1.1"), contexts,
                          item(0x50, cat({maxLength(maximum), item(0x52, "1.2.3.4"), item(0x55, "PEER_1")}))}));
}
// A proposed presentation context (PS3.8 9.3.2.2).
inline Bytes contextRq(uint8_t id, const std::string& abstractSyntax, std::initializer_list<std::string> syntaxes)
{
    Bytes value = cat({Bytes{id, 0, 0, 0}, item(0x30, abstractSyntax)});
    for (const std::string& syntax : syntaxes)
        value = cat({value, item(0x40, syntax)});
    return item(0x20, value);
}
inline Bytes associateRq(const Bytes& contexts, uint32_t maximum = 16384)
{
    return pdu(0x01, cat({fixedFields(), item(0x10, "1.2.840.10008.3.1.1.1"), contexts,
                          item(0x50, cat({maxLength(maximum), item(0x52, "1.2.3.4")}))}));
}
inline Bytes pdv(uint8_t id, uint8_t control, const Bytes& fragment)
{
    Bytes out;
    be32(out, static_cast<uint32_t>(fragment.size() + 2));
    out.push_back(id);
    out.push_back(control);
    out.insert(out.end(), fragment.begin(), fragment.end());
    return out;
}
inline Bytes le(uint32_t v, int width)
{
    Bytes out;
    for (int i = 0; i < width; ++i)
        out.push_back(uint8_t(v >> (8 * i)));
    return out;
}
// An implicit VR little endian element of group 0000.
inline Bytes cmd(uint16_t element, const Bytes& value)
{
    return cat({le(0, 2), le(element, 2), le(static_cast<uint32_t>(value.size()), 4), value});
}
inline Bytes commandSet(std::initializer_list<Bytes> elements)
{
    Bytes body = cat(elements);
    return cat({cmd(0x0000, le(static_cast<uint32_t>(body.size()), 4)), body});
}
inline Bytes uid(const std::string& text)
{
    Bytes out(text.begin(), text.end());
    if (out.size() % 2)
        out.push_back(0);
    return out;
}
inline Bytes echoResponse(uint16_t messageId, uint16_t status)
{
    return commandSet({cmd(0x0002, uid("1.2.840.10008.1.1")), cmd(0x0100, le(0x8030, 2)), cmd(0x0120, le(messageId, 2)),
                       cmd(0x0800, le(0x0101, 2)), cmd(0x0900, le(status, 2))});
}

const Bytes kAssociateAcOneContext = associateAc(contextAc(1, 0, "1.2.840.10008.1.2"));
const Bytes kAssociateRjCalledTitle = pdu(0x03, {0, 1, 1, 7});  // permanent, service user, called AE title
const Bytes kAbortFromProvider = pdu(0x07, {0, 0, 2, 6});       // service provider, invalid PDU parameter
const Bytes kReleaseRp = pdu(0x06, {0, 0, 0, 0});
const Bytes kEchoResponseSuccess = pdu(0x04, pdv(1, 0x03, echoResponse(1, 0x0000)));

// A caller's whole association as a storage SCP receives it: request
// (verification, CT in explicit VR), C-ECHO, C-STORE of a small data set,
// A-RELEASE-RQ.
inline Bytes callerAssociation()
{
    const char* const ct = "1.2.840.10008.5.1.4.1.1.2";
    const Bytes request = associateRq(cat({contextRq(1, "1.2.840.10008.1.1", {"1.2.840.10008.1.2"}),
                                           contextRq(3, ct, {"1.2.840.10008.1.2.1"})}));
    const Bytes echo = commandSet({cmd(0x0002, uid("1.2.840.10008.1.1")), cmd(0x0100, le(0x0030, 2)),
                                   cmd(0x0110, le(1, 2)), cmd(0x0800, le(0x0101, 2))});
    const Bytes store = commandSet({cmd(0x0002, uid(ct)), cmd(0x0100, le(0x0001, 2)), cmd(0x0110, le(2, 2)),
                                    cmd(0x0700, le(0, 2)), cmd(0x0800, le(0, 2)), cmd(0x1000, uid("1.2.3.4"))});
    const Bytes dataSet = cat({testsupport::elem(0x0008, 0x0016, "UI", uid(ct)),
                               testsupport::elem(0x0008, 0x0018, "UI", uid("1.2.3.4")),
                               testsupport::elem(0x0010, 0x0010, "PN", testsupport::text("Doe^Jane"))});
    return cat({request, pdu(0x04, pdv(1, 0x03, echo)), pdu(0x04, pdv(3, 0x03, store)), pdu(0x04, pdv(3, 0x02, dataSet)),
                pdu(0x05, {0, 0, 0, 0})});
}

}
