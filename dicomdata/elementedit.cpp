// Any element of a data set from typed text: the key that names it and the
// conversion of the text to the element's VR (PS3.5 6.2).
#include "dicomdata/elementedit.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
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
    // The element's own VR, unless it is unknown there (UN): then the
    // dictionary's, with US or SS and OB or OW resolved by this data set.
    CDicomItem* existing = dataSet.GetTagItem(group, element);
    std::string vr = existing ? existing->GetVR() : std::string();
    if (vr.empty() || vr == "UN") {
        std::string known = ElementVR(group, element, &dataSet, false);
        if (!known.empty() && FindVRFacts(known))
            vr = known;
    }
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

}  // namespace zeldicom
