#include <gtest/gtest.h>
#include <sys/socket.h>

#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "net/SocketError.h"
#include "net/TCPServerSocket.h"
#include "net/TCPSocket.h"
#include "net/socket_exception.h"
#include "support/LoopbackPair.h"

namespace Zarn {
namespace {

using testing::LoopbackPair;

std::string ReceiveFailure(TCPSocket& socket) {
    char buffer[16];
    try {
        int got = socket.Receive(buffer, sizeof buffer);
        return "received " + std::to_string(got) + " bytes";
    } catch (const socket_exception& e) {
        return e.what();
    }
}

TEST(TCPSocketTest, RefusedConnectReportsConnectionRefused) {
    TCPServerSocket listener;
    ASSERT_TRUE(listener.Listen(0));
    auto port = static_cast<uint16_t>(listener.GetLocalPort());
    ASSERT_EQ(listener.Close(), 0);

    TCPSocket client;
    ASSERT_TRUE(client.Create());
    EXPECT_FALSE(client.Connect("127.0.0.1", port));
    EXPECT_STREQ(ErrorText(LastSocketError()), "Connection refused");
    EXPECT_STREQ(socket_exception().what(), "Connection refused");
}

TEST(TCPSocketTest, ReceiveNamesHowThePeerWentAway) {
    LoopbackPair orderly = LoopbackPair::Make();
    ASSERT_EQ(orderly.server.Close(), 0);
    EXPECT_EQ(ReceiveFailure(orderly.client), "Connection closed");

    LoopbackPair reset = LoopbackPair::Make();
    linger abort_on_close{1, 0};
    ASSERT_EQ(::setsockopt(reset.server.GetHandle(), SOL_SOCKET, SO_LINGER, &abort_on_close,
                           sizeof abort_on_close),
              0);
    ASSERT_EQ(reset.server.Close(), 0);
    EXPECT_EQ(ReceiveFailure(reset.client), "Connection reset by peer");

    LoopbackPair silent = LoopbackPair::Make();
    silent.client.SetTimeouts(1);
    EXPECT_EQ(ReceiveFailure(silent.client), "Connection timed out");
}

TEST(TCPSocketTest, SendToClosedPeerThrowsInsteadOfRaisingSigpipe) {
    // Another test may already ignore SIGPIPE process-wide; the sends must not need that.
    struct sigaction default_action {};
    default_action.sa_handler = SIG_DFL;
    struct sigaction previous {};
    ASSERT_EQ(::sigaction(SIGPIPE, &default_action, &previous), 0);

    LoopbackPair pair = LoopbackPair::Make();
    ASSERT_EQ(pair.server.Close(), 0);
    std::vector<char> block(1 << 20, 'x');
    std::string failure;
    for (int i = 0; i < 100 && failure.empty(); ++i) {
        try {
            (void)pair.client.Send(block.data(), static_cast<int>(block.size()));
        } catch (const socket_exception& e) {
            failure = e.what();
        }
    }
    ::sigaction(SIGPIPE, &previous, nullptr);
    EXPECT_TRUE(failure == "Connection reset by peer" ||
                failure == "Software caused connection abort")
        << failure;
}

TEST(TCPSocketTest, ReceiveAllGathersExactlyTheCountAcrossWrites) {
    LoopbackPair pair = LoopbackPair::Make();
    std::thread writer([&] {
        testing::SendInPieces(pair.server, pair.client, {"abc", "defg", "hijXYZ"});
    });
    char buffer[16] = {};
    EXPECT_EQ(pair.client.ReceiveAll(buffer, 10), 10);
    writer.join();
    EXPECT_EQ(std::string(buffer, 10), "abcdefghij");
    EXPECT_EQ(pair.client.Receive(buffer, sizeof buffer), 3);
    EXPECT_EQ(std::string(buffer, 3), "XYZ");

    testing::SendAll(pair.server, "ab");
    ASSERT_EQ(pair.server.Close(), 0);
    EXPECT_EQ(pair.client.ReceiveAll(buffer, 10), 2);
}

TEST(TCPSocketTest, WaitReadableWaitsForDataOrClose) {
    LoopbackPair pair = LoopbackPair::Make();
    EXPECT_FALSE(pair.client.WaitReadable(std::chrono::milliseconds(50)));
    testing::SendAll(pair.server, "x");
    EXPECT_TRUE(pair.client.WaitReadable(std::chrono::milliseconds(5000)));
    char byte;
    ASSERT_EQ(pair.client.Receive(&byte, 1), 1);
    EXPECT_FALSE(pair.client.WaitReadable(std::chrono::milliseconds(0)));
    ASSERT_EQ(pair.server.Close(), 0);
    EXPECT_TRUE(pair.client.WaitReadable());
}

TEST(TCPSocketTest, AddressesOfBothEnds) {
    TCPServerSocket listener;
    ASSERT_TRUE(listener.Listen(0));
    auto listen_port = static_cast<uint16_t>(listener.GetLocalPort());
    TCPSocket client;
    ASSERT_TRUE(client.Create());
    EXPECT_EQ(client.GetPeerIp(), "");
    ASSERT_TRUE(client.Connect("127.0.0.1", listen_port));
    TCPSocket server;
    ASSERT_TRUE(listener.Accept(server));

    std::string ip;
    uint16_t port = 0;
    ASSERT_TRUE(client.GetPeerAddress(ip, port));
    EXPECT_EQ(ip, "127.0.0.1");
    EXPECT_EQ(port, listen_port);
    uint16_t client_port = 0;
    ASSERT_TRUE(client.GetLocalAddress(ip, client_port));
    EXPECT_EQ(ip, "127.0.0.1");
    ASSERT_TRUE(server.GetPeerAddress(ip, port));
    EXPECT_EQ(port, client_port);
    EXPECT_EQ(server.GetPeerIp(), "127.0.0.1");

    TCPSocket never_created;
    ip = "untouched";
    EXPECT_FALSE(never_created.GetPeerAddress(ip, port));
    EXPECT_EQ(ip, "untouched");
    EXPECT_EQ(never_created.GetPeerIp(), "");
}

TEST(TCPSocketTest, ConnectHonoursPortSuffixAndTrimsTheHost) {
    TCPServerSocket listener;
    ASSERT_TRUE(listener.Listen(0));
    auto port = static_cast<uint16_t>(listener.GetLocalPort());
    auto other_port = static_cast<uint16_t>(port == 1 ? 2 : port - 1);
    struct Case {
        std::string host;
        uint16_t default_port;
    };
    const Case cases[] = {
        {"127.0.0.1:" + std::to_string(port), other_port},
        {"  localhost \r\n", port},
        {"127.0.0.1:" + std::to_string(port + 65536), other_port},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.host);
        TCPSocket client;
        ASSERT_TRUE(client.Create());
        EXPECT_TRUE(client.Connect(c.host, c.default_port));
        TCPSocket accepted;
        ASSERT_TRUE(listener.Accept(accepted));
        std::string ip;
        uint16_t peer_port = 0;
        ASSERT_TRUE(client.GetPeerAddress(ip, peer_port));
        EXPECT_EQ(peer_port, port);
    }
}

TEST(TCPSocketTest, ConnectFailsQuietlyOnBadNameOrSocket) {
    TCPSocket client;
    ASSERT_TRUE(client.Create());
    EXPECT_FALSE(client.Connect("no-such-host.invalid", 80));
    EXPECT_STREQ(ErrorText(LastSocketError()), "Host not found");

    TCPSocket invalid;
    EXPECT_FALSE(invalid.Connect("127.0.0.1", 80));
}

}  // namespace
}  // namespace Zarn
