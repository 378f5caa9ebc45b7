#pragma once
// A DICOMDIR (PS3.10 8, PS3.3 F) held as an element tree: create an empty
// one, load one, add instances under their patient, study and series
// records, walk the records by type and position. The records stand in one
// flat Directory Record Sequence, each followed by its lower-level records;
// the encoder writes the links from that order when the root is saved.
#include <memory>
#include <string>

#include "platform/lasterror.h"

class CDicomItem;
namespace zeldicom {
class DirIndex;
}

class CDicomDirEx {
public:
    CDicomDirEx();
    // Member-wise: the tree is shared, not duplicated (only the object that
    // frees it may be destroyed while the others are in use).
    CDicomDirEx(const CDicomDirEx& other);
    CDicomDirEx& operator=(const CDicomDirEx& other);
    virtual ~CDicomDirEx();

    bool Init();
    bool Load(const std::u16string& path);
    // instance: the tree of a whole DICOM file (root with "Header" and "Data").
    // Refuses (false, GetLastError() says why) an instance without the UIDs
    // and Modality that its records cannot do without.
    bool Add(const std::u16string& fileId, CDicomItem* instance);
    const CLastError& GetLastError() const { return m_LastError; }

    // A small tree holding only what Add reads from an instance (its "Header"
    // and the data set elements that become record keys), with owned
    // values: lets a caller read many files, order them, then add them.
    static CDicomItem* CreateRecordSource(const CDicomItem* instance);

    int GetRecordCount(const std::string& type, int start) const;
    int GetRecordPos(const std::string& type, int start, int index) const;
    int GetRecordPos(const CDicomItem* record, int start) const;
    CDicomItem* GetRecord(int position) const;
    CDicomItem* GetRecord(const std::string& type, int start, int index) const;
    static int GetRecordLevel(const std::string& type);
    static int GetRecordType(const std::string& type);

    CDicomItem* m_pRoot = nullptr;
    std::u16string m_strFileId;
    CDicomItem* m_pHeader = nullptr;
    CDicomItem* m_pData = nullptr;
    CDicomItem* m_pRecords = nullptr;

protected:
    void Free();
    CDicomItem* InsertRecord(int position);
    CDicomItem* IfPatientExist(int count, CDicomItem* dataSet);
    CDicomItem* IfStudyExist(int count, CDicomItem* dataSet, int parentPos);
    CDicomItem* IfSeriesExist(int count, CDicomItem* dataSet, int parentPos);
    CDicomItem* IfImageExist(int count, CDicomItem* header, int parentPos);
    CDicomItem* IfObjectExist(const std::string& type, int count, CDicomItem* header, int parentPos);
    bool AddPatient(CDicomItem* instance);
    bool AddStudy(CDicomItem* instance, CDicomItem* patient);
    bool AddSeries(CDicomItem* instance, CDicomItem* study);
    bool AddImage(CDicomItem* instance, CDicomItem* series);
    bool AddSRDocument(CDicomItem* instance, CDicomItem* series);
    bool AddKeyObjectDoc(CDicomItem* instance, CDicomItem* series);

private:
    // The sequence's item group (FFFE), or null.
    CDicomItem* RecordGroup() const;
    // Records made by Add start here: the common keys and the record type;
    // the record goes after the last descendant of parent (null: at the end).
    CDicomItem* NewRecord(const char16_t* type, CDicomItem* parent);
    // Where a new record below parent goes.
    int PositionBelow(CDicomItem* parent);
    bool AddObject(CDicomItem* instance, CDicomItem* series, const char16_t* type);
    // What the walks of the Add steps would find, kept up to date as records
    // are added so that adding n instances is not quadratic (dicomdirindex.cpp).
    zeldicom::DirIndex* CurrentIndex();
    std::unique_ptr<zeldicom::DirIndex> m_index;
    CLastError m_LastError;
};
