// Attacks a server put on a network meets, tried against the real program over real
// sockets: foreign scripts through the skin parameter, uploaded pages acting as the
// server, requests forged by other sites, hidden files, links out of a share, leftovers
// of a crash, and a stalled download holding up everyone in skin developers mode.

#include <gtest/gtest.h>

#include <filesystem>

#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;

class ExposureEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override {
        share_.Write("a.txt", "inside");
        share_.Write("sub/b.txt", "below");
        share_.Write(".secret", "hidden");
        share_.Write(".git/config", "hidden too");
        outside_.Write("passwd", "root:x:0:0");
        outside_.Write("folder/c.txt", "outside");
    }
    void Start(const std::string& settings = "") {
        RunningShare::Start("authorities+=.anonymous|docs|7\r\n" + settings);
    }
    // The statuses of GETs of these targets, in order.
    std::vector<int> Statuses(std::initializer_list<const char*> targets) {
        std::vector<int> statuses;
        for (const char* target : targets)
            statuses.push_back(Visit(target).status);
        return statuses;
    }
};

// Scripts of another host through the skin parameter, uploaded pages acting as this server,
// and other sites' pages making a visitor change something.
TEST_F(ExposureEndToEndTest, NoOtherHostNorUploadedPageNorForeignSiteActsAsThisServer) {
    home_.Write("skin/alt/setting.ini", "skin=page.html\r\nmimeType=text/html\r\n");
    home_.Write("skin/alt/page.html", "<script src=\"/$skin/common.js\"></script>$title");
    for (const char* odd : {"a%b", "c:d"}) {
        home_.Write(std::string("skin/") + odd + "/setting.ini", "skin=page.html\r\n");
        home_.Write(std::string("skin/") + odd + "/page.html", "<script src=\"/$skin/x.js\">");
    }
    Start();
    // Every kind of page the server renders: listing, error, login refusal, logout.
    for (const char* page : {"/docs/?", "/missing/?", "/docs/?action=Login&", "/?action=Logout&"}) {
        for (const char* skin : {"/evil.example", "%5Cevil.example", "//evil.example",
                                 "%2F%2Fevil.example", "a%25b", "c:d"}) {
            std::string target = std::string(page) + "skin=" + skin;
            SCOPED_TRACE(target);
            std::string body = Visit(target).body;
            EXPECT_FALSE(Contains(body, "evil.example") || Contains(body, "/a%b/") ||
                         Contains(body, "/c:d/"));
            EXPECT_TRUE(Contains(body, "src=\"/.default/common.js?action=SkinFile\""));
        }
    }
    // A registered skin is still chosen by name; names that could break out of an address
    // are not registered at all.
    EXPECT_EQ(Visit("/missing/?skin=alt").body,
              "<script src=\"/alt/common.js\"></script>404 Not Found");
    std::string listing = Visit("/docs/").body;
    EXPECT_TRUE(Contains(listing, "data-skin=\"alt\""));
    EXPECT_FALSE(Contains(listing, "data-skin=\"a%b\"") || Contains(listing, "data-skin=\"c:d\""));

    ASSERT_EQ(Upload("/docs/?key=k", "evil.html", "<script>steal()</script>").status, 200);
    ASSERT_EQ(Upload("/docs/?key=k", "evil.svg", "<svg onload=steal()/>").status, 200);
    for (const char* name : {"/docs/evil.html", "/docs/evil.svg"}) {
        HttpResponse page = Visit(name);
        EXPECT_EQ(page.Header("Content-Security-Policy"), "sandbox") << name;
        EXPECT_EQ(page.Header("X-Content-Type-Options"), "nosniff") << name;
    }
    HttpResponse text = Visit("/docs/a.txt", "Range: bytes=0-1\r\n");
    EXPECT_EQ(text.Header("X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(text.Header("Content-Security-Policy"), "");

    for (const char* forged : {"Sec-Fetch-Site: cross-site\r\n", "Origin: http://evil.example\r\n",
                               "Origin: null\r\n", "Origin: http://127.0.0.1:1\r\n"}) {
        SCOPED_TRACE(forged);
        EXPECT_EQ(Visit("/docs/?action=MakeDirectory&name=forged", forged).status, 403);
        EXPECT_EQ(Upload("/docs/?key=k", "forged.txt", "x", forged).status, 403);
        // Reading is not changing: a page of another site may still link here.
        EXPECT_EQ(Visit("/docs/a.txt", forged).body, "inside");
    }
    EXPECT_FALSE(share_.Exists("forged") || share_.Exists("forged.txt"));

    // The server's own pages, and clients that send neither header, are served.
    std::string self = "127.0.0.1:" + std::to_string(port_);
    EXPECT_EQ(testing::Fetch(port_, "GET /docs/?action=MakeDirectory&name=mine HTTP/1.1\r\nHost: " +
                                        self + "\r\nOrigin: http://" + self +
                                        "\r\nSec-Fetch-Site: same-origin\r\n\r\n")
                  .status,
              301);
    EXPECT_EQ(Upload("/docs/?key=k", "mine.txt", "ok", "Origin: http://test\r\n").status, 200);
    EXPECT_EQ(Visit("/docs/?action=MakeDirectory&name=curl").status, 301);
    EXPECT_TRUE(share_.Exists("mine") && share_.Exists("curl"));
    EXPECT_EQ(share_.Read("mine.txt"), "ok");
}

// Hidden files, links out of the share and the leftovers of a killed upload stay out of
// reach until the owner shares the first two.
TEST_F(ExposureEndToEndTest, HiddenFilesLinksOutAndUploadLeftoversAreNotShared) {
    std::filesystem::create_symlink(outside_ / "passwd", share_ / "pw");
    std::filesystem::create_symlink(outside_ / "folder", share_ / "out");
    std::filesystem::create_symlink(
        "../../" + std::filesystem::path(outside_.Path()).filename().string(),
        share_ / "sub/climb");
    std::filesystem::create_symlink("a.txt", share_ / "in");
    std::filesystem::create_symlink("../a.txt", share_ / "sub/up");
    Start();
    EXPECT_EQ(Statuses({"/docs/.secret", "/docs/.git/", "/docs/.git/config", "/docs/.git",
                        "/docs/.git/?action=MakeDirectory&name=x"}),
              std::vector<int>(5, 404));
    EXPECT_TRUE(
        Contains(Upload("/docs/?key=k", ".authorized_keys", "ssh-ed25519").body, "upload-failed"));
    EXPECT_EQ(Upload("/docs/.git/?key=k", "hook", "x").status, 404);
    EXPECT_EQ(Visit("/docs/?action=MakeDirectory&name=.ssh").status, 200);
    EXPECT_FALSE(share_.Exists(".authorized_keys") || share_.Exists(".ssh"));

    EXPECT_EQ(Statuses({"/docs/pw", "/docs/out/", "/docs/out/c.txt", "/docs/sub/climb/passwd"}),
              std::vector<int>(4, 404));
    // Links that stay inside work, from any depth.
    EXPECT_EQ(Visit("/docs/in").body, "inside");
    EXPECT_EQ(Visit("/docs/sub/up").body, "inside");
    // Writing through a link is refused just the same, and nothing lands outside.
    EXPECT_TRUE(Contains(Upload("/docs/out/?key=k", "planted.txt", "x").body, "upload-failed"));
    EXPECT_EQ(Visit("/docs/out/?action=MakeDirectory&name=planted").status, 200);
    EXPECT_FALSE(outside_.Exists("folder/planted.txt") || outside_.Exists("folder/planted"));
    std::string listing = Visit("/docs/").body;
    EXPECT_TRUE(Contains(listing, ">in<"));
    EXPECT_FALSE(Contains(listing, ">pw<") || Contains(listing, ">out<"));

    // What a killed upload left stays invisible even so, and the next upload cleans it up.
    share_.Write("uploading_report.txt.LUMIDROP", "half a file");
    share_.Write("sub/uploading_x(2).bin.LUMIDROP", "half another");
    Start("showHiddenFiles=1\r\nfollowLinksOutOfMounts=1\r\n");
    EXPECT_FALSE(Contains(Visit("/docs/").body, "LUMIDROP"));
    EXPECT_EQ(
        Statuses({"/docs/uploading_report.txt.LUMIDROP", "/docs/sub/uploading_x(2).bin.LUMIDROP"}),
        std::vector<int>(2, 404));
    // A visitor cannot plant a file that would pass for one either.
    EXPECT_TRUE(
        Contains(Upload("/docs/sub/?key=k", "uploading_y.LUMIDROP", "x").body, "upload-failed"));
    EXPECT_EQ(Visit("/docs/.git/config").body, "hidden too");
    EXPECT_TRUE(Contains(Visit("/docs/").body, ".secret"));
    EXPECT_EQ(Visit("/docs/?action=MakeDirectory&name=.ssh").status, 301);
    EXPECT_FALSE(Contains(Upload("/docs/?key=k", ".profile", "x").body, "upload-failed"));
    EXPECT_TRUE(share_.Exists(".ssh") && share_.Exists(".profile"));
    EXPECT_EQ(Visit("/docs/pw").body, "root:x:0:0");
    EXPECT_EQ(Visit("/docs/out/c.txt").body, "outside");

    ASSERT_EQ(Upload("/docs/?key=k", "report.txt", "whole").status, 200);
    EXPECT_FALSE(share_.Exists("uploading_report.txt.LUMIDROP"));
    EXPECT_EQ(share_.Read("report.txt"), "whole");
    EXPECT_FALSE(share_.Exists("sub/uploading_x(2).bin.LUMIDROP"));
}

TEST_F(ExposureEndToEndTest, AStalledDownloadDoesNotHoldUpOthersInSkinDevelopersMode) {
    share_.Write("big.bin", "");
    std::filesystem::resize_file(share_ / "big.bin", 200 << 20);
    Start("skinDevelopersMode=1\r\n");
    TCPSocket stalled = testing::ConnectTo(port_);
    testing::SendAll(stalled, "GET /docs/big.bin HTTP/1.1\r\nHost: test\r\n\r\n");
    ASSERT_TRUE(Contains(testing::ReadHead(stalled), "200 OK"));
    // The stalled client reads no more; its download waits on a full socket.
    for (const char* target :
         {"/robots.txt", "/docs/", "/missing/", "/.default/logo.png?action=SkinFile"}) {
        TCPSocket other = testing::ConnectTo(port_);
        other.SetTimeouts(20);
        testing::SendAll(other, std::string("GET ") + target + " HTTP/1.1\r\nHost: test\r\n\r\n");
        EXPECT_NE(testing::ReadHead(other), "") << target;
    }
}

}  // namespace
}  // namespace Zarn
