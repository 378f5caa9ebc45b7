// Data-set elements in the transfer syntax negotiated for the outgoing
// presentation context (PS3.5 7.1, 7.3): identifiers and N-service data
// sets built with AddTag, received ones walked with ReadTags or loaded
// into an element tree.
#include <cstring>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dictionary.h"
#include "dicomdata/vrtable.h"
#include "network/dataset_codec.h"
#include "network/usersocket.h"
#include "platform/dynbuffer.h"

using namespace zeldicom;

int CUserSocket::AddTag(CDynBuffer& buffer, uint16_t group, uint16_t element, const void* value, uint32_t length)
{
    const char* vr = ElementVR(group, element, nullptr, m_bExplicitVR == 0);
    if (!vr || !FindVRFacts(std::string_view(vr, std::min<size_t>(std::strlen(vr), 2))))
        return 0;
    std::vector<unsigned char> bytes(static_cast<const unsigned char*>(value),
                                     static_cast<const unsigned char*>(value) + (value ? length : 0));
    if (bytes.size() % 2)
        bytes.push_back(PaddingByteOf(std::string_view(vr, 2)));
    const dataset::Encoding encoding{m_bExplicitVR != 0, m_bBigEndian != 0};
    // PS3.5 7.3: in big endian every multi-byte number is swapped, text is not.
    if (encoding.bigEndian)
        dataset::SwapValue(vr, bytes.data(), static_cast<uint32_t>(bytes.size()));
    dataset::WriteHeader(buffer, encoding, group, element, vr, static_cast<uint32_t>(bytes.size()));
    buffer.Add(bytes.data(), static_cast<uint32_t>(bytes.size()));
    return 1;
}

int CUserSocket::AddTag(CDynBuffer& buffer, uint16_t group, uint16_t element, uint16_t value)
{
    const unsigned char bytes[2] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8)};
    return AddTag(buffer, group, element, bytes, 2);
}

int CUserSocket::AddTag(CDynBuffer& buffer, uint16_t group, uint16_t element, uint32_t value)
{
    unsigned char bytes[4];
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    return AddTag(buffer, group, element, bytes, 4);
}

bool CUserSocket::ReadTags(const unsigned char* buffer, int size, DICOM_READ_TAG_PROC callback, void* parameter)
{
    const dataset::Encoding encoding{m_bExplicitVR != 0, m_bBigEndian != 0};
    ByteCursor cursor(buffer, size > 0 ? static_cast<size_t>(size) : 0);
    std::vector<unsigned char> copy;
    while (cursor.remaining() >= 8) {
        dataset::ElementHeader header;
        if (!dataset::ReadHeader(cursor, encoding, header) || header.group == 0xFFFE)
            return false;
        const unsigned char* value = cursor.here();
        if (header.length == dataset::kUndefined) {
            if (!dataset::SkipUndefinedValue(cursor, encoding, header, 0))
                return false;
        } else if (!cursor.skip(header.length)) {
            return false;
        }
        uint32_t length = static_cast<uint32_t>(cursor.here() - value);
        copy.assign(value, value + length);
        if (encoding.bigEndian && header.length != dataset::kUndefined)
            dataset::SwapValue(header.vr, copy.data(), length);
        if (callback)
            callback(header.group, header.element, length, copy.data(), parameter);
    }
    return true;
}

void CUserSocket::GetTagString(const unsigned char* value, int length, char* destination, int size)
{
    if (!destination || size <= 0)
        return;
    int count = value && length > 0 ? std::min(length, size - 1) : 0;
    if (count > 0)
        std::memcpy(destination, value, static_cast<size_t>(count));
    destination[count] = '\0';
    while (count > 0 && destination[count - 1] == ' ')
        destination[--count] = '\0';
}

void CUserSocket::CommandTagProc(uint16_t group, uint16_t element, uint32_t length, const unsigned char* value,
                                 void* parameter)
{
    // A value arrives in this machine's order: little endian here.
    if (parameter && group == 0x0000)
        StoreCommandValue(*static_cast<DICOM_CMND_MSG*>(parameter), element, value, length, false);
}

int CUserSocket::WriteProc(const void* data, int length, CDynBuffer* buffer)
{
    if (!buffer || length < 0 || !buffer->Add(data, static_cast<uint32_t>(length)))
        return 0;
    return length;
}

bool CUserSocket::LoadDataSet(const unsigned char* bytes, uint32_t size, CDynBuffer& keep, CDicomItem& dataSet) const
{
    keep.m_nSize = 0;
    if (!dataset::ToExplicitLittleEndian(bytes, size, dataset::Encoding{m_bExplicitVR != 0, m_bBigEndian != 0}, keep))
        return false;
    if (keep.m_nSize == 0)
        return true;
    return dataSet.LoadTags(keep.GetData(), static_cast<int>(keep.m_nSize), true, -1) == keep.m_nSize;
}
