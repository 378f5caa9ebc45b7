#include "platform/text.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace zeldicom {

std::string FormatTextV(const char* format, va_list args)
{
    char small[256];
    va_list copy;
    va_copy(copy, args);
    int needed = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (needed < 0)
        return {};
    if (static_cast<size_t>(needed) < sizeof small)
        return std::string(small, static_cast<size_t>(needed));
    std::string result(static_cast<size_t>(needed) + 1, '\0');
    std::vsnprintf(result.data(), result.size(), format, args);
    result.resize(static_cast<size_t>(needed));
    return result;
}

std::string FormatText(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string result = FormatTextV(format, args);
    va_end(args);
    return result;
}

std::u16string FormatWide(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string result = FormatTextV(format, args);
    va_end(args);
    return Utf8ToUtf16(result);
}

std::u16string AsciiToWide(const std::string& text)
{
    std::u16string result(text.size(), u'\0');
    for (size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        result[i] = c < 0x80 ? c : u'?';
    }
    return result;
}

std::string WideToAscii(const std::u16string& text)
{
    std::string result(text.size(), '\0');
    for (size_t i = 0; i < text.size(); ++i)
        result[i] = text[i] < 0x80 ? static_cast<char>(text[i]) : '?';
    return result;
}

std::u16string Utf8ToUtf16(const std::string& text)
{
    std::u16string out;
    out.reserve(text.size());
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    size_t n = text.size();
    for (size_t i = 0; i < n;) {
        unsigned char c = p[i];
        char32_t cp;
        size_t len;
        if (c < 0x80) { cp = c; len = 1; }
        else if ((c & 0xE0) == 0xC0) { cp = c & 0x1F; len = 2; }
        else if ((c & 0xF0) == 0xE0) { cp = c & 0x0F; len = 3; }
        else if ((c & 0xF8) == 0xF0) { cp = c & 0x07; len = 4; }
        else { out.push_back(u'\xFFFD'); ++i; continue; }
        if (i + len > n) { out.push_back(u'\xFFFD'); ++i; continue; }
        bool valid = true;
        for (size_t k = 1; k < len; ++k) {
            if ((p[i + k] & 0xC0) != 0x80) { valid = false; break; }
            cp = (cp << 6) | (p[i + k] & 0x3F);
        }
        // Overlong forms and values beyond U+10FFFF are not UTF-8.
        static constexpr char32_t minimum[5] = {0, 0, 0x80, 0x800, 0x10000};
        if (!valid || cp < minimum[len] || cp > 0x10FFFF) { out.push_back(u'\xFFFD'); ++i; continue; }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(cp));
        }
        i += len;
    }
    return out;
}

std::string Utf16ToUtf8(const std::u16string& text)
{
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t cp = text[i];
        if (cp >= 0xD800 && cp < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        }
        if (cp < 0x80) {
            out.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }
    return out;
}

long WideToLong(const std::u16string& text)
{
    std::string ascii = WideToAscii(text);
    return std::strtol(ascii.c_str(), nullptr, 10);
}

std::u16string GetField(const std::u16string& text, char16_t separator, int index)
{
    if (index < 0)
        return {};
    size_t start = 0;
    for (int i = 0; i < index; ++i) {
        size_t next = text.find(separator, start);
        if (next == std::u16string::npos)
            return {};
        start = next + 1;
    }
    size_t end = text.find(separator, start);
    return text.substr(start, end == std::u16string::npos ? std::u16string::npos : end - start);
}

static bool IsTrimmed(char16_t c)
{
    return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n' || c == u'\0';
}

std::u16string Trim(const std::u16string& text)
{
    size_t begin = 0, end = text.size();
    while (begin < end && IsTrimmed(text[begin]))
        ++begin;
    while (end > begin && IsTrimmed(text[end - 1]))
        --end;
    return text.substr(begin, end - begin);
}

int CharCount(const std::u16string& text, char16_t c)
{
    int count = 0;
    for (char16_t x : text)
        count += x == c;
    return count;
}

int CharIndex(const std::u16string& text, char16_t c, int occurrence)
{
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] == c && occurrence-- == 0)
            return static_cast<int>(i);
    return -1;
}

template <typename S>
static bool EqualsNoCaseImpl(const S& a, const S& b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i) {
        auto x = a[i], y = b[i];
        if (x >= 'a' && x <= 'z') x = static_cast<decltype(x)>(x - 32);
        if (y >= 'a' && y <= 'z') y = static_cast<decltype(y)>(y - 32);
        if (x != y)
            return false;
    }
    return true;
}

bool EqualsNoCase(const std::u16string& a, const std::u16string& b) { return EqualsNoCaseImpl(a, b); }
bool EqualsNoCase(const std::string& a, const std::string& b) { return EqualsNoCaseImpl(a, b); }

}  // namespace zeldicom
