// The skin shipped in res/skin/, read from the source tree as the developer skin is: its
// description names exactly the files that are there, every template parses, the pages the
// server makes render completely, the links point at files the server will hand out, the
// images are what their names say, and English covers every text.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
// GCC 12 warns falsely inside std::regex when optimising with sanitizers.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "core/EmbeddedResources.h"
#include "i18n/LocalizationStringTable.h"
#include "i18n/Translate.h"
#include "skin/Crc32.h"
#include "skin/Inflater.h"
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

TEST(BuiltInSkinTest, TranslatedFilesChangeOnlyWhereTheyAskForTranslation) {
    // Unknown variables come out as written, so the only way a translated file can differ
    // from its source apart from its #U and #QU texts is a directive read where none was
    // meant, such as a colour or a fragment that happens to start like one.
    static const std::regex kTranslation(R"RE(#(Q?)U\("((?:[^"\\]|\\.)*)"\))RE");
    for (const std::string& name : TemplateFiles()) {
        SCOPED_TRACE(name);
        std::string source = MustRead(kSkin + name);
        TextTemplate file;
        ASSERT_NO_THROW(file.Parse(source));
        if (name == "skin.html") continue;  // the page has real directives

        std::string expected;
        auto last = source.cbegin();
        for (auto it = std::sregex_iterator(source.begin(), source.end(), kTranslation);
             it != std::sregex_iterator(); ++it) {
            expected.append(last, (*it)[0].first);
            std::string text = Translate((*it)[2].str());
            expected += (*it)[1].length() > 0 ? "\"" + text + "\"" : text;
            last = (*it)[0].second;
        }
        expected.append(last, source.cend());

        TextContent nothing;
        MemoryOutputStream out;
        file.Write(nothing, out);
        EXPECT_EQ(out.Data(), expected);
        EXPECT_EQ(Leftovers(out.Data()), std::vector<std::string>{});
    }
}

TEST(BuiltInSkinTest, FolderListsEntriesWithLinksIconsAndTotals) {
    TextContent content = FolderPage(false);
    std::string html = RenderPage(content);
    ExpectCompletePage(html);

    std::string folder = RowLinkingTo(html, "Live%20%26%20Loud/");
    EXPECT_NE(folder.find("data-kind=\"folder\""), std::string::npos) << folder;
    EXPECT_NE(folder.find("/.default/folder.gif?action=SkinFile"), std::string::npos);
    EXPECT_NE(folder.find("Live &amp; Loud"), std::string::npos);

    std::string file = RowLinkingTo(html, "track01.mp3");
    EXPECT_NE(file.find("data-kind=\"file\""), std::string::npos) << file;
    EXPECT_NE(file.find("/.default/file.gif?action=SkinFile"), std::string::npos);
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

TEST(BuiltInSkinTest, RootAndEmptyFolders) {
    TextContent root;
    root.SetScalar("$address", "/");
    root.SetScalar("$content", "Address: /");
    root.SetScalar("$show_files", "1");
    root.SetList("$files", {Row("music", "music", "", "", true)});
    root.SetScalar("$total_size", "0");
    AddServerVariables(root, "");
    std::string html = RenderPage(root);
    ExpectCompletePage(html);
    EXPECT_NE(RowLinkingTo(html, "music/"), "");
    EXPECT_EQ(html.find("href=\"../\""), std::string::npos);
    EXPECT_EQ(html.find(Translate("남은 공간")), std::string::npos);
    EXPECT_EQ(html.find(Translate("이 폴더는 비어 있습니다.")), std::string::npos);

    TextContent empty = FolderPage(true);
    empty.SetList("$files", {});
    empty.SetScalar("$total_size", "0");
    html = RenderPage(empty);
    ExpectCompletePage(html);
    EXPECT_NE(html.find(Translate("이 폴더는 비어 있습니다.")), std::string::npos);
    EXPECT_NE(html.find("href=\"../\""), std::string::npos);
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

TEST(BuiltInSkinTest, LoginAndLogoutFollowTheSignedInUser) {
    TextContent anonymous = FolderPage(false);
    std::string html = RenderPage(anonymous);
    EXPECT_NE(html.find("href=\"?action=Login\""), std::string::npos);
    EXPECT_EQ(html.find("?action=Logout"), std::string::npos);

    TextContent signed_in = FolderPage(false, "alice");
    html = RenderPage(signed_in);
    ExpectCompletePage(html);
    EXPECT_NE(html.find("href=\"?action=Logout\""), std::string::npos);
    EXPECT_NE(html.find(">alice</span>"), std::string::npos);
    EXPECT_EQ(html.find("?action=Login"), std::string::npos);
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

    static const std::regex kReference(R"RE((?:src|href)="([^"]*action=SkinFile[^"]*)")RE");
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
            }
            EXPECT_EQ(served.count(path.substr(path.rfind('/') + 1)), 1u);
            ++references;
        }
    }
    EXPECT_GT(references, 10);
}

// ---------------------------------------------------------------------------------------
// Images

uint32_t BigEndian32(const std::string& bytes, size_t at) {
    return static_cast<uint32_t>(static_cast<unsigned char>(bytes[at])) << 24 |
           static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + 1])) << 16 |
           static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + 2])) << 8 |
           static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + 3]));
}

uint32_t LittleEndian(const std::string& bytes, size_t at, int count) {
    uint32_t value = 0;
    for (int i = count - 1; i >= 0; --i) {
        value = value << 8 | static_cast<unsigned char>(bytes[at + static_cast<size_t>(i)]);
    }
    return value;
}

struct Size {
    uint32_t width = 0;
    uint32_t height = 0;
    bool operator==(const Size&) const = default;
};

// Walks every chunk, checks its CRC, and inflates the pixels to the size the header
// promises: a browser would show this image.
std::optional<Size> CheckPng(const std::string& png) {
    if (!png.starts_with("\x89PNG\r\n\x1a\n")) {
        ADD_FAILURE() << "no PNG signature";
        return std::nullopt;
    }
    Size size;
    int bytes_per_pixel = 0;
    std::string pixels;
    bool ended = false;
    for (size_t at = 8; at + 12 <= png.size() && !ended;) {
        uint32_t length = BigEndian32(png, at);
        if (length > png.size() - at - 12) {
            ADD_FAILURE() << "chunk runs past the end";
            return std::nullopt;
        }
        std::string kind = png.substr(at + 4, 4);
        std::string data = png.substr(at + 8, length);
        EXPECT_EQ(Teko::Crc32::Of(png.substr(at + 4, 4 + length)),
                  BigEndian32(png, at + 8 + length))
            << "CRC of " << kind;
        if (kind == "IHDR") {
            size = {BigEndian32(data, 0), BigEndian32(data, 4)};
            EXPECT_EQ(data[8], 8) << "bit depth";
            const std::map<int, int> channels{{0, 1}, {2, 3}, {4, 2}, {6, 4}};
            EXPECT_EQ(channels.count(data[9]), 1u) << "colour type";
            bytes_per_pixel = channels.count(data[9]) ? channels.at(data[9]) : 0;
        } else if (kind == "IDAT") {
            pixels += data;
        } else if (kind == "IEND") {
            ended = true;
        }
        at += 12 + length;
    }
    EXPECT_TRUE(ended) << "no IEND";
    if (pixels.size() < 6 || bytes_per_pixel == 0) {
        ADD_FAILURE() << "no image data";
        return std::nullopt;
    }
    // One filter byte per row; the zlib header is two bytes and precedes raw deflate.
    std::vector<char> raw(size.height * (1 + size.width * static_cast<uint32_t>(bytes_per_pixel)));
    EXPECT_EQ(Teko::Inflater::Inflate(std::string_view(pixels).substr(2), raw),
              Teko::Inflater::Result::kOk);
    return size;
}

std::optional<Size> CheckGif(const std::string& gif) {
    if (!gif.starts_with("GIF89a") && !gif.starts_with("GIF87a")) {
        ADD_FAILURE() << "no GIF header";
        return std::nullopt;
    }
    EXPECT_TRUE(gif.ends_with("\x3b")) << "no trailer";
    EXPECT_NE(gif.find('\x2c'), std::string::npos) << "no image";
    return Size{LittleEndian(gif, 6, 2), LittleEndian(gif, 8, 2)};
}

TEST(BuiltInSkinTest, ImagesAreWhatTheirNamesSay) {
    const std::map<std::string, Size> sizes{
        {"file.gif", {24, 24}},         {"folder.gif", {24, 24}},   {"folder_upper.gif", {24, 24}},
        {"folder_mkdir.gif", {24, 24}}, {"plugin.gif", {24, 24}},   {"upload.gif", {24, 24}},
        {"login.png", {24, 24}},        {"upsimple.png", {16, 16}}, {"downsimple.png", {16, 16}},
        {"blank.png", {1, 1}},          {"logo.png", {120, 32}}};
    for (const auto& [name, expected] : sizes) {
        SCOPED_TRACE(name);
        std::string bytes = MustRead(kSkin + name);
        std::optional<Size> size = name.ends_with(".png") ? CheckPng(bytes) : CheckGif(bytes);
        EXPECT_EQ(size, expected);
    }

    std::string icon = MustRead(kRes + "favicon.ico");
    ASSERT_GE(icon.size(), 6u);
    EXPECT_EQ(LittleEndian(icon, 0, 2), 0u);
    EXPECT_EQ(LittleEndian(icon, 2, 2), 1u) << "not an icon";
    uint32_t count = LittleEndian(icon, 4, 2);
    ASSERT_GE(icon.size(), 6 + 16 * count);
    std::set<uint32_t> sides;
    for (uint32_t i = 0; i < count; ++i) {
        size_t entry = 6 + 16 * i;
        uint32_t side = static_cast<unsigned char>(icon[entry]);
        uint32_t length = LittleEndian(icon, entry + 8, 4);
        uint32_t offset = LittleEndian(icon, entry + 12, 4);
        ASSERT_LE(uint64_t{offset} + length, icon.size());
        EXPECT_EQ(CheckPng(icon.substr(offset, length)), (Size{side, side}));
        sides.insert(side);
    }
    EXPECT_EQ(sides, (std::set<uint32_t>{16, 32}));

    std::string robots = MustRead(kRes + "robots.txt");
    EXPECT_NE(robots.find("User-agent: *\n"), std::string::npos);
    EXPECT_NE(robots.find("Disallow: /\n"), std::string::npos);
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
