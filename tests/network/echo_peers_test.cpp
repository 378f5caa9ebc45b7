// `zeldicom echo` against DCMTK's storescp and Orthanc, each started here
// with its own configuration in a temporary folder on a free loopback port
// and stopped again whatever happens; the trace file must hold the analysed
// association, data and release PDUs.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

#include "network/scripted_peer.h"
#include "dicomdata/parse_fixtures.h"
#include "support/cli.h"

namespace {

// A port nothing listens on: bound and released without a connection, so
// no TIME_WAIT keeps the peer from binding it.
uint16_t FreePort()
{
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    close(fd);
    return ntohs(address.sin_port);
}

// A peer process started in its own folder, killed and reaped on destruction.
class PeerProcess {
public:
    PeerProcess(const std::vector<std::string>& argv, const std::string& folder) : m_folder(folder)
    {
        m_pid = fork();
        if (m_pid == 0) {
            std::vector<char*> args;
            for (const std::string& arg : argv)
                args.push_back(const_cast<char*>(arg.c_str()));
            args.push_back(nullptr);
            std::string log = folder + "/peer.log";
            FILE* out = freopen(log.c_str(), "w", stdout);
            dup2(fileno(out), 2);
            setenv("TCP_NODELAY", "1", 1);
            execvp(args[0], args.data());
            _exit(127);
        }
    }
    ~PeerProcess()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
        std::filesystem::remove_all(m_folder);
    }
    bool Running() const { return m_pid > 0 && waitpid(m_pid, nullptr, WNOHANG) == 0; }

private:
    pid_t m_pid = -1;
    std::string m_folder;
};

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

void ExpectAnalysedTrace(const std::string& traceDir)
{
    std::string log;
    for (const auto& entry : std::filesystem::directory_iterator(traceDir)) {
        std::string name = entry.path().filename().string();
        EXPECT_EQ(name.rfind("DICOM", 0), 0u) << name;
        std::ifstream in(entry.path());
        log.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    for (const char* expected :
         {"PDU Type: 0x0001 (A-ASSOCIATE-RQ)", "PDU Type: 0x0002 (A-ASSOCIATE-AC)", "PDU Type: 0x0004 (P-DATA-TF)",
          "(0000, 0100) Command Field                    US 0x0002 0x8030 (32816) (C-ECHO-RSP)",
          "PDU Type: 0x0005 (A-RELEASE-RQ)", "PDU Type: 0x0006 (A-RELEASE-RSP)", "Maximum Length = ",
          "CLOSING CONNECTION - NO ERROR"})
        EXPECT_NE(log.find(expected), std::string::npos) << expected;
}

std::string TempFolder(const std::string& name)
{
    std::string folder = parsefix::ScratchPath(name);
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
    ExpectAnalysedTrace(folder + "/trace");
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
    ExpectAnalysedTrace(folder + "/trace");
}
