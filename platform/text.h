#pragma once
// Text helpers: printf-style formatting, UTF-16 <-> UTF-8 and ASCII, and the
// small field and trimming tools that the DICOM value code relies on.
#include <cstdarg>
#include <string>

namespace zeldicom {

std::string FormatText(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string FormatTextV(const char* format, va_list args);
std::u16string FormatWide(const char* format, ...) __attribute__((format(printf, 1, 2)));

// ASCII only: bytes 0..127 map one to one; anything else becomes '?'.
std::u16string AsciiToWide(const std::string& text);
std::string WideToAscii(const std::u16string& text);

// Lossless conversions between UTF-8 and UTF-16; an invalid sequence
// becomes U+FFFD (decoding) or is encoded as it stands (lone surrogates).
std::u16string Utf8ToUtf16(const std::string& text);
std::string Utf16ToUtf8(const std::u16string& text);

// Decimal number at the start of the text (leading blanks skipped); 0 when none.
long WideToLong(const std::u16string& text);

// The index-th (from 0) field of text split at separator; empty when absent.
std::u16string GetField(const std::u16string& text, char16_t separator, int index);
// Leading and trailing white space (blank, tab, CR, LF, NUL) removed.
std::u16string Trim(const std::u16string& text);
int CharCount(const std::u16string& text, char16_t c);
// Position of the occurrence-th (from 0) c in text, or -1.
int CharIndex(const std::u16string& text, char16_t c, int occurrence);

bool EqualsNoCase(const std::u16string& a, const std::u16string& b);
bool EqualsNoCase(const std::string& a, const std::string& b);

}  // namespace zeldicom
