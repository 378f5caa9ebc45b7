// Dates, times, person names and query ranges of the image record.
#include <algorithm>
#include <ctime>

#include "dicomdata/dicomsettings.h"
#include "platform/datetools.h"
#include "platform/match.h"
#include "platform/system.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

struct Title {
    const char16_t* text;
    int sexCode;
};

// Titles that may stand before a family name, with the Patient's Sex
// (0010,0040) code they imply; compared in this order, ignoring case.
constexpr Title kTitles[] = {
    {u"Monsieur", 'M'},
    {u"Mr", 'M'},
    {u"M", 'M'},
    {u"Madame", 'F'},
    {u"Mme", 'F'},
    {u"Mademoiselle", 'F'},
    {u"Mlle", 'F'},
    {u"Enfant", ' '},
};

std::u16string WithoutSpaces(const std::u16string& text)
{
    std::u16string result;
    for (char16_t c : text)
        if (c != u' ')
            result += c;
    return result;
}

std::u16string Digits(const std::u16string& text, size_t from, size_t count)
{
    return text.substr(from, count);
}

std::u16string DateNumber(long date)
{
    return CStringConverter::LongToCString(date);
}

std::u16string SafeMid(const std::u16string& text, size_t from)
{
    return from < text.size() ? text.substr(from) : std::u16string();
}

// Joins the two sides of a typed range: "a-b", "a-" or "-b".
void AppendRange(std::u16string from, std::u16string to, std::u16string& request)
{
    if (!from.empty())
        from += u'-';
    else if (!to.empty())
        to.insert(0, u"-");
    request += from + to;
}

long LocalDateOf(const std::tm& when)
{
    return (when.tm_year + 1900L) * 10000 + (when.tm_mon + 1L) * 100 + when.tm_mday;
}

}

std::u16string CDicomInfoStatics::ConvertDateToDicom(long date)
{
    if (date <= 18000000)
        return {};
    return AsciiToWide(FormatText("%04ld%02ld%02ld", date / 10000, (date % 10000) / 100, date % 100));
}

std::u16string CDicomInfoStatics::ConvertTimeToDicom(long time)
{
    if (time < 0)
        return {};
    return AsciiToWide(FormatText("%02ld%02ld%02ld", time / 10000, (time % 10000) / 100, time % 100));
}

void CDicomInfoStatics::ConvertDateToDicom(std::u16string& text)
{
    if (!Match(text, "dd/dd/dd") && !Match(text, "dd.dd.dd"))
        return;
    long day = WideToLong(Digits(text, 0, 2));
    long month = WideToLong(Digits(text, 3, 2));
    long year = 1900 + WideToLong(Digits(text, 6, 2));
    std::tm now{};
    long currentYear = GetLocalTime(now) ? now.tm_year + 1900 : 0;
    if (currentYear - year >= 100)
        year += 100;
    text = AsciiToWide(FormatText("%04ld%02ld%02ld", year, month, day));
}

void CDicomInfoStatics::ConvertTimeToDicom(std::u16string& text)
{
    if (Match(text, "dd:dd:dd"))
        text = text.substr(0, 2) + text.substr(3, 2) + text.substr(6, 2);
    else
        text.clear();
}

long CDicomInfoStatics::ConvertDateFromDicom(std::u16string& text)
{
    if (Match(text, "dddddddd")) {
        long date = WideToLong(text);
        text = text.substr(6, 2) + u"/" + text.substr(4, 2) + u"/" + text.substr(2, 2);
        return date;
    }
    if (Match(text, "dddd.dd.dd")) {
        // The older DICOM form yyyy.mm.dd: the same date, so the same number.
        long date = WideToLong(text.substr(0, 4)) * 10000 + WideToLong(text.substr(5, 2)) * 100 +
                    WideToLong(text.substr(8, 2));
        text = text.substr(8, 2) + u"/" + text.substr(5, 2) + u"/" + text.substr(2, 2);
        return date;
    }
    return -1;
}

int CDicomInfoStatics::ConvertNameFromDicom(const std::u16string& name, std::u16string& familyName,
                                            std::u16string& givenName)
{
    int result = -1;
    familyName = name;
    givenName.clear();
    if (CharIndex(name, u'^', 0) > 0) {
        familyName = GetField(name, u'^', 0);
        givenName = GetField(name, u'^', 1);
    } else {
        familyName = Trim(name);
    }
    int space = CharIndex(name, u' ', 0);
    if (space > 0) {
        std::u16string prefix = familyName.substr(0, static_cast<size_t>(space));
        if (Match(prefix, "dddd")) {
            familyName = SafeMid(familyName, static_cast<size_t>(space) + 1);
        } else {
            for (const auto& title : kTitles) {
                if (EqualsNoCase(prefix, std::u16string(title.text))) {
                    result = title.sexCode;
                    familyName = SafeMid(familyName, static_cast<size_t>(space) + 1);
                    break;
                }
            }
        }
    }
    return result;
}

std::u16string CDicomInfoStatics::ConvertNameToDicom(const std::u16string& familyName,
                                                     const std::u16string& givenName, const std::u16string& previous)
{
    std::u16string result = familyName;
    if (!givenName.empty())
        result += u"^" + givenName;
    if (!previous.empty()) {
        // Middle name, prefix and suffix: everything after the second "^".
        int second = CharIndex(previous, u'^', 1);
        std::u16string rest = second >= 0 ? previous.substr(static_cast<size_t>(second) + 1) : std::u16string();
        int separators = CharCount(result, u'^');
        if (separators == 0)
            result += u"^^" + rest;
        else if (separators == 1)
            result += u"^" + rest;
    }
    return result;
}

void CDicomInfoStatics::FormatDicomTimesRequest(const std::u16string& typed, std::u16string& request)
{
    std::u16string text = WithoutSpaces(typed);
    size_t dots = text.find(u"..");
    if (dots == std::u16string::npos) {
        ConvertTimeToDicom(text);
        request = text;
        return;
    }
    std::u16string from = text.substr(0, dots), to = text.substr(dots + 2);
    ConvertTimeToDicom(from);
    ConvertTimeToDicom(to);
    AppendRange(from, to, request);
}

void CDicomInfoStatics::FormatDicomDatesRequest(const std::u16string& typed, std::u16string& request)
{
    std::u16string from, to;
    if (EqualsNoCase(typed, std::u16string(u"m")) || EqualsNoCase(typed, std::u16string(u"y")) ||
        EqualsNoCase(typed, std::u16string(u"w"))) {
        char16_t period = typed[0] | 0x20;
        if (period == u'm')
            FormatDicomDatesRequestForCurrentMonth(from, to);
        else if (period == u'y')
            FormatDicomDatesRequestForCurrentYear(from, to);
        else
            FormatDicomDatesRequestForCurrentWeek(from, to);
        request += from + to;
        return;
    }
    std::u16string text = WithoutSpaces(typed);
    size_t dots = text.find(u"..");
    if (dots == std::u16string::npos) {
        long date = CDateTimeTools::calculateDate(text);
        if (date != 0)
            request = DateNumber(date);
        return;
    }
    long first = CDateTimeTools::calculateDate(text.substr(0, dots));
    long last = CDateTimeTools::calculateDate(text.substr(dots + 2));
    if (first != 0)
        from = DateNumber(first);
    if (last != 0)
        to = DateNumber(last);
    AppendRange(from, to, request);
}

void CDicomInfoStatics::FormatDicomDatesRequestForCurrentMonth(std::u16string& from, std::u16string& to)
{
    std::tm now{};
    long firstOfMonth = GetLocalTime(now) ? (now.tm_year + 1900L) * 10000 + (now.tm_mon + 1L) * 100 + 1 : 1;
    from = DateNumber(firstOfMonth) + u"-";
    // The 31st whatever the month's length: range matching takes it as an
    // upper bound, not as a date that has to exist.
    to = DateNumber(firstOfMonth + 30);
}

void CDicomInfoStatics::FormatDicomDatesRequestForCurrentYear(std::u16string& from, std::u16string& to)
{
    std::tm now{};
    long year = GetLocalTime(now) ? now.tm_year + 1900L : 0;
    from = DateNumber(year * 10000 + 101) + u"-";
    to = DateNumber(year * 10000 + 1231);
}

void CDicomInfoStatics::FormatDicomDatesRequestForCurrentWeek(std::u16string& from, std::u16string& to)
{
    std::time_t now = std::time(nullptr);
    std::time_t weekLater = now + 518400;  // six days
    std::tm today{}, last{};
    long todayDate = localtime_r(&now, &today) ? LocalDateOf(today) : 0;
    long lastDate = localtime_r(&weekLater, &last) ? LocalDateOf(last) : 0;
    from = DateNumber(todayDate) + u"-";
    to = DateNumber(lastDate);
}

namespace {

bool AllDigits(const std::u16string& text, size_t from, size_t count)
{
    if (from + count > text.size())
        return false;
    for (size_t i = from; i < from + count; ++i)
        if (text[i] < u'0' || text[i] > u'9')
            return false;
    return true;
}

// PS3.5 6.2 DA: YYYYMMDD, or YYYY.MM.DD of ACR-NEMA (PS3.5 6.2 note).
bool IsoDate(const std::u16string& value, std::u16string& out)
{
    if (value.size() == 8 && AllDigits(value, 0, 8)) {
        out = value.substr(0, 4) + u"-" + value.substr(4, 2) + u"-" + value.substr(6, 2);
        return true;
    }
    if (value.size() == 10 && AllDigits(value, 0, 4) && value[4] == u'.' && AllDigits(value, 5, 2) &&
        value[7] == u'.' && AllDigits(value, 8, 2)) {
        out = value.substr(0, 4) + u"-" + value.substr(5, 2) + u"-" + value.substr(8, 2);
        return true;
    }
    return false;
}

// PS3.5 6.2 TM: HH[MM[SS[.F{1,6}]]], or the older HH:MM:SS.
bool IsoTime(const std::u16string& value, std::u16string& out)
{
    std::u16string digits = value, fraction;
    if (size_t dot = digits.find(u'.'); dot != std::u16string::npos) {
        fraction = digits.substr(dot);
        digits.resize(dot);
        if (fraction.size() < 2 || !AllDigits(fraction, 1, fraction.size() - 1))
            return false;
    }
    if (digits.size() == 8 && digits[2] == u':' && digits[5] == u':')
        digits = digits.substr(0, 2) + digits.substr(3, 2) + digits.substr(6, 2);
    if (digits.empty() || digits.size() % 2 != 0 || digits.size() > 6 || !AllDigits(digits, 0, digits.size()) ||
        (!fraction.empty() && digits.size() != 6))
        return false;
    out.clear();
    for (size_t i = 0; i < digits.size(); i += 2)
        out += (i ? u":" : u"") + digits.substr(i, 2);
    out += fraction;
    return true;
}

}  // namespace

std::u16string CDicomInfoStatics::FormatDateTimeIso(const std::u16string& value, const std::string& vr)
{
    std::u16string text = Trim(value), out;
    if (vr == "DA")
        return IsoDate(text, out) ? out : value;
    if (vr == "TM")
        return IsoTime(text, out) ? out : value;
    if (vr != "DT" || text.size() < 4 || !AllDigits(text, 0, 4))
        return value;
    // PS3.5 6.2 DT: YYYY[MM[DD[HH[MM[SS[.F]]]]]][&ZZXX]
    size_t offsetAt = text.find_first_of(u"+-", 4);
    std::u16string offset = offsetAt == std::u16string::npos ? u"" : text.substr(offsetAt);
    std::u16string stamp = text.substr(0, offsetAt);
    std::u16string date = stamp.substr(0, std::min<size_t>(stamp.size(), 8)), time;
    if (date.size() == 8) {
        if (!IsoDate(date, out))
            return value;
        date = out;
    } else if (date.size() == 6 && AllDigits(date, 0, 6)) {
        date = date.substr(0, 4) + u"-" + date.substr(4, 2);
    } else if (date.size() != 4) {
        return value;
    }
    if (stamp.size() > 8) {
        if (!IsoTime(stamp.substr(8), time))
            return value;
        date += u"T" + time;
    }
    if (!offset.empty()) {
        if (offset.size() != 5 || !AllDigits(offset, 1, 4))
            return value;
        date += offset.substr(0, 3) + u":" + offset.substr(3, 2);
    }
    return date;
}
