#include "dicomdata/dicomsettings.h"

std::u16string CDicomInfoStatics::s_sDicomRoot;
std::u16string CDicomInfoStatics::s_sDicomCompanyName;
std::u16string CDicomInfoStatics::s_sDicomApplicationName;
int CDicomInfoStatics::s_nVersionMajor = 0;
int CDicomInfoStatics::s_nVersionMinor = 0;
int CDicomInfoStatics::s_nVersionRev = 0;
