// Patient orientation labels and slice geometry.
#include "imageinfo/orientation.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <cstdlib>

#include "platform/text.h"

using namespace zeldicom;

namespace {

// The display transforms: invert the row direction, invert the column
// direction, then swap rows and columns.
struct Transform {
    bool invertRows, invertColumns, swap;
};
constexpr Transform kTransforms[8] = {
    {false, false, false}, {false, true, false}, {true, false, false}, {true, true, false},
    {false, true, true},   {false, false, true}, {true, true, true},  {true, false, true},
};
Transform TransformOf(int index)
{
    return index >= 0 && index < 8 ? kTransforms[index] : kTransforms[0];
}

// Each letter by its opposite: P/A, L/R, F/H.
std::u16string Opposite(const std::u16string& label)
{
    static const char16_t kFrom[] = u"PALRFH";
    static const char16_t kTo[] = u"APRLHF";
    std::u16string out = label;
    for (char16_t& c : out)
        for (int i = 0; i < 6; ++i)
            if (c == kFrom[i]) {
                c = kTo[i];
                break;
            }
    return out;
}

double NumberOf(const std::u16string& text)
{
    std::string ascii = WideToAscii(Trim(text));
    return std::strtod(ascii.c_str(), nullptr);
}

// A decimal number held as text with its sign inverted, digits kept.
std::u16string Negated(const std::u16string& value)
{
    std::u16string text = Trim(value);
    if (text.empty())
        return text;
    if (text[0] == u'-')
        return text.substr(1);
    if (text[0] == u'+')
        return u"-" + text.substr(1);
    return u"-" + text;
}

// PS3.3 C.7.6.1.1.1: an oblique direction lists its letters from the
// principal (largest) component down; components of 0.01 or less add none.
// Equal components keep the x, y, z order.
std::u16string Label(double x, double y, double z)
{
    struct Axis {
        double value;
        char16_t positive, negative;
    } axes[3] = {{x, u'L', u'R'}, {y, u'P', u'A'}, {z, u'H', u'F'}};
    std::stable_sort(std::begin(axes), std::end(axes),
                     [](const Axis& a, const Axis& b) { return std::fabs(a.value) > std::fabs(b.value); });
    std::u16string label;
    for (const Axis& axis : axes)
        if (axis.value > 0.01)
            label += axis.positive;
        else if (axis.value < -0.01)
            label += axis.negative;
    return label;
}

}  // namespace

bool CPatientOrientation::FromDicom(const std::string& text, int transform)
{
    std::u16string wide = AsciiToWide(text);
    sRight = Trim(GetField(wide, u'\\', 0));
    sBottom = Trim(GetField(wide, u'\\', 1));
    if (sRight.empty() || sBottom.empty()) {
        bLoaded = false;
        return false;
    }
    Transform t = TransformOf(transform);
    if (t.invertRows)
        sRight = Opposite(sRight);
    if (t.invertColumns)
        sBottom = Opposite(sBottom);
    if (t.swap)
        std::swap(sRight, sBottom);
    sTop = Opposite(sBottom);
    sLeft = Opposite(sRight);
    bLoaded = true;
    return true;
}

std::u16string CPatientOrientation::ToDicom() const
{
    return bLoaded ? sRight + u"\\" + sBottom : std::u16string();
}

bool CPatientOrientation::operator==(const CPatientOrientation& other) const
{
    return bLoaded == other.bLoaded && EqualsNoCase(sTop, other.sTop) && EqualsNoCase(sLeft, other.sLeft) &&
           EqualsNoCase(sRight, other.sRight) && EqualsNoCase(sBottom, other.sBottom);
}

bool CPatientOrientation::IsCompletelySpecifiedPatientOrientation() const
{
    for (const std::u16string* label : {&sTop, &sLeft, &sRight, &sBottom})
        if (label->empty() || EqualsNoCase(*label, u"X"))
            return false;
    return true;
}

int CPatientOrientation::Draw(COrientationCanvas& canvas, const ORIENTATION_RECT& rect) const
{
    if (!bLoaded)
        return 0x7FFFFFFF;
    canvas.SelectBoldFont(canvas.GetTextHeight() * 5 / 4);
    int lineHeight = canvas.GetTextHeight();
    int width = rect.right - rect.left;
    int height = rect.bottom - rect.top;
    canvas.ShadowTextOut(rect.left + (width - canvas.GetTextWidth(sTop)) / 2, rect.top, sTop);
    canvas.ShadowTextOut(rect.left + (width - canvas.GetTextWidth(sBottom)) / 2, rect.bottom - lineHeight, sBottom);
    auto column = [&](const std::u16string& label, bool right, int& smallest) {
        int top = rect.top + (height - lineHeight * static_cast<int>(label.size())) / 2;
        for (size_t i = 0; i < label.size(); ++i) {
            std::u16string one(1, label[i]);
            int x = right ? rect.right - 3 - canvas.GetTextWidth(one) : rect.left;
            canvas.ShadowTextOut(x, top + lineHeight * static_cast<int>(i), one);
            smallest = std::min(smallest, x - rect.left);
        }
    };
    int unused = 0;
    column(sLeft, false, unused);
    int smallest = width - 3;
    column(sRight, true, smallest);
    canvas.RestoreFont();
    return smallest;
}

std::u16string CPatientOrientation::ImageToPatientOrientation(const std::string& imageOrientation)
{
    std::u16string text = AsciiToWide(imageOrientation);
    double v[6];
    for (int i = 0; i < 6; ++i)
        v[i] = NumberOf(GetField(text, u'\\', i));
    std::u16string rows = Label(v[0], v[1], v[2]);
    std::u16string columns = Label(v[3], v[4], v[5]);
    if (rows.empty() || columns.empty())
        return {};
    return rows + u"\\" + columns;
}

bool CPatientOrientation::UpdateImageOrientation(std::u16string& orientation, int transform)
{
    if (CharCount(orientation, u'\\') < 5)
        return false;
    std::u16string v[6];
    for (int i = 0; i < 6; ++i)
        v[i] = i < 5 ? GetField(orientation, u'\\', i) : orientation.substr(static_cast<size_t>(CharIndex(orientation, u'\\', 4)) + 1);
    Transform t = TransformOf(transform);
    if (t.invertRows)
        for (int i = 0; i < 3; ++i)
            v[i] = Negated(v[i]);
    if (t.invertColumns)
        for (int i = 3; i < 6; ++i)
            v[i] = Negated(v[i]);
    if (t.swap)
        for (int i = 0; i < 3; ++i)
            std::swap(v[i], v[i + 3]);
    orientation = v[0];
    for (int i = 1; i < 6; ++i)
        orientation += u"\\" + v[i];
    return true;
}

bool CPatientOrientation::UpdateImagePosition(std::u16string& position, const std::u16string& orientation,
                                              int width, int height, const std::u16string& spacing, int transform)
{
    float p[3], o[6], s[2];
    for (int i = 0; i < 3; ++i)
        p[i] = static_cast<float>(NumberOf(GetField(position, u'\\', i)));
    for (int i = 0; i < 6; ++i)
        o[i] = static_cast<float>(NumberOf(GetField(orientation, u'\\', i)));
    for (int i = 0; i < 2; ++i)
        s[i] = static_cast<float>(NumberOf(GetField(spacing, u'\\', i)));
    if (s[0] == 0.0f || s[1] == 0.0f)
        return false;
    // PS3.3 C.7.6.2.1.1: Pixel Spacing is the spacing between rows, then
    // between columns. Along a row (the row vector) pixels lie one column
    // spacing apart, down a column one row spacing apart.
    Transform t = TransformOf(transform);
    if (t.invertRows)
        for (int i = 0; i < 3; ++i)
            p[i] += static_cast<float>(width - 1) * s[1] * o[i];
    if (t.invertColumns)
        for (int i = 0; i < 3; ++i)
            p[i] += static_cast<float>(height - 1) * s[0] * o[3 + i];
    if (!t.invertRows && !t.invertColumns)
        return false;
    position = FormatWide("%g\\%g\\%g", p[0], p[1], p[2]);
    return true;
}

bool CPatientOrientation::UpdatePixelSpacing(std::u16string& spacing, int transform)
{
    size_t backslash = spacing.find(u'\\');
    if (!TransformOf(transform).swap || backslash == std::u16string::npos || backslash == 0)
        return false;
    spacing = Trim(GetField(spacing, u'\\', 1)) + u"\\" + Trim(GetField(spacing, u'\\', 0));
    return true;
}

int CDicomConversion::ConvertToSigned(int bits, int value)
{
    if (bits <= 0 || bits > 31)
        return value;
    int64_t half = int64_t{1} << (bits - 1);
    return value < half ? value : static_cast<int>(value - (half << 1));
}

uint16_t CDicomConversion::ConvertIntToWord(int bits, bool isUnsigned, int value)
{
    if (bits <= 0 || bits > 16)
        bits = 16;
    int64_t range = int64_t{1} << bits;
    int64_t v = value;
    if (isUnsigned)
        return static_cast<uint16_t>(v < 0 ? 0 : v > range - 1 ? range - 1 : v);
    int64_t low = -(range / 2), high = range / 2 - 1;
    if (v < low)
        v = low;
    if (v > high)
        v = high;
    return static_cast<uint16_t>(v < 0 ? range + v : v);
}

namespace {
bool ReadValues(const std::u16string& text, double* out[], int count)
{
    if (CharCount(text, u'\\') < count - 1)
        return false;
    for (int i = 0; i < count; ++i) {
        std::u16string value = i < count - 1 ? GetField(text, u'\\', i)
                                             : text.substr(static_cast<size_t>(CharIndex(text, u'\\', count - 2)) + 1);
        *out[i] = NumberOf(value);
    }
    return true;
}
}  // namespace

bool CDicomConversion::GetSlicePosition(const std::u16string& text, double& x, double& y, double& z)
{
    double* out[] = {&x, &y, &z};
    return ReadValues(text, out, 3);
}

bool CDicomConversion::GetSliceOrientation(const std::u16string& text, double& rx, double& ry, double& rz,
                                           double& cx, double& cy, double& cz)
{
    double* out[] = {&rx, &ry, &rz, &cx, &cy, &cz};
    return ReadValues(text, out, 6);
}

std::u16string CDicomConversion::NormalizePatientName(const std::u16string& name)
{
    size_t end = name.size();
    while (end > 0 && (name[end - 1] == u'^' || name[end - 1] == u' '))
        --end;
    return name.substr(0, end);
}
