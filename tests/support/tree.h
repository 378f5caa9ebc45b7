#pragma once
// Reading element trees in tests: a node's child by name ("Header", "Data",
// "gFFFE", "eE000"), a node's attribute, an element's text without its
// padding, and the bytes a CDynBuffer holds.
#include <string>

#include "dicomdata/dicomitem.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "support/files.h"

namespace testsupport {

inline CDicomItem* ChildNode(const CXmlItem* node, const char16_t* name, int occurrence = 0)
{
    return node ? static_cast<CDicomItem*>(node->GetChildItem(std::u16string(name), occurrence)) : nullptr;
}
inline std::u16string AttributeOf(const CXmlItem* node, const char16_t* name)
{
    std::u16string value;
    if (node)
        node->GetItemValue(std::u16string(name), value);
    return value;
}
// The element's text, trimmed; "<absent>" when the node does not hold it.
inline std::string TextOf(const CDicomItem* node, int group, int element)
{
    std::u16string value;
    if (!node || !node->GetTagValue(group, element, value))
        return "<absent>";
    return zeldicom::Utf16ToUtf8(zeldicom::Trim(value));
}
inline Bytes Contents(const CDynBuffer& buffer)
{
    return Bytes(buffer.GetData(), buffer.GetData() + buffer.m_nSize);
}

}  // namespace testsupport
