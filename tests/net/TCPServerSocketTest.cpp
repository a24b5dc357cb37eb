#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <future>
#include <iterator>
#include <string>
#include <thread>

#include "net/SocketError.h"
#include "net/TCPServerSocket.h"
#include "net/TCPSocket.h"

namespace Zarn {
namespace {

TCPSocket ConnectTo(int port) {
    TCPSocket client;
    EXPECT_TRUE(client.Create());
    EXPECT_TRUE(client.Connect("127.0.0.1", static_cast<uint16_t>(port)));
    return client;
}

// True when the peer's end of the connection is gone (an orderly close or a reset)
// within a generous limit, which is there only so that a broken close fails instead of
// hanging.
// True once the thread sleeps in the kernel: for a thread that does nothing else, a
// sign that it is waiting inside accept(2).
bool IsSleeping(pid_t thread_id) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread_id) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    size_t name_end = text.rfind(')');
    return name_end != std::string::npos && name_end + 2 < text.size() && text[name_end + 2] == 'S';
}

bool SeesConnectionEnd(TCPSocket& client) {
    pollfd entry{client.GetHandle(), POLLIN, 0};
    if (::poll(&entry, 1, 5000) != 1) return false;
    char byte;
    ssize_t got = ::recv(client.GetHandle(), &byte, 1, 0);
    return got == 0 || (got < 0 && errno == ECONNRESET);
}

TEST(TCPServerSocketTest, SecondLiveListenerOnThePortIsRefused) {
    TCPServerSocket first;
    ASSERT_TRUE(first.Listen(0));
    TCPServerSocket second;
    EXPECT_FALSE(second.Listen(static_cast<uint16_t>(first.GetLocalPort())));
    EXPECT_FALSE(second.IsValid());
    EXPECT_STREQ(ErrorText(LastSocketError()), "Address already in use");
}

TEST(TCPServerSocketTest, PortIsFreeAgainAtOnceWhileOldConnectionsLinger) {
    TCPServerSocket first;
    EXPECT_EQ(first.GetLocalPort(), -1);
    ASSERT_TRUE(first.Listen(0));
    int port = first.GetLocalPort();
    ASSERT_GT(port, 0);
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

    TCPServerSocket second;
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

TEST(TCPServerSocketTest, CloseOfClosedSocketReturnsMinusOneAndTouchesNothing) {
    TCPServerSocket listener;
    EXPECT_EQ(listener.Close(), -1);
    ASSERT_TRUE(listener.Listen(0));
    EXPECT_EQ(listener.Close(), 0);
    SetLastSocketError(4242);
    EXPECT_EQ(listener.Close(), -1);
    EXPECT_EQ(LastSocketError(), 4242);
    EXPECT_FALSE(listener.IsValid());
}

TEST(TCPServerSocketTest, ShutdownOrCloseFromAnotherThreadEndsBlockedAccept) {
    for (bool use_close : {false, true}) {
        SCOPED_TRACE(use_close ? "Close" : "Shutdown");
        TCPServerSocket listener;
        ASSERT_TRUE(listener.Listen(0));
        int port = listener.GetLocalPort();
        TCPSocket child;
        std::atomic<pid_t> accepting_thread{0};
        auto accepted = std::async(std::launch::async, [&] {
            accepting_thread = ::gettid();
            return listener.Accept(child);
        });
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while ((accepting_thread == 0 || !IsSleeping(accepting_thread)) &&
               std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        if (use_close) {
            EXPECT_EQ(listener.Close(), 0);
        } else {
            listener.Shutdown();
        }
        if (accepted.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
            ADD_FAILURE() << "Accept still blocked";
            // Frees the stuck accept so that the test fails instead of hanging.
            TCPSocket rescuer = ConnectTo(port);
        }
        EXPECT_FALSE(accepted.get());
        EXPECT_FALSE(child.IsValid());
    }
}

}  // namespace
}  // namespace Zarn
