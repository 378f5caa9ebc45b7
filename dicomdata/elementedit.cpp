// Any element of a data set from typed text: the key that names it and the
// conversion of the text to the element's VR (PS3.5 6.2).
#include "dicomdata/elementedit.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/dictionary.h"
#include "dicomdata/vrtable.h"
#include "platform/text.h"

namespace zeldicom {

namespace {

bool HexDigits(std::string_view text, uint32_t& value)
{
    value = 0;
    if (text.empty() || text.size() > 8)
        return false;
    for (char c : text) {
        int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
        if (digit < 0)
            return false;
        value = value << 4 | static_cast<uint32_t>(digit);
    }
    return true;
}

// gggg,eeee, in parentheses or not.
bool ParseTagText(std::string_view text, uint16_t& group, uint16_t& element)
{
    if (text.size() >= 2 && text.front() == '(' && text.back() == ')')
        text = text.substr(1, text.size() - 2);
    uint32_t g = 0, e = 0;
    if (text.size() != 9 || text[4] != ',' || !HexDigits(text.substr(0, 4), g) || !HexDigits(text.substr(5), e))
        return false;
    group = static_cast<uint16_t>(g);
    element = static_cast<uint16_t>(e);
    return true;
}

// How the values of a binary VR are read and stored.
enum class Form { Unsigned, Signed, Real, Hex, Tag };

struct BinaryVR {
    const char* vr;
    Form form;
    unsigned size;  // bytes per value
};

constexpr BinaryVR kBinaryVRs[] = {
    {"US", Form::Unsigned, 2}, {"UL", Form::Unsigned, 4}, {"UV", Form::Unsigned, 8},
    {"SS", Form::Signed, 2},   {"SL", Form::Signed, 4},   {"SV", Form::Signed, 8},
    {"FL", Form::Real, 4},     {"OF", Form::Real, 4},     {"FD", Form::Real, 8},
    {"OD", Form::Real, 8},     {"OB", Form::Hex, 1},      {"UN", Form::Hex, 1},
    {"OW", Form::Hex, 2},      {"OL", Form::Hex, 4},      {"OV", Form::Hex, 8},
    {"AT", Form::Tag, 4},
};

void PutLittleEndian(std::string& out, uint64_t value, unsigned size)
{
    for (unsigned i = 0; i < size; ++i)
        out += static_cast<char>(value >> (8 * i));
}

// One value of a binary VR, appended to out in little endian.
bool EncodeBinaryValue(const BinaryVR& row, const std::string& value, std::string& out)
{
    const char* begin = value.c_str();
    char* end = nullptr;
    errno = 0;
    switch (row.form) {
    case Form::Unsigned: {
        if (value.empty() || value[0] == '-')
            return false;
        unsigned long long number = std::strtoull(begin, &end, 10);
        uint64_t maximum = row.size == 8 ? std::numeric_limits<uint64_t>::max() : (uint64_t{1} << (8 * row.size)) - 1;
        if (errno != 0 || *end != '\0' || end == begin || number > maximum)
            return false;
        PutLittleEndian(out, number, row.size);
        return true;
    }
    case Form::Signed: {
        long long number = std::strtoll(begin, &end, 10);
        int64_t limit = row.size == 8 ? std::numeric_limits<int64_t>::max() : (int64_t{1} << (8 * row.size - 1)) - 1;
        if (errno != 0 || *end != '\0' || end == begin || number > limit || number < -limit - 1)
            return false;
        PutLittleEndian(out, static_cast<uint64_t>(number), row.size);
        return true;
    }
    case Form::Real: {
        double number = std::strtod(begin, &end);
        if (errno == ERANGE || *end != '\0' || end == begin)
            return false;
        uint64_t bits = 0;
        if (row.size == 4) {
            if (std::isfinite(number) && std::fabs(number) > std::numeric_limits<float>::max())
                return false;
            float single = static_cast<float>(number);
            uint32_t word = 0;
            std::memcpy(&word, &single, 4);
            bits = word;
        } else {
            std::memcpy(&bits, &number, 8);
        }
        PutLittleEndian(out, bits, row.size);
        return true;
    }
    case Form::Hex: {
        std::string_view digits = value;
        if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X'))
            digits.remove_prefix(2);
        uint32_t low = 0, high = 0;
        size_t width = 2 * row.size;
        if (digits.empty() || digits.size() > width)
            return false;
        // Up to 16 digits: the high half first when there are more than 8.
        size_t split = digits.size() > 8 ? digits.size() - 8 : 0;
        if ((split > 0 && !HexDigits(digits.substr(0, split), high)) || !HexDigits(digits.substr(split), low))
            return false;
        PutLittleEndian(out, uint64_t{high} << 32 | low, row.size);
        return true;
    }
    case Form::Tag: {
        uint16_t group = 0, element = 0;
        uint32_t packed = 0;
        if (ParseTagText(value, group, element)) {
            packed = uint32_t{group} << 16 | element;
        } else if (value.size() != 8 || !HexDigits(value, packed)) {
            return false;
        }
        PutLittleEndian(out, packed >> 16, 2);
        PutLittleEndian(out, packed & 0xFFFF, 2);
        return true;
    }
    }
    return false;
}

std::string TagText(uint16_t group, uint16_t element)
{
    return FormatText("(%04X,%04X)", group, element);
}

// --- the form of text values (PS3.5 6.2)

bool Digits(std::string_view text, size_t from, size_t count)
{
    if (from + count > text.size())
        return false;
    for (size_t i = from; i < from + count; ++i)
        if (text[i] < '0' || text[i] > '9')
            return false;
    return true;
}

int Number(std::string_view text, size_t from, size_t count)
{
    int value = 0;
    for (size_t i = from; i < from + count; ++i)
        value = value * 10 + (text[i] - '0');
    return value;
}

bool CalendarDate(std::string_view value)
{
    if (value.size() != 8 || !Digits(value, 0, 8))
        return false;
    int year = Number(value, 0, 4), month = Number(value, 4, 2), day = Number(value, 6, 2);
    static constexpr int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month >= 1 && month <= 12 && day >= 1 && day <= kDays[month - 1] - (month == 2 && !leap ? 1 : 0);
}

// HH[MM[SS[.F{1,6}]]]
bool TimeOfDay(std::string_view value)
{
    size_t dot = value.find('.');
    std::string_view digits = value.substr(0, dot);
    if (dot != std::string_view::npos && (digits.size() != 6 || value.size() - dot - 1 < 1 ||
                                          value.size() - dot - 1 > 6 || !Digits(value, dot + 1, value.size() - dot - 1)))
        return false;
    if (digits.empty() || digits.size() % 2 || digits.size() > 6 || !Digits(digits, 0, digits.size()))
        return false;
    static constexpr int kLimits[] = {23, 59, 60};  // 60: a leap second
    for (size_t i = 0; i < digits.size(); i += 2)
        if (Number(digits, i, 2) > kLimits[i / 2])
            return false;
    return true;
}

// YYYY[MM[DD[HH[MM[SS[.F{1,6}]]]]]][&ZZXX]
bool DateTime(std::string_view value)
{
    size_t offset = value.find_first_of("+-");
    if (offset != std::string_view::npos) {
        if (value.size() - offset != 5 || !Digits(value, offset + 1, 4))
            return false;
        value = value.substr(0, offset);
    }
    size_t dateSize = std::min<size_t>(value.size(), 8);
    if (dateSize < 4 || dateSize % 2 || !Digits(value, 0, dateSize))
        return false;
    if (dateSize == 8 && !CalendarDate(value.substr(0, 8)))
        return false;
    return value.size() <= 8 || TimeOfDay(value.substr(8));
}

bool DecimalString(std::string_view value)
{
    size_t i = value[0] == '+' || value[0] == '-' ? 1 : 0;
    size_t digits = 0;
    while (i < value.size() && value[i] >= '0' && value[i] <= '9')
        ++i, ++digits;
    if (i < value.size() && value[i] == '.') {
        ++i;
        while (i < value.size() && value[i] >= '0' && value[i] <= '9')
            ++i, ++digits;
    }
    if (digits == 0)
        return false;
    if (i < value.size() && (value[i] == 'e' || value[i] == 'E')) {
        ++i;
        if (i < value.size() && (value[i] == '+' || value[i] == '-'))
            ++i;
        if (!Digits(value, i, 1))
            return false;
        while (i < value.size() && value[i] >= '0' && value[i] <= '9')
            ++i;
    }
    return i == value.size();
}

bool IntegerString(std::string_view value)
{
    size_t sign = value[0] == '+' || value[0] == '-' ? 1 : 0;
    if (value.size() == sign || !Digits(value, sign, value.size() - sign))
        return false;
    long long number = std::strtoll(std::string(value).c_str(), nullptr, 10);
    return number >= -2147483648LL && number <= 2147483647LL;
}

bool UidString(std::string_view value)
{
    size_t start = 0;
    for (;;) {
        size_t dot = value.find('.', start);
        std::string_view component = value.substr(start, dot == std::string_view::npos ? dot : dot - start);
        if (component.empty() || !Digits(component, 0, component.size()) ||
            (component.size() > 1 && component[0] == '0'))
            return false;
        if (dot == std::string_view::npos)
            return true;
        start = dot + 1;
    }
}

bool CodeString(std::string_view value)
{
    for (char c : value)
        if (!((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == ' ' || c == '_'))
            return false;
    return true;
}

bool AgeString(std::string_view value)
{
    return value.size() == 4 && Digits(value, 0, 3) && std::strchr("DWMY", value[3]) && value[3] != '\0';
}

// PS3.5 6.2: each component group at most 64 characters, at most five components.
bool PersonName(std::string_view value)
{
    size_t start = 0;
    for (int group = 0; group < 3; ++group) {
        size_t equals = value.find('=', start);
        std::string_view part = value.substr(start, equals == std::string_view::npos ? equals : equals - start);
        if (part.size() > 64 || std::count(part.begin(), part.end(), '^') > 4)
            return false;
        if (equals == std::string_view::npos)
            return true;
        start = equals + 1;
    }
    return false;
}

bool NoControl(std::string_view value)
{
    for (char c : value)
        if (static_cast<unsigned char>(c) < 0x20 && c != 0x1B)
            return false;
    return true;
}

// One row per text VR of PS3.5 Table 6.2-1: the most characters a value
// holds (0: bounded only by the length field) and the form of a value
// (leading and trailing blanks are insignificant where the VR says so).
struct TextForm {
    const char* vr;
    size_t maxChars;
    bool (*fits)(std::string_view value);
    const char* form;
};

constexpr TextForm kTextForms[] = {
    {"AE", 16, NoControl, "an AE title"},
    {"AS", 4, AgeString, "an age nnnD, nnnW, nnnM or nnnY"},
    {"CS", 16, CodeString, "a code string of A-Z, 0-9, blank and _"},
    {"DA", 8, CalendarDate, "a date YYYYMMDD"},
    {"DS", 16, DecimalString, "a decimal number"},
    {"DT", 26, DateTime, "a date and time YYYYMMDDHHMMSS.FFFFFF&ZZXX"},
    {"IS", 12, IntegerString, "an integer from -2^31 to 2^31-1"},
    {"LO", 64, NoControl, "a long string"},
    {"LT", 10240, nullptr, "a long text"},
    {"PN", 0, PersonName, "a person name (at most 64 characters a component group)"},
    {"SH", 16, NoControl, "a short string"},
    {"ST", 1024, nullptr, "a short text"},
    {"TM", 14, TimeOfDay, "a time HHMMSS.FFFFFF"},
    {"UI", 64, UidString, "a UID of digits and dots"},
};

}  // namespace

bool ParseElementKey(std::string_view key, uint16_t& group, uint16_t& element)
{
    if (ParseTagText(key, group, element))
        return true;
    const AttributeEntry* entry = FindAttributeByKeyword(key);
    if (!entry)
        return false;
    group = static_cast<uint16_t>(entry->tag >> 16);
    element = static_cast<uint16_t>(entry->tag & 0xFFFF);
    return true;
}

std::string EditedElementVR(const CDicomItem& dataSet, uint16_t group, uint16_t element)
{
    // The element's own VR, unless it is unknown there (UN): then the
    // dictionary's, with US or SS and OB or OW resolved by this data set.
    CDicomItem* existing = dataSet.GetTagItem(group, element);
    std::string vr = existing ? existing->GetVR() : std::string();
    if (vr.empty() || vr == "UN") {
        std::string known = ElementVR(group, element, &dataSet, false);
        if (!known.empty() && FindVRFacts(known))
            vr = known;
    }
    return vr;
}

bool SetElementFromText(CDicomItem& dataSet, uint16_t group, uint16_t element, const std::u16string& text,
                        std::string& error)
{
    std::string where = TagText(group, element);
    if (element == 0x0000) {
        error = where + " is a group length: it is recalculated when the file is written";
        return false;
    }
    if (group == 0xFFFE) {
        error = where + " is an item or delimiter, not an element";
        return false;
    }
    std::string vr = EditedElementVR(dataSet, group, element);
    const VRFacts* facts = FindVRFacts(vr);
    if (!facts) {
        error = where + ": its VR is unknown (the element is neither in the dictionary nor in the file)";
        return false;
    }
    if (vr == "SQ") {
        error = where + " is a sequence: it cannot be set from text";
        return false;
    }

    std::string bytes;
    if (facts->text) {
        // Without Specific Character Set (0008,0005) a data set holds only
        // the default repertoire (PS3.5 6.1.2.2): ASCII.
        bool ascii = true;
        for (char16_t c : text)
            ascii = ascii && c < 0x80;
        if (!ascii && dataSet.m_sName != u"eE000" && CDicomInfoStatics::ExtractCharacterSet(&dataSet).empty()) {
            error = where + ": the data set has no Specific Character Set (0008,0005), so its text is ASCII; "
                            "set SpecificCharacterSet as well";
            return false;
        }
        if (!CDicomItem::TranslateTagValueFromUnicodeToDicom(text, vr, AsciiToWide(dataSet.m_sCharacterSet), bytes)) {
            error = where + ": the character set " +
                    (dataSet.m_sCharacterSet.empty() ? std::string("ISO_IR 6") : dataSet.m_sCharacterSet) +
                    " cannot hold the text";
            return false;
        }
    } else {
        const BinaryVR* row = nullptr;
        for (const BinaryVR& candidate : kBinaryVRs)
            if (vr == candidate.vr)
                row = &candidate;
        if (!row) {
            error = where + ": values of VR " + vr + " cannot be set from text";
            return false;
        }
        std::string values = WideToAscii(text);
        for (size_t start = 0; !values.empty() && start <= values.size();) {
            size_t stop = values.find('\\', start);
            if (stop == std::string::npos)
                stop = values.size();
            std::string value = WideToAscii(Trim(AsciiToWide(values.substr(start, stop - start))));
            if (!EncodeBinaryValue(*row, value, bytes)) {
                error = where + ": '" + value + "' is not a value of VR " + vr;
                return false;
            }
            start = stop + 1;
        }
    }
    // PS3.5 7.1.2: the short explicit header holds lengths up to 0xFFFF.
    size_t padded = bytes.size() + bytes.size() % 2;
    if ((!facts->longForm && padded > 0xFFFF) || padded > 0xFFFFFFF0u) {
        error = FormatText("%s: a value of %zu bytes is too long for VR %s", where.c_str(), bytes.size(), vr.c_str());
        return false;
    }
    if (!dataSet.ReplaceTag(group, element, bytes.data(), static_cast<int>(bytes.size()), AsciiToWide(vr))) {
        error = where + ": " + (dataSet.GetLastError().IsSet() ? dataSet.GetLastError().GetText() : "cannot be set");
        return false;
    }
    return true;
}

std::string CheckValueForm(std::string_view vr, const std::u16string& text)
{
    const TextForm* row = nullptr;
    for (const TextForm& candidate : kTextForms)
        if (vr == candidate.vr)
            row = &candidate;
    if (!row || text.empty())
        return "";
    const VRFacts* facts = FindVRFacts(vr);
    std::string values = Utf16ToUtf8(text);
    for (size_t start = 0; start <= values.size();) {
        size_t stop = facts && facts->singleValued ? std::string::npos : values.find('\\', start);
        if (stop == std::string::npos)
            stop = values.size();
        std::string value = values.substr(start, stop - start);
        // Blanks around a value do not count, except leading ones of texts.
        size_t first = vr == "LT" || vr == "ST" ? 0 : value.find_first_not_of(' ');
        size_t last = value.find_last_not_of(' ');
        value = first == std::string::npos ? std::string() : value.substr(first, last - first + 1);
        size_t characters = Utf8ToUtf16(value).size();
        if (row->maxChars > 0 && characters > row->maxChars)
            return FormatText("'%s' has %zu characters: VR %s holds at most %zu", value.c_str(), characters,
                              row->vr, row->maxChars);
        if (!value.empty() && row->fits && !row->fits(value))
            return "'" + value + "' is not " + row->form + " (VR " + row->vr + ")";
        start = stop + 1;
    }
    return "";
}

bool ParseElementPath(std::string_view text, ElementPath& path, std::string& error)
{
    path.steps.clear();
    size_t start = 0;
    for (;;) {
        size_t dot = text.find('.', start);
        std::string_view segment = text.substr(start, dot == std::string_view::npos ? dot : dot - start);
        ElementPath::Step step;
        if (size_t open = segment.find('['); open != std::string_view::npos) {
            std::string_view index = segment.substr(open + 1);
            if (index.size() < 2 || index.back() != ']' || index.size() > 6 || !Digits(index, 0, index.size() - 1)) {
                error = "'" + std::string(segment) + "' is not SEQUENCE[n]";
                return false;
            }
            step.item = Number(index, 0, index.size() - 1);
            segment = segment.substr(0, open);
        }
        if (!ParseElementKey(segment, step.group, step.element)) {
            error = "'" + std::string(segment) + "' is neither a keyword nor a tag gggg,eeee";
            return false;
        }
        path.steps.push_back(step);
        bool last = dot == std::string_view::npos;
        if (last != (step.item < 0)) {
            error = last ? "'" + std::string(text) + "' ends in an item: name an element inside it"
                         : "'" + std::string(segment) + "' needs an item number [n] to reach into";
            return false;
        }
        if (last)
            return true;
        start = dot + 1;
    }
}

CDicomItem* FindElementParent(CDicomItem& dataSet, const ElementPath& path, bool create, std::string& error)
{
    CDicomItem* node = &dataSet;
    for (size_t i = 0; i + 1 < path.steps.size(); ++i) {
        const ElementPath::Step& step = path.steps[i];
        std::string where = TagText(step.group, step.element);
        CDicomItem* sequence = node->GetTagItem(step.group, step.element);
        if (sequence && sequence->GetVR() != "SQ") {
            error = where + " is not a sequence";
            return nullptr;
        }
        if (!sequence && create) {
            if (EditedElementVR(*node, step.group, step.element) != "SQ") {
                error = where + " is not a sequence";
                return nullptr;
            }
            sequence = node->InsertSequence(step.group, step.element);
        }
        if (!sequence) {
            error = where + ": no such sequence in the data set";
            return nullptr;
        }
        CDicomItem* item = sequence->GetTagItem(0xFFFE, 0xE000, step.item);
        if (!item && create && sequence->GetTagItemCount(0xFFFE, 0xE000) == step.item)
            item = sequence->InsertSequenceItem();
        if (!item) {
            error = FormatText("%s has no item %d (it has %d)", where.c_str(), step.item,
                               sequence->GetTagItemCount(0xFFFE, 0xE000));
            return nullptr;
        }
        node = item;
    }
    return node;
}

}  // namespace zeldicom
