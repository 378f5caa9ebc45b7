// Library start-up: the module entry reads the library's own version before
// any object is built. The version statics are constant-initialised with the
// version the library is built with, so that they hold it before any dynamic
// initialiser runs (a host's globals may read them in any order); the entry
// then reads them again through the module's version service, as a loaded
// module would.
#include "dicomdata/dicomsettings.h"
#include "dicomdata/dicomtools.h"
#include "platform/dlltools.h"
#include "platform/system.h"
#include "zeldicom_version.h"

int CDicomInfoStatics::s_nVersionMajor = ZELDICOM_VERSION_MAJOR;
int CDicomInfoStatics::s_nVersionMinor = ZELDICOM_VERSION_MINOR;
int CDicomInfoStatics::s_nVersionRev = ZELDICOM_VERSION_PATCH;

// Process attach: reads the module's file version into the version statics.
// False (and the versions left as they are, with a logged error) when it cannot be
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
