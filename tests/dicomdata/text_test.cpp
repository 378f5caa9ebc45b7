// Text values in the element tree: code page choice by label and VR, person
// names encoded by component, unencodable text, the character set of a data
// set, and display lines.
#include <gtest/gtest.h>

#include <string>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "platform/text.h"

namespace {

std::string Stored(const CDicomItem* element)
{
    return element ? std::string(reinterpret_cast<const char*>(element->GetData()),
                                 static_cast<size_t>(element->GetDataSize()))
                   : std::string("<absent>");
}

std::u16string FromDicom(const std::string& bytes, const std::string& vr, const char16_t* label)
{
    return CDicomItem::TranslateTagValueFromDicomToUnicode(bytes, vr, label);
}

std::string ToDicom(const std::u16string& text, const std::string& vr, const char16_t* label)
{
    return CDicomItem::TranslateTagValueFromUnicodeToDicom(text, vr, label);
}

}

TEST(TextValues, LabelDecidesOnlyForTheSixTextVRs)
{
    // ISO 8859-7: 0xC4 is Delta in a person name, but CS is read with the
    // ANSI code page (Windows-1252: A with diaeresis).
    for (const char* vr : {"PN", "SH", "LO", "LT", "UT", "ST", "pn", "lo"})
        EXPECT_EQ(FromDicom("\xC4", vr, u"ISO_IR 126"), u"\u0394") << vr;
    for (const char* vr : {"CS", "AE", "UI", "DA", "", "UN"})
        EXPECT_EQ(FromDicom("\xC4", vr, u"ISO_IR 126"), u"\u00C4") << vr;
    // ISO_IR 100 keeps 0x80 a C1 control where Windows-1252 has the euro sign.
    EXPECT_EQ(FromDicom("\x80", "PN", u"ISO_IR 100"), u"\u0080");
    EXPECT_EQ(FromDicom("\x80", "CS", u"ISO_IR 100"), u"\u20AC");
    // A label without code page: every VR uses the ANSI code page.
    EXPECT_EQ(FromDicom("\x80", "PN", u"") + FromDicom("\x80", "PN", u"ISO_IR 999"), u"\u20AC\u20AC");
    EXPECT_EQ(ToDicom(u"\u20AC", "LO", u""), "\x80");
    EXPECT_EQ(ToDicom(u"\u0394", "LO", u"ISO_IR 126"), "\xC4");
    EXPECT_EQ(ToDicom(u"\u00C4", "CS", u"ISO_IR 126"), "\xC4");
    // Padding is not part of the text.
    EXPECT_EQ(FromDicom("CT ", "CS", u"ISO_IR 100"), u"CT");
    EXPECT_EQ(FromDicom(std::string("1.2\0", 4), "UI", u"ISO_IR 100"), u"1.2");
}

TEST(TextValues, PersonNamesAreEncodedComponentByComponent)
{
    // PS3.5 H.3.1 and I.2: each component returns to ASCII (or designates
    // its G1 set again) on its own.
    EXPECT_EQ(ToDicom(u"Yamada^Tarou=\u5C71\u7530^\u592A\u90CE=\u3084\u307E\u3060^\u305F\u308D\u3046", "PN",
                      u"ISO 2022 IR 87"),
              "Yamada^Tarou=\x1b$B;3ED\x1b(B^\x1b$BB@O:\x1b(B=\x1b$B$d$^$@\x1b(B^\x1b$B$?$m$&\x1b(B");
    EXPECT_EQ(ToDicom(u"Hong^Gildong=\u6D2A^\u5409\u6D1E=\uD64D^\uAE38\uB3D9", "PN", u"ISO 2022 IR 149"),
              "Hong^Gildong=\x1b$)C\xfb\xf3^\x1b$)C\xd1\xce\xd4\xd7=\x1b$)C\xc8\xab^\x1b$)C\xb1\xe6\xb5\xbf");
    // Three components joined by "^", no trailing "^" added; a final one kept.
    EXPECT_EQ(ToDicom(u"\u5C71^\u7530^X", "PN", u"ISO 2022 IR 87"), "\x1b$B;3\x1b(B^\x1b$BED\x1b(B^X");
    EXPECT_EQ(ToDicom(u"DOE^", "PN", u"ISO_IR 100"), "DOE^");
    EXPECT_EQ(ToDicom(u"^^JOHN", "PN", u"ISO_IR 100"), "^^JOHN");
    EXPECT_EQ(ToDicom(u"D\u00D6E", "PN", u"ISO_IR 100"), "D\xD6" "E");
    // A long text is not split at "^".
    EXPECT_EQ(ToDicom(u"\u5C71^\u7530", "LO", u"ISO 2022 IR 87"), "\x1b$B;3\x1b(B^\x1b$BED\x1b(B");
}

TEST(TextValues, TreeEncodesWithTheNodeLabelAndReportsWhatItCannotHold)
{
    CDicomItem data(u"Data");
    data.m_sCharacterSet = "ISO_IR 144";
    CDicomItem* name = data.AddTag(0x0010, 0x0010, u"\u041B\u044E\u043A", u"");
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(Stored(name), std::string("\xBB\xEE\xDA ", 4));  // ISO 8859-5, padded with a blank
    std::u16string text;
    ASSERT_TRUE(data.GetTagValue(0x0010, 0x0010, text));
    EXPECT_EQ(text, u"\u041B\u044E\u043A");

    // Japanese in a Cyrillic data set: CopyData refuses and stores nothing new.
    EXPECT_FALSE(name->CopyData(u"\u5C71\u7530"));
    EXPECT_FALSE(data.CopyData(0x0010, 0x0010, u"\u5C71\u7530"));
    EXPECT_TRUE(data.CopyData(0x0010, 0x0010, u"\u0416"));
    EXPECT_EQ(Stored(name), std::string("\xB6 ", 2));
    EXPECT_EQ(ToDicom(u"\u5C71\u7530", "PN", u"ISO_IR 144"), "");
    EXPECT_EQ(data.AddTag(0x0010, 0x1001, u"\u5C71\u7530", u""), nullptr);
    EXPECT_EQ(data.InsertTag(0x0010, 0x1001, u"\u5C71\u7530", u""), nullptr);
    EXPECT_EQ(data.GetTagItem(0x0010, 0x1001), nullptr);
    // ReplaceTag refuses it with the reason, and the old value stays.
    EXPECT_EQ(data.ReplaceTag(0x0010, 0x0010, u"\u5C71\u7530", u""), nullptr);
    EXPECT_EQ(data.GetLastError().GetCode(), CLastError::kNotRepresentable);
    EXPECT_EQ(data.GetTagItemCount(0x0010, 0x0010), 1);
    EXPECT_EQ(Stored(data.GetTagItem(0x0010, 0x0010)), std::string("\xB6 ", 2));

    // The same tree in UTF-8 takes anything.
    CDicomItem utf8(u"Data");
    utf8.m_sCharacterSet = "ISO_IR 192";
    CDicomItem* comment = utf8.AddTag(0x0020, 0x4000, u"\u5C71\u7530  \u0416", u"LT");
    ASSERT_NE(comment, nullptr);
    EXPECT_EQ(Stored(comment), "\xE5\xB1\xB1\xE7\x94\xB0  \xD0\x96");
    ASSERT_TRUE(comment->GetTagValue(text));
    EXPECT_EQ(text, u"\u5C71\u7530  \u0416");
}

TEST(TextValues, CharacterSetOfADataSetIsItsFirstNonEmptyValue)
{
    CDicomItem none(u"Data");
    EXPECT_EQ(CDicomInfoStatics::ExtractCharacterSet(nullptr) + CDicomInfoStatics::ExtractCharacterSet(&none), "");
    const std::pair<const char16_t*, const char*> cases[] = {
        {u"ISO_IR 192", "ISO_IR 192"},
        {u"ISO 2022 IR 13\\ISO 2022 IR 87", "ISO 2022 IR 13"},
        {u"\\ISO 2022 IR 87", "ISO 2022 IR 87"},
        {u"\\ISO 2022 IR 149\\ISO 2022 IR 87", "ISO 2022 IR 149"},
        {u"ISO_IR 100 ", "ISO_IR 100"},
    };
    for (const auto& [value, expected] : cases) {
        CDicomItem data(u"Data");
        ASSERT_NE(data.AddTag(0x0008, 0x0005, value, u"CS"), nullptr);
        EXPECT_EQ(CDicomInfoStatics::ExtractCharacterSet(&data), expected);
    }
}

TEST(TextValues, FormatGivesDescriptionAndValueByDictionaryVR)
{
    CDicomItem data(u"Data");
    data.AddTag(0x0028, 0x0010, static_cast<uint16_t>(512));
    const struct {
        int group, element;
        const char16_t *value, *line;
    } cases[] = {
        {0x0008, 0x0060, u"MR", u"Modality : MR"},
        {0x0010, 0x0030, u"20240305", u"Patient's Birth Date : 05/03/2024"},
        {0x0008, 0x0030, u"093005.25", u"Study Time : 09:30:05"},
        {0x0010, 0x0010, u"Madame DUPONT^MARIE", u"Patient's Name : DUPONT MARIE"},
        {0x0008, 0x0070, u"ACME", u"Manufacturer : ACME"},
        // An unreadable date, an absent element and a VR that is not shown.
        {0x0008, 0x0020, u"garbage", u"Study Date : "},
        {0x0010, 0x0020, nullptr, u"Patient ID : "},
        {0x0028, 0x0010, nullptr, u"Rows : "},
    };
    for (const auto& c : cases)
        if (c.value)
            data.AddTag(c.group, c.element, c.value, u"");
    std::u16string line;
    for (const auto& c : cases) {
        ASSERT_TRUE(data.Format(c.group, c.element, line));
        EXPECT_EQ(line, c.line);
    }
    EXPECT_FALSE(data.Format(0x0009, 0x1001, line));
}
