// Instance editing on the element tree: the host's patient, study, series
// and image attributes written into a data set, and the referenced SOP
// sequence of a derived object.
#include <string>
#include <utility>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/vrtable.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

// How a key of the host attribute tree becomes its element's value.
enum class KeyKind {
    Text,        // the text, replaced
    BirthDate,   // from 18000000: the number; below: an empty value
    StudyDate,   // from 18000000: the number; below: an existing element emptied
    SeriesDate,  // from 18000000: written into an existing element only; below: emptied
    Time,        // 0 or more: hhmmss with leading zeros; negative: an empty value
};

enum class Level { Patient, Study, Series, Image };

struct KeyRow {
    Level level;
    const char16_t* key;
    uint16_t group;
    uint16_t element;
    KeyKind kind;
};

// The key table, in the order the keys are applied. The patient's name
// (LastName and FirstName) is applied before it.
constexpr KeyRow kKeys[] = {
    {Level::Patient, u"PatientID", 0x0010, 0x0020, KeyKind::Text},
    {Level::Patient, u"BirthDate", 0x0010, 0x0030, KeyKind::BirthDate},
    {Level::Patient, u"Sex", 0x0010, 0x0040, KeyKind::Text},
    {Level::Patient, u"PatientComments", 0x0010, 0x4000, KeyKind::Text},
    {Level::Study, u"StudyInstanceUID", 0x0020, 0x000D, KeyKind::Text},
    {Level::Study, u"StudyDate", 0x0008, 0x0020, KeyKind::StudyDate},
    {Level::Study, u"StudyTime", 0x0008, 0x0030, KeyKind::Time},
    {Level::Study, u"ReferringPhysician", 0x0008, 0x0090, KeyKind::Text},
    {Level::Study, u"StudyID", 0x0020, 0x0010, KeyKind::Text},
    {Level::Study, u"AccessionNumber", 0x0008, 0x0050, KeyKind::Text},
    {Level::Study, u"StudyDescription", 0x0008, 0x1030, KeyKind::Text},
    {Level::Study, u"StudyComments", 0x0032, 0x4000, KeyKind::Text},
    {Level::Series, u"Modality", 0x0008, 0x0060, KeyKind::Text},
    {Level::Series, u"SeriesInstanceUID", 0x0020, 0x000E, KeyKind::Text},
    {Level::Series, u"SeriesNumber", 0x0020, 0x0011, KeyKind::Text},
    {Level::Series, u"SeriesDate", 0x0008, 0x0021, KeyKind::SeriesDate},
    {Level::Series, u"SeriesTime", 0x0008, 0x0031, KeyKind::Time},
    {Level::Series, u"BodyPart", 0x0018, 0x0015, KeyKind::Text},
    {Level::Series, u"PerformingPhysician", 0x0008, 0x1050, KeyKind::Text},
    {Level::Series, u"SeriesDescription", 0x0008, 0x103E, KeyKind::Text},
    {Level::Image, u"SOPInstanceUID", 0x0008, 0x0018, KeyKind::Text},
    {Level::Image, u"ImageNumber", 0x0020, 0x0013, KeyKind::Text},
};

// The elements below node, in nested items too, whose values follow the
// data set's character set (PS3.5 6.1.2.3), with their text.
void CollectTexts(CDicomItem& node, std::vector<std::pair<CDicomItem*, std::u16string>>& texts)
{
    for (CXmlItem* child : node.m_children) {
        bool isGroup = CDicomItem::ParseGroupName(child->m_sName) >= 0;
        bool isElement = CDicomItem::ParseElementName(child->m_sName) >= 0;
        if (!isGroup && !isElement)
            continue;  // the "VR", "Size", ... attributes
        auto* item = static_cast<CDicomItem*>(child);
        if (isElement && item->GetDataSize() > 0 && IsCharacterSetSensitiveVR(item->GetVR())) {
            std::u16string text;
            item->GetTagValue(text);
            texts.emplace_back(item, std::move(text));
        }
        CollectTexts(*item, texts);
    }
}

// Switches the data set to UTF-8 (ISO_IR 192, PS3.3 C.12.1.1.2), which
// holds any text: every value in its character set is written again in
// UTF-8. False when a value cannot be (the data set is left as it was).
bool SwitchToUtf8(CDicomItem& data)
{
    std::vector<std::pair<CDicomItem*, std::u16string>> texts;
    CollectTexts(data, texts);
    std::vector<std::string> encoded;
    for (const auto& [item, text] : texts) {
        std::string bytes;
        if (!CDicomItem::TranslateTagValueFromUnicodeToDicom(text, item->GetVR(), u"ISO_IR 192", bytes))
            return false;
        encoded.push_back(std::move(bytes));
    }
    data.ChangeCharacterSet("ISO_IR 192");
    for (size_t i = 0; i < texts.size(); ++i)
        texts[i].first->CopyData(encoded[i].data(), static_cast<int>(encoded[i].size()));
    return data.ReplaceTag(0x0008, 0x0005, u"ISO_IR 192", std::u16string()) != nullptr;
}

// Writes a value; one that the data set's character set cannot hold
// switches the data set to UTF-8 first rather than leave the old value.
// A refusal that remains says why in the data set's GetLastError().
void Replace(CDicomItem& data, int group, int element, const std::u16string& text)
{
    if (data.ReplaceTag(group, element, text, std::u16string()) ||
        data.GetLastError().GetCode() != CLastError::kNotRepresentable)
        return;
    if (SwitchToUtf8(data))
        data.ReplaceTag(group, element, text, std::u16string());
}

// 1800-00-00 as yyyymmdd: dates below it mean "no date".
constexpr long kFirstDate = 18000000;

void ApplyKey(CDicomItem& data, const KeyRow& row, const CXmlItem& node)
{
    std::u16string text;
    long number = 0;
    bool present = row.kind == KeyKind::Text ? node.GetItemValue(row.key, text) : node.GetItemValue(row.key, number);
    if (!present)
        return;
    switch (row.kind) {
    case KeyKind::Text:
        break;
    case KeyKind::BirthDate:
        text = number >= kFirstDate ? AsciiToWide(FormatText("%ld", number)) : std::u16string();
        break;
    case KeyKind::StudyDate:
    case KeyKind::SeriesDate:
        if (number < kFirstDate || row.kind == KeyKind::SeriesDate) {
            // No element is created for these: only an existing one changes.
            if (!data.GetTagItem(row.group, row.element))
                return;
            text = number >= kFirstDate ? AsciiToWide(FormatText("%ld", number)) : std::u16string();
        } else {
            text = AsciiToWide(FormatText("%ld", number));
        }
        break;
    case KeyKind::Time:
        text = number >= 0 ? AsciiToWide(FormatText("%06ld", number)) : std::u16string();
        break;
    }
    Replace(data, row.group, row.element, text);
}

}  // namespace

void CDicomItem::ModifyImageTags(const CXmlItem* patient, const CXmlItem* study, const CXmlItem* series,
                                 const CXmlItem* image)
{
    if (!EqualsNoCase(m_sName, std::u16string(u"Data")))
        return;
    if (patient) {
        std::u16string last, first;
        if (patient->GetItemValue(u"LastName", last) && patient->GetItemValue(u"FirstName", first)) {
            // The current name's middle name, prefix and suffix are kept.
            std::u16string previous;
            if (CDicomItem* name = GetTagItem(0x0010, 0x0010))
                name->GetTagValue("PN", previous);
            Replace(*this, 0x0010, 0x0010, CDicomInfoStatics::ConvertNameToDicom(last, first, Trim(previous)));
        }
    }
    const CXmlItem* nodes[] = {patient, study, series, image};
    for (const KeyRow& row : kKeys)
        if (const CXmlItem* node = nodes[static_cast<int>(row.level)])
            ApplyKey(*this, row, *node);
}

void CDicomItem::ModifyImageTags(const CXmlItem* root)
{
    const CXmlItem* patient = root ? root->GetChildItem(std::u16string(u"PATIENT")) : nullptr;
    const CXmlItem* study = patient ? patient->GetChildItem(std::u16string(u"STUDY")) : nullptr;
    const CXmlItem* series = study ? study->GetChildItem(std::u16string(u"SERIES")) : nullptr;
    const CXmlItem* image = series ? series->GetChildItem(std::u16string(u"IMAGE")) : nullptr;
    if (image)
        ModifyImageTags(patient, study, series, image);
}

CDicomItem* CDicomItem::AddRefSOPSequence(const std::u16string& classUID, const std::u16string& instanceUID)
{
    // One Referenced SOP Sequence per data set, in tag order.
    RemoveTag(0x0008, 0x1199);
    CDicomItem* sequence = InsertSequence(0x0008, 0x1199);
    CDicomItem* item = sequence ? sequence->InsertSequenceItem() : nullptr;
    if (!item || !item->InsertTag(0x0008, 0x1150, classUID, std::u16string()) ||
        !item->InsertTag(0x0008, 0x1155, instanceUID, std::u16string())) {
        RemoveTag(0x0008, 0x1199);
        return nullptr;
    }
    return sequence;
}
