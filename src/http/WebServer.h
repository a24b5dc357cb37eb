#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "core/AThread.h"
#include "core/UniqueFd.h"
#include "net/TCPServerSocket.h"

namespace Zarn {

class HttpRequestHandler;
class RequestParserThread;
class TransferStatusAggregator;

// The listening side of the HTTP server: its own thread accepts connections on every IPv4
// interface and starts one RequestParserThread for each; there is no pool and no bound
// here (the application refuses surplus downloads itself).
//
// Listen, ChangePort, Stop and destruction are for one controlling thread. Stop ends every
// thread of the server before it returns: the accept thread is woken and joined, every
// connection is shut down (a transfer waiting for its speed limit stops waiting) and its
// thread joined, so no response completes afterwards.
class WebServer : public AThread {
public:
    WebServer();
    ~WebServer() override;

    // Set these before Listen; both must outlive the server's threads.
    void SetRequestHandler(HttpRequestHandler* handler);
    void SetTransferStatusAggregator(TransferStatusAggregator* aggregator);

    // Starts listening on the port (0: any free port, see GetPort) and accepting.
    // False, with "server.Listen(%d) failed" logged and the port -1, when the port cannot
    // be had; the reason is this thread's last socket error.
    [[nodiscard]] bool Listen(int port);
    // The port listened on, -1 when not listening.
    [[nodiscard]] int GetPort() const;
    // Moves the listener to another port. True without doing anything when not listening
    // or already on that port; false, keeping the old port, when the new one cannot be
    // had. Connections already open go on.
    [[nodiscard]] bool ChangePort(int port);
    void Stop();

    // Connection threads not reaped yet (for the console and tests).
    [[nodiscard]] size_t GetThreadCount();

    uint32_t Run() override;

private:
    void StartNewThread(TCPSocket socket);
    void CleanupDeadThreads();
    void AcceptPending();
    void AdoptNewListener();
    void Wake();

    HttpRequestHandler* handler_;
    TransferStatusAggregator* aggregator_;
    TCPServerSocket listener_;  // touched only by the accept thread while it runs
    mutable std::mutex mutex_;  // guards the fields below
    std::unique_ptr<TCPServerSocket> next_listener_;
    std::vector<std::unique_ptr<RequestParserThread>> threads_;
    int port_ = -1;
    UniqueFd wake_fd_;
};

}  // namespace Zarn
