#include "dicomdir/fileid.h"

#include "platform/text.h"

namespace zeldicom {

bool FileIdToRelativePath(const std::u16string& fileId, std::u16string& path)
{
    std::u16string value = Trim(fileId);
    path.clear();
    if (value.empty())
        return false;
    size_t start = 0;
    for (;;) {
        size_t end = value.find(u'\\', start);
        std::u16string component = Trim(value.substr(start, end == std::u16string::npos ? std::u16string::npos
                                                                                           : end - start));
        if (component.empty() || component == u"." || component == u".." ||
            component.find_first_of(std::u16string(u"/\0", 2)) != std::u16string::npos)
            return false;
        if (!path.empty())
            path += u'/';
        path += component;
        if (end == std::u16string::npos)
            return true;
        start = end + 1;
    }
}

bool IsConformantFileId(const std::string& relativePath)
{
    int components = 0;
    size_t length = 0;
    for (size_t i = 0; i <= relativePath.size(); ++i) {
        if (i == relativePath.size() || relativePath[i] == '/') {
            if (length == 0 || ++components > 8)
                return false;
            length = 0;
            continue;
        }
        char c = relativePath[i];
        if (!((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_') || ++length > 8)
            return false;
    }
    return true;
}

std::u16string RelativePathToFileId(const std::string& relativePath)
{
    std::u16string id = AsciiToWide(relativePath);
    for (char16_t& c : id)
        if (c == u'/')
            c = u'\\';
    return id;
}

}
