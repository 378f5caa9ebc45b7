// Library start-up: the module entry reads the library's own version before
// any object is built. The version statics are defined in this file, next to
// the static initializer that calls the entry, so that any program using
// them links this object file and runs the entry, static library or not.
#include "dicomdata/dicomsettings.h"
#include "dicomdata/dicomtools.h"
#include "platform/dlltools.h"
#include "platform/system.h"

int CDicomInfoStatics::s_nVersionMajor = 0;
int CDicomInfoStatics::s_nVersionMinor = 0;
int CDicomInfoStatics::s_nVersionRev = 0;

// Process attach: reads the module's file version into the version statics.
// False (and the versions left at 0, with a logged error) when it cannot be
// read; a host that loads the library dynamically refuses it then.
extern "C" bool ZelDicomModuleAttach()
{
    uint16_t major = 0, minor = 0, revision = 0, build = 0;
    std::u16string text;
    if (!CDllTools::GetDllVersion(u"ZelDicom", major, minor, revision, build, text)) {
        CAuditManager::GetUniqueInstance().LogError("ZelDicom", "cannot read the library version");
        return false;
    }
    CDicomInfoStatics::SetVersionMajor(major);
    CDicomInfoStatics::SetVersionMinor(minor);
    CDicomInfoStatics::SetVersionRev(revision);
    return true;
}

// Process detach: nothing to release.
extern "C" bool ZelDicomModuleDetach()
{
    return true;
}

namespace {
// The int statics above are constant-initialised before any dynamic
// initialiser runs, so the entry may fill them from here.
[[maybe_unused]] const bool g_moduleAttached = ZelDicomModuleAttach();
}
