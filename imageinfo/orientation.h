#pragma once
// Patient orientation labels of the four image edges, the geometry updates
// that go with display flips, rotations and transposes, and small static
// conversions of pixel values and geometry texts.
#include <cstdint>
#include <string>

// Where the edge labels are drawn: the host's drawing context behind the
// few operations the labels need. Sizes are in device pixels.
class COrientationCanvas {
public:
    virtual ~COrientationCanvas() = default;
    // Height of a line of text in the current font.
    virtual int GetTextHeight() const = 0;
    // Selects a bold font of the given height (face "Arial", weight 700);
    // RestoreFont goes back to the font selected before.
    virtual void SelectBoldFont(int height) = 0;
    virtual void RestoreFont() = 0;
    virtual int GetTextWidth(const std::u16string& text) const = 0;
    // Draws text with a contrasting shadow, its top-left corner at (x, y).
    virtual void ShadowTextOut(int x, int y, const std::u16string& text) = 0;
};

struct ORIENTATION_RECT {
    int left, top, right, bottom;
};

class CPatientOrientation {
public:
    CPatientOrientation() = default;
    CPatientOrientation(const CPatientOrientation&) = default;
    CPatientOrientation& operator=(const CPatientOrientation&) = default;
    virtual ~CPatientOrientation() = default;

    // text: Patient Orientation (0020,0020); transform: 0 to 7 (see
    // orientation.cpp for the table of flips and swaps).
    bool FromDicom(const std::string& text, int transform);
    std::u16string ToDicom() const;
    bool IsLoad() const { return bLoaded; }
    std::u16string GetTopValue() const { return sTop; }
    std::u16string GetLeftValue() const { return sLeft; }
    std::u16string GetRightValue() const { return sRight; }
    std::u16string GetBottomValue() const { return sBottom; }
    bool operator==(const CPatientOrientation& other) const;
    bool IsCompletelySpecifiedPatientOrientation() const;
    // Draws the labels inside rect; returns the smallest offset from
    // rect.left at which a character of the right label was drawn
    // (rect width - 3 when it is empty), 0x7FFFFFFF when not loaded.
    int Draw(COrientationCanvas& canvas, const ORIENTATION_RECT& rect) const;

    // Patient Orientation derived from Image Orientation (Patient); empty
    // when either direction has no label.
    static std::u16string ImageToPatientOrientation(const std::string& imageOrientation);
    static bool UpdateImageOrientation(std::u16string& orientation, int transform);
    static bool UpdateImagePosition(std::u16string& position, const std::u16string& orientation, int width,
                                    int height, const std::u16string& spacing, int transform);
    static bool UpdatePixelSpacing(std::u16string& spacing, int transform);

    bool bLoaded = false;
    std::u16string sTop;
    std::u16string sLeft;
    std::u16string sRight;
    std::u16string sBottom;
};

class CDicomConversion {
public:
    static int ConvertToSigned(int bits, int value);
    static uint16_t ConvertIntToWord(int bits, bool isUnsigned, int value);
    static bool GetSlicePosition(const std::u16string& text, double& x, double& y, double& z);
    static bool GetSliceOrientation(const std::u16string& text, double& rx, double& ry, double& rz, double& cx,
                                    double& cy, double& cz);
    static std::u16string NormalizePatientName(const std::u16string& name);

protected:
    CDicomConversion() = default;
    ~CDicomConversion() = default;
};
