#pragma once
// The TCP socket that the DICOM network classes derive from: a POSIX
// stand-in for the maker's closed socket class. It is the only place where
// system errors become the Windows Sockets numbers that callers compare
// (10035 would block, 10060 timed out, ...). Receives wait in poll() for at
// most the receive time-out; nothing here spins.
#include <sys/uio.h>

#include <cstdint>
#include <string>

class CZelSocket {
public:
    static constexpr uint32_t kWouldBlock = 10035;
    static constexpr uint32_t kConnectionReset = 10054;
    static constexpr uint32_t kTimedOut = 10060;
    static constexpr uint32_t kConnectionRefused = 10061;
    static constexpr uint32_t kHostNotFound = 11001;
    // SetSockOpt: the receive time-out option at socket level, in milliseconds.
    static constexpr int kReceiveTimeoutOption = 0x1006;
    static constexpr int kSocketLevel = 0xFFFF;

    CZelSocket() = default;
    virtual ~CZelSocket();
    CZelSocket(const CZelSocket&) = delete;
    CZelSocket& operator=(const CZelSocket&) = delete;

    // A TCP stream socket (type 1); port and address are not used by a client.
    virtual bool Create(unsigned port = 0, int type = 1, const std::u16string& address = u"");
    virtual void Close();
    // Waits up to the receive time-out for a caller (kTimedOut when none came).
    virtual bool Accept(CZelSocket& peer, void* address, int* addressLength);
    // Binds the socket (created when needed) to the port on every local
    // address and listens, with up to backlog callers waiting to be taken;
    // Accept takes them.
    bool Listen(unsigned port, int backlog = 4);
    // The port the socket is bound to (0 when none): the one the system
    // picked for Listen(0).
    unsigned GetLocalPort() const;
    // Sends what the connection takes: a count (possibly fewer bytes than
    // asked), or -1.
    virtual int Send(const void* buffer, int length, int flags = 0);
    // Sends every byte of the parts, in order, gathered into one system call
    // as far as the connection takes them (the parts are advanced as they
    // go): the number of bytes, or -1.
    int64_t SendAll(iovec* parts, int count);
    // Sends the head bytes, then length bytes of the open file fd from
    // offset, handed from the page cache to the connection (sendfile) so
    // that they are neither mapped nor copied here: the number of bytes, or -1.
    int64_t SendFileRange(const void* head, size_t headLength, int fd, int64_t offset, int64_t length);
    // Waits up to the receive time-out for data: a positive count, or -1
    // (kTimedOut when nothing came; kConnectionReset when the peer closed).
    virtual int Receive(void* buffer, int length, int flags = 0);
    // Resolves the host (name or dotted address) and connects, giving up
    // after the receive time-out with kTimedOut.
    virtual bool Connect(const std::u16string& host, unsigned port);

    // Only the receive time-out option is known; false for anything else.
    bool SetSockOpt(int option, const void* value, int length, int level = kSocketLevel);
    // The error of the last failed call on this thread, in Windows Sockets numbering.
    static uint32_t GetLastError();
    static void SetLastError(uint32_t error);
    operator unsigned int() const { return static_cast<unsigned int>(m_nHandle); }

    // Waits until one of the sockets has something to read (data, a caller
    // for a listener, or the end of the connection), at most milliseconds
    // (negative: no limit): its index, -1 when the time ran out, -2 on error.
    static int WaitReadable(const CZelSocket* const* sockets, int count, int milliseconds);

    // Takes over a connected stream descriptor (one end of a socketpair in
    // tests, or a connection accepted elsewhere); the socket closes it.
    void Adopt(int descriptor);

protected:
    // Receive that waits at most waitMilliseconds for the first byte.
    int ReceiveWithin(void* buffer, int length, int waitMilliseconds);
    int m_nReceiveTimeout = 30000;

private:
    int m_nHandle = -1;
};

// Milliseconds of a monotonic clock: the tick count that time-outs are measured with.
uint64_t GetTickCountMs();
// Replaces the clock (a test's clock that jumps ahead); null restores the monotonic one.
using TickSource = uint64_t (*)();
void SetTickSource(TickSource source);
