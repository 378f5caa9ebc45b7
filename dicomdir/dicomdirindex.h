#pragma once
// What the record walks of CDicomDirEx's Add steps would find, as hash
// tables: the first PATIENT record with an instance's patient keys, and,
// below each record, the first lower-level record of a type with a key.
// A record belongs to the nearest record before it one level up, with no
// higher-level record between them, as the walks by position see it.
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

class CDicomItem;

namespace zeldicom {

class DirIndex {
public:
    // Indexes the records of the sequence's item group as they stand.
    explicit DirIndex(CDicomItem* group);

    // Whether the group still holds exactly what was indexed.
    bool Matches(const CDicomItem* group) const;
    // False when a record needs the literal walks: no type, a type that
    // matches a known one only without regard to case, or another child
    // between the records.
    bool Usable() const { return m_usable; }

    CDicomItem* FindPatient(const CDicomItem* dataSet) const;
    // key: the instance's data set for STUDY and SERIES, its "Header" for
    // the instance records.
    CDicomItem* FindChild(const CDicomItem* parent, const std::string& type, const CDicomItem* key) const;
    // Whether a record appended at the end of the records falls below
    // parent: parent is on the path from the root to the last record.
    bool EndsBelow(const CDicomItem* parent) const;
    // A record that Add has just completed below parent (null for a
    // patient): at the end of the records or after parent's last descendant.
    void Added(CDicomItem* record, const CDicomItem* parent, const CDicomItem* group);

    // Normalised name, ID, birth date and sex, of a data set or a record.
    static std::u16string PatientKey(const CDicomItem* node);
    // The Patient ID of a data set or a record; for an empty one the ID a
    // PATIENT record gets instead (PS3.3 F.5: Patient ID is Type 1 there),
    // made from the patient's name, birth date and sex, so that every
    // instance of that patient finds the record again.
    static std::u16string PatientId(const CDicomItem* node);
    // 16 hexadecimal digits of a 64-bit FNV-1a hash: the same on every run.
    static std::u16string Fingerprint(const std::u16string& text);
    // A text value with its trailing blanks and zero bytes removed.
    static std::u16string TextKey(const CDicomItem* node, int group, int element);

private:
    void Place(CDicomItem* record, const std::string& type);
    const CDicomItem* m_group = nullptr;
    size_t m_childCount = 0;
    const void* m_lastRecord = nullptr;
    bool m_usable = true;
    std::vector<std::pair<int, CDicomItem*>> m_open;  // the open path: (level, record)
    std::unordered_map<std::u16string, CDicomItem*> m_patients;
    std::unordered_map<const CDicomItem*, std::unordered_map<std::u16string, CDicomItem*>> m_children;
};

}
