#include "dicomdata/dicomsettings.h"

// The version numbers are defined in startup.cpp, beside the module entry.
std::u16string CDicomInfoStatics::s_sDicomRoot;
std::u16string CDicomInfoStatics::s_sDicomCompanyName;
std::u16string CDicomInfoStatics::s_sDicomApplicationName;
