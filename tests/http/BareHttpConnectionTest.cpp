#include <gtest/gtest.h>

#include <chrono>

#include "http/BareHttpConnection.h"
#include "support/ScriptedHttpPeer.h"
#include "support/TempFolder.h"

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

TEST(BareHttpConnectionTest, DecodesChunkedBodiesSplitAnywhere) {
    ScriptedHttpPeer peer(
        Answer({"HTTP/1.1 200 OK\r\nTransfer-Encoding: Chunked\r\n\r\n4\r", "\nWi", "ki\r\n1",
                "0;name=value\r\n0123456789", "abcdef\r\n0\r\nTrailer: x\r\n", "\r\n"}));
    BareHttpConnection connection("http://" + peer.Address() + "/");
    ASSERT_EQ(connection.Send(), 200);
    EXPECT_EQ(ReadBody(connection, 3), "Wiki0123456789abcdef");
    EXPECT_EQ(connection.Read(nullptr, 1), 0);
}

TEST(BareHttpConnectionTest, BrokenBodiesFailInsteadOfEndingQuietly) {
    {
        ScriptedHttpPeer peer(Answer({"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nshort"}));
        BareHttpConnection connection("http://" + peer.Address() + "/");
        ASSERT_EQ(connection.Send(), 200);
        EXPECT_EQ(ReadBody(connection, 64), "short<failed>");
    }
    {
        ScriptedHttpPeer peer(
            Answer({"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nab"}));
        BareHttpConnection connection("http://" + peer.Address() + "/");
        ASSERT_EQ(connection.Send(), 200);
        EXPECT_EQ(ReadBody(connection, 64), "<failed>");
    }
    {
        // Neither length header: the body ends with the connection.
        ScriptedHttpPeer peer(Answer({"HTTP/1.0 404 Not Found\r\n\r\nno such ", "page"}));
        BareHttpConnection connection("http://" + peer.Address() + "/");
        ASSERT_EQ(connection.Send(), 404);
        EXPECT_EQ(ReadBody(connection, 64), "no such page");
    }
}

TEST(BareHttpConnectionTest, AHeadBeyondTheBufferIsRefused) {
    std::string filler(BareHttpConnection::kHeadBufferBytes, 'x');
    ScriptedHttpPeer peer(Answer({"HTTP/1.1 200 OK\r\nX-Filler: " + filler + "\r\n\r\nbody"}));
    BareHttpConnection connection("http://" + peer.Address() + "/");
    try {
        (void)connection.Send();
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Header size is too long");
    }
    EXPECT_EQ(connection.Read(nullptr, 1), 0);
}

TEST(BareHttpConnectionTest, PostsUrlEncodedAndMultipartForms) {
    ScriptedHttpPeer peer(Answer({"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"}));
    BareHttpConnection form("http://" + peer.Address() + "/form");
    form.AddFormField("port", "8080");
    form.AddFormField("addr", "a b&c");
    ASSERT_EQ(form.Send(), 200);
    std::string sent = peer.Requests().at(0);
    EXPECT_EQ(sent.substr(0, 16), "POST /form HTTP/");
    EXPECT_NE(sent.find("Content-Type: application/x-www-form-urlencoded\r\n"), std::string::npos);
    EXPECT_TRUE(sent.ends_with("\r\n\r\nport=8080&addr=a%20b%26c"));

    testing::TempFolder folder;
    folder.Write("report.bin", std::string("\0\1\2binary", 9));
    BareHttpConnection upload("http://" + peer.Address() + "/upload");
    upload.AddFormField("note", "hi");
    upload.AddFileField("file", folder / "report.bin");
    ASSERT_EQ(upload.Send(), 200);
    sent = peer.Requests().at(1);
    size_t body_at = sent.find("\r\n\r\n") + 4;
    EXPECT_NE(sent.find("Content-Length: " + std::to_string(sent.size() - body_at) + "\r\n"),
              std::string::npos);
    EXPECT_NE(sent.find("Content-Type: multipart/form-data; boundary="), std::string::npos);
    EXPECT_NE(sent.find("name=\"note\"\r\n\r\nhi\r\n"), std::string::npos);
    EXPECT_NE(sent.find("name=\"file\"; filename=\"report.bin\""), std::string::npos);
    EXPECT_NE(sent.find(std::string("\0\1\2binary\r\n", 11)), std::string::npos);
    EXPECT_TRUE(sent.ends_with("--\r\n"));

    BareHttpConnection missing("http://" + peer.Address() + "/upload");
    missing.AddFileField("file", folder / "missing.bin");
    EXPECT_THROW((void)missing.Send(), std::runtime_error);
}

TEST(BareHttpConnectionTest, UnreachableAndSilentServersGiveMinusOne) {
    int closed_port;
    {
        TCPServerSocket probe;
        ASSERT_TRUE(probe.Listen(0));
        closed_port = probe.GetLocalPort();
    }
    BareHttpConnection refused("http://127.0.0.1:" + std::to_string(closed_port) + "/");
    EXPECT_EQ(refused.Send(), -1);

    ScriptedHttpPeer silent(Answer({}));
    BareHttpConnection waiting("http://" + silent.Address() + "/", 1);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(waiting.Send(), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

}  // namespace
}  // namespace Zarn
