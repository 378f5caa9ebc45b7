// Windows, LUTs and overlays.
#include "imageinfo/lutoverlay.h"

#include <cstring>

#include "dicomdata/dicomitem.h"

namespace {

uint16_t Swapped(uint16_t value, int swap)
{
    return swap ? static_cast<uint16_t>((value >> 8) | (value << 8)) : value;
}

// A word of a value that may not be 2-byte aligned in the file image.
uint16_t WordAt(const uint16_t* values, size_t index, int swap)
{
    uint16_t value;
    std::memcpy(&value, reinterpret_cast<const unsigned char*>(values) + 2 * index, 2);
    return Swapped(value, swap);
}

// Copies count words (swapped as asked) into a new table of count + spare
// entries; null when the source holds fewer than count words.
std::unique_ptr<uint16_t[]> CopyWords(const uint16_t* values, uint32_t count, size_t available, int swap,
                                      uint32_t spare)
{
    if (!values || count > available)
        return nullptr;
    std::unique_ptr<uint16_t[]> table(new uint16_t[static_cast<size_t>(count) + spare]());
    std::memcpy(table.get(), values, static_cast<size_t>(count) * 2);
    if (swap)
        for (uint32_t i = 0; i < count; ++i)
            table[i] = Swapped(table[i], 1);
    return table;
}

// The entry for a stored value: below the first mapped value the first
// entry, past the table the last one. Signed LUTs compare the index and the
// first value mapped as two's complement numbers.
uint16_t LookUp(const uint16_t* table, uint32_t entries, uint32_t first, uint32_t index, bool isSigned)
{
    if (!table || entries == 0)
        return 0;
    int64_t value = isSigned ? static_cast<int32_t>(index) : static_cast<int64_t>(index);
    int64_t start = isSigned ? static_cast<int32_t>(first) : static_cast<int64_t>(first);
    if (value <= start)
        return table[0];
    int64_t offset = value - start;
    if (offset >= entries)
        return table[entries - 1];
    return table[offset];
}

}  // namespace

// --- DICOM_OVERLAY

DICOM_OVERLAY::DICOM_OVERLAY(const DICOM_OVERLAY& other)
{
    *this = other;
}

DICOM_OVERLAY& DICOM_OVERLAY::operator=(const DICOM_OVERLAY& other)
{
    if (this == &other)
        return *this;
    nIndex = other.nIndex;
    wRows = other.wRows;
    wColumns = other.wColumns;
    wPlanes = other.wPlanes;
    sType = other.sType;
    nOriginColumn = other.nOriginColumn;
    nOriginRow = other.nOriginRow;
    wBitsAllocated = other.wBitsAllocated;
    wBitPosition = other.wBitPosition;
    SetData(other.pData.get(), other.nDataSize);
    return *this;
}

void DICOM_OVERLAY::SetData(const unsigned char* bytes, int count)
{
    pData.reset();
    nDataSize = 0;
    if (!bytes || count <= 0)
        return;
    pData.reset(new unsigned char[static_cast<size_t>(count) + 1]());
    std::memcpy(pData.get(), bytes, static_cast<size_t>(count));
    nDataSize = count;
}

// --- DICOM_LUT

DICOM_LUT& DICOM_LUT::operator=(const DICOM_LUT& other)
{
    if (this == &other)
        return *this;
    nEntries = other.nEntries;
    nFirstMapped = other.nFirstMapped;
    wBits = other.wBits;
    LoadData(other.pData.get(), 0, other.pData ? other.nEntries : 0);
    return *this;
}

void DICOM_LUT::Free()
{
    pData.reset();
}

void DICOM_LUT::LoadDescriptor(const uint16_t* d, int swap)
{
    if (!d)
        return;
    nEntries = WordAt(d, 0, swap);
    nFirstMapped = WordAt(d, 1, swap);
    wBits = WordAt(d, 2, swap);
    if (nEntries == 0)
        nEntries = 65536;
}

int DICOM_LUT::LoadData(const uint16_t* values, int swap, size_t available)
{
    if (wBits != 16 && wBits != 8)
        return 0;
    Free();
    if (wBits == 16 || !values || available >= nEntries) {
        pData = CopyWords(values, nEntries, available, swap, 1);
        // 8-bit entries one a word: some writers put them in the high byte.
        bool highBytes = pData && wBits == 8;
        for (uint32_t i = 0; highBytes && i < nEntries; ++i)
            highBytes = (pData[i] & 0xFF) == 0;
        for (uint32_t i = 0; highBytes && i < nEntries; ++i)
            pData[i] = static_cast<uint16_t>(pData[i] >> 8);
        return pData ? 1 : 0;
    }
    // 8-bit entries packed two a word (pydicom's standard palettes, dcmquant):
    // entry 2k is the low byte of word k.
    if (available * 2 < nEntries)
        return 0;
    pData.reset(new uint16_t[static_cast<size_t>(nEntries) + 1]());
    for (uint32_t i = 0; i < nEntries; ++i)
        pData[i] = static_cast<uint16_t>((WordAt(values, i / 2, swap) >> (8 * (i % 2))) & 0xFF);
    return 1;
}

bool DICOM_LUT::SegmentWalk::next(uint16_t& out)
{
    if (read >= available)
        return false;
    if (bytes) {
        out = static_cast<uint16_t>((WordAt(values, read / 2, swap) >> (8 * (read % 2))) & 0xFF);
        ++read;
    } else {
        out = WordAt(values, read++, swap);
    }
    return true;
}

// PS3.3 C.7.9.2: segment types 0 (discrete), 1 (linear) and 2 (indirect).
int DICOM_LUT::LoadSegmentedData(const uint16_t* values, int swap, size_t available)
{
    if (wBits != 16 && wBits != 8)
        return 0;
    Free();
    if (!values)
        return 0;
    pData.reset(new uint16_t[static_cast<size_t>(nEntries) + 1]());
    // With 8-bit entries every opcode, length and value is one byte (the
    // standard palettes of PS3.6 Annex B).
    bool bytes = wBits == 8;
    SegmentWalk walk{values, bytes ? available * 2 : available, 0, swap, bytes};
    uint32_t written = 0;
    while (written < nEntries) {
        uint16_t opcode;
        bool ok = walk.next(opcode);
        if (ok)
            ok = opcode == 2 ? LoadSegmentIndirect(walk, written) : LoadSegmentDirect(opcode, walk, written);
        if (!ok) {
            Free();
            return 0;
        }
    }
    return 1;
}

bool DICOM_LUT::LoadSegmentDirect(uint16_t opcode, SegmentWalk& walk, uint32_t& written)
{
    if (opcode > 1)
        return false;
    uint16_t length;
    if (!walk.next(length))
        return false;
    if (opcode == 0) {
        for (uint32_t k = 0; k < length; ++k) {
            uint16_t value;
            if (written >= nEntries || !walk.next(value))
                return false;
            pData[written++] = value;
        }
        return true;
    }
    // A linear segment runs from the last value written; as the first
    // segment it has nothing to start from.
    if (written == 0)
        return false;
    uint16_t end;
    if (!walk.next(end))
        return false;
    int32_t y0 = pData[written - 1];
    int32_t y1 = end;
    int32_t steps = length;
    for (int32_t k = 1; k <= steps; ++k) {
        if (written >= nEntries)
            return false;
        // The nearest value, a half to the even neighbour, in both
        // directions (as pydicom expands them): rounding half up before a
        // truncating division put every value of a descending ramp one high.
        int64_t scaled = static_cast<int64_t>(y1 - y0) * k;
        int64_t step = scaled / steps, rest = scaled % steps;
        int64_t twice = 2 * (rest < 0 ? -rest : rest);
        if (twice > steps || (twice == steps && (y0 + step) % 2 != 0))
            step += scaled < 0 ? -1 : 1;
        pData[written++] = static_cast<uint16_t>(y0 + step);
    }
    return true;
}

bool DICOM_LUT::LoadSegmentIndirect(SegmentWalk& walk, uint32_t& written)
{
    uint16_t count, low, high;
    if (!walk.next(count) || !walk.next(low) || !walk.next(high))
        return false;
    size_t byteOffset = static_cast<size_t>(high) * 65536 + low;
    if (byteOffset % 2 != 0 || byteOffset / 2 > walk.available / (walk.bytes ? 2 : 1))
        return false;
    // The repeated segments start on a word; in bytes the walk counts from there.
    size_t skipped = walk.bytes ? byteOffset : byteOffset / 2;
    SegmentWalk repeat{walk.values + byteOffset / 2, walk.available - skipped, 0, walk.swap, walk.bytes};
    for (uint32_t i = 0; i < count; ++i) {
        uint16_t opcode;
        if (!repeat.next(opcode) || !LoadSegmentDirect(opcode, repeat, written))
            return false;
    }
    return true;
}

uint16_t DICOM_LUT::GetEntry(uint32_t index) const
{
    return LookUp(pData.get(), nEntries, nFirstMapped, index, false);
}

int DICOM_LUT::FillTable(uint16_t* out, uint32_t count) const
{
    if (!pData || !out)
        return 0;
    for (uint32_t i = 0; i < count; ++i)
        out[i] = GetEntry(i);
    return 1;
}

int DICOM_LUT::FillTable(uint8_t* out, uint32_t count) const
{
    if (!pData || !out)
        return 0;
    // The entry's most significant 8 bits.
    int shift = wBits > 8 ? wBits - 8 : 0;
    for (uint32_t i = 0; i < count; ++i)
        out[i] = static_cast<uint8_t>(GetEntry(i) >> shift);
    return 1;
}

// --- CModalityLutDesc

CModalityLutDesc& CModalityLutDesc::operator=(const CModalityLutDesc& other)
{
    if (this == &other)
        return *this;
    nEntries = other.nEntries;
    nFirstMapped = other.nFirstMapped;
    nBits = other.nBits;
    bSignedFirstMapped = other.bSignedFirstMapped;
    // A source without entries leaves none behind: the old ones described
    // another LUT.
    pData.reset();
    if (nBits == 16)
        pData = CopyWords(other.pData.get(), nEntries, other.pData ? other.nEntries : 0, 0, 0);
    return *this;
}

void CModalityLutDesc::LoadDescriptor(const uint16_t* d, int swap, bool signedFirst)
{
    if (!d)
        return;
    nEntries = WordAt(d, 0, swap);
    nFirstMapped = WordAt(d, 1, swap);
    bSignedFirstMapped = signedFirst;
    if (signedFirst)
        nFirstMapped = static_cast<uint32_t>(static_cast<int32_t>(static_cast<int16_t>(nFirstMapped)));
    nBits = WordAt(d, 2, swap);
    if (nEntries == 0)
        nEntries = 65536;
}

int CModalityLutDesc::LoadData(const uint16_t* values, int swap, size_t available)
{
    if (nBits != 16)
        return 0;
    pData.reset();
    pData = CopyWords(values, nEntries, available, swap, 0);
    return pData ? 1 : 0;
}

uint16_t CModalityLutDesc::GetEntry(uint32_t index) const
{
    return LookUp(pData.get(), nEntries, nFirstMapped, index, bSignedFirstMapped);
}

bool CModalityLutDesc::FillTable(uint16_t* out, uint32_t count) const
{
    if (!pData || !out)
        return false;
    for (uint32_t i = 0; i < count; ++i)
        out[i] = GetEntry(i);
    return true;
}

// --- CDicomOverlayDesc

CDicomOverlayDesc::CDicomOverlayDesc(const CDicomItem* item, int group)
{
    TryToLoadOverlayDesc(item, group);
}

void CDicomOverlayDesc::TryToLoadOverlayDesc(const CDicomItem* item, int group)
{
    bExists = false;
    if (!item)
        return;
    if (!item->GetTagValue(group, 0x0010, wRows) || !item->GetTagValue(group, 0x0011, wColumns))
        return;
    std::u16string type;
    if (!item->GetTagValue(group, 0x0040, type))
        return;
    if (type == u"G")
        nType = OVERLAY_GRAPHICS;
    else if (type == u"R")
        nType = OVERLAY_ROI;
    else
        return;
    const CDicomItem* origin = item->GetTagItem(group, 0x0050);
    int16_t row, column;
    if (!origin || origin->GetDataSize() < 4 || !origin->GetTagValueForSS(row, 0) ||
        !origin->GetTagValueForSS(column, 1))
        return;
    nOriginRow = row;
    nOriginColumn = column;
    if (!item->GetTagValue(group, 0x0100, wBitsAllocated) || !item->GetTagValue(group, 0x0102, wBitPosition))
        return;
    const CDicomItem* data = item->GetTagItem(group, 0x3000);
    bDataInGroup = data != nullptr;
    if (!data)
        data = item->GetTagItem(0x7FE0, 0x0010);
    if (!data)
        return;
    pData = data->GetData();
    nDataSize = data->GetDataSize() > 0 ? data->GetDataSize() : 0;
    bExists = true;
}

OVERLAY_RECT CDicomOverlayDesc::GetEnglobingRect() const
{
    return {nOriginColumn, nOriginRow, nOriginColumn + wColumns, nOriginRow + wRows};
}

bool COverlayActivation::GetOverlayActivationLayer(const CDicomItem* item, int group, std::u16string& layer)
{
    if (!item || !item->GetTagValue(group, 0x1001, layer))
        return false;
    return !layer.empty();
}
