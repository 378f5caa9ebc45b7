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

#include "dicomdata/bytecursor.h"
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

// Text shown on one line: control characters (CR, LF, TAB in LT/UT values)
// become blanks, and the value is cut after kTextChars characters.
void AppendOneLineText(std::string& line, const std::u16string& text, bool cut)
{
    std::u16string shown = text.size() > kTextChars ? text.substr(0, kTextChars) : text;
    for (char16_t& c : shown)
        if (c < 0x20)
            c = u' ';
    line.push_back('[');
    line += Utf16ToUtf8(shown);
    line.push_back(']');
    if (cut || text.size() > kTextChars)
        line += kCut;
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
// the round trip through wide text. False (nothing appended) when the value
// needs decoding.
bool AppendAsciiText(std::string& line, const CDicomItem& node)
{
    size_t size = static_cast<size_t>(node.GetDataSize());
    if (size > kTextBytes || !AsciiCompatible(node.m_sCharacterSet))
        return false;
    const unsigned char* bytes = node.GetData();
    // Trailing blanks and NULs are padding, as the decoders see it.
    while (size > 0 && (bytes[size - 1] == ' ' || bytes[size - 1] == '\0'))
        --size;
    // One byte past the shown characters tells whether the value is cut.
    size_t checked = size < kTextChars + 1 ? size : kTextChars + 1;
    for (size_t i = 0; i < checked; ++i)
        if (bytes[i] >= 0x80 || bytes[i] == 0x1B)
            return false;
    size_t shown = size < kTextChars ? size : kTextChars;
    size_t at = line.size();
    line.resize(at + shown + 2);
    char* out = line.data() + at;
    *out++ = '[';
    for (size_t i = 0; i < shown; ++i)
        out[i] = bytes[i] < 0x20 ? ' ' : static_cast<char>(bytes[i]);
    out[shown] = ']';
    if (size > kTextChars)
        line += kCut;
    return true;
}

void AppendTextValue(std::string& line, const CDicomItem& node, const std::string& vr)
{
    if (AppendAsciiText(line, node))
        return;
    int size = node.GetDataSize();
    if (static_cast<size_t>(size) <= kTextBytes) {
        std::u16string text;
        node.GetTagValue(vr, text);
        AppendOneLineText(line, text, false);
        return;
    }
    // A long text (a report in UT) is decoded from its start only.
    std::string head(reinterpret_cast<const char*>(node.GetData()), kTextBytes);
    std::u16string text = CDicomItem::TranslateTagValueFromDicomToUnicode(
        head, vr, AsciiToWide(node.m_sCharacterSet));
    AppendOneLineText(line, text, true);
}

void AppendNumberValue(std::string& line, const CDicomItem& node, const std::string& vr)
{
    size_t width = static_cast<size_t>(NumberWidth(vr));
    size_t count = static_cast<size_t>(node.GetDataSize()) / width;
    size_t shown = count < kMaxNumbers ? count : kMaxNumbers;
    for (size_t i = 0; i < shown; ++i) {
        if (i > 0)
            line.push_back('\\');
        AppendNumber(line, vr, node.GetData(), i);
    }
    if (shown < count) {
        line.push_back('\\');
        line += kCut;
        line += " (";
        AppendDecimal(line, static_cast<long>(count));
        line += " values)";
    }
    if (size_t odd = static_cast<size_t>(node.GetDataSize()) % width) {
        line += " (+";
        AppendDecimal(line, static_cast<long>(odd));
        line += " odd bytes)";
    }
}

void AppendTagListValue(std::string& line, const CDicomItem& node)
{
    size_t count = static_cast<size_t>(node.GetDataSize()) / 4;
    size_t shown = count < kMaxNumbers ? count : kMaxNumbers;
    for (size_t i = 0; i < shown; ++i) {
        if (i > 0)
            line.push_back('\\');
        const unsigned char* p = node.GetData() + i * 4;
        line.push_back('(');
        AppendHex4(line, ByteCursor::loadUint16LE(p));
        line.push_back(',');
        AppendHex4(line, ByteCursor::loadUint16LE(p + 2));
        line.push_back(')');
    }
    if (shown < count) {
        line.push_back('\\');
        line += kCut;
    }
}

void AppendBinaryValue(std::string& line, const CDicomItem& node)
{
    size_t size = static_cast<size_t>(node.GetDataSize());
    AppendHexPreview(line, node.GetData(), size, kHexBytes);
    if (size > kHexBytes) {
        line.push_back(' ');
        line += kCut;
    }
}

int CountItems(const CDicomItem& element)
{
    const CDicomItem* items = ItemGroupOf(element);
    return items ? items->GetChildItemCount(u"eE000") : 0;
}

void AppendCount(std::string& line, const char* what, int count)
{
    line.push_back('(');
    line += what;
    line += ", ";
    AppendDecimal(line, count);
    line += count == 1 ? " item)" : " items)";
}

// The value column of an ordinary element.
void AppendValueColumn(std::string& line, const DumpElement& e, const std::string& vr)
{
    const CDicomItem& node = *e.node;
    if (vr == "SQ")
        return AppendCount(line, "sequence", CountItems(node));
    if (node.GetDataSize() == -1 && ItemGroupOf(node))
        return AppendCount(line, "encapsulated", CountItems(node));
    if (!node.GetData() || node.GetDataSize() <= 0) {
        line += "(no value)";
        return;
    }
    if (vr == "UI") {
        // A registered UID is shown with its name, as "=CTImageStorage".
        AppendTextValue(line, node, vr);
        size_t size = static_cast<size_t>(node.GetDataSize());
        if (size <= 64) {
            if (const zeldicom::UidEntry* uid =
                    zeldicom::FindUid(std::string_view(reinterpret_cast<const char*>(node.GetData()), size))) {
                line += " =";
                line += uid->keyword();
            }
        }
        return;
    }
    if (IsTextVR(vr))
        return AppendTextValue(line, node, vr);
    if (NumberWidth(vr) > 0)
        return AppendNumberValue(line, node, vr);
    if (vr == "AT")
        return AppendTagListValue(line, node);
    AppendBinaryValue(line, node);
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
    // "(gggg,eeee) VR ": the value column is appended to it, then EndLine.
    std::string& BeginLine(const DumpElement& e, std::string_view vr)
    {
        std::string& line = m_line;
        line.assign(1, '(');
        AppendHex4(line, e.group);
        line.push_back(',');
        AppendHex4(line, e.element);
        line += ") ";
        line += vr.empty() ? std::string_view("--") : IsPrintableVR(vr) ? vr : std::string_view("??");
        line.push_back(' ');
        return line;
    }

    void EndLine(int level, const DumpElement& e, std::string_view name, int multiplicity = 1)
    {
        std::string& line = m_line;
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
        AppendValueColumn(BeginLine(e, vr), e, vr);
        EndLine(level, e, AttributeName(e.group, e.element, m_keywords), ValueMultiplicity(*e.node, vr));
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
            BeginLine(e, "") += "(item delimiter)";
            EndLine(level, e, "Item Delimitation Item");
            return;
        }
        if (e.element == 0xE0DD) {
            BeginLine(e, "") += "(sequence delimiter)";
            EndLine(level, e, "Sequence Delimitation Item");
            return;
        }
        if (e.element != 0xE000) {
            std::string& line = BeginLine(e, node.GetVR());
            if (node.GetData() && node.GetDataSize() > 0)
                AppendBinaryValue(line, node);
            else
                line += "(no value)";
            EndLine(level, e, AttributeName(e.group, e.element, m_keywords));
            return;
        }
        const CXmlItem* parentVR = node.GetChildItem(kParentVR);
        if (parentVR && parentVR->m_sValue == u"SQ") {
            std::string& line = BeginLine(e, "");
            line += "(item ";
            AppendDecimal(line, number);
            line.push_back(')');
            EndLine(level, e, "Item");
            DataSet(node, level + 1);
            return;
        }
        // An item that is not in a sequence: an encapsulated fragment (the
        // first one is the basic offset table), or a stray item.
        std::string& line = BeginLine(e, "");
        line += "(fragment ";
        AppendDecimal(line, number - 1);
        line += ") ";
        if (node.GetData() && node.GetDataSize() > 0)
            AppendBinaryValue(line, node);
        else
            line += "(no value)";
        EndLine(level, e, number == 1 ? "Item (basic offset table)" : "Item");
    }

    const std::u16string kParentVR = u"ParentVR";
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
