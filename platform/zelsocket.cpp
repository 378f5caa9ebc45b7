#include "platform/zelsocket.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "platform/text.h"

using namespace zeldicom;

namespace {

thread_local uint32_t t_lastError = 0;

// errno -> the Windows Sockets number callers and the trace know.
uint32_t FromErrno(int error)
{
    switch (error) {
    case EAGAIN:
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
    case EINPROGRESS: return 10035;
    case EINTR: return 10004;
    case EACCES: return 10013;
    case EFAULT: return 10014;
    case EINVAL: return 10022;
    case EMFILE:
    case ENFILE: return 10024;
    case EBADF:
    case ENOTSOCK: return 10038;
    case EMSGSIZE: return 10040;
    case EPROTOTYPE: return 10041;
    case ENOPROTOOPT: return 10042;
    case EPROTONOSUPPORT: return 10043;
    case ESOCKTNOSUPPORT: return 10044;
    case EOPNOTSUPP: return 10045;
    case EAFNOSUPPORT: return 10047;
    case EADDRINUSE: return 10048;
    case EADDRNOTAVAIL: return 10049;
    case ENETDOWN: return 10050;
    case ENETUNREACH: return 10051;
    case ENETRESET: return 10052;
    case ECONNABORTED: return 10053;
    case ECONNRESET: return 10054;
    case ENOBUFS:
    case ENOMEM: return 10055;
    case EISCONN: return 10056;
    case ENOTCONN: return 10057;
    case EPIPE:
    case ESHUTDOWN: return 10058;
    case ETIMEDOUT: return 10060;
    case ECONNREFUSED: return 10061;
    case ENAMETOOLONG: return 10063;
    case EHOSTDOWN: return 10064;
    case EHOSTUNREACH: return 10065;
    default: return error == 0 ? 0 : 10050;
    }
}

uint32_t FromResolverError(int error)
{
    switch (error) {
    case EAI_NONAME: return 11001;
    case EAI_AGAIN: return 11002;
    case EAI_FAIL: return 11003;
#ifdef EAI_NODATA
    case EAI_NODATA: return 11004;
#endif
    case EAI_SYSTEM: return FromErrno(errno);
    default: return 11003;
    }
}

bool Fail(uint32_t error)
{
    t_lastError = error;
    return false;
}

// Waits for the events until the time-out (negative: no limit); 1 ready, 0 timed out, -1 error.
int WaitFor(int fd, short events, int milliseconds)
{
    uint64_t deadline = GetTickCountMs() + static_cast<uint64_t>(milliseconds < 0 ? 0 : milliseconds);
    for (;;) {
        pollfd entry{fd, events, 0};
        int left = milliseconds < 0 ? -1 : static_cast<int>(deadline > GetTickCountMs() ? deadline - GetTickCountMs() : 0);
        int ready = poll(&entry, 1, left);
        if (ready >= 0)
            return ready;
        if (errno != EINTR)
            return -1;
    }
}

void SetNoDelay(int fd)
{
    // Each PDU goes out in one write; Nagle would hold a small answer back
    // waiting for the peer's delayed ACK.
    int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

}

namespace {
TickSource g_tickSource = nullptr;
}

void SetTickSource(TickSource source) { g_tickSource = source; }

uint64_t GetTickCountMs()
{
    if (g_tickSource)
        return g_tickSource();
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000u + static_cast<uint64_t>(now.tv_nsec) / 1000000u;
}

CZelSocket::~CZelSocket()
{
    if (m_nHandle >= 0)
        ::close(m_nHandle);
}

uint32_t CZelSocket::GetLastError() { return t_lastError; }
void CZelSocket::SetLastError(uint32_t error) { t_lastError = error; }

bool CZelSocket::Create(unsigned, int type, const std::u16string&)
{
    if (type != 1)
        return Fail(10044);
    if (m_nHandle >= 0)
        return Fail(10056);
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return Fail(FromErrno(errno));
    m_nHandle = fd;
    return true;
}

unsigned CZelSocket::GetLocalPort() const
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (m_nHandle < 0 || ::getsockname(m_nHandle, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return 0;
    return ntohs(address.sin_port);
}

void CZelSocket::Adopt(int descriptor)
{
    Close();
    m_nHandle = descriptor;
}

void CZelSocket::Close()
{
    if (m_nHandle >= 0)
        ::close(m_nHandle);
    m_nHandle = -1;
}

bool CZelSocket::Listen(unsigned port, int backlog)
{
    if (m_nHandle < 0 && !Create(0, 1, u""))
        return false;
    int on = 1;
    setsockopt(m_nHandle, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (::bind(m_nHandle, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(m_nHandle, backlog) != 0)
        return Fail(FromErrno(errno));
    return true;
}

int CZelSocket::WaitReadable(const CZelSocket* const* sockets, int count, int milliseconds)
{
    if (count <= 0 || count > 8)
        return Fail(10022), -2;
    uint64_t deadline = GetTickCountMs() + static_cast<uint64_t>(milliseconds < 0 ? 0 : milliseconds);
    for (;;) {
        pollfd entries[8];
        for (int i = 0; i < count; ++i)
            entries[i] = {sockets[i]->m_nHandle, POLLIN, 0};
        int left = milliseconds < 0 ? -1 : static_cast<int>(deadline > GetTickCountMs() ? deadline - GetTickCountMs() : 0);
        int ready = poll(entries, static_cast<nfds_t>(count), left);
        if (ready == 0)
            return Fail(kTimedOut), -1;
        if (ready < 0 && errno != EINTR)
            return Fail(FromErrno(errno)), -2;
        for (int i = 0; ready > 0 && i < count; ++i)
            if (entries[i].revents != 0)
                return i;
    }
}

bool CZelSocket::Accept(CZelSocket& peer, void* address, int* addressLength)
{
    // A listener waits for a caller no longer than a receive would wait for data.
    int ready = WaitFor(m_nHandle, POLLIN, m_nReceiveTimeout);
    if (ready == 0)
        return Fail(kTimedOut);
    if (ready < 0)
        return Fail(FromErrno(errno));
    socklen_t length = addressLength ? static_cast<socklen_t>(*addressLength) : 0;
    int fd = ::accept4(m_nHandle, static_cast<sockaddr*>(address), addressLength ? &length : nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        return Fail(FromErrno(errno));
    if (addressLength)
        *addressLength = static_cast<int>(length);
    SetNoDelay(fd);
    peer.Adopt(fd);
    return true;
}

bool CZelSocket::SetSockOpt(int option, const void* value, int length, int level)
{
    if (option != kReceiveTimeoutOption || level != kSocketLevel || !value || length != 4)
        return Fail(10042);
    int32_t milliseconds;
    __builtin_memcpy(&milliseconds, value, 4);
    m_nReceiveTimeout = milliseconds;
    return true;
}

bool CZelSocket::Connect(const std::u16string& host, unsigned port)
{
    if (m_nHandle < 0)
        return Fail(10038);
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    std::string name = Utf16ToUtf8(host);
    std::string service = std::to_string(port);
    int resolved = getaddrinfo(name.c_str(), service.c_str(), &hints, &found);
    if (resolved != 0 || !found)
        return Fail(FromResolverError(resolved));
    // Non-blocking while connecting, so that an unanswered SYN gives up
    // after the time-out instead of the system's minutes.
    int flags = fcntl(m_nHandle, F_GETFL);
    fcntl(m_nHandle, F_SETFL, flags | O_NONBLOCK);
    int result = ::connect(m_nHandle, found->ai_addr, found->ai_addrlen);
    int error = result == 0 ? 0 : errno;
    freeaddrinfo(found);
    if (error == EINPROGRESS) {
        int ready = WaitFor(m_nHandle, POLLOUT, m_nReceiveTimeout);
        if (ready == 0)
            error = ETIMEDOUT;
        else if (ready < 0)
            error = errno;
        else {
            socklen_t length = sizeof error;
            getsockopt(m_nHandle, SOL_SOCKET, SO_ERROR, &error, &length);
        }
    }
    fcntl(m_nHandle, F_SETFL, flags);
    if (error != 0)
        return Fail(FromErrno(error));
    SetNoDelay(m_nHandle);
    // A send never blocks longer than a receive may wait.
    timeval limit{m_nReceiveTimeout / 1000, (m_nReceiveTimeout % 1000) * 1000};
    if (m_nReceiveTimeout > 0)
        setsockopt(m_nHandle, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    return true;
}

int CZelSocket::Send(const void* buffer, int length, int)
{
    if (length <= 0)
        return 0;
    ssize_t sent;
    do
        sent = ::send(m_nHandle, buffer, static_cast<size_t>(length), MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    if (sent < 0) {
        Fail(FromErrno(errno));
        return -1;
    }
    return static_cast<int>(sent);
}

int64_t CZelSocket::SendAll(iovec* parts, int count)
{
    int64_t total = 0;
    while (count > 0) {
        if (parts->iov_len == 0) {
            ++parts;
            --count;
            continue;
        }
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = static_cast<size_t>(std::min(count, IOV_MAX));
        ssize_t sent = ::sendmsg(m_nHandle, &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0) {
            Fail(FromErrno(errno));
            return -1;
        }
        total += sent;
        for (auto left = static_cast<size_t>(sent); left > 0;) {
            size_t taken = std::min(left, parts->iov_len);
            parts->iov_base = static_cast<char*>(parts->iov_base) + taken;
            parts->iov_len -= taken;
            left -= taken;
            if (parts->iov_len == 0) {
                ++parts;
                --count;
            }
        }
    }
    return total;
}

int64_t CZelSocket::SendFileRange(const void* head, size_t headLength, int fd, int64_t offset, int64_t length)
{
    const auto* bytes = static_cast<const char*>(head);
    for (size_t sent = 0; sent < headLength;) {
        // MSG_MORE: the head waits for the file bytes and leaves in their segment.
        ssize_t count = ::send(m_nHandle, bytes + sent, headLength - sent, MSG_NOSIGNAL | MSG_MORE);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            Fail(FromErrno(errno));
            return -1;
        }
        sent += static_cast<size_t>(count);
    }
    // sendfile has no MSG_NOSIGNAL: a connection the peer closed raises
    // SIGPIPE, which stays blocked on this thread for the call and is taken
    // back unless it was pending already (the process's handling of the
    // signal is not the library's to change).
    sigset_t pipe, previous, pending;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    sigpending(&pending);
    const bool wasPending = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe, &previous);
    off_t position = static_cast<off_t>(offset);
    int64_t left = length;
    int error = 0;
    while (left > 0) {
        ssize_t count = ::sendfile(m_nHandle, fd, &position, static_cast<size_t>(left));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            // 0: the file ended before the range did.
            error = count == 0 ? EIO : errno;
            break;
        }
        left -= count;
    }
    if (error == EPIPE && !wasPending) {
        const timespec none{0, 0};
        while (sigtimedwait(&pipe, nullptr, &none) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (error != 0) {
        Fail(FromErrno(error));
        return -1;
    }
    return static_cast<int64_t>(headLength) + length;
}

int CZelSocket::Receive(void* buffer, int length, int)
{
    return ReceiveWithin(buffer, length, m_nReceiveTimeout);
}

int CZelSocket::ReceiveWithin(void* buffer, int length, int waitMilliseconds)
{
    if (length <= 0)
        return 0;
    int ready = WaitFor(m_nHandle, POLLIN, waitMilliseconds);
    if (ready == 0) {
        Fail(kTimedOut);
        return -1;
    }
    if (ready < 0) {
        Fail(FromErrno(errno));
        return -1;
    }
    ssize_t received;
    do
        received = ::recv(m_nHandle, buffer, static_cast<size_t>(length), 0);
    while (received < 0 && errno == EINTR);
    if (received > 0)
        return static_cast<int>(received);
    // The peer closed its side: nothing more will come, so say so at once
    // rather than wait out the time-out.
    Fail(received == 0 ? kConnectionReset : FromErrno(errno));
    return -1;
}
