#pragma once
// Character sets: the DICOM defined terms of Specific Character Set (0008,0005)
// mapped to code page numbers, and the converters between the bytes of a code
// page and wide (UTF-16) text, built on iconv.
//
// Code page numbers follow the Windows numbering where one exists (28591 for
// ISO-8859-1, 65001 for UTF-8, 932 for Shift-JIS, ...). The ISO 2022 defined
// terms (PS3.3 C.12.1.1.2, with code extensions) get the numbers 50000 + the
// ISO-IR registration number; their converter follows the escape sequences of
// the value itself (PS3.5 6.1.2.5), whichever of them is the first value.
#include <string>

namespace zeldicom {

// Pseudo code pages: the calling thread's ANSI code page.
constexpr int kCodePageAnsi = 0;
constexpr int kCodePageThreadAnsi = 3;
constexpr int kCodePageUtf8 = 65001;

// The code page that kCodePageAnsi and kCodePageThreadAnsi stand for:
// Windows-1252 unless the host sets another. Returns false (and keeps the
// current one) when no converter exists for the given number.
bool SetAnsiCodePage(int codePage);
int GetAnsiCodePage();

}  // namespace zeldicom

class CDcmCharacterSet2CodePageReader {
public:
    static CDcmCharacterSet2CodePageReader& GetUniqueInstance();
    // The code page of a DICOM defined term (leading and trailing blanks
    // ignored); -1 when the term is empty or unknown.
    int GetCodePageFromDcmCharacterSet(const std::u16string& characterSet) const;

private:
    CDcmCharacterSet2CodePageReader() = default;
};

class CStringTools {
public:
    // Bytes of the code page to wide text. Trailing padding (blanks and zero
    // bytes) is dropped; a byte sequence the code page does not define gives
    // U+FFFD and decoding goes on. False only for an unknown code page.
    static bool TranslateFromIsoCharSet2Unicode(const std::string& bytes, std::u16string& text, int codePage);
    // Wide text to bytes of the code page. False when the code page is
    // unknown or cannot hold a character of the text (bytes then empty).
    static bool TranslateFromUnicode2IsoCharSet(const std::u16string& text, std::string& bytes, int codePage);
};
