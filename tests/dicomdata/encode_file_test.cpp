#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "dicomdata/datawriter.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/parse_fixtures.h"
#include "platform/system.h"
#include "platform/text.h"

using namespace parsefix;

namespace {
std::string Scratch(const std::string& name)
{
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir && *dir ? dir : "/tmp") + "/zeldicom-h2-" + std::to_string(getpid()) + "-" + name;
}

Bytes ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string& path, const Bytes& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

bool Exists(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0;
}

// A small implicit VR image with a pixel value of the given size.
Bytes SampleFile(size_t pixelBytes, const std::string& name = "DOE^JOHN")
{
    Bytes pixels(pixelBytes);
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<unsigned char>(i);
    return fileImage("1.2.840.10008.1.2", cat({ielem(0x0008, 0x0060, text("CT")), ielem(0x0010, 0x0010, text(name)),
                                               ielem(0x0028, 0x0100, us(16)), ielem(0x7FE0, 0x0010, pixels)}));
}

CDicomItem* Load(const std::string& path)
{
    auto* root = new CDicomItem(u"Object");
    if (!root->LoadObject(Utf8ToUtf16(path))) {
        delete root;
        return nullptr;
    }
    return root;
}

CDicomItem* DataOf(CDicomItem* root)
{
    return static_cast<CDicomItem*>(root->GetChildItem(std::u16string(u"Data")));
}

// Quiets the error log for the duration of a test that provokes errors.
struct QuietLog {
    QuietLog() { CAuditManager::GetUniqueInstance().SetQuiet(true); }
    ~QuietLog() { CAuditManager::GetUniqueInstance().SetQuiet(false); }
};
}

TEST(EncodeFiles, SaveToFileWritesTheLoadedBytesBackAndRefusesItsOwnSource)
{
    QuietLog quiet;
    std::string source = Scratch("source.dcm"), copy = Scratch("copy.dcm");
    Bytes original = SampleFile(4096);
    WriteFile(source, original);
    CDicomItem* root = Load(source);
    ASSERT_NE(root, nullptr);
    EXPECT_TRUE(root->SaveToFile(Utf8ToUtf16(copy)));
    EXPECT_EQ(ReadFile(copy), original);

    // Truncating the mapped source under the tree would lose its values.
    EXPECT_FALSE(root->SaveToFile(Utf8ToUtf16(source)));
    EXPECT_EQ(ReadFile(source), original);
    // A path that cannot be created.
    EXPECT_FALSE(root->SaveToFile(Utf8ToUtf16(Scratch("no-such-dir/x.dcm"))));
    delete root;
    unlink(source.c_str());
    unlink(copy.c_str());
}

TEST(EncodeFiles, FileWriterLogsTheSystemErrorWithCountAndPath)
{
    QuietLog quiet;
    CDicomOutputFile full;
    ASSERT_TRUE(full.Open("/dev/full"));
    // More than the stream buffers, so the write reaches the device.
    Bytes block(4u << 20, 0x55);
    EXPECT_EQ(CDicomFileWriter::WriteProc(block.data(), static_cast<uint32_t>(block.size()), &full), 0xFFFFFFFFu);
    EXPECT_EQ(CAuditManager::GetUniqueInstance().GetLastError(),
              "CDicomFileWriter::WriteProc: System Error : No space left on device System Error Code : 28 Params : "
              "lSize=4194304, pDstFile=/dev/full");
    full.Close();
    EXPECT_EQ(CDicomFileWriter::WriteProc(block.data(), 1, nullptr), 0xFFFFFFFFu);

    // A whole save into it fails too: buffered bytes fail at the latest when
    // the file is closed.
    CDicomItem root(u"Object");
    auto* data = new CDicomItem(u"Data");
    root.AddItem(data);
    data->AddTag(0x0010, 0x0010, "DOE^JOHN", 8, u"PN");
    EXPECT_FALSE(root.SaveToFile(u"/dev/full"));
}

TEST(EncodeInPlace, RewriteReplacesTheFileAndReleasesTheTree)
{
    std::string path = Scratch("inplace.dcm");
    WriteFile(path, SampleFile(1 << 16));
    chmod(path.c_str(), 0640);
    CDicomItem* root = Load(path);
    ASSERT_NE(root, nullptr);
    DataOf(root)->ReplaceTag(0x0010, 0x0010, u"ROE^JANE^MIDDLE", u"");
    EXPECT_TRUE(CDicomItem::SaveModificationToExistingFile(root, Utf8ToUtf16(path)));
    EXPECT_EQ(root, nullptr);
    EXPECT_FALSE(Exists(path + ".tmp"));
    EXPECT_EQ(ReadFile(path), SampleFile(1 << 16, "ROE^JANE^MIDDLE "));
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640u);

    CDicomItem* none = nullptr;
    EXPECT_FALSE(CDicomItem::SaveModificationToExistingFile(none, Utf8ToUtf16(path)));
    unlink(path.c_str());
}

TEST(EncodeInPlace, FailedRewritesLeaveTheOriginalByteIdentical)
{
    QuietLog quiet;
    std::string path = Scratch("keep.dcm");
    const Bytes original = SampleFile(1 << 20);
    WriteFile(path, original);

    // 1. The temporary cannot be created: its name is taken by a directory.
    ASSERT_EQ(mkdir((path + ".tmp").c_str(), 0700), 0);
    CDicomItem* root = Load(path);
    ASSERT_NE(root, nullptr);
    DataOf(root)->ReplaceTag(0x0010, 0x0010, u"CHANGED", u"");
    EXPECT_FALSE(CDicomItem::SaveModificationToExistingFile(root, Utf8ToUtf16(path)));
    EXPECT_EQ(root, nullptr);
    EXPECT_EQ(ReadFile(path), original);
    EXPECT_NE(CAuditManager::GetUniqueInstance().GetLastError().find(path + ".tmp"), std::string::npos);
    rmdir((path + ".tmp").c_str());

    // 2. The writer fails half-way: the file size limit stops the temporary
    //    copy after 256 KiB of a 1 MiB value.
    root = Load(path);
    ASSERT_NE(root, nullptr);
    DataOf(root)->ReplaceTag(0x0010, 0x0010, u"CHANGED", u"");
    struct rlimit saved {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
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
    EXPECT_FALSE(Exists(path + ".tmp"));
    const std::string& error = CAuditManager::GetUniqueInstance().GetLastError();
    EXPECT_NE(error.find("File too large"), std::string::npos) << error;
    EXPECT_NE(error.find("pDstFile=" + path + ".tmp"), std::string::npos) << error;

    // 3. A directory that does not take new files (only meaningful when the
    //    test does not run with the rights to ignore that).
    if (geteuid() != 0) {
        std::string dir = Scratch("locked");
        ASSERT_EQ(mkdir(dir.c_str(), 0700), 0);
        std::string inside = dir + "/keep.dcm";
        WriteFile(inside, original);
        chmod(dir.c_str(), 0500);
        root = Load(inside);
        ASSERT_NE(root, nullptr);
        EXPECT_FALSE(CDicomItem::SaveModificationToExistingFile(root, Utf8ToUtf16(inside)));
        EXPECT_EQ(ReadFile(inside), original);
        chmod(dir.c_str(), 0700);
        unlink(inside.c_str());
        rmdir(dir.c_str());
    }
    unlink(path.c_str());
}
