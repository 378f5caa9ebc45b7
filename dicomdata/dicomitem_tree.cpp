// Element tree structure: nodes, names, attributes, lookup, building and
// sequences.
#include <cstdlib>
#include <cstring>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dictionary.h"
#include "dicomdata/tagtable.h"
#include "platform/datainmemory.h"
#include "platform/profile.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
// Chunk size (MiB) in which large values are handed to a writer; the host's
// "Receive"/"FileCopyBufferSize" setting, 1 to 100, else 32. Cached until the
// profile changes.
int CopyChunkSize()
{
    static unsigned seenGeneration = 0;
    static int chunk = 32;
    unsigned generation = HostProfile::Generation();
    if (generation != seenGeneration) {
        int value = HostProfile::GetProfileInt("Receive", "FileCopyBufferSize", 32);
        chunk = (value < 1 || value > 100) ? 32 : value;
        seenGeneration = generation;
    }
    return chunk;
}

int HexDigit(char16_t c)
{
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    return -1;
}

int ParseTagName(const std::u16string& name, char16_t prefix)
{
    if (name.size() != 5 || name[0] != prefix)
        return -1;
    int value = 0;
    for (size_t i = 1; i < 5; ++i) {
        int digit = HexDigit(name[i]);
        if (digit < 0)
            return -1;
        value = value * 16 + digit;
    }
    return value;
}

std::u16string TagName(char16_t prefix, int number)
{
    static constexpr char16_t kHex[] = u"0123456789ABCDEF";
    std::u16string name(5, prefix);
    for (int i = 4; i >= 1; --i) {
        name[static_cast<size_t>(i)] = kHex[number & 0xF];
        number >>= 4;
    }
    return name;
}

CDicomItem* AsDicom(CXmlItem* item)
{
    return static_cast<CDicomItem*>(item);
}
}

CDicomItem::CDicomItem(const std::u16string& name, const std::u16string& value)
    : CXmlItem(name, value, "ISO_IR 100"), m_nCopyChunkSize(CopyChunkSize())
{
}

CDicomItem::~CDicomItem()
{
    if (m_bToBeFree)
        std::free(const_cast<unsigned char*>(m_pData));
    // The children's values may point into the image; they are only
    // destroyed (never read) after this, in the base destructor.
    delete m_pFileImage;
}

CXmlItem* CDicomItem::CreateCopy() const
{
    auto* copy = new CDicomItem(m_sName, m_sValue);
    copy->m_sCharacterSet = m_sCharacterSet;
    copy->m_nCopyChunkSize = m_nCopyChunkSize;
    if (m_nDataSize >= 1 && m_pData) {
        auto* bytes = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(m_nDataSize)));
        if (bytes) {
            std::memcpy(bytes, m_pData, static_cast<size_t>(m_nDataSize));
            copy->m_pData = bytes;
            copy->m_bToBeFree = true;
        }
    }
    copy->m_nDataSize = m_nDataSize;
    for (const CXmlItem* child : m_children) {
        CXmlItem* childCopy = child->CreateCopy();
        copy->AddItem(childCopy);
    }
    return copy;
}

// --- names and attributes

int CDicomItem::ParseGroupName(const std::u16string& name) { return ParseTagName(name, u'g'); }
int CDicomItem::ParseElementName(const std::u16string& name) { return ParseTagName(name, u'e'); }
std::u16string CDicomItem::GroupName(int group) { return TagName(u'g', group); }
std::u16string CDicomItem::ElementName(int element) { return TagName(u'e', element); }

CDicomItem* CDicomItem::GetDicomParent() const
{
    return static_cast<CDicomItem*>(m_pParent);
}

std::string CDicomItem::GetVR() const
{
    for (const CXmlItem* child : m_children) {
        if (child->m_sName.size() == 2 && child->m_sName == u"VR")
            return WideToAscii(child->m_sValue);
    }
    return {};
}

void CDicomItem::SetAttribute(const char16_t* name, const std::u16string& value)
{
    if (CXmlItem* existing = GetChildItem(name)) {
        existing->m_sValue = value;
        return;
    }
    // Attributes stay in front of the group children, in name order.
    int index = 0;
    while (index < GetChildCount() && m_children[static_cast<size_t>(index)]->m_sName <= std::u16string(name))
        ++index;
    auto* attribute = new CDicomItem(name, value);
    attribute->m_sCharacterSet = m_sCharacterSet;
    InsertItem(index, attribute);
}

void CDicomItem::SetAttribute(const char16_t* name, long value)
{
    SetAttribute(name, AsciiToWide(FormatText("%ld", value)));
}

// --- lookup

CDicomItem* CDicomItem::GetGroupItem(int group) const
{
    return AsDicom(GetChildItem(GroupName(group), 0));
}

CDicomItem* CDicomItem::GetTagItem(int group, int element, int n) const
{
    CDicomItem* groupItem = GetGroupItem(group);
    return groupItem ? AsDicom(groupItem->GetChildItem(ElementName(element), n)) : nullptr;
}

int CDicomItem::GetTagItemCount(int group, int element) const
{
    CDicomItem* groupItem = GetGroupItem(group);
    return groupItem ? groupItem->GetChildItemCount(ElementName(element)) : 0;
}

CDicomItem* CDicomItem::FindTag(int group, int element) const
{
    for (CXmlItem* groupChild : m_children) {
        int groupNumber = ParseGroupName(groupChild->m_sName);
        if (groupNumber < 0)
            continue;
        for (CXmlItem* elementChild : groupChild->m_children) {
            int elementNumber = ParseElementName(elementChild->m_sName);
            if (elementNumber < 0)
                continue;
            if (groupNumber == group && elementNumber == element)
                return AsDicom(elementChild);
            if (CDicomItem* hit = AsDicom(elementChild)->FindTag(group, element))
                return hit;
        }
    }
    return nullptr;
}

// --- building

CDicomItem* CDicomItem::AddGroup(int group)
{
    std::u16string name = GroupName(group);
    size_t index = 0;
    while (index < m_children.size() && !(name < m_children[index]->m_sName))
        ++index;
    auto* groupItem = new CDicomItem(name);
    groupItem->m_sCharacterSet = m_sCharacterSet;
    InsertItem(static_cast<int>(index), groupItem);
    return groupItem;
}

void CDicomItem::SetGroupNumber(int group)
{
    m_sName = GroupName(group);
}

CDicomItem* CDicomItem::FindOrAddGroup(int group)
{
    CDicomItem* groupItem = GetGroupItem(group);
    return groupItem ? groupItem : AddGroup(group);
}

CDicomItem* CDicomItem::CreateElement(int group, int element, const void* bytes, int size, const std::u16string& vr,
                                      bool insertSorted)
{
    CDicomItem* groupItem = FindOrAddGroup(group);
    if (!groupItem)
        return nullptr;
    auto* item = new CDicomItem(ElementName(element));
    item->m_sCharacterSet = m_sCharacterSet;
    if (size == -1 && !bytes)
        item->m_nDataSize = -1;
    if (!vr.empty()) {
        item->SetAttribute(u"VR", vr);
    } else if (const TAGINFO* entry = CTagTable::Find(group, element)) {
        item->SetAttribute(u"VR", AsciiToWide(entry->szVR));
    }
    if (bytes && size != 0 && !item->CopyData(bytes, size)) {
        delete item;
        return nullptr;
    }
    if (insertSorted) {
        size_t index = 0;
        while (index < groupItem->m_children.size() && !(item->m_sName < groupItem->m_children[index]->m_sName))
            ++index;
        groupItem->InsertItem(static_cast<int>(index), item);
    } else {
        groupItem->AddItem(item);
    }
    if (group == 0xFFFE && element == 0xE000) {
        std::string parentVR = GetVR();
        if (!parentVR.empty())
            item->SetAttribute(u"ParentVR", AsciiToWide(parentVR));
    }
    return item;
}

CDicomItem* CDicomItem::AddTag(int group, int element, const void* bytes, int size, const std::u16string& vr)
{
    return CreateElement(group, element, bytes, size, vr, false);
}

CDicomItem* CDicomItem::InsertTag(int group, int element, const void* bytes, int size, const std::u16string& vr)
{
    return CreateElement(group, element, bytes, size, vr, true);
}

CDicomItem* CDicomItem::ReplaceTag(int group, int element, const void* bytes, int size, const std::u16string& vr)
{
    RemoveTag(group, element);
    return InsertTag(group, element, bytes, size, vr);
}

namespace {
// The dictionary's VR when none is given, for the text forms.
std::u16string EffectiveVR(int group, int element, const std::u16string& vr)
{
    if (!vr.empty())
        return vr;
    // The fixed dictionary's VR for its own tags, the registry's for the rest.
    const char* known = CTagTable::FindVR(group, element);
    if (!*known && group >= 0 && group <= 0xFFFF && element >= 0 && element <= 0xFFFF)
        known = zeldicom::ElementVR(static_cast<uint16_t>(group), static_cast<uint16_t>(element), nullptr, false);
    return AsciiToWide(known);
}
}

// The stored form of a text value in this node's character set. Text the
// character set cannot hold is refused, not stored damaged.
bool CDicomItem::EncodeTextValue(const std::u16string& text, const std::u16string& vr, std::string& bytes) const
{
    if (TranslateTagValueFromUnicodeToDicom(text, WideToAscii(vr), AsciiToWide(m_sCharacterSet), bytes))
        return true;
    m_LastError.Set(CLastError::kNotRepresentable,
                    "the character set " + (m_sCharacterSet.empty() ? std::string("ISO_IR 6") : m_sCharacterSet) +
                        " cannot hold the text");
    return false;
}

CDicomItem* CDicomItem::AddTag(int group, int element, const std::u16string& text, const std::u16string& vr)
{
    std::u16string useVR = EffectiveVR(group, element, vr);
    std::string bytes;
    if (!EncodeTextValue(text, useVR, bytes))
        return nullptr;
    return AddTag(group, element, bytes.data(), static_cast<int>(bytes.size()), useVR);
}

CDicomItem* CDicomItem::InsertTag(int group, int element, const std::u16string& text, const std::u16string& vr)
{
    std::u16string useVR = EffectiveVR(group, element, vr);
    std::string bytes;
    if (!EncodeTextValue(text, useVR, bytes))
        return nullptr;
    return InsertTag(group, element, bytes.data(), static_cast<int>(bytes.size()), useVR);
}

CDicomItem* CDicomItem::ReplaceTag(int group, int element, const std::u16string& text, const std::u16string& vr)
{
    // The text is encoded before the existing element goes: a refused
    // text leaves the old value in place.
    std::u16string useVR = EffectiveVR(group, element, vr);
    std::string bytes;
    if (!EncodeTextValue(text, useVR, bytes))
        return nullptr;
    RemoveTag(group, element);
    return InsertTag(group, element, bytes.data(), static_cast<int>(bytes.size()), useVR);
}

CDicomItem* CDicomItem::AddTag(int group, int element, uint16_t value)
{
    unsigned char bytes[2] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8)};
    return AddTag(group, element, bytes, 2, std::u16string());
}

CDicomItem* CDicomItem::AddTag(int group, int element, uint32_t value)
{
    unsigned char bytes[4] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
                              static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
    return AddTag(group, element, bytes, 4, std::u16string());
}

namespace {
template <typename T>
CDicomItem* AddNumbers(CDicomItem* node, int group, int element, const std::vector<T>& values, const char16_t* vr)
{
    if (values.empty())
        return nullptr;
    // The host is little endian, so the array's bytes are the stored form.
    return node->AddTag(group, element, values.data(), static_cast<int>(values.size() * sizeof(T)), vr);
}
}

CDicomItem* CDicomItem::AddTagForFL(int group, int element, const std::vector<float>& values)
{
    return AddNumbers(this, group, element, values, u"FL");
}

CDicomItem* CDicomItem::AddTagForSL(int group, int element, const std::vector<int32_t>& values)
{
    return AddNumbers(this, group, element, values, u"SL");
}

CDicomItem* CDicomItem::AddTagForUS(int group, int element, const std::vector<uint16_t>& values)
{
    return AddNumbers(this, group, element, values, u"US");
}

CDicomItem* CDicomItem::AddTagForSS(int group, int element, const std::vector<int16_t>& values)
{
    return AddNumbers(this, group, element, values, u"SS");
}

int CDicomItem::InsertDicomItem(CDicomItem* element, int group)
{
    CDicomItem* groupItem = FindOrAddGroup(group);
    size_t index = 0;
    while (index < groupItem->m_children.size() && !(element->m_sName < groupItem->m_children[index]->m_sName))
        ++index;
    groupItem->InsertItem(static_cast<int>(index), element);
    return static_cast<int>(index);
}

bool CDicomItem::RemoveTag(int group, int element)
{
    CDicomItem* groupItem = GetGroupItem(group);
    if (!groupItem)
        return false;
    std::u16string name = ElementName(element);
    for (size_t i = 0; i < groupItem->m_children.size(); ++i) {
        if (groupItem->m_children[i]->m_sName == name) {
            delete groupItem->RemoveChildAt(static_cast<int>(i));
            return true;
        }
    }
    return false;
}

bool CDicomItem::RemoveGroup(int group)
{
    std::u16string name = GroupName(group);
    for (size_t i = 0; i < m_children.size(); ++i) {
        if (m_children[i]->m_sName == name) {
            delete RemoveChildAt(static_cast<int>(i));
            return true;
        }
    }
    return false;
}

// --- sequences

CDicomItem* CDicomItem::AddSequence(int group, int element)
{
    CDicomItem* sequence = AddTag(group, element, nullptr, -1, u"SQ");
    if (!sequence || !sequence->AddTag(0xFFFE, 0xE0DD, nullptr, 0, std::u16string()))
        return nullptr;
    return sequence;
}

CDicomItem* CDicomItem::InsertSequence(int group, int element)
{
    CDicomItem* sequence = InsertTag(group, element, nullptr, -1, u"SQ");
    if (!sequence || !sequence->AddTag(0xFFFE, 0xE0DD, nullptr, 0, std::u16string()))
        return nullptr;
    return sequence;
}

CDicomItem* CDicomItem::InsertSequenceItem()
{
    CDicomItem* item = InsertTag(0xFFFE, 0xE000, nullptr, -1, std::u16string());
    if (!item || !item->AddTag(0xFFFE, 0xE00D, nullptr, 0, std::u16string()))
        return nullptr;
    return item;
}

CDicomItem* CDicomItem::GetSequenceItem(int group, int element) const
{
    CDicomItem* sequence = GetTagItem(group, element);
    return sequence ? sequence->GetTagItem(0xFFFE, 0xE000) : nullptr;
}

int CDicomItem::GetSequenceChildItemCount(int group, int element) const
{
    int count = 0;
    for (int i = 0; CDicomItem* item = GetTagItem(0xFFFE, 0xE000, i); ++i)
        count += item->GetTagItemCount(group, element);
    return count;
}

CDicomItem* CDicomItem::GetSequenceChildItemOptional(int group, int element, int index) const
{
    if (index < 0)
        return nullptr;
    CDicomItem* item = GetTagItem(0xFFFE, 0xE000, index);
    return item ? item->GetTagItem(group, element) : nullptr;
}

CDicomItem* CDicomItem::GetSequenceChildItemMandatory(int group, int element, int n) const
{
    for (int i = 0; CDicomItem* item = GetTagItem(0xFFFE, 0xE000, i); ++i) {
        if (CDicomItem* found = item->GetTagItem(group, element)) {
            if (n-- == 0)
                return found;
        }
    }
    return nullptr;
}
