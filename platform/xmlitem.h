#pragma once
// A generic ordered tree of named nodes, each with a text value and a DICOM
// character set label. The element tree (CDicomItem) is built on it.
#include <cstddef>
#include <string>
#include <vector>

class CXmlItem {
public:
    CXmlItem(const char16_t* name, const char16_t* value, const char* characterSet);
    CXmlItem(const std::u16string& name, const std::u16string& value, const std::string& characterSet);
    virtual ~CXmlItem();
    CXmlItem(const CXmlItem&) = delete;
    // A node is placed in the arena of the parse that creates it, if one is
    // open on this thread, else on the heap (platform/nodearena.h).
    static void* operator new(std::size_t size);
    static void operator delete(void* node);
    CXmlItem& operator=(const CXmlItem&) = delete;

    // Deep copy; derived node types return their own type.
    virtual CXmlItem* CreateCopy() const;

    int GetChildCount() const { return static_cast<int>(m_children.size()); }
    CXmlItem* GetChildItem(int index) const;
    CXmlItem* GetChildItem(const std::u16string& name, int occurrence = 0) const;
    int GetChildItemCount(const std::u16string& name) const;

    // Ownership of the added node passes to this node.
    void AddItem(CXmlItem* item, bool takeOwnership = true);
    CXmlItem* AddItem(const std::u16string& name, const std::u16string& value, const std::string& characterSet);
    CXmlItem* AddItem(const std::u16string& name, long value, const std::string& characterSet);
    // Inserts before the child at index; index == count appends.
    void InsertItem(int index, CXmlItem* item, bool takeOwnership = true);

    bool GetItemValue(const std::u16string& name, std::u16string& value) const;
    bool GetItemValue(const std::u16string& name, long& value) const;

    void DeleteChildItem(const std::u16string& name, int occurrence = 0);
    // Detaches the child at index and hands it to the caller (not destroyed).
    CXmlItem* RemoveChildAt(int index);
    int IndexOfChild(const CXmlItem* child) const;

    CXmlItem* GetParentItem() const { return m_pParent; }
    void ChangeCharacterSet(const std::string& characterSet);

    std::vector<CXmlItem*> m_children;
    std::u16string m_sName;
    std::u16string m_sValue;
    std::string m_sCharacterSet;

protected:
    CXmlItem* m_pParent = nullptr;
};
