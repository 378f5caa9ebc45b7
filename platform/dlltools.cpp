#include "platform/dlltools.h"

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include "platform/text.h"
#include "zeldicom_version.h"

using namespace zeldicom;

namespace {

std::u16string ExecutablePath()
{
    char path[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", path, sizeof(path) - 1);
    if (length <= 0)
        return {};
    return Utf8ToUtf16(std::string(path, static_cast<size_t>(length)));
}

}

std::u16string zeldicom::GetFileNameWithoutPath(const std::u16string& path)
{
    size_t slash = path.rfind(u'/');
    return slash == std::u16string::npos ? path : path.substr(slash + 1);
}

std::u16string CDllTools::GetCallingDllName()
{
    // The object that holds this very function is the library's module.
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&CDllTools::GetCallingDllName), &info) != 0 && info.dli_fname &&
        info.dli_fname[0] != '\0') {
        std::u16string name = GetFileNameWithoutPath(Utf8ToUtf16(info.dli_fname));
        if (!name.empty())
            return name;
    }
    return GetCallingExeName();
}

std::u16string CDllTools::GetCallingExeName()
{
    return GetFileNameWithoutPath(ExecutablePath());
}

bool CDllTools::GetDllVersion(const std::u16string& moduleName, uint16_t& major, uint16_t& minor,
                              uint16_t& revision, uint16_t& build, std::u16string& text)
{
    if (!EqualsNoCase(moduleName, std::u16string(u"ZelDicom")))
        return false;
    major = ZELDICOM_VERSION_MAJOR;
    minor = ZELDICOM_VERSION_MINOR;
    revision = ZELDICOM_VERSION_PATCH;
    build = 0;
    text = AsciiToWide(ZELDICOM_VERSION_STRING);
    return true;
}
