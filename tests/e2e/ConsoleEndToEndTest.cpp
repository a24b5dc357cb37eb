// The owner's console against the real program, over real sockets: only the owner gets
// in, nothing changes but through a checked POST, and what changes applies and is saved.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>

#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;

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
    // The next download keeps the new limit: 256 KiB at 123 KiB/s takes about 2 s.
    share_.Write("quarter.bin", std::string(256 * 1024, 'q'));
    auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(Visit("/docs/quarter.bin").body.size(), 256u * 1024);
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(1500));
    HttpResponse bad = console.Post("limits/set", "downloadConnectionLimit=-5");
    EXPECT_EQ(bad.status, 400);
    EXPECT_TRUE(Contains(bad.body, "\"field\":\"downloadConnectionLimit\""));
    EXPECT_TRUE(Contains(bad.body, "The value is not valid."));

    // Each listener keeps to its own: no shared files on the console, no console for
    // visitors.
    EXPECT_EQ(console.Request("GET", "/docs/a.txt", console.Owner()).status, 404);
    EXPECT_EQ(Visit("/api/v1/status").status, 404);
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

}  // namespace
}  // namespace Zarn
