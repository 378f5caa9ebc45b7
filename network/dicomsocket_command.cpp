// Received command sets, the presentation context in use and the AE titles.
#include <algorithm>
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

template <size_t N>
void Text(TAG_HEADER* element, char (&field)[N])
{
    DICOMINFO::GetStringTagValue(element, field, static_cast<int>(N));
}

}

void CDicomSocket::CommandMessageProc(TAG_HEADER* element, DICOM_CMND_MSG* message)
{
    if (!element || !message || element->wGroup != 0x0000)
        return;
    const unsigned char* value = reinterpret_cast<const unsigned char*>(element) + sizeof(TAG_HEADER);
    // The walkers hand over an element only when its whole value is there.
    uint16_t number = element->nLength >= 2 && element->nLength != kUndefinedLength ? ByteCursor::loadUint16LE(value) : 0;
    switch (element->wElement) {
    case 0x0002: Text(element, message->szAffectedSOPClassUID); break;
    case 0x0003: Text(element, message->szRequestedSOPClassUID); break;
    case 0x0100: message->wCommandField = number; break;
    case 0x0110: message->wMessageID = number; break;
    case 0x0120: message->wMessageIDBeingRespondedTo = number; break;
    case 0x0600: Text(element, message->szMoveDestination); break;
    case 0x0700: message->wPriority = number; break;
    case 0x0800: message->wDataSetType = number; break;
    case 0x0900: message->wStatus = number; break;
    case 0x1000: Text(element, message->szAffectedSOPInstanceUID); break;
    case 0x1001: Text(element, message->szRequestedSOPInstanceUID); break;
    case 0x1002: message->wEventTypeID = number; break;
    case 0x1020: message->wRemainingSubOperations = number; break;
    case 0x1021: message->wCompletedSubOperations = number; break;
    case 0x1022: message->wFailedSubOperations = number; break;
    case 0x1023: message->wWarningSubOperations = number; break;
    case 0xFAFA: Text(element, message->szExtraText); break;
    default: break;
    }
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
