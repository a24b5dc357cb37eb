// The owner's console against the real program, over real sockets: only the owner gets
// in, nothing changes but through a checked POST, what changes applies and is saved, and
// the QR code of the Home page is the symbol of exactly the text asked for.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "core/QrCode.h"
#include "core/UrlCodec.h"
#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;

// The whole answer to one request sent to [::1]:port; nothing when ::1 cannot be reached.
std::optional<std::string> AskOverIPv6(int port, const std::string& request) {
    int handle = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (handle < 0) return std::nullopt;
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(static_cast<uint16_t>(port));
    address.sin6_addr = in6addr_loopback;
    std::optional<std::string> answer;
    if (::connect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::send(handle, request.data(), request.size(), MSG_NOSIGNAL) ==
            static_cast<ssize_t>(request.size())) {
        answer.emplace();
        char buffer[4096];
        for (ssize_t got; (got = ::recv(handle, buffer, sizeof buffer, 0)) > 0;)
            answer->append(buffer, static_cast<size_t>(got));
    }
    ::close(handle);
    return answer;
}

// Whether this machine has an IPv6 loopback to listen on at all.
bool HasIPv6Loopback() {
    int handle = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (handle < 0) return false;
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    bool bound = ::bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(handle);
    return bound;
}

class ConsoleEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override {
        share_.Write("a.txt", "shared");
        StartWithConsole();
    }
};

TEST_F(ConsoleEndToEndTest, OnlyTheOwnerGetsInAndNothingChangesButThroughACheckedPost) {
    const testing::ConsoleSession& console = *console_;
    const std::string& token = console.Token();
    ASSERT_EQ(token.size(), 32u);
    struct stat info {};
    ASSERT_EQ(::stat((home_ / "console.token").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(home_.Read("console.token"), token + "\n");

    // No token, a wrong one, a foreign Host (DNS rebinding) or no cookie: 403.
    const std::pair<std::string, std::string> strangers[] = {
        {"/api/v1/status", console.Host()},
        {"/?token=" + std::string(32, '0'), console.Host()},
        {"/?token=" + token, "Host: evil.example:" + std::to_string(console.Port()) + "\r\n"},
        {"/api/v1/status", "Host: evil.example\r\nCookie: lumidrop_console=" + token + "\r\n"},
        {"/api/v1/status",
         console.Host() + "Cookie: lumidrop_console=" + std::string(32, 'a') + "\r\n"},
        {"/api/v1/texts", console.Host()},
    };
    for (const auto& [target, headers] : strangers)
        EXPECT_EQ(console.Request("GET", target, headers).status, 403) << target << headers;

    // The token is swapped for a cookie the page's script cannot read nor another site send.
    HttpResponse admitted = console.Request("GET", "/?token=" + token, console.Host());
    EXPECT_EQ(admitted.status, 303);
    EXPECT_EQ(admitted.Header("Location"), "/");
    EXPECT_EQ(admitted.Header("Set-Cookie"),
              "lumidrop_console=" + token + "; Path=/; HttpOnly; SameSite=Strict");
    HttpResponse status = console.Get("status");
    EXPECT_TRUE(Contains(status.body, "\"port\":" + std::to_string(port_))) << status.body;

    // Changes: GET, a missing header, a foreign Origin are refused and change nothing.
    const std::string limit = "totalDownloadSpeedLimit=123";
    EXPECT_EQ(console.Get("limits/set?" + limit).status, 403);
    EXPECT_EQ(console.Post("limits/set", limit, "").status, 403);
    EXPECT_EQ(
        console
            .Post("limits/set", limit, "X-Lumidrop-Console: 1\r\nOrigin: http://evil.example\r\n")
            .status,
        403);
    EXPECT_FALSE(Contains(home_.Read("mount.ini"), limit));
    EXPECT_TRUE(Contains(console.Get("limits").body, "\"totalDownloadSpeedLimit\":-1"));

    // The console's own POST applies and is saved at once.
    HttpResponse changed = console.Post("limits/set", limit,
                                        "X-Lumidrop-Console: 1\r\nOrigin: http://127.0.0.1:" +
                                            std::to_string(console.Port()) + "\r\n");
    EXPECT_TRUE(Contains(changed.body, "\"totalDownloadSpeedLimit\":123")) << changed.body;
    EXPECT_TRUE(Contains(home_.Read("mount.ini"), limit));

    // Each listener keeps to its own: no shared files on the console, no console for
    // visitors.
    EXPECT_EQ(console.Request("GET", "/docs/a.txt", console.Owner()).status, 404);
    EXPECT_EQ(Visit("/api/v1/status").status, 404);
}

TEST_F(ConsoleEndToEndTest, TheIPv6LoopbackServesTheOwnerAloneAtTheSamePort) {
    if (!HasIPv6Loopback()) GTEST_SKIP() << "no IPv6 loopback on this machine";
    const testing::ConsoleSession& console = *console_;
    const std::string host = "Host: [::1]:" + std::to_string(console.Port()) + "\r\n";
    const std::string cookie = "Cookie: lumidrop_console=" + console.Token() + "\r\n";
    auto ask = [&](const std::string& head) {
        return AskOverIPv6(console.Port(), head + "Connection: close\r\n\r\n").value_or("");
    };

    std::string status = ask("GET /api/v1/status HTTP/1.1\r\n" + host + cookie);
    EXPECT_TRUE(status.starts_with("HTTP/1.1 200 ")) << status;
    EXPECT_TRUE(Contains(status, "\"port\":" + std::to_string(port_))) << status;
    // The same refusals as on 127.0.0.1: no cookie, a foreign Host, a change by GET.
    EXPECT_TRUE(ask("GET /api/v1/status HTTP/1.1\r\n" + host).starts_with("HTTP/1.1 403 "));
    EXPECT_TRUE(ask("GET /api/v1/status HTTP/1.1\r\nHost: evil.example\r\n" + cookie)
                    .starts_with("HTTP/1.1 403 "));
    EXPECT_TRUE(ask("GET /api/v1/limits/set?totalDownloadSpeedLimit=7 HTTP/1.1\r\n" + host + cookie)
                    .starts_with("HTTP/1.1 403 "));
    // The console's own page at [::1] may change things, with its own origin.
    const std::string form = "totalDownloadSpeedLimit=77";
    std::string changed =
        ask("POST /api/v1/limits/set HTTP/1.1\r\n" + host + cookie +
            "X-Lumidrop-Console: 1\r\nOrigin: http://[::1]:" + std::to_string(console.Port()) +
            "\r\nContent-Type: application/x-www-form-urlencoded\r\n"
            "Content-Length: " +
            std::to_string(form.size()) + "\r\n\r\n" + form);
    EXPECT_TRUE(changed.starts_with("HTTP/1.1 200 ")) << changed;
    EXPECT_TRUE(Contains(home_.Read("mount.ini"), form));
}

// The pages run under "default-src 'self'", and get only their own texts, translated.
TEST_F(ConsoleEndToEndTest, ThePagesAllowOnlyTheirOwnFilesAndGetOnlyTheirOwnTexts) {
    HttpResponse page = console_->Request("GET", "/", console_->Owner());
    EXPECT_EQ(page.Header("Content-Security-Policy").find("default-src 'self'"), 0u);
    EXPECT_FALSE(Contains(page.body, "<script>") || Contains(page.body, " style=") ||
                 Contains(page.body, "http"));
    HttpResponse texts = console_->Get("texts");
    EXPECT_EQ(texts.Header("Content-Type"), "application/json; charset=utf-8");
    EXPECT_TRUE(Contains(texts.body, "\"로그\":\"Log\"")) << texts.body;
    EXPECT_TRUE(Contains(texts.body, "\"끊기\":\"Kick\""));
    EXPECT_FALSE(Contains(texts.body, "찾을 수 없습니다."));
}

// The QR code of the Home page: the symbol of the very text asked for, and a refusal of
// what no symbol can hold.
TEST_F(ConsoleEndToEndTest, QrCodesAreTheSymbolOfTheTextAndRefuseWhatNoneHolds) {
    const testing::ConsoleSession& console = *console_;
    // Percent-encoded UTF-8 as the page's encodeURIComponent sends it, "+" included.
    const std::string address = "http://192.168.0.10:" + std::to_string(port_) + "/사진+a b?x=1&y";
    HttpResponse image = console.Get("qr?text=" + UrlEncode(address));
    ASSERT_EQ(image.status, 200) << image.body;
    EXPECT_EQ(image.Header("Content-Type"), "image/svg+xml");
    EXPECT_EQ(image.Header("Cache-Control"), "no-store");
    EXPECT_EQ(image.Header("X-Content-Type-Options"), "nosniff");
    // Sharp at any size: a blurred edge between modules is what a camera misreads.
    EXPECT_NE(image.body.find("shape-rendering=\"crispEdges\""), std::string::npos);
    // The symbol of exactly the decoded text; that a phone reads it is the Home page's test.
    EXPECT_EQ(image.body, QrCode::Encode(address)->ToSvg());

    const std::string kRefused[] = {"qr", "qr?text=", "qr?text=" + std::string(2332, 'a')};
    for (const std::string& target : kRefused) {
        HttpResponse refusal = console.Get(target);
        EXPECT_EQ(refusal.status, 400) << target.substr(0, 20);
        EXPECT_EQ(refusal.Header("Content-Type"), "application/json; charset=utf-8");
        EXPECT_NE(refusal.body.find("\"field\":\"text\""), std::string::npos) << refusal.body;
    }
    EXPECT_EQ(console.Get("qr?text=" + std::string(2331, 'a')).status, 200);

    // Only the owner may have it made.
    EXPECT_EQ(console.Request("GET", "/api/v1/qr?text=x", console.Host()).status, 403);
}

}  // namespace
}  // namespace Zarn
