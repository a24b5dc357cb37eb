// The owner's console against the real program, over real sockets: only the owner gets
// in, nothing changes but through a checked POST, and what changes applies and is saved.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "support/HttpClient.h"
#include "support/ProgramRunner.h"
#include "support/TempFolder.h"
#include "support/WaitUntil.h"

namespace Zarn {
namespace {

using testing::ConnectTo;
using testing::Fetch;
using testing::HttpResponse;
using testing::ProgramRunner;
using testing::SendAll;
using testing::TempFolder;
using testing::WaitUntil;

// The digits after the first (or last) occurrence of `key`; empty when there are none.
std::string NumberAfter(const std::string& text, const std::string& key, bool last) {
    size_t at = last ? text.rfind(key) : text.find(key);
    if (at == std::string::npos) return {};
    at += key.size();
    size_t end = text.find_first_not_of("0123456789", at);
    return text.substr(at, end == std::string::npos ? std::string::npos : end - at);
}

class ConsoleEndToEndTest : public ::testing::Test {
protected:
    void Start(const std::string& settings = "") {
        share_.Write("a.txt", "shared");
        home_.Write("mount.ini", "mounts+=docs|" + share_.Path() +
                                     "|x|yes|x|no\r\nuiLanguageFile=English.wul\r\n"
                                     "consolePort=0\r\n" +
                                     settings);
        program_ = std::make_unique<ProgramRunner>(home_.Path());
        std::string line = program_->NextLine();
        const std::string prefix = "Owner's console: http://127.0.0.1:";
        size_t token_at = line.find("/?token=");
        ASSERT_TRUE(line.starts_with(prefix) && token_at != std::string::npos) << line;
        console_port_ = std::stoi(line.substr(prefix.size()));
        token_ = line.substr(token_at + 8);
        ASSERT_EQ(token_.size(), 32u) << line;
        host_ = "Host: 127.0.0.1:" + std::to_string(console_port_) + "\r\n";
        cookie_ = "Cookie: lumidrop_console=" + token_ + "\r\n";
    }

    HttpResponse Console(const std::string& method, const std::string& target,
                         const std::string& headers, const std::string& body = "") {
        std::string request =
            method + " " + target + " HTTP/1.1\r\n" + headers + "Connection: close\r\n";
        if (method == "POST") {
            request += "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                       std::to_string(body.size()) + "\r\n";
        }
        return Fetch(console_port_, request + "\r\n" + body);
    }
    HttpResponse Owner(const std::string& target) {
        return Console("GET", target, host_ + cookie_);
    }
    HttpResponse Change(const std::string& target, const std::string& body,
                        const std::string& extra = "X-Lumidrop-Console: 1\r\n") {
        return Console("POST", target, host_ + cookie_ + extra, body);
    }

    TempFolder share_;
    TempFolder home_;
    std::unique_ptr<ProgramRunner> program_;
    int console_port_ = -1;
    std::string token_;
    std::string host_;
    std::string cookie_;
};

TEST_F(ConsoleEndToEndTest, OnlyTheOwnerGetsInAndNothingChangesButThroughACheckedPost) {
    Start();
    struct stat info {};
    ASSERT_EQ(::stat((home_ / "console.token").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(home_.Read("console.token"), token_ + "\n");

    // No token, a wrong one, a foreign Host (DNS rebinding) or no cookie: 403.
    EXPECT_EQ(Console("GET", "/api/v1/status", host_).status, 403);
    EXPECT_EQ(Console("GET", "/?token=" + std::string(32, '0'), host_).status, 403);
    EXPECT_EQ(Console("GET", "/?token=" + token_,
                      "Host: evil.example:" + std::to_string(console_port_) + "\r\n")
                  .status,
              403);
    EXPECT_EQ(Console("GET", "/api/v1/status", "Host: evil.example\r\n" + cookie_).status, 403);
    EXPECT_EQ(Console("GET", "/api/v1/status",
                      host_ + "Cookie: lumidrop_console=" + std::string(32, 'a') + "\r\n")
                  .status,
              403);

    // The token is swapped for a cookie the page's script cannot read nor another site send.
    HttpResponse admitted = Console("GET", "/?token=" + token_, host_);
    EXPECT_EQ(admitted.status, 303);
    EXPECT_EQ(admitted.Header("Location"), "/");
    EXPECT_EQ(admitted.Header("Set-Cookie"),
              "lumidrop_console=" + token_ + "; Path=/; HttpOnly; SameSite=Strict");

    HttpResponse status = Owner("/api/v1/status");
    EXPECT_EQ(status.status, 200);
    EXPECT_EQ(status.Header("Content-Type"), "application/json; charset=utf-8");
    EXPECT_NE(status.body.find("\"listening\":true"), std::string::npos) << status.body;
    EXPECT_NE(status.body.find("\"port\":" + std::to_string(program_->Port())), std::string::npos);

    // Changes: GET, a missing header, a foreign Origin are refused and change nothing.
    const std::string limit = "totalDownloadSpeedLimit=123";
    EXPECT_EQ(Owner("/api/v1/limits/set?" + limit).status, 403);
    EXPECT_EQ(Change("/api/v1/limits/set", limit, "").status, 403);
    EXPECT_EQ(Change("/api/v1/limits/set", limit,
                     "X-Lumidrop-Console: 1\r\nOrigin: http://evil.example\r\n")
                  .status,
              403);
    EXPECT_EQ(home_.Read("mount.ini").find("totalDownloadSpeedLimit=123"), std::string::npos);
    EXPECT_NE(Owner("/api/v1/limits").body.find("\"totalDownloadSpeedLimit\":-1"),
              std::string::npos);

    // The console's own POST applies and is saved at once.
    HttpResponse changed = Change("/api/v1/limits/set", limit,
                                  "X-Lumidrop-Console: 1\r\nOrigin: http://127.0.0.1:" +
                                      std::to_string(console_port_) + "\r\n");
    EXPECT_EQ(changed.status, 200) << changed.body;
    EXPECT_NE(changed.body.find("\"totalDownloadSpeedLimit\":123"), std::string::npos);
    EXPECT_NE(home_.Read("mount.ini").find("totalDownloadSpeedLimit=123"), std::string::npos);
    // The next download keeps the new limit: 256 KiB at 123 KiB/s takes about 2 s.
    share_.Write("quarter.bin", std::string(256 * 1024, 'q'));
    auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(testing::Get(program_->Port(), "/docs/quarter.bin").body.size(), 256u * 1024);
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(1500));
    HttpResponse bad = Change("/api/v1/limits/set", "downloadConnectionLimit=-5");
    EXPECT_EQ(bad.status, 400);
    EXPECT_NE(bad.body.find("\"field\":\"downloadConnectionLimit\""), std::string::npos);
    EXPECT_NE(bad.body.find("The value is not valid."), std::string::npos);

    // Each listener keeps to its own: no shared files on the console, no console for
    // visitors.
    EXPECT_EQ(Owner("/docs/a.txt").status, 404);
    EXPECT_EQ(testing::Get(program_->Port(), "/api/v1/status").status, 404);
    EXPECT_EQ(testing::Get(program_->Port(), "/docs/a.txt").body, "shared");
}

TEST_F(ConsoleEndToEndTest, TheOwnerSeesAndKicksARunningDownloadAndReadsTheLog) {
    share_.Write("big.bin", std::string(1 << 20, 'b'));
    Start("totalDownloadSpeedLimit=50\r\n");
    std::atomic<bool> ended{false};
    std::string received;
    // Joined on every way out, also when a check fails before the kick.
    std::jthread visitor([&] {
        TCPSocket socket = ConnectTo(program_->Port());
        SendAll(socket, "GET /docs/big.bin HTTP/1.1\r\nHost: t\r\n\r\n");
        received = testing::ReadToClose(socket);
        ended = true;
    });
    std::string id;
    ASSERT_TRUE(WaitUntil([&] {
        HttpResponse transfers = Owner("/api/v1/transfers");
        std::string found = NumberAfter(transfers.body, "\"id\":", false);
        if (found.empty()) return false;
        EXPECT_NE(transfers.body.find("\"file\":\"/docs/big.bin\""), std::string::npos);
        EXPECT_NE(transfers.body.find("\"kind\":\"download\""), std::string::npos);
        EXPECT_NE(transfers.body.find("\"client\":\"127.0.0.1\""), std::string::npos);
        id = found;
        return true;
    }));
    // Its row moves with the bytes that leave.
    EXPECT_TRUE(WaitUntil([&] {
        std::string position = NumberAfter(Owner("/api/v1/transfers").body, "\"position\":", false);
        return !position.empty() && std::stoull(position) > 0;
    }));
    EXPECT_EQ(Change("/api/v1/transfers/kick", "id=" + id).status, 200);
    ASSERT_TRUE(WaitUntil([&] { return ended.load(); }));
    EXPECT_LT(received.size(), size_t{1} << 20);  // cut off long before its end
    EXPECT_EQ(Change("/api/v1/transfers/kick", "id=" + id).status, 404);  // already over

    ASSERT_TRUE(WaitUntil([&] {
        return Owner("/api/v1/log").body.find("Connection was kicked.") != std::string::npos;
    }));
    std::string last = NumberAfter(Owner("/api/v1/log").body, "\"id\":", true);
    ASSERT_FALSE(last.empty());
    // A page that has seen every line asks for what came after it.
    EXPECT_EQ(Owner("/api/v1/log?after=" + last).body.find("kicked"), std::string::npos);
}

// The pages run under "default-src 'self'": whatever they need must be a file the console
// itself serves, with the type a browser demands of a module, and their texts arrive
// translated in the owner's language.
TEST_F(ConsoleEndToEndTest, ThePagesLoadOnlyTheirOwnFilesAndGetTheirTextsTranslated) {
    Start();
    HttpResponse page = Owner("/");
    ASSERT_EQ(page.status, 200);
    EXPECT_EQ(page.Header("Content-Security-Policy").find("default-src 'self'"), 0u);
    // An inline script or style would be blocked, and the view would silently not work.
    EXPECT_EQ(page.body.find("<script>"), std::string::npos);
    EXPECT_EQ(page.body.find(" style="), std::string::npos);
    EXPECT_EQ(page.body.find("http"), std::string::npos);
    EXPECT_NE(page.body.find("<script type=\"module\" src=\"console.js\">"), std::string::npos);
    EXPECT_EQ(Owner("/console.css").Header("Content-Type"), "text/css; charset=utf-8");

    std::vector<std::string> modules = {"console.js"};
    for (size_t i = 0; i < modules.size(); ++i) {
        HttpResponse module = Owner("/" + modules[i]);
        ASSERT_EQ(module.status, 200) << modules[i];
        EXPECT_EQ(module.Header("Content-Type"), "text/javascript; charset=utf-8");
        const std::string from = "from \"./";
        for (size_t at = module.body.find(from); at != std::string::npos;
             at = module.body.find(from, at + 1)) {
            size_t begin = at + from.size();
            std::string name = module.body.substr(begin, module.body.find('"', begin) - begin);
            if (std::find(modules.begin(), modules.end(), name) == modules.end()) {
                modules.push_back(name);
            }
        }
    }
    EXPECT_GE(modules.size(), 8u);  // the entry, what views share, and one per view

    HttpResponse texts = Owner("/api/v1/texts");
    EXPECT_EQ(texts.status, 200);
    EXPECT_EQ(texts.Header("Content-Type"), "application/json; charset=utf-8");
    EXPECT_EQ(texts.body.front(), '{');
    EXPECT_NE(texts.body.find("\"로그\":\"Log\""), std::string::npos) << texts.body;
    EXPECT_NE(texts.body.find("\"끊기\":\"Kick\""), std::string::npos);
    // Only the pages' own keys: the program's other texts are not handed out.
    EXPECT_EQ(texts.body.find("찾을 수 없습니다."), std::string::npos);
    EXPECT_EQ(Console("GET", "/api/v1/texts", host_).status, 403);
}

}  // namespace
}  // namespace Zarn
