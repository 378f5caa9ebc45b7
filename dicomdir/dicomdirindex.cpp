#include "dicomdir/dicomdirindex.h"

#include <cstdint>
#include <cstdio>

#include "dicomdata/dicomitem.h"
#include "dicomdir/dicomdirex.h"
#include "imageinfo/orientation.h"
#include "platform/text.h"

namespace zeldicom {

namespace {
std::u16string RecordType(const CDicomItem* record, bool& present)
{
    std::u16string text;
    present = record->GetTagValue(0x0004, 0x1430, text);
    return Trim(text);
}

// The key a record of this type is matched on, from the record itself.
std::u16string RecordKey(const CDicomItem* record, const std::string& type)
{
    if (type == "STUDY")
        return DirIndex::TextKey(record, 0x0020, 0x000D);
    if (type == "SERIES")
        return DirIndex::TextKey(record, 0x0020, 0x000E);
    return DirIndex::TextKey(record, 0x0004, 0x1511);
}

std::u16string Tagged(const std::string& type, const std::u16string& key)
{
    return AsciiToWide(type) + u'\n' + key;
}
}

std::u16string DirIndex::TextKey(const CDicomItem* node, int group, int element)
{
    std::u16string text;
    node->GetTagValue(group, element, text);
    size_t end = text.size();
    while (end > 0 && (text[end - 1] == u' ' || text[end - 1] == u'\0'))
        --end;
    text.resize(end);
    return text;
}

std::u16string DirIndex::PatientKey(const CDicomItem* node)
{
    std::u16string name;
    node->GetTagValue(0x0010, 0x0010, name);
    return CDicomConversion::NormalizePatientName(name) + u'\n' + PatientId(node) + u'\n' +
           TextKey(node, 0x0010, 0x0030) + u'\n' + TextKey(node, 0x0010, 0x0040);
}

std::u16string DirIndex::PatientId(const CDicomItem* node)
{
    std::u16string id = TextKey(node, 0x0010, 0x0020);
    if (!id.empty())
        return id;
    std::u16string name;
    node->GetTagValue(0x0010, 0x0010, name);
    std::u16string seed = CDicomConversion::NormalizePatientName(name) + u'\n' + TextKey(node, 0x0010, 0x0030) +
                          u'\n' + TextKey(node, 0x0010, 0x0040);
    return u"ZPAT" + Fingerprint(seed);
}

std::u16string DirIndex::Fingerprint(const std::u16string& text)
{
    uint64_t hash = 14695981039346656037ull;
    for (char16_t c : text) {
        hash ^= c;
        hash *= 1099511628211ull;
    }
    char digits[24];
    std::snprintf(digits, sizeof digits, "%016llX", static_cast<unsigned long long>(hash));
    return AsciiToWide(digits);
}

DirIndex::DirIndex(CDicomItem* group) : m_group(group)
{
    m_childCount = group->m_children.size();
    m_lastRecord = m_childCount ? group->m_children.back() : nullptr;
    for (size_t i = 0; i < group->m_children.size(); ++i) {
        CXmlItem* child = group->m_children[i];
        if (child->m_sName != u"eE000") {
            // Only the sequence delimiter, last, may stand among the records.
            if (i + 1 != group->m_children.size())
                m_usable = false;
            continue;
        }
        auto* record = static_cast<CDicomItem*>(child);
        bool present = false;
        std::u16string type = RecordType(record, present);
        std::string typeText = WideToAscii(type);
        int kind = CDicomDirEx::GetRecordType(typeText);
        if (!present) {
            m_usable = false;
            return;
        }
        if (kind == 6) {
            for (const char* known : {"PATIENT", "STUDY", "SERIES", "IMAGE", "KEY OBJECT DOC", "SR DOCUMENT"})
                if (EqualsNoCase(type, AsciiToWide(known))) {
                    m_usable = false;
                    return;
                }
            continue;  // passed over by every walk
        }
        Place(record, typeText);
    }
}

bool DirIndex::Matches(const CDicomItem* group) const
{
    return group == m_group && group->m_children.size() == m_childCount &&
           (m_childCount == 0 || group->m_children.back() == m_lastRecord);
}

void DirIndex::Place(CDicomItem* record, const std::string& type)
{
    int level = CDicomDirEx::GetRecordLevel(type);
    while (!m_open.empty() && m_open.back().first >= level)
        m_open.pop_back();
    if (level == 0) {
        m_patients.emplace(PatientKey(record), record);
    } else if (!m_open.empty() && m_open.back().first == level - 1) {
        m_children[m_open.back().second].emplace(Tagged(type, RecordKey(record, type)), record);
    }
    m_open.emplace_back(level, record);
}

bool DirIndex::EndsBelow(const CDicomItem* parent) const
{
    for (const auto& [level, record] : m_open)
        if (record == parent)
            return true;
    return false;
}

void DirIndex::Added(CDicomItem* record, const CDicomItem* parent, const CDicomItem* group)
{
    const auto& children = group->m_children;
    size_t count = children.size();
    bool atEnd = (count >= 1 && children[count - 1] == record) ||
                 (count >= 2 && children[count - 2] == record && children[count - 1]->m_sName != u"eE000");
    bool present = false;
    std::string type = WideToAscii(RecordType(record, present));
    if (atEnd)
        Place(record, type);
    else if (!parent)
        m_patients.emplace(PatientKey(record), record);
    else
        m_children[parent].emplace(Tagged(type, RecordKey(record, type)), record);
    m_childCount = group->m_children.size();
    m_lastRecord = group->m_children.back();
}

CDicomItem* DirIndex::FindPatient(const CDicomItem* dataSet) const
{
    auto it = m_patients.find(PatientKey(dataSet));
    return it == m_patients.end() ? nullptr : it->second;
}

CDicomItem* DirIndex::FindChild(const CDicomItem* parent, const std::string& type, const CDicomItem* key) const
{
    auto children = m_children.find(parent);
    if (children == m_children.end())
        return nullptr;
    std::u16string value = type == "STUDY"    ? TextKey(key, 0x0020, 0x000D)
                           : type == "SERIES" ? TextKey(key, 0x0020, 0x000E)
                                              : TextKey(key, 0x0002, 0x0003);
    auto it = children->second.find(Tagged(type, value));
    return it == children->second.end() ? nullptr : it->second;
}

}
