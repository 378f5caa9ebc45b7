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
};
