#pragma once
// The application's folders by name ("temp" for trace files, "config" for
// configuration), as the host's path service gives them.
#include <map>
#include <string>

class CAppPath {
public:
    static CAppPath& GetAppPathInstance();
    // The folder with a trailing '/'; empty when the name is unknown. "temp"
    // defaults to $TMPDIR, else /tmp.
    std::u16string GetPath(const std::u16string& name) const;
    // The host (or a command-line option) sets a folder; empty removes it.
    void SetPath(const std::u16string& name, const std::u16string& folder);

private:
    std::map<std::u16string, std::u16string> m_folders;
};
