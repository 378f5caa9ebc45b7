// Building the file meta information (PS3.10 7.1) as the raw bytes of a
// file head (preamble, "DICM", group 0002 in explicit VR little endian); the
// "Header" node of an element tree is built by CDicomItem::CreateMetaHeader.
#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomtools.h"
#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

constexpr uint32_t kPreambleSize = 128;
constexpr unsigned char kMagic[4] = {'D', 'I', 'C', 'M'};

}

std::u16string DICOMINFO::DefaultImplementationVersionName()
{
    return AsciiToWide(FormatText("%d_%d_%d", s_nVersionMajor, s_nVersionMinor, s_nVersionRev));
}

uint32_t DICOMINFO::FillMetaHeaderBuffer(CDynBuffer& buffer, const metaHeaderInfo* info)
{
    if (!info)
        return buffer.m_nSize;
    AddTagExpVR(buffer, 0x0002, 0x0001, static_cast<uint16_t>(info->nMetaVersion & 0xFFFF));
    AddTagExpVR(buffer, 0x0002, 0x0002, info->sMediaStorageSOPClassUID);
    AddTagExpVR(buffer, 0x0002, 0x0003, info->sMediaStorageSOPInstanceUID);
    AddTagExpVR(buffer, 0x0002, 0x0010, info->sTransferSyntax);
    AddTagExpVR(buffer, 0x0002, 0x0012, info->sImplementationClassUID);
    AddTagExpVR(buffer, 0x0002, 0x0013, info->sImplementationVersionName);
    AddTagExpVR(buffer, 0x0002, 0x0016, info->sSourceAETitle);
    // (0002,0000) counts the bytes of the group that follow it.
    InsertTagExpVR(buffer, 0x0002, 0x0000, buffer.m_nSize, 0);
    buffer.Insert(kMagic, sizeof(kMagic), 0);
    buffer.Insert(nullptr, kPreambleSize, 0);
    return buffer.m_nSize;
}

uint32_t DICOMINFO::CreateMetaHeaderBuffer(CDynBuffer& buffer, const metaHeaderInfo* info)
{
    return FillMetaHeaderBuffer(buffer, info);
}

uint32_t DICOMINFO::CreateMetaHeaderBuffer(CDynBuffer& buffer) const
{
    metaHeaderInfo info;
    info.nMetaVersion = nMetaVersion;
    info.sMediaStorageSOPClassUID = sMediaStorageSOPClassUID;
    info.sMediaStorageSOPInstanceUID = sMediaStorageSOPInstanceUID;
    info.sTransferSyntax = sTransferSyntax;
    info.sImplementationClassUID = sImplementationClassUID;
    info.sImplementationVersionName = sImplementationVersionName;
    info.sSourceAETitle = sSourceAETitle;
    return FillMetaHeaderBuffer(buffer, &info);
}
