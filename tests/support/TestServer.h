#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include "http/HttpRequest.h"
#include "http/HttpRequestHandler.h"
#include "http/WebServer.h"
#include "net/TCPSocket.h"
#include "net/socket_exception.h"

namespace Zarn::testing {

// A handler made of a function, for tests.
class FunctionHandler : public HttpRequestHandler {
public:
    explicit FunctionHandler(std::function<void(HttpRequest&)> function)
        : function_(std::move(function)) {}
    void HandleRequest(HttpRequest& request) override { function_(request); }

private:
    std::function<void(HttpRequest&)> function_;
};

// A connected client socket to 127.0.0.1:port.
inline TCPSocket ConnectTo(int port) {
    TCPSocket socket;
    EXPECT_TRUE(socket.Create());
    EXPECT_TRUE(socket.Connect("127.0.0.1", static_cast<uint16_t>(port)));
    return socket;
}

// Everything the peer sends until it closes the connection.
inline std::string ReadToClose(TCPSocket& socket) {
    std::string bytes;
    char buffer[65536];
    try {
        for (;;)
            bytes.append(buffer, static_cast<size_t>(socket.Receive(buffer, sizeof buffer)));
    } catch (const socket_exception&) {
    }
    return bytes;
}

// How long the peer took to close the connection, sending nothing more; the safety net
// of five seconds when it sent something or did not close.
inline std::chrono::steady_clock::duration TimeUntilSilentClose(TCPSocket& socket) {
    constexpr int kSafetySeconds = 5;
    socket.SetTimeouts(kSafetySeconds);
    auto started = std::chrono::steady_clock::now();
    if (!ReadToClose(socket).empty()) return std::chrono::seconds(kSafetySeconds);
    return std::chrono::steady_clock::now() - started;
}

// Reads exactly `count` bytes (fewer only when the peer closes first).
inline std::string ReadExactly(TCPSocket& socket, size_t count) {
    std::string bytes(count, '\0');
    int got = socket.ReceiveAll(bytes.data(), static_cast<int>(count));
    bytes.resize(static_cast<size_t>(got < 0 ? 0 : got));
    return bytes;
}

// Reads one response head, up to and with its blank line.
inline std::string ReadHead(TCPSocket& socket) {
    std::string head;
    char c;
    while (!head.ends_with("\r\n\r\n") && socket.ReceiveAll(&c, 1) == 1)
        head += c;
    return head;
}

// The response without its Date line, whose value changes every second.
inline std::string WithoutDate(std::string response) {
    size_t head_end = response.find("\r\n\r\n");
    size_t date = response.find("\r\nDate: ");
    if (date == std::string::npos || date >= head_end) return response;
    return response.erase(date, response.find("\r\n", date + 2) - date);
}

}  // namespace Zarn::testing
