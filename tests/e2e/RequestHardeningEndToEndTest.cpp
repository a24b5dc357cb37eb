// Requests built to hurt the server or to slip past its parsers, sent as raw bytes to the
// real program.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "http/HttpRequest.h"
#include "support/RunningShare.h"
#include "support/WaitUntil.h"

namespace Zarn {
namespace {

using testing::ConnectTo;
using testing::Contains;
using testing::Fetch;
using testing::HttpResponse;
using testing::ParseResponse;
using testing::ReadToClose;
using testing::SendAll;

std::string FormHead(const std::string& target, uint64_t length) {
    return "POST " + target +
           " HTTP/1.1\r\nHost: test\r\nContent-Type: application/x-www-form-urlencoded\r\n"
           "Content-Length: " +
           std::to_string(length) + "\r\n\r\n";
}

// The resident memory of a process in KiB; -1 when it cannot be read.
long ResidentKib(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) return std::stol(line.substr(6));
    }
    return -1;
}

// True once the server holds `count` connections and has read all that came on them: the
// receive queues of the established connections whose local port is `port` are empty.
bool TheServerHasReadAll(int port, size_t count) {
    std::ifstream table("/proc/net/tcp");
    std::string line;
    std::getline(table, line);  // the column titles
    size_t connections = 0;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, local, remote, state, queues;
        fields >> slot >> local >> remote >> state >> queues;
        if (state != "01" || std::stoi(local.substr(local.find(':') + 1), nullptr, 16) != port)
            continue;  // not established, or not on the server's side
        if (std::stoul(queues.substr(queues.find(':') + 1), nullptr, 16) != 0) return false;
        ++connections;
    }
    return connections == count;
}

class RequestHardeningEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override { Start("authorities+=.anonymous|docs|7\r\n"); }
};

TEST_F(RequestHardeningEndToEndTest, AFileNameBrokenByALineBreakIsRefusedNotCut) {
    std::string body = testing::MultipartBody({{"uploadfile", "evil\r\n.txt", "cut"},
                                               {"uploadfile", "open.txt", "unclosed"},
                                               {"uploadfile", "good.txt", "good"}});
    body.replace(body.find("\"open.txt\""), 10, "\"open.txt");
    HttpResponse answer = Fetch(port_, testing::MultipartHead("/docs/?key=k", body.size()) + body);
    EXPECT_TRUE(Contains(answer.body, "evil: Could not open the file."));
    EXPECT_TRUE(Contains(answer.body, "open.txt: Could not open the file."));
    EXPECT_TRUE(Contains(answer.body, "good.txt: 4 bytes received."));
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(share_.Path()))
        names.push_back(entry.path().filename().string());
    EXPECT_EQ(names, std::vector<std::string>{"good.txt"});
}

TEST_F(RequestHardeningEndToEndTest, AnAbsoluteFormTargetServesTheFileItNames) {
    std::string bytes;
    for (int i = 0; i < 256 * 40; ++i)
        bytes += static_cast<char>(i * 7);
    share_.Write("every byte.bin", bytes);
    std::string authority = "127.0.0.1:" + std::to_string(port_);
    HttpResponse whole = Fetch(
        port_, "GET http://" + authority + "/docs/every%20byte.bin HTTP/1.1\r\nHost: " + authority);
    EXPECT_TRUE(whole.body == bytes);
    // The authority names this server whatever it says; the scheme's case does not matter.
    HttpResponse ranged = Fetch(port_,
                                "GET HTTPS://elsewhere.example/docs/every%20byte.bin HTTP/1.1\r\n"
                                "Range: bytes=256-511");
    EXPECT_EQ(ranged.status, 206);
    EXPECT_TRUE(ranged.body == bytes.substr(256, 256));
    EXPECT_TRUE(Contains(Fetch(port_, "GET http://" + authority + " HTTP/1.1").body, "docs"));
}

// A proxy in front that reads the chunked coding passes this along as one request; read by
// its Content-Length, the chunk would be a second one, made by nobody the proxy checked.
TEST_F(RequestHardeningEndToEndTest, ABodyInATransferCodingIsRefusedAndNeverReadAsARequest) {
    std::string hidden =
        "GET /docs/?action=MakeDirectory&name=smuggled HTTP/1.1\r\nHost: test\r\n\r\n";
    char size[16];
    std::snprintf(size, sizeof size, "%zx\r\n", hidden.size());
    for (std::string framing : {"Content-Length: 4\r\n", ""}) {
        TCPSocket client = ConnectTo(port_);
        SendAll(client, "GET /docs/ HTTP/1.1\r\nHost: test\r\nTransfer-Encoding: chunked\r\n" +
                            framing + "\r\n" + size + hidden + "\r\n0\r\n\r\n");
        std::string answers = ReadToClose(client);
        EXPECT_EQ(ParseResponse(answers).status, 501) << framing;
        EXPECT_EQ(answers.find("HTTP/1.1", 1), std::string::npos) << framing;
    }
    EXPECT_FALSE(share_.Exists("smuggled"));
}

TEST_F(RequestHardeningEndToEndTest, AFormOverOneMebibyteIsRefusedUnreadAndTheConnectionCloses) {
    // The body is never sent in full: the answer must not wait for it, whatever the length.
    for (uint64_t length : {HttpRequest::kMaxFormBytes + 1, UINT64_MAX}) {
        TCPSocket waiting = ConnectTo(port_);
        SendAll(waiting, FormHead("/docs/?action=MakeDirectory", length) + "name=refused");
        HttpResponse answer = ParseResponse(ReadToClose(waiting));
        EXPECT_EQ(answer.status_line, "HTTP/1.1 413 Payload Too Large") << length;
        EXPECT_EQ(answer.Header("Connection"), "close");
        EXPECT_TRUE(Contains(answer.body, "The request is too large."));
    }
    EXPECT_FALSE(share_.Exists("refused"));

    // Sent whole before anything is read, as simple clients do: closing on the unread rest
    // must neither fail the send nor reset the connection before the answer is read.
    TCPSocket pushing = ConnectTo(port_);
    std::string body(3 * HttpRequest::kMaxFormBytes, 'p');
    EXPECT_NO_THROW(SendAll(pushing, FormHead("/docs/?action=MakeDirectory", body.size()) + body));
    EXPECT_EQ(ParseResponse(ReadToClose(pushing)).status, 413);

    // One byte less is a form like any other.
    body = "name=accepted&pad=";
    body.resize(HttpRequest::kMaxFormBytes, 'p');
    EXPECT_EQ(Fetch(port_, FormHead("/docs/?action=MakeDirectory", body.size()) + body).status,
              301);
    EXPECT_TRUE(share_.Exists("accepted"));
}

TEST_F(RequestHardeningEndToEndTest, SilentClientsAnnouncingLargeFormsCostTheServerNoMemory) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "under ThreadSanitizer a thread alone costs about a mebibyte, as much as "
                    "the buffer this looks for";
#endif
    // What the first requests load once stays out of the comparison.
    EXPECT_EQ(Fetch(port_, FormHead("/docs/", 3) + "a=1").status, 200);
    long before = ResidentKib(program_->Pid());
    ASSERT_GT(before, 0);
    constexpr int kConnections = 50;
    std::vector<TCPSocket> silent;
    for (int i = 0; i < kConnections; ++i) {
        silent.push_back(ConnectTo(port_));
        SendAll(silent.back(), FormHead("/docs/", HttpRequest::kMaxFormBytes));
    }
    ASSERT_TRUE(testing::WaitUntil([&] { return TheServerHasReadAll(port_, kConnections); }));
    long after = ResidentKib(program_->Pid());
    // Each connection's thread costs some stack (more under sanitizers): tens of KiB, a
    // hundred or two. A buffer sized by the announced length would cost 1 MiB each.
    EXPECT_LT(after - before, kConnections * 256) << before << " KiB before, " << after;
}

}  // namespace
}  // namespace Zarn
