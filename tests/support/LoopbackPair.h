#pragma once

#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "net/TCPServerSocket.h"
#include "net/TCPSocket.h"

namespace Zarn::testing {

// Two connected ends of a real loopback TCP connection.
struct LoopbackPair {
    TCPSocket client;
    TCPSocket server;

    static LoopbackPair Make() {
        LoopbackPair pair;
        TCPServerSocket listener;
        EXPECT_TRUE(listener.Listen(0));
        EXPECT_TRUE(pair.client.Create());
        EXPECT_TRUE(
            pair.client.Connect("127.0.0.1", static_cast<uint16_t>(listener.GetLocalPort())));
        EXPECT_TRUE(listener.Accept(pair.server));
        return pair;
    }
};

inline void SendAll(TCPSocket& socket, std::string_view bytes) {
    socket.SendAll(bytes);
}

// Bytes waiting unread in the socket's receive queue.
inline int PendingInput(const TCPSocket& socket) {
    int pending = 0;
    if (::ioctl(socket.GetHandle(), FIONREAD, &pending) != 0) return 0;
    return pending;
}

// Sends each piece only once the reader has taken everything sent before, so that the
// reader's receives see the pieces one by one.
inline void SendInPieces(TCPSocket& writer, const TCPSocket& reader,
                         const std::vector<std::string>& pieces) {
    for (size_t i = 0; i < pieces.size(); ++i) {
        SendAll(writer, pieces[i]);
        if (i + 1 == pieces.size()) break;
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (PendingInput(reader) > 0 && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
    }
}

}  // namespace Zarn::testing
