// DICOMDIR records in the element tree: the order that a loaded directory's
// links describe, and the links written back from the order when it is
// saved (PS3.3 F.3.2.1, PS3.10 8.5).
#include <algorithm>
#include <utility>

#include "dicomdata/bytecursor.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/directoryrecords.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
constexpr char16_t kLevelAttribute[] = u"Level";

// A 4-byte UL offset element, or 0 when it is absent or has another size.
uint32_t OffsetValue(const CDicomItem& node, int element)
{
    const CDicomItem* item = node.GetTagItem(0x0004, element);
    if (!item || item->GetDataSize() != 4 || !item->GetData())
        return 0;
    return ByteCursor::loadUint32LE(item->GetData());
}

void StoreOffset(CDicomItem* node, int element, uint32_t offset)
{
    // A missing link element is not created, nor one of another size given
    // 4 bytes: either would move every offset behind it.
    CDicomItem* item = node->GetTagItem(0x0004, element);
    if (!item || item->GetDataSize() != 4)
        return;
    unsigned char bytes[4] = {static_cast<unsigned char>(offset), static_cast<unsigned char>(offset >> 8),
                              static_cast<unsigned char>(offset >> 16), static_cast<unsigned char>(offset >> 24)};
    item->CopyData(bytes, 4);
}

int TypeLevel(const std::u16string& type)
{
    if (type == u"PATIENT")
        return 0;
    if (type == u"STUDY")
        return 1;
    if (type == u"SERIES")
        return 2;
    if (type == u"IMAGE" || type == u"KEY OBJECT DOC" || type == u"SR DOCUMENT")
        return 3;
    return -1;
}
}

namespace zeldicom {

std::vector<CDicomItem*> DirectoryRecords(const CDicomItem& dataSet)
{
    std::vector<CDicomItem*> records;
    CDicomItem* sequence = dataSet.GetTagItem(0x0004, 0x1220);
    CDicomItem* items = sequence ? sequence->GetGroupItem(0xFFFE) : nullptr;
    if (!items)
        return records;
    records.reserve(items->m_children.size());
    for (CXmlItem* child : items->m_children)
        if (child->m_sName == u"eE000")
            records.push_back(static_cast<CDicomItem*>(child));
    return records;
}

int DirectoryRecordLevel(const CDicomItem& record)
{
    long level = 0;
    if (record.GetItemValue(kLevelAttribute, level))
        return level < 0 || level > INT32_MAX ? -1 : static_cast<int>(level);
    std::u16string type;
    record.GetTagValue(0x0004, 0x1430, type);
    return TypeLevel(Trim(type));
}

std::vector<int> DirectoryRecordParents(const std::vector<CDicomItem*>& records)
{
    std::vector<int> parents(records.size(), kUnlinkedRecord);
    // The open path from the root to the last record placed: (level, index).
    std::vector<std::pair<int, int>> open;
    for (size_t i = 0; i < records.size(); ++i) {
        int level = DirectoryRecordLevel(*records[i]);
        if (level < 0)
            continue;
        while (!open.empty() && open.back().first >= level)
            open.pop_back();
        if (level == 0)
            parents[i] = kRootRecord;
        else if (!open.empty() && open.back().first == level - 1)
            parents[i] = open.back().second;
        // A record whose parent level is missing stays open, unlinked, so
        // that its own lower-level records follow it out of the hierarchy.
        open.emplace_back(level, static_cast<int>(i));
    }
    return parents;
}

}

// Called on the "Data" node of an object loaded from image (size bytes):
// the records are put in the order their links describe, each parent before
// its lower-level records, and each is given its depth as "Level". Records
// that no link reaches keep their stored order behind the others and are
// marked outside the hierarchy. A directory whose root link names no record
// is left as stored: its order alone describes it.
void CDicomItem::OrderDicomDirRecords(const unsigned char* image, size_t size)
{
    std::vector<CDicomItem*> records = DirectoryRecords(*this);
    if (records.empty())
        return;
    // Each record's offset: its item header, 8 bytes before its value.
    std::vector<std::pair<uint32_t, int>> byOffset;
    byOffset.reserve(records.size());
    for (size_t i = 0; i < records.size(); ++i) {
        const unsigned char* value = records[i]->GetData();
        if (!value || value < image + 8 || value > image + size)
            continue;
        size_t offset = static_cast<size_t>(value - image) - 8;
        if (offset <= UINT32_MAX)
            byOffset.emplace_back(static_cast<uint32_t>(offset), static_cast<int>(i));
    }
    std::sort(byOffset.begin(), byOffset.end());
    auto find = [&byOffset](uint32_t offset) {
        if (offset == 0)
            return -1;  // no link
        auto it = std::lower_bound(byOffset.begin(), byOffset.end(), std::make_pair(offset, -1));
        return it != byOffset.end() && it->first == offset ? it->second : -1;
    };
    int first = find(OffsetValue(*this, 0x1200));
    if (first < 0)
        return;

    // Depth first along the links; a record already placed ends its chain,
    // so cycles and shared links cost one step each.
    std::vector<int> depth(records.size(), -1);
    std::vector<int> order;
    order.reserve(records.size());
    std::vector<std::pair<int, int>> pending{{first, 0}};  // (record, depth) of chains still to follow
    while (!pending.empty()) {
        auto [record, level] = pending.back();
        pending.pop_back();
        while (record >= 0 && depth[static_cast<size_t>(record)] < 0) {
            depth[static_cast<size_t>(record)] = level;
            order.push_back(record);
            const CDicomItem& node = *records[static_cast<size_t>(record)];
            int next = find(OffsetValue(node, 0x1400));
            if (next >= 0)
                pending.emplace_back(next, level);
            uint32_t lower = OffsetValue(node, 0x1420);
            record = find(lower);
            ++level;
        }
    }
    for (size_t i = 0; i < records.size(); ++i) {
        if (depth[i] < 0)
            order.push_back(static_cast<int>(i));
        records[i]->SetAttribute(kLevelAttribute, static_cast<long>(depth[i]));
    }
    CDicomItem* items = records.front()->GetDicomParent();
    size_t next = 0;
    for (CXmlItem*& child : items->m_children)
        if (child->m_sName == u"eE000")
            child = records[static_cast<size_t>(order[next++])];
}

void CDicomItem::RecalcDicomDirOffsets()
{
    if (!GetTagItem(0x0004, 0x1220))
        return;
    std::vector<CDicomItem*> records = DirectoryRecords(*this);
    std::vector<uint32_t> offsets(records.size(), 0);
    for (size_t i = 0; i < records.size(); ++i) {
        long value = 0;
        if (!records[i]->GetItemValue(u"Offset", value))
            return;  // not recalculated: no positions to link
        offsets[i] = static_cast<uint32_t>(value);
    }
    // Every link is written anew: one that the order no longer calls for is 0.
    StoreOffset(this, 0x1200, 0);
    StoreOffset(this, 0x1202, 0);
    for (CDicomItem* record : records) {
        StoreOffset(record, 0x1400, 0);
        StoreOffset(record, 0x1420, 0);
    }
    std::vector<int> parents = DirectoryRecordParents(records);
    // The last lower-level record linked below each record, and the last root record.
    std::vector<int> lastChild(records.size(), -1);
    int lastRoot = -1;
    for (size_t i = 0; i < records.size(); ++i) {
        int parent = parents[i];
        if (parent == kUnlinkedRecord)
            continue;
        int& previous = parent == kRootRecord ? lastRoot : lastChild[static_cast<size_t>(parent)];
        if (previous >= 0)
            StoreOffset(records[static_cast<size_t>(previous)], 0x1400, offsets[i]);
        else if (parent == kRootRecord)
            StoreOffset(this, 0x1200, offsets[i]);
        else
            StoreOffset(records[static_cast<size_t>(parent)], 0x1420, offsets[i]);
        previous = static_cast<int>(i);
    }
    if (lastRoot >= 0)
        StoreOffset(this, 0x1202, offsets[static_cast<size_t>(lastRoot)]);
}
