#include "platform/datetools.h"

#include <ctime>

#include "platform/system.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

bool IsLeapYear(long year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

bool IsValidDate(long year, long month, long day)
{
    static constexpr int kDaysInMonth[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (year < 1 || year > 9999 || month < 1 || month > 12 || day < 1)
        return false;
    long days = kDaysInMonth[month - 1] + (month == 2 && IsLeapYear(year) ? 1 : 0);
    return day <= days;
}

// Digits only, 1 to maxDigits of them; -1 otherwise.
long ReadNumber(const std::u16string& text, size_t maxDigits)
{
    if (text.empty() || text.size() > maxDigits)
        return -1;
    long value = 0;
    for (char16_t c : text) {
        if (c < u'0' || c > u'9')
            return -1;
        value = value * 10 + (c - u'0');
    }
    return value;
}

long TwoDigitYear(long year)
{
    std::tm now{};
    long current = GetLocalTime(now) ? now.tm_year + 1900 : 0;
    year += 1900;
    if (current - year >= 100)
        year += 100;
    return year;
}

}

long CDateTimeTools::calculateDate(const std::u16string& typed)
{
    std::u16string text = Trim(typed);
    long year = -1, month = -1, day = -1;
    size_t separator = text.find_first_of(u"/.-");
    if (separator == std::u16string::npos) {
        if (text.size() != 8 || ReadNumber(text, 8) < 0)
            return 0;
        year = ReadNumber(text.substr(0, 4), 4);
        month = ReadNumber(text.substr(4, 2), 2);
        day = ReadNumber(text.substr(6, 2), 2);
    } else {
        char16_t sep = text[separator];
        if (CharCount(text, sep) != 2)
            return 0;
        std::u16string first = GetField(text, sep, 0), second = GetField(text, sep, 1), third = GetField(text, sep, 2);
        if (first.size() == 4) {
            year = ReadNumber(first, 4);
            month = ReadNumber(second, 2);
            day = ReadNumber(third, 2);
        } else {
            day = ReadNumber(first, 2);
            month = ReadNumber(second, 2);
            if (third.size() == 2)
                year = ReadNumber(third, 2) < 0 ? -1 : TwoDigitYear(ReadNumber(third, 2));
            else if (third.size() == 4)
                year = ReadNumber(third, 4);
        }
    }
    if (!IsValidDate(year, month, day))
        return 0;
    return year * 10000 + month * 100 + day;
}

void CDateTimeTools::Long2DateEx(long date, std::u16string& text)
{
    text.clear();
    if (date <= 18000000 || !IsValidDate(date / 10000, (date % 10000) / 100, date % 100))
        return;
    text = AsciiToWide(FormatText("%02ld/%02ld/%04ld", date % 100, (date % 10000) / 100, date / 10000));
}

void CDateTimeTools::Long2Time(long time, std::u16string& text)
{
    text.clear();
    long hours = time / 10000, minutes = (time % 10000) / 100, seconds = time % 100;
    // 60 seconds: a leap second is a valid DICOM TM.
    if (time < 0 || hours > 23 || minutes > 59 || seconds > 60)
        return;
    text = AsciiToWide(FormatText("%02ld:%02ld:%02ld", hours, minutes, seconds));
}

std::u16string CStringConverter::LongToCString(long value)
{
    return AsciiToWide(FormatText("%ld", value));
}
