// Drives the real program over real sockets, as a browser or curl would.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "core/Base64.h"
#include "net/TCPServerSocket.h"
#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::Fetch;
using testing::HttpResponse;
using testing::ProgramRunner;
using testing::TempFolder;

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

TEST_F(ServerEndToEndTest, DownloadsWholeFilesAndRanges) {
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
        // A suffix is placed only once the size is known: it must not win over the range
        // the client named first.
        {"/docs/a.txt", "Range: bytes=2-5,-3\r\n", 501, nullptr},
        {"/docs/a.txt", "Range: bytes=2-5,-12\r\n", 206, "23456789abcdef"},
        {"/docs/a.txt", "Range: bytes=16-\r\n", 416, nullptr},
        {"/docs/a.txt", "Range: items=0-1\r\n", 200, "0123456789abcdef"},
        {"/docs/empty.bin", "", 200, ""},
        {"/single.txt", "", 200, "0123456789abcdef"},
        {"/single.txt/below", "", 404, nullptr},
        // A name sent in code page 949 by an old browser finds the UTF-8 file.
        {"/docs/%C7%D1%B1%DB.txt", "", 200, "korean"},
        {"/docs/%ED%95%9C%EA%B8%80.txt", "", 200, "korean"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.target) + " " + c.headers);
        HttpResponse response = Visit(c.target, c.headers);
        EXPECT_EQ(response.status, c.status);
        EXPECT_TRUE(c.body == nullptr || response.body == c.body) << response.body;
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

TEST_F(ServerEndToEndTest, RedirectsAndRefusesOddRequests) {
    Start();
    EXPECT_EQ(Visit("//docs/a.txt").Header("Location"), "/docs/a.txt");
    EXPECT_EQ(Visit("/docs/sub/../a.txt").Header("Location"), "/docs/a.txt");
    EXPECT_EQ(Visit("/docs/%2e%2e/%2e%2e/etc/passwd").Header("Location"), "/etc/passwd");
    EXPECT_EQ(Fetch(port_, "PUT /docs/a.txt HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc").status, 400);
    EXPECT_EQ(Fetch(port_, "get / HTTP/1.1").status, 400);
    EXPECT_EQ(Visit("/docs/a%00b").status, 400);
    // A line break smuggled into a path never reaches a header.
    EXPECT_EQ(Visit("/docs%0d%0aSet-Cookie:%20x=1").Header("Set-Cookie"), "");
}

TEST_F(ServerEndToEndTest, ServesSystemFilesEvenToBannedAddressesAndIdentifies) {
    Start("ipFilterTable+=127.0.0.*:ban\r\n");
    EXPECT_EQ(Visit("/docs/a.txt").status, 403);
    for (const char* name : {"/robots.txt", "/favicon.ico"}) {
        HttpResponse file = Visit(name);
        EXPECT_EQ(file.status, 200) << name;
        std::string expires = file.Header("Expires");  // "Sun, 23 Nov 2026 14:00:00 GMT"
        EXPECT_TRUE(expires.size() == 29 && expires.ends_with(" GMT")) << expires;
    }
    Start();
    EXPECT_EQ(Visit("/.default/logo.png?action=SkinFile").Header("Content-Type"), "image/png");
    EXPECT_EQ(Visit("/.default/nothing.png?action=SkinFile").body, "404 Not found :(");
    EXPECT_EQ(Visit("/noskin/x.png?action=SkinFile").body, "Unable to find the skin.");
    HttpResponse first = Visit("/?action=identify");
    EXPECT_EQ(first.body.size(), 16u);
    EXPECT_EQ(first.body.find_first_not_of("0123456789abcdef"), std::string::npos) << first.body;
    EXPECT_EQ(Visit("/?action=identify").body, first.body);
    EXPECT_NE(Visit("/?action=identify&x=1").body, first.body);  // a root listing instead
}

TEST_F(ServerEndToEndTest, LoginAndLogoutAskForCredentials) {
    Start("users+=bob|secret\r\nauthorities+=.anonymous|docs|0\r\nauthorities+=bob|docs|3\r\n");
    std::string bob = "Authorization: Basic " + Base64Encode("bob:secret") + "\r\n";
    HttpResponse anonymous = Visit("/docs/");
    EXPECT_EQ(anonymous.status, 401);
    EXPECT_EQ(anonymous.Header("WWW-Authenticate"), "Basic realm=\"/\"");
    EXPECT_EQ(Visit("/?action=Login").status, 401);
    EXPECT_EQ(Visit("/?action=Login", bob).status, 200);
    HttpResponse logout = Visit("/?action=Logout", bob);
    EXPECT_EQ(logout.status, 401);
    EXPECT_EQ(logout.Header("WWW-Authenticate"), "Basic realm=\"/\"");
}

TEST_F(ServerEndToEndTest, SkinDevelopersSeeTheirEditsAtOnce) {
    home_.Write("res/skin/setting.ini", "skin=page.html\r\nmimeType=text/html\r\n");
    home_.Write("res/skin/page.html", "first: $title");
    Start("skinDevelopersMode=1\r\ndefaultSkin=develop\r\n");
    EXPECT_EQ(Visit("/nomount/").body, "first: 404 Not Found");
    home_.Write("res/skin/page.html", "second: $title");
    EXPECT_EQ(Visit("/nomount/").body, "second: 404 Not Found");
}

TEST_F(ServerEndToEndTest, CreatesFoldersOnlyWhereUploadingIsAllowed) {
    Start("authorities+=.anonymous|docs|7\r\nauthorities+=.anonymous|single.txt|7\r\n");
    HttpResponse made = Visit("/docs/?action=MakeDirectory&name=%20New%20folder%09");
    EXPECT_EQ(made.status, 301);
    EXPECT_EQ(made.Header("Location"), ".");
    EXPECT_TRUE(std::filesystem::is_directory(share_ / "New folder"));

    const std::pair<const char*, const char*> failures[] = {
        {"/docs/?action=MakeDirectory&name=%20%09", "No folder name was given."},
        {"/docs/?action=MakeDirectory&name=New%20folder", "Could not create the folder."},
        {"/docs/?action=MakeDirectory&name=..", "Could not create the folder."},
        {"/docs/?action=MakeDirectory&name=a%2fb", "Could not create the folder."},
        {"/docs/?action=MakeDirectory&name=bell%07", "Could not create the folder."},
        {"/docs/missing/?action=MakeDirectory&name=x",
         "The folder in which to create the folder does not exist."},
    };
    for (const auto& [target, message] : failures) {
        HttpResponse refused = Visit(target);
        EXPECT_EQ(refused.status, 200) << target;
        EXPECT_TRUE(Contains(refused.body, message)) << target;
    }
    EXPECT_FALSE(share_.Exists("a") || share_.Exists("missing"));
    // A single-file share never takes uploads, whatever the grant says.
    EXPECT_EQ(Visit("/single.txt?action=MakeDirectory&name=x").status, 401);

    Start("authorities+=.anonymous|docs|3\r\n");
    EXPECT_EQ(Visit("/docs/?action=MakeDirectory&name=x").status, 401);
    EXPECT_FALSE(share_.Exists("x"));
}

TEST_F(ServerEndToEndTest, ClosesConnectionsIdleBeyondTheKeepAliveTimeout) {
    Start("keepAliveTimeout=1\r\n");
    TCPSocket silent = testing::ConnectTo(port_);
    auto idle = testing::TimeUntilSilentClose(silent);
    EXPECT_GE(idle, std::chrono::milliseconds(900));
    EXPECT_LT(idle, std::chrono::seconds(3));
}

TEST(ProgramTest, ShowsTheAddressTheSettingsChooseAndStopsCleanly) {
    TempFolder home;
    home.Write("mount.ini", "getPublicIP=0\r\nuseHostName=1\r\nHostName=files.example.org\r\n");
    ProgramRunner named(home.Path());
    EXPECT_EQ(named.ListeningLine(), "Korvel Lumidrop listening on http://files.example.org:" +
                                         std::to_string(named.Port()) + "/\n");
    EXPECT_EQ(named.Stop(), 0);
    EXPECT_TRUE(Contains(home.Read("mount.ini"), "wasRunning=1\r\n"));
}

TEST(ProgramTest, RefusesATakenPortAndBadArguments) {
    TempFolder home, other_home;
    ProgramRunner first(home.Path());
    std::string error;
    std::string port = std::to_string(first.Port());
    EXPECT_EQ(ProgramRunner::RunToEnd({"--home", other_home.Path(), "--port", port}, error), 1);
    EXPECT_TRUE(Contains(error, "cannot listen on port " + port + ": Address already in use"))
        << error;
    EXPECT_EQ(ProgramRunner::RunToEnd({"--bogus"}, error), 2);
    EXPECT_EQ(
        ProgramRunner::RunToEnd(
            {"--mount", "x=/no/such/path", "--home", other_home.Path(), "--port", "0"}, error),
        2);
}

TEST(ProgramTest, NewHomeTakesItsLanguageFromTheLocale) {
    // A new home that can have neither its port nor its console's ends right after
    // start-up.
    TCPServerSocket taken;
    ASSERT_TRUE(taken.Listen(0));
    for (auto [locale, expected] : {std::pair{"ko_KR.UTF-8", "uiLanguageFile=\r\n"},
                                    std::pair{"de_DE.UTF-8", "uiLanguageFile=English.wul\r\n"}}) {
        TempFolder home;
        std::string command = "LC_ALL= LC_MESSAGES= LANG=" + std::string(locale) + " " +
                              LUMIDROP_BINARY + " --home " + home.Path() + " --port " +
                              std::to_string(taken.GetLocalPort()) + " --console-port " +
                              std::to_string(taken.GetLocalPort()) + " 2>/dev/null";
        (void)std::system(command.c_str());
        EXPECT_TRUE(Contains(home.Read("mount.ini"), expected)) << locale;
    }
}

}  // namespace
}  // namespace Zarn
