// The real program over real sockets, as browsers, curl and clients that no one here wrote
// drive it: downloads, ranges, redirects and refusals, system files, accounts; HEAD, kept
// and pipelined connections, validators and conditional requests; and requests built to
// hurt the server or to slip past its parsers.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>

#include "core/Base64.h"
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
using testing::ReadResponse;
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

class ServerEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override {
        for (int i = 0; i < 256; ++i)
            content_ += static_cast<char>(i);
        share_.Write("a.bin", content_);
        share_.Write("sub/inner.txt", "inner");
        share_.Write("a.txt", "0123456789abcdef");
        share_.Write("한글.txt", "korean");
        share_.Write("empty.bin", "");
    }
    void Start() {
        RunningShare::Start("mounts+=single.txt|" + (share_ / "a.txt") +
                            "|x|no|x|no\r\nauthorities+=.anonymous|docs|7\r\n");
    }
    // Sends one request on the connection and reads its response.
    static HttpResponse Exchange(TCPSocket& client, const std::string& request) {
        SendAll(client, request);
        return ReadResponse(client, request.starts_with("HEAD "));
    }

    std::string content_;
};

TEST_F(ServerEndToEndTest, DownloadsRedirectsRefusalsAndSystemFiles) {
    constexpr uint64_t kSize = 5ull << 30;
    std::string big = share_ / "big.bin";
    share_.Write("big.bin", "");
    std::filesystem::resize_file(big, kSize);
    FILE* file = std::fopen(big.c_str(), "r+b");
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(::fseeko(file, static_cast<off_t>(kSize - 10), SEEK_SET), 0);
    std::fputs("the end :)", file);
    std::fclose(file);
    Start();
    HttpResponse tail = Visit("/docs/big.bin", "Range: bytes=5368709110-\r\n");
    EXPECT_EQ(tail.Header("Content-Range"), "bytes 5368709110-5368709119/5368709120");
    EXPECT_EQ(tail.body, "the end :)");
    TCPSocket whole = testing::ConnectTo(port_);
    testing::SendAll(whole, "GET /docs/big.bin HTTP/1.1\r\n\r\n");
    EXPECT_TRUE(Contains(testing::ReadHead(whole), "Content-Length: 5368709120\r\n"));
    struct Case {
        const char* target;
        const char* headers;
        int status;
        const char* body;  // null: not checked
    };
    const Case cases[] = {
        {"/docs/a.txt", "Range: bytes=2-5\r\n", 206, "2345"},
        {"/docs/a.txt", "Range: bytes=0-1,5-6\r\n", 501, nullptr},
        {"/docs/a.txt", "Range: bytes=16-\r\n", 416, nullptr},
        {"/docs/a.txt", "Range: items=0-1\r\n", 200, "0123456789abcdef"},
        {"/docs/empty.bin", "", 200, ""},
        {"/single.txt", "", 200, "0123456789abcdef"},
        {"/single.txt/below", "", 404, nullptr},
        // A name sent in code page 949 by an old browser finds the UTF-8 file.
        {"/docs/%C7%D1%B1%DB.txt", "", 200, "korean"},
        {"/docs/%ED%95%9C%EA%B8%80.txt", "", 200, "korean"},
        {"/docs/a%00b", "", 400, nullptr},
        {"/.default/nothing.png?action=SkinFile", "", 404, "404 Not found :("},
        {"/noskin/x.png?action=SkinFile", "", 404, "Unable to find the skin."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.target) + " " + c.headers);
        HttpResponse response = Visit(c.target, c.headers);
        EXPECT_EQ(response.status, c.status);
        EXPECT_TRUE(c.body == nullptr || response.body == c.body) << response.body;
    }
    EXPECT_EQ(Visit("//docs/a.txt").Header("Location"), "/docs/a.txt");
    EXPECT_EQ(Visit("/docs/sub/../a.txt").Header("Location"), "/docs/a.txt");
    EXPECT_EQ(Visit("/docs/%2e%2e/%2e%2e/etc/passwd").Header("Location"), "/etc/passwd");
    EXPECT_EQ(Fetch(port_, "PUT /docs/a.txt HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc").status, 400);
    EXPECT_EQ(Fetch(port_, "get / HTTP/1.1").status, 400);
    // A line break smuggled into a path never reaches a header.
    EXPECT_EQ(Visit("/docs%0d%0aSet-Cookie:%20x=1").Header("Set-Cookie"), "");
    EXPECT_EQ(Visit("/.default/logo.png?action=SkinFile").Header("Content-Type"), "image/png");
    HttpResponse first = Visit("/?action=identify");
    EXPECT_EQ(first.body.size(), 16u);
    EXPECT_EQ(first.body.find_first_not_of("0123456789abcdef"), std::string::npos) << first.body;
    EXPECT_EQ(Visit("/?action=identify").body, first.body);
    EXPECT_NE(Visit("/?action=identify&x=1").body, first.body);  // a root listing instead
}

TEST_F(ServerEndToEndTest, BannedAddressesGetOnlySystemFilesAndAccountsLogInAndOut) {
    RunningShare::Start("ipFilterTable+=127.0.0.*:ban\r\n");
    EXPECT_EQ(Visit("/docs/a.txt").status, 403);
    for (const char* name : {"/robots.txt", "/favicon.ico"}) {
        HttpResponse file = Visit(name);
        EXPECT_EQ(file.status, 200) << name;
        std::string expires = file.Header("Expires");  // "Sun, 23 Nov 2026 14:00:00 GMT"
        EXPECT_TRUE(expires.size() == 29 && expires.ends_with(" GMT")) << expires;
    }

    // Skin developers see their edits at once, on every page the skin makes.
    home_.Write("res/skin/setting.ini", "skin=page.html\r\nmimeType=text/html\r\n");
    home_.Write("res/skin/page.html", "first: $title");
    RunningShare::Start(
        "skinDevelopersMode=1\r\ndefaultSkin=develop\r\nusers+=bob|secret\r\n"
        "authorities+=.anonymous|docs|0\r\nauthorities+=bob|docs|3\r\n");
    EXPECT_EQ(Visit("/nomount/").body, "first: 404 Not Found");
    home_.Write("res/skin/page.html", "second: $title");
    EXPECT_EQ(Visit("/nomount/").body, "second: 404 Not Found");

    std::string bob = "Authorization: Basic " + Base64Encode("bob:secret") + "\r\n";
    for (const auto& [target, headers, status] :
         {std::tuple{"/docs/", "", 401}, std::tuple{"/?action=Login", "", 401},
          std::tuple{"/?action=Login", bob.c_str(), 200},
          std::tuple{"/?action=Logout", bob.c_str(), 401}}) {
        HttpResponse answer = Visit(target, headers);
        EXPECT_EQ(answer.status, status) << target << headers;
        EXPECT_TRUE(status != 401 || answer.Header("WWW-Authenticate") == "Basic realm=\"/\"")
            << target << headers;
    }
}

TEST_F(ServerEndToEndTest, HeadAndValidatorsAnswerAsGetWouldWithoutABody) {
    Start();
    for (const char* target : {"/docs/a.bin", "/docs/", "/docs/missing", "/robots.txt",
                               "/.default/common.js?action=SkinFile"}) {
        SCOPED_TRACE(target);
        HttpResponse get = Visit(target, "Connection: close\r\n");
        TCPSocket client = ConnectTo(port_);
        SendAll(client, std::string("HEAD ") + target +
                            " HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n");
        std::string bytes = ReadToClose(client);
        HttpResponse head = ParseResponse(bytes);
        EXPECT_EQ(head.status_line, get.status_line);
        EXPECT_TRUE(bytes.ends_with("\r\n\r\n")) << "not a byte of body";
        for (const char* name : {"Content-Length", "Content-Type", "ETag", "Last-Modified",
                                 "Accept-Ranges", "Cache-Control"}) {
            EXPECT_EQ(head.Header(name), get.Header(name)) << name;
        }
    }
    // A HEAD may not create what its GET would.
    EXPECT_EQ(Fetch(port_, "HEAD /docs/?action=MakeDirectory&name=x HTTP/1.1").status, 400);
    EXPECT_FALSE(share_.Exists("x"));

    HttpResponse whole = Visit("/docs/a.bin");
    const std::string tag = whole.Header("ETag");
    ASSERT_FALSE(tag.empty());
    auto ask = [&](const std::string& headers) { return Visit("/docs/a.bin", headers + "\r\n"); };
    for (const std::string& condition :
         {"If-None-Match: " + tag, "If-Modified-Since: " + whole.Header("Last-Modified")}) {
        HttpResponse current = ask(condition);
        EXPECT_EQ(current.status, 304) << condition;
        EXPECT_EQ(current.Header("ETag"), tag);
        EXPECT_EQ(current.body, "");
    }
    const std::string ranged = "Range: bytes=0-3\r\nIf-Range: " + tag;
    EXPECT_EQ(ask(ranged).body, content_.substr(0, 4));
    // The file changed since the client's copy: it gets the new one whole, not a splice.
    share_.Write("a.bin", content_ + "grown");
    HttpResponse stale = ask(ranged);
    EXPECT_EQ(stale.status, 200);
    EXPECT_EQ(stale.body, content_ + "grown");
    EXPECT_EQ(ask("If-None-Match: " + tag).status, 200);
}

TEST_F(ServerEndToEndTest, KeptAndPipelinedConnectionsAnswerInOrderAndOldClientsAreClosed) {
    Start();
    TCPSocket client = ConnectTo(port_);
    EXPECT_EQ(Exchange(client, "GET /docs/a.bin HTTP/1.1\r\nHost: t\r\n\r\n").body, content_);
    HttpResponse listing = Exchange(client, "GET /docs/ HTTP/1.1\r\nHost: t\r\n\r\n");
    EXPECT_TRUE(listing.body.ends_with("</html>\n") || listing.body.ends_with("</html>"));
    EXPECT_EQ(Exchange(client, "GET /docs HTTP/1.1\r\nHost: t\r\n\r\n").status, 301);
    EXPECT_EQ(Exchange(client, "GET /.default/common.js?action=SkinFile HTTP/1.1\r\n\r\n").status,
              200);
    // Then all at once, an absolute-form target among them (its authority names this server
    // whatever it says); the last asks to close.
    SendAll(client,
            "GET /docs/sub/inner.txt HTTP/1.1\r\nHost: t\r\n\r\n"
            "HEAD HTTPS://elsewhere.example/docs/a.bin HTTP/1.1\r\nHost: t\r\n\r\n"
            "GET /docs/none HTTP/1.1\r\nHost: t\r\n\r\n"
            "GET /docs/a.bin HTTP/1.1\r\nHost: t\r\nRange: bytes=-3\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(ReadResponse(client).body, "inner");
    EXPECT_EQ(ReadResponse(client, true).Header("Content-Length"), "256");
    EXPECT_EQ(ReadResponse(client).status, 404);
    HttpResponse tail = ReadResponse(client);
    EXPECT_EQ(tail.Header("Connection"), "close");
    EXPECT_EQ(tail.body, content_.substr(253));
    EXPECT_EQ(ReadToClose(client), "");  // and the server hangs up after the last

    TCPSocket old_client = ConnectTo(port_);
    SendAll(old_client, "GET /docs/a.bin HTTP/1.0\r\n\r\n");
    std::string bytes = ReadToClose(old_client);
    EXPECT_TRUE(Contains(bytes, "\r\nConnection:close\r\n\r\n"));
    EXPECT_TRUE(bytes.ends_with(content_));
    TCPSocket kept = ConnectTo(port_);
    HttpResponse first = Exchange(kept, "GET /docs/ HTTP/1.0\r\nConnection: keep-alive\r\n\r\n");
    EXPECT_EQ(first.Header("Connection"), "keep-alive");
    EXPECT_FALSE(first.Header("Content-Length").empty());  // 1.0 knows no chunks
    EXPECT_EQ(Exchange(kept, "GET /docs/a.bin HTTP/1.0\r\n\r\n").body, content_);
    EXPECT_EQ(ReadToClose(kept), "");
}

// A proxy in front that reads the chunked coding passes this along as one request; read by
// its Content-Length, the chunk would be a second one, made by nobody the proxy checked.
TEST_F(ServerEndToEndTest, SmuggledAndOversizedBodiesAreRefusedUnreadAndTheConnectionCloses) {
    Start();
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

TEST_F(ServerEndToEndTest, SilentClientsAnnouncingLargeFormsCostTheServerNoMemory) {
    Start();
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
