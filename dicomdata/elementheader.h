#pragma once
// The element header reader: tag, VR and length of one data element, item
// or delimiter in little endian, read through the checked byte cursor. It
// knows nothing of the tree or the dictionary, so it can be fuzzed alone;
// the parser, the raw scans and the CLI all decode headers here.
#include <cstdint>
#include <string_view>

#include "dicomdata/bytecursor.h"
#include "dicomdata/vrtable.h"

namespace zeldicom {

struct ElementHeader {
    static constexpr uint32_t kUndefinedLength = 0xFFFFFFFFu;

    uint16_t group = 0;
    uint16_t element = 0;
    // The VR letters of an explicit VR header; empty for implicit VR and for
    // items and delimiters, whose headers carry none (PS3.5 7.5).
    char vr[2] = {0, 0};
    bool vrPresent = false;
    uint32_t length = 0;
    uint8_t headerSize = 8;

    bool hasVR() const { return vrPresent; }
    std::string_view vrText() const { return hasVR() ? std::string_view(vr, 2) : std::string_view(); }
    bool isVR(const char (&code)[3]) const { return vr[0] == code[0] && vr[1] == code[1]; }
    bool undefinedLength() const { return length == kUndefinedLength; }
    bool isItem() const { return group == 0xFFFE && element == 0xE000; }
    bool isDelimiter() const
    {
        return (group == 0xFFFE && (element == 0xE00D || element == 0xE0DD)) ||
               (group == 0xFFFC && element == 0xFFFC);  // data set trailing padding
    }
};

// Writer fault: some writers store (4321,1020) as OB with the short 16-bit
// length of the other VRs (its reserved field then reads as 0x7FE0).
inline bool IsShortLengthOBFault(uint16_t group, uint16_t element, uint32_t longLength)
{
    return group == 0x4321 && element == 0x1020 && longLength == 0x00007FE0;
}

// Reads the header at the cursor's position and moves past it. False (the
// cursor not moved) when the bytes end inside the header.
inline bool ReadElementHeader(ByteCursor& cursor, bool explicitVR, ElementHeader& header)
{
    if (!cursor.has(8))
        return false;
    const unsigned char* p = cursor.here();
    header.group = ByteCursor::loadUint16LE(p);
    header.element = ByteCursor::loadUint16LE(p + 2);
    header.vr[0] = header.vr[1] = 0;
    header.vrPresent = false;
    header.headerSize = 8;
    if (!explicitVR || header.group == 0xFFFE) {
        header.length = ByteCursor::loadUint32LE(p + 4);
        cursor.skip(8);
        return true;
    }
    header.vr[0] = static_cast<char>(p[4]);
    header.vr[1] = static_cast<char>(p[5]);
    header.vrPresent = true;
    if (IsLongFormVR(p[4], p[5])) {
        // PS3.5 7.1.2: two reserved bytes, then a 32-bit length.
        if (!cursor.has(12))
            return false;
        uint32_t longLength = ByteCursor::loadUint32LE(p + 8);
        if (!IsShortLengthOBFault(header.group, header.element, longLength)) {
            header.length = longLength;
            header.headerSize = 12;
            cursor.skip(12);
            return true;
        }
    }
    header.length = ByteCursor::loadUint16LE(p + 6);
    cursor.skip(8);
    return true;
}

}  // namespace zeldicom
