// A closed-loop HTTP/1.1 load generator for what wrk cannot measure: HEAD. wrk's response
// parser is never told that a response answers a HEAD request, so it waits for a body the
// size of Content-Length that never comes. Here a HEAD response ends with its header.
//
// Usage: HttpLoad PORT PATH METHOD CONNECTIONS THREADS SECONDS [HEADER_LINE]
// Prints "RESULT <microseconds> <responses> <bytes read> <socket errors> <status >= 400>",
// the line bench/run also reads from wrk. Each connection keeps one request in flight
// and reconnects whenever the server closes it. A body is read by its Content-Length only:
// this is a tool for static files, not for chunked answers.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "core/UniqueFd.h"

namespace {

using Zarn::UniqueFd;
using Clock = std::chrono::steady_clock;

struct Options {
    uint16_t port = 0;
    std::string request;
    bool is_head = false;
    int connections = 0;
    int threads = 0;
    int seconds = 0;
};

struct Totals {
    uint64_t responses = 0;
    uint64_t bytes = 0;
    uint64_t errors = 0;
    uint64_t status_errors = 0;
};

char LowerAscii(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// The value of a header field, matched without case; empty when absent.
std::string_view FieldValue(std::string_view head, std::string_view name) {
    for (size_t line = head.find("\r\n"); line != std::string_view::npos;) {
        size_t start = line + 2;
        line = head.find("\r\n", start);
        std::string_view field = head.substr(start, line - start);
        if (field.size() <= name.size() || field[name.size()] != ':') continue;
        bool same = true;
        for (size_t i = 0; i < name.size() && same; ++i)
            same = LowerAscii(field[i]) == name[i];
        if (!same) continue;
        std::string_view value = field.substr(name.size() + 1);
        while (!value.empty() && value.front() == ' ')
            value.remove_prefix(1);
        return value;
    }
    return {};
}

// One connection's request and response, driven by the thread's epoll.
class LoadConnection {
public:
    LoadConnection(const Options& options, int epoll_fd, Totals& totals)
        : options_(options), epoll_fd_(epoll_fd), totals_(totals) {}

    void Open() {
        socket_.Reset(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        int on = 1;
        ::setsockopt(socket_.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(options_.port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(socket_.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 &&
            errno != EINPROGRESS) {
            ++totals_.errors;
        }
        sent_ = 0;
        received_.clear();
        // Writable once connected; the request goes then.
        epoll_event event{.events = EPOLLOUT | EPOLLIN, .data = {.ptr = this}};
        ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, socket_.Get(), &event);
        watching_output_ = true;
    }

    void OnEvent(uint32_t events) {
        if ((events & EPOLLOUT) != 0 && sent_ < options_.request.size()) Send();
        if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) Receive();
    }

private:
    void Send() {
        ssize_t sent = ::send(socket_.Get(), options_.request.data() + sent_,
                              options_.request.size() - sent_, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno != EAGAIN) Reopen(true);
            return;
        }
        sent_ += static_cast<size_t>(sent);
        // A socket with room to write is always ready: watched only while a request waits.
        bool waiting = sent_ < options_.request.size();
        if (waiting != watching_output_) {
            epoll_event event{.events = EPOLLIN | (waiting ? EPOLLOUT : 0u), .data = {.ptr = this}};
            ::epoll_ctl(epoll_fd_, EPOLL_CTL_MOD, socket_.Get(), &event);
            watching_output_ = waiting;
        }
    }

    void Receive() {
        char buffer[64 * 1024];
        for (;;) {
            ssize_t got = ::recv(socket_.Get(), buffer, sizeof buffer, 0);
            if (got < 0 && errno == EAGAIN) return;
            if (got <= 0) {
                // A server may close a kept-alive connection between two responses; the
                // request is then simply sent again.
                Reopen(got < 0 || !received_.empty());
                return;
            }
            totals_.bytes += static_cast<uint64_t>(got);
            received_.append(buffer, static_cast<size_t>(got));
            if (IsResponseComplete()) {
                Complete();
                return;
            }
        }
    }

    bool IsResponseComplete() {
        size_t head_end = received_.find("\r\n\r\n");
        if (head_end == std::string::npos) return false;
        if (options_.is_head) return true;
        std::string_view head(received_.data(), head_end + 2);
        uint64_t length =
            std::strtoull(std::string(FieldValue(head, "content-length")).c_str(), nullptr, 10);
        return received_.size() >= head_end + 4 + length;
    }

    void Complete() {
        ++totals_.responses;
        std::string_view head(received_.data(), received_.find("\r\n\r\n") + 2);
        if (head.size() > 12 && head[9] >= '4') ++totals_.status_errors;
        std::string close_value(FieldValue(head, "connection"));
        for (char& c : close_value)
            c = LowerAscii(c);
        if (close_value.find("close") != std::string::npos || head.starts_with("HTTP/1.0")) {
            Reopen(false);
            return;
        }
        received_.clear();
        sent_ = 0;
        Send();
    }

    void Reopen(bool failed) {
        if (failed) ++totals_.errors;
        ::epoll_ctl(epoll_fd_, EPOLL_CTL_DEL, socket_.Get(), nullptr);
        Open();
    }

    const Options& options_;
    int epoll_fd_;
    Totals& totals_;
    UniqueFd socket_;
    size_t sent_ = 0;
    bool watching_output_ = false;
    std::string received_;
};

Totals RunThread(const Options& options, int connections, Clock::time_point deadline) {
    Totals totals;
    UniqueFd epoll(::epoll_create1(EPOLL_CLOEXEC));
    std::vector<std::unique_ptr<LoadConnection>> open;
    for (int i = 0; i < connections; ++i) {
        open.push_back(std::make_unique<LoadConnection>(options, epoll.Get(), totals));
        open.back()->Open();
    }
    epoll_event events[256];
    while (Clock::now() < deadline) {
        int ready = ::epoll_wait(epoll.Get(), events, 256, 50);
        for (int i = 0; i < ready; ++i)
            static_cast<LoadConnection*>(events[i].data.ptr)->OnEvent(events[i].events);
    }
    return totals;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 7) {
        std::fprintf(stderr,
                     "usage: HttpLoad PORT PATH METHOD CONNECTIONS THREADS SECONDS [HEADER]\n");
        return 2;
    }
    Options options{.port = static_cast<uint16_t>(std::atoi(argv[1])),
                    .request = std::string(argv[3]) + " " + argv[2] +
                               " HTTP/1.1\r\nHost: 127.0.0.1\r\n" +
                               (argc > 7 ? std::string(argv[7]) + "\r\n" : "") + "\r\n",
                    .is_head = std::string_view(argv[3]) == "HEAD",
                    .connections = std::atoi(argv[4]),
                    .threads = std::max(1, std::atoi(argv[5])),
                    .seconds = std::atoi(argv[6])};
    auto start = Clock::now();
    auto deadline = start + std::chrono::seconds(options.seconds);
    std::vector<Totals> totals(static_cast<size_t>(options.threads));
    std::vector<std::thread> threads;
    for (int t = 0; t < options.threads; ++t) {
        int share =
            options.connections / options.threads + (t < options.connections % options.threads);
        threads.emplace_back([&, t, share] {
            totals[static_cast<size_t>(t)] = RunThread(options, share, deadline);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
    Totals sum;
    for (const Totals& part : totals) {
        sum.responses += part.responses;
        sum.bytes += part.bytes;
        sum.errors += part.errors;
        sum.status_errors += part.status_errors;
    }
    std::printf("RESULT %lld %llu %llu %llu %llu\n", static_cast<long long>(elapsed.count()),
                static_cast<unsigned long long>(sum.responses),
                static_cast<unsigned long long>(sum.bytes),
                static_cast<unsigned long long>(sum.errors),
                static_cast<unsigned long long>(sum.status_errors));
    return 0;
}
