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

unsigned char* Put16(unsigned char* out, uint16_t value, bool bigEndian)
{
    for (int i = 0; i < 2; ++i)
        out[bigEndian ? 1 - i : i] = static_cast<unsigned char>(value >> (8 * i));
    return out + 2;
}
unsigned char* Put32(unsigned char* out, uint32_t value, bool bigEndian)
{
    for (int i = 0; i < 4; ++i)
        out[bigEndian ? 3 - i : i] = static_cast<unsigned char>(value >> (8 * i));
    return out + 4;
}

// An element header in the encoding, into out (12 bytes at most); its size.
size_t EncodeHeader(unsigned char* out, Encoding encoding, uint16_t group, uint16_t element, const char* vr,
                    uint32_t length)
{
    const bool big = encoding.bigEndian;
    unsigned char* at = Put16(Put16(out, group, big), element, big);
    if (!encoding.explicitVR || group == 0xFFFE)
        return static_cast<size_t>(Put32(at, length, big) - out);
    const std::string_view written = ExplicitHeaderVR(std::string_view(vr, 2), length);
    *at++ = static_cast<unsigned char>(written[0]);
    *at++ = static_cast<unsigned char>(written[1]);
    if (IsLongFormVR(written))
        at = Put32(Put16(at, 0, big), length, big);
    else
        at = Put16(at, static_cast<uint16_t>(length), big);
    return static_cast<size_t>(at - out);
}

// PS3.5 6.2.2: the items of a UN value of undefined length, and of any
// undefined-length value in implicit VR, are implicit VR little endian.
Encoding ItemEncoding(Encoding encoding, const ElementHeader& header)
{
    if (encoding.explicitVR && std::strcmp(header.vr, "UN") != 0)
        return encoding;
    return Encoding{false, false};
}

// Where a walk writes the data set again: in the encoding `to`, through
// the writer (none: the bytes are only counted). Values go out as they lie
// in the source, so that a writer can send large ones from the file.
struct Output {
    Encoding to;
    DICOM_WRITER_PROC writer = nullptr;
    void* context = nullptr;
    uint64_t written = 0;

    bool Put(const void* bytes, size_t count)
    {
        written += count;
        return !writer || count == 0 || writer(bytes, static_cast<uint32_t>(count), context) == count;
    }
    bool Header(uint16_t group, uint16_t element, const char* vr, uint32_t length)
    {
        unsigned char bytes[12];
        return Put(bytes, EncodeHeader(bytes, to, group, element, vr, length));
    }
    // Items and delimiters: always the 8-byte form, little endian.
    bool Item(uint16_t element, uint32_t length)
    {
        return Header(kItemGroup, element, "", length);
    }
};

bool WalkElements(ByteCursor& cursor, Encoding encoding, Output* out, int depth, bool untilItemEnd,
                  int onlyGroup = -1);

// The items of a sequence: up to and including the sequence delimiter
// (delimited), or all the cursor's bytes (a defined-length value). Each
// item is written again, with undefined length, unless out is null (only
// walked).
bool WalkItems(ByteCursor& cursor, Encoding encoding, Output* out, int depth, bool delimited)
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
        if (out && !out->Item(kItem, kUndefined))
            return false;
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
        if (out && !out->Item(kItemDelimiter, 0))
            return false;
    }
}

// The bytes that the elements of one group, from the cursor on, take in
// out's encoding: the value of their group length (PS3.5 7.2).
bool GroupLength(ByteCursor cursor, Encoding encoding, const Output& out, int depth, uint16_t group,
                 uint32_t& length)
{
    Output counter{out.to};
    if (!WalkElements(cursor, encoding, &counter, depth, false, group) || counter.written > UINT32_MAX)
        return false;
    length = static_cast<uint32_t>(counter.written);
    return true;
}

// Elements up to the cursor's end (fewer than 8 trailing bytes are
// padding), or, untilItemEnd, up to and including an item delimiter, or,
// with onlyGroup, up to the first element of another group. Sequences and
// items are written with undefined lengths, so that only group lengths
// need counting ahead.
bool WalkElements(ByteCursor& cursor, Encoding encoding, Output* out, int depth, bool untilItemEnd, int onlyGroup)
{
    std::vector<unsigned char> swapped;
    // The group whose length was counted last, while its elements go on:
    // a repeated group length takes the same value instead of counting the
    // same elements again.
    int countedGroup = -1;
    uint32_t countedLength = 0;
    for (;;) {
        if (!untilItemEnd && cursor.remaining() < 8)
            return true;
        if (onlyGroup >= 0) {
            uint16_t next = 0;
            if (!Read16(cursor, 0, encoding.bigEndian, next) || next != onlyGroup)
                return true;
        }
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
            if (out && !out->Header(header.group, header.element, "SQ", kUndefined))
                return false;
            if (!WalkItems(cursor, ItemEncoding(encoding, header), out, depth + 1, true))
                return false;
            if (out && !out->Item(kSequenceDelimiter, 0))
                return false;
            continue;
        }
        if (header.group != countedGroup)
            countedGroup = -1;
        if (!cursor.has(header.length))
            return false;
        const unsigned char* value = cursor.here();
        cursor.skip(header.length);
        if (!out)
            continue;
        if (std::strcmp(header.vr, "SQ") == 0) {
            if (depth + 1 > kMaxDepth)
                return false;
            if (!out->Header(header.group, header.element, "SQ", kUndefined))
                return false;
            ByteCursor items(value, header.length);
            if (!WalkItems(items, encoding, out, depth + 1, false) || !out->Item(kSequenceDelimiter, 0))
                return false;
            continue;
        }
        if (header.element == 0x0000 && header.length == 4 && onlyGroup < 0) {
            if (countedGroup < 0) {
                if (!GroupLength(cursor, encoding, *out, depth, header.group, countedLength))
                    return false;
                countedGroup = header.group;
            }
            unsigned char bytes[4];
            Put32(bytes, countedLength, out->to.bigEndian);
            if (!out->Header(header.group, 0x0000, header.vr, 4) || !out->Put(bytes, 4))
                return false;
            continue;
        }
        if (!out->Header(header.group, header.element, header.vr, header.length))
            return false;
        if (encoding.bigEndian != out->to.bigEndian && SwapWidth(header.vr) > 1) {
            swapped.assign(value, value + header.length);
            SwapValue(header.vr, swapped.data(), header.length);
            if (!out->Put(swapped.data(), header.length))
                return false;
        } else if (!out->Put(value, header.length)) {
            return false;
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
    unsigned char bytes[12];
    out.Add(bytes, static_cast<int>(EncodeHeader(bytes, encoding, group, element, vr, length)));
}

bool Reencode(const unsigned char* bytes, size_t size, Encoding from, Encoding to, DICOM_WRITER_PROC writer,
              void* context)
{
    ByteCursor cursor(bytes, size);
    Output out{to, writer, context};
    return WalkElements(cursor, from, &out, 0, false);
}

bool ToExplicitLittleEndian(const unsigned char* bytes, size_t size, Encoding encoding, CDynBuffer& out)
{
    return Reencode(bytes, size, encoding, Encoding{true, false}, CDynBuffer::WriteProc, &out);
}

}
