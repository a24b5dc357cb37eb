#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "net/SocketError.h"
#include "net/TCPServerSocket.h"
#include "net/TCPSocket.h"
#include "net/socket_exception.h"
#include "support/LoopbackPair.h"
#include "support/TestServer.h"

namespace Zarn {
namespace {

using testing::ConnectTo;
using testing::LoopbackPair;
using testing::SendAll;

std::string ReceiveFailure(TCPSocket& socket) {
    char buffer[16];
    try {
        return "received " + std::to_string(socket.Receive(buffer, sizeof buffer)) + " bytes";
    } catch (const socket_exception& e) {
        return e.what();
    }
}

// True when the peer's end of the connection is gone (an orderly close or a reset) within
// a limit that is there only so that a broken close fails instead of hanging.
bool SeesConnectionEnd(TCPSocket& client) {
    pollfd entry{client.GetHandle(), POLLIN, 0};
    if (::poll(&entry, 1, 5000) != 1) return false;
    char byte;
    ssize_t got = ::recv(client.GetHandle(), &byte, 1, 0);
    return got == 0 || (got < 0 && errno == ECONNRESET);
}

TEST(TCPSocketTest, ConnectTakesTheHostsOwnPortAndFailsQuietly) {
    TCPServerSocket listener;
    ASSERT_TRUE(listener.Listen(0));
    auto port = static_cast<uint16_t>(listener.GetLocalPort());
    TCPSocket client;
    ASSERT_TRUE(client.Create());
    EXPECT_TRUE(client.Connect("  localhost:" + std::to_string(port) + " \r\n",
                               static_cast<uint16_t>(port - 1)));
    TCPSocket accepted;
    ASSERT_TRUE(listener.Accept(accepted));
    EXPECT_EQ(accepted.GetPeerIp(), "127.0.0.1");

    ASSERT_EQ(listener.Close(), 0);
    TCPSocket refused;
    ASSERT_TRUE(refused.Create());
    EXPECT_FALSE(refused.Connect("127.0.0.1", port));
    EXPECT_STREQ(ErrorText(LastSocketError()), "Connection refused");
    EXPECT_STREQ(socket_exception().what(), "Connection refused");
    EXPECT_FALSE(refused.Connect("no-such-host.invalid", 80));
    EXPECT_STREQ(ErrorText(LastSocketError()), "Host not found");
    TCPSocket never_created;
    EXPECT_FALSE(never_created.Connect("127.0.0.1", port));
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

TEST(TCPServerSocketTest, APortIsRefusedWhileListenedOnAndFreeAtOnceAfterwards) {
    TCPServerSocket first;
    ASSERT_TRUE(first.Listen(0));
    int port = first.GetLocalPort();
    TCPServerSocket second;
    EXPECT_FALSE(second.Listen(static_cast<uint16_t>(port)));
    EXPECT_FALSE(second.IsValid());
    EXPECT_STREQ(ErrorText(LastSocketError()), "Address already in use");

    TCPSocket open_client = ConnectTo(port);
    TCPSocket open_accepted;
    ASSERT_TRUE(first.Accept(open_accepted));
    // The server side closes first, which leaves this connection in TIME_WAIT on the port.
    TCPSocket closed_client = ConnectTo(port);
    TCPSocket closed_accepted;
    ASSERT_TRUE(first.Accept(closed_accepted));
    ASSERT_EQ(closed_accepted.Close(), 0);
    ASSERT_TRUE(SeesConnectionEnd(closed_client));
    ASSERT_EQ(closed_client.Close(), 0);
    ASSERT_EQ(first.Close(), 0);
    EXPECT_TRUE(second.Listen(static_cast<uint16_t>(port)));
    EXPECT_EQ(second.GetLocalPort(), port);
}

TEST(TCPServerSocketTest, CloseEndsConnectionsNobodyAccepted) {
    TCPServerSocket listener;
    ASSERT_TRUE(listener.Listen(0));
    TCPSocket first = ConnectTo(listener.GetLocalPort());
    TCPSocket second = ConnectTo(listener.GetLocalPort());
    EXPECT_EQ(listener.Close(), 0);
    EXPECT_TRUE(SeesConnectionEnd(first));
    EXPECT_TRUE(SeesConnectionEnd(second));
}

}  // namespace
}  // namespace Zarn
