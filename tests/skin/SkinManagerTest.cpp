#include <gtest/gtest.h>

#include "skin/SkinManager.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::LogCapture;
using testing::TempFolder;

std::string Render(const Skin& skin, TextContent content = {}) {
    MemoryOutputStream out;
    skin.GetPage().Write(content, out);
    return out.Data();
}

void WriteSkin(const TempFolder& home, const std::string& folder, const std::string& page) {
    home.Write(folder + "/setting.ini",
               "\xEF\xBB\xBFskin=page.html\r\nfiles+=static.css\r\nfiles+=missing.png\r\n"
               "files+=../../mount.ini\r\ni18nfiles+=script.js\r\n");
    home.Write(folder + "/page.html", page);
    home.Write(folder + "/static.css", "body { color: #end; }");
    home.Write(folder + "/script.js", "var price = '$5'; var x = $notAVariable; #U(\"확인\")");
}

TEST(SkinManagerTest, LoadsFolderDeveloperAndBuiltInSkins) {
    TempFolder home;
    home.Write("mount.ini", "secret");
    WriteSkin(home, "skin/foo", "<p>$title</p>");
    home.Write("skin/no-settings/page.html", "x");
    WriteSkin(home, "skin/.hidden", "hidden");
    WriteSkin(home, "res/skin", "developer $title");
    LogCapture capture;
    SkinManager skins;
    skins.LoadAll(home.Path(), "");
    EXPECT_EQ(skins.ListNames(), (std::vector<std::string>{".default", "develop", "foo"}));
    EXPECT_EQ(skins.GetSelectedName(), ".default");

    std::shared_ptr<const Skin> foo = skins.Find("foo");
    ASSERT_NE(foo, nullptr);
    TextContent content;
    content.SetScalar("$title", "T");
    EXPECT_EQ(Render(*foo, content), "<p>T</p>");
    EXPECT_EQ(*foo->FindFile("static.css"), "body { color: #end; }");  // static: untouched
    // Rendered once at load: the directive is translated, stray "$" text stays.
    EXPECT_EQ(*foo->FindFile("script.js"), "var price = '$5'; var x = $notAVariable; 확인");
    EXPECT_EQ(foo->FindFile("missing.png"), nullptr);
    EXPECT_EQ(foo->FindFile("../../mount.ini"), nullptr);  // never a file outside the skin
    EXPECT_TRUE(capture.Contains(kLogError, "스킨 sysrp-file 로드 실패: missing.png"));
    EXPECT_NE(skins.Find(".default")->FindFile("logo.png"), nullptr);
}

TEST(SkinManagerTest, SelectsReloadsAndRefusesBrokenOrMissingSkins) {
    TempFolder home;
    WriteSkin(home, "skin/foo", "old page");
    SkinManager skins;
    skins.LoadAll(home.Path(), "foo");
    EXPECT_EQ(skins.GetSelectedName(), "foo");
    // A request in flight keeps the skin it started with.
    std::shared_ptr<const Skin> in_flight = skins.GetSelected();
    WriteSkin(home, "skin/foo", "new page");
    WriteSkin(home, "skin/broken", "#if( $x )never closed");
    LogCapture capture;
    skins.LoadAll(home.Path(), "gone");
    EXPECT_EQ(Render(*in_flight), "old page");
    EXPECT_EQ(Render(*skins.Find("foo")), "new page");
    EXPECT_FALSE(skins.Has("broken"));
    EXPECT_TRUE(capture.Contains(kLogError, "스킨 템플릿 오류: '#end' expected"));
    EXPECT_EQ(skins.GetSelectedName(), ".default");
    int mentions = 0;
    for (const auto& [level, line] : capture.Lines())
        mentions += line == "기본스킨으로 지정된 gone 스킨이 없음!";
    EXPECT_EQ(mentions, 1);
    EXPECT_FALSE(skins.Select("nothing"));
    EXPECT_EQ(skins.GetSelectedName(), ".default");
}

}  // namespace
}  // namespace Zarn
