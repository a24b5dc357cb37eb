#include "http/HttpConnection.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>

#include "core/ThreadStack.h"
#include "http/HttpRequest.h"
#include "net/socket_exception.h"

namespace Zarn {
namespace {

constexpr std::string_view kTerminator = "\r\n\r\n";

// Looks for the blank line from three bytes before the newly received bytes, so that a
// terminator split across two receives is found too.
size_t FindTerminator(const char* buffer, size_t filled, size_t new_from) {
    size_t from = new_from >= 3 ? new_from - 3 : 0;
    if (filled < from + kTerminator.size()) return std::string_view::npos;
    std::string_view window(buffer + from, filled - from);
    size_t found = window.find(kTerminator);
    return found == std::string_view::npos ? found : from + found;
}

// An empty line or two before a request line is not yet a request (RFC 9112 section 2.2;
// some clients end a body with an extra CR LF), so the connection still idles after it.
bool HasRequestBegun(const char* buffer, size_t filled) {
    constexpr size_t kIgnoredLineBreakBytes = 4;
    return filled > kIgnoredLineBreakBytes ||
           std::string_view(buffer, filled).find_first_not_of("\r\n") != std::string_view::npos;
}

}  // namespace

bool HttpConnection::ReadHeader(HttpRequest& request) {
    using Clock = std::chrono::steady_clock;
    if (!socket_.IsValid()) return false;
    // Kept with the connection rather than on the stack, whose pages every connection
    // thread would keep, small until a header needs more, and given back while the
    // connection idles.
    AllocateHeaderBuffer();
    size_t filled = TakeCarryOver(header_buffer_.get(), header_capacity_);
    const Clock::time_point idle_end = Clock::now() + keep_alive_timeout_;
    std::optional<Clock::time_point> deadline;  // runs from the request's first byte
    size_t new_from = 0;
    size_t terminator;
    while ((terminator = FindTerminator(header_buffer_.get(), filled, new_from)) ==
           std::string_view::npos) {
        if (filled == header_capacity_) {
            if (header_capacity_ == kMaxHeaderBytes) {
                throw std::runtime_error("Illegal request: header too long");
            }
            GrowHeaderBuffer(filled);
            new_from = filled;
            // What a long pipeline left behind comes before anything new.
            filled += TakeCarryOver(header_buffer_.get() + filled, header_capacity_ - filled);
            continue;
        }
        if (!deadline && HasRequestBegun(header_buffer_.get(), filled)) {
            deadline = Clock::now() + header_deadline_;
        }
        bool readable = deadline ? WaitReadableUntil(*deadline) : WaitIdleUntil(idle_end, filled);
        if (!readable) {
            if (deadline) throw std::runtime_error("Illegal request: header too slow");
            // Idle for too long: closing an idle connection silently is what a client
            // must expect (RFC 9112 section 9.8), so no answer is owed.
            return false;
        }
        new_from = filled;
        try {
            filled += static_cast<size_t>(socket_.Receive(
                header_buffer_.get() + filled, static_cast<int>(header_capacity_ - filled)));
        } catch (const socket_exception& error) {
            // A client that closes a kept connection between requests is done with it, not
            // failing: only a close in the middle of a request, or before any, is news.
            bool between = headers_read_ > 0 && !HasRequestBegun(header_buffer_.get(), filled);
            if (between && std::string_view(error.what()) == "Connection closed") return false;
            throw;
        }
    }
    ++headers_read_;
    std::span<const char> buffer(header_buffer_.get(), filled);

    // The terminator's second line break stays in front of the body; what is left of an
    // earlier carry-over (a long pipeline) follows what this read took.
    std::string carry(buffer.data() + terminator + 2, filled - terminator - 2);
    carry.append(carry_over_, carry_start_);
    SetCarryOver(std::move(carry), true);

    request.ParseHeader(std::string_view(buffer.data(), terminator));
    return true;
}

void HttpConnection::AllocateHeaderBuffer() {
    if (header_buffer_) return;
    header_buffer_ = std::make_unique_for_overwrite<char[]>(kFirstHeaderBytes);
    header_capacity_ = kFirstHeaderBytes;
}

bool HttpConnection::WaitIdleUntil(std::chrono::steady_clock::time_point end, size_t filled) {
    // A client that keeps its connection for more asks again within a round trip or two;
    // one silent for longer is likely to stay so for seconds, and thousands of such
    // connections would otherwise each hold what their last request used.
    auto soon = std::min(end, std::chrono::steady_clock::now() + kIdleReleaseDelay);
    if (WaitReadableUntil(soon)) return true;
    if (filled == 0) ReleaseIdleMemory();
    bool readable = WaitReadableUntil(end);
    AllocateHeaderBuffer();
    return readable;
}

void HttpConnection::ReleaseIdleMemory() {
    header_buffer_.reset();
    header_capacity_ = 0;
    if (output_.empty()) std::string().swap(output_);
    if (CarryOverSize() == 0) {
        std::string().swap(carry_over_);
        carry_start_ = 0;
        header_line_break_pending_ = false;
    }
    ThreadStack::ReleaseUnusedPages();
}

void HttpConnection::GrowHeaderBuffer(size_t filled) {
    auto grown = std::make_unique_for_overwrite<char[]>(kMaxHeaderBytes);
    std::memcpy(grown.get(), header_buffer_.get(), filled);
    header_buffer_ = std::move(grown);
    header_capacity_ = kMaxHeaderBytes;
}

bool HttpConnection::WaitReadableUntil(std::chrono::steady_clock::time_point end) {
    auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    // Bytes already waiting count even when the time is up.
    if (socket_.WaitReadable(std::max(left, std::chrono::milliseconds(0)))) return true;
    // A failed wait before the end leaves it to the receive to report the error.
    return std::chrono::steady_clock::now() < end;
}

const std::string& HttpConnection::GetPeerIp() {
    if (peer_ip_.empty()) peer_ip_ = socket_.GetPeerIp();
    return peer_ip_;
}

size_t HttpConnection::TakeCarryOver(char* buffer, size_t length) {
    DropHeaderLineBreak();
    size_t count = std::min(length, carry_over_.size() - carry_start_);
    std::memcpy(buffer, carry_over_.data() + carry_start_, count);
    carry_start_ += count;
    if (carry_start_ == carry_over_.size()) {
        carry_over_.clear();
        carry_start_ = 0;
        header_line_break_pending_ = false;
    }
    return count;
}

size_t HttpConnection::CarryOverSize() const {
    size_t size = carry_over_.size() - carry_start_;
    return header_line_break_pending_ && size >= 2 ? size - 2 : size;
}

void HttpConnection::SetCarryOver(std::string bytes, bool starts_with_header_line_break) {
    carry_over_ = std::move(bytes);
    carry_start_ = 0;
    header_line_break_pending_ = starts_with_header_line_break;
}

void HttpConnection::DropHeaderLineBreak() {
    if (!header_line_break_pending_) return;
    header_line_break_pending_ = false;
    if (carry_over_.compare(carry_start_, 2, "\r\n") == 0) carry_start_ += 2;
    if (carry_start_ >= carry_over_.size()) {
        carry_over_.clear();
        carry_start_ = 0;
    }
}

}  // namespace Zarn
