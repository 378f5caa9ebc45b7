// The storage server's listening side: the accept loop, a thread per
// association, the association limit and the stop (see storageserver.h).
#include <arpa/inet.h>
#include <netinet/in.h>

#include "network/storageserver.h"
#include "network/usersocket.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
// Rejections in progress beyond the association limit: callers past this
// are closed at once instead of waiting for their request.
constexpr int kMostRejecting = 16;
// How often the accept loop and the waiting associations look at the stop.
constexpr int kPollMs = 100;
}  // namespace

CStorageServer::CStorageServer(STORAGE_SERVER_SETTINGS settings) : m_settings(std::move(settings))
{
    if (m_settings.transferSyntaxes.empty())
        m_settings.transferSyntaxes = DefaultTransferSyntaxes();
    if (m_settings.maxAssociations < 1)
        m_settings.maxAssociations = 1;
}

CStorageServer::~CStorageServer()
{
    Stop(0);
    Reap(true);
}

bool CStorageServer::Listen(unsigned port)
{
    // The backlog holds a burst of callers (several storescu at once) while
    // the loop hands each to its thread.
    if (!m_listener.Listen(port, 64)) {
        m_error = FormatText("cannot listen on port %u (system error %u)", port, CZelSocket::GetLastError());
        return false;
    }
    m_port = m_listener.GetLocalPort();
    return true;
}

void CStorageServer::Stop(int graceMs)
{
    m_graceMs = graceMs < 0 ? 0 : graceMs;
    m_stopping = true;
}

void CStorageServer::Emit(const STORAGE_EVENT& event)
{
    std::lock_guard<std::mutex> lock(m_eventLock);
    if (m_onEvent)
        m_onEvent(event);
}

void CStorageServer::Reap(bool all)
{
    for (auto it = m_sessions.begin(); it != m_sessions.end();) {
        if (all || it->done) {
            it->thread.join();
            it = m_sessions.erase(it);
        } else {
            ++it;
        }
    }
}

void CStorageServer::Run()
{
    while (!m_stopping) {
        Reap(false);
        const CZelSocket* listener[1] = {&m_listener};
        if (CZelSocket::WaitReadable(listener, 1, kPollMs) != 0)
            continue;
        auto socket = std::make_unique<CUserSocket>();
        sockaddr_in address{};
        int length = sizeof address;
        if (!m_listener.Accept(*socket, &address, &length))
            continue;
        char text[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
        const std::string peer = FormatText("%s:%u", text, ntohs(address.sin_port));
        const bool overLimit = m_active >= m_settings.maxAssociations;
        if (overLimit && m_rejecting >= kMostRejecting) {
            Emit({STORAGE_EVENT::kRejected, ++m_serial, "", "", peer, {}, 0, 0, 0,
                  "closed at once: too many associations and rejections at once"});
            continue;
        }
        (overLimit ? m_rejecting : m_active)++;
        m_sessions.emplace_back();
        Session& session = m_sessions.back();
        session.thread = std::thread([this, &session, overLimit, peer,
                                      owned = std::move(socket)]() {
            if (overLimit) {
                Reject(*owned);
                --m_rejecting;
            } else {
                Serve(*owned, peer);
                --m_active;
            }
            session.done = true;
        });
    }
    m_listener.Close();
    // Running associations may end their own way within the grace period;
    // after it they are aborted (their receives stop at the next PDU).
    // A later Stop may shorten the grace period (a second Ctrl-C).
    const uint64_t stopped = GetTickCountMs();
    for (;;) {
        Reap(false);
        if (m_sessions.empty())
            break;
        if (GetTickCountMs() >= stopped + static_cast<uint64_t>(m_graceMs.load()))
            m_aborting = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}
