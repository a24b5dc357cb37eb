// Drives the real program over real sockets, as a browser or curl would.

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "core/Base64.h"
#include "net/TCPServerSocket.h"
#include "support/HttpClient.h"
#include "support/ProgramRunner.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::Fetch;
using testing::Get;
using testing::HttpResponse;
using testing::ProgramRunner;
using testing::TempFolder;

class ServerEndToEndTest : public ::testing::Test {
protected:
    void SetUp() override {
        share_.Write("a.txt", "0123456789abcdef");
        share_.Write("sub/inner.txt", "inner");
        share_.Write(".secret", "hidden");
        share_.Write("<img src=x onerror=alert(1)>.txt", "xss");
        share_.Write("한글.txt", "korean");
        share_.Write("empty.bin", "");
    }

    std::unique_ptr<ProgramRunner> Start(const std::string& extra_settings = "") {
        home_.Write("mount.ini", "mounts+=docs|" + share_.Path() + "|x|yes|x|no\r\n" +
                                     "mounts+=single.txt|" + (share_ / "a.txt") +
                                     "|x|no|x|no\r\nuiLanguageFile=English.wul\r\n" +
                                     extra_settings);
        return std::make_unique<ProgramRunner>(home_.Path());
    }

    TempFolder share_;
    TempFolder home_;
};

TEST_F(ServerEndToEndTest, ListsTheRootAndFolders) {
    auto program = Start();
    HttpResponse root = Get(program->Port(), "/");
    EXPECT_EQ(root.status, 200);
    EXPECT_NE(root.body.find("docs"), std::string::npos);
    EXPECT_NE(root.body.find("single.txt"), std::string::npos);

    HttpResponse redirect = Get(program->Port(), "/docs");
    EXPECT_EQ(redirect.status, 301);
    EXPECT_EQ(redirect.Header("Location"), "/docs/");

    HttpResponse folder = Get(program->Port(), "/docs/");
    EXPECT_EQ(folder.status, 200);
    EXPECT_EQ(folder.Header("Content-Type"), "text/html");
    EXPECT_NE(folder.body.find("a.txt"), std::string::npos);
    EXPECT_NE(folder.body.find("sub"), std::string::npos);
    EXPECT_EQ(folder.body.find(".secret"), std::string::npos);
    EXPECT_EQ(folder.body.find("<img src=x"), std::string::npos);
    EXPECT_NE(folder.body.find("&lt;img src=x onerror=alert(1)&gt;.txt"), std::string::npos);
}

TEST_F(ServerEndToEndTest, DownloadsWholeFilesAndRanges) {
    auto program = Start();
    int port = program->Port();
    HttpResponse whole = Get(port, "/docs/a.txt");
    EXPECT_EQ(whole.status, 200);
    EXPECT_EQ(whole.body, "0123456789abcdef");
    EXPECT_EQ(whole.Header("Content-Length"), "16");
    EXPECT_EQ(whole.Header("Content-Type"), "text/plain");

    HttpResponse range = Get(port, "/docs/a.txt", "Range: bytes=2-5\r\n");
    EXPECT_EQ(range.status_line, "HTTP/1.1 206 Partial Content");
    EXPECT_EQ(range.Header("Content-range"), "bytes 2-5/16");
    EXPECT_EQ(range.body, "2345");
    EXPECT_EQ(Get(port, "/docs/a.txt", "Range: bytes=-3\r\n").body, "def");
    EXPECT_EQ(Get(port, "/docs/a.txt", "Range: bytes=0-1,5-6\r\n").status, 501);
    EXPECT_EQ(Get(port, "/docs/a.txt", "Range: bytes=16-\r\n").status, 416);
    EXPECT_EQ(Get(port, "/docs/a.txt", "Range: items=0-1\r\n").status, 200);

    HttpResponse empty = Get(port, "/docs/empty.bin");
    EXPECT_EQ(empty.status, 200);
    EXPECT_EQ(empty.Header("Content-Length"), "0");
    EXPECT_EQ(Get(port, "/single.txt").body, "0123456789abcdef");
    EXPECT_EQ(Get(port, "/single.txt/below").status, 404);
    EXPECT_EQ(Get(port, "/docs/missing.txt").status, 404);
    EXPECT_EQ(Get(port, "/nomount/").status, 404);
    // A name sent in code page 949 by an old browser finds the UTF-8 file.
    EXPECT_EQ(Get(port, "/docs/%C7%D1%B1%DB.txt").body, "korean");
    EXPECT_EQ(Get(port, "/docs/%ED%95%9C%EA%B8%80.txt").body, "korean");
}

TEST_F(ServerEndToEndTest, ServesRangesOfFilesBeyondFourGigabytes) {
    constexpr uint64_t kSize = 5ull << 30;
    {
        std::filesystem::resize_file(share_ / "a.txt", 0);
        std::string big = share_ / "big.bin";
        share_.Write("big.bin", "");
        std::filesystem::resize_file(big, kSize);
        FILE* file = std::fopen(big.c_str(), "r+b");
        ASSERT_NE(file, nullptr);
        ASSERT_EQ(::fseeko(file, static_cast<off_t>(kSize - 10), SEEK_SET), 0);
        std::fputs("the end :)", file);
        std::fclose(file);
    }
    auto program = Start();
    HttpResponse tail = Get(program->Port(), "/docs/big.bin", "Range: bytes=5368709110-\r\n");
    EXPECT_EQ(tail.status, 206);
    EXPECT_EQ(tail.Header("Content-range"), "bytes 5368709110-5368709119/5368709120");
    EXPECT_EQ(tail.body, "the end :)");

    TCPSocket whole = testing::ConnectTo(program->Port());
    testing::SendAll(whole, "GET /docs/big.bin HTTP/1.1\r\n\r\n");
    EXPECT_NE(testing::ReadHead(whole).find("Content-Length: 5368709120\r\n"), std::string::npos);
}

TEST_F(ServerEndToEndTest, DownloadsKeepTheSpeedLimitFromTheFirstByte) {
    share_.Write("big.bin", std::string(1 << 20, 'd'));
    auto program = Start("totalDownloadSpeedLimit=200\r\n");  // KiB per second
    auto start = std::chrono::steady_clock::now();
    HttpResponse answer = Get(program->Port(), "/docs/big.bin");
    auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(answer.body.size(), 1u << 20);
    // A fifth of a second's worth may go at once, the rest takes 4.8 s.
    EXPECT_GE(took, std::chrono::milliseconds(4500));
}

TEST_F(ServerEndToEndTest, RedirectsAndRefusesOddRequests) {
    auto program = Start();
    int port = program->Port();
    EXPECT_EQ(Get(port, "//docs/a.txt").Header("Location"), "/docs/a.txt");
    EXPECT_EQ(Get(port, "/docs/sub/../a.txt").Header("Location"), "/docs/a.txt");
    EXPECT_EQ(Get(port, "/docs/%2e%2e/%2e%2e/etc/passwd").Header("Location"), "/etc/passwd");
    EXPECT_EQ(Fetch(port, "PUT /docs/a.txt HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc").status, 400);
    EXPECT_EQ(Fetch(port, "get / HTTP/1.1").status, 400);
    EXPECT_EQ(Get(port, "/docs/a%00b").status, 400);
    // A line break smuggled into a path never reaches a header.
    HttpResponse smuggled = Get(port, "/docs%0d%0aSet-Cookie:%20x=1");
    EXPECT_EQ(smuggled.Header("Set-Cookie"), "");
}

TEST_F(ServerEndToEndTest, ServesSystemFilesAndIdentifies) {
    auto program = Start();
    int port = program->Port();
    for (const char* name : {"/robots.txt", "/favicon.ico"}) {
        SCOPED_TRACE(name);
        HttpResponse file = Get(port, name);
        EXPECT_EQ(file.status, 200);
        EXPECT_FALSE(file.body.empty());
        std::string expires = file.Header("Expires");  // "Sun, 23 Nov 2026 14:00:00 GMT"
        EXPECT_EQ(expires.size(), 29u) << expires;
        EXPECT_TRUE(expires.ends_with(" GMT")) << expires;
    }
    EXPECT_EQ(Get(port, "/robots.txt").Header("Content-Type"), "text/plain");
    HttpResponse skin_file = Get(port, "/.default/logo.png?action=SkinFile");
    EXPECT_EQ(skin_file.status, 200);
    EXPECT_EQ(skin_file.Header("Content-Type"), "image/png");
    EXPECT_EQ(Get(port, "/.default/nothing.png?action=SkinFile").body, "404 Not found :(");
    EXPECT_EQ(Get(port, "/noskin/x.png?action=SkinFile").body, "Unable to find the skin.");

    std::string first = Get(port, "/?action=identify").body;
    EXPECT_EQ(first.size(), 16u);
    EXPECT_EQ(first.find_first_not_of("0123456789abcdef"), std::string::npos) << first;
    EXPECT_EQ(Get(port, "/?action=identify").body, first);
    EXPECT_EQ(Get(port, "/?action=identify").Header("Server"), "Korvel Lumidrop");
    EXPECT_NE(Get(port, "/?action=identify&x=1").body, first);  // a root listing instead
}

TEST_F(ServerEndToEndTest, AppliesTheIpFilterButStillServesSystemFiles) {
    auto program = Start("ipFilterTable+=127.0.0.*:ban\r\n");
    EXPECT_EQ(Get(program->Port(), "/docs/").status, 403);
    EXPECT_EQ(Get(program->Port(), "/docs/a.txt").status, 403);
    EXPECT_EQ(Get(program->Port(), "/robots.txt").status, 200);
}

TEST_F(ServerEndToEndTest, AsksForCredentialsWhereTheRightsRequireThem) {
    auto program = Start(
        "users+=bob|secret\r\n"
        "authorities+=.anonymous|docs|0\r\n"
        "authorities+=bob|docs|3\r\n");
    int port = program->Port();
    HttpResponse anonymous = Get(port, "/docs/");
    EXPECT_EQ(anonymous.status, 401);
    EXPECT_EQ(anonymous.Header("WWW-Authenticate"), "Basic realm=\"/\"");
    std::string bob = "Authorization: Basic " + Base64Encode("bob:secret") + "\r\n";
    EXPECT_EQ(Get(port, "/docs/", bob).status, 200);
    EXPECT_EQ(Get(port, "/docs/a.txt", bob).body, "0123456789abcdef");
    std::string wrong = "Authorization: Basic " + Base64Encode("bob:guess") + "\r\n";
    EXPECT_EQ(Get(port, "/docs/", wrong).status, 401);
    EXPECT_EQ(Get(port, "/?action=Login").status, 401);
    EXPECT_EQ(Get(port, "/?action=Login", bob).status, 200);
    HttpResponse logout = Get(port, "/?action=Logout", bob);
    EXPECT_EQ(logout.status, 401);
    EXPECT_EQ(logout.Header("WWW-Authenticate"), "Basic realm=\"/\"");
}

TEST_F(ServerEndToEndTest, SkinDevelopersSeeTheirEditsAtOnce) {
    home_.Write("res/skin/setting.ini", "skin=page.html\r\nmimeType=text/html\r\n");
    home_.Write("res/skin/page.html", "first: $title");
    auto program = Start("skinDevelopersMode=1\r\ndefaultSkin=develop\r\n");
    EXPECT_EQ(Get(program->Port(), "/nomount/").body, "first: 404 Not Found");
    home_.Write("res/skin/page.html", "second: $title");
    EXPECT_EQ(Get(program->Port(), "/nomount/").body, "second: 404 Not Found");
}

TEST_F(ServerEndToEndTest, CreatesFoldersWhereUploadingIsAllowed) {
    auto program = Start("authorities+=.anonymous|docs|7\r\n");
    int port = program->Port();
    HttpResponse made = Get(port, "/docs/?action=MakeDirectory&name=%20New%20folder%09");
    EXPECT_EQ(made.status, 301);
    EXPECT_EQ(made.Header("Location"), ".");
    EXPECT_TRUE(std::filesystem::is_directory(share_ / "New folder"));
    EXPECT_NE(Get(port, "/docs/").body.find("New folder"), std::string::npos);

    struct Case {
        const char* target;
        const char* message;
    };
    const Case failures[] = {
        {"/docs/?action=MakeDirectory&name=%20%09", "No folder name was given."},
        {"/docs/?action=MakeDirectory&name=New%20folder", "Could not create the folder."},
        {"/docs/?action=MakeDirectory&name=..", "Could not create the folder."},
        {"/docs/?action=MakeDirectory&name=a%2fb", "Could not create the folder."},
        {"/docs/?action=MakeDirectory&name=bell%07", "Could not create the folder."},
        {"/docs/missing/?action=MakeDirectory&name=x",
         "The folder in which to create the folder does not exist."},
    };
    for (const Case& c : failures) {
        SCOPED_TRACE(c.target);
        HttpResponse refused = Get(port, c.target);
        EXPECT_EQ(refused.status, 200);
        EXPECT_NE(refused.body.find(c.message), std::string::npos);
    }
    EXPECT_FALSE(std::filesystem::exists(share_ / "a"));
    EXPECT_FALSE(std::filesystem::exists(share_ / "missing"));
    EXPECT_EQ(Get(port, "/single.txt?action=MakeDirectory&name=x").status, 401);
}

TEST_F(ServerEndToEndTest, FolderCreationNeedsTheUploadRight) {
    auto program = Start("authorities+=.anonymous|single.txt|7\r\n");
    EXPECT_EQ(Get(program->Port(), "/docs/?action=MakeDirectory&name=x").status, 401);
    EXPECT_FALSE(std::filesystem::exists(share_ / "x"));
    // A single-file share never takes uploads, whatever the grant says.
    EXPECT_EQ(Get(program->Port(), "/single.txt?action=MakeDirectory&name=x").status, 401);
}

TEST_F(ServerEndToEndTest, ClosesConnectionsIdleBeyondTheKeepAliveTimeout) {
    auto program = Start("keepAliveTimeout=1\r\n");
    TCPSocket silent = testing::ConnectTo(program->Port());
    auto idle = testing::TimeUntilSilentClose(silent);
    EXPECT_GE(idle, std::chrono::milliseconds(900));
    EXPECT_LT(idle, std::chrono::seconds(3));
}

TEST(ProgramTest, StopsCleanlyAndRemembersThatItRan) {
    TempFolder home;
    ProgramRunner program(home.Path());
    EXPECT_NE(program.ListeningLine().find("Korvel Lumidrop listening on http://"),
              std::string::npos);
    EXPECT_EQ(program.Stop(), 0);
    EXPECT_NE(home.Read("mount.ini").find("wasRunning=1\r\n"), std::string::npos);
}

TEST(ProgramTest, TheStartUpLineShowsTheAddressTheSettingsChoose) {
    TempFolder home;
    home.Write("mount.ini", "getPublicIP=0\r\nuseHostName=1\r\nHostName=files.example.org\r\n");
    ProgramRunner named(home.Path());
    EXPECT_EQ(named.ListeningLine(), "Korvel Lumidrop listening on http://files.example.org:" +
                                         std::to_string(named.Port()) + "/\n");
    named.Stop();
    home.Write("mount.ini", "useHostName=0\r\npreferredLancardAddress=10.9.8.7\r\n");
    ProgramRunner preferred(home.Path());
    EXPECT_NE(preferred.ListeningLine().find("http://10.9.8.7:"), std::string::npos);
}

TEST(ProgramTest, RefusesATakenPortAndASecondInstance) {
    TempFolder home;
    ProgramRunner first(home.Path());
    std::string error;
    EXPECT_EQ(ProgramRunner::RunToEnd({"--home", home.Path(), "--port", "0"}, error), 1);
    EXPECT_NE(error.find("already running"), std::string::npos) << error;

    TempFolder other_home;
    EXPECT_EQ(ProgramRunner::RunToEnd(
                  {"--home", other_home.Path(), "--port", std::to_string(first.Port())}, error),
              1);
    EXPECT_NE(error.find("cannot listen on port " + std::to_string(first.Port()) +
                         ": Address already in use"),
              std::string::npos)
        << error;
    EXPECT_EQ(ProgramRunner::RunToEnd({"--bogus"}, error), 2);
    EXPECT_EQ(
        ProgramRunner::RunToEnd(
            {"--mount", "x=/no/such/path", "--home", other_home.Path(), "--port", "0"}, error),
        2);
}

TEST(ProgramTest, NewHomeTakesItsLanguageFromTheLocale) {
    TempFolder korean, english;
    TCPServerSocket taken;  // a taken port ends each run right after start-up
    ASSERT_TRUE(taken.Listen(0));
    std::string binary = LUMIDROP_BINARY;
    for (auto& [home, locale, expected] :
         {std::tuple{&korean, "ko_KR.UTF-8", "uiLanguageFile=\r\n"},
          std::tuple{&english, "de_DE.UTF-8", "uiLanguageFile=English.wul\r\n"}}) {
        std::string command = "LC_ALL= LC_MESSAGES= LANG=" + std::string(locale) + " " + binary +
                              " --home " + home->Path() + " --port " +
                              std::to_string(taken.GetLocalPort()) + " 2>/dev/null";
        (void)std::system(command.c_str());
        EXPECT_NE(home->Read("mount.ini").find(expected), std::string::npos) << locale;
    }
}

}  // namespace
}  // namespace Zarn
