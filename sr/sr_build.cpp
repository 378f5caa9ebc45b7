// Building a structured report: content items appended under a parent,
// coded entries with their dictionary meanings, the general modules from the
// host's description, and writing the document to a file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "dicomdata/dicomsettings.h"
#include "dicomdata/dicomtools.h"
#include "platform/instancedata.h"
#include "platform/text.h"
#include "platform/xmlitem.h"
#include "sr/sr.h"

using namespace zeldicom;

namespace {

// Elements go in tag order whatever the order of the calls, so a document
// built in any order encodes as PS3.5 7.1 wants it.
CDicomItem* PutText(CDicomItem* node, int group, int element, const std::string& text, const char16_t* vr)
{
    return node->ReplaceTag(group, element, Utf8ToUtf16(text), vr);
}

CDicomItem* SequenceOf(CDicomItem* node, int group, int element)
{
    CDicomItem* sequence = node->GetTagItem(group, element);
    return sequence ? sequence : node->InsertSequence(group, element);
}

// One item of a Referenced SOP Sequence (PS3.3 10.8 SOP Instance Reference Macro).
void AddReference(CDicomItem* node, const std::string& sopClassUID, const std::string& sopInstanceUID)
{
    CDicomItem* sequence = SequenceOf(node, 0x0008, 0x1199);
    CDicomItem* reference = sequence ? sequence->InsertSequenceItem() : nullptr;
    if (!reference)
        return;
    PutText(reference, 0x0008, 0x1150, sopClassUID, u"UI");
    PutText(reference, 0x0008, 0x1155, sopInstanceUID, u"UI");
}

std::u16string HostText(const CXmlItem* item, const char16_t* name)
{
    std::u16string text;
    item->GetItemValue(name, text);
    return text;
}

long HostNumber(const CXmlItem* item, const char16_t* name)
{
    long number = 0;
    item->GetItemValue(name, number);
    return number;
}

std::u16string DateText(long date)
{
    return date > 18000000 ? FormatWide("%08ld", date) : std::u16string();
}

}  // namespace

CDicomItem* CSR::InsertCodeItem(CDicomItem* sequence, const std::string& value, const std::string& designator,
                                const std::string& version)
{
    CDicomItem* code = sequence ? sequence->InsertSequenceItem() : nullptr;
    if (!code)
        return nullptr;
    PutText(code, 0x0008, 0x0100, value, u"SH");
    PutText(code, 0x0008, 0x0102, designator, u"SH");
    if (!version.empty())
        PutText(code, 0x0008, 0x0103, version, u"SH");
    // PS3.3 8.8: Code Meaning is Type 1. A code the dictionary does not know
    // keeps its value as its meaning, as UCUM units do by convention, rather
    // than go without one.
    std::string meaning = GetCodeMeaning(designator, value, version);
    PutText(code, 0x0008, 0x0104, meaning.empty() ? value : meaning, u"LO");
    return code;
}

CDicomItem* CSR::AddNode(CDicomItem* parent, const std::string& relationship, const std::string& valueType,
                         const std::string& conceptValue, const std::string& conceptScheme, const std::string& value)
{
    CDicomItem* content = parent ? SequenceOf(parent, 0x0040, 0xA730) : nullptr;
    CDicomItem* item = content ? content->InsertSequenceItem() : nullptr;
    if (!item)
        return nullptr;
    PutText(item, 0x0040, 0xA010, relationship, u"CS");
    PutText(item, 0x0040, 0xA040, valueType, u"CS");
    if (!conceptValue.empty())
        InsertCodeItem(SequenceOf(item, 0x0040, 0xA043), conceptValue, conceptScheme, std::string());
    if (!value.empty()) {
        if (valueType == "PNAME")
            PutText(item, 0x0040, 0xA123, value, u"PN");
        else if (valueType == "TEXT")
            PutText(item, 0x0040, 0xA160, value, u"UT");
        else if (valueType == "DATE")
            PutText(item, 0x0040, 0xA121, value, u"DA");
        else if (valueType == "TIME")
            PutText(item, 0x0040, 0xA122, value, u"TM");
    }
    return item;
}

CDicomItem* CSR::AddCodeNode(CDicomItem* parent, const std::string& relationship, const std::string& conceptValue,
                             const std::string& conceptScheme, const std::string& codeValue,
                             const std::string& codeScheme)
{
    CDicomItem* item = AddNode(parent, relationship, "CODE", conceptValue, conceptScheme, std::string());
    if (item)
        InsertCodeItem(SequenceOf(item, 0x0040, 0xA168), codeValue, codeScheme, std::string());
    return item;
}

CDicomItem* CSR::AddNumNode(CDicomItem* parent, const std::string& relationship, const std::string& conceptValue,
                            const std::string& conceptScheme, const std::string& unitValue,
                            const std::string& unitScheme, const std::string& unitVersion,
                            const std::string& numericValue)
{
    CDicomItem* item = AddNode(parent, relationship, "NUM", conceptValue, conceptScheme, std::string());
    CDicomItem* measuredSequence = item ? SequenceOf(item, 0x0040, 0xA300) : nullptr;
    CDicomItem* measured = measuredSequence ? measuredSequence->InsertSequenceItem() : nullptr;
    if (measured) {
        InsertCodeItem(SequenceOf(measured, 0x0040, 0x08EA), unitValue, unitScheme, unitVersion);
        PutText(measured, 0x0040, 0xA30A, numericValue, u"DS");
    }
    return item;
}

CDicomItem* CSR::AddContainer(CDicomItem* parent, const std::string& relationship, const std::string& continuity,
                              const std::string& conceptValue, const std::string& conceptScheme)
{
    CDicomItem* item = AddNode(parent, relationship, "CONTAINER", conceptValue, conceptScheme, std::string());
    if (item)
        PutText(item, 0x0040, 0xA050, continuity, u"CS");
    return item;
}

CDicomItem* CSR::AddCompositeNode(CDicomItem* parent, const std::string& relationship,
                                  const std::string& conceptValue, const std::string& conceptScheme,
                                  const std::string& sopClassUID, const std::string& sopInstanceUID)
{
    CDicomItem* item = AddNode(parent, relationship, "COMPOSITE", conceptValue, conceptScheme, std::string());
    if (item)
        AddReference(item, sopClassUID, sopInstanceUID);
    return item;
}

CDicomItem* CSR::AddImageNode(CDicomItem* parent, const std::string& relationship, const std::string& sopClassUID,
                              const std::string& sopInstanceUID)
{
    CDicomItem* item = AddNode(parent, relationship, "IMAGE", std::string(), std::string(), std::string());
    if (item)
        AddReference(item, sopClassUID, sopInstanceUID);
    return item;
}

bool CSR::FillGeneralData(const CXmlItem* study, const std::u16string& characterSet)
{
    if (!study || !m_pData)
        return false;
    // The text values that follow are encoded in the character set that the
    // document declares, the default one included.
    std::u16string charset = characterSet.empty() ? CDicomTools::GetDefaultISOCharacterset() : characterSet;
    m_pData->ChangeCharacterSet(Utf16ToUtf8(charset));
    const CXmlItem* patient = study->GetParentItem();
    if (!patient)
        return false;

    std::time_t clock = std::time(nullptr);
    std::tm local{};
    localtime_r(&clock, &local);
    std::u16string today = FormatWide("%04d%02d%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
    std::u16string now = FormatWide("%02d%02d%02d", local.tm_hour, local.tm_min, local.tm_sec);

    std::u16string implementation, sopClass, sopInstance, previousName;
    if (m_pHeader) {
        m_pHeader->GetTagValue(0x0002, 0x0012, implementation);
        m_pHeader->GetTagValue(0x0002, 0x0002, sopClass);
        m_pHeader->GetTagValue(0x0002, 0x0003, sopInstance);
    }
    m_pData->GetTagValue(0x0010, 0x0010, previousName);
    sopClass = Trim(sopClass);
    long studyTime = HostNumber(study, u"StudyTime");
    std::u16string sex = HostText(patient, u"Sex");
    char16_t sexCode = sex.empty() ? u' ' : sex[0];
    if (sexCode >= u'a' && sexCode <= u'z')
        sexCode = static_cast<char16_t>(sexCode - u'a' + u'A');
    std::u16string studyUID = Trim(HostText(study, u"StudyInstanceUID"));

    CDicomItem* data = m_pData;
    auto put = [data](int group, int element, const std::u16string& text) {
        data->ReplaceTag(group, element, text, std::u16string());
    };
    put(0x0008, 0x0005, charset);
    put(0x0008, 0x0012, today);
    put(0x0008, 0x0013, now);
    put(0x0008, 0x0014, Trim(implementation));
    put(0x0008, 0x0016, sopClass);
    put(0x0008, 0x0018, Trim(sopInstance));
    put(0x0008, 0x0020, DateText(HostNumber(study, u"StudyDate")));
    put(0x0008, 0x0023, today);
    put(0x0008, 0x0030, studyTime >= 0 ? FormatWide("%06ld", studyTime) : std::u16string());
    put(0x0008, 0x0033, now);
    put(0x0008, 0x0050, HostText(study, u"AccessionNumber"));
    put(0x0008, 0x0060, sopClass == u"1.2.840.10008.5.1.4.1.1.88.59" ? u"KO" : u"SR");
    put(0x0008, 0x0070, CDicomInfoStatics::GetDicomCompanyName());
    put(0x0008, 0x0090, HostText(study, u"ReferringPhysician"));
    put(0x0008, 0x1030, HostText(study, u"StudyDescription"));
    put(0x0008, 0x103E, std::u16string());
    data->RemoveTag(0x0008, 0x1111);
    data->InsertSequence(0x0008, 0x1111);
    put(0x0008, 0x1090, CDicomInfoStatics::GetDicomApplicationName());
    put(0x0010, 0x0010, CDicomInfoStatics::ConvertNameToDicom(HostText(patient, u"LastName"),
                                                             HostText(patient, u"FirstName"), previousName));
    put(0x0010, 0x0020, HostText(patient, u"PatientID"));
    put(0x0010, 0x0030, DateText(HostNumber(patient, u"BirthDate")));
    put(0x0010, 0x0040,
        sexCode == u'M' || sexCode == u'F' || sexCode == u'O' ? std::u16string(1, sexCode) : std::u16string());
    put(0x0018, 0x1020, CDicomTools::GetVqImplementationVersionName());
    put(0x0020, 0x000D, studyUID);
    put(0x0020, 0x000E, studyUID + u".1");
    put(0x0020, 0x0010, HostText(study, u"StudyID"));
    put(0x0020, 0x0011, u"1");
    put(0x0020, 0x0013, u"1");
    // The data set is the root content item (PS3.3 C.17.3): a CONTAINER
    // whose items stand apart. The SR Document General module's flags are
    // Type 1 and its Performed Procedure Code Sequence Type 2 (PS3.3
    // C.17.2); a new report is unfinished and unverified until its host
    // says otherwise, so values the host has already set stay.
    auto keep = [data](int group, int element, const char16_t* text) {
        if (!data->GetTagItem(group, element))
            data->ReplaceTag(group, element, text, std::u16string());
    };
    keep(0x0040, 0xA040, u"CONTAINER");
    keep(0x0040, 0xA050, u"SEPARATE");
    keep(0x0040, 0xA491, u"PARTIAL");
    keep(0x0040, 0xA493, u"UNVERIFIED");
    if (!data->GetTagItem(0x0040, 0xA372))
        data->InsertSequence(0x0040, 0xA372);
    return true;
}

void CSR::FillInstanceFinding(std::vector<CInstanceData*>& instances) const
{
    for (const CDicomItem* item : GetChildNodes(m_pData)) {
        std::u16string type;
        item->GetTagValue(0x0040, 0xA040, type);
        const CDicomItem* reference = item->GetSequenceItem(0x0008, 0x1199);
        if (Trim(type) != u"IMAGE" || !reference)
            continue;
        auto* instance = new CInstanceData(-1);
        reference->GetTagValue(0x0008, 0x1150, instance->m_sSOPClassUID);
        reference->GetTagValue(0x0008, 0x1155, instance->m_sSOPInstanceUID);
        instance->m_sSOPClassUID = Trim(instance->m_sSOPClassUID);
        instance->m_sSOPInstanceUID = Trim(instance->m_sSOPInstanceUID);
        instances.push_back(instance);
    }
}

uint32_t CSR::WriteProc(const void* bytes, uint32_t count, void* file)
{
    if (count == 0)
        return 0;
    if (std::fwrite(bytes, 1, count, static_cast<FILE*>(file)) != count)
        return 0xFFFFFFFFu;
    return count;
}

bool CSR::Save(const std::u16string& path) const
{
    if (!m_pRoot || path.empty())
        return false;
    // The document goes to a new file beside the target, which replaces it
    // only once complete: a failed save leaves what was there. (A document
    // loaded from the target itself reads its values from the old file's
    // image, which stays mapped until the document goes.)
    std::string target = Utf16ToUtf8(path);
    std::string temporary = target + ".XXXXXX";
    int descriptor = mkstemp(temporary.data());
    if (descriptor < 0)
        return false;
    fchmod(descriptor, 0644);
    FILE* file = fdopen(descriptor, "wb");
    if (!file) {
        close(descriptor);
        unlink(temporary.c_str());
        return false;
    }
    bool written = m_pRoot->SaveObject(WriteProc, file);
    written = std::fflush(file) == 0 && written;
    written = std::fclose(file) == 0 && written;
    if (!written || std::rename(temporary.c_str(), target.c_str()) != 0) {
        unlink(temporary.c_str());
        return false;
    }
    return true;
}
