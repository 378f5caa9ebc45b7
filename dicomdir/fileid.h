#pragma once
// Referenced File IDs (PS3.10 8.2, PS3.12): the path of a file below the
// file-set's root, as up to 8 components of up to 8 characters from A-Z,
// 0-9 and "_", stored as the values of a CS element ("\" between them).
#include <string>

namespace zeldicom {

// The relative path ("/" between components) that a stored file ID names,
// or false when it cannot name a file inside the file-set: empty, an empty,
// "." or ".." component, a "/" or a zero byte. Lenient otherwise: files
// written by other media creators with lower-case or longer names are found.
bool FileIdToRelativePath(const std::u16string& fileId, std::u16string& path);

// Whether a relative path ("/" between components) is a conformant file ID.
bool IsConformantFileId(const std::string& relativePath);

// The file ID value ("\" between components) of a conformant relative path.
std::u16string RelativePathToFileId(const std::string& relativePath);

}
