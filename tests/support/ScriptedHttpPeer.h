#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "core/StringUtil.h"
#include "net/TCPServerSocket.h"
#include "net/TCPSocket.h"
#include "net/socket_exception.h"
#include "support/LoopbackPair.h"

namespace Zarn::testing {

// An HTTP server of the tests' own on loopback, one connection at a time: it reads each
// request (head and Content-Length body) and answers with the pieces the script gives for
// it, sent as separate writes a little apart, then closes. No pieces at all: it holds the
// connection without a word until the peer goes away or the test ends.
class ScriptedHttpPeer {
public:
    using Script = std::function<std::vector<std::string>(const std::string& request)>;

    explicit ScriptedHttpPeer(Script script) : script_(std::move(script)) {
        if (!listener_.Listen(0)) ADD_FAILURE() << "cannot listen";
        thread_ = std::thread([this] { Serve(); });
    }
    ~ScriptedHttpPeer() {
        stopping_ = true;
        listener_.Close();
        thread_.join();
    }
    ScriptedHttpPeer(const ScriptedHttpPeer&) = delete;
    ScriptedHttpPeer& operator=(const ScriptedHttpPeer&) = delete;

    [[nodiscard]] int Port() const { return listener_.GetLocalPort(); }
    [[nodiscard]] std::string Address() const { return "127.0.0.1:" + std::to_string(Port()); }
    [[nodiscard]] std::vector<std::string> Requests() const {
        std::lock_guard hold(mutex_);
        return requests_;
    }

private:
    void Serve() {
        for (;;) {
            TCPSocket connection;
            if (!listener_.Accept(connection)) return;
            std::string request = ReadRequest(connection);
            {
                std::lock_guard hold(mutex_);
                requests_.push_back(request);
            }
            std::vector<std::string> pieces = script_(request);
            if (pieces.empty()) {
                while (!stopping_ && !connection.WaitReadable(std::chrono::milliseconds(50))) {
                }
                continue;
            }
            try {
                for (const std::string& piece : pieces) {
                    SendAll(connection, piece);
                    std::this_thread::sleep_for(std::chrono::milliseconds(20));
                }
            } catch (const socket_exception&) {
            }
        }
    }

    static std::string ReadRequest(TCPSocket& connection) {
        std::string request;
        char c;
        while (!request.ends_with("\r\n\r\n") && connection.ReceiveAll(&c, 1) == 1)
            request += c;
        size_t length_at = FindIgnoringCase(request, "\r\nContent-Length:");
        if (length_at == std::string::npos) return request;
        size_t length = std::stoul(request.substr(length_at + 17));
        std::string body(length, '\0');
        body.resize(
            static_cast<size_t>(connection.ReceiveAll(body.data(), static_cast<int>(length))));
        return request + body;
    }

    Script script_;
    TCPServerSocket listener_;
    std::atomic<bool> stopping_{false};
    mutable std::mutex mutex_;
    std::vector<std::string> requests_;
    std::thread thread_;
};

}  // namespace Zarn::testing
