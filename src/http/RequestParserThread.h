#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>

#include "core/AThread.h"
#include "http/HttpConnection.h"
#include "net/TCPSocket.h"

namespace Zarn {

class HttpRequest;
class HttpRequestHandler;
class IdleThreadPool;
class TransferStatusAggregator;

// A connection thread: serves one client connection at a time, reading its requests one
// after another and handing each to the handler. A connection ends when a response does
// not keep it alive, it idles past the keep-alive time-out, it breaks, or the server
// interrupts the thread. Then the thread waits in its idle pool for the next connection,
// and ends when none comes (or it has no pool). Owns the socket of its connection.
// Created, started, interrupted and destroyed by the web server's threads only;
// SetKeepAliveTimeout may come from any thread.
class RequestParserThread : public AThread {
public:
    // Stalled clients are dropped after this long without progress, so that a connection
    // that stops sending a body (or never reads) cannot hold its thread forever. Idle ones
    // go sooner, by the keep-alive time-out.
    static constexpr int kSocketTimeoutSeconds = 300;

    RequestParserThread() = default;
    ~RequestParserThread() override;

    // Before Start: how long a request header may take from its first byte (see
    // HttpConnection::ReadHeader).
    void SetHeaderDeadline(std::chrono::milliseconds deadline) { header_deadline_ = deadline; }
    // Before Start: where the thread waits for its next connection; it must outlive the
    // thread. Without one the thread ends with its first connection.
    void SetIdlePool(IdleThreadPool* pool) { idle_pool_ = pool; }
    // How long a connection may wait for a request's first byte (see
    // HttpConnection::ReadHeader); a change applies from the next wait on.
    void SetKeepAliveTimeout(std::chrono::milliseconds timeout) {
        keep_alive_timeout_ms_ = timeout.count();
    }
    // Takes over the accepted socket and starts the thread.
    [[nodiscard]] bool Start(TCPSocket socket, HttpRequestHandler& handler,
                             TransferStatusAggregator& aggregator);
    // Asks the thread to end at once: blocked receives and sends fail, a transfer waiting
    // for its speed limit stops waiting, and no further connection is taken. Any thread
    // may call it; a thread waiting idle must also be sent away by closing its pool.
    void Interrupt();

    uint32_t Run() override;

private:
    // How long, and for how many bytes, a connection answered before its body was read
    // keeps reading before it closes.
    static constexpr std::chrono::seconds kLingerTime{2};
    static constexpr size_t kMaxLingerBytes = 4 << 20;

    // Makes the socket the connection to serve next.
    void UseConnection(TCPSocket socket);
    // Serves the connection until it ends, then closes it.
    void ServeConnection();
    // Waits in the idle pool for the next connection; false when the thread is to end.
    [[nodiscard]] bool TakeNextConnection();
    // Serves one request; false when the connection is to end.
    [[nodiscard]] bool ServeOneRequest();
    // Lets the client's unread body drain before the close, so the answer is not lost.
    void LingerBeforeClose();

    // Held while the socket is shut down from outside, or closed or replaced from inside,
    // so the two never race over the descriptor.
    std::mutex socket_mutex_;
    HttpConnection connection_;
    HttpRequestHandler* handler_ = nullptr;
    TransferStatusAggregator* aggregator_ = nullptr;
    IdleThreadPool* idle_pool_ = nullptr;
    std::chrono::milliseconds header_deadline_ = HttpConnection::kHeaderDeadline;
    std::atomic<std::chrono::milliseconds::rep> keep_alive_timeout_ms_ =
        HttpConnection::kDefaultKeepAliveTimeout.count();
};

}  // namespace Zarn
