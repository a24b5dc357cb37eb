// Attacks a server put on a network meets, tried against the real program over real
// sockets: foreign scripts through the skin parameter, uploaded pages acting as the
// server, requests forged by other sites, hidden files, links out of a share, leftovers
// of a crash, and a stalled download holding up everyone in skin developers mode.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "support/HttpClient.h"
#include "support/Multipart.h"
#include "support/ProgramRunner.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::FormPart;
using testing::Get;
using testing::HttpResponse;
using testing::MultipartBody;
using testing::MultipartHead;
using testing::ProgramRunner;
using testing::TempFolder;

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class ExposureEndToEndTest : public ::testing::Test {
protected:
    void SetUp() override {
        share_.Write("a.txt", "inside");
        share_.Write("sub/b.txt", "below");
        share_.Write(".secret", "hidden");
        share_.Write(".git/config", "hidden too");
        outside_.Write("passwd", "root:x:0:0");
        outside_.Write("folder/c.txt", "outside");
    }

    std::unique_ptr<ProgramRunner> Start(const std::string& extra_settings = "") {
        home_.Write("mount.ini", "mounts+=docs|" + share_.Path() +
                                     "|x|yes|x|no\r\nuiLanguageFile=English.wul\r\n"
                                     "authorities+=.anonymous|docs|7\r\n" +
                                     extra_settings);
        return std::make_unique<ProgramRunner>(home_.Path());
    }

    static HttpResponse Upload(int port, const std::string& target, const std::string& name,
                               const std::string& content, const std::string& headers = "") {
        std::string body = MultipartBody({{"uploadfile", name, content}});
        std::string head = MultipartHead(target, body.size());
        head.insert(head.find("\r\n") + 2, headers);
        return testing::Fetch(port, head + body);
    }

    TempFolder share_;
    TempFolder outside_;
    TempFolder home_;
};

TEST_F(ExposureEndToEndTest, SkinParameterCannotLoadScriptsFromAnotherHost) {
    home_.Write("skin/alt/setting.ini", "skin=page.html\r\nmimeType=text/html\r\n");
    home_.Write("skin/alt/page.html", "<script src=\"/$skin/common.js\"></script>$title");
    home_.Write("skin/a%b/setting.ini", "skin=page.html\r\n");
    home_.Write("skin/a%b/page.html", "<script src=\"/$skin/x.js\"></script>");
    home_.Write("skin/c:d/setting.ini", "skin=page.html\r\n");
    home_.Write("skin/c:d/page.html", "<script src=\"/$skin/x.js\"></script>");
    auto program = Start();
    int port = program->Port();
    // Every kind of page the server renders: listing, error, login refusal, logout.
    for (const char* page : {"/docs/", "/missing/", "/docs/?action=Login", "/?action=Logout"}) {
        for (const char* skin : {"/evil.example", "%5Cevil.example", "//evil.example",
                                 "%2F%2Fevil.example", "a%25b", "c:d"}) {
            std::string target =
                std::string(page) + (Contains(page, "?") ? "&" : "?") + "skin=" + skin;
            SCOPED_TRACE(target);
            HttpResponse response = Get(port, target);
            EXPECT_FALSE(Contains(response.body, "evil.example"));
            EXPECT_FALSE(Contains(response.body, "/a%b/"));
            EXPECT_FALSE(Contains(response.body, "/c:d/"));
            EXPECT_TRUE(Contains(response.body, "src=\"/.default/common.js?action=SkinFile\""));
        }
    }
    // A registered skin is still chosen by name, and the page names it.
    HttpResponse alt = Get(port, "/missing/?skin=alt");
    EXPECT_EQ(alt.body, "<script src=\"/alt/common.js\"></script>404 Not Found");
    // Skins whose names could break out of an address are not registered at all.
    HttpResponse listing = Get(port, "/docs/");
    EXPECT_TRUE(Contains(listing.body, "data-skin=\"alt\""));
    EXPECT_FALSE(Contains(listing.body, "data-skin=\"a%b\""));
    EXPECT_FALSE(Contains(listing.body, "data-skin=\"c:d\""));
}

TEST_F(ExposureEndToEndTest, UploadedPagesCannotRunScriptsAsThisServer) {
    auto program = Start();
    int port = program->Port();
    ASSERT_EQ(Upload(port, "/docs/?key=k", "evil.html", "<script>steal()</script>").status, 200);
    ASSERT_EQ(Upload(port, "/docs/?key=k", "evil.svg", "<svg onload=steal()/>").status, 200);
    for (const char* name : {"evil.html", "evil.svg"}) {
        SCOPED_TRACE(name);
        HttpResponse page = Get(port, std::string("/docs/") + name);
        EXPECT_EQ(page.status, 200);
        EXPECT_EQ(page.Header("Content-Security-Policy"), "sandbox");
        EXPECT_EQ(page.Header("X-Content-Type-Options"), "nosniff");
    }
    HttpResponse text = Get(port, "/docs/a.txt", "Range: bytes=0-1\r\n");
    EXPECT_EQ(text.status, 206);
    EXPECT_EQ(text.Header("X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(text.Header("Content-Security-Policy"), "");
}

TEST_F(ExposureEndToEndTest, OtherSitesCannotMakeAVisitorChangeAnything) {
    auto program = Start();
    int port = program->Port();
    std::string self = "127.0.0.1:" + std::to_string(port);
    const std::string forged[] = {
        "Sec-Fetch-Site: cross-site\r\n",
        "Origin: http://evil.example\r\n",
        "Origin: null\r\n",
        "Origin: http://127.0.0.1:1\r\n",
    };
    for (const std::string& headers : forged) {
        SCOPED_TRACE(headers);
        HttpResponse folder = Get(port, "/docs/?action=MakeDirectory&name=forged", headers);
        EXPECT_EQ(folder.status, 403);
        HttpResponse upload = Upload(port, "/docs/?key=k", "forged.txt", "x", headers);
        EXPECT_EQ(upload.status, 403);
        // Reading is not changing: a page of another site may still link here.
        EXPECT_EQ(Get(port, "/docs/a.txt", headers).body, "inside");
    }
    EXPECT_FALSE(share_.Exists("forged"));
    EXPECT_FALSE(share_.Exists("forged.txt"));

    // The server's own pages, and clients that send neither header, are served.
    std::string own =
        "Host: " + self + "\r\nOrigin: http://" + self + "\r\nSec-Fetch-Site: same-origin\r\n";
    EXPECT_EQ(testing::Fetch(
                  port, "GET /docs/?action=MakeDirectory&name=mine HTTP/1.1\r\n" + own + "\r\n")
                  .status,
              301);
    EXPECT_EQ(Upload(port, "/docs/?key=k", "mine.txt", "ok", "Origin: http://test\r\n").status,
              200);
    EXPECT_EQ(Get(port, "/docs/?action=MakeDirectory&name=curl").status, 301);
    EXPECT_TRUE(std::filesystem::is_directory(share_ / "mine"));
    EXPECT_EQ(share_.Read("mine.txt"), "ok");
    EXPECT_TRUE(std::filesystem::is_directory(share_ / "curl"));
}

TEST_F(ExposureEndToEndTest, HiddenFilesAreNotSharedUnlessTheOwnerSaysSo) {
    {
        auto program = Start();
        int port = program->Port();
        EXPECT_EQ(Get(port, "/docs/.secret").status, 404);
        EXPECT_EQ(Get(port, "/docs/.git/").status, 404);
        EXPECT_EQ(Get(port, "/docs/.git/config").status, 404);
        EXPECT_EQ(Get(port, "/docs/.git").status, 404);
        EXPECT_EQ(Get(port, "/docs/.git/?action=MakeDirectory&name=x").status, 404);
        HttpResponse key = Upload(port, "/docs/?key=k", ".authorized_keys", "ssh-ed25519 AAAA");
        EXPECT_TRUE(Contains(key.body, "upload-failed"));
        EXPECT_FALSE(share_.Exists(".authorized_keys"));
        EXPECT_EQ(Upload(port, "/docs/.git/?key=k", "hook", "x").status, 404);
        EXPECT_EQ(Get(port, "/docs/?action=MakeDirectory&name=.ssh").status, 200);
        EXPECT_FALSE(share_.Exists(".ssh"));
        EXPECT_EQ(Get(port, "/docs/sub/b.txt").body, "below");
    }
    auto program = Start("showHiddenFiles=1\r\n");
    int port = program->Port();
    EXPECT_EQ(Get(port, "/docs/.secret").body, "hidden");
    EXPECT_EQ(Get(port, "/docs/.git/config").body, "hidden too");
    EXPECT_TRUE(Contains(Get(port, "/docs/").body, ".secret"));
    EXPECT_EQ(Get(port, "/docs/?action=MakeDirectory&name=.ssh").status, 301);
    EXPECT_TRUE(std::filesystem::is_directory(share_ / ".ssh"));
    EXPECT_FALSE(Contains(Upload(port, "/docs/?key=k", ".profile", "x").body, "upload-failed"));
    EXPECT_EQ(share_.Read(".profile"), "x");
}

TEST_F(ExposureEndToEndTest, LinksCannotLeadOutOfAShare) {
    std::filesystem::create_symlink(outside_ / "passwd", share_ / "pw");
    std::filesystem::create_symlink(outside_ / "folder", share_ / "out");
    std::filesystem::create_symlink(
        "../../" + std::filesystem::path(outside_.Path()).filename().string(),
        share_ / "sub/climb");
    std::filesystem::create_symlink("a.txt", share_ / "in");
    std::filesystem::create_symlink("../a.txt", share_ / "sub/up");
    {
        auto program = Start();
        int port = program->Port();
        EXPECT_EQ(Get(port, "/docs/pw").status, 404);
        EXPECT_EQ(Get(port, "/docs/out/").status, 404);
        EXPECT_EQ(Get(port, "/docs/out/c.txt").status, 404);
        EXPECT_EQ(Get(port, "/docs/sub/climb/passwd").status, 404);
        // Links that stay inside work, from any depth.
        EXPECT_EQ(Get(port, "/docs/in").body, "inside");
        EXPECT_EQ(Get(port, "/docs/sub/up").body, "inside");
        // Writing through a link is refused just the same, and nothing lands outside.
        HttpResponse upload = Upload(port, "/docs/out/?key=k", "planted.txt", "x");
        EXPECT_TRUE(Contains(upload.body, "upload-failed"));
        EXPECT_EQ(Get(port, "/docs/out/?action=MakeDirectory&name=planted").status, 200);
        EXPECT_FALSE(outside_.Exists("folder/planted.txt"));
        EXPECT_FALSE(outside_.Exists("folder/planted"));
        HttpResponse listing = Get(port, "/docs/");
        EXPECT_TRUE(Contains(listing.body, ">in<"));
        EXPECT_FALSE(Contains(listing.body, ">pw<"));
        EXPECT_FALSE(Contains(listing.body, ">out<"));
    }
    auto program = Start("followLinksOutOfMounts=1\r\n");
    int port = program->Port();
    EXPECT_EQ(Get(port, "/docs/pw").body, "root:x:0:0");
    EXPECT_EQ(Get(port, "/docs/out/c.txt").body, "outside");
    EXPECT_TRUE(Contains(Get(port, "/docs/").body, ">pw<"));
}

TEST_F(ExposureEndToEndTest, LeftoversOfAKilledUploadStayInvisibleAndAreCleanedUp) {
    share_.Write("uploading_report.txt.LUMIDROP", "half a file");
    share_.Write("sub/uploading_x(2).bin.LUMIDROP", "half another");
    auto program = Start("showHiddenFiles=1\r\n");
    int port = program->Port();
    EXPECT_FALSE(Contains(Get(port, "/docs/").body, "LUMIDROP"));
    EXPECT_EQ(Get(port, "/docs/uploading_report.txt.LUMIDROP").status, 404);
    EXPECT_EQ(Get(port, "/docs/sub/uploading_x(2).bin.LUMIDROP").status, 404);
    // A visitor cannot plant a file that would pass for one either.
    HttpResponse planted = Upload(port, "/docs/sub/?key=k", "uploading_y.LUMIDROP", "x");
    EXPECT_TRUE(Contains(planted.body, "upload-failed"));

    ASSERT_EQ(Upload(port, "/docs/?key=k", "report.txt", "whole").status, 200);
    EXPECT_FALSE(share_.Exists("uploading_report.txt.LUMIDROP"));
    EXPECT_EQ(share_.Read("report.txt"), "whole");
    // Only the folder uploaded into is cleaned.
    EXPECT_FALSE(share_.Exists("sub/uploading_x(2).bin.LUMIDROP"));
}

TEST_F(ExposureEndToEndTest, AStalledDownloadDoesNotHoldUpOthersInSkinDevelopersMode) {
    share_.Write("big.bin", "");
    std::filesystem::resize_file(share_ / "big.bin", 200 << 20);
    auto program = Start("skinDevelopersMode=1\r\n");
    int port = program->Port();
    TCPSocket stalled = testing::ConnectTo(port);
    testing::SendAll(stalled, "GET /docs/big.bin HTTP/1.1\r\nHost: test\r\n\r\n");
    ASSERT_TRUE(Contains(testing::ReadHead(stalled), "200 OK"));
    // The stalled client reads no more; its download waits on a full socket.
    for (const char* target :
         {"/robots.txt", "/docs/", "/missing/", "/.default/logo.png?action=SkinFile"}) {
        SCOPED_TRACE(target);
        TCPSocket other = testing::ConnectTo(port);
        other.SetTimeouts(20);
        testing::SendAll(other, std::string("GET ") + target + " HTTP/1.1\r\nHost: test\r\n\r\n");
        EXPECT_NE(testing::ReadHead(other), "");
    }
}

}  // namespace
}  // namespace Zarn
