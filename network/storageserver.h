#pragma once
// A storage SCP (PS3.4 B) that a host application runs: it listens on a
// port, accepts associations for verification and every storage SOP class
// of the UID registry, answers C-ECHO and receives C-STORE into files of one
// folder (CStoreResponder). Each association runs on its own thread; more
// than the limit at once are rejected (A-ASSOCIATE-RJ, local limit
// exceeded). The association request must come within the time-out after
// the connection (ARTIM, PS3.8 9.1.5), and each message within the time-out
// after the last bytes (DIMSE). Stop ends accepting; running associations
// may finish within a grace period and are aborted after it, leaving no
// temporary behind.
//
// Files: storageserver_listen.cpp (listening, threads, limits, stop),
// storageserver_session.cpp (negotiation as acceptor, the service loop).
#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "network/storeresponder.h"
#include "platform/zelsocket.h"

class CUserSocket;

struct STORAGE_SERVER_SETTINGS {
    std::string folder = ".";
    std::string aeTitle;           // when set, calls to another AE title are rejected
    bool durable = false;          // each file flushed to the disk before Success
    int maxAssociations = 16;      // at once; further ones are rejected
    int timeoutMs = 30000;         // ARTIM and DIMSE time-out; 0: none
    uint32_t maxPduLength = 128 * 1024;  // the Maximum Length offered (PS3.8 D.1)
    // Transfer syntaxes accepted, preferred first; empty: DefaultTransferSyntaxes().
    std::vector<std::string> transferSyntaxes;
    CReceivedFile::Namer namer;    // empty: "<SOP Instance UID>.dcm"
    std::string traceName = "StorageServer";
};

// What the server tells its host, from the association's thread; the
// callback is never called by two threads at once.
struct STORAGE_EVENT {
    enum Kind {
        kAssociated,  // an association was accepted (peerTitle, calledTitle)
        kRejected,    // one was rejected or its request unreadable (words)
        kEcho,        // a C-ECHO was answered
        kStored,      // a C-STORE was answered (stored: its status and file)
        kEnded,       // the association ended (counts, bytes, words: how)
    };
    Kind kind = kAssociated;
    int association = 0;  // serial number of the association, from 1
    std::string peerTitle, calledTitle, peerAddress;
    STORED_INSTANCE stored;
    int storedCount = 0, failedCount = 0;
    uint64_t bytes = 0;
    std::string words;
};

class CStorageServer {
public:
    using EventCallback = std::function<void(const STORAGE_EVENT& event)>;

    explicit CStorageServer(STORAGE_SERVER_SETTINGS settings);
    ~CStorageServer();
    CStorageServer(const CStorageServer&) = delete;
    CStorageServer& operator=(const CStorageServer&) = delete;

    void SetEventCallback(EventCallback callback) { m_onEvent = std::move(callback); }
    // Binds and listens on the port (0: one the system picks): false with
    // the error in GetError.
    bool Listen(unsigned port);
    // The port listened on.
    unsigned GetPort() const { return m_port; }
    // Accepts and serves associations until Stop, then waits for the running
    // ones (aborting them after the grace period): returns when none is left.
    void Run();
    // Ends accepting; running associations get graceMs to end their own way,
    // then are aborted. Only stores atomics: callable from another thread
    // and from a signal handler.
    void Stop(int graceMs);

    // Serves one association on a connected socket (negotiation, messages,
    // release or abort) on the calling thread, as Run's threads do; the
    // socket is closed when it returns.
    void Serve(CUserSocket& socket, const std::string& peerAddress = "");

    // Verification and every storage SOP class of the UID registry.
    static bool IsAcceptedAbstractSyntax(const std::string& uid);
    // Explicit and implicit VR little endian, deflated, big endian, then the
    // compressed syntaxes of the registry.
    static const std::vector<std::string>& DefaultTransferSyntaxes();

    const std::string& GetError() const { return m_error; }

private:
    struct Session {
        std::thread thread;
        std::atomic<bool> done{false};
    };
    void Emit(const STORAGE_EVENT& event);
    void Reap(bool all);
    void Reject(CUserSocket& socket);

    STORAGE_SERVER_SETTINGS m_settings;
    EventCallback m_onEvent;
    std::mutex m_eventLock;
    CZelSocket m_listener;
    unsigned m_port = 0;
    std::string m_error;
    std::list<Session> m_sessions;
    std::atomic<int> m_active{0};     // associations being served
    std::atomic<int> m_rejecting{0};  // callers being rejected
    std::atomic<int> m_serial{0};
    std::atomic<bool> m_stopping{false};
    std::atomic<bool> m_aborting{false};
    std::atomic<int> m_graceMs{0};
};
