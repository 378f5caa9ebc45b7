#pragma once
// A scripted DICOM peer on 127.0.0.1 for the client's tests: it accepts one
// connection and plays its script (expect a PDU, send bytes, dribble them,
// stall, close), never waiting longer than its own limit, then closes. A
// scripted client plays the same kind of script against a server.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "network/pdu_fixtures.h"

namespace pdufix {

struct Step {
    enum Kind { kExpect, kSend, kDribble, kStall, kClose, kExpectClose } kind;
    uint8_t pduType = 0;  // kExpect: the type the client must send
    Bytes bytes = {};     // kSend, kDribble
    int milliseconds = 0; // kDribble: pause per byte; kStall: how long (the other side's close ends it sooner); kExpectClose: the longest wait
    int context = -1;     // kExpect: the presentation context of the P-DATA-TF's first PDV, when set
};
inline Step Expect(uint8_t type) { return {Step::kExpect, type}; }
inline Step ExpectOnContext(uint8_t context) { return {Step::kExpect, 0x04, {}, 0, context}; }
inline Step Send(const Bytes& bytes) { return {Step::kSend, 0, bytes}; }
inline Step Dribble(const Bytes& bytes, int pause) { return {Step::kDribble, 0, bytes, pause}; }
inline Step Stall(int milliseconds = 10000) { return {Step::kStall, 0, {}, milliseconds}; }
inline Step Close() { return {Step::kClose}; }
// The other side must hang up within the time (what it sends first is dropped).
inline Step ExpectClose(int milliseconds = 10000) { return {Step::kExpectClose, 0, {}, milliseconds}; }

// A listener on 127.0.0.1 whose queue of pending connections is full (a
// backlog of 0 and one connection never accepted): a client's connect to it
// stays pending until the client gives up.
class UnansweredListener {
public:
    UnansweredListener()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
        listen(m_listener, 0);
        getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        m_filler = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        connect(m_filler, reinterpret_cast<sockaddr*>(&address), sizeof address);
    }
    ~UnansweredListener()
    {
        close(m_filler);
        close(m_listener);
    }
    uint16_t Port() const { return m_port; }

private:
    int m_listener = -1, m_filler = -1;
    uint16_t m_port = 0;
};

// Plays a script on a connected descriptor; what went against it in Problem().
class ScriptPlayer {
public:
    // What went against the script ("expected PDU type 5, got 4"), empty when nothing.
    const std::string& Problem() const { return m_problem; }

protected:
    // Waits for input in short slices so that the destructor's stop is seen; false on time-out or stop.
    bool WaitReadable(int fd, int milliseconds)
    {
        auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        while (!m_stop && std::chrono::steady_clock::now() < end) {
            pollfd entry{fd, POLLIN, 0};
            if (poll(&entry, 1, 20) > 0)
                return true;
        }
        return false;
    }
    bool ReadExactly(int fd, uint8_t* out, size_t count)
    {
        for (size_t got = 0; got < count;) {
            if (!WaitReadable(fd, 10000))
                return false;
            ssize_t n = recv(fd, out + got, count - got, 0);
            if (n <= 0)
                return false;
            got += static_cast<size_t>(n);
        }
        return true;
    }
    void Play(int fd, const std::vector<Step>& script)
    {
        for (const Step& step : script) {
            if (step.kind == Step::kClose)
                break;
            if (step.kind == Step::kExpect) {
                uint8_t header[6];
                if (!ReadExactly(fd, header, 6)) {
                    m_problem = "no PDU of type " + std::to_string(step.pduType);
                    break;
                }
                uint32_t length = (uint32_t(header[2]) << 24) | (header[3] << 16) | (header[4] << 8) | header[5];
                std::vector<uint8_t> body(length);
                if (header[0] != step.pduType || length > (1u << 20) || !ReadExactly(fd, body.data(), length)) {
                    m_problem = "expected PDU type " + std::to_string(step.pduType) + ", got " + std::to_string(header[0]);
                    break;
                }
                if (step.context >= 0 && (length < 5 || body[4] != step.context)) {
                    m_problem = "expected a PDV on context " + std::to_string(step.context);
                    break;
                }
            } else if (step.kind == Step::kSend) {
                send(fd, step.bytes.data(), step.bytes.size(), MSG_NOSIGNAL);
            } else if (step.kind == Step::kDribble) {
                for (uint8_t byte : step.bytes) {
                    send(fd, &byte, 1, MSG_NOSIGNAL);
                    std::this_thread::sleep_for(std::chrono::milliseconds(step.milliseconds));
                }
            } else if (step.kind == Step::kStall || step.kind == Step::kExpectClose) {
                // Silent until the other side hangs up or the time ends; whatever it sends is read and dropped.
                uint8_t sink[4096];
                ssize_t got = 1;
                while (WaitReadable(fd, step.milliseconds) && (got = recv(fd, sink, sizeof sink, 0)) > 0) {
                }
                if (step.kind == Step::kExpectClose && got > 0)
                    m_problem = "the connection stayed open";
            }
        }
    }

    std::atomic<bool> m_stop{false};
    std::string m_problem;
};

class ScriptedPeer : public ScriptPlayer {
public:
    explicit ScriptedPeer(std::vector<Step> script) : m_script(std::move(script))
    {
        m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
        listen(m_listener, 1);
        getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { Run(); });
    }
    ~ScriptedPeer()
    {
        m_stop = true;
        m_thread.join();
        close(m_listener);
    }
    uint16_t Port() const { return m_port; }

private:
    void Run()
    {
        if (!WaitReadable(m_listener, 10000))
            return;
        int fd = accept(m_listener, nullptr, nullptr);
        if (fd < 0)
            return;
        Play(fd, m_script);
        close(fd);
    }

    std::vector<Step> m_script;
    int m_listener = -1;
    uint16_t m_port = 0;
    std::thread m_thread;
};

// Connects to a server on 127.0.0.1 and plays the script at once.
class ScriptedClient : public ScriptPlayer {
public:
    ScriptedClient(uint16_t port, const std::vector<Step>& script)
    {
        int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
            Play(fd, script);
        else
            m_problem = "no connection";
        close(fd);
    }
};

}
