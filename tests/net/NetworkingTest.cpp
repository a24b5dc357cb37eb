#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "net/Networking.h"
#include "net/TCPServerSocket.h"

namespace Zarn {
namespace {

TEST(NetworkingTest, SplitHostAndPortTrimsCutsAndWrapsThePort) {
    struct Case {
        std::string text;
        uint16_t default_port;
        std::string host;
        uint16_t port;
    };
    const Case cases[] = {
        {"host", 8080, "host", 8080},
        {" \thost:81\r\n", 80, "host", 81},
        {"h:65537", 80, "h", 1},
        {"h:65536", 80, "h", 0},
        {"h:99999999999", 80, "h", static_cast<uint16_t>(99999999999 % 65536)},
        {"h:12ab", 80, "h", 12},
        {"1.2.3.4:", 80, "1.2.3.4", 0},
        {" \r\n", 80, "", 80},
        {std::string(2000, 'a'), 80, std::string(1023, 'a'), 80},
        // The cut comes before the port is read.
        {std::string(1020, 'a') + ":8080", 80, std::string(1020, 'a'), 80},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 40));
        HostAndPort split = SplitHostAndPort(c.text, c.default_port);
        EXPECT_EQ(split.host, c.host);
        EXPECT_EQ(split.port, c.port);
    }
}

TEST(NetworkingTest, HostAddressesAreDottedWithLoopbackLast) {
    std::vector<std::string> addresses{"stale"};
    GetHostAddresses(addresses);
    ASSERT_FALSE(addresses.empty());
    bool seen_loopback = false;
    for (const std::string& address : addresses) {
        SCOPED_TRACE(address);
        in_addr parsed{};
        EXPECT_EQ(::inet_pton(AF_INET, address.c_str(), &parsed), 1);
        bool loopback = address.starts_with("127.");
        EXPECT_FALSE(seen_loopback && !loopback);
        seen_loopback = seen_loopback || loopback;
    }
}

TEST(NetworkingTest, LocalAddressTowardListenerOrUnknown) {
    TCPServerSocket listener;
    ASSERT_TRUE(listener.Listen(0));
    std::string target = "127.0.0.1:" + std::to_string(listener.GetLocalPort());
    EXPECT_EQ(GetLocalAddressToward(target), "127.0.0.1");
    ASSERT_EQ(listener.Close(), 0);
    EXPECT_EQ(GetLocalAddressToward(target), "?.?.?.?");
}

}  // namespace
}  // namespace Zarn
