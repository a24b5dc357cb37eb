// The skin shipped in res/skin/, read from the source tree as the developer skin is: its
// description names exactly the files that are there, the pages render completely, the links
// point at files the server will hand out, and English covers every text. What the pages
// show is left to the listing's end-to-end and browser tests.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "core/EmbeddedResources.h"
#include "i18n/LocalizationStringTable.h"
#include "skin/SkinConfig.h"
#include "skin/SkinManager.h"
#include "skin/Unzip.h"
#include "template/TemplateScanner.h"
#include "template/TextTemplate.h"

namespace Zarn {
namespace {

const std::string kRes = LUMIDROP_SOURCE_DIR "/res/";
const std::string kSkin = kRes + "skin/";

std::string MustRead(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << "cannot read " << path;
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

struct Description {
    std::string skin;
    std::vector<std::string> files, i18nfiles;
};

Description Describe() {
    SkinConfig config;
    EXPECT_TRUE(config.LoadText(MustRead(kSkin + SkinConfig::kFileName)));
    return {config.skin, config.files, config.i18nfiles};
}

std::string Render(const std::string& file, TextContent content) {
    TextTemplate page;
    page.Parse(MustRead(kSkin + file));
    MemoryOutputStream out;
    page.Write(content, out);
    return out.TakeData();
}

// A page as the server fills it, values escaped as the server escapes them.
TextContent Page(const std::string& path, std::initializer_list<const char*> scalars) {
    TextContent content;
    for (auto it = scalars.begin(); it != scalars.end(); it += 2)
        content.SetScalar(it[0], it[1]);
    for (auto [name, value] : {std::pair{"$skin", ".default"},
                               {"$version", "0.952"},
                               {"$revision", "1187"},
                               {"$server_addr", "127.0.0.1"},
                               {"$server_port", "8080"},
                               {"$current_login_id", ""}}) {
        content.SetScalar(name, value);
    }
    content.SetScalar("$server_path", path);
    content.SetScalar("$server_path_encoded", path);
    return content;
}

TextContent FolderPage() {
    TextContent content =
        Page("music/rock%20%26%20roll/",
             {"$address", "/music/rock &amp; roll/", "$show_files", "1", "$total_size", "4,404,036",
              "$display_upper", "1", "$free_space", "12,345,678,901", "$total_size_readable",
              "4.4 MB", "$free_space_readable", "12.3 GB"});
    content.SetList("$files", {{{"$name", "Live &amp; Loud"},
                                {"$link", "Live%20%26%20Loud"},
                                {"$size", ""},
                                {"$date", ""},
                                {"$is_folder", "1"}},
                               {{"$name", "&lt;b&gt;.txt"},
                                {"$link", "%3cb%3e.txt"},
                                {"$size", "4,404,036"},
                                {"$size_readable", "4.4 MB"},
                                {"$date", "2024-03-05 PM 01:05"},
                                {"$mime", "text/plain"}}});
    content.SetScalar("$upload_path", "/music/rock%20%26%20roll/");
    content.SetList("$skins", {{{"$name", ".default"}}, {{"$name", "develop"}}});
    content.SetList("$view_plugins", {});
    content.SetList("$action_plugins", {});
    return content;
}

bool IsName(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// Template text that reached the browser (a variable or a directive) would show as such.
void ExpectCompletePage(const std::string& html) {
    EXPECT_TRUE(html.starts_with("<!DOCTYPE html>"));
    EXPECT_NE(html.find("charset=\"utf-8\""), std::string::npos);
    EXPECT_NE(html.find("Korvel Lumidrop 0.952 (r1187)"), std::string::npos);
    EXPECT_NE(html.find("</html>"), std::string::npos);
    for (size_t at = html.find('$'); at != std::string::npos; at = html.find('$', at + 1)) {
        EXPECT_FALSE(at + 1 < html.size() && IsName(html[at + 1])) << html.substr(at, 20);
    }
    for (const char* directive : {"#if", "#else", "#end", "#foreach", "#U(", "#QU("}) {
        EXPECT_EQ(html.find(directive), std::string::npos) << directive;
    }
}

// A file left out of the description would never be served; the program must show its pages
// with nothing beside the executable.
TEST(BuiltInSkinTest, DescriptionNamesTheFilesThatShipAndTheProgramCarriesThem) {
    Description config = Describe();
    std::set<std::string> listed(config.files.begin(), config.files.end());
    listed.insert(config.i18nfiles.begin(), config.i18nfiles.end());
    listed.insert({config.skin, SkinConfig::kFileName});
    std::set<std::string> present;
    for (const auto& entry : std::filesystem::directory_iterator(kSkin))
        present.insert(entry.path().filename().string());
    EXPECT_EQ(present, listed);

    std::optional<std::string_view> archive = FindEmbeddedResource(SkinManager::kBuiltInResource);
    ASSERT_TRUE(archive.has_value());
    Teko::Unzip unzip;
    ASSERT_TRUE(unzip.Load(archive->data(), archive->size()));
    for (const std::string& name : listed)
        EXPECT_EQ(unzip.Extract(name), MustRead(kSkin + name)) << name;
    EXPECT_EQ(FindEmbeddedResource("robots.txt"), MustRead(kRes + "robots.txt"));
    EXPECT_EQ(FindEmbeddedResource("favicon.ico"), MustRead(kRes + "favicon.ico"));
}

// The server hands out a skin file only for a query of exactly "action=SkinFile", so every
// reference must have that query and name a file of the description.
TEST(BuiltInSkinTest, PagesRenderCompletelyAndReferenceOnlyServableFiles) {
    std::string message =
        Render("skin.html", Page("", {"$title", "404 Not Found", "$content", "Gone.",
                                      "$content_hide_back_button", "1"}));
    ExpectCompletePage(message);
    EXPECT_NE(message.find("<title>404 Not Found - Korvel Lumidrop</title>"), std::string::npos);
    EXPECT_EQ(message.find("data-back"), std::string::npos);

    Description config = Describe();
    std::set<std::string> served(config.files.begin(), config.files.end());
    served.insert(config.i18nfiles.begin(), config.i18nfiles.end());
    std::vector<std::pair<std::string, std::string>> outputs{
        {"skin.html", Render("skin.html", FolderPage())},
        {"dev-style.css", MustRead(kSkin + "dev-style.css")}};
    for (const std::string& name : config.i18nfiles)
        outputs.emplace_back(name, Render(name, {}));

    ExpectCompletePage(outputs[0].second);
    EXPECT_NE(outputs[0].second.find("type=\"file\" name=\"uploadfile\" multiple"),
              std::string::npos);
    int references = 0;
    for (const auto& [name, text] : outputs) {
        for (const std::string opener : {"src=\"", "href=\"", "url(\""}) {
            for (size_t at = text.find(opener); at != std::string::npos;
                 at = text.find(opener, at + 1)) {
                size_t begin = at + opener.size();
                std::string url = text.substr(begin, text.find('"', begin) - begin);
                if (url.find("action=SkinFile") == std::string::npos) continue;
                SCOPED_TRACE(name + ": " + url);
                url = url.substr(0, url.find('#'));
                size_t query = url.find('?');
                ASSERT_NE(query, std::string::npos);
                EXPECT_EQ(url.substr(query), "?action=SkinFile");
                std::string path = url.substr(0, query);
                // The sheet's are relative, so that they follow the skin that serves it.
                EXPECT_TRUE(name != "skin.html" || path.starts_with("/.default/"));
                EXPECT_TRUE(name != "dev-style.css" || path.find('/') == std::string::npos);
                EXPECT_EQ(served.count(path.substr(path.rfind('/') + 1)), 1u);
                ++references;
            }
        }
    }
    EXPECT_GT(references, 10);
}

// The keys of the #U and #QU directives, read as the template parser reads them.
TEST(BuiltInSkinTest, EveryTextHasAnEnglishTranslation) {
    std::istringstream in(MustRead(kRes + "Language/English.wul"));
    std::array<std::string, 3> descriptions;
    ASSERT_TRUE(LocalizationStringTable::ReadHeader(in, descriptions));
    LocalizationStringTable english;
    ASSERT_TRUE(english.Load(in));
    Description config = Describe();
    std::vector<std::string> files{config.skin};
    files.insert(files.end(), config.i18nfiles.begin(), config.i18nfiles.end());
    std::set<std::string> keys;
    for (const std::string& name : files) {
        const std::string text = MustRead(kSkin + name);  // the scanner only views it
        TemplateScanner scanner(text);
        using Kind = TemplateScanner::Kind;
        for (auto token = scanner.Next(); token.kind != Kind::kEndOfText; token = scanner.Next()) {
            if (token.kind != Kind::kU && token.kind != Kind::kQU) continue;
            scanner.SkipWhiteSpace();
            std::string_view key;
            ASSERT_TRUE(scanner.Expect('(') && scanner.ReadQuoted(key)) << name;
            EXPECT_NE(english.Lookup(std::string(key)), key)
                << name << ": English.wul lacks " << key;
            keys.emplace(key);
        }
    }
    EXPECT_GT(keys.size(), 30u);
}

}  // namespace
}  // namespace Zarn
