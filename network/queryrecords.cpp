// The query/retrieve records and the callbacks that fill them from C-FIND
// response identifiers.
#include "network/queryrecords.h"

#include <cstring>
#include <new>

#include "dicomdata/dicomitem.h"
#include "imageinfo/dicominfo.h"

namespace {

template <size_t N>
void CopyField(char (&field)[N], const std::string& text)
{
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), std::min(text.size(), N - 1));
}

// The element's value as the byte text of its VR (trailing blanks removed).
std::string ByteText(const TAG_HEADER* element)
{
    if (element->nLength == kUndefinedLength)
        return "";
    std::string text(reinterpret_cast<const char*>(element) + sizeof(TAG_HEADER), element->nLength);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0'))
        text.pop_back();
    return text;
}

}

HOST_INFO::HOST_INFO()
{
    std::memset(szHost, 0, sizeof szHost);
    nPort = 0;
    std::memset(szCalledAETitle, 0, sizeof szCalledAETitle);
    std::memset(szCallingAETitle, 0, sizeof szCallingAETitle);
}

void HOST_INFO::Set(const std::string& host, unsigned port, const std::string& calledTitle,
                    const std::string& callingTitle)
{
    CopyField(szHost, host);
    nPort = port;
    CopyField(szCalledAETitle, calledTitle);
    CopyField(szCallingAETitle, callingTitle);
}

QR_FIND::QR_FIND(const QR_FIND& other) : HOST_INFO(other) { *this = other; }

QR_FIND& QR_FIND::operator=(const QR_FIND& other)
{
    if (this == &other)
        return *this;
    HOST_INFO::operator=(other);
    nValue1 = other.nValue1;
    nValue2 = other.nValue2;
    nValue3 = other.nValue3;
    keys = other.keys;
    aMatches.clear();
    for (const auto& match : other.aMatches)
        aMatches.push_back(std::make_unique<QR_INFO>(*match));
    return *this;
}

QR_MOVE::QR_MOVE(const QR_MOVE& other) : HOST_INFO(other) { *this = other; }

QR_MOVE& QR_MOVE::operator=(const QR_MOVE& other)
{
    if (this == &other)
        return *this;
    HOST_INFO::operator=(other);
    nValue1 = other.nValue1;
    nValue2 = other.nValue2;
    nValue3 = other.nValue3;
    sMoveDestination = other.sMoveDestination;
    aStudies.clear();
    for (const auto& study : other.aStudies)
        aStudies.push_back(std::make_unique<QR_MOVE_INFO>(*study));
    return *this;
}

int QR_MOVE::AddSeriesInfo(const QR_MOVE_INFO* info)
{
    if (!info)
        return 0;
    for (const auto& study : aStudies)
        if (study->sStudyInstanceUID == info->sStudyInstanceUID) {
            study->sSeriesInstanceUIDs += '\\';
            study->sSeriesInstanceUIDs += info->sSeriesInstanceUIDs;
            return 1;
        }
    std::unique_ptr<QR_MOVE_INFO> entry(new (std::nothrow) QR_MOVE_INFO(*info));
    if (!entry)
        return 0;
    aStudies.push_back(std::move(entry));
    return 1;
}

void QR_PATIENT_STUDY::ReadTagProc(TAG_HEADER* element, QR_PATIENT_STUDY* record)
{
    if (!element || !record)
        return;
    std::u16string* field = nullptr;
    const char* vr = nullptr;  // the fields translated under the record's character set
    switch ((static_cast<uint32_t>(element->wGroup) << 16) | element->wElement) {
    case 0x00080005: field = &record->sSpecificCharacterSet; break;
    case 0x00100010: field = &record->sPatientName; vr = "PN"; break;
    case 0x00100020: field = &record->sPatientID; vr = "LO"; break;
    case 0x00100030: field = &record->sPatientBirthDate; break;
    case 0x00100040: field = &record->sPatientSex; break;
    case 0x00080020: field = &record->sStudyDate; break;
    case 0x00080050: field = &record->sAccessionNumber; vr = "SH"; break;
    case 0x00200010: field = &record->sStudyID; vr = "SH"; break;
    case 0x0020000D: field = &record->sStudyInstanceUID; break;
    default: return;
    }
    DICOMINFO::GetStringTagValue(element, *field);
    // (0008,0005) comes first in tag order, so the set is known by now.
    if (vr)
        *field = CDicomItem::TranslateTagValueFromDicomToUnicode(ByteText(element), vr, record->sSpecificCharacterSet);
}

void QR_SERIES::ReadTagProc(TAG_HEADER* element, QR_SERIES* record)
{
    if (!element || !record)
        return;
    std::u16string* field = nullptr;
    switch ((static_cast<uint32_t>(element->wGroup) << 16) | element->wElement) {
    case 0x00080060: field = &record->sModality; break;
    case 0x00200011: field = &record->sSeriesNumber; break;
    case 0x0020000E: field = &record->sSeriesInstanceUID; break;
    case 0x00201209: field = &record->sNumberOfSeriesRelatedInstances; break;
    case 0x00180015: field = &record->sBodyPartExamined; break;
    case 0x00081030: field = &record->sDescription; break;
    default: return;
    }
    DICOMINFO::GetStringTagValue(element, *field);
}
