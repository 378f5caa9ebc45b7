#pragma once
// Searches over DICOMDIR files: the files that a directory on media
// references (CDicomFSR), and the file of one instance in a directory held
// in memory (CInstanceFinderDdir).
#include <string>
#include <vector>

#include "platform/instancefinder.h"

class CDicomItem;
class CDicomDirEx;

// Called for each IMAGE record found: the record belongs to the tree of the
// search and must not be kept; path is the full path of the record's file.
typedef void (*DICOMDIR_RECORD_PROC)(void* context, CDicomItem* record, std::u16string path);

class CDicomFSR {
public:
    CDicomFSR() = default;
    CDicomFSR& operator=(const CDicomFSR&) = default;

    // folder: the file-set's root; fileName: the directory file below it.
    // PATIENT, STUDY and SERIES records that reference a further directory
    // file are followed, each file once. Records whose file ID would leave
    // the folder (".." components, absolute paths) are passed over.
    static void FindImages(const std::u16string& folder, const std::u16string& fileName,
                           std::vector<std::u16string>& images);
    static void FindObjects(const std::u16string& folder, const std::u16string& fileName,
                            std::vector<std::u16string>& objects, std::vector<std::u16string>& keyObjects);
    static void FindRecords(const std::u16string& folder, const std::u16string& fileName, DICOMDIR_RECORD_PROC callback,
                            void* context);
};

class CInstanceFinderDdir : public CInstanceFinder {
public:
    explicit CInstanceFinderDdir(CDicomDirEx* dicomDir) : m_pDicomDir(dicomDir) {}
    // The IMAGE, KEY OBJECT DOC or SR DOCUMENT record of the instance, or null.
    CDicomItem* FindItem(const std::u16string& sopClassUID, const std::u16string& sopInstanceUID) const;
    // Its Referenced File ID as stored ("\" between components).
    bool Find(const std::u16string& sopClassUID, const std::u16string& sopInstanceUID,
              std::u16string& fileId) const override;

    CDicomDirEx* m_pDicomDir;
};
