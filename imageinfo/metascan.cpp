// Raw scans of DICOM buffers and files: the file meta information, the
// encoding of a buffer without it, single element values, and the
// compression type of a transfer syntax.
//
// Every scan is given the buffer's length; an element that reaches past the
// end, or a header that is cut off, ends the scan.
#include <algorithm>
#include <cstring>
#include <string>

#include "dicomdata/bytecursor.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/vrtable.h"
#include "imageinfo/dicominfo.h"
#include "imageinfo/transfersyntax.h"
#include "platform/datainmemory.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

constexpr size_t kMagicOffset = 128;
constexpr size_t kMetaStart = 132;
const char16_t* const kImplicitLittleEndian = u"1.2.840.10008.1.2";
const char16_t* const kExplicitLittleEndian = u"1.2.840.10008.1.2.1";
const char16_t* const kExplicitBigEndian = u"1.2.840.10008.1.2.2";

enum class VRForm { Long, Short, NotAVR };

// The VR letters the raw scans recognise, with the header form the VR table
// gives them (the current long forms, UT/UC/UR/OD/OF/OL/OV/SV/UV included).
// "??" is what some writers put for an unknown VR: short form. Anything else
// is read as an implicit VR header.
VRForm RecogniseVR(const unsigned char* letters)
{
    if (letters[0] == '?' && letters[1] == '?')
        return VRForm::Short;
    const zeldicom::VRFacts* facts = zeldicom::FindVRFacts(letters[0], letters[1]);
    if (!facts)
        return VRForm::NotAVR;
    return facts->longForm ? VRForm::Long : VRForm::Short;
}

struct ScanHeader {
    uint16_t group = 0;
    uint16_t element = 0;
    uint32_t length = 0;
    size_t headerSize = 8;
};

uint16_t Load16(const unsigned char* p, bool swap)
{
    return swap ? static_cast<uint16_t>((p[0] << 8) | p[1]) : ByteCursor::loadUint16LE(p);
}

uint32_t Load32(const unsigned char* p, bool swap)
{
    if (!swap)
        return ByteCursor::loadUint32LE(p);
    return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
           (static_cast<uint32_t>(p[2]) << 8) | p[3];
}

// One header as the scans read it (explicit or implicit, decided by the VR
// letters). swap: big endian numbers. False when the header is cut off.
bool DecodeHeader(const unsigned char* p, size_t available, bool swap, ScanHeader& h)
{
    if (available < 8)
        return false;
    h.group = Load16(p, swap);
    h.element = Load16(p + 2, swap);
    h.headerSize = 8;
    switch (RecogniseVR(p + 4)) {
    case VRForm::Long:
        if (available < 12)
            return false;
        h.length = Load32(p + 8, swap);
        h.headerSize = 12;
        break;
    case VRForm::Short:
        h.length = Load16(p + 6, swap);
        break;
    case VRForm::NotAVR:
        h.length = Load32(p + 4, swap);
        break;
    }
    return true;
}

// A big endian group length (0000,0000) of length 4 at the start: how a
// big endian command stream without meta information begins.
bool StartsWithBigEndianGroupLength(const unsigned char* buffer, size_t size)
{
    return size >= 8 && ByteCursor::loadUint16LE(buffer) == 0 && ByteCursor::loadUint16LE(buffer + 2) == 0 &&
           ByteCursor::loadUint32LE(buffer + 4) == 0x04000000u;
}

uint16_t FirstGroup(const unsigned char* buffer, size_t size)
{
    return size >= 2 ? ByteCursor::loadUint16LE(buffer) : 0xFFFF;
}

// The ANSI code page conversion of a value; trailing padding is dropped.
std::u16string ValueText(const unsigned char* value, size_t count)
{
    return CDicomItem::TranslateTagValueFromDicomToUnicode(
        std::string(reinterpret_cast<const char*>(value), count), "", u"");
}

struct ScanResult {
    const unsigned char* value = nullptr;
    size_t count = 0;  // value bytes that lie inside the buffer
    bool found = false;
};

// Walks the elements from start looking for (group, element). An undefined
// length does not advance, so the walk runs on into sequences and items as
// if their elements stood at the top level. Stops at the pixel data.
// pixelPrefix: a requested pixel data value yields only its first 32 bytes.
ScanResult ScanFor(const unsigned char* buffer, size_t size, size_t start, bool swap, uint16_t group,
                   uint16_t element, bool pixelPrefix)
{
    ScanResult result;
    size_t pos = start;
    ScanHeader h;
    while (pos <= size && DecodeHeader(buffer + pos, size - pos, swap, h)) {
        bool isPixelData = h.group == 0x7FE0 && h.element == 0x0010;
        size_t valueStart = pos + h.headerSize;
        size_t remaining = size - valueStart;
        bool undefined = h.length == kUndefinedLength;
        if (h.group == group && h.element == element) {
            size_t count = undefined ? 0 : h.length;
            if (isPixelData && pixelPrefix)
                count = std::min<size_t>(32, undefined ? remaining : h.length);
            if (count > remaining)
                return result;
            result.value = buffer + valueStart;
            result.count = count;
            result.found = true;
            return result;
        }
        if (isPixelData)
            return result;
        if (undefined)
            pos = valueStart;
        else if (h.length > remaining)
            return result;
        else
            pos = valueStart + h.length;
    }
    return result;
}

// Bytes of a file for the file tests; empty when it cannot be read.
struct FileBytes {
    explicit FileBytes(const std::u16string& path) : image(path) {}
    bool valid() const { return image.IsValid(); }
    const unsigned char* data() const { return image.GetData(); }
    size_t size() const { return static_cast<size_t>(image.GetSize()); }
    CDataInMemory image;
};

}

int DICOMINFO::GetCompTypeFromTransferSyntax(const std::u16string& transferSyntax) const
{
    for (char16_t c : transferSyntax)
        if (c >= 0x80)
            return COMPRESSION_NONE;
    return TransferSyntaxCompressionType(WideToAscii(transferSyntax));
}

int DICOMINFO::HasDicomMetaHeader(const unsigned char* buffer, size_t size)
{
    return buffer && size >= kMetaStart && std::memcmp(buffer + kMagicOffset, "DICM", 4) == 0 ? 1 : 0;
}

size_t DICOMINFO::GetMetaHeaderSize(const unsigned char* buffer, size_t size)
{
    if (!HasDicomMetaHeader(buffer, size))
        return 0;
    size_t pos = kMetaStart;
    while (size - pos >= 2 && ByteCursor::loadUint16LE(buffer + pos) == 0x0002) {
        ScanHeader h;
        if (!DecodeHeader(buffer + pos, size - pos, false, h))
            return size;
        uint64_t next = static_cast<uint64_t>(pos) + h.headerSize + h.length;
        if (next > size)
            return size;
        pos = static_cast<size_t>(next);
    }
    return pos;
}

const unsigned char* DICOMINFO::GetFirstTagAfterMetaHeader(const unsigned char* buffer, size_t size)
{
    // The group length (0002,0000) is the first meta element: explicit VR
    // UL, so its value stands at 140 and the group's other elements follow at 144.
    if (!buffer || size < 144)
        return nullptr;
    uint64_t next = 144 + static_cast<uint64_t>(ByteCursor::loadUint32LE(buffer + 140));
    return next <= size ? buffer + next : nullptr;
}

int DICOMINFO::CheckExplicitVR(TAG_HEADER* copy, const TAG_HEADER* raw, size_t available)
{
    if (!copy || !raw || available < 8)
        return 0;
    const auto* p = reinterpret_cast<const unsigned char*>(raw);
    switch (RecogniseVR(p + 4)) {
    case VRForm::Long:
        if (available < 12)
            return 0;
        copy->nLength = ByteCursor::loadUint32LE(p + 8);
        return 4;
    case VRForm::Short:
        copy->nLength = copy->nLength >> 16;
        return 0;
    case VRForm::NotAVR:
        break;
    }
    return 0;
}

const unsigned char* DICOMINFO::ProcessMetaHeader(const unsigned char* buffer, size_t size, bool& changed)
{
    changed = false;
    const unsigned char* start = buffer;
    if (!buffer || size < 8)
        return start;
    uint16_t firstGroup = ByteCursor::loadUint16LE(buffer);
    uint16_t firstElement = ByteCursor::loadUint16LE(buffer + 2);
    // A data set that starts directly with one of its usual first elements
    // has neither preamble nor meta information.
    bool startsWithDataSet =
        firstGroup == 0x0008 || firstGroup == 0x0003 || firstElement == 0x0016 || firstElement == 0x0008;
    if (!startsWithDataSet) {
        if (HasDicomMetaHeader(buffer, size)) {
            start = buffer + kMetaStart;
            bHasMetaHeader = 1;
        } else if (StartsWithBigEndianGroupLength(buffer, size)) {
            bBigEndian = 1;
        }
    }
    size_t available = size - static_cast<size_t>(start - buffer);
    if (available < 8)
        return start;
    TAG_HEADER copy;
    std::memcpy(&copy, start, sizeof(copy));
    uint32_t stored = copy.nLength;
    CheckExplicitVR(&copy, reinterpret_cast<const TAG_HEADER*>(start), available);
    if (copy.nLength == stored)
        return start;
    changed = true;
    sTransferSyntax = bBigEndian ? kExplicitBigEndian : kExplicitLittleEndian;
    return start;
}

int DICOMINFO::FileHasDicomMetaHeader(const std::u16string& path)
{
    FileBytes file(path);
    return file.valid() ? HasDicomMetaHeader(file.data(), file.size()) : 0;
}

int DICOMINFO::FileIsDicom(const std::u16string& path, int flag)
{
    FileBytes file(path);
    return file.valid() ? BufferIsDicom(file.data(), file.size(), flag) : 0;
}

int DICOMINFO::BufferIsDicom(const unsigned char* buffer, size_t size, int flag)
{
    if (!buffer)
        return 0;
    if (FirstGroup(buffer, size) == 0x0008)
        return 1;
    if (flag == 0 && StartsWithBigEndianGroupLength(buffer, size))
        return 1;
    return HasDicomMetaHeader(buffer, size);
}

std::u16string DICOMINFO::GetFileTransferSyntax(const std::u16string& path)
{
    FileBytes file(path);
    if (!file.valid())
        return kImplicitLittleEndian;
    return GetBufferTransferSyntax(file.data(), file.size());
}

bool DICOMINFO::HasCompleteMetaHeader(const unsigned char* buffer, size_t size)
{
    if (!HasDicomMetaHeader(buffer, size))
        return false;
    size_t pos = kMetaStart;
    ScanHeader h;
    while (size - pos >= 2 && ByteCursor::loadUint16LE(buffer + pos) == 0x0002) {
        if (!DecodeHeader(buffer + pos, size - pos, false, h))
            return false;
        size_t valueStart = pos + h.headerSize;
        if (h.length == kUndefinedLength || h.length > size - valueStart)
            return false;
        pos = valueStart + h.length;
    }
    return pos > kMetaStart;
}

std::u16string DICOMINFO::GetBufferTransferSyntax(const unsigned char* buffer, size_t size)
{
    std::u16string result = kImplicitLittleEndian;
    if (!buffer)
        return result;
    if (HasDicomMetaHeader(buffer, size)) {
        // (0002,0010) inside the meta information group, explicit VR.
        size_t pos = kMetaStart;
        ScanHeader h;
        while (DecodeHeader(buffer + pos, size - pos, false, h) && h.group == 0x0002) {
            size_t valueStart = pos + h.headerSize;
            if (h.length == kUndefinedLength || h.length > size - valueStart)
                break;
            if (h.element == 0x0010)
                return ValueText(buffer + valueStart, h.length);
            pos = valueStart + h.length;
        }
        return result;
    }
    bool bigEndian = StartsWithBigEndianGroupLength(buffer, size);
    if (size >= 8) {
        TAG_HEADER copy;
        std::memcpy(&copy, buffer, sizeof(copy));
        uint32_t stored = copy.nLength;
        CheckExplicitVR(&copy, reinterpret_cast<const TAG_HEADER*>(buffer), size);
        if (copy.nLength != stored)
            result = bigEndian ? kExplicitBigEndian : kExplicitLittleEndian;
    }
    return result;
}

const unsigned char* DICOMINFO::GetDicomTag(const unsigned char* buffer, size_t size, uint16_t group,
                                            uint16_t element, std::u16string& text)
{
    text.clear();
    if (!buffer)
        return nullptr;
    size_t start = 0;
    bool swap = false;
    if (FirstGroup(buffer, size) == 0x0008) {
        start = 0;
    } else if (HasDicomMetaHeader(buffer, size)) {
        const unsigned char* first = GetFirstTagAfterMetaHeader(buffer, size);
        if (!first)
            return nullptr;
        start = static_cast<size_t>(first - buffer);
    } else if (StartsWithBigEndianGroupLength(buffer, size)) {
        swap = true;
    } else {
        return nullptr;
    }
    ScanResult found = ScanFor(buffer, size, start, swap, group, element, true);
    if (!found.found)
        return nullptr;
    text = ValueText(found.value, found.count);
    return found.value;
}

int DICOMINFO::FindTag(const unsigned char* buffer, size_t size, int group, int element, std::u16string& text)
{
    if (!buffer || group < 0 || group > 0xFFFF || element < 0 || element > 0xFFFF)
        return 0;
    size_t start = 0;
    bool swap = false;
    uint16_t firstElement = size >= 4 ? ByteCursor::loadUint16LE(buffer + 2) : 0xFFFF;
    if (FirstGroup(buffer, size) == 0x0008 || firstElement == 0x0016 || firstElement == 0x0008) {
        start = 0;
    } else if (HasDicomMetaHeader(buffer, size)) {
        const unsigned char* first = GetFirstTagAfterMetaHeader(buffer, size);
        if (!first)
            return 0;
        start = static_cast<size_t>(first - buffer);
    } else if (StartsWithBigEndianGroupLength(buffer, size)) {
        swap = true;
    } else {
        return 0;
    }
    ScanResult found = ScanFor(buffer, size, start, swap, static_cast<uint16_t>(group),
                               static_cast<uint16_t>(element), false);
    if (!found.found)
        return 0;
    text = ValueText(found.value, found.count);
    return 1;
}
