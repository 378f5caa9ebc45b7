#pragma once
// The process-wide part of the image information record (DICOMINFO) that the
// data layer itself needs: the identity settings and version numbers, and the
// character set of a data set. DICOMINFO derives from this class, so these
// are reached as DICOMINFO::s_sDicomRoot and so on; the data layer names the
// base directly so that it does not depend on the image layer.
#include <string>

class CDicomItem;

class CDicomInfoStatics {
public:
    // Identity settings, set once by the host before use.
    static std::u16string s_sDicomRoot;
    static std::u16string s_sDicomCompanyName;
    static std::u16string s_sDicomApplicationName;
    static int s_nVersionMajor;
    static int s_nVersionMinor;
    static int s_nVersionRev;

    static void SetDicomRoot(const std::u16string& root) { s_sDicomRoot = root; }
    static void SetDicomCompanyName(const std::u16string& name) { s_sDicomCompanyName = name; }
    static void SetDicomApplicationName(const std::u16string& name) { s_sDicomApplicationName = name; }
    static std::u16string GetDicomRoot() { return s_sDicomRoot; }
    static std::u16string GetDicomCompanyName() { return s_sDicomCompanyName; }
    static std::u16string GetDicomApplicationName() { return s_sDicomApplicationName; }
    static void SetVersionMajor(int value) { s_nVersionMajor = value; }
    static void SetVersionMinor(int value) { s_nVersionMinor = value; }
    static void SetVersionRev(int value) { s_nVersionRev = value; }
    static int GetVersionMajor() { return s_nVersionMajor; }
    static int GetVersionMinor() { return s_nVersionMinor; }
    static int GetVersionRev() { return s_nVersionRev; }

    // The character set label of a data set from Specific Character Set
    // (0008,0005): its first value, or the second when the first is empty.
    static std::string ExtractCharacterSet(const CDicomItem* dataSet);

    // Dates, times, names and query ranges (datetime.cpp). They belong to the
    // image record, but the element tree formats person names with
    // ConvertNameFromDicom (CDicomItem::Format), so they live in this base
    // that the data layer can reach without the image layer.
    //
    // A date is the number yyyymmdd (18000000 or less: no date), a time the
    // number hhmmss (negative: no time); the display date is DD/MM/YY.
    static std::u16string ConvertDateToDicom(long date);
    static std::u16string ConvertTimeToDicom(long time);
    // A typed dd/mm/yy or dd.mm.yy becomes yyyymmdd; other text is left alone.
    static void ConvertDateToDicom(std::u16string& text);
    // A typed hh:mm:ss becomes hhmmss; other text becomes empty.
    static void ConvertTimeToDicom(std::u16string& text);
    // yyyymmdd (or the older yyyy.mm.dd) -> its number, the text becoming the
    // display date; -1 and the text unchanged for anything else.
    static long ConvertDateFromDicom(std::u16string& text);
    // A DA, TM or DT value (vr) in ISO 8601 for readers and programs that
    // expect it: YYYY-MM-DD, HH:MM:SS (fraction kept), YYYY-MM-DDTHH:MM:SS
    // with the offset kept; the older yyyy.mm.dd and hh:mm:ss forms too.
    // Components the value leaves out are left out. A value of another
    // shape is returned as it is.
    static std::u16string FormatDateTimeIso(const std::u16string& value, const std::string& vr);
    // Family and given name of a PN value; a leading title ("Madame DUPONT")
    // or four-digit number is removed from the family name. Returns the
    // patient sex code of the title ('M', 'F' or ' '), else -1.
    static int ConvertNameFromDicom(const std::u16string& name, std::u16string& familyName,
                                    std::u16string& givenName);
    // family^given, keeping the middle name, prefix and suffix of previous.
    static std::u16string ConvertNameToDicom(const std::u16string& familyName, const std::u16string& givenName,
                                             const std::u16string& previous);
    // Typed "a..b" ranges to DICOM range matching values ("a-b", "a-", "-b");
    // dates also take "m", "y" and "w" for this month, year and week.
    static void FormatDicomTimesRequest(const std::u16string& typed, std::u16string& request);
    static void FormatDicomDatesRequest(const std::u16string& typed, std::u16string& request);

protected:
    static void FormatDicomDatesRequestForCurrentMonth(std::u16string& from, std::u16string& to);
    static void FormatDicomDatesRequestForCurrentYear(std::u16string& from, std::u16string& to);
    static void FormatDicomDatesRequestForCurrentWeek(std::u16string& from, std::u16string& to);
};
