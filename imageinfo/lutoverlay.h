#pragma once
// Windows, LUTs and overlays: what a viewer needs to turn stored pixel values
// into displayed ones and to draw overlay planes (groups 6000 to 601E).
//
// LUT data are held as 16-bit words. Palettes take 8- and 16-bit entries
// (PS3.3 C.7.6.3.1.5), an 8-bit entry held in the low byte; the modality LUT
// takes 16-bit entries. A LUT whose descriptor announces another number of
// bits per entry is described but holds no data.
#include <cstdint>
#include <memory>
#include <string>

class CDicomItem;

// One alternative VOI window of an image.
struct WINDOW {
    WINDOW() = default;
    WINDOW(const WINDOW&) = default;
    WINDOW& operator=(const WINDOW&) = default;
    ~WINDOW() = default;

    std::u16string sExplanation;
    int nCenter = 0;
    int nWidth = 0;
    // The same values exact, as the object gives them.
    double dCenter = 0.0;
    double dWidth = 0.0;
};

// One overlay plane as read into the image record. pData owns a copy of
// (60xx,3000) with one spare byte behind it; copies duplicate the buffer.
struct DICOM_OVERLAY {
    explicit DICOM_OVERLAY(int index = 0) : nIndex(index) {}
    DICOM_OVERLAY(const DICOM_OVERLAY& other);
    DICOM_OVERLAY& operator=(const DICOM_OVERLAY& other);
    ~DICOM_OVERLAY() = default;

    // Replaces pData by a copy of count bytes.
    void SetData(const unsigned char* bytes, int count);

    int nIndex;  // overlay group minus 0x6000
    uint16_t wRows = 0;
    uint16_t wColumns = 0;
    uint16_t wPlanes = 1;
    std::u16string sType = u"G";
    int nOriginColumn = 1;
    int nOriginRow = 1;
    uint16_t wBitsAllocated = 0;
    uint16_t wBitPosition = 0;
    std::unique_ptr<unsigned char[]> pData;
    int nDataSize = 0;
};

// A palette colour LUT (red, green or blue), plain or segmented.
struct DICOM_LUT {
    DICOM_LUT() = default;
    DICOM_LUT(const DICOM_LUT& other) { *this = other; }
    DICOM_LUT& operator=(const DICOM_LUT& other);
    ~DICOM_LUT() = default;

    void Free();
    // d holds the three descriptor values: entries (0 meaning 65536), first
    // mapped value, bits per entry.
    void LoadDescriptor(const uint16_t* d, int swap);
    // The loaders read nEntries entries (plain) or walk segments; available
    // is the number of 16-bit words that values holds, and nothing is read
    // beyond it. They return 1 when data were loaded. 8-bit entries come one
    // a word or packed two a word, as the value's length tells; 8-bit
    // segmented data are a stream of bytes.
    int LoadData(const uint16_t* values, int swap, size_t available = SIZE_MAX);
    int LoadSegmentedData(const uint16_t* values, int swap, size_t available = SIZE_MAX);
    uint16_t GetEntry(uint32_t index) const;
    int FillTable(uint16_t* out, uint32_t count) const;
    int FillTable(uint8_t* out, uint32_t count) const;

    uint32_t nEntries = 4096;
    uint32_t nFirstMapped = 0;
    uint16_t wBits = 16;
    std::unique_ptr<uint16_t[]> pData;

protected:
    struct SegmentWalk {
        const uint16_t* values;
        size_t available;  // units in values
        size_t read;       // next unit to read
        int swap;
        bool bytes;  // units are bytes (8-bit entries), not words
        bool next(uint16_t& out);
    };
    bool LoadSegmentDirect(uint16_t opcode, SegmentWalk& walk, uint32_t& written);
    bool LoadSegmentIndirect(SegmentWalk& walk, uint32_t& written);
};

// The modality LUT (first item of (0028,3000)).
class CModalityLutDesc {
public:
    CModalityLutDesc() = default;
    CModalityLutDesc(const CModalityLutDesc& other) { *this = other; }
    CModalityLutDesc& operator=(const CModalityLutDesc& other);
    virtual ~CModalityLutDesc() = default;

    // PS3.3 C.11.1.1.1: with signed stored pixel values (Pixel
    // Representation 1) the first value mapped is signed; signedFirst reads
    // it so. nFirstMapped then holds it as a 32-bit two's complement, and
    // GetEntry takes its index, a stored value, as one too.
    void LoadDescriptor(const uint16_t* d, int swap, bool signedFirst = false);
    // available: the number of 16-bit words values holds.
    int LoadData(const uint16_t* values, int swap, size_t available = SIZE_MAX);
    const uint16_t* GetData() const { return pData.get(); }
    bool IsDataPresent() const { return pData != nullptr; }
    uint16_t GetEntry(uint32_t index) const;
    bool FillTable(uint16_t* out, uint32_t count) const;
    uint32_t GetSize() const { return nEntries; }
    uint32_t GetFirstEntry() const { return nFirstMapped; }
    bool IsFirstEntrySigned() const { return bSignedFirstMapped; }
    uint32_t GetBitsNumber() const { return nBits; }

    uint32_t nEntries = 0;
    uint32_t nFirstMapped = 0;
    uint32_t nBits = 0;
    std::unique_ptr<uint16_t[]> pData;
    bool bSignedFirstMapped = false;
};

struct OVERLAY_RECT {
    int left, top, right, bottom;
};

// An overlay described straight from an element tree; pData points into the
// tree and lives as long as it.
class CDicomOverlayDesc {
public:
    enum OVERLAY_TYPE { OVERLAY_GRAPHICS = 0, OVERLAY_ROI = 1 };

    CDicomOverlayDesc(const CDicomItem* item, int group);
    CDicomOverlayDesc(const CDicomOverlayDesc&) = default;
    CDicomOverlayDesc& operator=(const CDicomOverlayDesc&) = default;
    virtual ~CDicomOverlayDesc() = default;

    bool Exists() const { return bExists; }
    bool IsDataInGroup() const { return bDataInGroup; }
    const unsigned char* GetData() const { return pData; }
    // Bytes available at GetData().
    int GetDataSize() const { return nDataSize; }
    uint16_t GetBitPosition() const { return wBitPosition; }
    OVERLAY_TYPE GetOverlayType() const { return nType; }
    // 1-based image coordinates as stored; right and bottom are exclusive.
    OVERLAY_RECT GetEnglobingRect() const;

    bool bExists = false;
    uint16_t wRows = 0, wColumns = 0;
    OVERLAY_TYPE nType = OVERLAY_GRAPHICS;
    int nOriginColumn = 1, nOriginRow = 1;
    uint16_t wBitsAllocated = 0, wBitPosition = 0;
    const unsigned char* pData = nullptr;
    int nDataSize = 0;
    bool bDataInGroup = false;

protected:
    void TryToLoadOverlayDesc(const CDicomItem* item, int group);
};

class COverlayActivation {
public:
    // (group,1001) Overlay Activation Layer as text; true when not empty.
    static bool GetOverlayActivationLayer(const CDicomItem* item, int group, std::u16string& layer);

protected:
    COverlayActivation() = default;
    ~COverlayActivation() = default;
};
