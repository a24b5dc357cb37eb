// The skin shipped in res/skin/, read from the source tree as the developer skin is: its
// description names exactly the files that are there, every template parses, the pages the
// server makes render completely, the links point at files the server will hand out, and
// English covers every text.

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
// GCC 12 warns falsely inside std::regex when optimising with sanitizers.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "core/EmbeddedResources.h"
#include "i18n/LocalizationStringTable.h"
#include "i18n/Translate.h"
#include "skin/SkinConfig.h"
#include "skin/SkinManager.h"
#include "skin/Unzip.h"
#include "template/TemplateScanner.h"
#include "template/TextTemplate.h"

namespace Zarn {
namespace {

const std::string kRes = LUMIDROP_SOURCE_DIR "/res/";
const std::string kSkin = kRes + "skin/";

std::optional<std::string> ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

std::string MustRead(const std::string& path) {
    std::optional<std::string> bytes = ReadFile(path);
    EXPECT_TRUE(bytes.has_value()) << "cannot read " << path;
    return bytes.value_or("");
}

// What setting.ini says, read through the class the skin loader uses.
struct Description {
    std::string skin;
    std::string mime_type;
    std::vector<std::string> files;
    std::vector<std::string> i18n_files;
};

Description LoadDescription() {
    SkinConfig config;
    EXPECT_TRUE(config.LoadText(MustRead(kSkin + SkinConfig::kFileName)));
    return {config.skin, config.mimeType, config.files, config.i18nfiles};
}

// The files whose text passes through the template language.
std::vector<std::string> TemplateFiles() {
    Description config = LoadDescription();
    std::vector<std::string> names{config.skin};
    names.insert(names.end(), config.i18n_files.begin(), config.i18n_files.end());
    return names;
}

std::string RenderPage(TextContent& content) {
    TextTemplate page;
    page.Parse(MustRead(kSkin + "skin.html"));
    MemoryOutputStream out;
    page.Write(content, out);
    return out.TakeData();
}

// What the page sender adds to every page.
void AddServerVariables(TextContent& content, const std::string& path,
                        const std::string& login = "") {
    content.SetScalar("$skin", ".default");
    content.SetScalar("$version", "0.952");
    content.SetScalar("$revision", "1187");
    content.SetScalar("$server_addr", "127.0.0.1");
    content.SetScalar("$server_port", "8080");
    content.SetScalar("$server_path", path);
    content.SetScalar("$server_path_encoded", path);
    content.SetScalar("$current_login_id", login);
}

TextContent::Record Row(const std::string& name, const std::string& link, const std::string& size,
                        const std::string& date, bool folder) {
    TextContent::Record row{{"$name", name}, {"$link", link}, {"$size", size}, {"$date", date}};
    if (folder) row.emplace("$is_folder", "1");
    return row;
}

// A folder as the listing fills it, values escaped as the server escapes them.
TextContent FolderPage(bool upload_allowed, const std::string& login = "") {
    TextContent content;
    content.SetScalar("$address", "/music/rock &amp; roll/");
    content.SetScalar("$content", "Address: /music/rock &amp; roll/");
    content.SetScalar("$show_files", "1");
    content.SetList("$files",
                    {Row("Live &amp; Loud", "Live%20%26%20Loud", "", "", true),
                     Row("track01.mp3", "track01.mp3", "4,404,019", "2024-03-05 PM 01:05", false),
                     Row("&lt;b&gt;notes&lt;/b&gt;.txt", "%3cb%3enotes%3c/b%3e.txt", "17",
                         "2023-12-31 AM 12:00", false)});
    content.SetScalar("$total_size", "4,404,036");
    content.SetScalar("$display_upper", "1");
    content.SetScalar("$free_space", "12,345,678,901");
    if (upload_allowed) content.SetScalar("$upload_path", "/music/rock%20%26%20roll/");
    content.SetList("$skins", {{{"$name", ".default"}}, {{"$name", "develop"}}});
    content.SetList("$view_plugins", {});
    content.SetList("$action_plugins", {});
    AddServerVariables(content, "music/rock%20%26%20roll/", login);
    return content;
}

// Template text that reached the browser: a variable or a directive of the language.
std::vector<std::string> Leftovers(const std::string& html) {
    static const std::regex kLeftover(R"(\$[A-Za-z0-9_]+|#(if|else|end|foreach|U\(|QU\())");
    std::vector<std::string> found;
    for (auto it = std::sregex_iterator(html.begin(), html.end(), kLeftover);
         it != std::sregex_iterator(); ++it) {
        found.push_back(it->str());
    }
    return found;
}

// The table row that links to `href`.
std::string RowLinkingTo(const std::string& html, const std::string& href) {
    size_t link = html.find("href=\"" + href + "\"");
    if (link == std::string::npos) return {};
    size_t start = html.rfind("<tr", link);
    size_t end = html.find("</tr>", link);
    if (start == std::string::npos || end == std::string::npos) return {};
    return html.substr(start, end - start);
}

void ExpectCompletePage(const std::string& html) {
    EXPECT_TRUE(html.starts_with("<!DOCTYPE html>"));
    EXPECT_NE(html.find("charset=\"utf-8\""), std::string::npos);
    EXPECT_NE(html.find("name=\"viewport\""), std::string::npos);
    EXPECT_NE(html.find("/.default/dev-style.css?action=SkinFile"), std::string::npos);
    EXPECT_NE(html.find("Korvel Lumidrop 0.952 (r1187)"), std::string::npos);
    EXPECT_EQ(Leftovers(html), std::vector<std::string>{});
    EXPECT_NE(html.find("</html>"), std::string::npos);
}

TEST(BuiltInSkinTest, DescriptionNamesExactlyTheFilesThatShip) {
    Description config = LoadDescription();
    EXPECT_EQ(config.skin, "skin.html");
    EXPECT_EQ(config.mime_type, "text/html");
    const std::vector<std::string> files{"file.gif",         "folder.gif",    "folder_upper.gif",
                                         "folder_mkdir.gif", "logo.png",      "plugin.gif",
                                         "sortabletable.js", "dev-style.css", "blank.png",
                                         "downsimple.png",   "upsimple.png",  "login.png",
                                         "upload.gif"};
    EXPECT_EQ(config.files, files);
    EXPECT_EQ(config.i18n_files,
              (std::vector<std::string>{"common.js", "upload_frame.html", "upload_form.html"}));

    std::set<std::string> listed(config.files.begin(), config.files.end());
    listed.insert(config.i18n_files.begin(), config.i18n_files.end());
    listed.insert({config.skin, SkinConfig::kFileName});
    std::set<std::string> present;
    for (const auto& entry : std::filesystem::directory_iterator(kSkin)) {
        present.insert(entry.path().filename().string());
        EXPECT_GT(entry.file_size(), 0u) << entry.path();
    }
    // A file left out of the description would never be served.
    EXPECT_EQ(present, listed);
}

// The program must be able to show its pages with nothing beside the executable.
TEST(BuiltInSkinTest, ProgramCarriesTheSameFiles) {
    std::optional<std::string_view> archive = FindEmbeddedResource(SkinManager::kBuiltInResource);
    ASSERT_TRUE(archive.has_value());
    Teko::Unzip unzip;
    ASSERT_TRUE(unzip.Load(archive->data(), archive->size()));
    Description config = LoadDescription();
    std::vector<std::string> names{SkinConfig::kFileName, config.skin};
    names.insert(names.end(), config.files.begin(), config.files.end());
    names.insert(names.end(), config.i18n_files.begin(), config.i18n_files.end());
    for (const std::string& name : names) {
        EXPECT_EQ(unzip.Extract(name), MustRead(kSkin + name)) << name;
    }
    EXPECT_EQ(FindEmbeddedResource("robots.txt"), MustRead(kRes + "robots.txt"));
    EXPECT_EQ(FindEmbeddedResource("favicon.ico"), MustRead(kRes + "favicon.ico"));
}

TEST(BuiltInSkinTest, FolderListsEntriesWithLinksIconsAndTotals) {
    TextContent content = FolderPage(false);
    std::string html = RenderPage(content);
    ExpectCompletePage(html);

    // Rows name no icon: the style sheet gives one to each kind of row.
    std::string sheet = MustRead(kSkin + "dev-style.css");
    EXPECT_NE(sheet.find("url(\"folder.gif?action=SkinFile\")"), std::string::npos);
    EXPECT_NE(sheet.find("url(\"file.gif?action=SkinFile\")"), std::string::npos);

    std::string folder = RowLinkingTo(html, "Live%20%26%20Loud/");
    EXPECT_NE(folder.find("class=\"folder\" data-kind=\"folder\""), std::string::npos) << folder;
    EXPECT_NE(folder.find("Live &amp; Loud"), std::string::npos);

    std::string file = RowLinkingTo(html, "track01.mp3");
    EXPECT_NE(file.find("class=\"file\" data-kind=\"file\""), std::string::npos) << file;
    EXPECT_NE(file.find(">4,404,019<"), std::string::npos);
    EXPECT_NE(file.find(">2024-03-05 PM 01:05<"), std::string::npos);

    std::string escaped = RowLinkingTo(html, "%3cb%3enotes%3c/b%3e.txt");
    EXPECT_NE(escaped.find("&lt;b&gt;notes&lt;/b&gt;.txt"), std::string::npos) << escaped;
    EXPECT_EQ(html.find("<b>notes"), std::string::npos);

    std::string upper = RowLinkingTo(html, "../");
    EXPECT_NE(upper.find("folder_upper.gif"), std::string::npos) << upper;
    EXPECT_NE(html.find("4,404,036"), std::string::npos);
    EXPECT_NE(html.find("12,345,678,901"), std::string::npos);
    EXPECT_NE(html.find("/music/rock &amp; roll/"), std::string::npos);
    EXPECT_NE(html.find("data-path=\"music/rock%20%26%20roll/\""), std::string::npos);
    EXPECT_NE(html.find("href=\"?skin=develop\""), std::string::npos);
    EXPECT_NE(html.find("href=\"?skin=.default\""), std::string::npos);
    // Nothing to say when the server has no plug-ins.
    EXPECT_EQ(html.find("plugin.gif"), std::string::npos);
}

TEST(BuiltInSkinTest, UploadAndFolderFormsOnlyWhereUploadIsAllowed) {
    TextContent closed = FolderPage(false);
    std::string without = RenderPage(closed);
    for (const char* part : {"uploadfile", "MakeDirectory", "upload_form.html", "multipart"}) {
        EXPECT_EQ(without.find(part), std::string::npos) << part;
    }

    TextContent open = FolderPage(true);
    std::string with = RenderPage(open);
    ExpectCompletePage(with);
    EXPECT_NE(with.find("method=\"post\" enctype=\"multipart/form-data\" "
                        "action=\"/music/rock%20%26%20roll/?key="),
              std::string::npos);
    EXPECT_NE(with.find("type=\"file\" name=\"uploadfile\" multiple"), std::string::npos);
    EXPECT_NE(
        with.find("/.default/upload_form.html?action=SkinFile#path=/music/rock%20%26%20roll/"),
        std::string::npos);
    EXPECT_NE(with.find("method=\"get\" action=\".\""), std::string::npos);
    EXPECT_NE(with.find("name=\"action\" value=\"MakeDirectory\""), std::string::npos);
    EXPECT_NE(with.find("name=\"name\""), std::string::npos);
}

TEST(BuiltInSkinTest, MessagePagesShowTitleContentAndBackButton) {
    TextContent error;
    error.SetScalar("$title", "404 Not Found");
    error.SetScalar("$content", "The requested item was not found.");
    AddServerVariables(error, "music/gone.mp3");
    std::string html = RenderPage(error);
    ExpectCompletePage(html);
    EXPECT_NE(html.find("<title>404 Not Found - Korvel Lumidrop</title>"), std::string::npos);
    EXPECT_NE(html.find(">404 Not Found</h1>"), std::string::npos);
    EXPECT_NE(html.find(">The requested item was not found.</div>"), std::string::npos);
    EXPECT_NE(html.find("data-back"), std::string::npos);
    EXPECT_EQ(html.find("<table"), std::string::npos);

    TextContent final_word;
    final_word.SetScalar("$title", "Logout");
    final_word.SetScalar("$content", "You have logged out.");
    final_word.SetScalar("$content_hide_back_button", "1");
    AddServerVariables(final_word, "");
    html = RenderPage(final_word);
    ExpectCompletePage(html);
    EXPECT_EQ(html.find("data-back"), std::string::npos);

    // A page with an address and no title still reads as a page.
    TextContent addressed;
    addressed.SetScalar("$address", "/music/");
    addressed.SetScalar("$content", "report.txt");
    AddServerVariables(addressed, "music/");
    html = RenderPage(addressed);
    ExpectCompletePage(html);
    EXPECT_NE(html.find(">/music/</p>"), std::string::npos);
    EXPECT_NE(html.find(">report.txt</div>"), std::string::npos);
}

// The server hands out a skin file only for a query of exactly "action=SkinFile", so every
// reference must have that query and name a file of the description.
TEST(BuiltInSkinTest, ReferencesToSkinFilesAreServable) {
    Description config = LoadDescription();
    std::set<std::string> served(config.files.begin(), config.files.end());
    served.insert(config.i18n_files.begin(), config.i18n_files.end());

    TextContent listing = FolderPage(true);
    std::map<std::string, std::string> outputs{{"skin.html", RenderPage(listing)}};
    for (const std::string& name : config.i18n_files) {
        TextTemplate file;
        file.Parse(MustRead(kSkin + name));
        TextContent nothing;
        MemoryOutputStream out;
        file.Write(nothing, out);
        outputs[name] = out.TakeData();
    }

    outputs["dev-style.css"] = MustRead(kSkin + "dev-style.css");

    static const std::regex kReference(R"RE((?:src=|href=|url\()"([^"]*action=SkinFile[^"]*)")RE");
    int references = 0;
    for (const auto& [name, html] : outputs) {
        for (auto it = std::sregex_iterator(html.begin(), html.end(), kReference);
             it != std::sregex_iterator(); ++it) {
            std::string url = (*it)[1].str();
            SCOPED_TRACE(name + ": " + url);
            std::string without_fragment = url.substr(0, url.find('#'));
            size_t query = without_fragment.find('?');
            ASSERT_NE(query, std::string::npos);
            EXPECT_EQ(without_fragment.substr(query), "?action=SkinFile");
            std::string path = without_fragment.substr(0, query);
            if (name == "skin.html") {
                EXPECT_TRUE(path.starts_with("/.default/"));
            } else if (name == "dev-style.css") {
                // Relative to the sheet, so that it follows the skin that serves it.
                EXPECT_EQ(path.find('/'), std::string::npos);
            }
            EXPECT_EQ(served.count(path.substr(path.rfind('/') + 1)), 1u);
            ++references;
        }
    }
    EXPECT_GT(references, 10);
}

// ---------------------------------------------------------------------------------------
// Translation

// The keys of the #U and #QU directives, read as the template parser reads them.
std::set<std::string> TranslationKeys(const std::string& text) {
    std::set<std::string> keys;
    TemplateScanner scanner(text);
    for (TemplateScanner::Token token = scanner.Next();
         token.kind != TemplateScanner::Kind::kEndOfText; token = scanner.Next()) {
        if (token.kind != TemplateScanner::Kind::kU && token.kind != TemplateScanner::Kind::kQU) {
            continue;
        }
        scanner.SkipWhiteSpace();
        std::string_view key;
        if (scanner.Expect('(') && scanner.ReadQuoted(key)) keys.insert(std::string(key));
    }
    return keys;
}

TEST(BuiltInSkinTest, EveryTextHasAnEnglishTranslation) {
    std::istringstream in(MustRead(kRes + "Language/English.wul"));
    std::array<std::string, 3> descriptions;
    ASSERT_TRUE(LocalizationStringTable::ReadHeader(in, descriptions));
    LocalizationStringTable english;
    ASSERT_TRUE(english.Load(in));

    size_t total = 0;
    for (const std::string& name : TemplateFiles()) {
        std::set<std::string> keys = TranslationKeys(MustRead(kSkin + name));
        EXPECT_FALSE(keys.empty()) << name;
        total += keys.size();
        for (const std::string& key : keys) {
            EXPECT_NE(english.Lookup(key), key) << name << ": English.wul lacks \"" << key << "\"";
        }
    }
    EXPECT_GT(total, 30u);
}

}  // namespace
}  // namespace Zarn
