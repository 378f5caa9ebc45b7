// `zeldicom echo` against DCMTK's storescp and Orthanc, each started here
// with its own configuration in a temporary folder on a free loopback port
// and stopped again whatever happens; the trace file must hold the analysed
// association, data and release PDUs.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "network/peer_process.h"
#include "network/scripted_peer.h"
#include "support/dicomwriter.h"
#include "support/cli.h"

namespace {

// Echo until the peer answers (it needs a moment to listen), at most 20 s.
CliResult EchoWhenUp(const PeerProcess& peer, const std::string& aet, uint16_t port, const std::string& traceDir)
{
    CliResult run;
    for (int attempt = 0; attempt < 200 && peer.Running(); ++attempt) {
        run = RunCli({"echo", "-aec", aet, "--timeout", "5", "127.0.0.1", std::to_string(port)});
        if (run.status == 0)
            break;
        usleep(100000);
    }
    return RunCli({"echo", "-aec", aet, "--trace", traceDir, "127.0.0.1", std::to_string(port)});
}

std::string TraceFiles(const std::string& traceDir)
{
    std::string log;
    for (const auto& entry : std::filesystem::directory_iterator(traceDir)) {
        std::string name = entry.path().filename().string();
        EXPECT_EQ(name.rfind("DICOM", 0), 0u) << name;
        std::ifstream in(entry.path());
        log.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return log;
}

void ExpectAnalysedTrace(const std::string& log)
{
    for (const char* expected :
         {"PDU Type: 0x0001 (A-ASSOCIATE-RQ)", "PDU Type: 0x0002 (A-ASSOCIATE-AC)", "PDU Type: 0x0004 (P-DATA-TF)",
          "(0000, 0100) Command Field                    US 0x0002 0x8030 (32816) (C-ECHO-RSP)",
          "PDU Type: 0x0005 (A-RELEASE-RQ)", "PDU Type: 0x0006 (A-RELEASE-RSP)", "Maximum Length = ",
          "CLOSING CONNECTION - NO ERROR"})
        EXPECT_NE(log.find(expected), std::string::npos) << expected;
}

std::string TempFolder(const std::string& name)
{
    std::string folder = testsupport::ScratchPath(name);
    std::filesystem::create_directories(folder + "/trace");
    return folder;
}

}

TEST(EchoPeers, Storescp)
{
    std::string folder = TempFolder("storescp");
    uint16_t port = FreePort();
    PeerProcess storescp({"storescp", "-aet", "STORESCP", "--ignore", std::to_string(port)}, folder);
    CliResult run = EchoWhenUp(storescp, "STORESCP", port, folder + "/trace");
    EXPECT_EQ(run.status, 0) << run.err;
    ExpectAnalysedTrace(TraceFiles(folder + "/trace"));

    // -d: the same analysed trace on standard error, and no trace file
    // (the default temp folder is TMPDIR); -v: the steps; -q: nothing but errors.
    std::filesystem::create_directories(folder + "/tmp");
    CliResult debug = RunCli({"-c", "TMPDIR=\"$1\" exec \"$0\" echo -d -aec STORESCP 127.0.0.1 " + std::to_string(port),
                              ZELDICOM_CLI, folder + "/tmp"},
                             "/bin/sh");
    EXPECT_EQ(debug.status, 0) << debug.err;
    ExpectAnalysedTrace(debug.err);
    EXPECT_TRUE(std::filesystem::is_empty(folder + "/tmp"));
    CliResult verbose = RunCli({"echo", "-v", "-aec", "STORESCP", "-to", "5", "-ta", "5", "-td", "5", "127.0.0.1",
                                std::to_string(port)});
    EXPECT_EQ(verbose.status, 0) << verbose.err;
    EXPECT_NE(verbose.err.find("Requesting association with STORESCP at 127.0.0.1:" + std::to_string(port)),
              std::string::npos) << verbose.err;
    EXPECT_NE(verbose.err.find("C-ECHO answered with status 0x0000"), std::string::npos) << verbose.err;
    EXPECT_NE(verbose.out.find("success"), std::string::npos);
    CliResult quiet = RunCli({"echo", "-q", "-aec", "STORESCP", "127.0.0.1", std::to_string(port)});
    EXPECT_EQ(quiet.status, 0) << quiet.err;
    EXPECT_EQ(quiet.out + quiet.err, "");
}

TEST(EchoPeers, Orthanc)
{
    std::string folder = TempFolder("orthanc");
    uint16_t port = FreePort();
    std::ofstream(folder + "/orthanc.json") << R"({
  "Name": "ZELDICOM-TEST", "StorageDirectory": ")" << folder << R"(/storage",
  "IndexDirectory": ")" << folder << R"(/index", "HttpServerEnabled": false,
  "RemoteAccessAllowed": false, "AuthenticationEnabled": false, "DicomServerEnabled": true,
  "DicomAet": "ORTHANC", "DicomPort": )" << port << R"(, "DicomCheckCalledAet": true,
  "DicomAlwaysAllowEcho": true, "SaveJobs": false, "Plugins": []
})";
    PeerProcess orthanc({"Orthanc", folder + "/orthanc.json"}, folder);
    CliResult run = EchoWhenUp(orthanc, "ORTHANC", port, folder + "/trace");
    EXPECT_EQ(run.status, 0) << run.err;
    ExpectAnalysedTrace(TraceFiles(folder + "/trace"));
}
