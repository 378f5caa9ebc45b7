// Orthanc, started here with its own configuration on free loopback ports,
// against store, find, move and storage commitment: the report arrives on
// the association Orthanc opens to `commit --listen`, with the stored
// instance committed and the one Orthanc never received failed.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/dicomwriter.h"
#include "network/peer_process.h"
#include "support/cli.h"

namespace fs = std::filesystem;

TEST(OrthancDimse, StoreFindMoveAndCommit)
{
    const std::string folder = testsupport::ScratchPath("orthanc-dimse");
    const uint16_t port = FreePort(), listen = FreePort(), movePort = FreePort();
    fs::create_directories(folder + "/moved");
    fs::create_directories(folder + "/destrun");
    std::ofstream(folder + "/orthanc.json") << R"({
  "Name": "ZELDICOM-TEST", "StorageDirectory": ")" << folder << R"(/storage",
  "IndexDirectory": ")" << folder << R"(/index", "HttpServerEnabled": false,
  "RemoteAccessAllowed": false, "AuthenticationEnabled": false, "DicomServerEnabled": true,
  "DicomAet": "ORTHANC", "DicomPort": )" << port << R"(, "DicomCheckCalledAet": true,
  "DicomAlwaysAllowEcho": true, "DicomAlwaysAllowStore": true, "DicomAlwaysAllowFind": true,
  "DicomAlwaysAllowMove": true, "SaveJobs": false, "Plugins": [],
  "DicomModalities": { "scu": ["ZELDICOM", "127.0.0.1", )" << listen << R"(],
                       "movedest": ["MOVEDEST", "127.0.0.1", )" << movePort << R"(] }
})";
    PeerProcess orthanc({"Orthanc", folder + "/orthanc.json"}, folder);
    PeerProcess dest({"storescp", "-aet", "MOVEDEST", "+xa", "-od", folder + "/moved", std::to_string(movePort)},
                     folder + "/destrun");
    const std::string ct = testsupport::PydicomDataDir() + "/test_files/CT_small.dcm";
    const std::string mr = testsupport::PydicomDataDir() + "/test_files/MR_small.dcm";
    const std::string p = std::to_string(port);
    CliResult stored;
    for (int attempt = 0; attempt < 100 && orthanc.Running(); ++attempt) {
        stored = RunCli({"store", "-aec", "ORTHANC", "--timeout", "5", "127.0.0.1", p, ct});
        if (stored.status == 0)
            break;
        usleep(100000);
    }
    ASSERT_EQ(stored.status, 0) << stored.err;

    for (const char* syntax : {"-xi", "-xb"}) {
        CliResult find = RunCli({"find", "-aec", "ORTHANC", syntax, "--level", "SERIES", "-k", "Modality", "-k",
                                 "SeriesInstanceUID", "-k", "PatientName=Compressed*", "127.0.0.1", p});
        EXPECT_EQ(find.status, 0) << find.err;
        EXPECT_NE(find.out.find("(0008,0060) CS [CT]"), std::string::npos) << find.out;
        EXPECT_NE(find.out.find("1 match, final status 0x0000: Success"), std::string::npos) << find.out;
    }

    CliResult move = RunCli({"move", "-aec", "ORTHANC", "--dest", "MOVEDEST", "-k",
                             "StudyInstanceUID=1.3.6.1.4.1.5962.1.2.1.20040119072730.12322", "127.0.0.1", p});
    EXPECT_EQ(move.status, 0) << move.err;
    EXPECT_NE(move.out.find("1 completed, 0 failed"), std::string::npos) << move.out;
    EXPECT_EQ(std::distance(fs::directory_iterator(folder + "/moved"), fs::directory_iterator()), 1);
    CliResult unknown = RunCli({"move", "-aec", "ORTHANC", "--dest", "NOWHERE", "-k",
                                "StudyInstanceUID=1.3.6.1.4.1.5962.1.2.1.20040119072730.12322", "127.0.0.1", p});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_NE(unknown.out.find("final status 0xC000: Failed: Unable to Process"), std::string::npos) << unknown.out;

    CliResult commit = RunCli({"commit", "-aec", "ORTHANC", "--listen", std::to_string(listen), "--timeout", "10",
                               "127.0.0.1", p, ct, mr});
    EXPECT_EQ(commit.status, 1) << commit.err;
    EXPECT_NE(commit.out.find("committed 1.3.6.1.4.1.5962.1.1.1.1.1.20040119072730.12322 CT Image Storage"),
              std::string::npos)
        << commit.out;
    EXPECT_NE(commit.out.find("failed 1.3.6.1.4.1.5962.1.1.4.1.1.20040826185059.5457 MR Image Storage SOP Class: "
                              "reason 0x0112"),
              std::string::npos)
        << commit.out;
    EXPECT_EQ(commit.err, "");
    CliResult allCommitted = RunCli({"commit", "-aec", "ORTHANC", "--listen", std::to_string(listen), "--timeout",
                                     "10", "127.0.0.1", p, ct});
    EXPECT_EQ(allCommitted.status, 0) << allCommitted.err;
    EXPECT_NE(allCommitted.out.find("1 committed, 0 failed"), std::string::npos) << allCommitted.out;
}
