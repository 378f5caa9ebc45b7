#pragma once
// The records of a DICOMDIR data set (PS3.3 F.3) and the hierarchy that
// their order describes: each record follows its parent, and its level says
// which open record is that parent. The encoder links the records from this
// (CDicomItem::RecalcDicomDirOffsets); directory listings walk it.
#include <vector>

class CDicomItem;

namespace zeldicom {

// The record items (FFFE,E000) of the data set's Directory Record Sequence
// (0004,1220), in stored order; empty without one.
std::vector<CDicomItem*> DirectoryRecords(const CDicomItem& dataSet);

// The level of a record in the hierarchy: the depth its stored links gave it
// when it was loaded from a file (the "Level" attribute), otherwise that of
// its Directory Record Type (PATIENT 0, STUDY 1, SERIES 2, IMAGE, KEY OBJECT
// DOC and SR DOCUMENT 3); -1 for a record outside the hierarchy.
int DirectoryRecordLevel(const CDicomItem& record);

// The parent of each record, as an index into records: -1 for a record of
// the root directory entity, -2 for a record that no link reaches.
constexpr int kRootRecord = -1;
constexpr int kUnlinkedRecord = -2;
std::vector<int> DirectoryRecordParents(const std::vector<CDicomItem*>& records);

}
