// Received C-STORE data sets written to files: what pydicom reads back, and
// that no failure leaves a file or a temporary behind.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "network/receivedfile.h"
#include "support/dicomwriter.h"
#include "support/files.h"

using namespace testsupport;

namespace {

constexpr char kCtStorage[] = "1.2.840.10008.5.1.4.1.1.2";
constexpr char kInstance[] = "1.2.3.4.5.6";

Bytes Uid(const std::string& uid)
{
    Bytes value = text(uid);
    if (value.size() % 2)
        value.push_back(0);
    return value;
}

Bytes DataSet(bool explicitVR, const std::string& sopClass, const std::string& sopInstance, size_t pixelBytes = 64)
{
    return cat({elemAs(explicitVR, 0x0008, 0x0016, "UI", Uid(sopClass)),
                elemAs(explicitVR, 0x0008, 0x0018, "UI", Uid(sopInstance)),
                elemAs(explicitVR, 0x0010, 0x0010, "PN", text("Doe^Jane")),
                elemAs(explicitVR, 0x7FE0, 0x0010, "OW", Bytes(pixelBytes, 0x5A))});
}

// Feeds the data set in fragments of seven bytes, as PDVs split it.
uint16_t Receive(CReceivedFile& file, const RECEIVED_INSTANCE& instance, const Bytes& dataSet, std::string& path,
                 const CReceivedFile::Namer& namer = nullptr)
{
    uint16_t status = file.Begin(instance);
    for (size_t at = 0; status == 0 && at < dataSet.size(); at += 7)
        status = file.Append(dataSet.data() + at, std::min<size_t>(7, dataSet.size() - at));
    return status ? status : file.Finish(namer, path);
}

std::vector<std::string> Entries(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    return names;
}

}  // namespace

TEST(ReceivedFile, WritesAPart10FileThatPydicomReads)
{
    if (PydicomDataDir().empty())
        GTEST_SKIP() << "pydicom is not installed";
    ScratchFolder folder("received");
    for (const char* syntax : {"1.2.840.10008.1.2", "1.2.840.10008.1.2.1"}) {
        const bool explicitVR = std::string(syntax) != "1.2.840.10008.1.2";
        CReceivedFile file(folder.path, true);
        std::string path;
        ASSERT_EQ(Receive(file, {kCtStorage, kInstance, syntax, "MODALITY1"}, DataSet(explicitVR, kCtStorage, kInstance),
                          path),
                  0)
            << file.GetError();
        EXPECT_EQ(path, folder.path + "/1.2.3.4.5.6.dcm");
        EXPECT_EQ(Entries(folder.path), std::vector<std::string>{"1.2.3.4.5.6.dcm"});
        auto [status, out] = RunShell(
            "/usr/bin/python3 -c \"import pydicom; d = pydicom.dcmread('" + path +
            "'); m = d.file_meta; print(m.MediaStorageSOPClassUID, m.MediaStorageSOPInstanceUID, m.TransferSyntaxUID, "
            "m.SourceApplicationEntityTitle, d.SOPInstanceUID, d.PatientName, len(d.PixelData))\"");
        EXPECT_EQ(status, 0) << out;
        EXPECT_EQ(out, std::string(kCtStorage) + " " + kInstance + " " + syntax + " MODALITY1 " + kInstance +
                           " Doe^Jane 64\n");
    }
}

TEST(ReceivedFile, FailuresLeaveNoFileAndNoTemporary)
{
    ScratchFolder folder("received-failures");
    const RECEIVED_INSTANCE request{kCtStorage, kInstance, "1.2.840.10008.1.2.1", "PEER"};
    std::string path;
    // The data set is another instance (or class) than the request announced.
    for (const auto& [sopClass, sopInstance] :
         {std::pair{std::string(kCtStorage), std::string("1.2.3.4.5.7")}, {std::string("1.2.840.10008.5.1.4.1.1.4"), std::string(kInstance)}}) {
        CReceivedFile file(folder.path);
        EXPECT_EQ(Receive(file, request, DataSet(true, sopClass, sopInstance), path), CReceivedFile::kDataSetMismatch);
        EXPECT_NE(file.GetError().find("differs from"), std::string::npos) << file.GetError();
    }
    // A name that leaves the folder, and a peer UID that tries to.
    {
        CReceivedFile file(folder.path);
        EXPECT_EQ(Receive(file, request, DataSet(true, kCtStorage, kInstance), path,
                          [](const RECEIVED_INSTANCE&) { return std::string("../escaped.dcm"); }),
                  CReceivedFile::kCannotUnderstand);
        EXPECT_EQ(CReceivedFile::DefaultName({kCtStorage, "../../etc/x", "", ""}), "_._..______.dcm");
    }
    // An object the association never completed.
    {
        CReceivedFile file(folder.path);
        ASSERT_EQ(file.Begin(request), 0);
        ASSERT_EQ(file.Append("\x08\x00", 2), 0);
    }
    EXPECT_TRUE(Entries(folder.path).empty());

    // A file size limit: the write past it fails (SIGXFSZ ignored), the
    // status is Out of Resources and the partial object is gone. In a child,
    // so that the limit does not hold for the test process.
    pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{4096, 4096};
        setrlimit(RLIMIT_FSIZE, &limit);
        CReceivedFile file(folder.path);
        std::string written;
        uint16_t status = Receive(file, request, DataSet(true, kCtStorage, kInstance, 20000), written);
        _exit(status == CReceivedFile::kOutOfResources && file.GetError().find("data set") != std::string::npos ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_TRUE(Entries(folder.path).empty());
}
