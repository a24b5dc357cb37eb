#include "server/CgiRelay.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <vector>

#include "http/HttpConnection.h"
#include "http/HttpRequest.h"
#include "log/Log.h"
#include "net/socket_exception.h"
#include "server/ChildProcess.h"

namespace Zarn {
namespace {

constexpr size_t kPieceBytes = 64 * 1024;
// An error line longer than this is logged in pieces.
constexpr size_t kMaxErrorLine = 900;

std::chrono::steady_clock::time_point Now() {
    return std::chrono::steady_clock::now();
}

}  // namespace

CgiRelay::CgiRelay(HttpRequest& request, ChildProcess& child, std::string name,
                   std::chrono::milliseconds silence_limit)
    : request_(request),
      child_(child),
      name_(std::move(name)),
      silence_limit_(silence_limit),
      piece_(kPieceBytes) {}

CgiRelay::Outcome CgiRelay::Run() {
    HttpConnection* connection = request_.GetConnection();
    if (connection == nullptr) throw socket_exception("Connection closed");
    // The first read also tells a client waiting for "100 Continue" to send its body, which
    // must come before any head of ours.
    if (WantsBody()) ReceiveBody();
    last_progress_ = Now();
    bool errors_open = true;
    for (bool output_open = true; output_open;) {
        // Body bytes the connection holds already need no wait.
        if (WantsBody() && connection->CarryOverSize() > 0) ReceiveBody();
        CloseInputWhenDone();
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(last_progress_ +
                                                                          silence_limit_ - Now());
        if (left.count() <= 0) {
            if (!head_sent_) return Outcome::kTimedOut;
            throw std::runtime_error("The CGI program " + name_ + " fell silent");
        }
        // While the body is still coming, a half-closed connection may hold more of it;
        // after the body, it means the visitor has gone.
        bool body_done = IsBodyOver();
        short client_events = static_cast<short>((WantsBody() ? POLLIN | POLLRDHUP : 0) |
                                                 (body_done ? POLLRDHUP : 0));
        bool input_pending = child_.Input().IsValid() && input_taken_ < input_.size();
        pollfd fds[4] = {
            {connection->GetSocket().GetHandle(), client_events, 0},
            {child_.Output().Get(), POLLIN, 0},
            {errors_open ? child_.Errors().Get() : -1, POLLIN, 0},
            {input_pending ? child_.Input().Get() : -1, POLLOUT, 0},
        };
        int ready = ::poll(fds, 4, static_cast<int>(left.count()));
        if (ready < 0 && errno != EINTR) throw std::runtime_error("poll failed");
        if (ready <= 0) continue;
        if (fds[0].revents != 0) {
            if (WantsBody())
                ReceiveBody();
            else if ((fds[0].revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0)
                VisitorLeft();
        }
        if (fds[3].revents != 0) WriteInput();
        if (fds[2].revents != 0) errors_open = ReadErrors();
        if (fds[1].revents != 0) output_open = ReadOutput();
        if (header_.GetState() == CgiHeaderBlock::State::kMalformed) return Outcome::kMalformed;
    }
    if (errors_open) (void)ReadErrors();
    LogErrorLines(true);
    if (!head_sent_) return Outcome::kMalformed;
    DrainBody();
    request_.EndResponse();
    return Outcome::kAnswered;
}

bool CgiRelay::IsBodyOver() const {
    return request_.GetConsumedLength() >= request_.GetContentLength() ||
           request_.IsBodyLeftUnread();
}

bool CgiRelay::WantsBody() const {
    return child_.Input().IsValid() && input_taken_ == input_.size() && !IsBodyOver();
}

void CgiRelay::CloseInputWhenDone() {
    if (child_.Input().IsValid() && input_taken_ == input_.size() && IsBodyOver())
        child_.Input().Reset();  // the end of its input
}

void CgiRelay::ReceiveBody() {
    std::vector<char>& piece = piece_;
    int got = request_.ReceiveBody(piece.data(), static_cast<int>(piece.size()));
    input_.assign(piece.data(), static_cast<size_t>(std::max(got, 0)));
    input_taken_ = 0;
    WriteInput();
}

void CgiRelay::WriteInput() {
    while (child_.Input().IsValid() && input_taken_ < input_.size()) {
        ssize_t written = ::write(child_.Input().Get(), input_.data() + input_taken_,
                                  input_.size() - input_taken_);
        if (written > 0) {
            input_taken_ += static_cast<size_t>(written);
            last_progress_ = Now();  // a program reading its input is at work
            continue;
        }
        if (written < 0 && errno == EINTR) continue;
        if (written < 0 && errno == EAGAIN) return;
        // The program reads no more: the rest of the body is thrown away with the head.
        child_.Input().Reset();
        input_.clear();
        input_taken_ = 0;
    }
}

bool CgiRelay::ReadOutput() {
    std::vector<char>& piece = piece_;
    ssize_t got = ::read(child_.Output().Get(), piece.data(), piece.size());
    if (got < 0) return errno == EAGAIN || errno == EINTR;
    if (got == 0) return false;
    std::string_view bytes(piece.data(), static_cast<size_t>(got));
    if (header_.GetState() == CgiHeaderBlock::State::kIncomplete) {
        bytes.remove_prefix(header_.Feed(bytes));
        if (header_.GetState() == CgiHeaderBlock::State::kComplete) SendHead();
    }
    if (head_sent_) request_.Send(bytes);
    // Time spent waiting for a slow visitor to take the bytes is not the program's silence.
    last_progress_ = Now();
    return true;
}

bool CgiRelay::ReadErrors() {
    std::vector<char>& piece = piece_;
    for (;;) {
        ssize_t got = ::read(child_.Errors().Get(), piece.data(), piece.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            LogErrorLines(false);
            return got < 0 && errno == EAGAIN;
        }
        error_text_.append(piece.data(), static_cast<size_t>(got));
    }
}

void CgiRelay::LogErrorLines(bool flush_rest) {
    auto log_line = [this](std::string_view line) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        std::string text(line.substr(0, kMaxErrorLine));
        request_.Log(kLogError, "%s: %s", name_.c_str(), text.c_str());
    };
    size_t start = 0;
    for (size_t end; (end = error_text_.find('\n', start)) != std::string::npos; start = end + 1)
        log_line(std::string_view(error_text_).substr(start, end - start));
    error_text_.erase(0, start);
    if (error_text_.size() > kMaxErrorLine || (flush_rest && !error_text_.empty())) {
        log_line(error_text_);
        error_text_.clear();
    }
}

void CgiRelay::SendHead() {
    ResponseHead head = header_.ToResponseHead();
    head.AllowKeepAlive();
    request_.SendHead(head, HttpRequest::RequestBody::kKeepReading);
    request_.MarkHeadersEnded();
    head_sent_ = true;
}

void CgiRelay::DrainBody() {
    std::vector<char>& piece = piece_;
    while (!request_.IsBodyLeftUnread() &&
           request_.ReceiveBody(piece.data(), static_cast<int>(piece.size())) > 0) {
    }
}

void CgiRelay::VisitorLeft() {
    request_.Log(kLogConnection, "%s: the visitor left, the program is stopped", name_.c_str());
    throw socket_exception("Connection closed");
}

}  // namespace Zarn
