// Raw element walkers over implicit VR little endian buffers: element
// callbacks for command sets and identifiers, sequence items, string values
// and the display tree of a raw data set.
//
// Every walk is bounded by the byte count it was given. PS3.5 7.5: a value of
// undefined length (a sequence, an item, encapsulated pixel data) ends with a
// delimitation item; its length is found by walking it, and a missing
// delimiter ends the walk instead of reading on.
#include <cstring>
#include <vector>

#include "dicomdata/bytecursor.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/tagtable.h"
#include "imageinfo/dicominfo.h"
#include "platform/text.h"
#include "platform/xmlitem.h"

using namespace zeldicom;

namespace {

// Sequences nested deeper than this are treated as undelimited; real objects
// nest a handful of levels, a crafted one could otherwise exhaust the stack.
constexpr int kMaxNesting = 64;

// The "unbounded" size -1 of the sequence walkers: only used on a value that a
// walker has already found delimited inside its buffer, so the walk ends at
// that delimiter before this bound matters.
constexpr size_t kTrustedBound = static_cast<size_t>(INT32_MAX);

constexpr uint16_t kItemGroup = 0xFFFE;
constexpr uint16_t kItem = 0xE000;
constexpr uint16_t kItemDelimiter = 0xE00D;
constexpr uint16_t kSequenceDelimiter = 0xE0DD;

struct RawHeader {
    uint16_t group;
    uint16_t element;
    uint32_t length;
};

// The 8-byte header at offset; the caller has checked that 8 bytes are there.
RawHeader HeaderAt(const unsigned char* data, size_t offset)
{
    const unsigned char* p = data + offset;
    return {ByteCursor::loadUint16LE(p), ByteCursor::loadUint16LE(p + 2), ByteCursor::loadUint32LE(p + 4)};
}

TAG_HEADER* AsHeader(const unsigned char* p)
{
    // The walkers hand out headers in place; TAG_HEADER is packed, so any
    // byte position is a valid address for it. Callbacks only read.
    return reinterpret_cast<TAG_HEADER*>(const_cast<unsigned char*>(p));
}

struct SequenceWalk {
    size_t walked = 0;
    bool delimited = false;  // the sequence delimitation item was reached
};

bool ValueLength(const unsigned char* value, size_t available, uint32_t declared, int depth, size_t& length);

// Items of a sequence value (data, size); the callback sees every element of
// every item, delimiters included, but not the item headers themselves.
SequenceWalk WalkSequence(const unsigned char* data, size_t size, DICOM_TAG_PROC callback, void* context,
                          int depth)
{
    SequenceWalk result;
    size_t offset = 0;
    for (;;) {
        if (size < 8 || offset > size - 8) {
            result.walked = size;
            return result;
        }
        RawHeader item = HeaderAt(data, offset);
        size_t available = size - offset - 8;
        size_t itemLength = item.length;
        if (item.group == kItemGroup && item.element == kItem) {
            bool undefined = item.length == kUndefinedLength;
            if (!undefined && itemLength > available) {
                result.walked = size;
                return result;
            }
            const unsigned char* content = data + offset + 8;
            // The elements of a defined-length item lie inside it: a value
            // that does not end there is not searched for beyond it. Unbounded,
            // each of many small items would rescan the rest of the buffer,
            // and nested items would multiply those scans level by level.
            size_t bound = undefined ? available : itemLength;
            size_t inner = 0;
            bool closed = false;
            while (undefined || inner + 8 <= itemLength) {
                if (bound < 8 || inner > bound - 8)
                    break;
                RawHeader element = HeaderAt(content, inner);
                size_t elementLength = 0;
                if (!ValueLength(content + inner + 8, bound - inner - 8, element.length, depth + 1, elementLength))
                    break;
                if (callback)
                    callback(AsHeader(content + inner), context);
                inner += elementLength + 8;
                if (element.group == kItemGroup && element.element == kItemDelimiter) {
                    itemLength = inner;
                    closed = true;
                    break;
                }
            }
            if (undefined && !closed) {
                // An undefined-length item without its delimiter: nothing
                // after it can be trusted.
                result.walked = size;
                return result;
            }
        } else if (item.length == kUndefinedLength || itemLength > available) {
            result.walked = size;
            return result;
        }
        offset += itemLength + 8;
        if (item.group == kItemGroup && item.element == kSequenceDelimiter) {
            result.walked = offset;
            result.delimited = true;
            return result;
        }
    }
}

// The byte length of a value: the declared length when it fits in what is
// available, or for an undefined length the walk up to its delimiter.
bool ValueLength(const unsigned char* value, size_t available, uint32_t declared, int depth, size_t& length)
{
    if (declared != kUndefinedLength) {
        length = declared;
        return length <= available;
    }
    if (depth > kMaxNesting)
        return false;
    SequenceWalk walk = WalkSequence(value, available, nullptr, nullptr, depth);
    length = walk.walked;
    return walk.delimited;
}

size_t BoundOf(int size)
{
    return size < 0 ? kTrustedBound : static_cast<size_t>(size);
}

// The display tree of LoadDicomData. untilDelimiter: the run is the content
// of an undefined-length sequence or item and ends after its delimiter;
// closed tells whether it did. A run that did not close leaves nothing after
// it to trust, so the enclosing runs stop there too instead of walking the
// same bytes again at every level.
size_t LoadDisplayItems(const unsigned char* data, size_t size, bool untilDelimiter, CXmlItem* parent, int depth,
                        bool& closed)
{
    size_t consumed = 0;
    closed = !untilDelimiter;
    while (size >= 8 && consumed <= size - 8) {
        RawHeader h = HeaderAt(data, consumed);
        if (untilDelimiter && h.group == kItemGroup &&
            (h.element == kItemDelimiter || h.element == kSequenceDelimiter)) {
            consumed += 8;
            closed = true;
            break;
        }
        const unsigned char* value = data + consumed + 8;
        size_t available = size - consumed - 8;
        std::u16string vr, name;
        bool known = CTagTable::GetTagInfo(h.group, h.element, vr, name);
        bool nested = known && (vr == u"SQ" || (h.group == kItemGroup && h.element == kItem));
        size_t length = 0;
        if (nested && depth >= kMaxNesting)
            break;
        CXmlItem* item = nullptr;
        if (known) {
            item = new CXmlItem(u"TAG", u"", "ISO_IR 100");
            item->AddItem(u"GROUP", FormatWide("0x%04X", h.group), "ISO_IR 100");
            item->AddItem(u"ELEMENT", FormatWide("0x%04X", h.element), "ISO_IR 100");
            item->AddItem(u"NAME", name, "ISO_IR 100");
            item->AddItem(u"VR", vr, "ISO_IR 100");
        }
        if (nested) {
            bool undefined = h.length == kUndefinedLength;
            if (!undefined && h.length > available) {
                delete item;
                break;
            }
            bool childClosed = true;
            length = LoadDisplayItems(value, undefined ? available : h.length, undefined, item, depth + 1,
                                      childClosed);
            if (!undefined)
                length = h.length;
            if (!childClosed) {
                parent->AddItem(item);
                closed = false;
                return consumed + length + 8;
            }
        } else {
            if (!ValueLength(value, available, h.length, depth, length)) {
                delete item;
                break;
            }
            if (item && CTagTable::IsString(vr)) {
                std::u16string text;
                DICOMINFO::GetStringTagValue(AsHeader(data + consumed), text);
                if (!text.empty())
                    item->AddItem(u"VALUE", text, "ISO_IR 100");
            }
        }
        if (item)
            parent->AddItem(item);
        consumed += length + 8;
    }
    return consumed;
}

}

void DICOMINFO::ReadTags(const unsigned char* data, int size, DICOM_TAG_PROC callback, void* context)
{
    if (!data || size < 8)
        return;
    size_t total = static_cast<size_t>(size);
    size_t offset = 0;
    while (offset <= total - 8) {
        RawHeader h = HeaderAt(data, offset);
        size_t length = 0;
        if (!ValueLength(data + offset + 8, total - offset - 8, h.length, 0, length))
            return;
        if (callback)
            callback(AsHeader(data + offset), context);
        offset += length + 8;
    }
}

int DICOMINFO::ReadSequence(const unsigned char* data, int size, DICOM_TAG_PROC callback, void* context)
{
    if (!data)
        return 0;
    SequenceWalk walk = WalkSequence(data, BoundOf(size), callback, context, 0);
    if (size >= 0 || walk.delimited)
        return static_cast<int>(walk.walked);
    return -1;
}

int DICOMINFO::CalcSequenceSize(const TAG_HEADER* element, int available)
{
    if (!element)
        return -1;
    const unsigned char* value = reinterpret_cast<const unsigned char*>(element) + sizeof(TAG_HEADER);
    size_t length = 0;
    if (!ValueLength(value, BoundOf(available), element->nLength, 0, length))
        return -1;
    return static_cast<int>(length);
}

void DICOMINFO::GetStringTagValue(const TAG_HEADER* element, char* out, int capacity)
{
    if (!out || capacity <= 0)
        return;
    out[0] = '\0';
    if (!element || element->nLength == kUndefinedLength)
        return;
    size_t count = element->nLength < static_cast<uint32_t>(capacity) ? element->nLength
                                                                      : static_cast<size_t>(capacity - 1);
    std::memcpy(out, reinterpret_cast<const unsigned char*>(element) + sizeof(TAG_HEADER), count);
    out[count] = '\0';
    while (count > 0 && out[count - 1] == ' ')
        out[--count] = '\0';
}

void DICOMINFO::GetStringTagValue(const TAG_HEADER* element, std::u16string& out)
{
    out.clear();
    if (!element || element->nLength == kUndefinedLength)
        return;
    std::vector<char> bytes(static_cast<size_t>(element->nLength) + 1);
    GetStringTagValue(element, bytes.data(), static_cast<int>(bytes.size()));
    // Platform default 8-bit conversion: the ANSI code page, as for any VR
    // that carries no character set of its own.
    out = CDicomItem::TranslateTagValueFromDicomToUnicode(std::string(bytes.data()), "", u"");
}

uint32_t DICOMINFO::LoadDicomData(const unsigned char* data, int size, CXmlItem* parent)
{
    if (!data || !parent)
        return 0;
    // Size -1: the content of an undefined-length value, which runs to its
    // delimiter.
    bool closed = true;
    if (size == -1)
        return static_cast<uint32_t>(LoadDisplayItems(data, BoundOf(size), true, parent, 0, closed));
    if (size < 8)
        return 0;
    return static_cast<uint32_t>(LoadDisplayItems(data, static_cast<size_t>(size), false, parent, 0, closed));
}
