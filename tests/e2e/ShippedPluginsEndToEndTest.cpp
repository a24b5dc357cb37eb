// The plug-ins that ship inside the program, as a fresh home gets them and as visitors'
// media players use the playlist: every address it lists is fetched by curl, as VLC or
// mpv would fetch it, and must download the very file it names.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <vector>

#include "core/EmbeddedResources.h"
#include "core/UrlCodec.h"
#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::Contains;

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\n', start);
        lines.push_back(text.substr(start, end - start));
        start = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
}

class ShippedPluginsEndToEndTest : public testing::RunningShare {
protected:
    // The playlist of the folder "Music mix" for these selected names (none: no selection).
    testing::HttpResponse Playlist(const std::vector<std::string>& selected) const {
        std::string target = "/docs/Music%20mix/?action=Plugin&plugin=playlist";
        std::string joined;
        for (const std::string& name : selected)
            joined += (joined.empty() ? "" : "\n") + name;
        if (!selected.empty()) target += "&selectedFiles=" + UrlEncode(joined);
        return testing::Fetch(port_, "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" +
                                         std::to_string(port_) + "\r\n\r\n");
    }
};

TEST_F(ShippedPluginsEndToEndTest, AFreshHomeGetsThePluginsAndADeletedOneComesBack) {
    share_.Write("song.mp3", "music");
    Start();
    for (const char* name :
         {"gallery.so", "playlist.so", "gallery/gallery.js", "gallery/gallery.css"}) {
        std::string resource = std::string("Plugin/") + name;
        std::optional<std::string_view> shipped = FindEmbeddedResource(resource);
        ASSERT_TRUE(shipped.has_value()) << resource;
        EXPECT_EQ(home_.Read(resource), *shipped) << resource;
    }
    struct stat library {};
    ASSERT_EQ(::stat((home_ / "Plugin/playlist.so").c_str(), &library), 0);
    EXPECT_EQ(library.st_mode & 0777, 0755u);

    // The owner's own change stays; what was deleted is put back.
    home_.Write("Plugin/gallery/gallery.css", "body { color: red; }\n");
    ASSERT_EQ(std::remove((home_ / "Plugin/playlist.so").c_str()), 0);
    Relaunch();
    EXPECT_EQ(home_.Read("Plugin/gallery/gallery.css"), "body { color: red; }\n");
    EXPECT_EQ(home_.Read("Plugin/playlist.so"), *FindEmbeddedResource("Plugin/playlist.so"));
    testing::HttpResponse playlist = Visit("/docs/?action=Plugin&plugin=playlist");
    EXPECT_EQ(playlist.status, 200);
    EXPECT_EQ(playlist.body, "#EXTM3U\n#EXTINF:-1,song\nhttp://test/docs/song.mp3\n");
}

TEST_F(ShippedPluginsEndToEndTest, PlaylistOfAwkwardNamesDownloadsEveryFileItLists) {
    if (std::system("curl --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "no curl";
    const std::vector<std::pair<std::string, std::string>> files = {
        {"a b.mp3", std::string("ID3\0\x01\xff blank", 12)},
        {"노래.flac", "fLaC korean"},
        {"#1.ogg", "OggS hash"},
        {"R&B.mp4", "ftyp ampersand"},
        {"sub/deep.m4a", "deep"},
        {"notes.txt", "not media"},
        {"other.mp3", "not selected"},
    };
    for (const auto& [name, bytes] : files)
        share_.Write("Music mix/" + name, bytes);
    share_.Write("Quiet/readme.txt", "no media here");
    Start();

    testing::HttpResponse selected = Playlist(
        {"a b.mp3", "노래.flac", "#1.ogg", "R&B.mp4", "notes.txt", "sub/deep.m4a", "missing.mp3"});
    ASSERT_EQ(selected.status, 200) << selected.body;
    EXPECT_TRUE(selected.Header("Content-Type").starts_with("audio/x-mpegurl"));
    EXPECT_TRUE(Contains(selected.Header("Content-Disposition"), "attachment;"));
    EXPECT_TRUE(Contains(selected.Header("Content-Disposition"), "Music%20mix.m3u8"));
    std::string base = "http://127.0.0.1:" + std::to_string(port_) + "/docs/Music%20mix/";
    const std::vector<std::string> expected = {
        "#EXTM3U",
        "#EXTINF:-1,a b",
        base + "a%20b.mp3",
        "#EXTINF:-1,노래",
        base + "%eb%85%b8%eb%9e%98.flac",
        "#EXTINF:-1,#1",
        base + "%231.ogg",
        "#EXTINF:-1,R&B",
        base + "R%26B.mp4",
        "#EXTINF:-1,deep",
        base + "sub/deep.m4a",
    };
    EXPECT_EQ(Lines(selected.body), expected);

    // curl fetches each address as a player does; the bytes must be the named file's.
    testing::TempFolder downloads;
    std::string command = "curl --silent --show-error --fail";
    for (size_t i = 2; i < expected.size(); i += 2)
        command += " -o " + downloads / std::to_string(i) + " '" + expected[i] + "'";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    for (size_t i = 2, file = 0; i < expected.size(); i += 2, ++file)
        EXPECT_EQ(downloads.Read(std::to_string(i)), files[file].second) << expected[i];

    // No selection: every media file directly in the folder, in natural order.
    std::vector<std::string> titles;
    for (const std::string& line : Lines(Playlist({}).body))
        if (line.starts_with("#EXTINF:-1,")) titles.push_back(line.substr(11));
    EXPECT_EQ(titles, (std::vector<std::string>{"#1", "a b", "other", "R&B", "노래"}));

    EXPECT_EQ(Visit("/docs/Quiet/?action=Plugin&plugin=playlist").status, 404);
}

}  // namespace
}  // namespace Zarn
