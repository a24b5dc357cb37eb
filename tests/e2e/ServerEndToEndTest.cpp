// Drives the real program over real sockets, as a browser or curl would.

#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

#include "core/Base64.h"
#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::Fetch;
using testing::HttpResponse;

class ServerEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override {
        share_.Write("a.txt", "0123456789abcdef");
        share_.Write("한글.txt", "korean");
        share_.Write("empty.bin", "");
    }
    void Start(const std::string& settings = "") {
        RunningShare::Start("mounts+=single.txt|" + (share_ / "a.txt") + "|x|no|x|no\r\n" +
                            settings);
    }
};

TEST_F(ServerEndToEndTest, DownloadsRedirectsRefusalsAndSystemFiles) {
    Start();
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
    Start("ipFilterTable+=127.0.0.*:ban\r\n");
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
    Start(
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

TEST_F(ServerEndToEndTest, ServesRangesOfFilesBeyondFourGigabytes) {
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
}

}  // namespace
}  // namespace Zarn
