// The owner's console against the real program, over real sockets: only the owner gets
// in, nothing changes but through a checked POST, what changes applies and is saved, the
// settings reach the next visitor, and the QR code of the Home page is the symbol of
// exactly the text asked for.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "core/QrCode.h"
#include "core/UrlCodec.h"
#include "net/TCPServerSocket.h"
#include "support/RunningShare.h"
#include "support/WaitUntil.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;

// The whole answer to one request sent to [::1]:port; empty when ::1 cannot be reached.
std::string AskOverIPv6(int port, const std::string& request) {
    int handle = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(static_cast<uint16_t>(port));
    address.sin6_addr = in6addr_loopback;
    std::string answer;
    if (::connect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::send(handle, request.data(), request.size(), MSG_NOSIGNAL) ==
            static_cast<ssize_t>(request.size())) {
        char buffer[4096];
        for (ssize_t got; (got = ::recv(handle, buffer, sizeof buffer, 0)) > 0;)
            answer.append(buffer, static_cast<size_t>(got));
    }
    if (handle >= 0) ::close(handle);
    return answer;
}

class ConsoleEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override {
        share_.Write("a.txt", "shared");
        StartWithConsole();
    }
    HttpResponse Set(const std::string& form) const { return console_->Post("settings/set", form); }
    bool ListsSecret() const { return Contains(Visit("/docs/").body, ".secret"); }
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
    };
    for (const auto& [target, headers] : strangers)
        EXPECT_EQ(console.Request("GET", target, headers).status, 403) << target << headers;

    // The token is swapped for a cookie the page's script cannot read nor another site send.
    HttpResponse admitted = console.Request("GET", "/?token=" + token, console.Host());
    EXPECT_EQ(admitted.status, 303);
    EXPECT_EQ(admitted.Header("Location"), "/");
    EXPECT_EQ(admitted.Header("Set-Cookie"),
              "lumidrop_console=" + token + "; Path=/; HttpOnly; SameSite=Strict");
    EXPECT_TRUE(Contains(console.Get("status").body, "\"port\":" + std::to_string(port_)));

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
    if (TCPServerSocket probe; !probe.Listen(0, "::1")) GTEST_SKIP() << "no IPv6 loopback here";
    const testing::ConsoleSession& console = *console_;
    const std::string host = "Host: [::1]:" + std::to_string(console.Port()) + "\r\n";
    const std::string cookie = "Cookie: lumidrop_console=" + console.Token() + "\r\n";
    auto ask = [&](const std::string& head, const std::string& form = "") {
        return AskOverIPv6(console.Port(), head + "Connection: close\r\n\r\n" + form);
    };

    std::string status = ask("GET /api/v1/status HTTP/1.1\r\n" + host + cookie);
    EXPECT_TRUE(status.starts_with("HTTP/1.1 200 ")) << status;
    EXPECT_TRUE(Contains(status, "\"port\":" + std::to_string(port_))) << status;
    // The same refusals as on 127.0.0.1: no cookie, a foreign Host, a change by GET.
    for (const std::string& refused :
         {"GET /api/v1/status HTTP/1.1\r\n" + host,
          "GET /api/v1/status HTTP/1.1\r\nHost: evil.example\r\n" + cookie,
          "GET /api/v1/limits/set?totalDownloadSpeedLimit=7 HTTP/1.1\r\n" + host + cookie})
        EXPECT_TRUE(ask(refused).starts_with("HTTP/1.1 403 ")) << refused;
    // The console's own page at [::1] may change things, with its own origin.
    const std::string form = "totalDownloadSpeedLimit=77";
    std::string changed =
        ask("POST /api/v1/limits/set HTTP/1.1\r\n" + host + cookie +
                "X-Lumidrop-Console: 1\r\nOrigin: http://[::1]:" + std::to_string(console.Port()) +
                "\r\nContent-Type: application/x-www-form-urlencoded\r\n"
                "Content-Length: " +
                std::to_string(form.size()) + "\r\n",
            form);
    EXPECT_TRUE(changed.starts_with("HTTP/1.1 200 ")) << changed;
    EXPECT_TRUE(Contains(home_.Read("mount.ini"), form));
}

// The pages run under "default-src 'self'" and get only their own texts, translated; the
// QR code is the symbol of the very text asked for, and refuses what no symbol can hold.
TEST_F(ConsoleEndToEndTest, PagesKeepToTheirOwnFilesAndTextsAndQrCodesHoldExactlyTheText) {
    HttpResponse page = console_->Request("GET", "/", console_->Owner());
    EXPECT_EQ(page.Header("Content-Security-Policy").find("default-src 'self'"), 0u);
    EXPECT_FALSE(Contains(page.body, "<script>") || Contains(page.body, " style=") ||
                 Contains(page.body, "http"));
    std::string texts = console_->Get("texts").body;
    EXPECT_TRUE(Contains(texts, "\"로그\":\"Log\"") && Contains(texts, "\"끊기\":\"Kick\""))
        << texts;
    EXPECT_FALSE(Contains(texts, "찾을 수 없습니다."));

    // Percent-encoded UTF-8 as the page's encodeURIComponent sends it, "+" included.
    const std::string address = "http://192.168.0.10:" + std::to_string(port_) + "/사진+a b?x=1&y";
    HttpResponse image = console_->Get("qr?text=" + UrlEncode(address));
    ASSERT_EQ(image.status, 200) << image.body;
    EXPECT_EQ(image.Header("Content-Type"), "image/svg+xml");
    EXPECT_EQ(image.Header("X-Content-Type-Options"), "nosniff");
    // That a phone reads it is the Home page's test.
    EXPECT_EQ(image.body, QrCode::Encode(address)->ToSvg());
    for (const std::string& target :
         {std::string("qr"), std::string("qr?text="), "qr?text=" + std::string(2332, 'a')}) {
        HttpResponse refusal = console_->Get(target);
        EXPECT_EQ(refusal.status, 400) << target.substr(0, 20);
        EXPECT_TRUE(Contains(refusal.body, "\"field\":\"text\"")) << refusal.body;
    }
    EXPECT_EQ(console_->Get("qr?text=" + std::string(2331, 'a')).status, 200);
}

// Settings: each change is seen by the next visitor and saved, or refused whole when one
// field is wrong. What each value may be is the settings catalogue's own test; the language
// switch and the visitors' address are watched in the browser.
TEST_F(ConsoleEndToEndTest, SettingsReachTheNextVisitorAreSavedAtOnceOrRefusedWhole) {
    share_.Write(".secret", "hidden");
    const std::string saved = home_.Read("mount.ini");
    TCPServerSocket holder;
    ASSERT_TRUE(holder.Listen(0));
    const struct {
        std::string form, field;
        int status;
    } refusals[] = {
        {"showHiddenFiles=1&port=70000", "port", 400},
        // A documentation address no machine has as its own.
        {"showHiddenFiles=1&preferredLancardAddress=203.0.113.77", "preferredLancardAddress", 400},
        {"", "", 400},
        {"showHiddenFiles=1&port=" + std::to_string(holder.GetLocalPort()), "port", 409},
    };
    for (const auto& refusal : refusals) {
        HttpResponse refused = Set(refusal.form);
        EXPECT_EQ(refused.status, refusal.status) << refusal.form << " " << refused.body;
        EXPECT_TRUE(Contains(refused.body, "\"field\":\"" + refusal.field + "\""))
            << refusal.form << " " << refused.body;
    }
    EXPECT_EQ(console_->Get("settings/set?showHiddenFiles=1").status, 403);
    EXPECT_EQ(console_->Post("settings/set", "showHiddenFiles=1", "").status, 403);
    EXPECT_EQ(home_.Read("mount.ini"), saved);
    EXPECT_FALSE(ListsSecret());
    EXPECT_EQ(Visit("/docs/a.txt").body, "shared");  // the listener stayed where it was

    // Several at once, each in effect and all in the one saved file.
    HttpResponse changed = Set("showHiddenFiles=1&canRootAccess=0&keepAliveTimeout=30");
    EXPECT_TRUE(Contains(changed.body, "\"showHiddenFiles\":true")) << changed.body;
    EXPECT_TRUE(ListsSecret());
    EXPECT_EQ(Visit("/").status, 403);
    for (const char* line : {"showHiddenFiles=1", "canRootAccess=0", "keepAliveTimeout=30"})
        EXPECT_TRUE(Contains(home_.Read("mount.ini"), std::string("\r\n") + line + "\r\n")) << line;

    // Skins: listed with a preview address, and chosen at once.
    const std::string preview = "http://127.0.0.1:" + std::to_string(port_) + "/?skin=.default";
    EXPECT_TRUE(Contains(console_->Get("skins").body,
                         "\"name\":\".default\",\"builtIn\":true,\"preview\":\"" + preview));
    ASSERT_EQ(Set("defaultSkin=.default&skinDevelopersMode=1").status, 200);
    EXPECT_EQ(Visit("/docs/").status, 200);
    EXPECT_TRUE(Contains(console_->Get("skins").body, "\"developersMode\":true"));

    // What was saved is what the next start reads.
    Relaunch();
    EXPECT_TRUE(ListsSecret());
    EXPECT_EQ(Visit("/").status, 403);
}

// Visitors' threads read the settings on every request while the console writes them:
// each listing sees the old value or the new one, never a failure, and the last change
// holds. Under ThreadSanitizer this is the test that catches an unguarded setting.
TEST_F(ConsoleEndToEndTest, VisitorsKeepBeingServedWhileTheOwnerFlipsSettings) {
    share_.Write(".secret", "hidden");
    std::atomic<bool> done = false;
    std::atomic<int> listings = 0, failures = 0;
    std::thread visitor([&] {
        for (; !done; ++listings) {
            HttpResponse listing = Visit("/docs/");
            if (listing.status != 200 || !Contains(listing.body, "a.txt")) ++failures;
        }
    });
    for (int i = 0; i < 20; ++i) {
        std::string flag = i % 2 == 0 ? "1" : "0";
        EXPECT_EQ(Set("showHiddenFiles=" + flag + "&keepAliveTimeout=" + std::to_string(10 + i) +
                      "&canRootAccess=" + flag)
                      .status,
                  200);
    }
    EXPECT_TRUE(testing::WaitUntil([&] { return listings >= 5; }));
    done = true;
    visitor.join();
    EXPECT_EQ(failures, 0) << "of " << listings;
    EXPECT_FALSE(ListsSecret());  // the twentieth change turned hidden files off again
}

}  // namespace
}  // namespace Zarn
