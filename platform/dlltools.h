#pragma once
// Module services: the file names of this library and of the host program,
// and the version that a module carries.
#include <cstdint>
#include <string>

class CDllTools {
public:
    // This library's module file name without its directory: the shared
    // object it was loaded from, or the program it is linked into.
    static std::u16string GetCallingDllName();
    // The host process's executable file name without its directory.
    static std::u16string GetCallingExeName();
    // The file version of a module by name. The library's own module
    // ("ZelDicom", any case) carries the version it was built with; other
    // modules are unknown here and give false.
    static bool GetDllVersion(const std::u16string& moduleName, uint16_t& major, uint16_t& minor,
                              uint16_t& revision, uint16_t& build, std::u16string& text);
};

namespace zeldicom {
// The file name part of a path (after the last '/').
std::u16string GetFileNameWithoutPath(const std::u16string& path);
}
