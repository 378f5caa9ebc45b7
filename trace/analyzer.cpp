// The PDU analyser and the element dump of the protocol trace. Every field
// is read through the checked cursor or the PDU walkers: a length that runs
// past the block ends the analysis after the lines already written.
#include <algorithm>
#include <cstring>
#include <vector>

#include "dicomdata/bytecursor.h"
#include "dicomdata/byteorder.h"
#include "dicomdata/elementheader.h"
#include "dicomdata/tagtable.h"
#include "platform/resstring.h"
#include "platform/text.h"
#include "trace/dicomtrace.h"
#include "pdu/pdu.h"
#include "trace/vocabulary.h"

using namespace zeldicom;

namespace {

int Level() { return CDicomTraceSettings::g_nTraceLevel; }

// AE titles, UIDs and names are taken as raw characters, cut at a length
// that holds any UID with room to spare.
constexpr size_t kLongestField = 128;

std::string Field(const unsigned char* bytes, size_t length)
{
    return std::string(reinterpret_cast<const char*>(bytes), std::min(length, kLongestField));
}

// A UID field as a C string: up to its first zero byte.
std::string UidField(const unsigned char* bytes, size_t length)
{
    std::string text = Field(bytes, length);
    text.resize(std::strlen(text.c_str()));
    return text;
}

void Uid(const std::string& name, const char* tabs, const char* label, const unsigned char* value, size_t length)
{
    std::string uid = UidField(value, length);
    DicomTraceFormat("<%s>%s %s: %s", name.c_str(), tabs, label, uid.c_str());
    DicomTraceFormat("<%s>%s (%s)", name.c_str(), tabs, GetClearUID(uid).c_str());
}

void SubItemLine(const std::string& name, uint8_t type)
{
    DicomTraceFormat("<%s>\t\t\t SubItem Type: 0x%04X (%s)", name.c_str(), type, GetClearPduItemType(type).c_str());
}

void ItemLine(const std::string& name, uint8_t type)
{
    DicomTraceFormat("<%s>\t\t Item Type: 0x%04X (%s)", name.c_str(), type, GetClearPduItemType(type).c_str());
}

void FixedFields(const std::string& name, const unsigned char* body)
{
    int16_t version = static_cast<int16_t>((body[0] << 8) | body[1]);
    DicomTraceFormat("<%s>\t Protocol Version: 0x%04X (%d)", name.c_str(), static_cast<uint16_t>(version), version);
    DicomTraceFormat("<%s>\t Called App Title : %s", name.c_str(), Field(body + 4, 16).c_str());
    DicomTraceFormat("<%s>\t Calling App Title: %s", name.c_str(), Field(body + 20, 16).c_str());
}

// The user information sub-items; the request shows them all, the answer
// only maximum length and implementation class and version.
void UserInfo(const std::string& name, const pdu::Item& item, bool request)
{
    pdu::ItemWalker subItems(item.value, item.length);
    pdu::Item sub;
    while (subItems.Next(sub)) {
        SubItemLine(name, sub.type);
        ByteCursor value(sub.value, sub.length);
        if (sub.type == pdu::kMaxLengthSubItem) {
            uint32_t maximum = 0;
            if (value.readUint32BE(maximum))
                DicomTraceFormat("<%s>\t\t\t\t Maximum Length = 0x%04X (%d)", name.c_str(), maximum,
                                 static_cast<int>(maximum));
        } else if (sub.type == pdu::kImplementationClassSubItem) {
            DicomTraceFormat("<%s>\t\t\t\t Implementation Class: %s", name.c_str(),
                             Field(sub.value, sub.length).c_str());
        } else if (sub.type == pdu::kImplementationVersionSubItem) {
            DicomTraceFormat("<%s>\t\t\t\t Implementation Version Name: %s", name.c_str(),
                             Field(sub.value, sub.length).c_str());
        } else if (request && sub.type == pdu::kAsyncOperationsSubItem) {
            uint16_t invoked = 0, performed = 0;
            if (value.readUint16BE(invoked) && value.readUint16BE(performed)) {
                DicomTraceFormat("<%s>\t\t\t\t Max Async Oper Invoked = 0x%02X", name.c_str(), invoked);
                DicomTraceFormat("<%s>\t\t\t\t Max Async Oper Performed = 0x%02X", name.c_str(), performed);
            }
        } else if (request && sub.type == pdu::kRoleSelectionSubItem && sub.length >= 4) {
            // UID length field, UID, SCU role, SCP role (PS3.7 D.3.3.4).
            std::string uid = UidField(sub.value + 2, sub.length - 4u);
            DicomTraceFormat("<%s>\t\t\t\t Role Neotiation: SCU = 0x%02X, SCP = 0x%02X, SOP Class = %s",
                             name.c_str(), sub.value[sub.length - 2], sub.value[sub.length - 1], uid.c_str());
        }
    }
}

}

int AnalyzePduHeader(std::string name, const unsigned char* pdu, int size)
{
    pdu::Header header;
    if (Level() == 0 || size < 0 || !pdu::ReadHeader(pdu, static_cast<size_t>(size), header))
        return 1;
    DicomTraceFormat("<%s>\t PDU Type: 0x%04X (%s)", name.c_str(), header.type, GetClearPduType(header.type).c_str());
    if (Level() >= 2)
        DicomTraceFormat("<%s>\t PDU Length: 0x%08X (%d)", name.c_str(), header.length,
                         static_cast<int>(header.length));
    return 0;
}

int AnalyzeBlock(std::string name, const unsigned char* pdu, int size)
{
    if (Level() == 0 || !pdu || size < static_cast<int>(pdu::kHeaderSize))
        return 1;
    AnalyzePduHeader(name, pdu, size);
    pdu::Header header;
    pdu::ReadHeader(pdu, static_cast<size_t>(size), header);
    // A PDU whose length runs past the block is not looked into.
    if (header.length > static_cast<uint32_t>(size) - pdu::kHeaderSize)
        return 0;
    int whole = static_cast<int>(header.length + pdu::kHeaderSize);
    switch (header.type) {
    case pdu::kAssociateRq: AnalyzeBlockASSOCIATE_RQ(name, pdu + pdu::kHeaderSize, whole - 6); break;
    case pdu::kAssociateAc: AnalyzeBlockASSOCIATE_AC(name, pdu, whole); break;
    case pdu::kAssociateRj: AnalyzeBlockASSOCIATE_RJ(name, pdu, whole); break;
    case pdu::kReleaseRq: AnalyzeBlockRELEASE_RQ(name, pdu, whole); break;
    case pdu::kReleaseRp: AnalyzeBlockRELEASE_RP(name, pdu, whole); break;
    case pdu::kAbort:
        if (whole >= 10)
            DicomTraceFormat("<%s>\t Abort code: %d", name.c_str(), pdu[9]);
        break;
    default: break;
    }
    return 0;
}

int AnalyzeBlockASSOCIATE_RQ(std::string name, const unsigned char* body, int size)
{
    if (Level() < 2 || !body || size < static_cast<int>(pdu::kAssociateFixedSize))
        return 1;
    FixedFields(name, body);
    pdu::ItemWalker items(body + pdu::kAssociateFixedSize, static_cast<size_t>(size) - pdu::kAssociateFixedSize);
    pdu::Item item;
    while (items.Next(item)) {
        ItemLine(name, item.type);
        if (item.type == pdu::kApplicationContextItem) {
            Uid(name, "\t\t\t", "Application Context Name", item.value, item.length);
        } else if (item.type == pdu::kPresentationContextRqItem && item.length >= 4) {
            pdu::ItemWalker subItems(item.value + 4, item.length - 4u);
            pdu::Item sub;
            while (subItems.Next(sub)) {
                SubItemLine(name, sub.type);
                if (sub.type == pdu::kAbstractSyntaxSubItem)
                    Uid(name, "\t\t\t\t", "Abstract Syntax", sub.value, sub.length);
                else if (sub.type == pdu::kTransferSyntaxSubItem)
                    Uid(name, "\t\t\t\t", "Transfer Syntax", sub.value, sub.length);
            }
        } else if (item.type == pdu::kUserInfoItem) {
            UserInfo(name, item, true);
        }
    }
    return 1;
}

int AnalyzeBlockASSOCIATE_AC(std::string name, const unsigned char* pdu, int size)
{
    constexpr int kItemsStart = static_cast<int>(pdu::kHeaderSize + pdu::kAssociateFixedSize);
    if (Level() < 2 || !pdu || size < kItemsStart)
        return 1;
    FixedFields(name, pdu + pdu::kHeaderSize);
    pdu::ItemWalker items(pdu + kItemsStart, static_cast<size_t>(size - kItemsStart));
    pdu::Item item;
    while (items.Next(item)) {
        ItemLine(name, item.type);
        if (item.type == pdu::kPresentationContextAcItem && item.length >= 4) {
            int result = item.value[2];
            DicomTraceFormat("<%s>\t\t\t Result: 0x%04X (%s)", name.c_str(), result,
                             GetClearContextAck(result).c_str());
            // Only the first sub-item: the accepted transfer syntax.
            pdu::ItemWalker subItems(item.value + 4, item.length - 4u);
            pdu::Item sub;
            if (item.length - 4 > 4 && subItems.Next(sub)) {
                SubItemLine(name, sub.type);
                if (sub.type == pdu::kTransferSyntaxSubItem)
                    Uid(name, "\t\t\t\t", "Transfer Syntax", sub.value, sub.length);
            }
        } else if (item.type == pdu::kUserInfoItem) {
            UserInfo(name, item, false);
        }
    }
    return 1;
}

int AnalyzeBlockASSOCIATE_RJ(std::string name, const unsigned char* pdu, int size)
{
    if (Level() < 2 || !pdu || size < 10)
        return 1;
    A_ASSOCIATE_RJ rejection;
    std::memcpy(&rejection, pdu, sizeof rejection);
    DicomTraceFormat("<%s>\t\t Result: 0x%04X (%s)", name.c_str(), rejection.ucReason,
                     GetClearRejection(rejection).c_str());
    return 1;
}

int AnalyzeBlockRELEASE_RQ(std::string, const unsigned char*, int) { return 1; }
int AnalyzeBlockRELEASE_RP(std::string, const unsigned char*, int) { return 1; }

int AnalyzeBlockDATA_TF(std::string name, const unsigned char* pdu, int size)
{
    pdu::Header header;
    if (Level() == 0 || !pdu || size < 0 || !pdu::ReadHeader(pdu, static_cast<size_t>(size), header))
        return 1;
    size_t body = std::min<size_t>(header.length, static_cast<size_t>(size) - pdu::kHeaderSize);
    pdu::PdvWalker pdvs(pdu + pdu::kHeaderSize, body);
    pdu::Pdv pdv;
    while (pdvs.Next(pdv))
        DicomTraceAnalyzeBlock(name, pdv.fragment, pdv.fragmentLength, 0);
    return 1;
}

// --- the element dump

namespace {

// One element of a dumped block: its header as the element header reader
// of the parser decodes it, and its first value bytes as numbers.
struct DumpedElement {
    TAG_HEADER tag{};
    size_t headerSize = 8;
    uint32_t value32 = 0;
    uint16_t value16 = 0;
};

// The header at the cursor's position; false when fewer than 8 bytes remain.
// A block does not say how it is encoded: a header holding the letters of
// a VR is read in explicit VR (PS3.5 7.1.2), any other in implicit VR, and
// an explicit header cut short is read as implicit.
bool ReadDumpedElement(const ByteCursor& cursor, DumpedElement& out)
{
    if (!cursor.has(8))
        return false;
    const unsigned char* p = cursor.here();
    ByteCursor reader = cursor;
    ElementHeader header;
    if (!ReadElementHeader(reader, IsVRCode(p[4], p[5]), header))
        ReadElementHeader(reader, false, header);
    out.tag = {header.group, header.element, header.length};
    out.headerSize = header.headerSize;
    // The first value bytes as numbers; a shorter block gives its bytes only.
    out.value32 = 0;
    for (size_t i = 0; i < 4 && out.headerSize + i < cursor.remaining(); ++i)
        out.value32 |= static_cast<uint32_t>(p[out.headerSize + i]) << (8 * i);
    out.value16 = static_cast<uint16_t>(out.value32);
    return true;
}

// The block as little endian: a big endian one is converted on a copy by
// the data set converter (as far as it can be walked).
const unsigned char* LittleEndian(const unsigned char* data, uint32_t size, bool bigEndian,
                                  std::vector<unsigned char>& copy)
{
    if (!bigEndian)
        return data;
    copy.assign(data, data + size);
    ByteOrderFault fault;
    ConvertBigEndianDataSet(copy.data(), copy.size(), fault);
    return copy.data();
}

std::string ValueText(const TAGINFO& entry, const unsigned char* value, size_t available, uint32_t length,
                      const DumpedElement& header)
{
    size_t count = std::min<size_t>(length == kUndefinedLength ? 0 : length, available);
    std::string text = "???";
    switch (entry.nVR) {
    case VR_AE: case VR_AS: case VR_CS: case VR_DA: case VR_DS: case VR_DT: case VR_IS: case VR_LO:
    case VR_PN: case VR_SH: case VR_ST: case VR_TM: case VR_UI: {
        std::string raw(reinterpret_cast<const char*>(value), std::min<size_t>(count, 128));
        raw.resize(std::strlen(raw.c_str()));
        text = raw;
        break;
    }
    case VR_FL:
        if (count >= 4) {
            float f;
            std::memcpy(&f, value, 4);
            text = FormatText("%g", static_cast<double>(f));
        }
        break;
    case VR_FD:
        if (count >= 8) {
            double d;
            std::memcpy(&d, value, 8);
            text = FormatText("%g", d);
        }
        break;
    case VR_OB: case VR_UN:
        text.clear();
        for (size_t i = 0; i < std::min<size_t>(count, 64); ++i)
            text += FormatText("0x%02X ", value[i]);
        break;
    case VR_OW:
        text.clear();
        for (size_t i = 0; i + 2 <= std::min<size_t>(count, 32); i += 2)
            text += FormatText("0x%04X ", ByteCursor::loadUint16LE(value + i));
        break;
    case VR_SL: text = FormatText("0x%08X (%ld)", header.value32, static_cast<long>(static_cast<int32_t>(header.value32))); break;
    case VR_SS: text = FormatText("0x%04X (%hd)", header.value16, static_cast<short>(header.value16)); break;
    case VR_UL: text = FormatText("0x%08X (%lu)", header.value32, static_cast<unsigned long>(header.value32)); break;
    case VR_US: text = FormatText("0x%04X (%hu)", header.value16, static_cast<unsigned short>(header.value16)); break;
    default: break;
    }
    if (length == kUndefinedLength)
        return "(UNDEFINED LENGTH)";
    if (length == 0 || entry.nVR == VR_SQ)
        return "";
    return text;
}

}

std::string GetMoreInfoTag(TAG_HEADER header, const unsigned char* value)
{
    if (header.wGroup != 0x0000 || !value)
        return "";
    int number = ByteCursor::loadUint16LE(value);
    switch (header.wElement) {
    case 0x0100: return GetClearMessage(number);
    case 0x0700: return GetClearPriority(number);
    case 0x0800: return number == 0x0101 ? "NO DATA SET" : "DATA SET PRESENT";
    case 0x0900: return GetClearStatus(number);
    default: return "";
    }
}

int BlockLooksPureData(const unsigned char* data, uint32_t size, int bigEndian)
{
    if (!data)
        return 1;
    if (size >= 132 && std::memcmp(data + 128, "DICM", 4) == 0)
        return 0;
    std::vector<unsigned char> copy;
    DumpedElement header;
    if (!ReadDumpedElement(ByteCursor(LittleEndian(data, size, bigEndian != 0, copy), size), header))
        return 1;
    if (header.tag.wElement == 0 && header.tag.nLength == 0)
        return 1;
    return CTagTable::Find(header.tag.wGroup, header.tag.wElement) ? 0 : 1;
}

void DicomTraceAnalyzeBlock(std::string name, const unsigned char* data, uint32_t size, int bigEndian)
{
    if (Level() == 0 || !data || BlockLooksPureData(data, size, bigEndian))
        return;
    const std::string separator = "<" + name + ">\t " + std::string(91, '-');
    std::vector<unsigned char> copy;
    data = LittleEndian(data, size, bigEndian != 0, copy);
    ByteCursor cursor(data, size);
    if (size >= 132 && std::memcmp(data + 128, "DICM", 4) == 0) {
        if (Level() >= 2) {
            DicomTraceFormat("<%s>\t DICOM META HEADER", name.c_str());
            DicomTraceFormat("<%s>\t Preambule:", name.c_str());
            for (int row = 0; row < 4; ++row) {
                std::string hex;
                for (int i = 0; i < 32; ++i)
                    hex += FormatText("%02X ", data[row * 32 + i]);
                DicomTraceFormat("<%s>\t %s", name.c_str(), hex.c_str());
            }
            DicomTraceFormat("<%s>\t Prefix: 'DICM'", name.c_str());
        }
        cursor.skip(132);
    }
    if (Level() >= 2) {
        DicomTraceStr(separator);
        DicomTraceFormat("<%s>\t GROUP  FIELD DESCRIPTION                      VR SIZE   VALUE", name.c_str());
        DicomTraceStr(separator);
    }
    DumpedElement header;
    while (ReadDumpedElement(cursor, header)) {
        const TAG_HEADER& tag = header.tag;
        const TAGINFO* entry = CTagTable::Find(tag.wGroup, tag.wElement);
        size_t headerSize = std::min(header.headerSize, cursor.remaining());
        const unsigned char* value = cursor.here() + headerSize;
        size_t available = cursor.remaining() - headerSize;
        std::string description = "???", vr = "??", valueText = "???";
        if (entry) {
            description = WideToAscii(LoadResString(entry->nDescriptionId));
            vr = entry->szVR;
            valueText = ValueText(*entry, value, available, tag.nLength, header);
        } else if (tag.wGroup % 2 == 1) {
            description = "(Constructor Private Tag)";
        }
        std::string words = available >= 2 ? GetMoreInfoTag(tag, value) : "";
        if (Level() >= 2) {
            // The description column is 32 characters wide: a longer name is cut
            // so that VR, length and value stay in their columns.
            std::string line = FormatText("<%s>\t (%04X, %04X) %-32.32s %s 0x%04X ", name.c_str(), tag.wGroup,
                                          tag.wElement, description.c_str(), vr.c_str(), tag.nLength) +
                               valueText;
            if (!words.empty())
                line += " (" + words + ")";
            DicomTraceStr(line);
        } else if (tag.wGroup == 0x0000 && tag.wElement == 0x0100) {
            DicomTraceStr(FormatText("<%s>\t Command: ", name.c_str()) + valueText + " (" + words + ")");
        }
        // Sequences and items are entered: their elements follow at once.
        bool enter = tag.nLength == kUndefinedLength || (entry && entry->nVR == VR_SQ) ||
                     (tag.wGroup == 0xFFFE && (tag.wElement == 0xE000 || tag.wElement == 0xE00D || tag.wElement == 0xE0DD));
        if (!cursor.skip(headerSize) || (!enter && !cursor.skip(tag.nLength)))
            break;
    }
    if (Level() >= 2)
        DicomTraceStr(separator);
}
