#pragma once
// The fuzz target body for structured reports (see targets.h for the
// conventions): a file image loaded into the document tree, then read the
// way a host reads a report.
#include <vector>

#include "platform/instancedata.h"
#include "sr/sr.h"
#include "targets.h"

namespace zelfuzz {

constexpr int kDrawUnbounded = 20;  // the drawing has more lines than the input could hold

// Every value of every content item, and the lookups by concept name.
inline void ReadContent(const CDicomItem* node, int depth)
{
    if (depth > 80)
        return;
    std::string text, value, scheme, meaning;
    CSR::GetNodeData(node, text, true);
    CSR::GetNodeData(node, text, false);
    CSR::GetNodeDisplayText(node, text);
    CSR::GetConceptNameCodeData(node, value, scheme);
    CSR::GetConceptCodeData(node, value, scheme);
    std::vector<CDicomItem*> children = CSR::GetChildNodes(node);
    if (!children.empty() && CSR::GetConceptNameCodeData(children.back(), value, scheme)) {
        CSR::GetNode(node, value, scheme, 1);
        CSR::GetNodeCodeData(node, value, scheme, text, meaning);
        CSR::GetNodeCompositeData(node, value, scheme, text, meaning);
    }
    for (const CDicomItem* child : children)
        ReadContent(child, depth + 1);
}

inline int SrLoadTarget(const uint8_t* data, size_t size)
{
    CSR report;
    if (!report.Load(data, InputCount(size)))
        return kOk;
    CSRTextContext text;
    SR_LAYOUT layout;
    layout.bIndent = layout.bRelationship = true;
    SR_EXTENT extent = report.Draw(text, layout);
    // A content item takes at least one item header of 8 bytes, a text line
    // at least one byte: the lines drawn are bounded by the input.
    if (extent.cy < 0 || static_cast<size_t>(extent.cy) > size + 16)
        return kDrawUnbounded;
    CSRTextContext plain;
    report.Draw(plain);
    ReadContent(report.GetDataItem(), 0);
    std::vector<std::u16string> images;
    report.FillImageList(images);
    std::vector<CInstanceData*> instances;
    report.FillInstanceFinding(instances);
    for (CInstanceData* instance : instances)
        delete instance;
    return kOk;
}

}  // namespace zelfuzz
