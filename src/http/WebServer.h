#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/AThread.h"
#include "core/UniqueFd.h"
#include "http/HttpConnection.h"
#include "http/IdleThreadPool.h"
#include "net/TCPServerSocket.h"

namespace Zarn {

class HttpRequestHandler;
class RequestParserThread;
class TransferStatusAggregator;

// The listening side of the HTTP server: its own thread accepts connections on every IPv4
// interface and hands each to a connection thread, which serves one connection at a time.
// A thread whose connection has ended waits a while in the idle pool for the next one
// (at most 64 threads, each up to 30 s), so a new connection usually finds a thread
// ready; only when none waits is a thread created. Busy threads are not bounded here
// (the application refuses surplus downloads itself).
//
// Listen, ChangePort, Stop and destruction are for one controlling thread; the setters
// and the counts may be called from any thread. Stop ends every thread of the server
// before it returns: the accept thread is woken and joined, idle threads are sent away,
// every connection is shut down (a transfer waiting for its speed limit stops waiting)
// and every thread joined, so no response completes afterwards.
class WebServer : public AThread {
public:
    WebServer();
    ~WebServer() override;

    // Before Listen: a dotted IPv4 or an IPv6 address to listen on alone (the owner's
    // console keeps to 127.0.0.1 and ::1); by default every IPv4 interface.
    void SetBindAddress(std::string address) { bind_address_ = std::move(address); }
    // Set these before Listen; both must outlive the server's threads.
    void SetRequestHandler(HttpRequestHandler* handler);
    void SetTransferStatusAggregator(TransferStatusAggregator* aggregator);
    // How long a connection may wait for a request's first byte, before its first request
    // and between two (see HttpConnection::ReadHeader). A change applies to the waits that
    // begin afterwards, on every connection.
    void SetKeepAliveTimeout(std::chrono::milliseconds timeout);
    // How many connection threads may wait idle at most, and for how long each.
    void SetIdleThreadLimits(size_t max_idle, std::chrono::milliseconds max_wait) {
        idle_threads_.SetLimits(max_idle, max_wait);
    }

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

    // Connection threads alive: serving a connection or waiting idle for the next.
    [[nodiscard]] size_t GetThreadCount();
    // Of those, the ones waiting idle.
    [[nodiscard]] size_t GetIdleThreadCount() const { return idle_threads_.GetIdleCount(); }
    // Connection threads created since the server was made: together with the number of
    // connections, it tells how often a connection found an idle thread.
    [[nodiscard]] uint64_t GetCreatedThreadCount() const { return created_threads_.load(); }

    uint32_t Run() override;

private:
    // Without traffic the accept thread still wakes this often, to join the threads that
    // left the idle pool.
    static constexpr int kReapIntervalMs = 30000;
    // How long the accept thread pauses when the process has no descriptor left.
    static constexpr std::chrono::milliseconds kDescriptorRetryInterval{250};

    void HandOver(TCPSocket socket);
    void StartNewThread(TCPSocket socket);
    void CleanupDeadThreads();
    void AcceptPending();
    void AdoptNewListener();
    void WaitForDescriptors();
    void Wake();

    HttpRequestHandler* handler_;
    TransferStatusAggregator* aggregator_;
    TCPServerSocket listener_;         // touched only by the accept thread while it runs
    bool out_of_descriptors_ = false;  // the accept thread's own
    IdleThreadPool idle_threads_;      // before the threads: they wait in it
    std::atomic<uint64_t> created_threads_{0};
    mutable std::mutex mutex_;  // guards the fields below
    std::unique_ptr<TCPServerSocket> next_listener_;
    std::vector<std::unique_ptr<RequestParserThread>> threads_;
    std::chrono::milliseconds keep_alive_timeout_ = HttpConnection::kDefaultKeepAliveTimeout;
    int port_ = -1;
    std::string bind_address_;
    UniqueFd wake_fd_;
};

}  // namespace Zarn
