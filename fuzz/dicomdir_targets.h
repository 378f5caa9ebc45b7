#pragma once
// The body of the directory fuzz target: a DICOMDIR read from hostile bytes
// (offsets outside the file, cycles in the links, records linked twice,
// file IDs with ".." or absolute paths), walked, extended and saved. Same
// pattern as targets.h: kOk, or a Finding when an invariant broke.
#include <set>
#include <vector>

#include "dicomdata/directoryrecords.h"
#include "dicomdir/dicomdirex.h"
#include "dicomdir/dicomfsr.h"
#include "dicomdir/fileid.h"
#include "targets.h"

namespace zelfuzz {

enum DirectoryFinding : int {
    kParentAfterRecord = 20,  // a record stands before the record it belongs to
    kFileIdEscapes = 21,      // a file ID became a path that leaves the file-set
    kHierarchyLost = 22,      // saving and reading back changed the linked hierarchy
};

// The linked hierarchy as text: each record's type and its lower-level
// records in order; records outside it are left out.
inline std::u16string HierarchyText(const CDicomItem& dataSet)
{
    std::vector<CDicomItem*> records = zeldicom::DirectoryRecords(dataSet);
    std::vector<int> parents = zeldicom::DirectoryRecordParents(records);
    std::vector<std::vector<size_t>> children(records.size() + 1);
    for (size_t i = 0; i < records.size(); ++i)
        if (parents[i] != zeldicom::kUnlinkedRecord)
            children[parents[i] < 0 ? records.size() : static_cast<size_t>(parents[i])].push_back(i);
    std::u16string text;
    std::vector<std::pair<size_t, size_t>> stack{{records.size(), 0}};  // (node, next child)
    while (!stack.empty()) {
        auto& [node, next] = stack.back();
        if (next == children[node].size()) {
            text += u')';
            stack.pop_back();
            continue;
        }
        size_t child = children[node][next++];
        std::u16string type;
        records[child]->GetTagValue(0x0004, 0x1430, type);
        text += u'(' + type;
        stack.emplace_back(child, 0);
    }
    return text;
}

// Whether every link the encoder may have to write has a 4-byte element.
inline bool HasLinkElements(const CDicomItem& dataSet)
{
    auto fourBytes = [](const CDicomItem& node, int element) {
        const CDicomItem* item = node.GetTagItem(0x0004, element);
        return item && item->GetDataSize() == 4;
    };
    if (!fourBytes(dataSet, 0x1200) || dataSet.GetTagItemCount(0x0004, 0x1220) != 1)
        return false;
    for (const CDicomItem* record : zeldicom::DirectoryRecords(dataSet))
        if (!fourBytes(*record, 0x1400) || !fourBytes(*record, 0x1420))
            return false;
    return true;
}

inline uint32_t CollectProc(const void* bytes, uint32_t count, void* context)
{
    auto* out = static_cast<std::vector<unsigned char>*>(context);
    out->insert(out->end(), static_cast<const unsigned char*>(bytes), static_cast<const unsigned char*>(bytes) + count);
    return count;
}

inline int DicomDirTarget(const uint8_t* data, size_t size)
{
    auto* root = new CDicomItem(u"Object");
    CDicomDirEx dir;
    dir.m_pRoot = root;  // freed by the directory
    if (!root->LoadObject(data, InputCount(size)))
        return kOk;
    dir.m_pHeader = static_cast<CDicomItem*>(root->GetChildItem(std::u16string(u"Header")));
    dir.m_pData = static_cast<CDicomItem*>(root->GetChildItem(std::u16string(u"Data")));
    if (!dir.m_pData)
        return kOk;
    dir.m_pRecords = dir.m_pData->GetTagItem(0x0004, 0x1220);
    if (!ValuesInside(root, data, size))
        return kValueOutsideInput;

    std::vector<CDicomItem*> records = zeldicom::DirectoryRecords(*dir.m_pData);
    std::vector<int> parents = zeldicom::DirectoryRecordParents(records);
    for (size_t i = 0; i < records.size(); ++i) {
        if (parents[i] >= 0 && static_cast<size_t>(parents[i]) >= i)
            return kParentAfterRecord;
        std::u16string fileId, path;
        if (records[i]->GetTagValue(0x0004, 0x1500, fileId) && zeldicom::FileIdToRelativePath(fileId, path)) {
            if (path.empty() || path[0] == u'/' || path == u".." || path.find(u"../") != std::u16string::npos ||
                path.find(u"/..") != std::u16string::npos)
                return kFileIdEscapes;
        }
    }
    for (const char* type : {"PATIENT", "STUDY", "SERIES", "IMAGE", "SR DOCUMENT"}) {
        int count = dir.GetRecordCount(type, 0);
        for (int i = 0; i < count && i < 8; ++i)
            dir.GetRecord(type, 0, i);
    }
    CInstanceFinderDdir finder(&dir);
    std::u16string fileId;
    if (!records.empty()) {
        std::u16string classUID, instanceUID;
        records.back()->GetTagValue(0x0004, 0x1510, classUID);
        records.back()->GetTagValue(0x0004, 0x1511, instanceUID);
        finder.Find(classUID, instanceUID, fileId);
    }

    // Saved and read back, the links describe the same hierarchy.
    bool linked = HasLinkElements(*dir.m_pData);
    std::u16string before = HierarchyText(*dir.m_pData);
    std::vector<unsigned char> saved;
    if (root->SaveObject(CollectProc, &saved) && linked && !saved.empty() && saved.size() < INT32_MAX) {
        CDicomItem reread(u"Object");
        if (reread.LoadObject(saved.data(), static_cast<int>(saved.size()))) {
            auto* data = static_cast<CDicomItem*>(reread.GetChildItem(std::u16string(u"Data")));
            if (data && HierarchyText(*data) != before)
                return kHierarchyLost;
        }
    }

    // An instance added to whatever the records say.
    CDicomItem instance(u"Instance");
    CDicomItem* header = CDicomItem::CreateMetaHeader(u"1.2.840.10008.5.1.4.1.1.7", u"1.2.3.4", u"1.2.840.10008.1.2.1");
    if (header)
        instance.AddItem(header);
    auto* instanceData = new CDicomItem(u"Data");
    instance.AddItem(instanceData);
    instanceData->AddTag(0x0010, 0x0020, std::u16string(u"ID"), u"LO");
    instanceData->AddTag(0x0020, 0x000D, std::u16string(u"1.2.3"), u"UI");
    dir.Add(u"A\\B", &instance);
    saved.clear();
    root->SaveObject(CollectProc, &saved);
    return kOk;
}

}
