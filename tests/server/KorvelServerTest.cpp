// Two servers in one process, each with its own home: every collaborator of the request
// path (settings, MIME table, skins, upload table) comes from its own server, so nothing
// of one leaks into the other.

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "config/KorvelConfig.h"
#include "server/KorvelServer.h"
#include "skin/SkinManager.h"
#include "support/HttpClient.h"
#include "support/Multipart.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::Get;
using testing::HttpResponse;
using testing::TempFolder;

// One server with its own home folder, settings and skins, on a free port. `prepare`
// writes the home's own files before anything is loaded from it.
struct OwnServer {
    OwnServer(const std::string& settings, const std::function<void(TempFolder&)>& prepare) {
        share.Write("x.foo", "payload");
        home.Write("mount.ini", "mounts+=docs|" + share.Path() + "|x|yes|x|no\r\n" + settings);
        prepare(home);
        config = std::make_unique<KorvelConfig>(home / "mount.ini");
        skins.LoadAll(home.Path(), config->defaultSkin);
        server = std::make_unique<KorvelServer>(*config, skins, home.Path());
        EXPECT_TRUE(server->Start(0));
    }
    ~OwnServer() { server->Stop(); }
    [[nodiscard]] int Port() const { return server->GetPort(); }

    TempFolder share;
    TempFolder home;
    std::unique_ptr<KorvelConfig> config;
    SkinManager skins;
    std::unique_ptr<KorvelServer> server;
};

TEST(KorvelServerTest, TwoServersInOneProcessKeepTheirOwnServices) {
    OwnServer a("ipFilterTable+=127.0.0.*:ban\r\n", [](TempFolder& home) {
        home.Write("mime-type.txt", "application/x-first\tfoo\ntext/x-own-css\tcss\n");
        home.Write("skin/mine/setting.ini", "skin=page.html\r\nfiles+=look.css\r\n");
        home.Write("skin/mine/page.html", "$title");
        home.Write("skin/mine/look.css", "body{}");
    });
    OwnServer b("authorities+=.anonymous|docs|7\r\n", [](TempFolder& home) {
        home.Write("mime-type.txt", "application/x-second\tfoo\n");
    });

    // Each its own settings: the first bans this address, the second does not.
    EXPECT_EQ(Get(a.Port(), "/docs/x.foo").status, 403);
    HttpResponse file = Get(b.Port(), "/docs/x.foo");
    EXPECT_EQ(file.body, "payload");
    // Each its own MIME table.
    EXPECT_EQ(file.Header("Content-Type"), "application/x-second");
    // Skin files come before the IP filter, from each server's own skins and types.
    HttpResponse css = Get(a.Port(), "/mine/look.css?action=SkinFile");
    EXPECT_EQ(css.body, "body{}");
    EXPECT_EQ(css.Header("Content-Type"), "text/x-own-css");
    EXPECT_EQ(Get(b.Port(), "/mine/look.css?action=SkinFile").status, 404);
    // Each its own upload table.
    std::string body = testing::MultipartBody({{"uploadfile", "up.txt", "uploaded"}});
    HttpResponse uploaded =
        testing::Fetch(b.Port(), testing::MultipartHead("/docs/?key=k1", body.size()) + body);
    EXPECT_EQ(uploaded.status, 200);
    EXPECT_EQ(b.share.Read("up.txt"), "uploaded");
    HttpResponse progress = Get(b.Port(), "/docs/?action=UploadStatus&key=k1");
    EXPECT_NE(progress.body.find("100"), std::string::npos);
}

}  // namespace
}  // namespace Zarn
