// Element values: storing bytes and reading them back as numbers or text.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dicomdata/dicomitem.h"
#include "dicomdata/tagtable.h"
#include "platform/match.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
// The node's label as wide text; the values of a tree share a few labels,
// so the last conversion is kept.
const std::u16string& WideLabel(const std::string& label)
{
    thread_local std::string lastLabel;
    thread_local std::u16string lastWide;
    if (label != lastLabel || lastWide.empty()) {
        lastWide = AsciiToWide(label);
        lastLabel = label;
    }
    return lastWide;
}
}

void CDicomItem::SetData(const unsigned char* bytes, int size, bool owns)
{
    if (m_bToBeFree)
        std::free(const_cast<unsigned char*>(m_pData));
    m_pData = bytes;
    m_nDataSize = size;
    m_bToBeFree = owns;
}

void CDicomItem::FreeData()
{
    if (m_nDataSize > 0 && m_pData) {
        if (m_bToBeFree)
            std::free(const_cast<unsigned char*>(m_pData));
        m_pData = nullptr;
        m_nDataSize = 0;
        m_bToBeFree = false;
    }
}

bool CDicomItem::CopyData(const void* bytes, int size)
{
    FreeData();
    // PS3.5 7.1.1: values have even length; an odd one gets its VR's padding byte.
    int64_t padded = static_cast<int64_t>(size) + (size % 2);
    if (padded < 1)
        return true;
    if (padded > INT32_MAX)
        return false;
    auto* copy = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(padded)));
    if (!copy)
        return false;
    if (bytes)
        std::memcpy(copy, bytes, static_cast<size_t>(size));
    else
        std::memset(copy, 0, static_cast<size_t>(size));
    if (padded != size)
        copy[padded - 1] = CTagTable::GetTrailingByte(AsciiToWide(GetVR()));
    if (m_bToBeFree)
        std::free(const_cast<unsigned char*>(m_pData));
    m_pData = copy;
    m_nDataSize = static_cast<int>(padded);
    m_bToBeFree = true;
    return true;
}

bool CDicomItem::CopyData(int group, int element, const void* bytes, int size)
{
    CDicomItem* item = GetTagItem(group, element);
    return item && item->CopyData(bytes, size);
}

bool CDicomItem::CopyData(const std::u16string& text)
{
    std::string bytes;
    if (!TranslateTagValueFromUnicodeToDicom(text, GetVR(), WideLabel(m_sCharacterSet), bytes))
        return false;
    return CopyData(bytes.data(), static_cast<int>(bytes.size()));
}

bool CDicomItem::CopyData(int group, int element, const std::u16string& text)
{
    CDicomItem* item = GetTagItem(group, element);
    return item && item->CopyData(text);
}

bool CDicomItem::SetTagValue(int group, int element, uint16_t value)
{
    unsigned char bytes[2] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8)};
    return CopyData(group, element, bytes, 2);
}

// --- typed reading

bool CDicomItem::GetTagValue(const std::string& vr, std::u16string& text) const
{
    if (!m_pData || m_nDataSize <= 0) {
        text.clear();
        return true;
    }
    std::string bytes(reinterpret_cast<const char*>(m_pData), static_cast<size_t>(m_nDataSize));
    text = TranslateTagValueFromDicomToUnicode(bytes, vr, WideLabel(m_sCharacterSet));
    return true;
}

bool CDicomItem::GetTagValue(std::u16string& text) const
{
    return GetTagValue(GetVR(), text);
}

bool CDicomItem::GetTagValue(int group, int element, std::u16string& text) const
{
    CDicomItem* item = GetTagItem(group, element);
    if (!item)
        return false;
    return item->GetTagValue(CTagTable::FindVR(group, element), text);
}

bool CDicomItem::GetTagValue(uint16_t& value) const
{
    if (!m_pData || m_nDataSize < 2)
        return false;
    std::memcpy(&value, m_pData, 2);
    return true;
}

bool CDicomItem::GetTagValue(int group, int element, uint16_t& value) const
{
    CDicomItem* item = GetTagItem(group, element);
    return item && item->GetTagValue(value);
}

bool CDicomItem::GetTagValue(int group, int element, int& value) const
{
    CDicomItem* item = GetTagItem(group, element);
    if (!item || !item->m_pData || item->m_nDataSize < 4)
        return false;
    std::memcpy(&value, item->m_pData, 4);
    return true;
}

namespace {
template <typename T>
bool ReadIndexed(const unsigned char* data, int size, int index, T& value)
{
    if (!data || index < 0 || static_cast<int64_t>(size) < static_cast<int64_t>(sizeof(T)) * (index + 1))
        return false;
    std::memcpy(&value, data + sizeof(T) * static_cast<size_t>(index), sizeof(T));
    return true;
}

// The index-th backslash-separated value of a DS or IS text.
bool NumberField(const std::u16string& text, int index, double& value)
{
    std::string field = WideToAscii(Trim(GetField(text, u'\\', index)));
    if (field.empty())
        return false;
    char* end = nullptr;
    value = std::strtod(field.c_str(), &end);
    return end != field.c_str();
}
}

bool CDicomItem::GetTagValueForUS(uint16_t& value, int index) const
{
    return ReadIndexed(m_pData, m_nDataSize, index, value);
}

bool CDicomItem::GetTagValueForSS(int16_t& value, int index) const
{
    return ReadIndexed(m_pData, m_nDataSize, index, value);
}

bool CDicomItem::GetTagValueForFL(float& value, int index) const
{
    return ReadIndexed(m_pData, m_nDataSize, index, value);
}

bool CDicomItem::GetTagValueForSL(std::u16string& text) const
{
    text.clear();
    if (!m_pData || m_nDataSize <= 0)
        return true;
    if (GetVR() != "SL")
        return false;
    std::string out;
    for (int i = 0; (i + 1) * 4 <= m_nDataSize; ++i) {
        int32_t number;
        std::memcpy(&number, m_pData + 4 * i, 4);
        out += FormatText("%d\\", number);
    }
    text = AsciiToWide(out);
    return true;
}

bool CDicomItem::GetTagValueForDS(float& value, int index) const
{
    std::u16string text;
    double number;
    if (!GetTagValue(text) || !NumberField(text, index, number))
        return false;
    value = static_cast<float>(number);
    return true;
}

bool CDicomItem::GetTagValueForIS(int& value, int index) const
{
    std::u16string text;
    double number;
    if (!GetTagValue(text) || !NumberField(text, index, number))
        return false;
    if (number < INT32_MIN || number > INT32_MAX)
        return false;
    value = static_cast<int>(number);
    return true;
}

bool CDicomItem::GetDateValue(int group, int element, long& value) const
{
    std::u16string text;
    if (!GetTagValue(group, element, text))
        return false;
    if (text.size() >= 8) {
        std::u16string date = text.substr(0, 8);
        if (Match(date, "dddddddd"))
            value = std::strtol(WideToAscii(date).c_str(), nullptr, 10);
    }
    return true;
}

bool CDicomItem::GetTimeValue(int group, int element, long& value) const
{
    std::u16string text;
    if (!GetTagValue(group, element, text))
        return false;
    value = DicomTimeToLong(text);
    return true;
}

long CDicomItem::DicomTimeToLong(const std::u16string& text)
{
    std::u16string time = text.substr(0, text.find(u'.'));
    if (Match(time, "ddddd") || Match(time, "dddddd"))
        return std::strtol(WideToAscii(time).c_str(), nullptr, 10);
    return -1;
}
