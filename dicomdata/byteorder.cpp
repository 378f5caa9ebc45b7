// Explicit VR big endian to explicit VR little endian, in place. The walk
// follows the parser's reading of explicit VR data sets (dicomitem_parse.cpp),
// so that the parser finds in the rewritten bytes the elements, sequences and
// items that the walk converted.
#include "dicomdata/byteorder.h"

#include <string_view>
#include <utility>

#include "dicomdata/bytecursor.h"
#include "dicomdata/vrtable.h"

namespace zeldicom {

namespace {

// As deep as the parser descends.
constexpr int kMaxDepth = 128;
constexpr uint32_t kUndefinedLength = 0xFFFFFFFFu;

void StoreUint16LE(unsigned char* p, uint16_t value)
{
    p[0] = static_cast<unsigned char>(value);
    p[1] = static_cast<unsigned char>(value >> 8);
}
void StoreUint32LE(unsigned char* p, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<unsigned char>(value >> (8 * i));
}

// Reverses each number of width bytes; a trailing part number stays as it is.
void ReverseNumbers(unsigned char* value, size_t length, size_t width)
{
    if (width < 2)
        return;
    for (size_t at = 0; length - at >= width; at += width)
        for (size_t i = 0; i < width / 2; ++i)
            std::swap(value[at + i], value[at + width - 1 - i]);
}

bool IsDelimiter(uint16_t group, uint16_t element)
{
    return (group == 0xFFFE && (element == 0xE00D || element == 0xE0DD)) || (group == 0xFFFC && element == 0xFFFC);
}

// What a run of elements is: a data set (the top level or an item's
// content), the items of a sequence, or the fragments of encapsulated pixel
// data (items whose values are bytes).
enum class Content { DataSet, Sequence, Fragments };

class Converter {
public:
    Converter(unsigned char* bytes, ByteOrderFault& fault) : m_bytes(bytes), m_fault(fault) {}

    // Converts the run [position, end). On success next is where it ended:
    // end, or behind the delimiter that ended it (delimited).
    bool Run(size_t position, size_t end, Content content, bool definedSequence, int depth, size_t& next,
             bool& delimited);

private:
    bool Fail(size_t at, uint16_t group, uint16_t element)
    {
        if (!m_failed)
            m_fault = ByteOrderFault{at, group, element};
        m_failed = true;
        return false;
    }
    // PS3.5 6.2.2: the value of a UN element of undefined length is a
    // sequence in implicit VR little endian whatever the transfer syntax:
    // it is only walked past the delimiter that closes it (of its items, or
    // of an item's elements), and left as it is.
    static bool SkipLittleEndian(ByteCursor& cursor, int depth, bool items);

    unsigned char* m_bytes;
    ByteOrderFault& m_fault;
    bool m_failed = false;
};

bool Converter::Run(size_t position, size_t end, Content content, bool definedSequence, int depth, size_t& next,
                    bool& delimited)
{
    if (depth > kMaxDepth)
        return Fail(position, 0, 0);
    // Bits Allocated (0028,0100) of this data set, for its pixel data.
    unsigned bitsAllocated = 0;
    delimited = false;
    while (position < end) {
        const size_t start = position;
        unsigned char* header = m_bytes + position;
        ByteCursor cursor(header, end - position);
        uint16_t group = 0, element = 0;
        uint32_t length = 0;
        if (!cursor.peekUint16BE(0, group) || !cursor.peekUint16BE(2, element))
            return Fail(start, 0, 0);
        if (!cursor.skip(4) || !cursor.has(4))
            return Fail(start, group, element);
        StoreUint16LE(header, group);
        StoreUint16LE(header + 2, element);
        std::string_view vr;
        size_t headerSize = 8;
        if (group == 0xFFFE) {
            // PS3.5 7.5: items and delimiters carry no VR.
            cursor.readUint32BE(length);
            StoreUint32LE(header + 4, length);
        } else {
            vr = std::string_view(reinterpret_cast<const char*>(header + 4), 2);
            cursor.skip(2);
            if (IsLongFormVR(header[4], header[5])) {
                uint16_t reserved = 0;
                if (!cursor.readUint16BE(reserved) || !cursor.readUint32BE(length))
                    return Fail(start, group, element);
                StoreUint16LE(header + 6, reserved);
                StoreUint32LE(header + 8, length);
                headerSize = 12;
            } else {
                uint16_t shortLength = 0;
                cursor.readUint16BE(shortLength);
                StoreUint16LE(header + 6, shortLength);
                length = shortLength;
            }
        }
        position += headerSize;
        const size_t available = end - position;
        const bool undefined = length == kUndefinedLength;
        const bool item = group == 0xFFFE && element == 0xE000;
        size_t after = 0;
        bool ended = false;
        if (!undefined && length > available) {
            // The parser reads the last item of a defined-length sequence
            // whose length claims more than the sequence holds (a writer
            // fault) up to the end of the sequence.
            if (item && content == Content::Sequence && definedSequence) {
                length = static_cast<uint32_t>(available);
            } else {
                // A cut-short sequence or item is converted up to the end, so
                // that the innermost element cut names where the walk stopped.
                if (vr == "SQ" || (item && content == Content::Sequence))
                    Run(position, end, vr == "SQ" ? Content::Sequence : Content::DataSet, vr == "SQ", depth + 1,
                        after, ended);
                return Fail(start, group, element);
            }
        }
        unsigned char* value = m_bytes + position;
        if (item && content == Content::Sequence) {
            if (undefined) {
                if (!Run(position, end, Content::DataSet, false, depth + 1, after, ended) || !ended)
                    return Fail(start, group, element);
                position = after;
            } else {
                if (!Run(position, position + length, Content::DataSet, false, depth + 1, after, ended))
                    return Fail(start, group, element);
                position += length;
            }
        } else if (group == 0xFFFE) {
            // Delimiters, and items whose values are bytes (fragments).
            position += undefined ? 0 : length;
        } else if (undefined) {
            bool ok = false;
            if (group == 0x7FE0 && element == 0x0010) {
                ok = Run(position, end, Content::Fragments, false, depth + 1, after, ended) && ended;
            } else if (vr == "SQ") {
                ok = Run(position, end, Content::Sequence, false, depth + 1, after, ended) && ended;
            } else if (vr == "UN") {
                ByteCursor items(value, available);
                ok = SkipLittleEndian(items, depth + 1, true);
                after = position + items.position();
            }
            if (!ok)
                return Fail(start, group, element);
            position = after;
        } else {
            if (vr == "SQ") {
                if (!Run(position, position + length, Content::Sequence, true, depth + 1, after, ended))
                    return Fail(start, group, element);
            } else if (group == 0x7FE0 && element == 0x0010 && vr == "OW") {
                // Native pixel data swap by their samples: 16-bit words, or
                // 32- and 64-bit ones when Bits Allocated says so (as the
                // peers read them).
                ReverseNumbers(value, length, bitsAllocated == 32 || bitsAllocated == 64 ? bitsAllocated / 8 : 2);
            } else {
                // UN values stay: they are little endian whatever the
                // transfer syntax (PS3.5 6.2.2).
                ReverseNumbers(value, length, NumberWidthOf(vr));
            }
            if (group == 0x0028 && element == 0x0100 && vr == "US" && length >= 2)
                bitsAllocated = ByteCursor::loadUint16LE(value);
            position += length;
        }
        if (IsDelimiter(group, element)) {
            delimited = true;
            break;
        }
    }
    next = position;
    return true;
}

bool Converter::SkipLittleEndian(ByteCursor& cursor, int depth, bool items)
{
    if (depth > kMaxDepth)
        return false;
    for (;;) {
        uint16_t group = 0, element = 0;
        uint32_t length = 0;
        if (!cursor.readUint16LE(group) || !cursor.readUint16LE(element) || !cursor.readUint32LE(length))
            return false;
        if (items) {
            if (group != 0xFFFE)
                return false;
            if (element == 0xE0DD)
                return true;
            if (element != 0xE000)
                return false;
        } else if (group == 0xFFFE && element == 0xE00D) {
            return true;
        }
        // An undefined length opens an item's elements, or an element's items.
        if (length == kUndefinedLength ? !SkipLittleEndian(cursor, depth + 1, !items) : !cursor.skip(length))
            return false;
    }
}

}  // namespace

bool ConvertBigEndianDataSet(unsigned char* bytes, size_t size, ByteOrderFault& fault)
{
    fault = ByteOrderFault{};
    if (!bytes || size == 0)
        return true;
    Converter converter(bytes, fault);
    size_t next = 0;
    bool delimited = false;
    return converter.Run(0, size, Content::DataSet, false, 0, next, delimited);
}

}  // namespace zeldicom
