#pragma once
// A DICOM peer program (storescp, Orthanc, ...) run by a test on a free
// loopback port in its own folder, and always stopped again.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

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

// A peer process started in its own folder, killed (with the processes it
// forked) and reaped on destruction.
class PeerProcess {
public:
    PeerProcess(const std::vector<std::string>& argv, const std::string& folder) : m_folder(folder)
    {
        m_pid = fork();
        if (m_pid == 0) {
            // Its own process group: peers that fork per association
            // (dcmqrscp) are stopped with their children.
            setpgid(0, 0);
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
            kill(-m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
        std::filesystem::remove_all(m_folder);
    }
    bool Running() const { return m_pid > 0 && waitpid(m_pid, nullptr, WNOHANG) == 0; }
    pid_t Pid() const { return m_pid; }

private:
    pid_t m_pid = -1;
    std::string m_folder;
};

// Waits until the peer answers C-ECHO under the title (20 s at most);
// false when it does not or it has ended.
inline bool WaitForEcho(const PeerProcess& peer, const std::string& aet, uint16_t port)
{
    for (int attempt = 0; attempt < 200 && peer.Running(); ++attempt) {
        if (RunCli({"echo", "-aec", aet, "--timeout", "5", "127.0.0.1", std::to_string(port)}).status == 0)
            return true;
        usleep(100000);
    }
    return false;
}

// One line per sent file: "same" when the file received (in the folder
// received) with its SOP Instance UID holds every element of the sent one
// with an equal value as pydicom reads them (a value read typed and one
// read as UN compare by their bytes) and is in the transfer syntax given
// ("same": the sent file's). Group lengths, which follow the encoding, and
// the trailing padding, which storescp drops, are left out. The script goes
// into the scratch folder.
inline std::string CompareReceived(const std::string& scratch, const std::string& received, const std::string& syntax,
                                   const std::vector<std::string>& sent)
{
    std::ofstream(scratch + "/compare.py") << R"(import sys, glob, pydicom
from pydicom.filebase import DicomBytesIO
from pydicom.filewriter import write_data_element
def raw(e):
    out = DicomBytesIO(); out.is_little_endian = True; out.is_implicit_VR = True
    write_data_element(out, e); return out.getvalue()[8:]
def same(a, b):
    try: return a.value == b.value or raw(a) == raw(b)
    except Exception: return False
received = {}
for path in glob.glob(sys.argv[1] + '/*'):
    d = pydicom.dcmread(path)
    received[d.SOPInstanceUID] = d
for path in sys.argv[3:]:
    sent = pydicom.dcmread(path, force=True)
    got = received.get(sent.SOPInstanceUID)
    if got is None:
        print('missing', path); continue
    want = sent.file_meta.TransferSyntaxUID if sys.argv[2] == 'same' else sys.argv[2]
    if got.file_meta.TransferSyntaxUID != want:
        print('transfer syntax', got.file_meta.TransferSyntaxUID, path)
    for d in (sent, got):
        for tag in [e.tag for e in d if e.tag.element == 0 or e.tag == 0xFFFCFFFC]:
            del d[tag]
    differing = [str(e.tag) for e in sent if e.tag not in got or not same(got[e.tag], e)]
    print('same' if not differing and len(sent) == len(got) else 'differs %s %s' % (path, differing))
)";
    std::string command = "/usr/bin/python3 " + scratch + "/compare.py " + received + " " + syntax;
    for (const std::string& path : sent)
        command += " " + path;
    auto [status, output] = testsupport::RunShell(command, false);
    return status == 0 ? output : "compare.py failed: " + output;
}

inline std::string Same(size_t count)
{
    std::string lines;
    for (size_t i = 0; i < count; ++i)
        lines += "same\n";
    return lines;
}

// `zeldicom receive` run as a peer on a free port, writing into folder/in,
// under the shell limit given (as "ulimit -f 2048"), answering C-ECHO.
struct Receiver {
    Receiver(const std::string& name, const std::vector<std::string>& options = {}, const std::string& limit = "")
        : folder(testsupport::ScratchPath(name)), port(FreePort()),
          peer({"sh", "-c", Command(options, limit)}, (std::filesystem::create_directories(folder + "/in"), folder))
    {
        ready = WaitForEcho(peer, "ANY-SCP", port);
    }
    std::string Command(const std::vector<std::string>& options, const std::string& limit) const
    {
        std::string command = (limit.empty() ? "" : limit + "; ") + "exec " ZELDICOM_CLI " receive --timeout 5";
        for (const std::string& option : options)
            command += " " + option;
        return command + " " + std::to_string(port) + " " + folder + "/in";
    }
    // Everything in the folder, hidden temporaries included.
    std::vector<std::string> Entries() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder + "/in"))
            names.push_back(entry.path().filename().string());
        return names;
    }
    std::string Log() const
    {
        testsupport::Bytes log = testsupport::ReadFile(folder + "/peer.log");
        return std::string(log.begin(), log.end());
    }
    // Waits (20 s at most) until the log holds the text.
    bool AwaitLog(const std::string& text) const
    {
        for (int attempt = 0; attempt < 200; ++attempt, usleep(100000))
            if (Log().find(text) != std::string::npos)
                return true;
        return false;
    }
    // Peak resident memory of the receiver so far, in KiB (0 when unknown).
    long PeakKiB() const
    {
        testsupport::Bytes status = testsupport::ReadFile("/proc/" + std::to_string(peer.Pid()) + "/status");
        std::string text(status.begin(), status.end());
        size_t at = text.find("VmHWM:");
        return at == std::string::npos ? 0 : std::atol(text.c_str() + at + 6);
    }
    CliResult Echo() const { return RunCli({"echo", "--timeout", "5", "127.0.0.1", std::to_string(port)}); }
    std::string folder;
    uint16_t port;
    PeerProcess peer;
    bool ready = false;
};

}
