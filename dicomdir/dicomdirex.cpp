// The DICOMDIR model: building, loading, walking records by type and
// position, and adding instances under their patient, study and series.
#include "dicomdir/dicomdirex.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/dictionary.h"
#include "dicomdata/tagtable.h"
#include "dicomdir/dicomdirindex.h"
#include "imageinfo/orientation.h"
#include "platform/match.h"
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
    // PS3.5 6.2: dates and times in the retired ACR-NEMA forms "yyyy.mm.dd"
    // and "hh:mm:ss", which old objects still carry, go into the record in
    // the current forms "yyyymmdd" and "hhmmss".
    std::string current;
    if (bytes && (size == 10 || size == 8) && (vr == u"DA" || vr == u"TM")) {
        std::string text(reinterpret_cast<const char*>(bytes), static_cast<size_t>(size));
        if ((vr == u"DA" && Match(text, "dddd.dd.dd")) || (vr == u"TM" && Match(text, "dd:dd:dd"))) {
            std::remove_copy(text.begin(), text.end(), std::back_inserter(current), vr == u"DA" ? '.' : ':');
            bytes = reinterpret_cast<const unsigned char*>(current.data());
            size = static_cast<int>(current.size());
        }
    }
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

std::u16string Value(const CDicomItem* node, int group, int element)
{
    return node ? DirIndex::TextKey(node, group, element) : std::u16string();
}

// PS3.3 F.5: Specific Character Set is Type 1C in every record (present
// when a key uses another repertoire than the default one): copied when the
// instance has one, and the record's text then uses it.
void CopyCharacterSet(CDicomItem* record, const CDicomItem* dataSet)
{
    if (Value(dataSet, 0x0008, 0x0005).empty())
        return;
    CopyKey(record, dataSet, 0x0008, 0x0005);
    std::string characterSet = CDicomInfoStatics::ExtractCharacterSet(record);
    if (!characterSet.empty())
        record->ChangeCharacterSet(characterSet);
}

// A Type 1 key (PS3.3 F.5): the instance's value, or, when it has none,
// the first of the alternatives that it has, else the last resort.
void CopyRequired(CDicomItem* record, const CDicomItem* dataSet, int group, int element,
                  std::initializer_list<std::pair<int, int>> alternatives, const std::u16string& lastResort)
{
    if (!Value(dataSet, group, element).empty()) {
        CopyKey(record, dataSet, group, element);
        return;
    }
    for (auto [otherGroup, otherElement] : alternatives)
        if (!Value(dataSet, otherGroup, otherElement).empty()) {
            CopyKey(record, dataSet, otherGroup, otherElement, false, group, element);
            return;
        }
    record->AddTag(group, element, lastResort, VROf(group, element));
}

// PS3.3 F.5 (SR Document and Key Object Document keys): the Content
// Sequence of a record holds only the document's HAS CONCEPT MOD items
// (what qualifies its title), each without content of its own, not the
// report's content tree.
void CopyConceptModifiers(CDicomItem* record, const CDicomItem* dataSet)
{
    const CDicomItem* source = dataSet->GetTagItem(0x0040, 0xA730);
    if (!source)
        return;
    auto* copy = static_cast<CDicomItem*>(source->CreateCopy());
    int kept = 0;
    if (CDicomItem* items = copy->GetGroupItem(0xFFFE)) {
        for (int i = items->GetChildCount() - 1; i >= 0; --i) {
            auto* item = static_cast<CDicomItem*>(items->GetChildItem(i));
            if (item->m_sName != u"eE000")
                continue;
            if (Value(item, 0x0040, 0xA010) != u"HAS CONCEPT MOD") {
                delete items->RemoveChildAt(i);
                continue;
            }
            item->RemoveTag(0x0040, 0xA730);
            ++kept;
        }
    }
    if (kept == 0) {
        delete copy;
        return;
    }
    copy->ChangeCharacterSet(record->m_sCharacterSet);
    record->InsertDicomItem(copy, 0x0040);
}

// Why an instance cannot have records (PS3.3 F.5: Type 1 keys that cannot
// be made up): empty when it can.
std::string RefusalOf(const CDicomItem* header, const CDicomItem* dataSet)
{
    static const struct {
        bool inHeader;
        int group, element;
        const char* name;
    } kNeeded[] = {{true, 0x0002, 0x0002, "Media Storage SOP Class UID (0002,0002)"},
                   {true, 0x0002, 0x0003, "Media Storage SOP Instance UID (0002,0003)"},
                   {true, 0x0002, 0x0010, "Transfer Syntax UID (0002,0010)"},
                   {false, 0x0020, 0x000D, "Study Instance UID (0020,000D)"},
                   {false, 0x0020, 0x000E, "Series Instance UID (0020,000E)"},
                   {false, 0x0008, 0x0060, "Modality (0008,0060)"}};
    std::string missing;
    for (const auto& needed : kNeeded)
        if (Value(needed.inHeader ? header : dataSet, needed.group, needed.element).empty())
            missing += std::string(missing.empty() ? "" : ", ") + needed.name;
    if (!missing.empty())
        return "not added: no " + missing;
    // PS3.10 7.1: the meta information names the SOP instance of its data
    // set; a record cannot reference an instance that contradicts itself.
    for (auto [inHeader, inDataSet] : {std::pair{0x0002, 0x0016}, {0x0003, 0x0018}}) {
        std::u16string inData = Value(dataSet, 0x0008, inDataSet);
        if (!inData.empty() && inData != Value(header, 0x0002, inHeader))
            return std::string("not added: its SOP ") + (inHeader == 0x0002 ? "Class" : "Instance") +
                   " UID differs from its Media Storage SOP " + (inHeader == 0x0002 ? "Class" : "Instance") + " UID";
    }
    return std::string();
}

bool IsNumber(const std::u16string& text)
{
    std::u16string value = Trim(text);
    return !value.empty() && value.size() <= 12 &&
           std::all_of(value.begin(), value.end(), [](char16_t c) { return c >= u'0' && c <= u'9'; });
}

// PS3.3 F.5 (SR Document keys): a VERIFIED report's record needs its
// Verification DateTime (Type 1C), which a report keeps in the last item of
// its Verifying Observer Sequence (0040,A073) (PS3.3 C.17.2).
void CopyVerificationTime(CDicomItem* record, const CDicomItem* dataSet)
{
    const CDicomItem* source = dataSet;
    const CDicomItem* observers = dataSet->GetTagItem(0x0040, 0xA073);
    if (Value(dataSet, 0x0040, 0xA030).empty() && observers)
        for (int i = 0; const CDicomItem* item = observers->GetTagItem(0xFFFE, 0xE000, i); ++i)
            if (!Value(item, 0x0040, 0xA030).empty())
                source = item;
    if (!Value(source, 0x0040, 0xA030).empty())
        CopyKey(record, source, 0x0040, 0xA030, true);
    else  // verified without a time: the content's own date and time
        record->InsertTag(0x0040, 0xA030, Value(record, 0x0008, 0x0023) + Value(record, 0x0008, 0x0033), u"DT");
}

std::u16string Numbered(int count)
{
    return AsciiToWide(std::to_string(count + 1));
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
        {0x0008, 0x0005}, {0x0008, 0x0008}, {0x0008, 0x0016}, {0x0008, 0x0018}, {0x0008, 0x0020}, {0x0008, 0x0021},
        {0x0008, 0x0022}, {0x0008, 0x0023}, {0x0008, 0x0030}, {0x0008, 0x0031}, {0x0008, 0x0032}, {0x0008, 0x0033},
        {0x0008, 0x0050}, {0x0008, 0x0060}, {0x0008, 0x0080}, {0x0008, 0x0081}, {0x0008, 0x0090}, {0x0008, 0x1030},
        {0x0008, 0x103E}, {0x0008, 0x1050}, {0x0010, 0x0010}, {0x0010, 0x0020}, {0x0010, 0x0030}, {0x0010, 0x0040},
        {0x0018, 0x0015}, {0x0018, 0x1030}, {0x0018, 0x1510}, {0x0018, 0x1511}, {0x0020, 0x000D}, {0x0020, 0x000E},
        {0x0020, 0x0010}, {0x0020, 0x0011}, {0x0020, 0x0012}, {0x0020, 0x0013}, {0x0020, 0x0032}, {0x0020, 0x0037},
        {0x0020, 0x0052}, {0x0020, 0x4000}, {0x0028, 0x0002}, {0x0028, 0x0004}, {0x0028, 0x0008}, {0x0028, 0x0010},
        {0x0028, 0x0011}, {0x0028, 0x0030}, {0x0028, 0x0101}, {0x0028, 0x1050}, {0x0028, 0x1051}, {0x0040, 0xA030},
        {0x0040, 0xA043}, {0x0040, 0xA073}, {0x0040, 0xA491}, {0x0040, 0xA493}, {0x0040, 0xA730}, {0x0050, 0x0004}};
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

int CDicomDirEx::PositionBelow(CDicomItem* parent)
{
    CDicomItem* group = RecordGroup();
    if (!group)
        return -1;
    int count = group->GetChildCount();
    // The end: in front of the sequence delimiter when there is one.
    int end = count > 0 && group->m_children.back()->m_sName != u"eE000" ? count - 1 : count;
    DirIndex* index = CurrentIndex();
    if (!parent || (index && index->EndsBelow(parent)))
        return end;
    // A record belongs to the record before it one level up (the order this
    // model keeps in place of the links),
    // so a new record of an earlier parent goes after that parent's last
    // descendant, not after the records of later patients or studies.
    int position = GetRecordPos(parent, 0);
    if (position < 0)
        return end;
    std::string parentType;
    RecordTypeOf(parent, parentType);
    int level = GetRecordLevel(parentType);
    for (int i = position + 1; i < count; ++i) {
        const CXmlItem* child = group->m_children[static_cast<size_t>(i)];
        std::string type;
        if (child->m_sName != u"eE000" || (RecordTypeOf(child, type) && GetRecordLevel(type) <= level))
            return i;
    }
    return end;
}

CDicomItem* CDicomDirEx::NewRecord(const char16_t* type, CDicomItem* parent)
{
    int position = PositionBelow(parent);
    if (position < 0)
        return nullptr;
    CDicomItem* record = InsertRecord(position);
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
    m_LastError.Clear();
    if (!instance) {
        m_LastError.Set(CLastError::kInvalidArgument, "no instance");
        return false;
    }
    CDicomItem* data = Child(instance, u"Data");
    if (!data) {
        m_LastError.Set(CLastError::kInvalidArgument, "the instance has no data set");
        return false;
    }
    std::string refusal = RefusalOf(Child(instance, u"Header"), data);
    if (!refusal.empty()) {
        m_LastError.Set(CLastError::kInvalidArgument, refusal);
        return false;
    }
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
        match = NewRecord(u"PATIENT", nullptr);
        if (!match) {
            m_LastError.Set(CLastError::kInvalidArgument, "the directory has no record sequence");
            return false;
        }
        CopyCharacterSet(match, data);
        CopyKey(match, data, 0x0010, 0x0010);
        CopyRequired(match, data, 0x0010, 0x0020, {}, DirIndex::PatientId(data));
        CopyKey(match, data, 0x0010, 0x0030);
        CopyKey(match, data, 0x0010, 0x0040);
        if (index)
            index->Added(match, nullptr, RecordGroup());
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
        match = NewRecord(u"STUDY", patient);
        if (!match)
            return false;
        CopyCharacterSet(match, data);
        CopyRequired(match, data, 0x0008, 0x0020, {{0x0008, 0x0021}, {0x0008, 0x0022}, {0x0008, 0x0023}},
                     u"19000101");
        CopyRequired(match, data, 0x0008, 0x0030, {{0x0008, 0x0031}, {0x0008, 0x0032}, {0x0008, 0x0033}},
                     u"000000");
        for (auto [group, element] :
             {std::pair{0x0008, 0x0050}, {0x0008, 0x0090}, {0x0008, 0x1030}, {0x0020, 0x000D}})
            CopyKey(match, data, group, element);
        CopyRequired(match, data, 0x0020, 0x0010, {},
                     u"ZST" + DirIndex::Fingerprint(Value(data, 0x0020, 0x000D)).substr(0, 13));
        if (index)
            index->Added(match, patient, RecordGroup());
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
        int siblings = Value(data, 0x0020, 0x0011).empty() ? GetRecordCount("SERIES", GetRecordPos(study, 0) + 1) : 0;
        match = NewRecord(u"SERIES", study);
        if (!match)
            return false;
        CopyCharacterSet(match, data);
        for (auto [group, element] :
             {std::pair{0x0008, 0x0021}, {0x0008, 0x0031}, {0x0008, 0x0060}, {0x0008, 0x0080}, {0x0008, 0x0081},
              {0x0008, 0x103E}, {0x0008, 0x1050}, {0x0018, 0x0015}, {0x0018, 0x1030}, {0x0020, 0x000E}})
            CopyKey(match, data, group, element);
        CopyRequired(match, data, 0x0020, 0x0011, {}, Numbered(siblings));
        if (index)
            index->Added(match, study, RecordGroup());
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
    int siblings = Value(data, 0x0020, 0x0013).empty() ? GetRecordCount(typeText, GetRecordPos(series, 0) + 1) : 0;
    CDicomItem* record = NewRecord(type, series);
    if (!record)
        return false;
    record->AddTag(0x0004, 0x1500, m_strFileId, u"CS");
    CopyKey(record, header, 0x0002, 0x0002, false, 0x0004, 0x1510);
    CopyKey(record, header, 0x0002, 0x0003, false, 0x0004, 0x1511);
    CopyKey(record, header, 0x0002, 0x0010, false, 0x0004, 0x1512);
    CopyCharacterSet(record, data);
    if (typeText == "IMAGE") {
        for (auto [group, element] :
             {std::pair{0x0008, 0x0008}, {0x0008, 0x0023}, {0x0008, 0x0033}, {0x0018, 0x1510}, {0x0018, 0x1511}})
            CopyKey(record, data, group, element);
        CopyRequired(record, data, 0x0020, 0x0013, {}, Numbered(siblings));
        CopyKey(record, data, 0x0020, 0x4000);
        // Number of Frames is an optional key: left out rather than copied
        // when the instance's value is not an integer string.
        if (IsNumber(Value(data, 0x0028, 0x0008)))
            CopyKey(record, data, 0x0028, 0x0008);
        CopyKey(record, data, 0x0050, 0x0004);
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
        // PS3.3 F.5 (SR Document and Key Object Document keys): Content
        // Date and Time, Instance Number and, for a report, both flags are
        // Type 1.
        CopyRequired(record, data, 0x0008, 0x0023, {{0x0008, 0x0020}}, u"19000101");
        CopyRequired(record, data, 0x0008, 0x0033, {{0x0008, 0x0030}}, u"000000");
        CopyRequired(record, data, 0x0020, 0x0013, {}, Numbered(siblings));
        if (typeText == "SR DOCUMENT") {
            CopyRequired(record, data, 0x0040, 0xA491, {}, u"PARTIAL");
            CopyRequired(record, data, 0x0040, 0xA493, {}, u"UNVERIFIED");
            if (EqualsNoCase(Value(data, 0x0040, 0xA493), std::u16string(u"VERIFIED")))
                CopyVerificationTime(record, data);
        }
        CopySequence(record, data, 0x0040, 0xA043);
        CopyConceptModifiers(record, data);
    }
    if (index)
        index->Added(record, series, RecordGroup());
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
