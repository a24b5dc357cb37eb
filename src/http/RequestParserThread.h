#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>

#include "core/AThread.h"
#include "http/HttpConnection.h"
#include "net/TCPSocket.h"

namespace Zarn {

class HttpRequest;
class HttpRequestHandler;
class TransferStatusAggregator;

// The thread of one client connection: reads requests one after another, hands each to
// the handler and ends when a response does not keep the connection alive, the
// connection breaks, or the server interrupts it. Owns the connection's socket.
// Created, started, interrupted and destroyed by the web server's threads only.
class RequestParserThread : public AThread {
public:
    // Idle or stalled clients are dropped after this long without progress, so that a
    // connection that never sends (or never reads) cannot hold its thread forever.
    static constexpr int kSocketTimeoutSeconds = 300;

    RequestParserThread() = default;
    ~RequestParserThread() override;

    // Before Start: how long a request header may take from its first byte (see
    // HttpConnection::ReadHeader).
    void SetHeaderDeadline(std::chrono::milliseconds deadline) {
        connection_.SetHeaderDeadline(deadline);
    }
    // Takes over the accepted socket and starts the thread.
    [[nodiscard]] bool Start(TCPSocket socket, HttpRequestHandler& handler,
                             TransferStatusAggregator& aggregator);
    // Asks the thread to end at once: blocked receives and sends fail, and a transfer
    // waiting for its speed limit stops waiting. Any thread may call it.
    void Interrupt();

    // Reads and parses one request header (see HttpConnection::ReadHeader).
    [[nodiscard]] bool ReadHeader(HttpRequest& request) { return connection_.ReadHeader(request); }

    uint32_t Run() override;

private:
    // How long, and for how many bytes, a connection answered before its body was read
    // keeps reading before it closes.
    static constexpr std::chrono::seconds kLingerTime{2};
    static constexpr size_t kMaxLingerBytes = 4 << 20;

    // Serves one request; false when the connection is to end.
    [[nodiscard]] bool ServeOneRequest();
    // Lets the client's unread body drain before the close, so the answer is not lost.
    void LingerBeforeClose();

    // Held while the socket is shut down from outside or closed from inside, so the two
    // never race over the descriptor.
    std::mutex socket_mutex_;
    HttpConnection connection_;
    HttpRequestHandler* handler_ = nullptr;
    TransferStatusAggregator* aggregator_ = nullptr;
};

}  // namespace Zarn
