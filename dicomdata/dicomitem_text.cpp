// Text values: stored bytes <-> wide text, and display lines.
// First version: the default repertoire (ISO_IR 100 / Latin-1), UTF-8
// (ISO_IR 192) and the ANSI code page (Windows-1252).
#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/tagtable.h"
#include "platform/text.h"

namespace {
enum class Encoding { Latin1, Utf8, Ansi };

// Windows-1252 0x80..0x9F; 0 marks the five unassigned positions.
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0, 0x017D, 0,
    0, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0, 0x017E, 0x0178};

bool UsesCharacterSet(const std::string& vr)
{
    return EqualsNoCase(vr, std::string("SH")) || EqualsNoCase(vr, std::string("PN")) ||
           EqualsNoCase(vr, std::string("LO")) || EqualsNoCase(vr, std::string("LT")) ||
           EqualsNoCase(vr, std::string("UT")) || EqualsNoCase(vr, std::string("ST"));
}

Encoding EncodingFor(const std::string& vr, const std::u16string& characterSet)
{
    if (!UsesCharacterSet(vr))
        return Encoding::Ansi;
    if (characterSet == u"ISO_IR 192")
        return Encoding::Utf8;
    if (characterSet == u"ISO_IR 100" || characterSet == u"ISO_IR 6")
        return Encoding::Latin1;
    return Encoding::Ansi;
}

std::string WithoutPadding(const std::string& bytes)
{
    size_t end = bytes.size();
    while (end > 0 && (bytes[end - 1] == ' ' || bytes[end - 1] == '\0'))
        --end;
    return bytes.substr(0, end);
}

std::u16string Decode(const std::string& raw, Encoding encoding)
{
    std::string bytes = WithoutPadding(raw);
    if (encoding == Encoding::Utf8)
        return Utf8ToUtf16(bytes);
    std::u16string text(bytes.size(), u'\0');
    for (size_t i = 0; i < bytes.size(); ++i) {
        auto c = static_cast<unsigned char>(bytes[i]);
        char16_t wide = c;
        if (encoding == Encoding::Ansi && c >= 0x80 && c < 0xA0)
            wide = kCp1252High[c - 0x80] ? kCp1252High[c - 0x80] : c;
        text[i] = wide;
    }
    return text;
}

std::string Encode(const std::u16string& text, Encoding encoding)
{
    if (encoding == Encoding::Utf8)
        return Utf16ToUtf8(text);
    std::string bytes(text.size(), '?');
    for (size_t i = 0; i < text.size(); ++i) {
        char16_t c = text[i];
        if (c < 0x100 && !(encoding == Encoding::Ansi && c >= 0x80 && c < 0xA0)) {
            bytes[i] = static_cast<char>(c);
        } else if (encoding == Encoding::Ansi) {
            for (int k = 0; k < 32; ++k)
                if (kCp1252High[k] == c)
                    bytes[i] = static_cast<char>(0x80 + k);
        }
    }
    return bytes;
}
}

std::u16string CDicomItem::TranslateTagValueFromDicomToUnicode(const std::string& bytes, const std::string& vr,
                                                               const std::u16string& characterSet)
{
    return Decode(bytes, EncodingFor(vr, characterSet));
}

std::string CDicomItem::TranslateTagValueFromUnicodeToDicom(const std::u16string& text, const std::string& vr,
                                                            const std::u16string& characterSet)
{
    return Encode(text, EncodingFor(vr, characterSet));
}

bool CDicomItem::Format(int group, int element, std::u16string& text) const
{
    std::u16string vr, description;
    if (!CTagTable::GetTagInfo(group, element, vr, description))
        return false;
    std::u16string value;
    if (vr == u"LO" || vr == u"CS" || vr == u"PN" || vr == u"DA" || vr == u"TM")
        GetTagValue(group, element, value);
    text = description + u" : " + value;
    return true;
}

std::string CDicomInfoStatics::ExtractCharacterSet(const CDicomItem* dataSet)
{
    std::u16string text;
    if (!dataSet || !dataSet->GetTagValue(0x0008, 0x0005, text))
        return {};
    size_t backslash = text.find(u'\\');
    if (backslash != std::u16string::npos && backslash > 0)
        return WideToAscii(text.substr(0, backslash));
    if (backslash == 0) {
        size_t next = text.find(u'\\', 1);
        return WideToAscii(text.substr(1, next == std::u16string::npos ? std::u16string::npos : next - 1));
    }
    return WideToAscii(text);
}
