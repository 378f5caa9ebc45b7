#include "platform/xmlitem.h"

#include <new>

#include "platform/nodearena.h"
#include "platform/text.h"

using namespace zeldicom;

void* CXmlItem::operator new(std::size_t size)
{
    void* node = AllocateNode(size);
    if (!node)
        throw std::bad_alloc();
    return node;
}

void CXmlItem::operator delete(void* node)
{
    FreeNode(node);
}

CXmlItem::CXmlItem(const char16_t* name, const char16_t* value, const char* characterSet)
    : m_sName(name ? name : u""), m_sValue(value ? value : u""), m_sCharacterSet(characterSet ? characterSet : "")
{
}

CXmlItem::CXmlItem(const std::u16string& name, const std::u16string& value, const std::string& characterSet)
    : m_sName(name), m_sValue(value), m_sCharacterSet(characterSet)
{
}

CXmlItem::~CXmlItem()
{
    for (CXmlItem* child : m_children)
        delete child;
}

CXmlItem* CXmlItem::CreateCopy() const
{
    auto* copy = new CXmlItem(m_sName, m_sValue, m_sCharacterSet);
    for (const CXmlItem* child : m_children)
        copy->AddItem(child->CreateCopy());
    return copy;
}

CXmlItem* CXmlItem::GetChildItem(int index) const
{
    if (index < 0 || index >= GetChildCount())
        return nullptr;
    return m_children[static_cast<size_t>(index)];
}

namespace {
// Element and group names ("e0010", "e0020") share their start: compared
// from the end, most names differ at the first character looked at.
inline bool SameName(const std::u16string& a, const std::u16string& b)
{
    size_t size = a.size();
    if (size != b.size())
        return false;
    const char16_t* left = a.data();
    const char16_t* right = b.data();
    while (size > 0) {
        --size;
        if (left[size] != right[size])
            return false;
    }
    return true;
}
}

CXmlItem* CXmlItem::GetChildItem(const std::u16string& name, int occurrence) const
{
    for (CXmlItem* child : m_children) {
        if (SameName(child->m_sName, name)) {
            if (occurrence == 0)
                return child;
            --occurrence;
        }
    }
    return nullptr;
}

int CXmlItem::GetChildItemCount(const std::u16string& name) const
{
    int count = 0;
    for (const CXmlItem* child : m_children)
        count += SameName(child->m_sName, name);
    return count;
}

void CXmlItem::AddItem(CXmlItem* item, bool)
{
    item->m_pParent = this;
    m_children.push_back(item);
}

CXmlItem* CXmlItem::AddItem(const std::u16string& name, const std::u16string& value, const std::string& characterSet)
{
    auto* item = new CXmlItem(name, value, characterSet);
    AddItem(item);
    return item;
}

CXmlItem* CXmlItem::AddItem(const std::u16string& name, long value, const std::string& characterSet)
{
    return AddItem(name, AsciiToWide(FormatText("%ld", value)), characterSet);
}

void CXmlItem::InsertItem(int index, CXmlItem* item, bool)
{
    if (index < 0)
        index = 0;
    if (index > GetChildCount())
        index = GetChildCount();
    item->m_pParent = this;
    m_children.insert(m_children.begin() + index, item);
}

bool CXmlItem::GetItemValue(const std::u16string& name, std::u16string& value) const
{
    const CXmlItem* child = GetChildItem(name, 0);
    if (!child)
        return false;
    value = child->m_sValue;
    return true;
}

bool CXmlItem::GetItemValue(const std::u16string& name, long& value) const
{
    const CXmlItem* child = GetChildItem(name, 0);
    if (!child)
        return false;
    value = WideToLong(child->m_sValue);
    return true;
}

void CXmlItem::DeleteChildItem(const std::u16string& name, int occurrence)
{
    for (size_t i = 0; i < m_children.size(); ++i) {
        if (m_children[i]->m_sName == name && occurrence-- == 0) {
            delete RemoveChildAt(static_cast<int>(i));
            return;
        }
    }
}

CXmlItem* CXmlItem::RemoveChildAt(int index)
{
    if (index < 0 || index >= GetChildCount())
        return nullptr;
    CXmlItem* child = m_children[static_cast<size_t>(index)];
    m_children.erase(m_children.begin() + index);
    child->m_pParent = nullptr;
    return child;
}

int CXmlItem::IndexOfChild(const CXmlItem* child) const
{
    for (size_t i = 0; i < m_children.size(); ++i)
        if (m_children[i] == child)
            return static_cast<int>(i);
    return -1;
}

void CXmlItem::ChangeCharacterSet(const std::string& characterSet)
{
    m_sCharacterSet = characterSet;
    for (CXmlItem* child : m_children)
        child->ChangeCharacterSet(characterSet);
}
