#include "platform/apppath.h"

#include <cstdlib>

#include "platform/text.h"

using namespace zeldicom;

CAppPath& CAppPath::GetAppPathInstance()
{
    static CAppPath instance;
    return instance;
}

std::u16string CAppPath::GetPath(const std::u16string& name) const
{
    auto found = m_folders.find(name);
    std::u16string folder;
    if (found != m_folders.end())
        folder = found->second;
    else if (name == u"temp") {
        const char* tmp = std::getenv("TMPDIR");
        folder = Utf8ToUtf16(tmp && *tmp ? tmp : "/tmp");
    }
    if (!folder.empty() && folder.back() != u'/')
        folder += u'/';
    return folder;
}

void CAppPath::SetPath(const std::u16string& name, const std::u16string& folder)
{
    if (folder.empty())
        m_folders.erase(name);
    else
        m_folders[name] = folder;
}
