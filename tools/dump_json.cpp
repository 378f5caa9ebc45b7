// `zeldicom dump --json`: a data set in the DICOM JSON Model (PS3.18 F.2).
//
// Each attribute is keyed by its tag as eight upper-case hex digits and holds
// "vr" and either "Value" (text, numbers, person names, sequence items),
// "InlineBinary" (base64 of the value bytes) or nothing (empty value).
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "dicomdata/tagtable.h"
#include "dicomdata/vrtable.h"
#include "platform/text.h"
#include "tools/dump_writers.h"

using namespace zeldicom;

void AppendJsonString(DumpOutput& out, std::string_view utf8)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    out.Append('"');
    size_t start = 0;
    for (size_t i = 0; i < utf8.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(utf8[i]);
        if (c >= 0x20 && c != '"' && c != '\\')
            continue;
        out.Append(utf8.substr(start, i - start));
        start = i + 1;
        switch (c) {
        case '"': out.Append("\\\""); break;
        case '\\': out.Append("\\\\"); break;
        case '\n': out.Append("\\n"); break;
        case '\r': out.Append("\\r"); break;
        case '\t': out.Append("\\t"); break;
        default: {
            char escape[] = {'\\', 'u', '0', '0', kDigits[c >> 4], kDigits[c & 0x0F]};
            out.Append(std::string_view(escape, sizeof escape));
        }
        }
    }
    out.Append(utf8.substr(start));
    out.Append('"');
}

namespace {

// The VRs whose value is one text that may contain backslashes.
bool IsSingleText(std::string_view vr)
{
    return zeldicom::IsSingleValuedTextVR(vr);
}

std::u16string Trimmed(const std::u16string& text, bool leading)
{
    size_t begin = 0, end = text.size();
    while (end > begin && (text[end - 1] == u' ' || text[end - 1] == u'\0'))
        --end;
    while (leading && begin < end && text[begin] == u' ')
        ++begin;
    return text.substr(begin, end - begin);
}

std::vector<std::u16string> SplitValues(const std::u16string& text, bool leading)
{
    std::vector<std::u16string> values;
    size_t start = 0;
    for (;;) {
        size_t backslash = text.find(u'\\', start);
        values.push_back(Trimmed(text.substr(start, backslash - start), leading));
        if (backslash == std::u16string::npos)
            return values;
        start = backslash + 1;
    }
}

// Whether the text is a JSON number as it stands (RFC 8259 section 6).
bool IsJsonNumber(const std::string& text)
{
    size_t i = 0, n = text.size();
    auto digits = [&]() {
        size_t first = i;
        while (i < n && text[i] >= '0' && text[i] <= '9')
            ++i;
        return i - first;
    };
    if (i < n && text[i] == '-')
        ++i;
    if (i < n && text[i] == '0')
        ++i;
    else if (digits() == 0)
        return false;
    if (i < n && text[i] == '.') {
        ++i;
        if (digits() == 0)
            return false;
    }
    if (i < n && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        if (i < n && (text[i] == '+' || text[i] == '-'))
            ++i;
        if (digits() == 0)
            return false;
    }
    return i == n;
}

// An IS or DS value as a JSON number; DICOM allows forms JSON does not
// ("+5", "007", ".5", "1."), which are rewritten. Empty when not a number.
std::string NumberFromText(const std::string& text, bool integer)
{
    if (IsJsonNumber(text) && (!integer || text.find_first_of(".eE") == std::string::npos))
        return text;
    if (text.empty())
        return {};
    char* end = nullptr;
    double value = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size() || !std::isfinite(value))
        return {};
    if (integer && value == std::floor(value) && std::fabs(value) < 9.2e18)
        return FormatText("%lld", static_cast<long long>(value));
    return FormatText("%.17g", value);
}

class JsonWriter {
public:
    explicit JsonWriter(DumpOutput& out) : m_out(out) {}

    void DataSet(const CDicomItem& dataSet, int level)
    {
        m_out.Append('{');
        bool first = true;
        ForEachElement(dataSet, [&](const DumpElement& e) {
            if (e.group == 0xFFFE)
                return true;  // item delimiters are encoding, not attributes
            m_out.Append(first ? "\n" : ",\n");
            first = false;
            m_out.Indent(level + 1);
            m_key.assign(1, '"');
            AppendHex4(m_key, e.group);
            AppendHex4(m_key, e.element);
            m_key += "\": ";
            m_out.Append(m_key);
            Element(*e.node, level + 1);
            return true;
        });
        if (!first) {
            m_out.Append('\n');
            m_out.Indent(level);
        }
        m_out.Append('}');
    }

private:
    void Element(const CDicomItem& node, int level)
    {
        std::string vr = node.GetVR();
        // Elements the dictionary does not know in an implicit VR stream
        // carry no VR, damaged explicit headers carry junk: both are UN.
        if (!IsPrintableVR(vr))
            vr = "UN";
        m_out.Append("{\"vr\": ");
        AppendJsonString(m_out, vr);
        const CDicomItem* items = ItemGroupOf(node);
        if (vr == "SQ")
            Items(node, level);
        else if (items && node.GetDataSize() == -1)
            Encapsulated(node);
        else if (node.GetData() && node.GetDataSize() > 0)
            Value(node, vr);
        m_out.Append('}');
    }

    void Items(const CDicomItem& element, int level)
    {
        bool first = true;
        ForEachItem(element, [&](const DumpElement& e, int number) {
            if (number == 0)
                return true;  // delimiters
            m_out.Append(first ? ", \"Value\": [\n" : ",\n");
            first = false;
            m_out.Indent(level + 1);
            DataSet(*e.node, level + 1);
            return true;
        });
        if (first)
            return;
        m_out.Append('\n');
        m_out.Indent(level);
        m_out.Append(']');
    }

    // Encapsulated pixel data: the bytes of its items (offset table and
    // fragments, with their item headers), without the sequence delimiter.
    void Encapsulated(const CDicomItem& node)
    {
        if (!node.GetData() || node.m_nParsedLength <= 8)
            return;
        m_out.Append(", \"InlineBinary\": \"");
        AppendBase64(m_out, node.GetData(), node.m_nParsedLength - 8);
        m_out.Append('"');
    }

    void Value(const CDicomItem& node, const std::string& vr)
    {
        size_t size = static_cast<size_t>(node.GetDataSize());
        if (int width = NumberWidth(vr)) {
            size_t count = size / static_cast<size_t>(width);
            if (count == 0)
                return;
            m_out.Append(", \"Value\": [");
            for (size_t i = 0; i < count; ++i) {
                if (i > 0)
                    m_out.Append(", ");
                std::string number = FormatNumber(vr, node.GetData(), i);
                // NaN and infinities have no JSON number form.
                if (number.find_first_of("ni") != std::string::npos)
                    AppendJsonString(m_out, number);
                else
                    m_out.Append(number);
            }
            m_out.Append(']');
            return;
        }
        if (vr == "AT") {
            size_t count = size / 4;
            if (count == 0)
                return;
            m_out.Append(", \"Value\": [");
            for (size_t i = 0; i < count; ++i) {
                if (i > 0)
                    m_out.Append(", ");
                AppendJsonString(m_out, FormatAttributeTag(node.GetData(), i));
            }
            m_out.Append(']');
            return;
        }
        if (IsTextVR(vr)) {
            Text(node, vr);
            return;
        }
        m_out.Append(", \"InlineBinary\": \"");
        AppendBase64(m_out, node.GetData(), size);
        m_out.Append('"');
    }

    void Text(const CDicomItem& node, const std::string& vr)
    {
        std::u16string text;
        node.GetTagValue(vr, text);
        bool single = IsSingleText(vr);
        text = Trimmed(text, !single);
        if (text.empty())
            return;
        std::vector<std::u16string> values;
        if (single)
            values.push_back(text);
        else
            values = SplitValues(text, true);
        m_out.Append(", \"Value\": [");
        for (size_t i = 0; i < values.size(); ++i) {
            if (i > 0)
                m_out.Append(", ");
            const std::u16string& value = values[i];
            if (value.empty()) {
                m_out.Append("null");
            } else if (vr == "PN") {
                PersonName(value);
            } else if (vr == "IS" || vr == "DS") {
                std::string number = NumberFromText(Utf16ToUtf8(value), vr == "IS");
                if (number.empty())
                    AppendJsonString(m_out, Utf16ToUtf8(value));  // not a number: kept as written
                else
                    m_out.Append(number);
            } else {
                AppendJsonString(m_out, Utf16ToUtf8(value));
            }
        }
        m_out.Append(']');
    }

    // PS3.18 F.2.2: the alphabetic, ideographic and phonetic groups of a name
    // (separated by "=") become the members of one object; empty ones are left out.
    void PersonName(const std::u16string& value)
    {
        static constexpr const char* kGroups[] = {"Alphabetic", "Ideographic", "Phonetic"};
        m_out.Append('{');
        bool first = true;
        for (int index = 0; index < 3; ++index) {
            std::u16string group = GetField(value, u'=', index);
            if (group.empty())
                continue;
            if (!first)
                m_out.Append(", ");
            first = false;
            AppendJsonString(m_out, kGroups[index]);
            m_out.Append(": ");
            AppendJsonString(m_out, Utf16ToUtf8(group));
        }
        m_out.Append('}');
    }

    DumpOutput& m_out;
    std::string m_key;  // "GGGGEEEE": , reused for every attribute
};
}

void WriteJsonDataSet(const CDicomItem& dataSet, DumpOutput& out, int level)
{
    JsonWriter(out).DataSet(dataSet, level);
}
