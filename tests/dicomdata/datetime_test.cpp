// Dates, times, person names and query ranges: the DICOM forms, what users
// type, and input that is none of them.
#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "dicomdata/dicomsettings.h"
#include "platform/datetools.h"
#include "platform/text.h"

namespace {

using Info = CDicomInfoStatics;

// The date protected helpers fill, seen from outside.
struct DateRanges : CDicomInfoStatics {
    using CDicomInfoStatics::FormatDicomDatesRequestForCurrentMonth;
    using CDicomInfoStatics::FormatDicomDatesRequestForCurrentWeek;
    using CDicomInfoStatics::FormatDicomDatesRequestForCurrentYear;
};

std::tm LocalNow(std::time_t offset = 0)
{
    std::time_t now = std::time(nullptr) + offset;
    std::tm local{};
    localtime_r(&now, &local);
    return local;
}

std::u16string TypedDate(std::u16string text)
{
    Info::ConvertDateToDicom(text);
    return text;
}

std::u16string TypedTime(std::u16string text)
{
    Info::ConvertTimeToDicom(text);
    return text;
}

std::u16string DatesRequest(const std::u16string& typed)
{
    std::u16string request;
    Info::FormatDicomDatesRequest(typed, request);
    return request;
}

std::u16string TimesRequest(const std::u16string& typed)
{
    std::u16string request;
    Info::FormatDicomTimesRequest(typed, request);
    return request;
}

std::u16string W(const std::string& text)
{
    return AsciiToWide(text);
}

}

TEST(DatesAndTimes, NumbersToDicomText)
{
    EXPECT_EQ(Info::ConvertDateToDicom(20240131L), u"20240131");
    EXPECT_EQ(Info::ConvertDateToDicom(18000000L), u"");
    EXPECT_EQ(Info::ConvertDateToDicom(-1L), u"");
    EXPECT_EQ(Info::ConvertTimeToDicom(93005L), u"093005");
    EXPECT_EQ(Info::ConvertTimeToDicom(-1L), u"");
}

TEST(DatesAndTimes, TypedDatesAndTimesInPlace)
{
    // A two-digit year is within the last hundred years, this one included.
    std::tm now = LocalNow();
    int thisYear = now.tm_year + 1900, yy = thisYear % 100;
    EXPECT_EQ(TypedDate(W(FormatText("05/03/%02d", yy))), W(FormatText("%04d0305", thisYear)));
    EXPECT_EQ(TypedDate(W(FormatText("05.03.%02d", (yy + 1) % 100))),
              W(FormatText("%04d0305", thisYear + 1 - 100)));
    EXPECT_EQ(TypedDate(u"05/03/24"), thisYear < 2124 ? u"20240305" : u"21240305");
    EXPECT_EQ(TypedDate(u"05.03.99"), thisYear < 2099 ? u"19990305" : u"20990305");
    // Anything else stays as typed.
    for (const char16_t* typed : {u"5/3/24", u"", u"05/03/2024", u"aa/bb/cc", u"05-03-24", u"05/03/24 "})
        EXPECT_EQ(TypedDate(typed), typed);

    EXPECT_EQ(TypedTime(u"09:30:05"), u"093005");
    for (const char16_t* typed : {u"9:30", u"", u"09:30", u"09-30-05", u"ab:cd:ef", u"09:30:05.5"})
        EXPECT_EQ(TypedTime(typed), u"");
}

TEST(DatesAndTimes, DicomDateToNumberAndDisplayDate)
{
    std::u16string text = u"20240305";
    EXPECT_EQ(Info::ConvertDateFromDicom(text), 20240305);
    EXPECT_EQ(text, u"05/03/24");
    text = u"2024.03.05";
    EXPECT_EQ(Info::ConvertDateFromDicom(text), 20240305);
    EXPECT_EQ(text, u"05/03/24");
    for (const char16_t* other : {u"2024-03-05", u"", u"2024030", u"202403051", u"2024O305"}) {
        text = other;
        EXPECT_EQ(Info::ConvertDateFromDicom(text), -1);
        EXPECT_EQ(text, other);
    }
}

TEST(PersonNames, FromDicomSplitsNamesAndTitles)
{
    const struct {
        const char16_t* name;
        int title;
        const char16_t *family, *given;
    } cases[] = {
        {u"DOE^JOHN", -1, u"DOE", u"JOHN"},
        {u"Madame DUPONT", 'F', u"DUPONT", u""},
        {u"mr SMITH^JOE", 'M', u"SMITH", u"JOE"},
        {u"Enfant MARTIN", ' ', u"MARTIN", u""},
        {u"MLLE ROUX", 'F', u"ROUX", u""},
        {u"1234 SMITH", -1, u"SMITH", u""},
        {u"^JOHN", -1, u"^JOHN", u""},
        // Not a title: "Madam" is no table entry.
        {u"Madam X", -1, u"Madam X", u""},
        {u"  DOE  ", -1, u"DOE", u""},
        // The space lies in the given name: the family name is not cut into.
        {u"DOE^JOHN PAUL", -1, u"DOE", u"JOHN PAUL"},
        {u"", -1, u"", u""},
    };
    for (const auto& c : cases) {
        std::u16string family = u"stale", given = u"stale";
        EXPECT_EQ(Info::ConvertNameFromDicom(c.name, family, given), c.title) << Utf16ToUtf8(c.name);
        EXPECT_EQ(family + u"|" + given, std::u16string(c.family) + u"|" + c.given) << Utf16ToUtf8(c.name);
    }
}

TEST(PersonNames, ToDicomKeepsTheRestOfThePreviousName)
{
    EXPECT_EQ(Info::ConvertNameToDicom(u"DOE", u"JOHN", u"DOE^JON^A^DR"), u"DOE^JOHN^A^DR");
    EXPECT_EQ(Info::ConvertNameToDicom(u"DOE", u"", u"X"), u"DOE^^");
    EXPECT_EQ(Info::ConvertNameToDicom(u"DOE", u"JOHN", u"X^Y"), u"DOE^JOHN^");
    EXPECT_EQ(Info::ConvertNameToDicom(u"DOE", u"JOHN", u""), u"DOE^JOHN");
    EXPECT_EQ(Info::ConvertNameToDicom(u"DOE", u"", u"A^B^MIDDLE"), u"DOE^^MIDDLE");
    // A family name that already holds components gets nothing appended.
    EXPECT_EQ(Info::ConvertNameToDicom(u"DOE^J", u"K", u"A^B^C"), u"DOE^J^K");
}

TEST(QueryRanges, TypedDatesBecomeRangeMatchingValues)
{
    EXPECT_EQ(DatesRequest(u"01/03/2024 .. 31/03/2024"), u"20240301-20240331");
    EXPECT_EQ(DatesRequest(u"..31/03/2024"), u"-20240331");
    EXPECT_EQ(DatesRequest(u"01/03/2024.."), u"20240301-");
    EXPECT_EQ(DatesRequest(u"20240301"), u"20240301");
    EXPECT_EQ(DatesRequest(u"1.3.2024"), u"20240301");
    EXPECT_EQ(DatesRequest(u"2024-03-01..2024.03.02"), u"20240301-20240302");
    // Unreadable sides are left out; unreadable single dates change nothing.
    EXPECT_EQ(DatesRequest(u"31/02/2024..xx"), u"");
    EXPECT_EQ(DatesRequest(u"nonsense"), u"");
    std::u16string request = u"kept";
    Info::FormatDicomDatesRequest(u"13/13/2024", request);
    EXPECT_EQ(request, u"kept");

    std::tm now = LocalNow();
    long year = now.tm_year + 1900L, month = now.tm_mon + 1L;
    EXPECT_EQ(DatesRequest(u"M"), W(FormatText("%ld%02ld01-%ld%02ld31", year, month, year, month)));
    EXPECT_EQ(DatesRequest(u"y"), W(FormatText("%ld0101-%ld1231", year, year)));
    std::tm later = LocalNow(6 * 24 * 3600);
    EXPECT_EQ(DatesRequest(u"w"), W(FormatText("%ld%02ld%02d-%d%02d%02d", year, month, now.tm_mday,
                                                later.tm_year + 1900, later.tm_mon + 1, later.tm_mday)));
    // The helpers empty both outputs first.
    std::u16string from = u"old", to = u"old";
    DateRanges::FormatDicomDatesRequestForCurrentYear(from, to);
    EXPECT_EQ(from + to, W(FormatText("%ld0101-%ld1231", year, year)));
}

TEST(QueryRanges, TypedTimesBecomeRangeMatchingValues)
{
    EXPECT_EQ(TimesRequest(u"08:00:00..12:00:00"), u"080000-120000");
    EXPECT_EQ(TimesRequest(u"08:00:00.."), u"080000-");
    EXPECT_EQ(TimesRequest(u" .. 12:00:00"), u"-120000");
    EXPECT_EQ(TimesRequest(u"08 : 00 : 00"), u"080000");
    EXPECT_EQ(TimesRequest(u"8:00"), u"");
    EXPECT_EQ(TimesRequest(u".."), u"");
}

TEST(DateTools, CalculateDateValidatesDaysAndMonths)
{
    EXPECT_EQ(CDateTimeTools::calculateDate(u"29/02/2024"), 20240229);
    for (const char16_t* bad : {u"29/02/2023", u"29/02/1900", u"31/04/2024", u"01/13/2024", u"20241301", u"2024030x",
                                u"", u"//", u"1/2/3/4", u"01/02/024", u"-1/-2/2024", u"99999999999999999999"})
        EXPECT_EQ(CDateTimeTools::calculateDate(bad), 0) << Utf16ToUtf8(bad);
    EXPECT_EQ(CDateTimeTools::calculateDate(u"1/2/2024"), 20240201);
    EXPECT_EQ(CDateTimeTools::calculateDate(u"31.12.1999"), 19991231);
    EXPECT_EQ(CDateTimeTools::calculateDate(u"1999-12-31"), 19991231);
    std::tm now = LocalNow();
    EXPECT_EQ(CDateTimeTools::calculateDate(W(FormatText("01/02/%02d", now.tm_year % 100))),
              (now.tm_year + 1900L) * 10000 + 201);
}

TEST(DateTools, DisplayFormsOfNumbers)
{
    std::u16string text = u"old";
    CDateTimeTools::Long2DateEx(20240305, text);
    EXPECT_EQ(text, u"05/03/2024");
    for (long bad : {-1L, 0L, 18000000L, 20241305L, 20240230L}) {
        CDateTimeTools::Long2DateEx(bad, text);
        EXPECT_EQ(text, u"") << bad;
    }
    CDateTimeTools::Long2Time(93005, text);
    EXPECT_EQ(text, u"09:30:05");
    for (long bad : {-1L, 250000L, 126000L, 120061L}) {
        CDateTimeTools::Long2Time(bad, text);
        EXPECT_EQ(text, u"") << bad;
    }
}
