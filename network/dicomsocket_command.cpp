// Received command sets, the presentation context in use and the AE titles.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "dicomdata/bytecursor.h"
#include "imageinfo/dicominfo.h"
#include "network/dicomsocket.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

void StoreCommandElement(TAG_HEADER* element, void* message)
{
    CDicomSocket::CommandMessageProc(element, static_cast<DICOM_CMND_MSG*>(message));
}

// The command elements a message keeps (PS3.7 E.1), each into its field:
// text (at most width - 1 bytes, terminated, trailing blanks removed) or,
// with width 0, the first two value bytes as a number.
struct CommandField {
    uint16_t element;
    size_t offset, width;
};
#define ZD_TEXT(element, field) {element, offsetof(DICOM_CMND_MSG, field), sizeof(DICOM_CMND_MSG::field)}
#define ZD_NUMBER(element, field) {element, offsetof(DICOM_CMND_MSG, field), 0}
constexpr CommandField kCommandFields[] = {
    ZD_TEXT(0x0002, szAffectedSOPClassUID),
    ZD_TEXT(0x0003, szRequestedSOPClassUID),
    ZD_NUMBER(0x0100, wCommandField),
    ZD_NUMBER(0x0110, wMessageID),
    ZD_NUMBER(0x0120, wMessageIDBeingRespondedTo),
    ZD_TEXT(0x0600, szMoveDestination),
    ZD_NUMBER(0x0700, wPriority),
    ZD_NUMBER(0x0800, wDataSetType),
    ZD_NUMBER(0x0900, wStatus),
    ZD_TEXT(0x1000, szAffectedSOPInstanceUID),
    ZD_TEXT(0x1001, szRequestedSOPInstanceUID),
    ZD_NUMBER(0x1002, wEventTypeID),
    ZD_NUMBER(0x1020, wRemainingSubOperations),
    ZD_NUMBER(0x1021, wCompletedSubOperations),
    ZD_NUMBER(0x1022, wFailedSubOperations),
    ZD_NUMBER(0x1023, wWarningSubOperations),
    ZD_TEXT(0xFAFA, szExtraText),
};
#undef ZD_TEXT
#undef ZD_NUMBER

}

void CDicomSocket::StoreCommandValue(DICOM_CMND_MSG& message, uint16_t element, const unsigned char* value,
                                     uint32_t length, bool moveDestination)
{
    if (length == kUndefinedLength || (!value && length > 0) || (element == 0x0600 && !moveDestination))
        return;
    for (const CommandField& field : kCommandFields) {
        if (field.element != element)
            continue;
        auto* target = reinterpret_cast<unsigned char*>(&message) + field.offset;
        if (field.width == 0) {
            const uint16_t number = length >= 2 ? ByteCursor::loadUint16LE(value) : 0;
            std::memcpy(target, &number, sizeof number);
            return;
        }
        size_t count = std::min<size_t>(length, field.width - 1);
        if (count > 0)
            std::memcpy(target, value, count);
        target[count] = '\0';
        while (count > 0 && target[count - 1] == ' ')
            target[--count] = '\0';
        return;
    }
}

void CDicomSocket::CommandMessageProc(TAG_HEADER* element, DICOM_CMND_MSG* message)
{
    // The walkers hand over an element only when its whole value is there.
    if (element && message && element->wGroup == 0x0000)
        StoreCommandValue(*message, element->wElement, reinterpret_cast<const unsigned char*>(element) + sizeof(TAG_HEADER),
                          element->nLength);
}

void CDicomSocket::DecodeCommandSet(const unsigned char* bytes, int size, DICOM_CMND_MSG& message)
{
    std::memset(&message, 0, sizeof message);
    if (bytes && size > 0)
        DICOMINFO::ReadTags(bytes, size, StoreCommandElement, &message);
}

int CDicomSocket::ReadDicomGroup(uint16_t group, const unsigned char* buffer, int size,
                                 void (*callback)(TAG_HEADER*, void*), void* parameter)
{
    ByteCursor cursor(buffer, size > 0 ? static_cast<size_t>(size) : 0);
    uint16_t foundGroup = 0, element = 0;
    uint32_t length = 0, groupLength = 0;
    if (!cursor.peekUint16LE(0, foundGroup) || !cursor.peekUint16LE(2, element) || !cursor.peekUint32LE(4, length))
        return 0;
    if (foundGroup != group) {
        DicomTraceFormat("<ReadDicomGroup> Group 0x%X is different from 0x%X", foundGroup, group);
        return 0;
    }
    if (element != 0x0000 || length != 4 || !cursor.peekUint32LE(8, groupLength)) {
        DicomTraceFormat("<ReadDicomGroup> Size of the group 0x%X not found", group);
        return 0;
    }
    cursor.skip(12);
    uint64_t remaining = groupLength;
    while (remaining >= 9) {
        if (!cursor.peekUint16LE(0, foundGroup) || !cursor.peekUint16LE(2, element) ||
            !cursor.peekUint32LE(4, length) || length == kUndefinedLength || !cursor.has(8 + static_cast<size_t>(length)))
            return 0;
        if (foundGroup != group) {
            DicomTraceFormat("<ReadDicomGroup> Group number 0x%X is different from %X for the field %X", foundGroup,
                             group, element);
            return 0;
        }
        callback(reinterpret_cast<TAG_HEADER*>(const_cast<unsigned char*>(cursor.here())), parameter);
        cursor.skip(8 + static_cast<size_t>(length));
        remaining -= std::min<uint64_t>(remaining, 8 + static_cast<uint64_t>(length));
    }
    return 1;
}

int CDicomSocket::SetPresentationContext(unsigned char id)
{
    m_bBigEndian = m_bExplicitVR = 0;
    if (const CPresentationContext* context = m_AssociateData.GetPresContextByID(id)) {
        const std::string& syntax = context->m_sAcceptedTransferSyntax;
        if (syntax == "1.2.840.10008.1.2.1")
            m_bExplicitVR = 1;
        else if (syntax == "1.2.840.10008.1.2.2")
            m_bExplicitVR = m_bBigEndian = 1;
    }
    int previous = m_ucPresContextID;
    m_ucPresContextID = id;
    return previous;
}

std::u16string CDicomSocket::GetCalledAETitle() const
{
    return Trim(AsciiToWide(std::string(m_AssociateData.m_szCalledAETitle, strnlen(m_AssociateData.m_szCalledAETitle, 16))));
}

std::u16string CDicomSocket::GetCallingAETitle() const
{
    return Trim(AsciiToWide(std::string(m_AssociateData.m_szCallingAETitle, strnlen(m_AssociateData.m_szCallingAETitle, 16))));
}
