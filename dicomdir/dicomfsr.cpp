// Directory search: walking DICOMDIR files on media for the files their
// records reference, and finding one instance's record in memory.
#include "dicomdir/dicomfsr.h"

#include <memory>
#include <set>

#include "dicomdata/dicomitem.h"
#include "dicomdir/dicomdirex.h"
#include "dicomdir/fileid.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
enum class Search { kImages, kObjects, kRecords };

struct Walk {
    Search search;
    std::vector<std::u16string>* first = nullptr;
    std::vector<std::u16string>* second = nullptr;
    DICOMDIR_RECORD_PROC callback = nullptr;
    void* context = nullptr;
    // The directory files being or already walked: a file that references
    // itself, directly or through others, is walked once.
    std::set<std::u16string> seen;
};

// Nested directory files deeper than this are not followed.
constexpr size_t kMaxDirectoryFiles = 4096;

std::u16string WithSlash(const std::u16string& folder)
{
    return folder.empty() || folder.back() == u'/' ? folder : folder + u'/';
}

void WalkFile(const std::u16string& folder, const std::u16string& fileName, Walk& walk)
{
    std::u16string path = folder + fileName;
    if (walk.seen.size() >= kMaxDirectoryFiles || !walk.seen.insert(path).second)
        return;
    auto root = std::make_unique<CDicomItem>(u"Root");
    if (!root->LoadObject(path, true))
        return;
    auto* data = static_cast<CDicomItem*>(root->GetChildItem(std::u16string(u"Data")));
    CDicomItem* sequence = data ? data->GetTagItem(0x0004, 0x1220) : nullptr;
    if (!sequence)
        return;
    for (int i = 0; CDicomItem* record = sequence->GetTagItem(0xFFFE, 0xE000, i); ++i) {
        std::u16string type, fileId, relative;
        if (!record->GetTagValue(0x0004, 0x1430, type) || !record->GetTagValue(0x0004, 0x1500, fileId))
            continue;
        if (!FileIdToRelativePath(fileId, relative))
            continue;
        type = Trim(type);
        if (type == u"PATIENT" || type == u"STUDY" || type == u"SERIES") {
            WalkFile(folder, relative, walk);
            continue;
        }
        std::u16string full = folder + relative;
        switch (walk.search) {
        case Search::kImages:
            if (type == u"IMAGE")
                walk.first->push_back(full);
            break;
        case Search::kObjects:
            if (type == u"IMAGE" || type == u"SR DOCUMENT")
                walk.first->push_back(full);
            else if (type == u"KEY OBJECT DOC")
                walk.second->push_back(full);
            break;
        case Search::kRecords:
            if (type == u"IMAGE")
                walk.callback(walk.context, record, full);
            break;
        }
    }
}
}

void CDicomFSR::FindImages(const std::u16string& folder, const std::u16string& fileName,
                           std::vector<std::u16string>& images)
{
    Walk walk{Search::kImages, &images, nullptr, nullptr, nullptr, {}};
    WalkFile(WithSlash(folder), fileName, walk);
}

void CDicomFSR::FindObjects(const std::u16string& folder, const std::u16string& fileName,
                            std::vector<std::u16string>& objects, std::vector<std::u16string>& keyObjects)
{
    Walk walk{Search::kObjects, &objects, &keyObjects, nullptr, nullptr, {}};
    WalkFile(WithSlash(folder), fileName, walk);
}

void CDicomFSR::FindRecords(const std::u16string& folder, const std::u16string& fileName,
                            DICOMDIR_RECORD_PROC callback, void* context)
{
    if (!callback)
        return;
    Walk walk{Search::kRecords, nullptr, nullptr, callback, context, {}};
    WalkFile(WithSlash(folder), fileName, walk);
}

CDicomItem* CInstanceFinderDdir::FindItem(const std::u16string& sopClassUID,
                                          const std::u16string& sopInstanceUID) const
{
    if (!m_pDicomDir || !m_pDicomDir->m_pData || sopClassUID.empty() || sopInstanceUID.empty())
        return nullptr;
    for (int position = 0; CDicomItem* record = m_pDicomDir->GetRecord(position); ++position) {
        std::u16string type, classUID, instanceUID;
        if (!record->GetTagValue(0x0004, 0x1430, type) ||
            CDicomDirEx::GetRecordLevel(WideToAscii(Trim(type))) != 3)
            continue;
        if (!record->GetTagValue(0x0004, 0x1510, classUID) || !record->GetTagValue(0x0004, 0x1511, instanceUID))
            continue;
        if (Trim(classUID) == sopClassUID && Trim(instanceUID) == sopInstanceUID)
            return record;
    }
    return nullptr;
}

bool CInstanceFinderDdir::Find(const std::u16string& sopClassUID, const std::u16string& sopInstanceUID,
                               std::u16string& fileId) const
{
    CDicomItem* record = FindItem(sopClassUID, sopInstanceUID);
    std::u16string value;
    if (!record || !record->GetTagValue(0x0004, 0x1500, value))
        return false;
    fileId = Trim(value);
    return true;
}
