// Data set parsing: element headers, runs of elements with their sequences,
// items and encapsulated pixel data, and whole file images. Values are not
// copied: they point into the parsed buffer.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "dicomdata/bytecursor.h"
#include "dicomdata/byteorder.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/deflate.h"
#include "dicomdata/dictionary.h"
#include "dicomdata/elementheader.h"
#include "dicomdata/tagtable.h"
#include "dicomdata/vrtable.h"
#include "platform/datainmemory.h"
#include "platform/nodearena.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
constexpr uint32_t kFailed = 0xFFFFFFFFu;
constexpr const char16_t* kExplicitBigEndian = u"1.2.840.10008.1.2.2";

// Where the innermost failed parse stopped: the element's tag and first byte.
struct ParseFailure {
    const unsigned char* at = nullptr;
    uint16_t group = 0;
    uint16_t element = 0;
};
ParseFailure& LastParseFailure()
{
    thread_local ParseFailure failure;
    return failure;
}
uint32_t Failed(const unsigned char* at, uint16_t group, uint16_t element)
{
    ParseFailure& failure = LastParseFailure();
    if (!failure.at)
        failure = ParseFailure{at, group, element};
    return kFailed;
}
// Deeper nesting than this is taken as hostile input rather than a data set.
constexpr int kMaxDepth = 128;

// The "Size" attribute's text: the length as a signed decimal (-1 for undefined).
std::u16string SizeText(uint32_t length)
{
    int64_t value = static_cast<int32_t>(length);
    char16_t digits[12];
    char16_t* end = digits + 12;
    char16_t* p = end;
    uint64_t magnitude = value < 0 ? static_cast<uint64_t>(-value) : static_cast<uint64_t>(value);
    do {
        *--p = static_cast<char16_t>(u'0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude);
    if (value < 0)
        *--p = u'-';
    return std::u16string(p, end);
}

// PS3.5 6.1.2.5.3 / PS3.3 C.12.1.1.2: a sequence item with its own Specific
// Character Set (0008,0005) governs its own content, so relabelling a data
// set stops at such items (they were labelled when they were parsed).
void RelabelCharacterSet(CXmlItem& node, const std::string& characterSet)
{
    node.m_sCharacterSet = characterSet;
    bool itemGroup = node.m_sName == u"gFFFE";
    for (CXmlItem* child : node.m_children) {
        if (itemGroup && child->m_sName == u"eE000" &&
            !CDicomInfoStatics::ExtractCharacterSet(static_cast<CDicomItem*>(child)).empty())
            continue;
        RelabelCharacterSet(*child, characterSet);
    }
}

// An attribute child ("VR", "Size", "ParentVR") labelled like its element.
CDicomItem* NewAttribute(const char16_t* name, std::u16string value, const std::string& characterSet)
{
    auto* attribute = new CDicomItem(name, value);
    attribute->m_sCharacterSet = characterSet;
    return attribute;
}

std::u16string Widen(std::string_view letters)
{
    std::u16string wide;
    for (char c : letters)
        wide.push_back(static_cast<char16_t>(static_cast<unsigned char>(c)));
    return wide;
}

// Writer fault: UN written for standard elements. Their value is in implicit
// VR little endian (PS3.5 6.2.2), so the registry's VR reads it.
std::string_view RepairStandardUN(const ElementHeader& header, std::string_view vr, const CDicomItem* dataSet)
{
    if (vr != "UN" || (header.group & 1) != 0)
        return vr;
    const char* known = zeldicom::ElementVR(header.group, header.element, dataSet, false);
    return *known && std::strcmp(known, "UN") != 0 ? std::string_view(known) : vr;
}

// Writer fault: writers that drop elements from a directory record without
// fixing the item length leave the last item of a defined-length sequence
// claiming more than the sequence holds. The sequence length is the outer
// bound: the item is read up to the end of the sequence.
bool ClampItemToSequence(const ElementHeader& header, const CDicomItem& parent, bool bounded, uint32_t& length,
                         int64_t available)
{
    if (!header.isItem() || !bounded || parent.GetDataSize() < 0 || parent.GetVR() != "SQ")
        return false;
    length = static_cast<uint32_t>(available);
    return true;
}
}

int CDicomItem::GetLengthFormatByVR(uint16_t vr)
{
    return zeldicom::IsLongFormVR(static_cast<unsigned char>(vr & 0xFF), static_cast<unsigned char>(vr >> 8)) ? 32
                                                                                                      : 16;
}

bool CDicomItem::GetTagInfo(const TAG_HEADER_EX* header, bool explicitVR, std::u16string& vr, int& headerSize,
                            uint32_t& length, size_t available) const
{
    ByteCursor cursor(reinterpret_cast<const unsigned char*>(header), available);
    ElementHeader read;
    if (!ReadElementHeader(cursor, explicitVR, read))
        return false;
    length = read.length;
    headerSize = read.headerSize;
    // Implicit VR: the registry's VR, ambiguous ones resolved from this data
    // set (pixel data, for one, is OW in implicit VR: PS3.5 A.1).
    vr = read.hasVR() || read.group == 0xFFFE ? Widen(read.vrText())
                                               : AsciiToWide(zeldicom::ElementVR(read.group, read.element, this, true));
    return true;
}

uint32_t CDicomItem::LoadTags(const unsigned char* bytes, int count, bool explicitVR, int groupFilter)
{
    if (count != -1 && count <= 0)
        return 0;
    if (!bytes)
        return kFailed;
    NodeArenaScope arena;
    // A count of -1 trusts the caller that a delimiter ends the run.
    return ParseRun(bytes, count == -1 ? INT64_MAX : count, count != -1, explicitVR, groupFilter, 0);
}

uint32_t CDicomItem::ParseRun(const unsigned char* bytes, int64_t count, bool bounded, bool explicitVR,
                              int groupFilter, int depth, bool* endedAtDelimiter)
{
    if (depth > kMaxDepth)
        return Failed(bytes, 0, 0);
    // Unbounded runs (count INT64_MAX) end at their delimiter.
    ByteCursor cursor(bytes, static_cast<size_t>(count));
    size_t total = 0;
    CDicomItem* groupItem = nullptr;
    int currentGroup = -1;
    ElementHeader header;
    // The label of this run's own Specific Character Set, applied as soon as
    // the element is read, so that the nodes after it are created with it
    // instead of being relabelled in a second walk of the whole tree.
    // Only a node that this run fills from empty: the nodes of an earlier run
    // may carry another label.
    const bool freshNode = m_children.empty();
    bool labelledEarly = false;
    std::string earlyLabel;
    while (cursor.remaining() > 0) {
        const unsigned char* start = cursor.here();
        if (!ReadElementHeader(cursor, explicitVR, header)) {
            uint16_t group = 0, element = 0;
            if (!cursor.peekUint16LE(0, group) || !cursor.peekUint16LE(2, element))
                group = element = 0;
            if (cursor.has(8) && groupFilter >= 0 && group != groupFilter)
                break;
            return Failed(start, group, element);
        }
        const uint16_t group = header.group, element = header.element;
        if (groupFilter >= 0 && group != groupFilter)
            break;
        // Implicit VR: the registry's VR, ambiguous ones resolved from this
        // data set (pixel data, for one, is OW in implicit VR: PS3.5 A.1).
        std::string_view vr = header.hasVR() || group == 0xFFFE
                                  ? header.vrText()
                                  : std::string_view(zeldicom::ElementVR(group, element, this, true));
        bool undefined = header.undefinedLength();
        bool streamUN = header.isVR("UN");
        vr = RepairStandardUN(header, vr, this);
        // PS3.5 6.2.2: an unknown or UN element of undefined length is a
        // sequence whose items are encoded in implicit VR little endian.
        if (undefined && group != 0xFFFE && (vr.empty() || vr == "UN"))
            vr = "SQ";
        uint32_t length = header.length;
        const int64_t afterHeader = static_cast<int64_t>(cursor.remaining());
        bool fits = undefined || static_cast<int64_t>(length) <= afterHeader;
        bool isItem = header.isItem();
        if (!fits)
            fits = ClampItemToSequence(header, *this, bounded, length, afterHeader);

        if (group != currentGroup || !groupItem) {
            std::u16string name = GroupName(group);
            groupItem = static_cast<CDicomItem*>(GetChildItem(name));
            if (!groupItem) {
                groupItem = new CDicomItem(name);
                groupItem->m_sCharacterSet = m_sCharacterSet;
                AddItem(groupItem);
            }
            currentGroup = group;
        }
        auto* item = new CDicomItem(ElementName(element));
        item->m_children.reserve(isItem ? 3 : 2);  // "VR", "Size" (and "ParentVR")
        item->m_sCharacterSet = m_sCharacterSet;
        groupItem->AddItem(item);
        const unsigned char* value = cursor.here();
        if (undefined) {
            item->m_pData = value;
            item->m_nDataSize = -1;
        } else if (length != 0 && fits) {
            item->m_pData = value;
            item->m_nDataSize = static_cast<int>(length);
        }
        if (!vr.empty())
            item->AddItem(NewAttribute(u"VR", Widen(vr), m_sCharacterSet));
        if (length != 0)
            item->AddItem(NewAttribute(u"Size", SizeText(length), m_sCharacterSet));
        if (!fits && (vr == "SQ" || (isItem && GetVR() == "SQ"))) {
            // A cut-short sequence or item: what it holds up to the end is
            // read for display, and the innermost element that is cut names
            // where reading stopped.
            item->ParseRun(value, afterHeader, true, explicitVR, -1, depth + 1);
            return Failed(start, group, element);
        }
        if (!fits || (!undefined && length > INT32_MAX))
            return Failed(start, group, element);
        if (group == 0x0008 && element == 0x0005 && freshNode && !labelledEarly) {
            labelledEarly = true;
            earlyLabel = CDicomInfoStatics::ExtractCharacterSet(this);
            if (!earlyLabel.empty() && earlyLabel != m_sCharacterSet)
                RelabelCharacterSet(*this, earlyLabel);
        }

        // Which content is parsed further, and how.
        bool nested = false;
        bool nestedExplicit = explicitVR;
        if (isItem) {
            std::string parentVR = GetVR();
            if (!parentVR.empty())
                item->AddItem(NewAttribute(u"ParentVR", AsciiToWide(parentVR), m_sCharacterSet));
            nested = parentVR == "SQ";
        } else if (group == 0x7FE0 && element == 0x0010 && undefined) {
            nested = true;
        } else if (vr == "SQ") {
            nested = true;
            // An explicit UN sequence holds implicit VR items.
            if (streamUN && header.headerSize == 12)
                nestedExplicit = false;
        } else if (undefined && group != 0xFFFE) {
            return Failed(start, group, element);  // undefined length on a VR that cannot hold items
        }

        size_t valueBytes = undefined ? 0 : length;
        if (nested) {
            if (undefined) {
                bool delimited = false;
                uint32_t consumed = item->ParseRun(value, bounded ? afterHeader : INT64_MAX, bounded, nestedExplicit,
                                                   -1, depth + 1, &delimited);
                // A run of undefined length that ends before its delimiter is truncated.
                if (consumed == kFailed || !delimited)
                    return Failed(start, group, element);
                item->m_nParsedLength = consumed;
                valueBytes = consumed;
            } else if (length > 0) {
                if (item->ParseRun(value, length, true, nestedExplicit, -1, depth + 1) == kFailed)
                    return Failed(start, group, element);
            }
        }
        if (!cursor.skip(valueBytes) || cursor.position() > UINT32_MAX - 1)
            return Failed(start, group, element);
        total = cursor.position();
        if (header.isDelimiter()) {
            if (endedAtDelimiter)
                *endedAtDelimiter = true;
            break;
        }
    }
    // Nodes created after the early label carry it already; a label that is
    // not this run's own (an element read by an earlier run) needs the walk.
    std::string characterSet = CDicomInfoStatics::ExtractCharacterSet(this);
    if (!characterSet.empty() && !(labelledEarly && characterSet == earlyLabel))
        RelabelCharacterSet(*this, characterSet);
    return static_cast<uint32_t>(total);
}

bool CDicomItem::IsExplicitVR(const std::u16string& transferSyntax)
{
    return !EqualsNoCase(transferSyntax, std::u16string(u"1.2.840.10008.1.2"));
}

bool CDicomItem::IsBigEndian(const std::u16string& transferSyntax)
{
    return EqualsNoCase(transferSyntax, std::u16string(kExplicitBigEndian));
}

namespace {
// How the header at p is encoded, judged by the two bytes at its offset 4:
// 1 explicit (its dictionary VR letters), 0 implicit (the tag is known and
// those bytes are no VR code at all, so they are the low half of a length),
// -1 undecided (unknown tag, too few bytes, or another valid VR code such as
// the UN that some converters write for every standard element).
int HeaderEncoding(const unsigned char* p, int64_t remaining)
{
    if (remaining < 8)
        return -1;
    const TAGINFO* entry = CTagTable::Find(ByteCursor::loadUint16LE(p), ByteCursor::loadUint16LE(p + 2));
    if (!entry)
        return -1;
    if (p[4] == entry->szVR[0] && p[5] == entry->szVR[1])
        return 1;
    return zeldicom::IsVRCode(p[4], p[5]) ? -1 : 0;
}

}

bool CDicomItem::LoadFailed(int code, const std::string& text)
{
    m_LastError.Set(code, text);
    return false;
}

// Destroys what an earlier load put into this node: its "Header", "Data" and
// "File" children (the file image is the caller's to release afterwards).
void CDicomItem::RemoveLoadedObject()
{
    for (int i = GetChildCount() - 1; i >= 0; --i) {
        const std::u16string& name = m_children[static_cast<size_t>(i)]->m_sName;
        if (name == u"Header" || name == u"Data" || name == u"File")
            delete RemoveChildAt(i);
    }
}

bool CDicomItem::LoadObject(const unsigned char* bytes, int count)
{
    m_LastError.Clear();
    NodeArenaScope arena;
    m_pData = bytes;
    m_nDataSize = count;
    m_bToBeFree = false;
    if (!bytes || count <= 0)
        return LoadFailed(CLastError::kInvalidArgument, "no data");
    size_t size = static_cast<size_t>(count);
    bool part10 = size >= 132 && std::memcmp(bytes + 128, "DICM", 4) == 0;
    bool bareBigEndian = false;
    if (!part10) {
        ByteCursor start(bytes, size);
        uint16_t group = 0, element = 0;
        if (!start.peekUint16LE(0, group) || !start.peekUint16LE(2, element) || !start.has(8))
            return LoadFailed(CLastError::kNotDicom,
                              "no \"DICM\" prefix at offset 128 and too short for a data set (not DICOM)");
        // A bare data set (no preamble, no meta information) or meta
        // information without a preamble: accepted when the first element is
        // a standard attribute, read in little endian or, followed by VR
        // letters, in big endian.
        uint16_t swappedGroup = static_cast<uint16_t>(group << 8 | group >> 8);
        uint16_t swappedElement = static_cast<uint16_t>(element << 8 | element >> 8);
        bareBigEndian = !zeldicom::FindAttribute(group, element) && swappedGroup >= 0x0008 &&
                        zeldicom::IsVRCode(bytes[4], bytes[5]) && zeldicom::FindAttribute(swappedGroup, swappedElement);
        if (!bareBigEndian && (group < 0x0002 || group == 0xFFFE || !zeldicom::FindAttribute(group, element)))
            return LoadFailed(CLastError::kNotDicom,
                              "no \"DICM\" prefix at offset 128 and no data set at the start (not DICOM)");
    }
    auto header = std::make_unique<CDicomItem>(u"Header");
    auto data = std::make_unique<CDicomItem>(u"Data");
    const unsigned char* meta = part10 ? bytes + 132 : bytes;
    int64_t metaRemaining = static_cast<int64_t>(size) - (meta - bytes);
    uint32_t metaLength = 0;
    if (metaRemaining >= 2 && ByteCursor::loadUint16LE(meta) == 0x0002) {
        // Group 0002 is explicit VR by PS3.10 7.1; a few writers used implicit.
        bool metaExplicit = HeaderEncoding(meta, metaRemaining) != 0;
        metaLength = header->LoadTags(meta, static_cast<int>(metaRemaining), metaExplicit, 0x0002);
        // A damaged meta group: what parsed stays, nothing of it sets offsets.
        if (metaLength == kFailed)
            metaLength = 0;
    }
    bool bare = !part10 && metaLength == 0;
    if (part10) {
        header->m_pData = bytes;
        header->m_nDataSize = 132;
    } else if (!bare) {
        auto* head = static_cast<unsigned char*>(std::calloc(132, 1));
        if (!head)
            return LoadFailed(ENOMEM, "out of memory");
        std::memcpy(head + 128, "DICM", 4);
        header->SetData(head, 132, true);
    }
    std::u16string transferSyntax;
    if (!bare && header->GetTagValue(0x0002, 0x0010, transferSyntax))
        transferSyntax = Trim(transferSyntax);
    if (bareBigEndian) {
        transferSyntax = kExplicitBigEndian;
        header->InsertTag(0x0002, 0x0010, transferSyntax, u"UI");
    }
    if (!LoadDataSet(header.get(), data.get(), meta + metaLength, metaRemaining - metaLength, transferSyntax, bare)) {
        if (m_bKeepPartialLoad && data->GetChildCount() > 0) {
            // What was read stays for display; its values point into the
            // parsed bytes (the file image, or the inflated data set that
            // "Data" owns).
            RemoveLoadedObject();
            AddItem(header.release());
            AddItem(data.release());
        }
        return false;
    }
    if (bare) {
        // The meta information a Part 10 file of this data set carries.
        std::u16string sopClass, sopInstance;
        data->GetTagValue(0x0008, 0x0016, sopClass);
        data->GetTagValue(0x0008, 0x0018, sopInstance);
        std::u16string syntax;
        header->GetTagValue(0x0002, 0x0010, syntax);
        CDicomItem* made = CreateMetaHeader(Trim(sopClass), Trim(sopInstance), Trim(syntax));
        if (!made)
            return LoadFailed(ENOMEM, "out of memory");
        header.reset(made);
    }
    m_nDataSetOffset = (meta + metaLength) - bytes;
    m_bSourceBigEndian = IsBigEndian(transferSyntax);
    // The new object replaces whatever an earlier load left in this node.
    RemoveLoadedObject();
    AddItem(header.release());
    CDicomItem* dataSet = data.release();
    AddItem(dataSet);
    // A big endian data set's values stand in its converted copy, at the
    // same offsets.
    if (!m_bKeepStoredRecordOrder)
        dataSet->OrderDicomDirRecords(m_bSourceBigEndian ? dataSet->GetData() : bytes, size);
    // LoadTags has labelled the data set already; the root and the rest of
    // the tree (the meta information) take the same label.
    std::string characterSet = CDicomInfoStatics::ExtractCharacterSet(dataSet);
    if (!characterSet.empty()) {
        m_sCharacterSet = characterSet;
        for (CXmlItem* child : m_children)
            if (child != dataSet)
                RelabelCharacterSet(*child, characterSet);
    }
    return true;
}

bool CDicomItem::LoadDataSet(CDicomItem* header, CDicomItem* data, const unsigned char* body, int64_t size,
                             std::u16string transferSyntax, bool bare)
{
    int carries = HeaderEncoding(body, size);
    if (transferSyntax.empty()) {
        if (!bare && !header->GetTagItem(0x0002, 0x0010) && !header->GetGroupItem(0x0002))
            return LoadFailed(CLastError::kNotDicom, "no transfer syntax (0002,0010) in the file meta information");
        // No (0002,0010): the encoding is read from the first element, as a
        // data set without meta information is.
        bool explicitVR = carries == 1 || (carries == -1 && size >= 8 && zeldicom::IsVRCode(body[4], body[5]));
        transferSyntax = explicitVR ? u"1.2.840.10008.1.2.1" : u"1.2.840.10008.1.2";
        header->InsertTag(0x0002, 0x0010, transferSyntax, u"UI");
    }
    const unsigned char* parsed = body;
    // Whether an offset in the parsed bytes is one in the loaded bytes too
    // (a converted copy keeps every offset; an inflated data set does not).
    bool loadedOffsets = true;
    bool explicitVR = IsExplicitVR(transferSyntax);
    if (EqualsNoCase(transferSyntax, std::u16string(zeldicom::kDeflatedExplicitLittleEndian))) {
        size_t inflatedSize = 0;
        size_t compressed = size > 0 ? static_cast<size_t>(size) : 0;
        std::string error;
        unsigned char* inflated =
            zeldicom::InflateRaw(body, compressed, zeldicom::InflateLimit(compressed), inflatedSize, error);
        if (!inflated)
            return LoadFailed(CLastError::kMalformed, error);
        // The data set node owns the inflated bytes its elements point into.
        data->SetData(inflated, static_cast<int>(inflatedSize), true);
        parsed = inflated;
        loadedOffsets = false;
        size = static_cast<int64_t>(inflatedSize);
        explicitVR = true;
    } else if (IsBigEndian(transferSyntax)) {
        ByteOrderFault fault;
        if (!LoadBigEndianDataSet(data, body, size, parsed, fault)) {
            if (!parsed)
                return LoadFailed(ENOMEM, "out of memory");
            // What stands before the fault is shown, as for a damaged little
            // endian data set.
            if (m_bKeepPartialLoad)
                data->LoadTags(parsed, static_cast<int>(std::min<size_t>(fault.offset, INT32_MAX)), true, -1);
            return DataSetMalformed(fault.group, fault.element, fault.offset + static_cast<size_t>(body - m_pData),
                                    "");
        }
        explicitVR = true;
    } else {
        if (carries == 1) {
            explicitVR = true;
        } else if (carries == 0 && explicitVR) {
            explicitVR = false;
            if (CDicomItem* syntax = header->GetTagItem(0x0002, 0x0010))
                syntax->CopyData(u"1.2.840.10008.1.2");
        }
    }
    ParseFailure& failure = LastParseFailure();
    failure = ParseFailure{};
    m_bDataSetExplicitVR = explicitVR;
    uint32_t consumed = data->LoadTags(parsed, static_cast<int>(size), explicitVR, -1);
    // PS3.5 A.4: encapsulated pixel data is OB; an implicit VR data set under
    // an encapsulated transfer syntax does not say so itself.
    CDicomItem* pixels = data->GetTagItem(0x7FE0, 0x0010);
    if (pixels && !explicitVR && pixels->GetVR() == "OW" && !EqualsNoCase(transferSyntax, std::u16string(u"1.2.840.10008.1.2")) &&
        !EqualsNoCase(transferSyntax, std::u16string(u"1.2.840.10008.1.2.1")) &&
        !EqualsNoCase(transferSyntax, std::u16string(zeldicom::kDeflatedExplicitLittleEndian)))
        pixels->SetAttribute(u"VR", std::u16string(u"OB"));
    if (consumed == kFailed) {
        size_t offset = static_cast<size_t>((failure.at ? failure.at : parsed) - parsed);
        if (loadedOffsets)
            offset += static_cast<size_t>(body - m_pData);
        return DataSetMalformed(failure.group, failure.element, offset,
                                loadedOffsets ? "" : " of the inflated data set");
    }
    return true;
}

bool CDicomItem::DataSetMalformed(uint16_t group, uint16_t element, size_t offset, const char* where)
{
    return LoadFailed(CLastError::kMalformed, FormatText("the data set is malformed or truncated: reading stopped at "
                                                         "element (%04X,%04X), byte offset %zu%s",
                                                         group, element, offset, where));
}

// PS3.5 A.3 (retired): an explicit VR big endian data set cannot be read in
// place, since the tree's values are little endian. The whole loaded image is
// copied once, its data set converted in the copy (headers and values keep
// their offsets), and the copy, which "Data" owns, is parsed as explicit VR
// little endian. parsed is the data set in the copy (null when there is no
// memory for one).
bool CDicomItem::LoadBigEndianDataSet(CDicomItem* data, const unsigned char* body, int64_t size,
                                      const unsigned char*& parsed, ByteOrderFault& fault)
{
    parsed = nullptr;
    const size_t imageSize = static_cast<size_t>(m_nDataSize);
    const size_t start = static_cast<size_t>(body - m_pData);
    auto* copy = static_cast<unsigned char*>(std::malloc(imageSize > 0 ? imageSize : 1));
    if (!copy)
        return false;
    std::memcpy(copy, m_pData, imageSize);
    data->SetData(copy, static_cast<int>(imageSize), true);
    parsed = copy + start;
    return zeldicom::ConvertBigEndianDataSet(copy + start, static_cast<size_t>(size), fault);
}

bool CDicomItem::LoadObject(const std::u16string& path, bool flag)
{
    m_LastError.Clear();
    auto image = std::make_unique<CDataInMemory>(path, flag);
    if (!image->IsValid())
        return LoadFailed(image->GetErrorCode() != 0 ? image->GetErrorCode() : EIO, image->GetError());
    if (image->GetSize() > INT32_MAX)
        return LoadFailed(EFBIG, "file larger than 2 GiB");
    // A failed load leaves the node as it was, with the object and the file
    // image of an earlier load.
    const unsigned char* previousData = m_pData;
    int previousSize = m_nDataSize;
    if (!LoadObject(image->GetData(), static_cast<int>(image->GetSize()))) {
        if (m_bKeepPartialLoad && GetChildItem(std::u16string(u"Data"))) {
            // The partial tree kept for display points into this file image.
            delete m_pFileImage;
            m_pFileImage = image.release();
            return false;
        }
        m_pData = previousData;
        m_nDataSize = previousSize;
        return false;
    }
    // The tree of an earlier load is gone; its image may go too.
    delete m_pFileImage;
    m_pFileImage = image.release();
    auto* file = new CDicomItem(u"File", path);
    file->m_sCharacterSet = m_sCharacterSet;
    AddItem(file);
    return true;
}

int64_t CDicomItem::GetLoadedOffset(const unsigned char* value) const
{
    auto within = [value](const unsigned char* begin, int size) {
        return value && begin && size > 0 && value >= begin && value <= begin + size;
    };
    if (within(m_pData, m_nDataSize))
        return value - m_pData;
    const auto* data = static_cast<const CDicomItem*>(GetChildItem(std::u16string(u"Data")));
    if (m_bSourceBigEndian && data && within(data->m_pData, data->m_nDataSize))
        return value - data->m_pData;
    return -1;
}
