#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>

#include "dicomdata/datawriter.h"
#include "dicomdata/dicomitem.h"
#include "support/dicomwriter.h"
#include "platform/system.h"
#include "platform/text.h"

using namespace zeldicom;

using namespace testsupport;

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

// Every test works in a scratch folder of its own, with the audit log quiet
// (the write failures provoked here would fill it).
class ObjectFiles : public ::testing::Test {
protected:
    void SetUp() override { CAuditManager::GetUniqueInstance().SetQuiet(true); }
    void TearDown() override { CAuditManager::GetUniqueInstance().SetQuiet(false); }
    std::string Path(const std::string& name) const { return scratch.path + "/" + name; }
    ScratchFolder scratch{"object-files"};
};

TEST_F(ObjectFiles, LargeValuesComeFromTheSourceFileOrItsMapping)
{
    std::string source = Path("source.dcm"), copy = Path("copy.dcm");
    WriteFile(source, SampleFile("DOE^JOHN"));
    std::unique_ptr<CDicomItem> root(LoadAndEdit(source));
    EXPECT_TRUE(root->SaveToFile(Utf8ToUtf16(copy)));
    EXPECT_EQ(ReadFile(copy), SampleFile("ROE^JANE"));
    // The pixel value is copied from the source file by the kernel; once
    // another file has taken the source's name, it comes from the mapping.
    std::string other = Path("other.dcm");
    WriteFile(other, Bytes(SampleFile("DOE^JOHN").size(), 0x44));
    ASSERT_EQ(rename(other.c_str(), source.c_str()), 0);
    EXPECT_TRUE(root->SaveToFile(Utf8ToUtf16(copy)));
    EXPECT_EQ(ReadFile(copy), SampleFile("ROE^JANE"));
}

TEST_F(ObjectFiles, RefusesItsOwnSourceAndSaysWhyASaveFailed)
{
    std::string source = Path("own.dcm");
    WriteFile(source, SampleFile("DOE^JOHN"));
    std::unique_ptr<CDicomItem> root(LoadAndEdit(source));
    // Truncating its own mapped source would pull the values from under it.
    EXPECT_FALSE(root->SaveToFile(Utf8ToUtf16(source)));
    EXPECT_EQ(root->GetLastError().GetCode(), CLastError::kRefused);
    EXPECT_EQ(ReadFile(source), SampleFile("DOE^JOHN"));
    EXPECT_FALSE(root->SaveToFile(Utf8ToUtf16(Path("no-such-dir/x.dcm"))));
    EXPECT_EQ(root->GetLastError().GetText(), "No such file or directory");
}

// Runs save with the file size limited to 256 KiB, as a full disk would stop it.
template <typename Save>
bool SaveWithSizeLimit(Save save)
{
    struct rlimit saved {};
    getrlimit(RLIMIT_FSIZE, &saved);
    struct rlimit limited = saved;
    limited.rlim_cur = 256 * 1024;
    auto previous = signal(SIGXFSZ, SIG_IGN);
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    bool done = save();
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, previous);
    return done;
}

// Files in the folder of path whose names begin with path's name and a dot:
// the temporary copies a save might have left.
int FilesBeside(const std::string& path)
{
    std::string folder = path.substr(0, path.rfind('/')), prefix = path.substr(path.rfind('/') + 1) + ".";
    int count = 0;
    if (DIR* dir = opendir(folder.c_str())) {
        while (dirent* entry = readdir(dir))
            count += std::string(entry->d_name).rfind(prefix, 0) == 0;
        closedir(dir);
    }
    return count;
}

TEST_F(ObjectFiles, ASecondLoadReplacesTheFirstAndAFailedOneKeepsIt)
{
    std::string first = Path("first.dcm"), second = Path("second.dcm");
    WriteFile(first, SampleFile("DOE^JOHN"));
    WriteFile(second, fileImage("1.2.840.10008.1.2", ielem(0x0010, 0x0010, text("ROE^JANE"))));
    CDicomItem root(u"Object");
    ASSERT_TRUE(root.LoadObject(Utf8ToUtf16(first)));
    ASSERT_TRUE(root.LoadObject(Utf8ToUtf16(second)));
    unlink(first.c_str());
    std::vector<std::u16string> names;
    for (int i = 0; i < root.GetChildCount(); ++i)
        names.push_back(root.GetChildItem(i)->m_sName);
    EXPECT_EQ(names, (std::vector<std::u16string>{u"Header", u"Data", u"File"}));
    std::u16string name, file;
    auto* data = static_cast<CDicomItem*>(root.GetChildItem(std::u16string(u"Data")));
    ASSERT_TRUE(data->GetTagValue(0x10, 0x10, name));
    EXPECT_EQ(name, u"ROE^JANE");
    // A load that fails leaves the loaded object and its file image alone.
    EXPECT_FALSE(root.LoadObject(Utf8ToUtf16(first)));
    EXPECT_EQ(root.GetLastError().GetCode(), ENOENT);
    EXPECT_EQ(root.GetLastError().GetText(), "No such file or directory");
    EXPECT_FALSE(root.LoadObject(u"/tmp"));
    EXPECT_EQ(root.GetLastError().GetCode(), EISDIR);
    data = static_cast<CDicomItem*>(root.GetChildItem(std::u16string(u"Data")));
    ASSERT_TRUE(data->GetTagValue(0x10, 0x10, name));
    EXPECT_EQ(name, u"ROE^JANE");
    EXPECT_TRUE(root.GetItemValue(u"File", file));
    EXPECT_EQ(file, Utf8ToUtf16(second));
}

TEST_F(ObjectFiles, AFailedSaveLeavesAnExistingFileByteIdentical)
{
    std::string source = Path("over-source.dcm"), out = Path("over-out.dcm");
    WriteFile(source, SampleFile("DOE^JOHN"));
    const Bytes previous(1000, 0x55);
    WriteFile(out, previous);
    chmod(out.c_str(), 0604);
    std::unique_ptr<CDicomItem> root(LoadAndEdit(source));
    EXPECT_FALSE(SaveWithSizeLimit([&] { return root->SaveToFile(Utf8ToUtf16(out)); }));
    EXPECT_EQ(root->GetLastError().GetCode(), EFBIG);
    EXPECT_EQ(ReadFile(out), previous);
    EXPECT_EQ(FilesBeside(out), 0);
    // Complete content replaces the file and keeps its permissions.
    EXPECT_TRUE(root->SaveToFile(Utf8ToUtf16(out)));
    EXPECT_FALSE(root->GetLastError().IsSet());
    EXPECT_EQ(ReadFile(out), SampleFile("ROE^JANE"));
    struct stat info {};
    stat(out.c_str(), &info);
    EXPECT_EQ(info.st_mode & 0777, 0604u);
    EXPECT_EQ(FilesBeside(out), 0);
}

TEST_F(ObjectFiles, WriteErrorsAreLoggedByTheFileWriterWithTheirCount)
{
    // A large value goes out in chunks of 1 MiB: the first one fails.
    std::string source = Path("large.dcm");
    WriteFile(source, SampleFile("DOE^JOHN"));
    std::unique_ptr<CDicomItem> large(LoadAndEdit(source));
    EXPECT_FALSE(large->SaveToFile(u"/dev/full"));
    EXPECT_EQ(LastError(), "CDicomFileWriter::WriteProc: System Error : No space left on device System Error Code : 28 "
                           "Params : lSize=1048576, pDstFile=/dev/full");

    // A small object is buffered whole; its failure shows when the buffer is written.
    CDicomItem root(u"Object");
    root.AddItem(new CDicomItem(u"Data"));
    static_cast<CDicomItem*>(root.GetChildItem(std::u16string(u"Data")))->AddTag(0x0010, 0x0010, u"DOE^JOHN", u"");
    EXPECT_FALSE(root.SaveToFile(u"/dev/full"));
    EXPECT_EQ(root.GetLastError().GetCode(), ENOSPC);
    EXPECT_EQ(root.GetLastError().GetText(), "No space left on device");
    // The data set's one element: an 8-byte header and 8 value bytes.
    EXPECT_EQ(LastError(), "CDicomFileWriter::WriteProc: System Error : No space left on device System Error Code : 28 "
                           "Params : lSize=16, pDstFile=/dev/full");
}

TEST_F(ObjectFiles, FailedRewritesLeaveTheOriginalByteIdenticalAndGoodOnesReplaceIt)
{
    std::string path = Path("keep.dcm"), users = path + ".tmp";
    const Bytes original = SampleFile("DOE^JOHN");
    WriteFile(path, original);
    chmod(path.c_str(), 0640);
    // A file of the user's that happens to carry the ".tmp" name is no
    // temporary file of ours.
    WriteFile(users, Bytes{1, 2, 3});

    // The writer fails half-way: a file size limit stops the copy at 256 KiB.
    CDicomItem* root = LoadAndEdit(path);
    CLastError error;
    EXPECT_FALSE(SaveWithSizeLimit(
        [&] { return CDicomItem::SaveModificationToExistingFile(root, Utf8ToUtf16(path), &error); }));
    EXPECT_EQ(root, nullptr);
    EXPECT_EQ(error.GetCode(), EFBIG);
    EXPECT_EQ(ReadFile(path), original);
    EXPECT_NE(LastError().find("File too large"), std::string::npos) << LastError();
    EXPECT_NE(LastError().find("pDstFile=" + path + "."), std::string::npos) << LastError();

    // No temporary file can be opened: no descriptor is left.
    root = LoadAndEdit(path);
    struct rlimit files {};
    getrlimit(RLIMIT_NOFILE, &files);
    struct rlimit none = files;
    none.rlim_cur = 0;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    bool rewritten = CDicomItem::SaveModificationToExistingFile(root, Utf8ToUtf16(path), &error);
    setrlimit(RLIMIT_NOFILE, &files);
    EXPECT_FALSE(rewritten);
    EXPECT_EQ(error.GetCode(), EMFILE);
    EXPECT_EQ(ReadFile(path), original);

    // Nothing in the way: the file is replaced and keeps its permissions.
    root = LoadAndEdit(path);
    EXPECT_TRUE(CDicomItem::SaveModificationToExistingFile(root, Utf8ToUtf16(path)));
    EXPECT_EQ(root, nullptr);
    EXPECT_EQ(ReadFile(path), SampleFile("ROE^JANE"));
    struct stat info {};
    stat(path.c_str(), &info);
    EXPECT_EQ(info.st_mode & 0777, 0640u);
    EXPECT_EQ(ReadFile(users), (Bytes{1, 2, 3}));
    EXPECT_EQ(FilesBeside(path), 1);
    EXPECT_FALSE(CDicomItem::SaveModificationToExistingFile(root, Utf8ToUtf16(path)));
}
