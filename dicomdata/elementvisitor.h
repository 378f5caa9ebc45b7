#pragma once
// Walks over the element nodes of a loaded tree without knowing how nodes
// are named: a data set node holds group nodes ("g0010"), which hold element
// nodes ("e0010"); a sequence or encapsulated element holds its items and
// delimiters in its own group FFFE node. Attribute children ("VR", "Size",
// ...) are skipped.
#include "dicomdata/dicomitem.h"

namespace zeldicom {

// One element node met during a walk.
struct ElementVisit {
    int group;
    int element;
    const CDicomItem* node;
};

// The element nodes of a data set node in tree order (groups, then their
// elements). visit returns false to stop the walk.
template <typename Visit>
void ForEachElement(const CDicomItem& dataSet, Visit visit)
{
    for (const CXmlItem* groupChild : dataSet.m_children) {
        int group = CDicomItem::ParseGroupName(groupChild->m_sName);
        if (group < 0)
            continue;
        for (const CXmlItem* elementChild : groupChild->m_children) {
            int element = CDicomItem::ParseElementName(elementChild->m_sName);
            if (element >= 0 && !visit(ElementVisit{group, element, static_cast<const CDicomItem*>(elementChild)}))
                return;
        }
    }
}

// The items (FFFE,E000) and delimiters of a sequence or of encapsulated
// pixel data, in order; items are numbered from 1 (delimiters get 0).
// visit(ElementVisit, number) returns false to stop the walk.
template <typename Visit>
void ForEachItem(const CDicomItem& element, Visit visit)
{
    const auto* itemGroup = static_cast<const CDicomItem*>(element.GetChildItem(std::u16string(u"gFFFE")));
    if (!itemGroup)
        return;
    int number = 0;
    for (const CXmlItem* child : itemGroup->m_children) {
        int tag = CDicomItem::ParseElementName(child->m_sName);
        if (tag >= 0 && !visit(ElementVisit{0xFFFE, tag, static_cast<const CDicomItem*>(child)},
                               tag == 0xE000 ? ++number : 0))
            return;
    }
}

}  // namespace zeldicom
