// Data set encoding in two passes: recalculation (defined sequence and item
// lengths, group lengths, the "Offset" of every element) and saving (headers
// and values handed to a writer callback in tree order). Also the whole
// object (preamble, meta information, data set); the DICOMDIR offsets are in
// dicomitem_dicomdir.cpp.
#include <cstring>

#include "dicomdata/deflate.h"
#include "dicomdata/dictionary.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/vrtable.h"
#include "platform/system.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
constexpr uint32_t kFailed = 0xFFFFFFFFu;
constexpr uint64_t kMaxTotal = 0xFFFFFFFEu;  // the largest count that is not the failure value

// The VR used in an explicit header: an element without "VR" goes out as
// UN, and so does a value too long for its VR's 16-bit length field.
std::string HeaderVR(const CDicomItem& item, int group, bool explicitVR)
{
    if (!explicitVR || group == 0xFFFE)
        return {};
    std::string vr = item.GetVR();
    if (vr.empty())
        return "UN";
    int size = item.GetDataSize();
    return size > 0 ? std::string(zeldicom::ExplicitHeaderVR(vr, static_cast<uint64_t>(size))) : vr;
}

int HeaderSize(const CDicomItem& item, int group, bool explicitVR)
{
    return zeldicom::IsLongFormVR(HeaderVR(item, group, explicitVR)) ? 12 : 8;
}

// Names the element that cannot be encoded: tag, keyword, VR, length and why.
std::string EncodingFailure(const CDicomItem& item, int group, int element, const char* why)
{
    const zeldicom::AttributeEntry* entry =
        zeldicom::FindAttribute(static_cast<uint16_t>(group), static_cast<uint16_t>(element));
    std::string vr = item.GetVR();
    std::string length = item.GetDataSize() < 0 ? std::string("undefined length")
                                                : FormatText("%d bytes", item.GetDataSize());
    return FormatText("(%04X,%04X)%s%s, VR %s, %s: %s", group, element, entry && *entry->keyword() ? " " : "",
                      entry ? entry->keyword() : "", vr.empty() ? "UN" : vr.c_str(), length.c_str(), why);
}

constexpr char kPast4GiB[] = "the data set would pass the 4 GiB that 32-bit lengths and offsets describe";

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
//
// A node whose encoding fails carries the reason in its GetLastError(), and
// so does every node above it up to the one the caller started from: the
// innermost element names the fault.

uint32_t CDicomItem::RecalcTags(bool explicitVR, uint32_t offset)
{
    m_LastError.Clear();
    uint64_t total = 0;
    for (CXmlItem* child : m_children) {
        if (ParseGroupName(child->m_sName) < 0)
            continue;
        auto* group = static_cast<CDicomItem*>(child);
        uint32_t bytes = group->RecalcGroup(explicitVR, offset + static_cast<uint32_t>(total));
        if (bytes == kFailed) {
            m_LastError = group->m_LastError;
            return kFailed;
        }
        total += bytes;
        if (total + offset > kMaxTotal)
            return kFailed;
    }
    return static_cast<uint32_t>(total);
}

uint32_t CDicomItem::RecalcGroup(bool explicitVR, uint32_t offset)
{
    m_LastError.Clear();
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
        auto* item = static_cast<CDicomItem*>(child);
        uint32_t bytes = item->RecalcTag(group, element, explicitVR, offset + static_cast<uint32_t>(total));
        if (bytes == kFailed) {
            m_LastError = item->m_LastError;
            return kFailed;
        }
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
    m_LastError.Clear();
    SetAttribute(u"Offset", static_cast<long>(offset));
    uint32_t headerSize = static_cast<uint32_t>(HeaderSize(*this, group, explicitVR));
    if (offset > kMaxTotal - headerSize)
        return EncodingFailed(group, element, kPast4GiB);
    bool sequence = GetVR() == "SQ";
    if (sequence || IsSequenceItem(*this, group, element) || IsEncapsulatedPixelData(*this, group, element)) {
        uint32_t content = RecalcTags(explicitVR, offset + headerSize);
        if (content == kFailed)
            return m_LastError.IsSet() ? kFailed : EncodingFailed(group, element, kPast4GiB);
        if (static_cast<uint64_t>(content) + headerSize + offset > kMaxTotal)
            return EncodingFailed(group, element, kPast4GiB);
        // Defined lengths of sequences and items follow their content;
        // undefined ones stay undefined. Encapsulated pixel data keeps -1.
        if (m_nDataSize != -1 && !IsEncapsulatedPixelData(*this, group, element)) {
            if (content > INT32_MAX)
                return EncodingFailed(group, element, "its items take more than 2 GiB");
            m_nDataSize = static_cast<int>(content);
        }
        return content + headerSize;
    }
    uint64_t valueSize = m_nDataSize > 0 ? static_cast<uint64_t>(m_nDataSize) : 0;
    if (offset + headerSize + valueSize > kMaxTotal)
        return EncodingFailed(group, element, kPast4GiB);
    return headerSize + static_cast<uint32_t>(valueSize);
}

uint32_t CDicomItem::EncodingFailed(int group, int element, const char* why)
{
    std::string text = EncodingFailure(*this, group, element, why);
    CAuditManager::GetUniqueInstance().LogError("CDicomItem::SaveTag", " " + text);
    m_LastError.Set(CLastError::kUnsupported, text);
    return kFailed;
}

// --- saving

uint32_t CDicomItem::SaveTags(bool explicitVR, DICOM_WRITER_PROC writer, void* context)
{
    m_LastError.Clear();
    uint64_t total = 0;
    for (CXmlItem* child : m_children) {
        int group = ParseGroupName(child->m_sName);
        // Group 7FE1 is never written (private pixel-related data of one maker).
        if (group < 0 || group == 0x7FE1)
            continue;
        auto* groupItem = static_cast<CDicomItem*>(child);
        uint32_t bytes = groupItem->SaveGroup(explicitVR, writer, context);
        if (bytes == kFailed) {
            m_LastError = groupItem->m_LastError;
            return kFailed;
        }
        total += bytes;
        if (total > kMaxTotal)
            return kFailed;
    }
    return static_cast<uint32_t>(total);
}

uint32_t CDicomItem::SaveGroup(bool explicitVR, DICOM_WRITER_PROC writer, void* context)
{
    m_LastError.Clear();
    int group = ParseGroupName(m_sName);
    if (group < 0)
        return kFailed;
    uint64_t total = 0;
    for (CXmlItem* child : m_children) {
        int element = ParseElementName(child->m_sName);
        if (element < 0)
            continue;
        auto* item = static_cast<CDicomItem*>(child);
        uint32_t bytes = item->SaveTag(group, element, explicitVR, writer, context);
        if (bytes == kFailed) {
            m_LastError = item->m_LastError;
            return kFailed;
        }
        total += bytes;
        if (total > kMaxTotal)
            return kFailed;
    }
    return static_cast<uint32_t>(total);
}

uint32_t CDicomItem::SaveTag(int group, int element, bool explicitVR, DICOM_WRITER_PROC writer, void* context)
{
    m_LastError.Clear();
    if (!writer)
        return kFailed;
    std::string vr = HeaderVR(*this, group, explicitVR);
    bool longForm = zeldicom::IsLongFormVR(vr);
    uint32_t size = static_cast<uint32_t>(m_nDataSize);  // -1 becomes 0xFFFFFFFF, undefined length
    bool nested = GetVR() == "SQ" || IsSequenceItem(*this, group, element) ||
                  IsEncapsulatedPixelData(*this, group, element);
    if (m_nDataSize > 0 && !m_pData && !nested)
        return EncodingFailed(group, element, "the value's bytes are missing");

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
        } else if (m_nDataSize < 0) {
            // Only sequences, items and encapsulated pixel data have an
            // undefined length, and they carry a 32-bit length field.
            return EncodingFailed(group, element, "an undefined length needs a VR with a 32-bit length field");
        } else {
            PutUint16(header + 6, size);
        }
    }
    if (writer(header, headerSize, context) == kFailed)
        return kFailed;

    if (nested) {
        uint32_t content = SaveTags(explicitVR, writer, context);
        if (content == kFailed || static_cast<uint64_t>(content) + headerSize > kMaxTotal)
            return kFailed;
        return content + headerSize;
    }

    if (m_nDataSize > 0) {
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

namespace {
// While it lives, the Transfer Syntax UID element given reads explicit VR
// little endian (the meta information is recalculated and written with it
// in place); then its own value again.
class LittleEndianStandIn {
public:
    explicit LittleEndianStandIn(CDicomItem* syntax) : m_syntax(syntax)
    {
        if (!m_syntax)
            return;
        m_value = m_syntax->m_pData;
        m_size = m_syntax->m_nDataSize;
        m_owned = m_syntax->m_bToBeFree;
        m_syntax->m_pData = reinterpret_cast<const unsigned char*>(kExplicitLittleEndian);
        m_syntax->m_nDataSize = sizeof(kExplicitLittleEndian) - 1;
        m_syntax->m_bToBeFree = false;
    }
    ~LittleEndianStandIn()
    {
        if (!m_syntax)
            return;
        m_syntax->m_pData = m_value;
        m_syntax->m_nDataSize = m_size;
        m_syntax->m_bToBeFree = m_owned;
    }
    LittleEndianStandIn(const LittleEndianStandIn&) = delete;
    LittleEndianStandIn& operator=(const LittleEndianStandIn&) = delete;

private:
    static constexpr char kExplicitLittleEndian[] = "1.2.840.10008.1.2.1\0";
    CDicomItem* m_syntax;
    const unsigned char* m_value = nullptr;
    int m_size = 0;
    bool m_owned = false;
};
}  // namespace

bool CDicomItem::SaveObject(DICOM_WRITER_PROC writer, void* context) const
{
    m_LastError.Clear();
    if (!writer)
        return false;
    bool explicitVR = false;
    bool deflated = false;
    bool bigEndian = false;
    uint32_t offset = 0;
    auto* header = static_cast<CDicomItem*>(GetChildItem(std::u16string(u"Header")));
    auto* data = static_cast<CDicomItem*>(GetChildItem(std::u16string(u"Data")));
    if (!data) {
        m_LastError.Set(CLastError::kInvalidArgument, "the object has no data set");
        return false;
    }
    // The encoder's reason, when a node has one; otherwise the writer refused the bytes.
    auto failed = [this](const CDicomItem& node) {
        if (node.m_LastError.IsSet())
            m_LastError.Set(node.m_LastError.GetCode(), "cannot encode " + node.m_LastError.GetText());
        else
            m_LastError.Set(CLastError::kRefused, "the output did not take the bytes");
        return false;
    };
    if (header) {
        if (header->m_nDataSize > 0) {
            if (!header->m_pData)
                return failed(*header);
            std::u16string transferSyntax;
            if (header->GetTagValue(0x0002, 0x0010, transferSyntax))
                transferSyntax = Trim(transferSyntax);
            else
                transferSyntax = u"1.2.840.10008.1.2";
            explicitVR = IsExplicitVR(transferSyntax);
            deflated = EqualsNoCase(transferSyntax, std::u16string(zeldicom::kDeflatedExplicitLittleEndian));
            bigEndian = IsBigEndian(transferSyntax);
            uint32_t size = static_cast<uint32_t>(header->m_nDataSize);
            if (writer(header->m_pData, size, context) == kFailed)
                return failed(*header);
            offset = size;
        }
        // PS3.5 A.3: explicit VR big endian is retired, and today's readers
        // expect little endian; the tree holds little endian values in any
        // case. An object read as big endian is written as explicit VR
        // little endian, and its meta information says so while it is written.
        LittleEndianStandIn standIn(bigEndian ? header->GetTagItem(0x0002, 0x0010) : nullptr);
        // The file meta information is always explicit VR little endian.
        uint32_t metaSize = header->RecalcTags(true, offset);
        if (metaSize == kFailed)
            return failed(*header);
        offset += metaSize;
        if (header->SaveTags(true, writer, context) == kFailed)
            return failed(*header);
    }
    if (data->RecalcTags(explicitVR, offset) == kFailed)
        return failed(*data);
    data->RecalcDicomDirOffsets();
    if (deflated) {
        // PS3.5 A.5: the data set goes out as one raw deflate stream.
        zeldicom::DeflateWriter compressor(writer, context);
        if (data->SaveTags(true, zeldicom::DeflateWriter::WriteProc, &compressor) == kFailed || !compressor.Finish())
            return failed(*data);
        return true;
    }
    return data->SaveTags(explicitVR, writer, context) != kFailed || failed(*data);
}
