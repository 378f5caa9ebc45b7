// Whole objects to files: a new file, and the rewrite of the file that a
// tree was loaded from (its values point into that file's image, so the file
// must stay readable until the new content is complete).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "dicomdata/datawriter.h"
#include "dicomdata/dicomitem.h"
#include "platform/system.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
bool SameFile(const std::string& a, const std::string& b)
{
    struct stat first {}, second {};
    if (stat(a.c_str(), &first) != 0 || stat(b.c_str(), &second) != 0)
        return false;
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

bool FileExists(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

void LogFailure(const char* source, const std::string& what, const std::string& path, int code)
{
    std::string message = " " + what + " " + path;
    if (code != 0)
        message += std::string(": ") + std::strerror(code);
    CAuditManager::GetUniqueInstance().LogError(source, message);
}

// Makes a completed rename durable: the directory entry is on disk too.
void SyncDirectoryOf(const std::string& path)
{
    size_t slash = path.find_last_of('/');
    std::string directory = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
    int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY);
    if (fd >= 0) {
        fsync(fd);
        close(fd);
    }
}
}

bool CDicomItem::SaveToFile(const std::u16string& path) const
{
    std::string target = Utf16ToUtf8(path);
    // Truncating the file whose image this tree points into would pull the
    // values away under the encoder; that is the in-place rewrite's job.
    std::u16string source;
    if (m_pFileImage && GetItemValue(u"File", source) && SameFile(Utf16ToUtf8(source), target)) {
        LogFailure("CDicomItem::SaveToFile", "refusing to overwrite the file the object was loaded from:", target, 0);
        return false;
    }
    CDicomOutputFile out;
    if (!out.Open(target))
        return false;
    out.SetSource(m_pFileImage);
    bool saved = SaveObject(CDicomFileWriter::WriteProc, &out);
    bool closed = out.Close();
    return saved && closed && access(target.c_str(), F_OK) == 0;
}

bool CDicomItem::SaveModificationToExistingFile(CDicomItem*& root, const std::u16string& path)
{
    if (!root)
        return false;
    std::string target = Utf16ToUtf8(path);
    std::string temporary = target + ".tmp";

    CDicomOutputFile out;
    bool saved = out.Open(temporary);
    if (saved) {
        out.SetSource(root->m_pFileImage);
        saved = root->SaveObject(CDicomFileWriter::WriteProc, &out);
        // The replacement keeps the permissions of the file it replaces.
        struct stat original {};
        if (saved && stat(target.c_str(), &original) == 0)
            fchmod(out.Descriptor(), original.st_mode & 07777);
        // Only content that reached the disk may replace the original.
        saved = saved && out.Sync();
        saved = out.Close() && saved;
    }
    // Releases the image of the existing file.
    delete root;
    root = nullptr;

    if (!saved) {
        // The original is untouched; an incomplete copy is of no use to anyone.
        if (out.m_sPath == temporary && FileExists(temporary))
            unlink(temporary.c_str());
        return false;
    }
    // rename() replaces the original in one step: at every moment the path
    // names either the old or the new complete file.
    if (rename(temporary.c_str(), target.c_str()) != 0) {
        LogFailure("CDicomItem::SaveModificationToExistingFile", "cannot move " + temporary + " to", target, errno);
        return false;
    }
    SyncDirectoryOf(target);
    return true;
}
