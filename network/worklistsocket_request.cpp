// The worklist request: the identifier template with every key the client
// asks for, the typed values a host sets on it, and the response writer of
// CDicomWorklist.
#include <cstdlib>
#include <iterator>

#include "dicomdata/dictionary.h"
#include "imageinfo/dicominfo.h"
#include "network/worklistsocket.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

struct Key {
    uint16_t group, element;
};

// The Scheduled Procedure Step item (PS3.4 K.6.1.2.2).
constexpr Key kScheduledStepKeys[] = {
    {0x0008, 0x0060}, {0x0032, 0x1070}, {0x0040, 0x0001}, {0x0040, 0x0002}, {0x0040, 0x0003}, {0x0040, 0x0006},
    {0x0040, 0x0007}, {0x0040, 0x0009}, {0x0040, 0x0010}, {0x0040, 0x0011}, {0x0040, 0x0012}, {0x0040, 0x0020},
};
constexpr Key kRequestedProcedureKeys[] = {{0x0040, 0x1001}, {0x0032, 0x1060}};
// Code Value, Coding Scheme Designator, Coding Scheme Version, Code Meaning.
constexpr Key kCodeWithVersionKeys[] = {{0x0008, 0x0100}, {0x0008, 0x0102}, {0x0008, 0x0103}, {0x0008, 0x0104}};
constexpr Key kCodeKeys[] = {{0x0008, 0x0100}, {0x0008, 0x0102}, {0x0008, 0x0104}};
// Requested procedure, imaging service request and visit keys.
constexpr Key kRequestKeys[] = {
    {0x0020, 0x000D}, {0x0040, 0x1003}, {0x0040, 0x1004}, {0x0040, 0x1005}, {0x0008, 0x0050}, {0x0032, 0x1032},
    {0x0032, 0x1033}, {0x0008, 0x0090}, {0x0038, 0x0010}, {0x0038, 0x0008}, {0x0038, 0x0300}, {0x0038, 0x0400},
};
// Patient identification, demographics and medical status keys.
constexpr Key kPatientKeys[] = {
    {0x0010, 0x0010}, {0x0010, 0x0020}, {0x0010, 0x1000}, {0x0010, 0x1001}, {0x0010, 0x0030},
    {0x0010, 0x0032}, {0x0010, 0x0040}, {0x0040, 0x3001}, {0x0010, 0x1010}, {0x0010, 0x1020},
    {0x0010, 0x1030}, {0x0010, 0x2180}, {0x0010, 0x2160}, {0x0038, 0x0500}, {0x0010, 0x21C0},
    {0x0010, 0x2000}, {0x0010, 0x2110}, {0x0010, 0x21B0}, {0x0038, 0x0050}, {0x0010, 0x2201},
};
// Patient species, breed and responsible person (PS3.3 C.7.1.1).
constexpr Key kPatientSpeciesKeys[] = {{0x0010, 0x2203}, {0x0010, 0x2292}};
constexpr Key kResponsiblePersonKeys[] = {{0x0010, 0x2297}, {0x0010, 0x2298}, {0x0010, 0x2299}};

// An empty element with the data dictionary's VR (the element tree's own
// table lacks some of the newer worklist keys); null when it cannot be added.
CDicomItem* AddKey(CDicomItem* node, uint16_t group, uint16_t element)
{
    const char* vr = zeldicom::ElementVR(group, element, nullptr, true);
    return node ? node->InsertTag(group, element, nullptr, 0, vr ? AsciiToWide(std::string(vr, 2)) : u"") : nullptr;
}

// Empty keys ask for the attribute to be returned.
template <size_t N>
bool AddKeys(CDicomItem* node, const Key (&keys)[N])
{
    for (const Key& key : keys) {
        if (!AddKey(node, key.group, key.element))
            return false;
    }
    return true;
}

// A sequence with one item; the item, or null.
CDicomItem* AddSequenceItem(CDicomItem* node, uint16_t group, uint16_t element)
{
    CDicomItem* sequence = node ? node->InsertSequence(group, element) : nullptr;
    return sequence ? sequence->InsertSequenceItem() : nullptr;
}

std::u16string WithoutSpaces(const std::u16string& text)
{
    std::u16string out;
    for (char16_t c : text) {
        if (c != u' ')
            out += c;
    }
    return out;
}

// Removes every c; true when there was one.
bool TakeOut(std::u16string& text, char16_t c)
{
    size_t before = text.size();
    std::erase(text, c);
    return text.size() != before;
}

// The text as the key's value. A text value of odd length is padded with a
// space (PS3.5 6.2): the element tree pads some VRs (DA among them) with a
// zero byte, which a worklist provider would take as part of the key.
bool SetText(CDicomItem* key, const std::u16string& text)
{
    const std::string vr = key->GetVR();
    std::string bytes;
    if (!CDicomItem::TranslateTagValueFromUnicodeToDicom(text, vr, AsciiToWide(key->m_sCharacterSet), bytes))
        return false;
    if (bytes.size() % 2 != 0 && vr != "UI" && vr != "OB" && vr != "UN")
        bytes += ' ';
    return key->CopyData(bytes.data(), static_cast<int>(bytes.size()));
}

bool IsOneOf(const std::u16string& vr, std::initializer_list<const char16_t*> list)
{
    for (const char16_t* entry : list) {
        if (vr == entry)
            return true;
    }
    return false;
}

}

CDicomItem* CWorklistSocket::CreateFindRequest()
{
    auto root = std::make_unique<CDicomItem>(u"Root");
    CDicomItem* node = root.get();
    bool built = AddKey(node, 0x0008, 0x0005) != nullptr;
    built = built && AddKeys(AddSequenceItem(node, 0x0040, 0x0100), kScheduledStepKeys);
    built = built && AddKeys(node, kRequestedProcedureKeys);
    built = built && AddKeys(AddSequenceItem(node, 0x0032, 0x1064), kCodeWithVersionKeys);
    built = built && AddKeys(node, kRequestKeys) && AddKeys(node, kPatientKeys);
    built = built && AddKeys(AddSequenceItem(node, 0x0010, 0x2202), kCodeKeys);
    built = built && AddKeys(node, kPatientSpeciesKeys);
    built = built && AddKeys(AddSequenceItem(node, 0x0010, 0x2293), kCodeKeys);
    CDicomItem* person = AddSequenceItem(node, 0x0010, 0x2294);
    built = built && AddKey(person, 0x0010, 0x2295);
    built = built && AddKeys(AddSequenceItem(person, 0x0010, 0x2296), kCodeKeys);
    built = built && AddKeys(node, kResponsiblePersonKeys);
    return built ? root.release() : nullptr;
}

bool CWorklistSocket::CreateFindRequest(WL_FIND* record)
{
    if (!record)
        return false;
    CDicomItem* request = CreateFindRequest();
    if (!request)
        return false;
    record->pRequest.reset(request);
    return true;
}

bool CWorklistSocket::AddValueToFindRequest(CDicomItem* request, const std::u16string& value, int group,
                                            int element, const std::u16string& vr)
{
    if (!request)
        return false;
    CDicomItem* key = request->GetTagItem(group, element);
    if (!key) {
        // A key outside the template: empty, with the dictionary's VR, in tag order.
        AddKey(request, static_cast<uint16_t>(group), static_cast<uint16_t>(element));
        key = request->GetTagItem(group, element);
    }
    if (!key)
        return false;
    if (vr.size() != 2)
        return true;
    if (vr == u"DA" || vr == u"TM") {
        // ">d" from d on, "<d" up to d, "=d" exactly d; then the typed
        // range ("a..b") becomes a range matching value (PS3.4 C.2.2.2.5).
        std::u16string typed = WithoutSpaces(value);
        if (TakeOut(typed, u'>'))
            typed += u"..";
        else if (TakeOut(typed, u'<'))
            typed = u".." + typed;
        else
            TakeOut(typed, u'=');
        std::u16string range;
        if (vr == u"DA")
            DICOMINFO::FormatDicomDatesRequest(typed, range);
        else
            DICOMINFO::FormatDicomTimesRequest(typed, range);
        return range.empty() || SetText(key, range);
    }
    if (vr == u"PN") {
        // Words typed with spaces are name components; the wild card makes
        // the last one a prefix (PS3.4 C.2.2.2.4).
        std::u16string name = value;
        for (char16_t& c : name) {
            if (c == u' ')
                c = u'^';
        }
        return SetText(key, name + u"*");
    }
    if (vr == u"US") {
        std::string digits = WideToAscii(value);
        char* end = nullptr;
        unsigned long number = std::strtoul(digits.c_str(), &end, 10);
        if (digits.empty() || *end != '\0' || number > 0xFFFF)
            return false;
        const unsigned char bytes[2] = {static_cast<unsigned char>(number), static_cast<unsigned char>(number >> 8)};
        return key->CopyData(bytes, 2);
    }
    // Date-times and 32-bit numbers cannot be typed into a worklist key.
    if (vr == u"DT" || vr == u"UL")
        return false;
    if (IsOneOf(vr, {u"AE", u"AS", u"AT", u"CS", u"DS", u"FD", u"FL", u"IS", u"LO", u"LT", u"OB", u"OW", u"SH",
                     u"SL", u"SQ", u"SS", u"ST", u"UI", u"UN", u"UT"}))
        return SetText(key, value);
    return true;
}

void CDicomWorklist::ReadTagProc(TAG_HEADER* element, CDicomWorklist* record)
{
    if (element && record && element->wGroup == 0x0008 && element->wElement == 0x0050)
        DICOMINFO::GetStringTagValue(element, record->sAccessionNumber);
}

bool CDicomWorklist::FillResponseData(CDynBuffer& buffer) const
{
    static const std::u16string kLatin1 = u"ISO_IR 100";
    const struct {
        uint16_t group, element;
        const char16_t* vr;
        const std::u16string& text;
    } top[] = {
        {0x0008, 0x0050, u"SH", sAccessionNumber}, {0x0008, 0x0090, u"PN", sReferringPhysicianName},
        {0x0010, 0x0010, u"PN", sPatientName},     {0x0010, 0x0020, u"LO", sPatientID},
        {0x0010, 0x0030, u"DA", sPatientBirthDate}, {0x0010, 0x0040, u"CS", sPatientSex},
        {0x0020, 0x000D, u"UI", sStudyInstanceUID}, {0x0038, 0x0300, u"LO", sCurrentPatientLocation},
    }, step[] = {
        {0x0032, 0x1070, u"LO", sRequestedContrastAgent},
        {0x0040, 0x0006, u"PN", sScheduledPerformingPhysician},
        {0x0040, 0x0010, u"SH", sScheduledStationName},
    };
    bool written = true;
    for (const auto& field : top)
        written = DICOMINFO::AddTagByVR(buffer, field.vr, field.group, field.element, field.text, kLatin1) && written;
    CDynBuffer item, itemContent;
    for (const auto& field : step)
        written =
            DICOMINFO::AddTagByVR(itemContent, field.vr, field.group, field.element, field.text, kLatin1) && written;
    // One item of explicit length holding the step (PS3.5 7.5.1).
    DICOMINFO::AddTagByVR(item, u"", 0xFFFE, 0xE000, itemContent.GetData(), itemContent.m_nSize);
    DICOMINFO::AddTagByVR(buffer, u"SQ", 0x0040, 0x0100, item.GetData(), item.m_nSize);
    return written;
}
