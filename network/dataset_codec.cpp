// Data-set elements in implicit VR little endian, explicit VR little endian
// and explicit VR big endian (PS3.5 7.1, 7.3, 7.5).
#include "network/dataset_codec.h"

#include <cstring>
#include <vector>

#include "dicomdata/dictionary.h"
#include "dicomdata/vrtable.h"
#include "platform/dynbuffer.h"

namespace zeldicom::dataset {

namespace {

constexpr uint16_t kItemGroup = 0xFFFE;
constexpr uint16_t kItem = 0xE000, kItemDelimiter = 0xE00D, kSequenceDelimiter = 0xE0DD;

bool Read16(ByteCursor& cursor, size_t offset, bool bigEndian, uint16_t& out)
{
    return bigEndian ? cursor.peekUint16BE(offset, out) : cursor.peekUint16LE(offset, out);
}
bool Read32(ByteCursor& cursor, size_t offset, bool bigEndian, uint32_t& out)
{
    return bigEndian ? cursor.peekUint32BE(offset, out) : cursor.peekUint32LE(offset, out);
}

void Put16(CDynBuffer& out, uint16_t value, bool bigEndian)
{
    unsigned char bytes[2];
    for (int i = 0; i < 2; ++i)
        bytes[bigEndian ? 1 - i : i] = static_cast<unsigned char>(value >> (8 * i));
    out.Add(bytes, 2);
}
void Put32(CDynBuffer& out, uint32_t value, bool bigEndian)
{
    unsigned char bytes[4];
    for (int i = 0; i < 4; ++i)
        bytes[bigEndian ? 3 - i : i] = static_cast<unsigned char>(value >> (8 * i));
    out.Add(bytes, 4);
}

// PS3.5 6.2.2: the items of a UN value of undefined length, and of any
// undefined-length value in implicit VR, are implicit VR little endian.
Encoding ItemEncoding(Encoding encoding, const ElementHeader& header)
{
    if (encoding.explicitVR && std::strcmp(header.vr, "UN") != 0)
        return encoding;
    return Encoding{false, false};
}

void PutItemHeader(CDynBuffer* out, uint16_t element, uint32_t length)
{
    if (!out)
        return;
    Put16(*out, kItemGroup, false);
    Put16(*out, element, false);
    Put32(*out, length, false);
}

bool WalkElements(ByteCursor& cursor, Encoding encoding, CDynBuffer* out, int depth, bool untilItemEnd);

// The items of a sequence: up to and including the sequence delimiter
// (delimited), or all the cursor's bytes (a defined-length value). Each
// item is re-encoded into out unless out is null (only walked).
bool WalkItems(ByteCursor& cursor, Encoding encoding, CDynBuffer* out, int depth, bool delimited)
{
    for (;;) {
        if (!delimited && cursor.remaining() == 0)
            return true;
        uint16_t group = 0, element = 0;
        uint32_t length = 0;
        if (!Read16(cursor, 0, encoding.bigEndian, group) || !Read16(cursor, 2, encoding.bigEndian, element) ||
            !Read32(cursor, 4, encoding.bigEndian, length) || group != kItemGroup)
            return false;
        cursor.skip(8);
        if (element == kSequenceDelimiter)
            return true;
        if (element != kItem)
            return false;
        PutItemHeader(out, kItem, kUndefined);
        if (length == kUndefined) {
            if (!WalkElements(cursor, encoding, out, depth, true))
                return false;
        } else {
            if (!cursor.has(length))
                return false;
            if (out) {
                ByteCursor item(cursor.here(), length);
                if (!WalkElements(item, encoding, out, depth, false))
                    return false;
            }
            cursor.skip(length);
        }
        PutItemHeader(out, kItemDelimiter, 0);
    }
}

// Elements up to the cursor's end (fewer than 8 trailing bytes are
// padding), or, untilItemEnd, up to and including an item delimiter.
bool WalkElements(ByteCursor& cursor, Encoding encoding, CDynBuffer* out, int depth, bool untilItemEnd)
{
    std::vector<unsigned char> swapped;
    for (;;) {
        if (!untilItemEnd && cursor.remaining() < 8)
            return true;
        ElementHeader header;
        if (!ReadHeader(cursor, encoding, header))
            return false;
        if (header.group == kItemGroup) {
            if (untilItemEnd && header.element == kItemDelimiter)
                return true;
            return false;
        }
        if (header.length == kUndefined) {
            if (depth + 1 > kMaxDepth)
                return false;
            // Whatever its VR said, a value of items is a sequence here.
            if (out)
                WriteHeader(*out, Encoding{true, false}, header.group, header.element, "SQ", kUndefined);
            if (!WalkItems(cursor, ItemEncoding(encoding, header), out, depth + 1, true))
                return false;
            PutItemHeader(out, kSequenceDelimiter, 0);
            continue;
        }
        if (!cursor.has(header.length))
            return false;
        const unsigned char* value = cursor.here();
        cursor.skip(header.length);
        if (!out)
            continue;
        if (std::strcmp(header.vr, "SQ") == 0) {
            if (depth + 1 > kMaxDepth)
                return false;
            WriteHeader(*out, Encoding{true, false}, header.group, header.element, "SQ", kUndefined);
            ByteCursor items(value, header.length);
            if (!WalkItems(items, encoding, out, depth + 1, false))
                return false;
            PutItemHeader(out, kSequenceDelimiter, 0);
            continue;
        }
        WriteHeader(*out, Encoding{true, false}, header.group, header.element, header.vr, header.length);
        if (encoding.bigEndian && SwapWidth(header.vr) > 1) {
            swapped.assign(value, value + header.length);
            SwapValue(header.vr, swapped.data(), header.length);
            out->Add(swapped.data(), header.length);
        } else {
            out->Add(value, header.length);
        }
    }
}

}

bool ReadHeader(ByteCursor& cursor, Encoding encoding, ElementHeader& out)
{
    const bool big = encoding.bigEndian;
    uint16_t group = 0, element = 0;
    if (!Read16(cursor, 0, big, group) || !Read16(cursor, 2, big, element))
        return false;
    out = ElementHeader{};
    out.group = group;
    out.element = element;
    if (group == kItemGroup || !encoding.explicitVR) {
        if (!Read32(cursor, 4, big, out.length))
            return false;
        out.headerSize = 8;
        if (group != kItemGroup) {
            const char* vr = ElementVR(group, element, nullptr, true);
            std::memcpy(out.vr, vr && FindVRFacts(std::string_view(vr, std::min<size_t>(std::strlen(vr), 2)))
                                    ? vr : "UN", 2);
        }
        cursor.skip(8);
        return true;
    }
    if (!cursor.has(6) || !IsVRCode(cursor.here()[4], cursor.here()[5]))
        return false;
    out.vr[0] = static_cast<char>(cursor.here()[4]);
    out.vr[1] = static_cast<char>(cursor.here()[5]);
    if (IsLongFormVR(out.vr)) {
        if (!Read32(cursor, 8, big, out.length))
            return false;
        out.headerSize = 12;
    } else {
        uint16_t shortLength = 0;
        if (!Read16(cursor, 6, big, shortLength))
            return false;
        out.length = shortLength;
        out.headerSize = 8;
    }
    cursor.skip(out.headerSize);
    return true;
}

bool SkipUndefinedValue(ByteCursor& cursor, Encoding encoding, const ElementHeader& header, int depth)
{
    if (depth + 1 > kMaxDepth)
        return false;
    return WalkItems(cursor, ItemEncoding(encoding, header), nullptr, depth + 1, true);
}

int SwapWidth(const char* vr)
{
    static const struct {
        char vr[3];
        int width;
    } kWidths[] = {{"AT", 2}, {"US", 2}, {"SS", 2}, {"OW", 2}, {"UL", 4}, {"SL", 4}, {"FL", 4}, {"OF", 4},
                   {"OL", 4}, {"FD", 8}, {"OD", 8}, {"SV", 8}, {"UV", 8}, {"OV", 8}};
    for (const auto& row : kWidths)
        if (vr[0] == row.vr[0] && vr[1] == row.vr[1])
            return row.width;
    return 0;
}

void SwapValue(const char* vr, unsigned char* value, uint32_t length)
{
    const uint32_t width = static_cast<uint32_t>(SwapWidth(vr));
    if (width < 2)
        return;
    for (uint32_t at = 0; length - at >= width; at += width)
        for (uint32_t i = 0; i < width / 2; ++i)
            std::swap(value[at + i], value[at + width - 1 - i]);
}

void WriteHeader(CDynBuffer& out, Encoding encoding, uint16_t group, uint16_t element, const char* vr,
                 uint32_t length)
{
    const bool big = encoding.bigEndian;
    Put16(out, group, big);
    Put16(out, element, big);
    if (!encoding.explicitVR) {
        Put32(out, length, big);
        return;
    }
    const std::string_view written = ExplicitHeaderVR(std::string_view(vr, 2), length);
    out.Add(written.data(), 2);
    if (IsLongFormVR(written)) {
        Put16(out, 0, big);
        Put32(out, length, big);
    } else {
        Put16(out, static_cast<uint16_t>(length), big);
    }
}

bool ToExplicitLittleEndian(const unsigned char* bytes, size_t size, Encoding encoding, CDynBuffer& out)
{
    ByteCursor cursor(bytes, size);
    return WalkElements(cursor, encoding, &out, 0, false);
}

}
