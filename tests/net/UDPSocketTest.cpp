#include <gtest/gtest.h>

#include <string>

#include "net/SocketError.h"
#include "net/UDPSocket.h"

namespace Zarn {
namespace {

TEST(UDPSocketTest, DatagramToOwnPortComesBackFromLoopback) {
    UDPSocket socket;
    ASSERT_TRUE(socket.Open(0));
    int port = socket.GetLocalPort();
    ASSERT_GT(port, 0);
    ASSERT_TRUE(socket.SetDestination("127.0.0.1", static_cast<uint16_t>(port)));
    EXPECT_EQ(socket.SendTo("ping", 4), 4);

    char buffer[16] = {};
    std::string source_ip;
    uint16_t source_port = 0;
    EXPECT_EQ(socket.ReceiveFrom(buffer, sizeof buffer, 0, source_ip, source_port), 4);
    EXPECT_EQ(std::string(buffer, 4), "ping");
    EXPECT_EQ(source_ip, "127.0.0.1");
    EXPECT_EQ(source_port, port);
}

TEST(UDPSocketTest, OpenOnBusyPortAndUnresolvableDestinationFail) {
    UDPSocket first;
    ASSERT_TRUE(first.Open(0));
    UDPSocket second;
    EXPECT_FALSE(second.Open(static_cast<uint16_t>(first.GetLocalPort())));
    EXPECT_FALSE(second.IsValid());
    EXPECT_STREQ(ErrorText(LastSocketError()), "Address already in use");
    EXPECT_EQ(second.GetLocalPort(), -1);

    EXPECT_FALSE(first.SetDestination("no-such-host.invalid", 9));
}

}  // namespace
}  // namespace Zarn
