#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "dicomdata/datawriter.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/parse_fixtures.h"
#include "platform/system.h"
#include "platform/text.h"

using namespace zeldicom;

using namespace parsefix;

namespace {
// An implicit VR image with a 1 MiB pixel value.
Bytes SampleFile(const std::string& name)
{
    return fileImage("1.2.840.10008.1.2", cat({ielem(0x0010, 0x0010, text(name)), ielem(0x0028, 0x0100, us(16)),
                                               ielem(0x7FE0, 0x0010, Bytes(1 << 20, 0x33))}));
}

// Loads the file and renames the patient, as an editing host would.
CDicomItem* LoadAndEdit(const std::string& path)
{
    auto* root = new CDicomItem(u"Object");
    EXPECT_TRUE(root->LoadObject(Utf8ToUtf16(path)));
    static_cast<CDicomItem*>(root->GetChildItem(std::u16string(u"Data")))->ReplaceTag(0x10, 0x10, u"ROE^JANE", u"");
    return root;
}

const std::string& LastError() { return CAuditManager::GetUniqueInstance().GetLastError(); }
}

TEST(EncodeFiles, SavedFilesAndTheFileWritersErrorLine)
{
    CAuditManager::GetUniqueInstance().SetQuiet(true);
    std::string source = ScratchPath("source.dcm"), copy = ScratchPath("copy.dcm");
    WriteFile(source, SampleFile("DOE^JOHN"));
    CDicomItem* root = LoadAndEdit(source);
    EXPECT_TRUE(root->SaveToFile(Utf8ToUtf16(copy)));
    EXPECT_EQ(ReadFile(copy), SampleFile("ROE^JANE"));
    // The pixel value is copied from the source file by the kernel; once
    // another file has taken the source's name, it comes from the mapping.
    std::string other = ScratchPath("other.dcm");
    WriteFile(other, Bytes(SampleFile("DOE^JOHN").size(), 0x44));
    ASSERT_EQ(rename(other.c_str(), source.c_str()), 0);
    EXPECT_TRUE(root->SaveToFile(Utf8ToUtf16(copy)));
    EXPECT_EQ(ReadFile(copy), SampleFile("ROE^JANE"));
    delete root;
    WriteFile(source, SampleFile("DOE^JOHN"));
    root = LoadAndEdit(source);
    // Truncating its own mapped source would pull the values from under it.
    EXPECT_FALSE(root->SaveToFile(Utf8ToUtf16(source)));
    EXPECT_EQ(ReadFile(source), SampleFile("DOE^JOHN"));
    EXPECT_FALSE(root->SaveToFile(Utf8ToUtf16(ScratchPath("no-such-dir/x.dcm"))));
    // A full disk: the error line carries the system's text, code, count, path.
    EXPECT_FALSE(root->SaveToFile(u"/dev/full"));
    EXPECT_EQ(LastError(), "CDicomFileWriter::WriteProc: System Error : No space left on device System Error Code : 28 "
                           "Params : lSize=1048576, pDstFile=/dev/full");
    delete root;
    unlink(source.c_str());
    unlink(copy.c_str());
    CAuditManager::GetUniqueInstance().SetQuiet(false);
}

TEST(EncodeInPlace, FailedRewritesLeaveTheOriginalByteIdenticalAndGoodOnesReplaceIt)
{
    CAuditManager::GetUniqueInstance().SetQuiet(true);
    std::string path = ScratchPath("keep.dcm"), temporary = path + ".tmp";
    const Bytes original = SampleFile("DOE^JOHN");
    WriteFile(path, original);
    chmod(path.c_str(), 0640);

    // The temporary cannot be created: a directory holds its name.
    ASSERT_EQ(mkdir(temporary.c_str(), 0700), 0);
    CDicomItem* root = LoadAndEdit(path);
    EXPECT_FALSE(CDicomItem::SaveModificationToExistingFile(root, Utf8ToUtf16(path)));
    EXPECT_EQ(root, nullptr);
    EXPECT_EQ(ReadFile(path), original);
    EXPECT_NE(LastError().find(temporary), std::string::npos) << LastError();
    rmdir(temporary.c_str());

    // The writer fails half-way: a file size limit stops the copy at 256 KiB.
    root = LoadAndEdit(path);
    struct rlimit saved {};
    getrlimit(RLIMIT_FSIZE, &saved);
    struct rlimit limited = saved;
    limited.rlim_cur = 256 * 1024;
    auto previous = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    bool rewritten = CDicomItem::SaveModificationToExistingFile(root, Utf8ToUtf16(path));
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, previous);
    EXPECT_FALSE(rewritten);
    EXPECT_EQ(root, nullptr);
    EXPECT_EQ(ReadFile(path), original);
    EXPECT_NE(access(temporary.c_str(), F_OK), 0);
    EXPECT_NE(LastError().find("File too large"), std::string::npos) << LastError();
    EXPECT_NE(LastError().find("pDstFile=" + temporary), std::string::npos) << LastError();

    // Nothing in the way: the file is replaced and keeps its permissions.
    root = LoadAndEdit(path);
    EXPECT_TRUE(CDicomItem::SaveModificationToExistingFile(root, Utf8ToUtf16(path)));
    EXPECT_EQ(root, nullptr);
    EXPECT_EQ(ReadFile(path), SampleFile("ROE^JANE"));
    EXPECT_NE(access(temporary.c_str(), F_OK), 0);
    struct stat info {};
    stat(path.c_str(), &info);
    EXPECT_EQ(info.st_mode & 0777, 0640u);
    EXPECT_FALSE(CDicomItem::SaveModificationToExistingFile(root, Utf8ToUtf16(path)));
    unlink(path.c_str());
    CAuditManager::GetUniqueInstance().SetQuiet(false);
}
