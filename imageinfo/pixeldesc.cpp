// Pixel description: photometric interpretation, spacing, aspect ratio,
// frame offsets, display size, image type label and G0 text.
#include <cstring>

#include "dicomdata/bytecursor.h"
#include "dicomdata/dicomitem.h"
#include "imageinfo/dicominfo.h"
#include "platform/mammography.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

struct PhotometricRow {
    const char16_t* text;
    DICOMINFO::PHOTOMETRIC value;
    const char16_t* writtenBack;
};

const PhotometricRow kPhotometrics[] = {
    {u"MONOCHROME1", DICOMINFO::MONOCHROME1, u"MONOCHROME1"},
    {u"MONOCHROME2", DICOMINFO::MONOCHROME2, u"MONOCHROME2"},
    {u"PALETTE COLOR", DICOMINFO::PALETTE_COLOR, u"PALETTE COLOR"},
    {u"RGB", DICOMINFO::RGB, u"RGB"},
    {u"YBR_FULL", DICOMINFO::YBR_FULL, u""},
    {u"YBR_FULL_422", DICOMINFO::YBR_FULL_422, u""},
    {u"YBR_RCT", DICOMINFO::YBR_RCT, u"YBR_RCT"},
    {u"YBR_ICT", DICOMINFO::YBR_ICT, u"YBR_ICT"},
};

}  // namespace

DICOMINFO::PHOTOMETRIC DICOMINFO::GetPhotometricIndex(const std::u16string& photometric,
                                                      const std::u16string& transferSyntax)
{
    std::u16string text = Trim(photometric);
    for (int i = 0; i < 6; ++i)
        if (EqualsNoCase(text, kPhotometrics[i].text))
            return kPhotometrics[i].value;
    // Reversible and irreversible colour transforms exist only inside JPEG 2000.
    std::u16string syntax = Trim(transferSyntax);
    if (EqualsNoCase(text, u"YBR_RCT") && EqualsNoCase(syntax, u"1.2.840.10008.1.2.4.90"))
        return YBR_RCT;
    if (EqualsNoCase(text, u"YBR_ICT") && EqualsNoCase(syntax, u"1.2.840.10008.1.2.4.91"))
        return YBR_ICT;
    return PHOTOMETRIC_OTHER;
}

std::u16string DICOMINFO::GetPhotometricString(PHOTOMETRIC photometric)
{
    for (const PhotometricRow& row : kPhotometrics)
        if (row.value == photometric)
            return row.writtenBack;
    return {};
}

void DICOMINFO::GetPixelSpacing(const CDicomItem* data, double& rowSpacing, double& columnSpacing)
{
    rowSpacing = columnSpacing = 0.0;
    if (!data)
        return;
    double magnification = 1.0;
    const CDicomItem* spacing = data->GetTagItem(0x0018, 0x1164);
    if (spacing) {
        float factor;
        const CDicomItem* magnificationItem = data->GetTagItem(0x0018, 0x1114);
        if (magnificationItem && magnificationItem->GetTagValueForDS(factor, 0))
            magnification = factor;
        if (magnification == 0.0)
            magnification = 1.0;
    } else {
        std::u16string modality, bodyPart;
        data->GetTagValue(0x0008, 0x0060, modality);
        data->GetTagValue(0x0018, 0x0015, bodyPart);
        // A mammography image without imager pixel spacing has no usable spacing.
        if (CMammoIHE::GetUniqueInstance()->IsMammo(modality, bodyPart))
            return;
        spacing = data->GetTagItem(0x0028, 0x0030);
    }
    float row, column;
    if (spacing && spacing->GetTagValueForDS(row, 0) && spacing->GetTagValueForDS(column, 1)) {
        rowSpacing = row / magnification;
        columnSpacing = column / magnification;
    }
}

void DICOMINFO::GetInfoFromPixelRatio(const CDicomItem* data)
{
    const CDicomItem* ratio = data ? data->GetTagItem(0x0028, 0x0034) : nullptr;
    int vertical, horizontal;
    if (ratio && ratio->GetTagValueForIS(vertical, 0) && ratio->GetTagValueForIS(horizontal, 1)) {
        nPixelAspectRatioV = vertical;
        nPixelAspectRatioH = horizontal;
    }
}

namespace {

// The fragments of encapsulated pixel data from the cursor on (right after
// the Basic Offset Table), up to the sequence delimiter or the end of the
// bytes: how many, and how many end a JPEG or JPEG 2000 codestream (EOI/EOC
// FFD9, perhaps padded with one zero byte). Fragment headers are little
// endian.
struct FragmentWalk {
    ByteCursor cursor;
    bool next(uint32_t& length, bool& endsFrame)
    {
        uint16_t group, element;
        if (!cursor.peekUint16LE(0, group) || !cursor.peekUint16LE(2, element) || !cursor.peekUint32LE(4, length) ||
            group != 0xFFFE || element != 0xE000 || !cursor.skip(8) || !cursor.has(length))
            return false;
        const unsigned char* value = cursor.here();
        uint32_t end = length >= 3 && value[length - 1] == 0 ? length - 1 : length;
        endsFrame = end >= 2 && value[end - 2] == 0xFF && value[end - 1] == 0xD9;
        cursor.skip(length);
        return true;
    }
};

// Frame offsets from the fragments: one fragment a frame when they are as
// many as the frames; otherwise a frame ends with each fragment that ends a
// codestream, when those are as many as the frames. False when neither holds.
bool FramesFromFragments(const ByteCursor& start, int64_t frames, uint32_t* offsets)
{
    if (frames == 1) {  // the one frame starts with the first fragment
        offsets[0] = 0;
        return true;
    }
    FragmentWalk walk{start};
    int64_t fragments = 0, ends = 0;
    uint32_t length;
    bool endsFrame = false, lastEnds = false;
    while (walk.next(length, endsFrame)) {
        ++fragments;
        ends += endsFrame ? 1 : 0;
        lastEnds = endsFrame;
    }
    bool oneEach = fragments == frames;
    if (!oneEach && !(fragments > frames && ends == frames && lastEnds))
        return false;
    walk = FragmentWalk{start};
    int64_t frame = 0;
    uint64_t running = 0;
    bool startsFrame = true;
    while (frame < frames && walk.next(length, endsFrame)) {
        if (startsFrame) {
            if (running > UINT32_MAX)
                return false;
            offsets[frame++] = static_cast<uint32_t>(running);
        }
        startsFrame = oneEach || endsFrame;
        running += static_cast<uint64_t>(length) + 8;
    }
    return frame == frames;
}

}  // namespace

int DICOMINFO::GetFramesOffsetTable(const unsigned char* value, size_t available)
{
    pFrameOffsets.reset();
    nFrameOffsetCount = 0;
    if (!value)
        return 0;
    int64_t frames = nNumberOfFrames > 0 ? nNumberOfFrames : 1;
    int64_t frameSize = static_cast<int64_t>(wSamplesPerPixel) * nBitsAllocated * nRows * nColumns / 8;
    // The frame count is believed only as far as the value can hold the
    // frames: whole frames for native data, one 8-byte item per frame for
    // encapsulated data. The table is never larger than that.
    bool native = nCompressionType == 0;
    uint64_t most = available == SIZE_MAX ? (1u << 24)
                    : native          ? (frameSize > 0 ? available / static_cast<uint64_t>(frameSize) : available)
                                      : available / 8;
    if (static_cast<uint64_t>(frames) > most && !(frames == 1 && available > 0))
        return 0;
    nFrameOffsetCount = static_cast<int>(frames) + 1;
    pFrameOffsets.reset(new uint32_t[static_cast<size_t>(nFrameOffsetCount)]());
    if (native) {
        for (int64_t i = 0; i < frames; ++i)
            pFrameOffsets[i] = static_cast<uint32_t>(i * frameSize);
        return 1;
    }
    if (nCompressionType < 1 || nCompressionType > 5)
        return 1;
    ByteCursor cursor(value, available);
    uint16_t group, element;
    uint32_t length;
    bool ok = bBigEndian ? cursor.readUint16BE(group) && cursor.readUint16BE(element) && cursor.readUint32BE(length)
                         : cursor.readUint16LE(group) && cursor.readUint16LE(element) && cursor.readUint32LE(length);
    if (!ok || group != 0xFFFE || element != 0xE000)
        return 0;
    uint32_t count = length / 4;
    if (length > 0 && length < 4) {
        std::u16string maker = sManufacturer.substr(0, 7);
        for (char16_t& c : maker)
            if (c >= u'a' && c <= u'z')
                c = static_cast<char16_t>(c - 32);
        if (maker == u"SIEMENS") {
            pFrameOffsets[0] = 0xFFFFFFFF;
            return 0;
        }
    }
    if (length >= 4 && static_cast<int64_t>(count) == frames && cursor.has(static_cast<size_t>(count) * 4)) {
        for (uint32_t i = 0; i < count; ++i) {
            uint32_t entry = 0;
            if (bBigEndian)
                cursor.readUint32BE(entry);
            else
                cursor.readUint32LE(entry);
            pFrameOffsets[i] = entry;
        }
        return 1;
    }
    // PS3.5 A.4: an empty Basic Offset Table, or one that does not hold one
    // entry a frame, leaves the frames to be found among the fragments.
    if (!cursor.skip(length))
        return 0;
    return FramesFromFragments(cursor, frames, pFrameOffsets.get()) ? 1 : 0;
}

ZOOM_SIZE DICOMINFO::CalcZoomSize(ZOOM_SIZE box) const
{
    int64_t columns = nColumns, rows = nRows;
    ZOOM_SIZE size{0, 0};
    if (columns <= 0 || rows <= 0)
        return size;
    if (columns * box.cy > rows * box.cx) {
        size.cx = (box.cx + 2) & ~3;
        size.cy = static_cast<int>(rows * box.cx / columns);
    } else {
        size.cy = box.cy;
        size.cx = static_cast<int>((columns * box.cy / rows + 2) & ~int64_t{3});
    }
    return size;
}

std::u16string DICOMINFO::GetDicomImageType(const unsigned char* buffer, size_t size)
{
    std::u16string text;
    GetDicomTag(buffer, size, 0x0008, 0x0008, text);
    size_t first = text.find(u'\\');
    if (first == std::u16string::npos)
        return text;
    std::u16string rest = text.substr(first + 1);
    size_t second = rest.find(u'\\');
    if (second == std::u16string::npos)
        return rest;
    rest = rest.substr(second + 1);
    size_t third = rest.find(u'\\');
    return third == std::u16string::npos ? rest : rest.substr(0, third);
}

std::u16string DICOMINFO::SetStringG0Compatible(const std::u16string& text, int maximum)
{
    std::u16string out = maximum != -1 && maximum >= 0 ? text.substr(0, static_cast<size_t>(maximum)) : text;
    for (char16_t& c : out) {
        if (c >= u'a' && c <= u'z')
            c = static_cast<char16_t>(c - 32);
        if (!((c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'_'))
            c = u'_';
    }
    return out;
}
