#include <gtest/gtest.h>

#include "http/BareHttpConnection.h"
#include "support/ScriptedHttpPeer.h"

namespace Zarn {
namespace {

using testing::ScriptedHttpPeer;

// The whole body, read in pieces of `piece` bytes; "<failed>" appended on a failure.
std::string ReadBody(BareHttpConnection& connection, int piece) {
    std::string body;
    std::vector<char> buffer(static_cast<size_t>(piece));
    for (int got; (got = connection.Read(buffer.data(), piece)) != 0;) {
        if (got < 0) return body + "<failed>";
        body.append(buffer.data(), static_cast<size_t>(got));
    }
    return body;
}

ScriptedHttpPeer::Script Answer(std::vector<std::string> pieces) {
    return [pieces](const std::string&) { return pieces; };
}

// The status of a GET answered with `pieces`, and its body read `piece` bytes at a time.
std::string StatusAndBody(std::vector<std::string> pieces, int piece) {
    ScriptedHttpPeer peer(Answer(std::move(pieces)));
    BareHttpConnection connection("http://" + peer.Address() + "/");
    int status = connection.Send();
    return std::to_string(status) + " " + ReadBody(connection, piece);
}

TEST(BareHttpConnectionTest, GetsWithItsHeadersAndReadsABodyByLength) {
    ScriptedHttpPeer peer(Answer(
        {"HTTP/1.1 200 OK\r\nContent-Length: 11\r\nX-Extra: a:b\r\n\r\nhello", " world and more"}));
    BareHttpConnection connection("http://" + peer.Address() + "/lumidrop/check/ipaddr.php?x=1");
    connection.AddHeader("User-Agent", "Korvel Lumidrop");
    ASSERT_EQ(connection.Send(), 200);
    EXPECT_EQ(ReadBody(connection, 4), "hello world");
    std::string value;
    ASSERT_TRUE(connection.GetResponseHeader("X-EXTRA", value));
    EXPECT_EQ(value, "a:b");
    EXPECT_EQ(
        peer.Requests().at(0),
        "GET /lumidrop/check/ipaddr.php?x=1 HTTP/1.1\r\nUser-Agent: Korvel Lumidrop\r\nHost: " +
            peer.Address() + "\r\nConnection: close\r\n\r\n");
}

TEST(BareHttpConnectionTest, BodiesEndByLengthChunksOrCloseAndBrokenOnesFail) {
    EXPECT_EQ(StatusAndBody(
                  {"HTTP/1.1 200 OK\r\nTransfer-Encoding: Chunked\r\n\r\n4\r", "\nWi", "ki\r\n1",
                   "0;name=value\r\n0123456789", "abcdef\r\n0\r\nTrailer: x\r\n", "\r\n"},
                  3),
              "200 Wiki0123456789abcdef");
    // Neither length header: the body ends with the connection.
    EXPECT_EQ(StatusAndBody({"HTTP/1.0 404 Not Found\r\n\r\nno such ", "page"}, 64),
              "404 no such page");
    EXPECT_EQ(StatusAndBody({"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nshort"}, 64),
              "200 short<failed>");
    EXPECT_EQ(StatusAndBody({"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nab"}, 64),
              "200 <failed>");
}

TEST(BareHttpConnectionTest, AServerThatIsNotThereGivesMinusOne) {
    TCPServerSocket probe;
    ASSERT_TRUE(probe.Listen(0));
    std::string url = "http://127.0.0.1:" + std::to_string(probe.GetLocalPort()) + "/";
    probe.Close();
    BareHttpConnection refused(url);
    EXPECT_EQ(refused.Send(), -1);
}

}  // namespace
}  // namespace Zarn
