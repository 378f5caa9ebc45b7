// Dates, times, person names and query ranges: the DICOM forms, what users
// type, and input that is none of them.
#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "dicomdata/dicomsettings.h"
#include "platform/datetools.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
using Info = CDicomInfoStatics;

// The date protected helpers fill, seen from outside.
struct DateRanges : CDicomInfoStatics {
    using CDicomInfoStatics::FormatDicomDatesRequestForCurrentYear;
};

std::tm LocalNow(std::time_t offset = 0)
{
    std::time_t now = std::time(nullptr) + offset;
    std::tm local{};
    localtime_r(&now, &local);
    return local;
}

// Each case: input, expected output of the conversion under test.
using Cases = std::initializer_list<std::pair<std::u16string, std::u16string>>;

template <typename Convert>
void ExpectAll(Cases cases, Convert convert)
{
    for (const auto& [input, expected] : cases)
        EXPECT_EQ(convert(input), expected) << Utf16ToUtf8(input);
}

std::u16string W(const std::string& text) { return AsciiToWide(text); }
}

TEST(DatesAndTimes, NumbersAndTypedTextToDicomText)
{
    EXPECT_EQ(Info::ConvertDateToDicom(20240131L), u"20240131");
    EXPECT_EQ(Info::ConvertDateToDicom(18000000L) + Info::ConvertDateToDicom(-1L), u"");
    EXPECT_EQ(Info::ConvertTimeToDicom(93005L), u"093005");
    EXPECT_EQ(Info::ConvertTimeToDicom(-1L), u"");

    // A two-digit year is within the last hundred years, this one included;
    // anything else stays as typed.
    int thisYear = LocalNow().tm_year + 1900, yy = thisYear % 100;
    auto typedDate = [](std::u16string text) {
        Info::ConvertDateToDicom(text);
        return text;
    };
    ExpectAll({{W(FormatText("05/03/%02d", yy)), W(FormatText("%04d0305", thisYear))},
               {W(FormatText("05.03.%02d", (yy + 1) % 100)), W(FormatText("%04d0305", thisYear + 1 - 100))},
               {u"05/03/24", thisYear < 2124 ? u"20240305" : u"21240305"},
               {u"05.03.99", thisYear < 2099 ? u"19990305" : u"20990305"},
               {u"5/3/24", u"5/3/24"}, {u"", u""}, {u"05/03/2024", u"05/03/2024"}, {u"aa/bb/cc", u"aa/bb/cc"},
               {u"05-03-24", u"05-03-24"}, {u"05/03/24 ", u"05/03/24 "}},
              typedDate);
    auto typedTime = [](std::u16string text) {
        Info::ConvertTimeToDicom(text);
        return text;
    };
    ExpectAll({{u"09:30:05", u"093005"}, {u"9:30", u""}, {u"", u""}, {u"09:30", u""}, {u"09-30-05", u""},
               {u"ab:cd:ef", u""}, {u"09:30:05.5", u""}},
              typedTime);
}

TEST(DatesAndTimes, DicomDateToNumberAndDisplayDate)
{
    // Readable dates become the number and the display form; others stay.
    ExpectAll({{u"20240305", u"20240305 05/03/24"}, {u"2024.03.05", u"20240305 05/03/24"},
               {u"2024-03-05", u"-1 2024-03-05"}, {u"", u"-1 "}, {u"2024030", u"-1 2024030"},
               {u"202403051", u"-1 202403051"}, {u"2024O305", u"-1 2024O305"}},
              [](std::u16string text) {
                  long number = Info::ConvertDateFromDicom(text);
                  return W(std::to_string(number)) + u" " + text;
              });
}

TEST(DatesAndTimes, DicomValuesInIso8601)
{
    const struct {
        const char16_t* value;
        const char* vr;
        const char16_t* iso;
    } kCases[] = {
        {u"20240131", "DA", u"2024-01-31"},     {u"2024.01.31", "DA", u"2024-01-31"},
        {u"093005", "TM", u"09:30:05"},         {u"0930", "TM", u"09:30"},
        {u"093005.25 ", "TM", u"09:30:05.25"},  {u"09:30:05", "TM", u"09:30:05"},
        {u"20240131093005", "DT", u"2024-01-31T09:30:05"},
        {u"20240131093005.5+0100", "DT", u"2024-01-31T09:30:05.5+01:00"},
        {u"202401", "DT", u"2024-01"},
        // Other shapes come back as they are.
        {u"2024-01-31", "DA", u"2024-01-31"},  {u"31/01/2024", "DA", u"31/01/2024"},
        {u"0930.5", "TM", u"0930.5"},          {u"93005", "TM", u"93005"},
        {u"20240131", "LO", u"20240131"},      {u"2024013109300", "DT", u"2024013109300"},
    };
    for (const auto& c : kCases)
        EXPECT_EQ(Utf16ToUtf8(Info::FormatDateTimeIso(c.value, c.vr)), Utf16ToUtf8(c.iso)) << Utf16ToUtf8(c.value);
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
        {u"Madam X", -1, u"Madam X", u""},  // "Madam" is no title
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
    // Family, given and previous name, separated by "|".
    ExpectAll({{u"DOE|JOHN|DOE^JON^A^DR", u"DOE^JOHN^A^DR"}, {u"DOE||X", u"DOE^^"}, {u"DOE|JOHN|X^Y", u"DOE^JOHN^"},
               {u"DOE|JOHN|", u"DOE^JOHN"}, {u"DOE||A^B^MIDDLE", u"DOE^^MIDDLE"},
               // A family name that already holds components gets nothing appended.
               {u"DOE^J|K|A^B^C", u"DOE^J^K"}},
              [](const std::u16string& parts) {
                  return Info::ConvertNameToDicom(GetField(parts, u'|', 0), GetField(parts, u'|', 1),
                                                  GetField(parts, u'|', 2));
              });
}

TEST(QueryRanges, TypedDatesAndTimesBecomeRangeMatchingValues)
{
    auto dates = [](const std::u16string& typed) {
        std::u16string request;
        Info::FormatDicomDatesRequest(typed, request);
        return request;
    };
    std::tm now = LocalNow(), later = LocalNow(6 * 24 * 3600);
    long year = now.tm_year + 1900L, month = now.tm_mon + 1L;
    ExpectAll({{u"01/03/2024 .. 31/03/2024", u"20240301-20240331"}, {u"..31/03/2024", u"-20240331"},
               {u"01/03/2024..", u"20240301-"}, {u"20240301", u"20240301"}, {u"1.3.2024", u"20240301"},
               {u"2024-03-01..2024.03.02", u"20240301-20240302"},
               // Unreadable sides are left out; unreadable single dates change nothing.
               {u"31/02/2024..xx", u""}, {u"nonsense", u""}, {u"13/13/2024", u""},
               {u"M", W(FormatText("%ld%02ld01-%ld%02ld31", year, month, year, month))},
               {u"y", W(FormatText("%ld0101-%ld1231", year, year))},
               {u"w", W(FormatText("%ld%02ld%02d-%d%02d%02d", year, month, now.tm_mday, later.tm_year + 1900,
                                   later.tm_mon + 1, later.tm_mday))}},
              dates);
    std::u16string request = u"kept";
    Info::FormatDicomDatesRequest(u"13/13/2024", request);
    EXPECT_EQ(request, u"kept");
    // The helpers empty both outputs first.
    std::u16string from = u"old", to = u"old";
    DateRanges::FormatDicomDatesRequestForCurrentYear(from, to);
    EXPECT_EQ(from + to, W(FormatText("%ld0101-%ld1231", year, year)));

    ExpectAll({{u"08:00:00..12:00:00", u"080000-120000"}, {u"08:00:00..", u"080000-"}, {u" .. 12:00:00", u"-120000"},
               {u"08 : 00 : 00", u"080000"}, {u"8:00", u""}, {u"..", u""}},
              [](const std::u16string& typed) {
                  std::u16string request;
                  Info::FormatDicomTimesRequest(typed, request);
                  return request;
              });
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
    for (auto [number, shown] : {std::pair{20240305L, u"05/03/2024"}, {-1L, u""}, {0L, u""}, {18000000L, u""},
                                 {20241305L, u""}, {20240230L, u""}}) {
        CDateTimeTools::Long2DateEx(number, text);
        EXPECT_EQ(text, shown) << number;
    }
    for (auto [number, shown] : {std::pair{93005L, u"09:30:05"}, {-1L, u""}, {250000L, u""}, {126000L, u""},
                                 {120061L, u""}}) {
        CDateTimeTools::Long2Time(number, text);
        EXPECT_EQ(text, shown) << number;
    }
}
