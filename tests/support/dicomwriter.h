#pragma once
// The one DICOM byte writer of the tests and the fuzz seeds: elements
// written out by hand in explicit or implicit VR little endian, so a fixture
// reads like the stream. The header forms come from the VR facts table.
#include <cstdint>
#include <string>
#include <vector>

#include "support/files.h"
#include "dicomdata/vrtable.h"

namespace testsupport {

constexpr uint32_t kUndefined = 0xFFFFFFFFu;
constexpr uint32_t kValueSize = 0xFFFFFFFEu;  // "the length field holds the value's size"

inline void put16(Bytes& out, uint32_t v) { out.insert(out.end(), {uint8_t(v), uint8_t(v >> 8)}); }
inline void put32(Bytes& out, uint32_t v) { put16(out, v & 0xFFFF); put16(out, v >> 16); }
inline Bytes us(uint16_t v) { return {uint8_t(v), uint8_t(v >> 8)}; }
inline Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }
inline Bytes cat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

// Explicit VR element with the given length field (defaults to the value size).
inline Bytes elem(uint16_t group, uint16_t element, const std::string& vr, const Bytes& value,
                  uint32_t length = kValueSize)
{
    Bytes out;
    put16(out, group);
    put16(out, element);
    out.insert(out.end(), {uint8_t(vr[0]), uint8_t(vr[1])});
    uint32_t declared = length == kValueSize ? static_cast<uint32_t>(value.size()) : length;
    bool longForm = zeldicom::IsLongFormVR(vr);
    if (longForm)
        put16(out, 0);  // reserved field, then a 32-bit length
    (longForm ? put32 : put16)(out, declared);
    out.insert(out.end(), value.begin(), value.end());
    return out;
}
inline Bytes elem(uint16_t group, uint16_t element, const std::string& vr, const std::string& value)
{
    return elem(group, element, vr, text(value));
}

// Implicit VR element (also the form of items and delimiters).
inline Bytes ielem(uint16_t group, uint16_t element, const Bytes& value, uint32_t length = kValueSize)
{
    Bytes out;
    put16(out, group);
    put16(out, element);
    put32(out, length == kValueSize ? static_cast<uint32_t>(value.size()) : length);
    out.insert(out.end(), value.begin(), value.end());
    return out;
}
// Either form: implicit VR, items and delimiters leave the VR out.
inline Bytes elemAs(bool explicitVR, uint16_t group, uint16_t element, const std::string& vr, const Bytes& value,
                    uint32_t length = kValueSize)
{
    return explicitVR && group != 0xFFFE ? elem(group, element, vr, value, length) : ielem(group, element, value, length);
}
inline Bytes item(const Bytes& content) { return ielem(0xFFFE, 0xE000, content); }
inline Bytes sequenceEnd() { return ielem(0xFFFE, 0xE0DD, {}); }
inline Bytes undefinedItem(const Bytes& content)
{
    return cat({ielem(0xFFFE, 0xE000, {}, kUndefined), content, ielem(0xFFFE, 0xE00D, {})});
}

// A Part 10 file image: preamble, "DICM", meta group (explicit VR unless
// told otherwise) with the transfer syntax, then the data set bytes.
inline Bytes fileImage(const std::string& transferSyntax, const Bytes& dataSet, bool implicitMeta = false)
{
    Bytes uid = text(transferSyntax);
    if (uid.size() % 2)
        uid.push_back(0);
    Bytes meta = implicitMeta ? cat({ielem(0x0002, 0x0001, {0, 1}), ielem(0x0002, 0x0010, uid)})
                              : cat({elem(0x0002, 0x0001, "OB", Bytes{0, 1}), elem(0x0002, 0x0010, "UI", uid)});
    return cat({Bytes(128, 0), text("DICM"), meta, dataSet});
}

}  // namespace testsupport
