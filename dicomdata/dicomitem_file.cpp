// Whole objects to files: a new file, and the rewrite of the file that a
// tree was loaded from (its values point into that file's image, so the file
// must stay readable until the new content is complete). Both write a new
// file beside the target and rename it into place, so that at every moment
// the path names either the old or the new complete file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
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
    int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        fsync(fd);
        close(fd);
    }
}

// The file that a path names: through a symbolic link, the file it points
// to is replaced, not the link.
std::string ResolvedTarget(const std::string& path)
{
    struct stat info {};
    if (lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode))
        if (char* resolved = realpath(path.c_str(), nullptr)) {
            std::string target = resolved;
            std::free(resolved);
            return target;
        }
    return path;
}

// Puts the completed temporary file in the target's place; false (the
// temporary file removed) when it cannot.
bool MoveIntoPlace(const std::string& temporary, const std::string& target, CLastError& error)
{
    if (rename(temporary.c_str(), target.c_str()) != 0) {
        error.SetSystem(errno);
        LogFailure("CDicomItem::SaveToFile", "cannot move " + temporary + " to", target, errno);
        unlink(temporary.c_str());
        return false;
    }
    SyncDirectoryOf(target);
    return true;
}
}

bool CDicomItem::SaveToFile(const std::u16string& path) const
{
    m_LastError.Clear();
    std::string target = ResolvedTarget(Utf16ToUtf8(path));
    // Replacing the file whose image this tree points into is the in-place
    // rewrite's job, which releases the tree first.
    std::u16string source;
    if (m_pFileImage && GetItemValue(u"File", source) && SameFile(Utf16ToUtf8(source), target)) {
        m_LastError.Set(CLastError::kRefused, "the object was loaded from this file");
        LogFailure("CDicomItem::SaveToFile", "refusing to overwrite the file the object was loaded from:", target, 0);
        return false;
    }
    // A device or a pipe is written to directly; a file is replaced only by
    // complete content.
    struct stat info {};
    bool special = stat(target.c_str(), &info) == 0 && !S_ISREG(info.st_mode);
    CDicomOutputFile out;
    if (!(special ? out.Open(target) : out.OpenTemporaryBeside(target))) {
        m_LastError.SetSystem(out.GetError());
        return false;
    }
    out.SetSource(m_pFileImage);
    bool saved = SaveObject(CDicomFileWriter::WriteProc, &out);
    bool closed = out.Close();
    if (!saved || !closed) {
        // A file error says more than "the output did not take the bytes";
        // an encoding failure keeps SaveObject's reason.
        if (out.GetError() != 0)
            m_LastError.SetSystem(out.GetError());
        else if (!m_LastError.IsSet())
            m_LastError.Set(CLastError::kRefused, "the file could not be completed");
        if (!special)
            unlink(out.m_sPath.c_str());
        return false;
    }
    if (!special && !MoveIntoPlace(out.m_sPath, target, m_LastError))
        return false;
    return access(target.c_str(), F_OK) == 0;
}

bool CDicomItem::SaveModificationToExistingFile(CDicomItem*& root, const std::u16string& path, CLastError* error)
{
    CLastError ignored;
    CLastError& reason = error ? *error : ignored;
    reason.Clear();
    if (!root) {
        reason.Set(CLastError::kInvalidArgument, "no object");
        return false;
    }
    std::string target = ResolvedTarget(Utf16ToUtf8(path));

    CDicomOutputFile out;
    bool saved = out.OpenTemporaryBeside(target);
    if (saved) {
        out.SetSource(root->m_pFileImage);
        saved = root->SaveObject(CDicomFileWriter::WriteProc, &out);
        if (!saved && out.GetError() == 0)
            reason = root->GetLastError();
        // Only content that reached the disk may replace the original.
        saved = saved && out.Sync();
        saved = out.Close() && saved;
    }
    if (!saved && !reason.IsSet())
        reason.SetSystem(out.GetError());
    // Releases the image of the existing file.
    delete root;
    root = nullptr;

    if (!saved) {
        // The original is untouched; an incomplete copy is of no use to anyone.
        if (out.m_sPath != target)
            unlink(out.m_sPath.c_str());
        return false;
    }
    return MoveIntoPlace(out.m_sPath, target, reason);
}
