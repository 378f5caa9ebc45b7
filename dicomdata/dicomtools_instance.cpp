// New instances of a loaded object, the availability of a stored instance,
// and the tables keyed by tag objects.
#include <sys/stat.h>

#include <string>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/dicomtools.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

bool IsDirectory(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool IsFile(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && !S_ISDIR(info.st_mode);
}

CDicomItem* ChildNode(CDicomItem& root, const char16_t* name)
{
    return static_cast<CDicomItem*>(root.GetChildItem(std::u16string(name)));
}

}  // namespace

bool CDicomTools::UpdateHeaderTagsWhenInstanceCreation(CDicomItem* header, const std::u16string& uid)
{
    return header->ReplaceTag(0x0002, 0x0003, uid, std::u16string()) &&
           header->ReplaceTag(0x0002, 0x0012, CDicomInfoStatics::GetDicomRoot(), std::u16string()) &&
           header->ReplaceTag(0x0002, 0x0013, GetVqImplementationVersionName(), std::u16string());
}

bool CDicomTools::UpdateGroup8TagsWhenInstanceCreation(CDicomItem* data, const std::u16string& uid)
{
    // Values 1 and 2 of Image Type describe how the pixels came to be; from
    // value 3 on they name the image's kind, which a derived image keeps
    // (a CT or MR image needs value 3: PS3.3 C.8.2.1.1.1, C.8.3.1.1.1).
    std::u16string imageType = u"DERIVED\\SECONDARY";
    std::u16string current;
    if (data->GetTagValue(0x0008, 0x0008, current)) {
        int second = CharIndex(current, u'\\', 1);
        if (second >= 0 && !Trim(current.substr(static_cast<size_t>(second) + 1)).empty())
            imageType += Trim(current.substr(static_cast<size_t>(second)));
    }
    return data->ReplaceTag(0x0008, 0x0018, uid, std::u16string()) &&
           data->ReplaceTag(0x0008, 0x0008, imageType, std::u16string());
}

bool CDicomTools::UpdateTagsWhenInstanceCreation(CDicomItem& root)
{
    CDicomItem* header = ChildNode(root, u"Header");
    if (!header)
        return false;
    // The meta information and the data set name the same new instance.
    std::u16string uid = CDicomItem::GetUID();
    if (!UpdateHeaderTagsWhenInstanceCreation(header, uid))
        return false;
    CDicomItem* data = ChildNode(root, u"Data");
    return data && UpdateGroup8TagsWhenInstanceCreation(data, uid);
}

std::u16string CDicomTools::GetInstanceAvailability(bool checkFolder, const std::u16string& folder,
                                                    const std::u16string& fileName)
{
    std::string directory = Utf16ToUtf8(folder);
    std::string path = directory;
    if (path.empty() || path.back() != '/')
        path += '/';
    path += Utf16ToUtf8(fileName);
    if (checkFolder) {
        // A missing folder is a medium that is not mounted.
        if (!IsDirectory(directory))
            return u"OFFLINE";
        if (fileName.empty())
            return u"ONLINE";
    }
    return IsFile(path) ? u"ONLINE" : u"UNAVAILABLE";
}

void CDicomTools::CleanDicomTable(CDicomTagTable& table)
{
    for (auto& entry : table)
        delete entry.first;
    table.clear();
}

void CDicomTools::CopyDicomTable(const CDicomTagTable& source, CDicomTagTable& destination)
{
    for (const auto& entry : source)
        destination[entry.first] = entry.second;
}
