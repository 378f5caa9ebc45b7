#include "dicomdata/dictionary.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "dicomdata/dicomitem.h"
#include "dicomdata/tagtable.h"

namespace zeldicom {
namespace {

constexpr char kStrings[] =
#define ZELDICOM_STRING_POOL
#include "dicomdata/dictionary_data.inc"
#undef ZELDICOM_STRING_POOL
    ;

constexpr AttributeEntry kAttributes[] = {
#define ZELDICOM_ATTRIBUTE_ROWS
#include "dicomdata/dictionary_data.inc"
#undef ZELDICOM_ATTRIBUTE_ROWS
};

// A repeating-group row matches the tags whose masked bits equal value.
struct RepeatingEntry {
    uint32_t mask;
    uint32_t value;
    AttributeEntry entry;
};

constexpr RepeatingEntry kRepeating[] = {
#define ZELDICOM_REPEATING_ROWS
#include "dicomdata/dictionary_data.inc"
#undef ZELDICOM_REPEATING_ROWS
};

constexpr UidEntry kUids[] = {
#define ZELDICOM_UID_ROWS
#include "dicomdata/dictionary_data.inc"
#undef ZELDICOM_UID_ROWS
};

constexpr bool SortedByTag()
{
    for (size_t i = 1; i < std::size(kAttributes); ++i)
        if (kAttributes[i - 1].tag >= kAttributes[i].tag)
            return false;
    return true;
}
static_assert(SortedByTag(), "the attribute rows are sorted by tag and unique");

}

const char* AttributeEntry::vr() const { return kStrings + vrAt; }
const char* AttributeEntry::vm() const { return kStrings + vmAt; }
const char* AttributeEntry::keyword() const { return kStrings + keywordAt; }
const char* AttributeEntry::name() const { return kStrings + nameAt; }
const char* UidEntry::uid() const { return kStrings + uidAt; }
const char* UidEntry::keyword() const { return kStrings + keywordAt; }
const char* UidEntry::name() const { return kStrings + nameAt; }
const char* UidEntry::type() const { return kStrings + typeAt; }

const AttributeEntry* FindAttribute(uint16_t group, uint16_t element)
{
    uint32_t tag = (static_cast<uint32_t>(group) << 16) | element;
    const AttributeEntry* found = std::lower_bound(std::begin(kAttributes), std::end(kAttributes), tag,
                                                   [](const AttributeEntry& row, uint32_t key) { return row.tag < key; });
    if (found != std::end(kAttributes) && found->tag == tag)
        return found;
    // Repeating groups are even groups only (odd groups are private).
    if (group & 1)
        return nullptr;
    for (const RepeatingEntry& row : kRepeating)
        if ((tag & row.mask) == row.value)
            return &row.entry;
    return nullptr;
}

const AttributeEntry* FindAttributeByKeyword(std::string_view keyword)
{
    if (keyword.empty())
        return nullptr;
    for (const AttributeEntry& row : kAttributes)
        if (keyword == row.keyword())
            return &row;
    for (const RepeatingEntry& row : kRepeating)
        if (keyword == row.entry.keyword())
            return &row.entry;
    return nullptr;
}

const UidEntry* FindUid(std::string_view uid)
{
    while (!uid.empty() && (uid.back() == ' ' || uid.back() == '\0'))
        uid.remove_suffix(1);
    const UidEntry* found = std::lower_bound(std::begin(kUids), std::end(kUids), uid,
                                             [](const UidEntry& row, std::string_view key) { return std::string_view(row.uid()) < key; });
    if (found != std::end(kUids) && std::string_view(found->uid()) == uid)
        return found;
    return nullptr;
}

namespace {
// The value of (group, element) in the data set or the nearest enclosing one.
bool FindInScope(const CDicomItem* node, int group, int element, uint16_t& value, int index = 0)
{
    for (const CXmlItem* scope = node; scope; scope = scope->GetParentItem()) {
        const auto* dataSet = static_cast<const CDicomItem*>(scope);
        if (CDicomItem* item = dataSet->GetTagItem(group, element))
            return item->GetTagValueForUS(value, index);
    }
    return false;
}

bool Is(const char* vr, const char* form) { return std::strcmp(vr, form) == 0; }
}

const char* ElementVR(uint16_t group, uint16_t element, const CDicomItem* dataSet, bool implicitVR)
{
    const AttributeEntry* entry = FindAttribute(group, element);
    if (!entry) {
        if (element == 0x0000)
            return "UL";  // PS3.5 7.2: group lengths
        if ((group & 1) && element >= 0x0010 && element <= 0x00FF)
            return "LO";  // PS3.5 7.8.1: private creator
        return CTagTable::FindVR(group, element);
    }
    const char* vr = entry->vr();
    if (vr[0] == '\0' || vr[2] == '\0')
        return vr;
    uint16_t value = 0;
    if (Is(vr, "OB or OW")) {
        // PS3.5 A.1: implicit VR little endian always uses OW.
        if (implicitVR)
            return "OW";
        return FindInScope(dataSet, 0x0028, 0x0100, value) && value > 8 ? "OW" : "OB";
    }
    if (Is(vr, "US or OW")) {
        // LUT Data: a descriptor of one entry holds a single US value; a
        // table is OW, which a 16-bit explicit length could not always hold.
        return FindInScope(dataSet, 0x0028, 0x3002, value) && value == 1 ? "US" : "OW";
    }
    // "US or SS", "US or SS or OW": signed when the pixels are.
    return FindInScope(dataSet, 0x0028, 0x0103, value) && value == 1 ? "SS" : "US";
}

}
