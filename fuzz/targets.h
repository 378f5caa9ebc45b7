#pragma once
// The bodies of the fuzz targets. Each takes the raw input the way libFuzzer
// hands it over and drives the library's public API as a host would. The
// libFuzzer entry points (fuzz_*.cpp) and the regression test
// (tests/fuzz_regressions) call the same functions, so a saved crashing input
// replays through exactly the path that found it.
//
// A body returns 0 when the library behaved, and a non-zero Finding when it
// broke one of the invariants checked here; the entry points abort on a
// finding so that libFuzzer keeps the input.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "dicomdata/dicomitem.h"
#include "dicomdata/tagtable.h"
#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/xmlitem.h"

namespace zelfuzz {

enum Finding : int {
    kOk = 0,
    kValueOutsideInput = 1,    // an element's value pointer leaves the parsed bytes
    kConsumedTooMuch = 2,      // a parse reports more bytes than it was given
    kFrameTooLarge = 3,        // frame extraction wrote more than the capacity
    kRecalcDisagrees = 4,      // recalculated length differs from the bytes saved
    kReloadFailed = 5,         // the parser refuses what the encoder wrote
    kTreeDiffers = 6,          // the reloaded tree is not the saved tree
    kSaveFailed = 7,           // the encoder refused a parsed tree
    kPointerOutsideInput = 8,  // a raw scan answered a position outside the buffer
    kRecordOutsideInput = 9,   // the image record holds an offset or size beyond the input
};

// Group and element children are named gXXXX / eXXXX; everything else below
// a node ("VR", "Size", "Offset", ...) is an attribute.
inline bool IsTreeNode(const CXmlItem* node)
{
    const std::u16string& name = node->m_sName;
    return name.size() == 5 && (name[0] == u'g' || name[0] == u'e');
}

// Every value parsed (not copied) from the input must lie inside it, or
// inside the bytes that a node owns and parsed (an inflated or byte-swapped
// data set).
inline bool ValuesInside(const CDicomItem* node, const unsigned char* begin, size_t size)
{
    if (!node->IsToBeFree() && node->GetDataSize() > 0) {
        const unsigned char* value = node->GetData();
        if (!value || value < begin || static_cast<size_t>(value - begin) > size ||
            static_cast<size_t>(node->GetDataSize()) > size - static_cast<size_t>(value - begin))
            return false;
    }
    if (node->IsToBeFree() && node->GetDataSize() > 0) {
        begin = node->GetData();
        size = static_cast<size_t>(node->GetDataSize());
    }
    for (const CXmlItem* child : node->m_children)
        if (IsTreeNode(child) && !ValuesInside(static_cast<const CDicomItem*>(child), begin, size))
            return false;
    return true;
}

// Reads every element's value as text, the first thing a host does with a
// tree: this runs the value accessors and the character-set conversion over
// whatever the parser stored.
inline void ReadAllValues(const CDicomItem* node)
{
    for (const CXmlItem* child : node->m_children) {
        if (!IsTreeNode(child))
            continue;
        const auto* item = static_cast<const CDicomItem*>(child);
        if (item->m_sName[0] == u'e') {
            std::u16string text;
            item->GetTagValue(text);
            uint16_t number = 0;
            item->GetTagValue(number);
        }
        ReadAllValues(item);
    }
}

inline bool HasGroup7FE1(const CDicomItem* node)
{
    for (const CXmlItem* child : node->m_children) {
        if (!IsTreeNode(child))
            continue;
        if (child->m_sName == u"g7FE1" || HasGroup7FE1(static_cast<const CDicomItem*>(child)))
            return true;
    }
    return false;
}

// The parser files each element under the group node of its number, so a
// run whose groups interleave ("0008 FFFE 0008") is kept grouped. When the
// delimiter that ended a run lands in a group node that is not the last
// one, the encoder writes it before the groups behind it, and a second
// parse stops there: such a tree cannot come back the same.
inline bool DelimiterBeforeLastGroup(const CDicomItem* node)
{
    const CXmlItem* lastGroup = nullptr;
    const CXmlItem* delimiterGroup = nullptr;
    for (const CXmlItem* child : node->m_children) {
        if (!IsTreeNode(child))
            continue;
        if (child->m_sName[0] == u'g')
            lastGroup = child;
        for (const CXmlItem* element : child->m_children) {
            const std::u16string& name = element->m_sName;
            if ((child->m_sName == u"gFFFE" && (name == u"eE00D" || name == u"eE0DD")) ||
                (child->m_sName == u"gFFFC" && name == u"eFFFC"))
                delimiterGroup = child;
        }
        if (DelimiterBeforeLastGroup(static_cast<const CDicomItem*>(child)))
            return true;
    }
    return delimiterGroup && delimiterGroup != lastGroup;
}

// Same tree: the same group and element nodes in the same order, the same
// value sizes, and the same value bytes for every element whose value is
// not itself parsed into nodes (sequences and items are compared through
// their children, since their bytes were re-encoded).
inline bool SameTree(const CDicomItem* a, const CDicomItem* b)
{
    size_t i = 0, j = 0;
    for (;;) {
        while (i < a->m_children.size() && !IsTreeNode(a->m_children[i]))
            ++i;
        while (j < b->m_children.size() && !IsTreeNode(b->m_children[j]))
            ++j;
        if (i == a->m_children.size() || j == b->m_children.size())
            break;
        const auto* left = static_cast<const CDicomItem*>(a->m_children[i++]);
        const auto* right = static_cast<const CDicomItem*>(b->m_children[j++]);
        if (left->m_sName != right->m_sName || left->GetDataSize() != right->GetDataSize())
            return false;
        bool container = false;
        for (const CXmlItem* grandchild : left->m_children)
            container = container || IsTreeNode(grandchild);
        if (!container && left->GetDataSize() > 0 &&
            std::memcmp(left->GetData(), right->GetData(), static_cast<size_t>(left->GetDataSize())) != 0)
            return false;
        if (!SameTree(left, right))
            return false;
    }
    return i == a->m_children.size() && j == b->m_children.size();
}

inline int InputCount(size_t size)
{
    return size > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(size);
}

// LoadTags on a bounded run. First byte: bit 0 explicit VR, bit 1 read only
// group 0002 (the meta information filter); the run is the rest.
inline int LoadTagsTarget(const uint8_t* data, size_t size)
{
    if (size < 1)
        return kOk;
    bool explicitVR = (data[0] & 1) != 0;
    int groupFilter = (data[0] & 2) != 0 ? 0x0002 : -1;
    const unsigned char* run = data + 1;
    int count = InputCount(size - 1);
    CDicomItem dataSet(u"Data");
    uint32_t consumed = dataSet.LoadTags(run, count, explicitVR, groupFilter);
    if (consumed != 0xFFFFFFFFu && consumed > static_cast<uint32_t>(count))
        return kConsumedTooMuch;
    // What was built before a failure stays in the tree, so it is read too.
    if (!ValuesInside(&dataSet, run, static_cast<size_t>(count)))
        return kValueOutsideInput;
    ReadAllValues(&dataSet);
    return kOk;
}

// LoadObject on a whole buffer, as for a file image.
inline int LoadObjectTarget(const uint8_t* data, size_t size)
{
    CDicomItem root(u"Object");
    if (!root.LoadObject(data, InputCount(size)))
        return kOk;
    if (!ValuesInside(&root, data, size))
        return kValueOutsideInput;
    ReadAllValues(&root);
    return kOk;
}

// LoadObject of an explicit VR big endian data set (the input) behind a
// preamble and meta information that name that transfer syntax: the data
// set is converted to little endian in a copy and parsed; whatever loads is
// read and saved again (little endian).
inline int BigEndianTarget(const uint8_t* data, size_t size)
{
    static const char kSyntax[] = "1.2.840.10008.1.2.2";  // with its null, 20 bytes
    const uint8_t meta[] = {0x02, 0x00, 0x10, 0x00, 'U', 'I', 20, 0};
    std::unique_ptr<uint8_t[]> image(new uint8_t[132 + sizeof meta + 20 + size]);
    std::memset(image.get(), 0, 128);
    std::memcpy(image.get() + 128, "DICM", 4);
    std::memcpy(image.get() + 132, meta, sizeof meta);
    std::memcpy(image.get() + 132 + sizeof meta, kSyntax, 20);
    if (size > 0)
        std::memcpy(image.get() + 160, data, size);
    const size_t total = 160 + size;
    CDicomItem root(u"Object");
    root.SetKeepPartialLoad((size & 1) != 0);
    bool loaded = root.LoadObject(image.get(), InputCount(total));
    if (!ValuesInside(&root, image.get(), total))
        return kValueOutsideInput;
    if (!loaded)
        return kOk;
    ReadAllValues(&root);
    CDynBuffer saved;
    return root.SaveObject(CDynBuffer::WriteProc, &saved) ? kOk : kSaveFailed;
}

// Frame extraction from the pixel data element of a parsed data set.
// Byte 0: frame number (signed, so negative frames come up too); byte 1:
// output capacity; byte 2 bit 0: explicit VR. The run is the rest.
inline int FramesTarget(const uint8_t* data, size_t size)
{
    if (size < 3)
        return kOk;
    int frame = static_cast<int8_t>(data[0]);
    uint32_t capacity = data[1];
    bool explicitVR = (data[2] & 1) != 0;
    CDicomItem dataSet(u"Data");
    if (dataSet.LoadTags(data + 3, InputCount(size - 3), explicitVR, -1) == 0xFFFFFFFFu)
        return kOk;
    const CDicomItem* pixelData = dataSet.GetTagItem(0x7FE0, 0x0010);
    if (!pixelData)
        return kOk;
    // Exactly the capacity, on the heap, so that a write past it is caught.
    std::unique_ptr<unsigned char[]> out(new unsigned char[capacity == 0 ? 1 : capacity]);
    uint32_t written = pixelData->GetCompressedFrameData(frame, out.get(), capacity);
    return written > capacity ? kFrameTooLarge : kOk;
}

// Parse, recalculate, save into a CDynBuffer, parse the saved bytes again:
// the second tree must equal the first. Byte 0 bit 0: explicit VR.
inline int RoundTripTarget(const uint8_t* data, size_t size)
{
    if (size < 1)
        return kOk;
    bool explicitVR = (data[0] & 1) != 0;
    CDicomItem first(u"Data");
    if (first.LoadTags(data + 1, InputCount(size - 1), explicitVR, -1) == 0xFFFFFFFFu)
        return kOk;
    // Group 7FE1 is counted by the recalculation but never written, so a
    // tree holding it does not come back the same by design.
    if (HasGroup7FE1(&first) || DelimiterBeforeLastGroup(&first))
        return kOk;
    uint32_t expected = first.RecalcTags(explicitVR, 0);
    if (expected == 0xFFFFFFFFu)
        return kSaveFailed;
    CDynBuffer saved;
    uint32_t written = first.SaveTags(explicitVR, CDynBuffer::WriteProc, &saved);
    if (written == 0xFFFFFFFFu)
        return kSaveFailed;
    if (written != expected || written != saved.m_nSize)
        return kRecalcDisagrees;
    if (saved.m_nSize > 0x7FFFFFFF)
        return kOk;
    CDicomItem second(u"Data");
    uint32_t reread = second.LoadTags(saved.GetData(), static_cast<int>(saved.m_nSize), explicitVR, -1);
    if (reread == 0xFFFFFFFFu)
        return kReloadFailed;
    return SameTree(&first, &second) ? kOk : kTreeDiffers;
}

// The raw walkers over an implicit VR buffer, with the element callback a
// network receiver would use: it reads each value, takes string values as
// text, and walks sequences (dictionary VR SQ, or undefined length) with
// ReadSequence over the size CalcSequenceSize gives.
struct RawWalk {
    const unsigned char* begin;
    const unsigned char* end;
    int depth = 0;
    unsigned checksum = 0;
    int finding = kOk;
};

inline void RawWalkProc(TAG_HEADER* element, void* context)
{
    auto* walk = static_cast<RawWalk*>(context);
    const auto* header = reinterpret_cast<const unsigned char*>(element);
    // The walkers promise a whole header, and a whole value for a defined length.
    if (header < walk->begin || walk->end - header < 8) {
        walk->finding = kValueOutsideInput;
        return;
    }
    const unsigned char* value = header + 8;
    size_t available = static_cast<size_t>(walk->end - value);
    uint32_t length = element->nLength;
    if (length == kUndefinedLength) {
        int size = DICOMINFO::CalcSequenceSize(element, static_cast<int>(available));
        if (size > 0 && static_cast<size_t>(size) <= available && walk->depth < 32) {
            ++walk->depth;
            DICOMINFO::ReadSequence(value, size, RawWalkProc, walk);
            --walk->depth;
        }
        return;
    }
    if (length > available) {
        walk->finding = kValueOutsideInput;
        return;
    }
    for (uint32_t i = 0; i < length; ++i)
        walk->checksum += value[i];
    char text[16];
    DICOMINFO::GetStringTagValue(element, text, sizeof text);
    std::u16string wide;
    DICOMINFO::GetStringTagValue(element, wide);
    const char* vr = CTagTable::FindVR(element->wGroup, element->wElement);
    if (vr && std::strcmp(vr, "SQ") == 0 && walk->depth < 32) {
        ++walk->depth;
        DICOMINFO::ReadSequence(value, static_cast<int>(length), RawWalkProc, walk);
        --walk->depth;
    }
}

inline int RawWalkTarget(const uint8_t* data, size_t size)
{
    int count = InputCount(size);
    RawWalk walk{data, data + count};
    DICOMINFO::ReadTags(data, count, RawWalkProc, &walk);
    if (walk.finding != kOk)
        return walk.finding;
    CXmlItem display(u"DATA", u"", "ISO_IR 100");
    DICOMINFO::LoadDicomData(data, count, &display);
    return kOk;
}

// The raw scans of a buffer's start: meta information, encoding, and the
// element lookups. Bytes 0-3: the group and element looked up; the buffer
// is the rest.
struct MetaScanRecord : DICOMINFO {
    using DICOMINFO::ProcessMetaHeader;
};

inline int MetaScanTarget(const uint8_t* data, size_t size)
{
    if (size < 4)
        return kOk;
    uint16_t group = static_cast<uint16_t>(data[0] | (data[1] << 8));
    uint16_t element = static_cast<uint16_t>(data[2] | (data[3] << 8));
    const unsigned char* buffer = data + 4;
    size_t count = size - 4;
    auto inside = [&](const unsigned char* p) { return !p || (p >= buffer && p <= buffer + count); };

    DICOMINFO::HasDicomMetaHeader(buffer, count);
    if (DICOMINFO::GetMetaHeaderSize(buffer, count) > count)
        return kPointerOutsideInput;
    if (!inside(DICOMINFO::GetFirstTagAfterMetaHeader(buffer, count)))
        return kPointerOutsideInput;
    std::u16string text;
    if (!inside(DICOMINFO::GetDicomTag(buffer, count, group, element, text)))
        return kPointerOutsideInput;
    DICOMINFO::FindTag(buffer, count, group, element, text);
    if (count >= 8) {
        TAG_HEADER copy;
        std::memcpy(&copy, buffer, sizeof copy);
        DICOMINFO::CheckExplicitVR(&copy, reinterpret_cast<const TAG_HEADER*>(buffer), count < 12 ? count : 12);
    }
    MetaScanRecord record;
    bool changed = false;
    if (!inside(record.ProcessMetaHeader(buffer, count, changed)))
        return kPointerOutsideInput;
    return kOk;
}

// The defined terms of Specific Character Set (PS3.3 C.12.1.1.2) and a few
// labels that are not, as a damaged data set carries them.
inline constexpr const char16_t* kCharacterSetLabels[] = {
    u"", u"ISO_IR 6", u"ISO_IR 100", u"ISO_IR 101", u"ISO_IR 109", u"ISO_IR 110", u"ISO_IR 144", u"ISO_IR 127",
    u"ISO_IR 126", u"ISO_IR 138", u"ISO_IR 148", u"ISO_IR 203", u"ISO_IR 13", u"ISO_IR 166", u"ISO_IR 192",
    u"GB18030", u"GBK", u"ISO 2022 IR 6", u"ISO 2022 IR 100", u"ISO 2022 IR 101", u"ISO 2022 IR 109",
    u"ISO 2022 IR 110", u"ISO 2022 IR 144", u"ISO 2022 IR 127", u"ISO 2022 IR 126", u"ISO 2022 IR 138",
    u"ISO 2022 IR 148", u"ISO 2022 IR 203", u"ISO 2022 IR 13", u"ISO 2022 IR 166", u"ISO 2022 IR 87",
    u"ISO 2022 IR 159", u"ISO 2022 IR 149", u"ISO 2022 IR 58", u" ISO_IR 192 ", u"iso_ir 100", u"ISO_IR 999",
};
inline constexpr const char* kTextVRs[] = {"PN", "SH", "LO", "LT", "ST", "UT", "CS", "UI", "AE", "UN", "pn", ""};

// Text conversion of stored bytes under every character-set label, and
// back. Byte 0: the label; byte 1: the VR; the value bytes are the rest.
inline int TextTarget(const uint8_t* data, size_t size)
{
    if (size < 2)
        return kOk;
    constexpr size_t labels = sizeof kCharacterSetLabels / sizeof kCharacterSetLabels[0];
    constexpr size_t vrs = sizeof kTextVRs / sizeof kTextVRs[0];
    std::u16string label = kCharacterSetLabels[data[0] % labels];
    std::string vr = kTextVRs[data[1] % vrs];
    std::string bytes(reinterpret_cast<const char*>(data + 2), size - 2);
    std::u16string text = CDicomItem::TranslateTagValueFromDicomToUnicode(bytes, vr, label);
    std::string encoded = CDicomItem::TranslateTagValueFromUnicodeToDicom(text, vr, label);
    // The same bytes stored in an element of a data set with that label,
    // read through the element's own accessors.
    CDicomItem dataSet(u"Data");
    dataSet.m_sCharacterSet = std::string(label.begin(), label.end());
    std::u16string vrWide(vr.begin(), vr.end());
    if (CDicomItem* element = dataSet.AddTag(0x0010, 0x0010, bytes.data(), static_cast<int>(bytes.size()), vrWide)) {
        std::u16string read;
        element->GetTagValue(read);
        dataSet.Format(0x0010, 0x0010, read);
    }
    (void)encoded;
    return kOk;
}

// The image record of a whole object: every offset and size it keeps must
// lie inside the input, and every displayable attribute must format.
inline int ReadInfoTarget(const uint8_t* data, size_t size)
{
    DICOMINFO info;
    if (!info.ReadInfo(data, static_cast<uint32_t>(InputCount(size))))
        return kOk;
    if (info.nPixelDataOffset < 0 || static_cast<size_t>(info.nPixelDataOffset) > size)
        return kRecordOutsideInput;
    // One offset per frame: never more frames than the input could hold.
    if (info.nFrameOffsetCount > 0 && static_cast<size_t>(info.nFrameOffsetCount) > size + 2)
        return kRecordOutsideInput;
    for (const auto& overlay : info.aOverlays)
        if (overlay->nDataSize < 0 || static_cast<size_t>(overlay->nDataSize) > size)
            return kRecordOutsideInput;
    for (int i = 0; i < info.nLinkCount; ++i)
        info.GetTagValue(info.pLinks[i].nGroup, info.pLinks[i].nElement);
    return kOk;
}

struct OverlayRecord : DICOMINFO {
    using DICOMINFO::GetInfosFromGroupOverlays;
};

// The LUT and overlay readers. Byte 0 bit 0: swap; bit 1: explicit VR for
// the data set read from the rest; bytes 1-6: a LUT descriptor. The rest
// serves as LUT words (plain, segmented, modality) and as a data set whose
// overlay groups are read both ways.
inline int LutOverlayTarget(const uint8_t* data, size_t size)
{
    if (size < 7)
        return kOk;
    int swap = data[0] & 1;
    bool explicitVR = (data[0] & 2) != 0;
    uint16_t descriptor[3];
    std::memcpy(descriptor, data + 1, 6);
    const unsigned char* body = data + 7;
    size_t count = size - 7;
    // The words on the heap, exactly as many as there are, so that a read
    // past them is caught.
    std::unique_ptr<uint16_t[]> words(new uint16_t[count / 2 + 1]);
    std::memcpy(words.get(), body, count / 2 * 2);
    DICOM_LUT palette;
    palette.LoadDescriptor(descriptor, swap);
    palette.LoadData(words.get(), swap, count / 2);
    palette.LoadSegmentedData(words.get(), swap, count / 2);
    uint16_t table16[64];
    uint8_t table8[64];
    palette.FillTable(table16, 64);
    palette.FillTable(table8, 64);
    palette.GetEntry(0xFFFFFFFFu);
    DICOM_LUT copy(palette);
    CModalityLutDesc modality;
    modality.LoadDescriptor(descriptor, swap);
    modality.LoadData(words.get(), swap, count / 2);
    modality.FillTable(table16, 64);
    CModalityLutDesc modalityCopy(modality);

    CDicomItem dataSet(u"Data");
    if (dataSet.LoadTags(body, InputCount(count), explicitVR, -1) == 0xFFFFFFFFu)
        return kOk;
    OverlayRecord record;
    record.GetInfosFromGroupOverlays(&dataSet);
    for (const auto& overlay : record.aOverlays)
        if (static_cast<size_t>(overlay->nDataSize) > count)
            return kRecordOutsideInput;
    for (int group = 0x6000; group <= 0x601E; group += 2) {
        CDicomOverlayDesc desc(&dataSet, group);
        if (desc.Exists() && desc.GetData() && desc.GetDataSize() > 0 &&
            (desc.GetData() < body || desc.GetData() + desc.GetDataSize() > body + count))
            return kRecordOutsideInput;
        std::u16string layer;
        COverlayActivation::GetOverlayActivationLayer(&dataSet, group, layer);
    }
    return kOk;
}

}
