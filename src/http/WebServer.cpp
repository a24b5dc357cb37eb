#include "http/WebServer.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>

#include "http/HttpRequestHandler.h"
#include "http/RequestParserThread.h"
#include "log/Log.h"
#include "net/Networking.h"
#include "net/SocketError.h"
#include "transfer/NullTransferStatusAggregator.h"

namespace Zarn {

WebServer::WebServer()
    : handler_(&NullHttpRequestHandler::Instance()),
      aggregator_(&NullTransferStatusAggregator::Instance()),
      wake_fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    (void)InitializeNetworking();
}

WebServer::~WebServer() {
    Stop();
    CleanupNetworking();
}

void WebServer::SetRequestHandler(HttpRequestHandler* handler) {
    handler_ = handler != nullptr ? handler : &NullHttpRequestHandler::Instance();
}

void WebServer::SetTransferStatusAggregator(TransferStatusAggregator* aggregator) {
    aggregator_ = aggregator != nullptr ? aggregator : &NullTransferStatusAggregator::Instance();
}

void WebServer::SetKeepAliveTimeout(std::chrono::milliseconds timeout) {
    std::lock_guard lock(mutex_);
    keep_alive_timeout_ = timeout;
    for (auto& thread : threads_)
        thread->SetKeepAliveTimeout(timeout);
}

bool WebServer::Listen(int port) {
    if (IsRunning()) return false;
    TCPServerSocket listener;
    if (port < 0 || port > 0xFFFF || !listener.Listen(static_cast<uint16_t>(port), bind_address_)) {
        Log(kLogTrace, "server.Listen(%d) failed", port);
        std::lock_guard lock(mutex_);
        port_ = -1;
        return false;
    }
    // The accept thread waits in poll() and never blocks in accept() itself.
    listener.SetNonBlocking();
    int bound_port = listener.GetLocalPort();
    listener_ = std::move(listener);
    {
        std::lock_guard lock(mutex_);
        port_ = bound_port;
    }
    idle_threads_.Open();
    if (!Start()) {
        listener_.Close();
        std::lock_guard lock(mutex_);
        port_ = -1;
        return false;
    }
    return true;
}

int WebServer::GetPort() const {
    std::lock_guard lock(mutex_);
    return port_;
}

bool WebServer::ChangePort(int port) {
    int current = GetPort();
    if (current == -1 || current == port) return true;
    auto listener = std::make_unique<TCPServerSocket>();
    if (port < 0 || port > 0xFFFF ||
        !listener->Listen(static_cast<uint16_t>(port), bind_address_)) {
        return false;
    }
    listener->SetNonBlocking();
    {
        std::lock_guard lock(mutex_);
        next_listener_ = std::move(listener);
        port_ = next_listener_->GetLocalPort();
    }
    Wake();
    return true;
}

void WebServer::Stop() {
    CleanupDeadThreads();
    if (IsRunning()) Log(kLogTrace, "Stop() : killing WebServer thread");
    SignalStop();
    Wake();
    Join();

    // No connection is handed over any more; idle threads leave now, and a thread whose
    // connection ends from here on leaves instead of waiting.
    idle_threads_.Close();
    std::vector<std::unique_ptr<RequestParserThread>> threads;
    {
        std::lock_guard lock(mutex_);
        threads.swap(threads_);
    }
    for (auto& thread : threads) {
        if (thread->IsRunning()) Log(kLogTrace, "Stop() : killing RequestParserThread thread");
        thread->Interrupt();
    }
    threads.clear();  // each destructor joins its thread

    std::lock_guard lock(mutex_);
    next_listener_.reset();
    listener_.Close();
    port_ = -1;
}

size_t WebServer::GetThreadCount() {
    std::lock_guard lock(mutex_);
    return static_cast<size_t>(std::count_if(
        threads_.begin(), threads_.end(), [](const auto& thread) { return thread->IsRunning(); }));
}

void WebServer::Wake() {
    uint64_t one = 1;
    if (wake_fd_.IsValid()) (void)::write(wake_fd_.Get(), &one, sizeof one);
}

uint32_t WebServer::Run() {
    while (!IsStopSignalled()) {
        pollfd waits[2] = {{listener_.GetHandle(), POLLIN, 0}, {wake_fd_.Get(), POLLIN, 0}};
        int ready = ::poll(waits, 2, kReapIntervalMs);
        if (ready == 0) {
            CleanupDeadThreads();
            continue;
        }
        if (ready < 0 && errno != EINTR) {
            Log(kLogTrace, "server.Accept(child) failed: Server socket seems to be closed.");
            (void)WaitForStop(std::chrono::milliseconds(10));
            continue;
        }
        if (waits[1].revents != 0) {
            uint64_t count = 0;
            (void)::read(wake_fd_.Get(), &count, sizeof count);
            AdoptNewListener();
            continue;
        }
        if (waits[0].revents != 0) AcceptPending();
        CleanupDeadThreads();
        Log(kLogTrace, "thread count: %d", static_cast<int>(GetThreadCount()));
    }
    return 0;
}

void WebServer::AcceptPending() {
    // Everything queued is taken in one wake-up, so that a burst of connections costs one
    // poll, not one each; the bound keeps a flood from starving the wake-up event.
    constexpr int kMaxAcceptsPerWake = 64;
    int accepted = 0;
    TCPSocket child;
    while (accepted < kMaxAcceptsPerWake && listener_.Accept(child)) {
        Log(kLogTrace, "server.Accept(child) succeeded");
        if (out_of_descriptors_) Log(kLogError, "Accepting connections again");
        out_of_descriptors_ = false;
        HandOver(std::move(child));
        child = TCPSocket();
        ++accepted;
    }
    // A connection that went away between poll and accept is not a failure.
    constexpr int kTooManyOpenFiles = 10024, kWouldBlock = 10035, kAborted = 10053;
    int error = LastSocketError();
    if (accepted > 0 || error == kWouldBlock || error == kAborted) return;
    if (error == kTooManyOpenFiles) {
        WaitForDescriptors();
        return;
    }
    Log(kLogTrace, "server.Accept(child) failed: Server socket seems to be closed.");
    (void)WaitForStop(std::chrono::milliseconds(10));
}

void WebServer::WaitForDescriptors() {
    // Said once per shortage: the owner needs to know that clients wait, not how often
    // the queue was tried.
    if (!out_of_descriptors_) {
        Log(kLogError, "Too many open files: new connections wait in the queue until others close");
    }
    out_of_descriptors_ = true;
    // The queued connection keeps the listener readable, so without a pause every poll
    // would return at once and fail again; connections that close meanwhile free their
    // descriptors for the next try.
    (void)WaitForStop(kDescriptorRetryInterval);
}

void WebServer::AdoptNewListener() {
    std::unique_ptr<TCPServerSocket> next;
    {
        std::lock_guard lock(mutex_);
        next = std::move(next_listener_);
    }
    if (!next) return;
    listener_.Close();  // the draining close: queued clients learn at once
    listener_ = std::move(*next);
}

void WebServer::HandOver(TCPSocket socket) {
    if (idle_threads_.Offer(socket)) return;
    StartNewThread(std::move(socket));
}

void WebServer::StartNewThread(TCPSocket socket) {
    auto thread = std::make_unique<RequestParserThread>();
    thread->SetIdlePool(&idle_threads_);
    Log(kLogTrace, "StartNewThread()");
    // Set and listed under the lock, so that a keep-alive change made meanwhile reaches
    // this thread too.
    std::lock_guard lock(mutex_);
    thread->SetKeepAliveTimeout(keep_alive_timeout_);
    if (!thread->Start(std::move(socket), *handler_, *aggregator_)) return;
    ++created_threads_;
    threads_.push_back(std::move(thread));
}

void WebServer::CleanupDeadThreads() {
    std::vector<std::unique_ptr<RequestParserThread>> dead;
    {
        std::lock_guard lock(mutex_);
        for (size_t i = 0; i < threads_.size();) {
            if (threads_[i]->IsRunning()) {
                ++i;
                continue;
            }
            dead.push_back(std::move(threads_[i]));
            threads_[i] = std::move(threads_.back());
            threads_.pop_back();
            Log(kLogTrace, "CleanupDeadThreads() : erased");
        }
    }
    // Joined outside the lock; a thread that is no longer running is joined at once.
}

}  // namespace Zarn
