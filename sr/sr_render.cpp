// Drawing a structured report as text lines: the header attributes, a blank
// line, the document title and every content item in document order. The
// layout is computed here; the context only measures and draws text.
#include <cstdint>

#include "dicomdata/dicomsettings.h"
#include "platform/text.h"
#include "sr/sr.h"

using namespace zeldicom;

namespace {

// Content deeper than this is not drawn: a tree built in memory has no
// parser depth limit, and the drawing recurses once per level.
constexpr int kMaxDrawDepth = 64;

struct HeaderTag {
    int group, element;
};
constexpr HeaderTag kHeaderTags[] = {
    {0x0010, 0x0010},  // Patient's Name
    {0x0010, 0x0020},  // Patient ID
    {0x0010, 0x0030},  // Patient's Birth Date
    {0x0010, 0x0040},  // Patient's Sex
    {0x0008, 0x0090},  // Referring Physician's Name
    {0x0008, 0x0023},  // Content Date
    {0x0008, 0x0033},  // Content Time
    {0x0040, 0xA491},  // Completion Flag
    {0x0040, 0xA493},  // Verification Flag
};

// The value split into its lines (CR, LF or CR LF end one; trailing empty
// lines dropped); other control characters become blanks so that a value
// cannot move the drawing position.
std::vector<std::u16string> SplitLines(const std::u16string& text)
{
    std::vector<std::u16string> lines(1);
    for (size_t i = 0; i < text.size(); ++i) {
        char16_t c = text[i];
        if (c == u'\r' || c == u'\n') {
            if (c == u'\r' && i + 1 < text.size() && text[i + 1] == u'\n')
                ++i;
            lines.emplace_back();
        } else {
            lines.back() += c < 0x20 || c == 0x7F ? u' ' : c;
        }
    }
    while (lines.size() > 1 && Trim(lines.back()).empty())
        lines.pop_back();
    return lines;
}

// The concept name as the reader sees it: the document's meaning, else the
// dictionary's, else the code value.
std::u16string ConceptName(const CDicomItem* node)
{
    std::string value, scheme, meaning;
    if (!CSR::GetCodeData(node, 0x0040, 0xA043, value, scheme, meaning))
        return {};
    if (meaning.empty())
        meaning = CSR::GetCodeMeaning(scheme, value, std::string());
    return Utf8ToUtf16(meaning.empty() ? value : meaning);
}

// The value of a DATE, TIME or DATETIME content item (PS3.3 C.17.3.2) in
// ISO 8601; false for other value types.
bool IsoContentValue(const CDicomItem* node, std::string& text)
{
    struct DateType {
        const char16_t* type;
        int element;
        const char* vr;
    };
    static constexpr DateType kTypes[] = {{u"DATE", 0xA121, "DA"}, {u"TIME", 0xA122, "TM"}, {u"DATETIME", 0xA120, "DT"}};
    std::u16string type, value;
    if (!node->GetTagValue(0x0040, 0xA040, type))
        return false;
    for (const DateType& row : kTypes)
        if (Trim(type) == row.type && node->GetTagValue(0x0040, row.element, value)) {
            text = Utf16ToUtf8(CDicomInfoStatics::FormatDateTimeIso(value, row.vr));
            return true;
        }
    return false;
}

}  // namespace

int CSR::DrawTextW(CSRDrawContext& context, const std::u16string& text, SR_EXTENT& extent)
{
    SR_EXTENT size = context.GetTextExtent(text);
    context.DrawText(0, extent.cy, text);
    extent.cy += size.cy;
    if (size.cx > extent.cx)
        extent.cx = size.cx;
    return size.cy;
}

void CSR::DrawNode(CSRDrawContext& context, const CDicomItem* node, SR_EXTENT& extent)
{
    DrawNode(context, node, SR_LAYOUT{}, 0, extent);
}

void CSR::DrawNode(CSRDrawContext& context, const CDicomItem* node, const SR_LAYOUT& layout, int depth,
                   SR_EXTENT& extent)
{
    if (!node)
        return;
    std::u16string indent = layout.bIndent ? std::u16string(static_cast<size_t>(depth) * 2, u' ') : std::u16string();
    std::u16string line = SplitLines(ConceptName(node)).front();
    std::u16string relationship;
    if (layout.bRelationship && node->GetTagValue(0x0040, 0xA010, relationship) && !Trim(relationship).empty())
        line = u"(" + Trim(relationship) + u")" + (line.empty() ? u"" : u" ") + line;
    line = indent + line;
    std::string value;
    std::vector<std::u16string> valueLines;
    if ((layout.bIsoDates && IsoContentValue(node, value)) || GetNodeDisplayText(node, value)) {
        valueLines = SplitLines(Utf8ToUtf16(value));
        line += u" : " + valueLines.front();
    }
    DrawTextW(context, line, extent);
    for (size_t i = 1; i < valueLines.size(); ++i)
        DrawTextW(context, valueLines[i].empty() ? valueLines[i] : indent + (layout.bIndent ? u"  " : u"") + valueLines[i],
                  extent);

    std::vector<CDicomItem*> children = GetChildNodes(node);
    if (!children.empty() && depth + 1 > kMaxDrawDepth) {
        DrawTextW(context, indent + u"...", extent);
        return;
    }
    for (const CDicomItem* child : children)
        DrawNode(context, child, layout, depth + 1, extent);
}

SR_EXTENT CSR::Draw(CSRDrawContext& context) const
{
    return Draw(context, SR_LAYOUT{});
}

SR_EXTENT CSR::Draw(CSRDrawContext& context, const SR_LAYOUT& layout) const
{
    SR_EXTENT extent;
    int previous = context.SetTransparentBackground();
    int lastHeight = 0;
    for (const HeaderTag& tag : kHeaderTags) {
        std::u16string text;
        // Attributes the document lacks are not shown.
        const CDicomItem* element = m_pData ? m_pData->GetTagItem(tag.group, tag.element) : nullptr;
        if (!element || !m_pData->Format(tag.group, tag.element, text))
            continue;
        std::string vr = element->GetVR();
        std::u16string value;
        size_t separator = text.find(u" : ");
        if (layout.bIsoDates && (vr == "DA" || vr == "TM") && separator != std::u16string::npos &&
            m_pData->GetTagValue(tag.group, tag.element, value))
            text = text.substr(0, separator + 3) + CDicomInfoStatics::FormatDateTimeIso(value, vr);
        lastHeight = DrawTextW(context, SplitLines(text).front(), extent);
    }
    extent.cy += lastHeight;
    DrawNode(context, m_pData, layout, 0, extent);
    context.RestoreBackground(previous);
    return extent;
}

// --- the plain-text context

int CSRTextContext::SetTransparentBackground()
{
    int previous = m_nBackground;
    m_nBackground = 1;
    return previous;
}

void CSRTextContext::RestoreBackground(int previous)
{
    m_nBackground = previous;
}

SR_EXTENT CSRTextContext::GetTextExtent(const std::u16string& text)
{
    SR_EXTENT size;
    size.cx = static_cast<int>(text.size() > INT32_MAX ? INT32_MAX : text.size());
    size.cy = 1;
    return size;
}

void CSRTextContext::DrawText(int x, int y, const std::u16string& text)
{
    if (x < 0 || y < 0)
        return;
    if (m_lines.size() <= static_cast<size_t>(y))
        m_lines.resize(static_cast<size_t>(y) + 1);
    std::u16string& line = m_lines[static_cast<size_t>(y)];
    if (line.size() < static_cast<size_t>(x) + text.size())
        line.resize(static_cast<size_t>(x) + text.size(), u' ');
    line.replace(static_cast<size_t>(x), text.size(), text);
}

std::string CSRTextContext::GetText() const
{
    std::string text;
    for (const std::u16string& line : m_lines)
        text += Utf16ToUtf8(line) + "\n";
    return text;
}
