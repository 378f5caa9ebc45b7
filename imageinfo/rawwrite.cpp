// Raw element writers: implicit and explicit VR little endian elements
// appended to (or inserted into) a byte buffer, in call order, with no tree.
// Used for command sets, identifiers, print attributes and file heads.
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dictionary.h"
#include "dicomdata/tagtable.h"
#include "dicomdata/vrtable.h"
#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

using Bytes = std::vector<unsigned char>;

// Padding bytes and header forms come from the VR table (PS3.5 6.2, 7.1.2).
unsigned char PaddingByte(const std::string& vr)
{
    return zeldicom::PaddingByteOf(vr);
}

bool IsLongForm(const std::string& vr)
{
    return zeldicom::IsLongFormVR(vr);
}

void Put16(Bytes& out, uint32_t value)
{
    out.push_back(static_cast<unsigned char>(value));
    out.push_back(static_cast<unsigned char>(value >> 8));
}

void Put32(Bytes& out, uint32_t value)
{
    Put16(out, value & 0xFFFF);
    Put16(out, value >> 16);
}

void PutValue(Bytes& out, const void* bytes, uint32_t count, unsigned char padding)
{
    const auto* p = static_cast<const unsigned char*>(bytes);
    if (p)
        out.insert(out.end(), p, p + count);
    else
        out.insert(out.end(), count, 0);
    if (count % 2 != 0)
        out.push_back(padding);
}

// Even length of a value; false when it cannot be written (0xFFFFFFFF would
// read as an undefined length).
bool PaddedLength(uint32_t count, uint32_t& padded)
{
    if (count >= 0xFFFFFFFEu && count % 2 != 0)
        return false;
    if (count == kUndefinedLength)
        return false;
    padded = count + (count % 2);
    return true;
}

Bytes ImplicitElement(uint16_t group, uint16_t element, const void* bytes, uint32_t count, unsigned char padding)
{
    Bytes out;
    uint32_t padded = 0;
    if (!PaddedLength(count, padded))
        return out;
    out.reserve(8 + padded);
    Put16(out, group);
    Put16(out, element);
    Put32(out, padded);
    PutValue(out, bytes, count, padding);
    return out;
}

// An explicit VR element with the dictionary's VR (UN for a value too long
// for its VR's 16-bit length field); empty when the dictionary does not know
// the tag.
// undefined: a header with undefined length and no value.
Bytes ExplicitElement(uint16_t group, uint16_t element, const void* bytes, uint32_t count, bool undefined)
{
    Bytes out;
    std::string vr = CTagTable::FindVR(group, element);
    if (vr.empty() && (group & 1) == 0)  // standard tags outside the fixed dictionary
        vr = zeldicom::ElementVR(group, element, nullptr, false);
    if (vr.empty())
        return out;
    uint32_t padded = 0;
    if (!undefined && !PaddedLength(count, padded))
        return out;
    if (!undefined)
        vr = std::string(zeldicom::ExplicitHeaderVR(vr, padded));
    Put16(out, group);
    Put16(out, element);
    if (group == 0xFFFE) {
        // Items and delimiters carry no VR in any transfer syntax.
        Put32(out, undefined ? kUndefinedLength : padded);
    } else if (IsLongForm(vr)) {
        out.push_back(static_cast<unsigned char>(vr[0]));
        out.push_back(static_cast<unsigned char>(vr[1]));
        Put16(out, 0);
        Put32(out, undefined ? kUndefinedLength : padded);
    } else {
        out.push_back(static_cast<unsigned char>(vr[0]));
        out.push_back(static_cast<unsigned char>(vr[1]));
        Put16(out, undefined ? 0xFFFF : padded);
    }
    if (!undefined)
        PutValue(out, bytes, count, PaddingByte(vr));
    return out;
}

void Append(CDynBuffer& buffer, const Bytes& bytes)
{
    if (!bytes.empty())
        buffer.Add(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

void InsertAt(CDynBuffer& buffer, const Bytes& bytes, uint32_t position)
{
    if (!bytes.empty())
        buffer.Insert(bytes.data(), static_cast<uint32_t>(bytes.size()), position);
}

Bytes LittleEndian16(uint16_t value)
{
    Bytes out;
    Put16(out, value);
    return out;
}

Bytes LittleEndian32(uint32_t value)
{
    Bytes out;
    Put32(out, value);
    return out;
}

}

void DICOMINFO::AddTag(CDynBuffer& buffer, uint16_t group, uint16_t element, uint16_t value)
{
    Bytes v = LittleEndian16(value);
    Append(buffer, ImplicitElement(group, element, v.data(), 2, 0));
}

void DICOMINFO::AddTag(CDynBuffer& buffer, uint16_t group, uint16_t element, uint32_t value)
{
    Bytes v = LittleEndian32(value);
    Append(buffer, ImplicitElement(group, element, v.data(), 4, 0));
}

void DICOMINFO::AddTag(CDynBuffer& buffer, uint16_t group, uint16_t element)
{
    Bytes out;
    Put16(out, group);
    Put16(out, element);
    Put32(out, kUndefinedLength);
    Append(buffer, out);
}

void DICOMINFO::InsertTag(CDynBuffer& buffer, uint16_t group, uint16_t element, uint32_t value, uint32_t position)
{
    Bytes v = LittleEndian32(value);
    InsertAt(buffer, ImplicitElement(group, element, v.data(), 4, 0), position);
}

void DICOMINFO::AddTagByVR(CDynBuffer& buffer, const std::u16string& vr, uint16_t group, uint16_t element,
                           const void* bytes, uint32_t count)
{
    Append(buffer, ImplicitElement(group, element, bytes, count, PaddingByte(WideToAscii(vr))));
}

bool DICOMINFO::AddTagByVR(CDynBuffer& buffer, const std::u16string& vr, uint16_t group, uint16_t element,
                           const std::u16string& text, const std::u16string& characterSet)
{
    // Text the character set cannot hold is refused, not written empty: an
    // empty key of a query identifier would match everything.
    std::string bytes;
    if (!CDicomItem::TranslateTagValueFromUnicodeToDicom(text, WideToAscii(vr), characterSet, bytes))
        return false;
    AddTagByVR(buffer, vr, group, element, bytes.data(), static_cast<uint32_t>(bytes.size()));
    return true;
}

void DICOMINFO::AddTagExpVR(CDynBuffer& buffer, uint16_t group, uint16_t element, const void* bytes,
                            uint32_t count)
{
    Append(buffer, ExplicitElement(group, element, bytes, count, false));
}

bool DICOMINFO::AddTagExpVR(CDynBuffer& buffer, uint16_t group, uint16_t element, const std::u16string& text)
{
    // The platform's default 8-bit conversion: the ANSI code page (no VR
    // and no character set select another). Text it cannot hold is refused.
    std::string bytes;
    if (!CDicomItem::TranslateTagValueFromUnicodeToDicom(text, "", u"", bytes))
        return false;
    AddTagExpVR(buffer, group, element, bytes.data(), static_cast<uint32_t>(bytes.size()));
    return true;
}

void DICOMINFO::AddTagExpVR(CDynBuffer& buffer, uint16_t group, uint16_t element, uint16_t value)
{
    Bytes v = LittleEndian16(value);
    AddTagExpVR(buffer, group, element, v.data(), 2);
}

void DICOMINFO::AddTagExpVR(CDynBuffer& buffer, uint16_t group, uint16_t element)
{
    Append(buffer, ExplicitElement(group, element, nullptr, 0, true));
}

void DICOMINFO::InsertTagExpVR(CDynBuffer& buffer, uint16_t group, uint16_t element, uint32_t value,
                               uint32_t position)
{
    Bytes v = LittleEndian32(value);
    InsertAt(buffer, ExplicitElement(group, element, v.data(), 4, false), position);
}

std::u16string DICOMINFO::GetTagVRString(uint16_t group, uint16_t element)
{
    return AsciiToWide(CTagTable::FindVR(group, element));
}
