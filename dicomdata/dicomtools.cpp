#include "dicomdata/dicomtools.h"

#include "dicomdata/dicomsettings.h"
#include "platform/text.h"

using namespace zeldicom;

std::u16string CDicomTools::GetVqImplementationVersionName()
{
    std::u16string name = AsciiToWide(FormatText("%d_%d_%d", CDicomInfoStatics::GetVersionMajor(),
                                                 CDicomInfoStatics::GetVersionMinor(),
                                                 CDicomInfoStatics::GetVersionRev()));
    if (name.size() % 2 != 0)
        name += u' ';
    return name;
}

std::u16string CDicomTools::GetDefaultISOCharacterset()
{
    return u"ISO_IR 100";
}
