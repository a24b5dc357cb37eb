#include "http/RequestParserThread.h"

#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <optional>

#include "core/UrlCodec.h"
#include "http/HttpRequest.h"
#include "http/HttpRequestHandler.h"
#include "http/IdleThreadPool.h"
#include "log/Log.h"
#include "net/socket_exception.h"

namespace Zarn {

RequestParserThread::~RequestParserThread() {
    StopAndJoin();
}

bool RequestParserThread::Start(TCPSocket socket, HttpRequestHandler& handler,
                                TransferStatusAggregator& aggregator) {
    handler_ = &handler;
    aggregator_ = &aggregator;
    {
        std::lock_guard lock(socket_mutex_);
        UseConnection(std::move(socket));
    }
    return AThread::Start();
}

void RequestParserThread::Interrupt() {
    // Shut down first, so that a transfer woken from its speed-limit wait by the stop
    // signal finds its connection gone instead of sending on. Shut down, not closed: the
    // descriptor stays this thread's until it ends, so its number cannot be reused under
    // a call that is still running. Both happen under the socket lock, so a connection
    // taken from the idle pool meanwhile is either shut down here or refused there.
    std::lock_guard lock(socket_mutex_);
    connection_.GetSocket().Shutdown();
    SignalStop();
}

uint32_t RequestParserThread::Run() {
    do {
        ServeConnection();
    } while (TakeNextConnection());
    Log(kLogTrace, "Thread exit.");
    return 0;
}

void RequestParserThread::UseConnection(TCPSocket socket) {
    socket.SetTimeouts(kSocketTimeoutSeconds);
    // Every response leaves in whole writes (or marked to be continued), so Nagle's wait
    // would only delay the last segment of each.
    socket.SetNoDelay();
    // A fresh connection object: nothing of the last client (its address, unread
    // pipelined bytes) may reach the next one.
    connection_ = HttpConnection(std::move(socket));
    connection_.SetHeaderDeadline(header_deadline_);
}

void RequestParserThread::ServeConnection() {
    std::string client;
    try {
        client = connection_.GetPeerIp();
        while (!IsStopSignalled() && ServeOneRequest()) {
        }
    } catch (const socket_exception& error) {
        Log(kLogConnection, "[%s] Socket Error: %s", client.c_str(), error.what());
    } catch (const std::exception& error) {
        Log(kLogConnection, "Exception: %s", error.what());
    } catch (...) {
        Log(kLogError, "Unknown Exception");
        throw;
    }
    std::lock_guard lock(socket_mutex_);
    connection_.GetSocket().Close();
}

bool RequestParserThread::TakeNextConnection() {
    if (idle_pool_ == nullptr || IsStopSignalled()) return false;
    std::optional<TCPSocket> next = idle_pool_->WaitForConnection();
    if (!next) return false;
    std::lock_guard lock(socket_mutex_);
    // Interrupted meanwhile: nobody would shut this connection down any more, so it is
    // closed unserved, as the connections the interruption cut.
    if (IsStopSignalled()) return false;
    UseConnection(std::move(*next));
    return true;
}

bool RequestParserThread::ServeOneRequest() {
    HttpRequest request(&connection_, *aggregator_);
    request.GetTransferStatus().SetStopEvent(&StopEvent());
    request.Log(kLogTrace, "Receiving header...");
    connection_.SetKeepAliveTimeout(std::chrono::milliseconds(keep_alive_timeout_ms_.load()));
    if (!connection_.ReadHeader(request)) return false;
    request.Log(kLogTrace, "Requested");
    if (request.HasBodyInTransferCoding()) {
        request.SendHead(ResponseHead(501, "Not Implemented").SetContentLength(0));
        request.EndResponse();
        LingerBeforeClose();
        return false;
    }

    std::string target = request.GetTarget();
    for (char& c : target) {
        if (c == '+') c = ' ';
    }
    TransferStatusReporter& status = request.GetTransferStatus();
    status.SetTarget(DecodeUrlText(target, GetDefaultUrlCodepage()));
    status.SetClientAddress(connection_.GetPeerIp());
    status.SetUserName(request.GetUserName());

    handler_->HandleRequest(request);
    bool keep_alive = request.FinishResponse();
    if (request.IsBodyLeftUnread()) LingerBeforeClose();
    return keep_alive;
}

void RequestParserThread::LingerBeforeClose() {
    // Closing while the client's unread body still arrives makes the kernel answer with a
    // reset, which can destroy the response before the client reads it (a refused 413
    // form, say). So the sending side closes first and what still comes is read and
    // thrown away, for a little while and up to a bound.
    int socket = connection_.GetSocket().GetHandle();
    if (::shutdown(socket, SHUT_WR) != 0) return;
    connection_.GetSocket().SetTimeouts(1);
    auto deadline = std::chrono::steady_clock::now() + kLingerTime;
    char scratch[16384];
    size_t discarded = 0;
    while (discarded < kMaxLingerBytes && std::chrono::steady_clock::now() < deadline &&
           !IsStopSignalled()) {
        ssize_t got = ::recv(socket, scratch, sizeof scratch, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        discarded += static_cast<size_t>(got);
    }
}

}  // namespace Zarn
