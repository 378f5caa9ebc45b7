// The DICOMDIR model: building, loading, walking records by type and
// position, and adding instances under their patient, study and series.
#include "dicomdir/dicomdirex.h"

#include <cstring>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/dictionary.h"
#include "dicomdata/tagtable.h"
#include "dicomdir/dicomdirindex.h"
#include "imageinfo/orientation.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
constexpr char kMediaStorageDirectory[] = "1.2.840.10008.1.3.10";
constexpr char16_t kExplicitLittle[] = u"1.2.840.10008.1.2.1";

CDicomItem* Child(const CDicomItem* node, const char16_t* name)
{
    return node ? static_cast<CDicomItem*>(node->GetChildItem(std::u16string(name))) : nullptr;
}

std::u16string VROf(int group, int element)
{
    const char* vr = ElementVR(static_cast<uint16_t>(group), static_cast<uint16_t>(element), nullptr, false);
    return AsciiToWide(vr ? vr : "");
}

// Copies an element of the instance into the record as it is stored (its
// bytes, in the instance's character set); a missing one is added empty.
// With sorted, the element goes to its place in tag order.
CDicomItem* CopyKey(CDicomItem* record, const CDicomItem* from, int group, int element, bool sorted = false,
                    int toGroup = -1, int toElement = -1)
{
    const CDicomItem* source = from ? from->GetTagItem(group, element) : nullptr;
    const unsigned char* bytes = nullptr;
    int size = 0;
    if (source && source->GetDataSize() > 0 && source->GetData() && source->GetVR() != "SQ") {
        bytes = source->GetData();
        size = source->GetDataSize();
    }
    if (toGroup < 0) {
        toGroup = group;
        toElement = element;
    }
    std::u16string vr = VROf(toGroup, toElement);
    return sorted ? record->InsertTag(toGroup, toElement, bytes, size, vr)
                  : record->AddTag(toGroup, toElement, bytes, size, vr);
}

bool Has(const CDicomItem* dataSet, int group, int element)
{
    return dataSet && dataSet->GetTagItem(group, element);
}

// A 16-bit binary value of the instance (its first two bytes), in tag order.
void CopyUS(CDicomItem* record, const CDicomItem* dataSet, int element)
{
    const CDicomItem* source = dataSet->GetTagItem(0x0028, element);
    if (!source)
        return;
    unsigned char bytes[2] = {0, 0};
    if (source->GetDataSize() >= 2 && source->GetData())
        std::memcpy(bytes, source->GetData(), 2);
    record->InsertTag(0x0028, element, bytes, 2, u"US");
}

void CopySequence(CDicomItem* record, const CDicomItem* dataSet, int group, int element)
{
    const CDicomItem* source = dataSet->GetTagItem(group, element);
    if (!source)
        return;
    auto* copy = static_cast<CDicomItem*>(source->CreateCopy());
    copy->ChangeCharacterSet(record->m_sCharacterSet);
    record->InsertDicomItem(copy, group);
}
}

// --- lifecycle

CDicomDirEx::CDicomDirEx() = default;

CDicomDirEx::CDicomDirEx(const CDicomDirEx& other)
    : m_pRoot(other.m_pRoot), m_strFileId(other.m_strFileId), m_pHeader(other.m_pHeader), m_pData(other.m_pData),
      m_pRecords(other.m_pRecords)
{
}

CDicomDirEx& CDicomDirEx::operator=(const CDicomDirEx& other)
{
    if (this != &other) {
        m_pRoot = other.m_pRoot;
        m_strFileId = other.m_strFileId;
        m_pHeader = other.m_pHeader;
        m_pData = other.m_pData;
        m_pRecords = other.m_pRecords;
        m_index.reset();
    }
    return *this;
}

CDicomDirEx::~CDicomDirEx()
{
    Free();
}

void CDicomDirEx::Free()
{
    m_index.reset();
    if (!m_pRoot)
        return;
    delete m_pRoot;
    m_pRoot = m_pHeader = m_pData = m_pRecords = nullptr;
}

bool CDicomDirEx::Init()
{
    Free();
    m_pRoot = new CDicomItem(u"");
    m_pHeader = CDicomItem::CreateMetaHeader(AsciiToWide(kMediaStorageDirectory), CDicomItem::GetUID(),
                                             kExplicitLittle);
    if (!m_pHeader) {
        Free();
        return false;
    }
    m_pRoot->AddItem(m_pHeader);
    m_pData = new CDicomItem(u"Data");
    m_pRoot->AddItem(m_pData);
    const unsigned char zero[4] = {0, 0, 0, 0};
    m_pData->AddTag(0x0004, 0x1130, nullptr, 0, u"CS");
    m_pData->AddTag(0x0004, 0x1200, zero, 4, u"UL");
    m_pData->AddTag(0x0004, 0x1202, zero, 4, u"UL");
    m_pData->AddTag(0x0004, 0x1212, zero, 2, u"US");
    m_pRecords = m_pData->AddSequence(0x0004, 0x1220);
    if (!m_pRecords) {
        Free();
        return false;
    }
    return true;
}

bool CDicomDirEx::Load(const std::u16string& path)
{
    Free();
    auto* root = new CDicomItem(u"");
    if (!root->LoadObject(path, true)) {
        delete root;
        return false;
    }
    m_pRoot = root;
    m_pHeader = Child(root, u"Header");
    m_pData = Child(root, u"Data");
    m_pRecords = m_pData ? m_pData->GetTagItem(0x0004, 0x1220) : nullptr;
    return true;
}

CDicomItem* CDicomDirEx::CreateRecordSource(const CDicomItem* instance)
{
    const CDicomItem* header = Child(instance, u"Header");
    const CDicomItem* data = Child(instance, u"Data");
    if (!data)
        return nullptr;
    // Every element that Add, AddStudy, AddSeries and the instance steps read.
    static const std::pair<int, int> kRead[] = {
        {0x0008, 0x0005}, {0x0008, 0x0008}, {0x0008, 0x0020}, {0x0008, 0x0021}, {0x0008, 0x0023},
        {0x0008, 0x0030}, {0x0008, 0x0031}, {0x0008, 0x0033}, {0x0008, 0x0050}, {0x0008, 0x0060},
        {0x0008, 0x0080}, {0x0008, 0x0081}, {0x0008, 0x0090}, {0x0008, 0x1030}, {0x0008, 0x103E},
        {0x0008, 0x1050}, {0x0010, 0x0010}, {0x0010, 0x0020}, {0x0010, 0x0030}, {0x0010, 0x0040},
        {0x0018, 0x0015}, {0x0018, 0x1030}, {0x0018, 0x1510}, {0x0018, 0x1511}, {0x0020, 0x000D},
        {0x0020, 0x000E}, {0x0020, 0x0010}, {0x0020, 0x0011}, {0x0020, 0x0012}, {0x0020, 0x0013},
        {0x0020, 0x0032}, {0x0020, 0x0037}, {0x0020, 0x0052}, {0x0020, 0x4000}, {0x0028, 0x0002},
        {0x0028, 0x0004}, {0x0028, 0x0008}, {0x0028, 0x0010}, {0x0028, 0x0011}, {0x0028, 0x0030},
        {0x0028, 0x0101}, {0x0028, 0x1050}, {0x0028, 0x1051}, {0x0040, 0xA030}, {0x0040, 0xA043},
        {0x0040, 0xA491}, {0x0040, 0xA493}, {0x0040, 0xA730}, {0x0050, 0x0004}};
    auto* source = new CDicomItem(u"");
    source->m_sCharacterSet = instance->m_sCharacterSet;
    if (header)
        source->AddItem(header->CreateCopy());
    auto* keys = new CDicomItem(u"Data");
    keys->m_sCharacterSet = data->m_sCharacterSet;
    source->AddItem(keys);
    for (auto [group, element] : kRead)
        if (const CDicomItem* element_ = data->GetTagItem(group, element))
            keys->InsertDicomItem(static_cast<CDicomItem*>(element_->CreateCopy()), group);
    return source;
}

// --- walking

int CDicomDirEx::GetRecordLevel(const std::string& type)
{
    int kind = GetRecordType(type);
    return kind <= 2 ? kind : kind <= 5 ? 3 : 6;
}

int CDicomDirEx::GetRecordType(const std::string& type)
{
    static const char* const kTypes[] = {"PATIENT", "STUDY", "SERIES", "IMAGE", "KEY OBJECT DOC", "SR DOCUMENT"};
    for (int i = 0; i < 6; ++i)
        if (type == kTypes[i])
            return i;
    return 6;
}

CDicomItem* CDicomDirEx::RecordGroup() const
{
    return m_pRecords ? m_pRecords->GetGroupItem(0xFFFE) : nullptr;
}

namespace {
// The record's Directory Record Type, trailing blanks removed; false without one.
bool RecordTypeOf(const CXmlItem* child, std::string& type)
{
    std::u16string text;
    if (!static_cast<const CDicomItem*>(child)->GetTagValue(0x0004, 0x1430, text))
        return false;
    type = WideToAscii(Trim(text));
    return true;
}

bool SameNoCase(const std::string& a, const std::string& b)
{
    return EqualsNoCase(AsciiToWide(a), AsciiToWide(b));
}
}

int CDicomDirEx::GetRecordCount(const std::string& type, int start) const
{
    CDicomItem* group = RecordGroup();
    if (!group || start < 0)
        return -1;
    int level = GetRecordLevel(type);
    int count = 0;
    for (size_t i = static_cast<size_t>(start); i < group->m_children.size(); ++i) {
        const CXmlItem* child = group->m_children[i];
        if (child->m_sName != u"eE000")
            break;
        std::string recordType;
        if (!RecordTypeOf(child, recordType))
            return -1;
        if (SameNoCase(recordType, type))
            ++count;
        else if (GetRecordLevel(recordType) < level)
            break;
    }
    return count;
}

int CDicomDirEx::GetRecordPos(const std::string& type, int start, int index) const
{
    CDicomItem* group = RecordGroup();
    if (!group || start < 0)
        return -1;
    int level = GetRecordLevel(type);
    int count = 0;
    for (size_t i = static_cast<size_t>(start); i < group->m_children.size(); ++i) {
        const CXmlItem* child = group->m_children[i];
        if (child->m_sName != u"eE000")
            break;
        std::string recordType;
        if (!RecordTypeOf(child, recordType))
            return -1;
        if (SameNoCase(recordType, type)) {
            if (count++ == index)
                return static_cast<int>(i);
        } else if (GetRecordLevel(recordType) < level) {
            break;
        }
    }
    return -1;
}

int CDicomDirEx::GetRecordPos(const CDicomItem* record, int start) const
{
    CDicomItem* group = RecordGroup();
    if (!group || !record || start < 0)
        return -1;
    for (size_t i = static_cast<size_t>(start); i < group->m_children.size(); ++i)
        if (group->m_children[i] == record)
            return static_cast<int>(i);
    return -1;
}

CDicomItem* CDicomDirEx::GetRecord(int position) const
{
    CDicomItem* group = RecordGroup();
    if (!group || position < 0 || position >= group->GetChildCount())
        return nullptr;
    CXmlItem* child = group->m_children[static_cast<size_t>(position)];
    return child->m_sName == u"eE000" ? static_cast<CDicomItem*>(child) : nullptr;
}

CDicomItem* CDicomDirEx::GetRecord(const std::string& type, int start, int index) const
{
    return GetRecord(GetRecordPos(type, start, index));
}

// --- adding

CDicomItem* CDicomDirEx::InsertRecord(int position)
{
    CDicomItem* group = RecordGroup();
    if (!group)
        return nullptr;
    int count = group->GetChildCount();
    if (position < 0)
        position = count > 0 ? count - 1 : 0;
    if (position > count)
        position = count;
    auto* record = new CDicomItem(CDicomItem::ElementName(0xE000));
    record->m_sCharacterSet = group->m_sCharacterSet;
    record->SetUndefinedSize();
    record->SetAttribute(u"ParentVR", std::u16string(u"SQ"));
    if (const TAGINFO* entry = CTagTable::Find(0xFFFE, 0xE000))
        record->SetAttribute(u"VR", AsciiToWide(entry->szVR));
    group->InsertItem(position, record);
    return record;
}

CDicomItem* CDicomDirEx::NewRecord(const char16_t* type)
{
    CDicomItem* record = InsertRecord(-1);
    if (!record)
        return nullptr;
    record->AddTag(0x0004, 0x1400, static_cast<uint32_t>(0));
    record->AddTag(0x0004, 0x1410, static_cast<uint16_t>(0xFFFF));
    record->AddTag(0x0004, 0x1420, static_cast<uint32_t>(0));
    record->AddTag(0x0004, 0x1430, std::u16string(type), u"CS");
    record->AddTag(0xFFFE, 0xE00D, nullptr, 0, std::u16string());
    return record;
}

bool CDicomDirEx::Add(const std::u16string& fileId, CDicomItem* instance)
{
    if (!instance)
        return false;
    m_strFileId = fileId;
    return AddPatient(instance);
}

bool CDicomDirEx::AddPatient(CDicomItem* instance)
{
    CDicomItem* data = Child(instance, u"Data");
    if (!data)
        return false;
    CDicomItem* match = nullptr;
    DirIndex* index = CurrentIndex();
    if (index) {
        match = index->FindPatient(data);
    } else {
        int count = GetRecordCount("PATIENT", 0);
        if (count > 0)
            match = IfPatientExist(count, data);
    }
    if (!match) {
        match = NewRecord(u"PATIENT");
        if (!match)
            return false;
        CopyKey(match, data, 0x0008, 0x0005);
        std::string characterSet = CDicomInfoStatics::ExtractCharacterSet(match);
        if (!characterSet.empty())
            match->ChangeCharacterSet(characterSet);
        CopyKey(match, data, 0x0010, 0x0010);
        CopyKey(match, data, 0x0010, 0x0020);
        CopyKey(match, data, 0x0010, 0x0030);
        CopyKey(match, data, 0x0010, 0x0040);
        if (index)
            index->Added(match, RecordGroup());
    }
    AddStudy(instance, match);
    return true;
}

bool CDicomDirEx::AddStudy(CDicomItem* instance, CDicomItem* patient)
{
    CDicomItem* data = Child(instance, u"Data");
    if (!data || !patient)
        return false;
    CDicomItem* match = nullptr;
    DirIndex* index = CurrentIndex();
    if (index) {
        match = index->FindChild(patient, "STUDY", data);
    } else {
        int p = GetRecordPos(patient, 0);
        int count = GetRecordCount("STUDY", p + 1);
        if (p >= 0 && count > 0)
            match = IfStudyExist(count, data, p);
    }
    if (!match) {
        match = NewRecord(u"STUDY");
        if (!match)
            return false;
        for (auto [group, element] : {std::pair{0x0008, 0x0020}, {0x0008, 0x0030}, {0x0008, 0x0050},
                                      {0x0008, 0x0090}, {0x0008, 0x1030}, {0x0020, 0x000D}, {0x0020, 0x0010}})
            CopyKey(match, data, group, element);
        if (index)
            index->Added(match, RecordGroup());
    }
    AddSeries(instance, match);
    return true;
}

bool CDicomDirEx::AddSeries(CDicomItem* instance, CDicomItem* study)
{
    CDicomItem* data = Child(instance, u"Data");
    if (!data || !study)
        return false;
    CDicomItem* match = nullptr;
    DirIndex* index = CurrentIndex();
    if (index) {
        match = index->FindChild(study, "SERIES", data);
    } else {
        int p = GetRecordPos(study, 0);
        int count = GetRecordCount("SERIES", p + 1);
        if (p >= 0 && count > 0)
            match = IfSeriesExist(count, data, p);
    }
    if (!match) {
        match = NewRecord(u"SERIES");
        if (!match)
            return false;
        for (auto [group, element] :
             {std::pair{0x0008, 0x0021}, {0x0008, 0x0031}, {0x0008, 0x0060}, {0x0008, 0x0080}, {0x0008, 0x0081},
              {0x0008, 0x103E}, {0x0008, 0x1050}, {0x0018, 0x0015}, {0x0018, 0x1030}, {0x0020, 0x000E},
              {0x0020, 0x0011}})
            CopyKey(match, data, group, element);
        if (index)
            index->Added(match, RecordGroup());
    }
    std::u16string modality;
    data->GetTagValue(0x0008, 0x0060, modality);
    modality = Trim(modality);
    if (EqualsNoCase(modality, std::u16string(u"KO")))
        AddKeyObjectDoc(instance, match);
    else if (EqualsNoCase(modality, std::u16string(u"SR")))
        AddSRDocument(instance, match);
    else
        AddImage(instance, match);
    return true;
}

bool CDicomDirEx::AddObject(CDicomItem* instance, CDicomItem* series, const char16_t* type)
{
    CDicomItem* header = Child(instance, u"Header");
    CDicomItem* data = Child(instance, u"Data");
    if (!header || !data || !series)
        return false;
    std::string typeText = WideToAscii(type);
    CDicomItem* match = nullptr;
    DirIndex* index = CurrentIndex();
    if (index) {
        match = index->FindChild(series, typeText, header);
    } else {
        int p = GetRecordPos(series, 0);
        int count = GetRecordCount(typeText, p + 1);
        if (p >= 0 && count > 0)
            match = IfObjectExist(typeText, count, header, p);
    }
    if (match)
        return true;
    CDicomItem* record = NewRecord(type);
    if (!record)
        return false;
    record->AddTag(0x0004, 0x1500, m_strFileId, u"CS");
    CopyKey(record, header, 0x0002, 0x0002, false, 0x0004, 0x1510);
    CopyKey(record, header, 0x0002, 0x0003, false, 0x0004, 0x1511);
    CopyKey(record, header, 0x0002, 0x0010, false, 0x0004, 0x1512);
    if (typeText == "IMAGE") {
        for (auto [group, element] :
             {std::pair{0x0008, 0x0008}, {0x0008, 0x0023}, {0x0008, 0x0033}, {0x0018, 0x1510}, {0x0018, 0x1511},
              {0x0020, 0x0013}, {0x0020, 0x4000}, {0x0028, 0x0008}, {0x0050, 0x0004}})
            CopyKey(record, data, group, element);
        for (auto [group, element] : {std::pair{0x0020, 0x0012}, {0x0020, 0x0032}, {0x0020, 0x0037},
                                      {0x0020, 0x0052}, {0x0028, 0x0004}})
            if (Has(data, group, element))
                CopyKey(record, data, group, element, true);
        for (int element : {0x0002, 0x0101, 0x0010, 0x0011})
            CopyUS(record, data, element);
        for (int element : {0x0030, 0x1050, 0x1051})
            if (Has(data, 0x0028, element))
                CopyKey(record, data, 0x0028, element, true);
    } else {
        CopyKey(record, data, 0x0008, 0x0005);
        std::string characterSet = CDicomInfoStatics::ExtractCharacterSet(record);
        if (!characterSet.empty())
            record->ChangeCharacterSet(characterSet);
        CopyKey(record, data, 0x0008, 0x0023);
        CopyKey(record, data, 0x0008, 0x0033);
        CopyKey(record, data, 0x0020, 0x0013);
        if (typeText == "SR DOCUMENT") {
            CopyKey(record, data, 0x0040, 0xA491);
            CopyKey(record, data, 0x0040, 0xA493);
            std::u16string flag;
            data->GetTagValue(0x0040, 0xA493, flag);
            if (EqualsNoCase(Trim(flag), std::u16string(u"VERIFIED")))
                CopyKey(record, data, 0x0040, 0xA030, true);
        }
        CopySequence(record, data, 0x0040, 0xA043);
        CopySequence(record, data, 0x0040, 0xA730);
    }
    if (index)
        index->Added(record, RecordGroup());
    return true;
}

bool CDicomDirEx::AddImage(CDicomItem* instance, CDicomItem* series)
{
    return AddObject(instance, series, u"IMAGE");
}

bool CDicomDirEx::AddSRDocument(CDicomItem* instance, CDicomItem* series)
{
    return AddObject(instance, series, u"SR DOCUMENT");
}

bool CDicomDirEx::AddKeyObjectDoc(CDicomItem* instance, CDicomItem* series)
{
    return AddObject(instance, series, u"KEY OBJECT DOC");
}

// --- matching by walking the records

CDicomItem* CDicomDirEx::IfPatientExist(int count, CDicomItem* dataSet)
{
    if (!dataSet)
        return nullptr;
    std::u16string key = DirIndex::PatientKey(dataSet);
    int position = -1;
    for (int i = 0; i < count; ++i) {
        position = GetRecordPos("PATIENT", position + 1, 0);
        CDicomItem* record = GetRecord(position);
        if (!record)
            return nullptr;
        if (DirIndex::PatientKey(record) == key)
            return record;
    }
    return nullptr;
}

namespace {
CDicomItem* FindKeyed(const CDicomDirEx& dir, const std::string& type, int count, int parentPos,
                      const std::u16string& key, int group, int element)
{
    int position = parentPos;
    for (int i = 0; i < count; ++i) {
        position = dir.GetRecordPos(type, position + 1, 0);
        CDicomItem* record = dir.GetRecord(position);
        if (!record)
            return nullptr;
        if (DirIndex::TextKey(record, group, element) == key)
            return record;
    }
    return nullptr;
}
}

CDicomItem* CDicomDirEx::IfStudyExist(int count, CDicomItem* dataSet, int parentPos)
{
    return dataSet ? FindKeyed(*this, "STUDY", count, parentPos, DirIndex::TextKey(dataSet, 0x0020, 0x000D), 0x0020,
                               0x000D)
                   : nullptr;
}

CDicomItem* CDicomDirEx::IfSeriesExist(int count, CDicomItem* dataSet, int parentPos)
{
    return dataSet ? FindKeyed(*this, "SERIES", count, parentPos, DirIndex::TextKey(dataSet, 0x0020, 0x000E), 0x0020,
                               0x000E)
                   : nullptr;
}

CDicomItem* CDicomDirEx::IfImageExist(int count, CDicomItem* header, int parentPos)
{
    return IfObjectExist("IMAGE", count, header, parentPos);
}

CDicomItem* CDicomDirEx::IfObjectExist(const std::string& type, int count, CDicomItem* header, int parentPos)
{
    return header ? FindKeyed(*this, type, count, parentPos, DirIndex::TextKey(header, 0x0002, 0x0003), 0x0004,
                              0x1511)
                  : nullptr;
}

zeldicom::DirIndex* CDicomDirEx::CurrentIndex()
{
    CDicomItem* group = RecordGroup();
    if (!group)
        return nullptr;
    if (!m_index || !m_index->Matches(group))
        m_index = std::make_unique<DirIndex>(group);
    return m_index->Usable() ? m_index.get() : nullptr;
}
