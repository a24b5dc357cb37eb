#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "net/TCPSocket.h"

namespace Zarn {

class HttpRequest;

// One client connection: its socket and the carry-over buffer that holds the bytes
// received after a request's header (the start of its body, or the next pipelined
// request), which body reading consumes before it reads the socket again.
// Owned and used by one connection thread.
class HttpConnection {
public:
    static constexpr size_t kMaxHeaderBytes = 10240;
    // What a header buffer holds until a longer header needs the whole limit.
    static constexpr size_t kFirstHeaderBytes = 2048;
    // A request header must be complete this long after its first byte, so that a client
    // trickling a byte now and then (each well inside the socket's time-out) cannot hold
    // a connection thread for ever.
    static constexpr std::chrono::milliseconds kHeaderDeadline = std::chrono::seconds(60);
    // How long a connection may wait for the first byte of a request before it is closed
    // without an answer: the idle time between two requests of a kept-alive connection,
    // and the time a new connection may take to say anything at all.
    static constexpr std::chrono::milliseconds kDefaultKeepAliveTimeout = std::chrono::seconds(15);
    // A connection silent this long between requests gives back its buffers and its
    // thread's deeper stack pages while it waits on.
    static constexpr std::chrono::milliseconds kIdleReleaseDelay{100};

    HttpConnection() = default;
    explicit HttpConnection(TCPSocket socket) : socket_(std::move(socket)) {}

    [[nodiscard]] TCPSocket& GetSocket() { return socket_; }
    // The client's dotted address, asked of the socket once per connection.
    [[nodiscard]] const std::string& GetPeerIp();

    // Reads one request header (at most 10,240 bytes) and parses it into `request`. The
    // wait for its first byte is bounded by the keep-alive time-out; from that byte on,
    // the header deadline runs. A request already in the carry-over buffer (pipelined)
    // starts at once, without any idle wait.
    // Throws socket_exception when the peer closes or breaks the connection (a close
    // between two requests on a kept connection only returns false), and
    // std::runtime_error "Illegal request: header too long" when no blank line comes
    // within the limit, "Illegal request: header too slow" when it does not come before
    // the deadline. False when there is no socket to read, and when the keep-alive
    // time-out passes before a request begins: the connection is then to be closed
    // without an answer.
    [[nodiscard]] bool ReadHeader(HttpRequest& request);
    // Tests shorten the deadline so that they need not wait a minute.
    void SetHeaderDeadline(std::chrono::milliseconds deadline) { header_deadline_ = deadline; }
    // Applies from the next ReadHeader on.
    void SetKeepAliveTimeout(std::chrono::milliseconds timeout) { keep_alive_timeout_ = timeout; }

    // Moves up to `length` bytes of the carry-over buffer out (never the header's own
    // line break); 0 when it is empty.
    size_t TakeCarryOver(char* buffer, size_t length);
    [[nodiscard]] size_t CarryOverSize() const;
    // Replaces the carry-over buffer (for tests and for handlers that push bytes back).
    void SetCarryOver(std::string bytes, bool starts_with_header_line_break);

    // Where a response's head and small body pieces gather before they are sent. Kept
    // with the connection so that its capacity serves every request on it.
    [[nodiscard]] std::string& GetOutputBuffer() { return output_; }

private:
    // Drops the "\r\n" of the header terminator that stands in front of the body.
    void DropHeaderLineBreak();
    // Waits until the socket can be read; false when `end` passes first.
    [[nodiscard]] bool WaitReadableUntil(std::chrono::steady_clock::time_point end);
    // Waits idle, for a request's first byte, until `end`; false when it passes first.
    // `filled` counts the line breaks received ahead of a request.
    [[nodiscard]] bool WaitIdleUntil(std::chrono::steady_clock::time_point end, size_t filled);
    // What an idle connection does not need until its next request begins.
    void ReleaseIdleMemory();
    void AllocateHeaderBuffer();
    // Makes the header buffer as large as the limit, keeping its first `filled` bytes.
    void GrowHeaderBuffer(size_t filled);

    TCPSocket socket_;
    std::chrono::milliseconds header_deadline_ = kHeaderDeadline;
    std::chrono::milliseconds keep_alive_timeout_ = kDefaultKeepAliveTimeout;
    std::string peer_ip_;
    std::string carry_over_;
    std::string output_;
    std::unique_ptr<char[]> header_buffer_;
    size_t header_capacity_ = 0;
    uint64_t headers_read_ = 0;
    size_t carry_start_ = 0;
    bool header_line_break_pending_ = false;
};

}  // namespace Zarn
