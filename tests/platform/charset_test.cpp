// Code pages of the DICOM defined terms and the converters behind them.
#include <gtest/gtest.h>

#include <string>

#include "platform/charset.h"

using namespace zeldicom;

namespace {

int CodePage(const char16_t* term)
{
    return CDcmCharacterSet2CodePageReader::GetUniqueInstance().GetCodePageFromDcmCharacterSet(term);
}

std::u16string Decode(const std::string& bytes, const char16_t* term)
{
    std::u16string text;
    EXPECT_TRUE(CStringTools::TranslateFromIsoCharSet2Unicode(bytes, text, CodePage(term))) << "decoding";
    return text;
}

bool Encode(const std::u16string& text, const char16_t* term, std::string& bytes)
{
    return CStringTools::TranslateFromUnicode2IsoCharSet(text, bytes, CodePage(term));
}

}

// Every defined term converting names both ways is the tree round trip's
// business (tests/dicomdata/text_roundtrip_test.cpp); here the lookup itself.
TEST(CharsetTable, DefinedTermsHaveCodePagesAndOthersNone)
{
    EXPECT_EQ(CodePage(u"ISO_IR 100"), 28591);
    EXPECT_EQ(CodePage(u"ISO_IR 192"), 65001);
    EXPECT_EQ(CodePage(u" ISO_IR 100 "), 28591);  // blanks of a padded CS value
    EXPECT_EQ(CodePage(u""), -1);
    EXPECT_EQ(CodePage(u"ISO_IR 999"), -1);
    EXPECT_EQ(CodePage(u"iso_ir 100"), -1);  // defined terms are upper case
    std::u16string text;
    EXPECT_FALSE(CStringTools::TranslateFromIsoCharSet2Unicode("A", text, 12345));
    std::string bytes;
    EXPECT_FALSE(CStringTools::TranslateFromUnicode2IsoCharSet(u"A", bytes, 12345));
}

TEST(CharsetConversion, TextASetCannotHoldIsReported)
{
    std::string bytes = "untouched";
    EXPECT_FALSE(Encode(u"J\u00E9r\u00F4me", u"ISO_IR 6", bytes));
    EXPECT_TRUE(bytes.empty());
    EXPECT_FALSE(Encode(u"\u5C71\u7530", u"ISO_IR 100", bytes));
    EXPECT_FALSE(Encode(u"\u05E9", u"ISO_IR 126", bytes));  // Hebrew in Greek
    EXPECT_FALSE(Encode(u"\u0416", u"ISO_IR 13", bytes));
    EXPECT_FALSE(Encode(std::u16string(1, u'\xD800'), u"ISO_IR 192", bytes));  // lone surrogate
    EXPECT_FALSE(Encode(u"\U0001F600", u"ISO 2022 IR 87", bytes));          // no ISO 2022 set has it
    // A character outside the BMP goes through as a surrogate pair.
    ASSERT_TRUE(Encode(u"\U0001F600", u"ISO_IR 192", bytes));
    EXPECT_EQ(bytes, "\xF0\x9F\x98\x80");
    EXPECT_EQ(Decode(bytes, u"ISO_IR 192"), u"\U0001F600");
}

TEST(CharsetConversion, InvalidBytesBecomeReplacementCharactersAndPaddingIsDropped)
{
    EXPECT_EQ(Decode("A\xFF" "B", u"ISO_IR 192"), u"A\uFFFDB");
    EXPECT_EQ(Decode("\xE7\x8E", u"ISO_IR 192"), u"\uFFFD\uFFFD");  // truncated sequence
    EXPECT_EQ(Decode("\x81", u"GB18030"), u"\uFFFD");
    EXPECT_EQ(Decode("A\x80", u"ISO_IR 6"), u"A\uFFFD");
    EXPECT_EQ(Decode("\xA1", u"ISO_IR 127"), u"\uFFFD");  // unassigned in ISO 8859-6
    // Trailing blanks and NULs are padding; leading blanks and inner NULs are text.
    EXPECT_EQ(Decode(" AB \0 \0", u"ISO_IR 100"), u" AB");
    EXPECT_EQ(Decode(std::string("A\0B", 3), u"ISO_IR 100"), std::u16string(u"A\0B", 3));
    EXPECT_EQ(Decode("\xE7\x8E\x8B ", u"ISO_IR 192"), u"\u738B");
    EXPECT_EQ(Decode("    ", u"ISO_IR 100"), u"");
    EXPECT_EQ(Decode("", u"ISO 2022 IR 87"), u"");
}

// The examples of PS3.5 H and I, whole, are pydicom's charset samples
// (tests/dicomdata/text_corpus_test.cpp) and the tree's person name encoding
// (tests/dicomdata/text_test.cpp); here the switching itself.
TEST(CharsetConversion, Iso2022FollowsEscapeSequencesAndResetsAtDelimiters)
{
    // Whichever ISO 2022 term is the first value, the escapes decide.
    const std::string japanese = "Yamada^Tarou=\x1b$B;3ED\x1b(B^\x1b$BB@O:\x1b(B";
    for (const char16_t* term : {u"ISO 2022 IR 87", u"ISO 2022 IR 6", u"ISO 2022 IR 100", u"ISO 2022 IR 149"})
        EXPECT_EQ(Decode(japanese, term), u"Yamada^Tarou=\u5C71\u7530^\u592A\u90CE");
    // Half-width katakana in G1 from ISO 2022 IR 13; G1 sets designated per component.
    EXPECT_EQ(Decode("\xd4\xcf^\x1b$B;3ED\x1b(J", u"ISO 2022 IR 13"), u"\uFF94\uFF8F^\u5C71\u7530");
    EXPECT_EQ(Decode("Hong=\x1b$)C\xfb\xf3^\x1b$)C\xd1\xce", u"ISO 2022 IR 6"), u"Hong=\u6D2A^\u5409");
    EXPECT_EQ(Decode("Zhang=\x1b$)A\xd5\xc5^", u"ISO 2022 IR 58"), u"Zhang=\u5F20^");

    std::string bytes;
    const std::tuple<std::u16string, const char16_t*, std::string> encodings[] = {
        {u"\u4E02", u"ISO 2022 IR 159", "\x1b$(D0!\x1b(B"},  // JIS X 0212 in G0: not in JIS X 0208
        {u"\uFF94\uFF8F", u"ISO 2022 IR 13", "\xd4\xcf"},
        // ISO 2022 IR 13 starts in JIS X 0201 Romaji and returns to it, not to ASCII.
        {u"\uFF94\uFF8F^\u5C71\u7530", u"ISO 2022 IR 13", "\xd4\xcf^\x1b$B;3ED\x1b(J"},
        // Another alphabet goes to G1 in its own 96-character set; a CJK first
        // value keeps its own double-byte set first (JIS X 0208 has Cyrillic).
        {u"\u00E9\u0394", u"ISO 2022 IR 100", "\xE9\x1b-F\xC4"},
        {u"\u0416", u"ISO 2022 IR 6", "\x1b-L\xB6"},
        {u"\u0416", u"ISO 2022 IR 87", "\x1b$B'(\x1b(B"},
        // A reset point in the text returns G0 to ASCII before it.
        {u"\u5C71\\\u7530", u"ISO 2022 IR 87", "\x1b$B;3\x1b(B\\\x1b$BED\x1b(B"},
    };
    for (const auto& [text, term, expected] : encodings) {
        ASSERT_TRUE(Encode(text, term, bytes));
        EXPECT_EQ(bytes, expected);
        EXPECT_EQ(Decode(bytes, term), text);
    }
}

TEST(CharsetConversion, DamagedIso2022ValuesDecodeWithoutFailing)
{
    EXPECT_EQ(Decode("\x1b", u"ISO 2022 IR 87"), u"\uFFFD");
    EXPECT_EQ(Decode("A\x1b$", u"ISO 2022 IR 87"), u"A\uFFFD$");
    EXPECT_EQ(Decode("\x1b%GA", u"ISO 2022 IR 6"), u"\uFFFD%GA");  // escape the value may not use
    EXPECT_EQ(Decode("\x1b$B;", u"ISO 2022 IR 87"), u";");         // odd byte of a pair: read as ASCII
    EXPECT_EQ(Decode("\x1b$)C\xfb", u"ISO 2022 IR 149"), u"\uFFFD");  // lone lead byte
    EXPECT_EQ(Decode("A\xE9", u"ISO 2022 IR 6"), u"A\uFFFD");         // no G1 set designated
    EXPECT_EQ(Decode("\x1b$B\x7f\x7f", u"ISO 2022 IR 87"), u"\x7f\x7f");
    // A pair outside JIS X 0208: neither byte starts a character.
    EXPECT_EQ(Decode("\x1b$B~~\x1b(B", u"ISO 2022 IR 87"), u"\uFFFD\uFFFD");
    EXPECT_EQ(Decode("\x82\xA0", u"ISO_IR 13"), u"\uFFFD\uFFFD");  // Shift-JIS, not JIS X 0201
}

TEST(CharsetConversion, AnsiCodePageIsWindows1252UnlessTheHostSetsAnother)
{
    ASSERT_EQ(GetAnsiCodePage(), 1252);
    std::u16string text;
    ASSERT_TRUE(CStringTools::TranslateFromIsoCharSet2Unicode("\x80", text, kCodePageThreadAnsi));
    EXPECT_EQ(text, u"\u20AC");
    EXPECT_FALSE(SetAnsiCodePage(42));
    EXPECT_EQ(GetAnsiCodePage(), 1252);
    ASSERT_TRUE(SetAnsiCodePage(1251));
    ASSERT_TRUE(CStringTools::TranslateFromIsoCharSet2Unicode("\xC0", text, kCodePageAnsi));
    EXPECT_EQ(text, u"\u0410");
    std::string bytes;
    EXPECT_FALSE(CStringTools::TranslateFromUnicode2IsoCharSet(u"\u20AC\u00E9", bytes, kCodePageThreadAnsi));
    ASSERT_TRUE(SetAnsiCodePage(1252));
    ASSERT_TRUE(CStringTools::TranslateFromUnicode2IsoCharSet(u"\u20AC\u00E9", bytes, kCodePageThreadAnsi));
    EXPECT_EQ(bytes, "\x80\xE9");
}

TEST(CharsetConversion, AnyTextEncodedComesBackAndAnyBytesDecodeBounded)
{
    const char16_t* terms[] = {u"ISO_IR 6",        u"ISO_IR 100",      u"ISO_IR 126",      u"ISO_IR 144",
                               u"ISO_IR 13",       u"ISO_IR 166",      u"ISO_IR 192",      u"GB18030",
                               u"GBK",             u"ISO 2022 IR 6",   u"ISO 2022 IR 100", u"ISO 2022 IR 13",
                               u"ISO 2022 IR 87",  u"ISO 2022 IR 159", u"ISO 2022 IR 149", u"ISO 2022 IR 58"};
    // Letters of several scripts, delimiters and the characters that switch
    // or end code sets, mixed at random (fixed seed).
    const std::u16string pool = u"Az^=\\ \u00E9\u00DF\u0394\u0416\u05E9\u0E01\u3042\u30A2\uFF71\u5C71\u4E02\uD64D"
                                u"\u5F20\u20AC\r\n";
    uint32_t seed = 12345;
    auto next = [&seed] {
        seed = seed * 1103515245u + 12345u;
        return seed >> 16;
    };
    for (int round = 0; round < 300; ++round) {
        std::u16string text;
        size_t length = next() % 12;
        for (size_t k = 0; k < length; ++k)
            text += pool[next() % pool.size()];
        text += u'x';  // trailing blanks would be taken for padding
        std::string raw;
        for (size_t k = 0, rawLength = next() % 40; k < rawLength; ++k)
            raw += static_cast<char>(k % 7 == 3 ? 0x1B : next() & 0xFF);
        for (const char16_t* term : terms) {
            std::string bytes;
            if (Encode(text, term, bytes))
                EXPECT_EQ(Decode(bytes, term), text);
            else
                EXPECT_TRUE(bytes.empty());
            std::u16string decoded = Decode(raw, term);
            EXPECT_LE(decoded.size(), raw.size());
            if (std::u16string(term).rfind(u"ISO 2022", 0) == 0) {
                EXPECT_EQ(decoded.find(u'\x1B'), std::u16string::npos);
            }
        }
    }
    // Every ISO 2022 term and UTF-8 hold the whole pool.
    std::string bytes;
    for (const char16_t* term : {u"ISO 2022 IR 6", u"ISO 2022 IR 87", u"ISO_IR 192"})
        EXPECT_TRUE(Encode(pool + u"x", term, bytes));
}
