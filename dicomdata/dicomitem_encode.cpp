// Data set encoding in two passes: recalculation (defined sequence and item
// lengths, group lengths, the "Offset" of every element) and saving (headers
// and values handed to a writer callback in tree order). Also the whole
// object (preamble, meta information, data set); the DICOMDIR offsets are in
// dicomitem_dicomdir.cpp.
#include <cstring>

#include "dicomdata/deflate.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/vrtable.h"
#include "platform/system.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
constexpr uint32_t kFailed = 0xFFFFFFFFu;
constexpr uint64_t kMaxTotal = 0xFFFFFFFEu;  // the largest count that is not the failure value

// The VR used in an explicit header: an element without "VR" goes out as UN.
std::string HeaderVR(const CDicomItem& item, int group, bool explicitVR)
{
    if (!explicitVR || group == 0xFFFE)
        return {};
    std::string vr = item.GetVR();
    return vr.empty() ? std::string("UN") : vr;
}

int HeaderSize(const CDicomItem& item, int group, bool explicitVR)
{
    return zeldicom::IsLongFormVR(HeaderVR(item, group, explicitVR)) ? 12 : 8;
}

bool IsSequenceItem(const CDicomItem& item, int group, int element)
{
    if (group != 0xFFFE || element != 0xE000)
        return false;
    const CXmlItem* parentVR = item.GetChildItem(std::u16string(u"ParentVR"));
    return parentVR && parentVR->m_sValue == u"SQ";
}

bool IsEncapsulatedPixelData(const CDicomItem& item, int group, int element)
{
    return group == 0x7FE0 && element == 0x0010 && item.GetDataSize() == -1;
}

void PutUint16(unsigned char* out, uint32_t value)
{
    out[0] = static_cast<unsigned char>(value);
    out[1] = static_cast<unsigned char>(value >> 8);
}

void PutUint32(unsigned char* out, uint32_t value)
{
    PutUint16(out, value & 0xFFFF);
    PutUint16(out + 2, value >> 16);
}

// Records another "WriteSize" after any earlier ones: each save adds one.
void AddWriteSize(CDicomItem& item, int size)
{
    const std::u16string name = u"WriteSize";
    int index = 0;
    while (index < item.GetChildCount() && item.m_children[static_cast<size_t>(index)]->m_sName <= name)
        ++index;
    auto* attribute = new CDicomItem(name, AsciiToWide(FormatText("%d", size)));
    attribute->m_sCharacterSet = item.m_sCharacterSet;
    item.InsertItem(index, attribute);
}

}

// --- recalculation

uint32_t CDicomItem::RecalcTags(bool explicitVR, uint32_t offset)
{
    uint64_t total = 0;
    for (CXmlItem* child : m_children) {
        if (ParseGroupName(child->m_sName) < 0)
            continue;
        uint32_t bytes = static_cast<CDicomItem*>(child)->RecalcGroup(explicitVR, offset + static_cast<uint32_t>(total));
        if (bytes == kFailed)
            return kFailed;
        total += bytes;
        if (total + offset > kMaxTotal)
            return kFailed;
    }
    return static_cast<uint32_t>(total);
}

uint32_t CDicomItem::RecalcGroup(bool explicitVR, uint32_t offset)
{
    int group = ParseGroupName(m_sName);
    if (group < 0)
        return kFailed;
    // The group length counts itself as a 4-byte value; a damaged one of
    // another size is given that size first so the offsets behind it hold.
    auto* groupLength = static_cast<CDicomItem*>(GetChildItem(std::u16string(u"e0000")));
    // An (gggg,0000) read as a sequence holds items, not a length: its
    // value is written from its items, so a length stored into it would
    // contradict the bytes written after its header.
    if (groupLength && groupLength->GetVR() == "SQ")
        groupLength = nullptr;
    if (groupLength && groupLength->m_nDataSize != 4) {
        const unsigned char zero[4] = {0, 0, 0, 0};
        groupLength->CopyData(zero, 4);
    }
    uint64_t total = 0;
    uint64_t lengthSum = 0;
    for (CXmlItem* child : m_children) {
        int element = ParseElementName(child->m_sName);
        if (element < 0)
            continue;
        uint32_t bytes = static_cast<CDicomItem*>(child)->RecalcTag(group, element, explicitVR,
                                                                    offset + static_cast<uint32_t>(total));
        if (bytes == kFailed)
            return kFailed;
        total += bytes;
        if (element != 0)
            lengthSum += bytes;
        if (total + offset > kMaxTotal)
            return kFailed;
    }
    if (groupLength) {
        unsigned char value[4];
        PutUint32(value, static_cast<uint32_t>(lengthSum));
        groupLength->CopyData(value, 4);
    }
    return static_cast<uint32_t>(total);
}

uint32_t CDicomItem::RecalcTag(int group, int element, bool explicitVR, uint32_t offset)
{
    SetAttribute(u"Offset", static_cast<long>(offset));
    uint32_t headerSize = static_cast<uint32_t>(HeaderSize(*this, group, explicitVR));
    if (offset > kMaxTotal - headerSize)
        return kFailed;
    bool sequence = GetVR() == "SQ";
    if (sequence || IsSequenceItem(*this, group, element) || IsEncapsulatedPixelData(*this, group, element)) {
        uint32_t content = RecalcTags(explicitVR, offset + headerSize);
        if (content == kFailed || static_cast<uint64_t>(content) + headerSize + offset > kMaxTotal)
            return kFailed;
        // Defined lengths of sequences and items follow their content;
        // undefined ones stay undefined. Encapsulated pixel data keeps -1.
        if (m_nDataSize != -1 && !IsEncapsulatedPixelData(*this, group, element)) {
            if (content > INT32_MAX)
                return kFailed;
            m_nDataSize = static_cast<int>(content);
        }
        return content + headerSize;
    }
    uint32_t valueSize = m_nDataSize > 0 ? static_cast<uint32_t>(m_nDataSize) : 0;
    return headerSize + valueSize;
}

// --- saving

uint32_t CDicomItem::SaveTags(bool explicitVR, DICOM_WRITER_PROC writer, void* context)
{
    uint64_t total = 0;
    for (CXmlItem* child : m_children) {
        int group = ParseGroupName(child->m_sName);
        // Group 7FE1 is never written (private pixel-related data of one maker).
        if (group < 0 || group == 0x7FE1)
            continue;
        uint32_t bytes = static_cast<CDicomItem*>(child)->SaveGroup(explicitVR, writer, context);
        if (bytes == kFailed)
            return kFailed;
        total += bytes;
        if (total > kMaxTotal)
            return kFailed;
    }
    return static_cast<uint32_t>(total);
}

uint32_t CDicomItem::SaveGroup(bool explicitVR, DICOM_WRITER_PROC writer, void* context)
{
    int group = ParseGroupName(m_sName);
    if (group < 0)
        return kFailed;
    uint64_t total = 0;
    for (CXmlItem* child : m_children) {
        int element = ParseElementName(child->m_sName);
        if (element < 0)
            continue;
        uint32_t bytes = static_cast<CDicomItem*>(child)->SaveTag(group, element, explicitVR, writer, context);
        if (bytes == kFailed)
            return kFailed;
        total += bytes;
        if (total > kMaxTotal)
            return kFailed;
    }
    return static_cast<uint32_t>(total);
}

uint32_t CDicomItem::SaveTag(int group, int element, bool explicitVR, DICOM_WRITER_PROC writer, void* context)
{
    if (!writer)
        return kFailed;
    std::string vr = HeaderVR(*this, group, explicitVR);
    bool longForm = zeldicom::IsLongFormVR(vr);
    uint32_t size = static_cast<uint32_t>(m_nDataSize);  // -1 becomes 0xFFFFFFFF, undefined length

    unsigned char header[12];
    PutUint16(header, static_cast<uint32_t>(group));
    PutUint16(header + 2, static_cast<uint32_t>(element));
    uint32_t headerSize = 8;
    if (vr.empty()) {
        PutUint32(header + 4, size);
    } else {
        // A VR that is not two letters leaves the VR field at 0x0000.
        header[4] = vr.size() == 2 ? static_cast<unsigned char>(vr[0]) : 0;
        header[5] = vr.size() == 2 ? static_cast<unsigned char>(vr[1]) : 0;
        if (longForm) {
            PutUint16(header + 6, 0);
            PutUint32(header + 8, size);
            headerSize = 12;
        } else if (m_nDataSize < 0 || m_nDataSize > 0xFFFF) {
            // A 16-bit length field cannot carry this size; writing its low
            // half would corrupt every element behind it.
            CAuditManager::GetUniqueInstance().LogError(
                "CDicomItem::SaveTag",
                FormatText(" (%04X,%04X) %s: a value of %d bytes does not fit the 16-bit length of explicit VR",
                           group, element, vr.c_str(), m_nDataSize));
            return kFailed;
        } else {
            PutUint16(header + 6, size);
        }
    }
    if (writer(header, headerSize, context) == kFailed)
        return kFailed;

    if (GetVR() == "SQ" || IsSequenceItem(*this, group, element) || IsEncapsulatedPixelData(*this, group, element)) {
        uint32_t content = SaveTags(explicitVR, writer, context);
        if (content == kFailed || static_cast<uint64_t>(content) + headerSize > kMaxTotal)
            return kFailed;
        return content + headerSize;
    }

    if (m_nDataSize > 0) {
        if (!m_pData)
            return kFailed;
        // Large values go out in pieces of the configured chunk size, so a
        // writer never has to take (or a file system call copy) more at once.
        uint64_t chunk = static_cast<uint64_t>(m_nCopyChunkSize > 0 ? m_nCopyChunkSize : 32) * 1048576u;
        uint64_t valueSize = static_cast<uint64_t>(m_nDataSize);
        if (valueSize < chunk) {
            if (writer(m_pData, static_cast<uint32_t>(valueSize), context) == kFailed)
                return kFailed;
        } else {
            const unsigned char* p = m_pData;
            for (uint64_t i = 0; i < valueSize / chunk; ++i, p += chunk)
                if (writer(p, static_cast<uint32_t>(chunk), context) == kFailed)
                    return kFailed;
            if (writer(p, static_cast<uint32_t>(valueSize % chunk), context) == kFailed)
                return kFailed;
        }
        AddWriteSize(*this, m_nDataSize);
    }
    uint64_t written = headerSize + static_cast<uint64_t>(m_nDataSize > 0 ? m_nDataSize : 0);
    return written > kMaxTotal ? kFailed : static_cast<uint32_t>(written);
}

// --- whole object

bool CDicomItem::SaveObject(DICOM_WRITER_PROC writer, void* context) const
{
    if (!writer)
        return false;
    bool explicitVR = false;
    bool deflated = false;
    uint32_t offset = 0;
    if (auto* header = static_cast<CDicomItem*>(GetChildItem(std::u16string(u"Header")))) {
        if (header->m_nDataSize > 0) {
            if (!header->m_pData)
                return false;
            std::u16string transferSyntax;
            if (header->GetTagValue(0x0002, 0x0010, transferSyntax))
                transferSyntax = Trim(transferSyntax);
            else
                transferSyntax = u"1.2.840.10008.1.2";
            explicitVR = IsExplicitVR(transferSyntax);
            deflated = EqualsNoCase(transferSyntax, std::u16string(zeldicom::kDeflatedExplicitLittleEndian));
            uint32_t size = static_cast<uint32_t>(header->m_nDataSize);
            if (writer(header->m_pData, size, context) == kFailed)
                return false;
            offset = size;
        }
        // The file meta information is always explicit VR little endian.
        uint32_t metaSize = header->RecalcTags(true, offset);
        if (metaSize == kFailed)
            return false;
        offset += metaSize;
        if (header->SaveTags(true, writer, context) == kFailed)
            return false;
    }
    auto* data = static_cast<CDicomItem*>(GetChildItem(std::u16string(u"Data")));
    if (!data)
        return false;
    if (data->RecalcTags(explicitVR, offset) == kFailed)
        return false;
    data->RecalcDicomDirOffsets();
    if (deflated) {
        // PS3.5 A.5: the data set goes out as one raw deflate stream.
        zeldicom::DeflateWriter compressor(writer, context);
        return data->SaveTags(true, zeldicom::DeflateWriter::WriteProc, &compressor) != kFailed &&
               compressor.Finish();
    }
    return data->SaveTags(explicitVR, writer, context) != kFailed;
}
