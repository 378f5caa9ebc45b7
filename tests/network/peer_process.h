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

}
