// `zeldicom dump`: the loaded tree as text, one line per element.
//
//   (0010,0010) PN [Doe^John]                               # 8, Patient's Name
//   (0008,1140) SQ (sequence, 1 item)                       # u/l, Referenced Image Sequence
//     (FFFE,E000) -- (item 1)                               # 24, Item
//       (0008,1150) UI [1.2.840.10008.5.1.4.1.1.2]          # 26, Referenced SOP Class UID
//
// Values are read only as far as they are shown: text up to kTextBytes,
// numbers up to kMaxNumbers, binary as a kHexBytes preview. Pixel data
// beyond its preview is never touched.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <unordered_map>

#include "dicomdata/dictionary.h"
#include "dicomdata/tagtable.h"
#include "dicomdata/vrtable.h"
#include "platform/text.h"
#include "tools/dump_writers.h"

using namespace zeldicom;

namespace {
constexpr size_t kTextChars = 64;     // shown characters of a text value
constexpr size_t kTextBytes = 4096;   // text longer than this is decoded from its start only
constexpr size_t kMaxNumbers = 16;    // shown values of a multi-valued number
constexpr size_t kHexBytes = 16;      // shown bytes of a binary value
constexpr size_t kNameColumn = 56;    // where "# length, name" starts (after the indent)
constexpr std::string_view kCut = "...";

std::string LookUpAttributeName(int group, int element, bool keyword)
{
    if (const zeldicom::AttributeEntry* entry =
            zeldicom::FindAttribute(static_cast<uint16_t>(group), static_cast<uint16_t>(element)))
        return keyword && *entry->keyword() ? entry->keyword() : entry->name();
    std::u16string vr, description;
    if (CTagTable::GetTagInfo(group, element, vr, description) && !description.empty())
        return Utf16ToUtf8(description);
    if (group & 1)
        return element >= 0x0010 && element <= 0x00FF ? "Private Creator" : "Private";
    if (element == 0x0000)
        return "Group Length";
    return "?";
}

// Names are looked up once per tag: a series of files repeats the same tags.
// With keyword set, the attribute's keyword (as dcmdump shows it) where it has one.
const std::string& AttributeName(int group, int element, bool keyword)
{
    static std::unordered_map<uint64_t, std::string> names;
    uint64_t key = uint64_t{keyword} << 32 | (static_cast<uint32_t>(group) << 16) | static_cast<uint32_t>(element);
    auto found = names.find(key);
    if (found == names.end())
        found = names.emplace(key, LookUpAttributeName(group, element, keyword)).first;
    return found->second;
}

void AppendHex4(std::string& out, int number)
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    for (int shift = 12; shift >= 0; shift -= 4)
        out.push_back(kDigits[(number >> shift) & 0xF]);
}

void AppendDecimal(std::string& out, long number)
{
    char digits[24];
    auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    out.append(digits, end);
}

// Text shown on one line: control characters (CR, LF, TAB in LT/UT values)
// become blanks, and the value is cut after kTextChars characters.
std::string OneLineText(const std::u16string& text, bool cut)
{
    std::u16string shown = text.size() > kTextChars ? text.substr(0, kTextChars) : text;
    for (char16_t& c : shown)
        if (c < 0x20)
            c = u' ';
    std::string line(1, '[');
    line += Utf16ToUtf8(shown);
    line.push_back(']');
    if (cut || text.size() > kTextChars)
        line += kCut;
    return line;
}

// Character sets in which every byte below 0x80 is the ASCII character
// (ISO 2022 sets too, as long as no escape sequence comes first).
bool AsciiCompatible(const std::string& label)
{
    static constexpr std::string_view kLabels[] = {"", "ISO_IR 6", "ISO_IR 100", "ISO_IR 192", "ISO 2022 IR 6",
                                                   "ISO 2022 IR 100"};
    for (std::string_view known : kLabels)
        if (label == known)
            return true;
    return false;
}

// Most values are plain ASCII: shown from their bytes as they are, without
// the round trip through wide text. Empty when the value needs decoding.
std::string AsciiTextValue(const CDicomItem& node)
{
    size_t size = static_cast<size_t>(node.GetDataSize());
    if (size > kTextBytes || !AsciiCompatible(node.m_sCharacterSet))
        return {};
    const unsigned char* bytes = node.GetData();
    // Trailing blanks and NULs are padding, as the decoders see it.
    while (size > 0 && (bytes[size - 1] == ' ' || bytes[size - 1] == '\0'))
        --size;
    // One byte past the shown characters tells whether the value is cut.
    size_t checked = size < kTextChars + 1 ? size : kTextChars + 1;
    for (size_t i = 0; i < checked; ++i)
        if (bytes[i] >= 0x80 || bytes[i] == 0x1B)
            return {};
    size_t shown = size < kTextChars ? size : kTextChars;
    std::string line;
    line.reserve(shown + 2 + kCut.size());
    line.push_back('[');
    for (size_t i = 0; i < shown; ++i)
        line.push_back(bytes[i] < 0x20 ? ' ' : static_cast<char>(bytes[i]));
    line.push_back(']');
    if (size > kTextChars)
        line += kCut;
    return line;
}

std::string TextValue(const CDicomItem& node, const std::string& vr)
{
    std::string ascii = AsciiTextValue(node);
    if (!ascii.empty())
        return ascii;
    int size = node.GetDataSize();
    if (static_cast<size_t>(size) <= kTextBytes) {
        std::u16string text;
        node.GetTagValue(vr, text);
        return OneLineText(text, false);
    }
    // A long text (a report in UT) is decoded from its start only.
    std::string head(reinterpret_cast<const char*>(node.GetData()), kTextBytes);
    std::u16string text = CDicomItem::TranslateTagValueFromDicomToUnicode(
        head, vr, AsciiToWide(node.m_sCharacterSet));
    return OneLineText(text, true);
}

std::string NumberValue(const CDicomItem& node, const std::string& vr)
{
    size_t width = static_cast<size_t>(NumberWidth(vr));
    size_t count = static_cast<size_t>(node.GetDataSize()) / width;
    size_t shown = count < kMaxNumbers ? count : kMaxNumbers;
    std::string text;
    for (size_t i = 0; i < shown; ++i) {
        if (i > 0)
            text.push_back('\\');
        text += FormatNumber(vr, node.GetData(), i);
    }
    if (shown < count)
        text += FormatText("\\%s (%zu values)", kCut.data(), count);
    if (static_cast<size_t>(node.GetDataSize()) % width != 0)
        text += FormatText(" (+%zu odd bytes)", static_cast<size_t>(node.GetDataSize()) % width);
    return text;
}

std::string TagListValue(const CDicomItem& node)
{
    size_t count = static_cast<size_t>(node.GetDataSize()) / 4;
    size_t shown = count < kMaxNumbers ? count : kMaxNumbers;
    std::string text;
    for (size_t i = 0; i < shown; ++i) {
        if (i > 0)
            text.push_back('\\');
        std::string tag = FormatAttributeTag(node.GetData(), i);
        text.push_back('(');
        text.append(tag, 0, 4);
        text.push_back(',');
        text.append(tag, 4, std::string::npos);
        text.push_back(')');
    }
    if (shown < count) {
        text.push_back('\\');
        text += kCut;
    }
    return text;
}

std::string BinaryValue(const CDicomItem& node)
{
    size_t size = static_cast<size_t>(node.GetDataSize());
    std::string text = HexPreview(node.GetData(), size, kHexBytes);
    if (size > kHexBytes) {
        text.push_back(' ');
        text += kCut;
    }
    return text;
}

int CountItems(const CDicomItem& element)
{
    const CDicomItem* items = ItemGroupOf(element);
    return items ? items->GetChildItemCount(u"eE000") : 0;
}

// The value column of an ordinary element.
std::string ValueColumn(const DumpElement& e, const std::string& vr)
{
    const CDicomItem& node = *e.node;
    if (vr == "SQ") {
        int items = CountItems(node);
        return FormatText("(sequence, %d item%s)", items, items == 1 ? "" : "s");
    }
    if (ItemGroupOf(node) && node.GetDataSize() == -1) {
        int fragments = CountItems(node);
        return FormatText("(encapsulated, %d item%s)", fragments, fragments == 1 ? "" : "s");
    }
    if (!node.GetData() || node.GetDataSize() <= 0)
        return "(no value)";
    if (vr == "UI") {
        // A registered UID is shown with its name, as "=CTImageStorage".
        std::string value = TextValue(node, vr);
        size_t size = static_cast<size_t>(node.GetDataSize());
        if (size <= 64) {
            if (const zeldicom::UidEntry* uid =
                    zeldicom::FindUid(std::string_view(reinterpret_cast<const char*>(node.GetData()), size))) {
                value += " =";
                value += uid->keyword();
            }
        }
        return value;
    }
    if (IsTextVR(vr))
        return TextValue(node, vr);
    if (NumberWidth(vr) > 0)
        return NumberValue(node, vr);
    if (vr == "AT")
        return TagListValue(node);
    return BinaryValue(node);
}

// How many values the element holds (dcmdump's VM column): values of text
// are separated by backslashes, numbers and tags counted by their width.
int ValueMultiplicity(const CDicomItem& node, const std::string& vr)
{
    if (vr == "SQ")
        return 1;
    int size = node.GetDataSize();
    if (!node.GetData() || size <= 0)
        return 0;
    if (IsTextVR(vr)) {
        if (zeldicom::IsSingleValuedTextVR(vr))
            return 1;
        const unsigned char* bytes = node.GetData();
        return 1 + static_cast<int>(std::count(bytes, bytes + size, '\\'));
    }
    if (int width = NumberWidth(vr))
        return size / width;
    if (vr == "AT")
        return size / 4;
    return 1;
}

class TextDumper {
public:
    explicit TextDumper(DumpOutput& out, bool keywords = false) : m_out(out), m_keywords(keywords) {}

    void DataSet(const CDicomItem& dataSet, int level)
    {
        ForEachElement(dataSet, [&](const DumpElement& e) {
            if (e.group == 0xFFFE)
                ItemEntry(e, level, 0);
            else
                Element(e, level);
            return true;
        });
    }

private:
    void Line(int level, const DumpElement& e, std::string_view vr, const std::string& value, const std::string& name,
              int multiplicity = 1)
    {
        std::string& line = m_line;
        line.assign(1, '(');
        AppendHex4(line, e.group);
        line.push_back(',');
        AppendHex4(line, e.element);
        line += ") ";
        line += vr.empty() ? std::string_view("--") : IsPrintableVR(vr) ? vr : std::string_view("??");
        line.push_back(' ');
        line += value;
        size_t column = kNameColumn > static_cast<size_t>(level) * 2 ? kNameColumn - static_cast<size_t>(level) * 2 : 0;
        if (line.size() < column)
            line.append(column - line.size(), ' ');
        int size = e.node->GetDataSize();
        if (size == -1) {
            line += " # u/l, ";
        } else {
            line += " # ";
            AppendDecimal(line, size);
            line += ", ";
        }
        AppendDecimal(line, multiplicity);
        line.push_back(' ');
        line += name;
        line.push_back('\n');
        m_out.Indent(level);
        m_out.Append(line);
    }

    void Element(const DumpElement& e, int level)
    {
        std::string vr = e.node->GetVR();
        Line(level, e, vr, ValueColumn(e, vr), AttributeName(e.group, e.element, m_keywords), ValueMultiplicity(*e.node, vr));
        Items(*e.node, level + 1);
    }

    void Items(const CDicomItem& element, int level)
    {
        ForEachItem(element, [&](const DumpElement& e, int number) {
            ItemEntry(e, level, number);
            return true;
        });
    }

    // An item, an item or sequence delimiter, or an encapsulated fragment.
    void ItemEntry(const DumpElement& e, int level, int number)
    {
        const CDicomItem& node = *e.node;
        if (e.element == 0xE00D) {
            static const std::string kName = "Item Delimitation Item";
            Line(level, e, "", "(item delimiter)", kName);
            return;
        }
        if (e.element == 0xE0DD) {
            static const std::string kName = "Sequence Delimitation Item";
            Line(level, e, "", "(sequence delimiter)", kName);
            return;
        }
        if (e.element != 0xE000) {
            Line(level, e, node.GetVR(), node.GetData() && node.GetDataSize() > 0 ? BinaryValue(node) : "(no value)",
                 AttributeName(e.group, e.element, m_keywords));
            return;
        }
        std::u16string parentVR;
        node.GetItemValue(std::u16string(u"ParentVR"), parentVR);
        if (parentVR == u"SQ") {
            static const std::string kName = "Item";
            Line(level, e, "", FormatText("(item %d)", number), kName);
            DataSet(node, level + 1);
            return;
        }
        // An item that is not in a sequence: an encapsulated fragment (the
        // first one is the basic offset table), or a stray item.
        std::string value = FormatText("(fragment %d) ", number - 1);
        value += node.GetData() && node.GetDataSize() > 0 ? BinaryValue(node) : "(no value)";
        static const std::string kTable = "Item (basic offset table)", kItem = "Item";
        Line(level, e, "", value, number == 1 ? kTable : kItem);
    }

    DumpOutput& m_out;
    std::string m_line;  // reused: one allocation for all lines
    bool m_keywords = false;
};
}

void WriteTextDump(const CDicomItem& root, DumpOutput& out, bool keywords)
{
    TextDumper dumper(out, keywords);
    if (const auto* header = static_cast<const CDicomItem*>(root.GetChildItem(std::u16string(u"Header")))) {
        out.Append("# File meta information\n");
        dumper.DataSet(*header, 0);
    }
    if (const auto* data = static_cast<const CDicomItem*>(root.GetChildItem(std::u16string(u"Data")))) {
        out.Append("# Data set\n");
        dumper.DataSet(*data, 0);
    }
}

void WriteTextDataSet(const CDicomItem& dataSet, DumpOutput& out, int level)
{
    TextDumper(out).DataSet(dataSet, level);
}
