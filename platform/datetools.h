#pragma once
// Date tools: reading a date as a user types it, and the display forms of
// date (yyyymmdd) and time (hhmmss) numbers.
#include <string>

class CDateTimeTools {
public:
    // A typed date as the number yyyymmdd, 0 when the text is not a date.
    // Accepted: yyyymmdd; day, month and year separated by "/", "." or "-"
    // (d/m/yy, dd/mm/yyyy, dd.mm.yyyy, ...); yyyy.mm.dd and yyyy-mm-dd. A
    // two-digit year is the year within the last hundred years, this one
    // included. The month must be 1 to 12 and the day exist in that month.
    static long calculateDate(const std::u16string& text);
    // Display forms: DD/MM/YYYY and HH:MM:SS; empty text for a date of
    // 18000000 or less, a negative time, or a number that is no date or time.
    static void Long2DateEx(long date, std::u16string& text);
    static void Long2Time(long time, std::u16string& text);
};

class CStringConverter {
public:
    static std::u16string LongToCString(long value);
};
