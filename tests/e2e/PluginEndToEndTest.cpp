// Plug-ins in the real program: the probe libraries of tests/server/plugin, each loaded or
// refused with its reason, what the host hands them, who may run them; the documented
// example built from the public header alone; and the plug-ins that ship inside the
// program, as a fresh home gets them and as visitors' media players use the playlist: every
// address it lists is fetched by curl, as a player would fetch it, and must download the
// very file it names.

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "core/EmbeddedResources.h"
#include "core/UrlCodec.h"
#include "support/RunningShare.h"
#include "support/Shell.h"
#include "support/WaitUntil.h"

namespace Zarn::testing {
namespace {

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\n', start);
        lines.push_back(text.substr(start, end - start));
        start = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
}

// The probe plug-ins of tests/server/plugin, installed into the home's Plugin/ folder.
class PluginEndToEndTest : public RunningShare {
protected:
    void Install(const std::string& variant, const std::string& as = "") {
        std::filesystem::create_directories(home_ / "Plugin/probe");
        std::filesystem::copy_file(std::string(LUMIDROP_PROBE_PLUGINS) + "/" + variant + ".so",
                                   home_ / ("Plugin/" + (as.empty() ? variant : as) + ".so"),
                                   std::filesystem::copy_options::overwrite_existing);
    }
    // The lines the probes wrote from Initialize and Finalize.
    [[nodiscard]] std::string Events() const { return home_.Read("Plugin/events"); }
    [[nodiscard]] size_t CountEvents(const std::string& line) const {
        std::string events = Events();
        size_t count = 0;
        for (size_t at = events.find(line + "\n"); at != std::string::npos;
             at = events.find(line + "\n", at + 1))
            count += at == 0 || events[at - 1] == '\n';
        return count;
    }
    // What `lumidrop ctl plugins ...` prints.
    [[nodiscard]] std::string Ctl(const std::string& words) const {
        EXPECT_TRUE(WaitUntil([&] { return home_.Exists("console.port"); }));
        CommandResult ctl = Shell(LUMIDROP_BINARY " ctl --home " + home_.Path() + " " + words);
        EXPECT_EQ(ctl.status, 0) << words;
        return ctl.output;
    }
    [[nodiscard]] std::string Probe(const std::string& query, const std::string& headers = "") {
        return Visit("/docs/sub/?action=Plugin&plugin=probe&" + query, headers).body;
    }
    // The playlist of the folder "Music mix" for these selected names (none: no selection).
    HttpResponse Playlist(const std::vector<std::string>& selected) const {
        std::string target = "/docs/Music%20mix/?action=Plugin&plugin=playlist";
        std::string joined;
        for (const std::string& name : selected)
            joined += (joined.empty() ? "" : "\n") + name;
        if (!selected.empty()) target += "&selectedFiles=" + UrlEncode(joined);
        return Fetch(port_, "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" +
                                std::to_string(port_) + "\r\n\r\n");
    }
};

// Each library in Plugin/ is loaded or refused with its reason, on the Plug-ins page and
// in the log; Initialize and Finalize run as promised.
TEST_F(PluginEndToEndTest, LoadsGoodLibrariesRefusesBrokenOnesAndReloadsUnderRunningRequests) {
    for (const char* variant :
         {"probe", "probe_action", "probe_no_authority", "probe_init_fails", "probe_newer"})
        Install(variant);
    Install("probe", "second_probe");  // another copy of a name already taken
    home_.Write("Plugin/not_a_library.so", "text");
    share_.Write("sub/a.txt", "a");
    StartWithConsole();

    std::string list = console_->Get("plugins").body;
    auto status_of = [&](const std::string& file) {
        size_t at = list.find("\"file\":\"" + file + "\"");
        size_t status = list.find("\"status\":", at);
        return at == std::string::npos
                   ? "(absent)"
                   : list.substr(status + 10, list.find('"', status + 10) - status - 10);
    };
    EXPECT_EQ(status_of("probe.so"), "loaded");
    EXPECT_EQ(status_of("probe_action.so"), "loaded");
    EXPECT_EQ(status_of("probe_no_authority.so"),
              "the entry point GetRequiredAuthority is missing");
    EXPECT_EQ(status_of("probe_init_fails.so"), "Initialize failed");
    EXPECT_EQ(status_of("probe_newer.so"),
              "built for a newer interface (version 2); this program has version 1");
    EXPECT_EQ(status_of("second_probe.so"), "a plug-in of the same name is already loaded");
    EXPECT_TRUE(Contains(status_of("not_a_library.so"), "Cannot open the library")) << list;
    EXPECT_TRUE(Contains(list, "\"author\":\"Probe Author\",\"version\":\"0.1\",\"type\":\"view\""))
        << list;
    std::string log = console_->Get("log").body;
    EXPECT_TRUE(Contains(log, "probe_init_fails.so is not used: Initialize failed")) << log;
    EXPECT_TRUE(Contains(log, "probe says hello"));

    // A refused Initialize is not finalised; a plug-in that initialised is, once unloaded.
    std::string events = Events();
    EXPECT_TRUE(Contains(events, "probe_init_fails initialized"));
    EXPECT_FALSE(Contains(events, "probe_init_fails finalized"));
    EXPECT_TRUE(Contains(events, "probe_newer finalized"));
    EXPECT_EQ(CountEvents("probe finalized"), 1u);  // the copy, refused after Initialize

    // A reload lets a running request finish on the library it began with; Finalize waits.
    TCPSocket slow = ConnectTo(port_);
    SendAll(slow,
            "GET /docs/sub/?action=Plugin&plugin=probe&mode=slow HTTP/1.1\r\nConnection: "
            "close\r\n\r\n");
    std::string received;
    char buffer[4096];
    while (!Contains(received, "first half,"))
        received.append(buffer, static_cast<size_t>(slow.Receive(buffer, sizeof buffer)));
    std::filesystem::remove(home_ / "Plugin/probe.so");
    EXPECT_EQ(console_->Post("plugins/reload", "").status, 200);
    EXPECT_EQ(CountEvents("probe finalized"), 1u);
    home_.Write("Plugin/probe/go", "");
    received += ReadToClose(slow);
    EXPECT_TRUE(Contains(received, "first half, second half")) << received;
    EXPECT_TRUE(WaitUntil([&] { return CountEvents("probe finalized") == 2; }));
    list = console_->Get("plugins").body;
    EXPECT_EQ(status_of("probe.so"), "(absent)");
    EXPECT_EQ(status_of("second_probe.so"), "loaded");  // the name is free now

    // The same from the command line.
    Install("probe");
    std::string table = Ctl("plugins reload");
    EXPECT_TRUE(Contains(table, "probe.so")) << table;
    EXPECT_TRUE(Contains(Ctl("plugins"), "Initialize failed"));
}

// What a plug-in reads of the request and writes of the response, through the host.
TEST_F(PluginEndToEndTest, HostFunctionsServeTheRequestAndKeepThePluginInsideTheRights) {
    Install("probe");
    share_.Write("sub/a.txt", "a");
    share_.Write("sub/.secret", "s");
    StartWithConsole();

    std::string echo = Probe("q=a%20b&selectedFiles=a.txt%0Ab.txt", "X-Probe: here\r\n");
    for (const char* line :
         {"path=docs/sub/\n", "query=a b\n", "missing=(null)\n", "header=here\n",
          "client=127.0.0.1\n", "user=\n", "rights=3\n", "selected=a.txt\nb.txt\n",
          "escaped=&lt;a href=&quot;x&quot;&gt;&amp;&#39;\n", "encoded=a%20b/c\n",
          "translated=probe says hello\n"})
        EXPECT_TRUE(Contains(echo, line)) << line << " in " << echo;
    EXPECT_TRUE(Contains(console_->Get("log").body, "probe echoed"));

    // local_path: inside the rights, and not hidden; new files may be named.
    struct Case {
        const char* path;
        const char* need;
        bool found;
    };
    for (const Case& each :
         {Case{"docs/sub/a.txt", "2", true}, Case{"docs/sub/new.txt", "0", true},
          Case{"docs/sub/a.txt", "4", false}, Case{"docs/sub/.secret", "0", false},
          Case{"docs/none/new.txt", "0", false}, Case{"nomount/x", "0", false}}) {
        std::string local = Probe("local=" + std::string(each.path) + "&need=" + each.need);
        std::string wanted =
            each.found ? "local=" + share_.Path() + "/" + std::string(each.path).substr(5) + "\n"
                       : "local=(null)\n";
        EXPECT_TRUE(Contains(local, wanted)) << each.path << ": " << local;
    }

    // The head: the plug-in's status and length; the framing headers stay the host's.
    HttpResponse framed = Visit("/docs/sub/?action=Plugin&plugin=probe&mode=framed");
    EXPECT_EQ(framed.status_line, "HTTP/1.1 202 Taken");
    EXPECT_EQ(framed.Header("Content-Length"), "5");
    EXPECT_EQ(framed.Header("X-Probe"), "yes");
    EXPECT_EQ(framed.Header("Injected"), "");
    EXPECT_EQ(framed.body, "hello");
    EXPECT_TRUE(Contains(console_->Get("log").body, "-4 -1 -1"));
    HttpResponse silent = Visit("/docs/sub/?action=Plugin&plugin=probe&mode=silent");
    EXPECT_EQ(silent.status, 200);
    EXPECT_EQ(silent.Header("Content-Length"), "0");
    HttpResponse failed = Visit("/docs/sub/?action=Plugin&plugin=probe&mode=fail");
    EXPECT_EQ(failed.status, 500);
    EXPECT_TRUE(Contains(failed.body, "The plug-in could not answer the request."));

    // Bodies: an urlencoded form by field, a multipart one as raw bytes.
    std::string post =
        "POST /docs/sub/?action=Plugin&plugin=probe&mode=post HTTP/1.1\r\n"
        "Connection: close\r\n";
    EXPECT_TRUE(Contains(Fetch(port_, post + "Content-Type: application/x-www-form-urlencoded\r\n"
                                             "Content-Length: 13\r\n\r\nfield=a%26b&x")
                             .body,
                         "field=a&b\n"));
    std::string raw = Fetch(port_, post +
                                       "Content-Type: multipart/form-data; boundary=b\r\n"
                                       "Content-Length: 10000\r\n\r\n" +
                                       std::string(10000, 'x'))
                          .body;
    EXPECT_TRUE(Contains(raw, "body bytes=10000\n")) << raw;
}

// Who may run a plug-in, and what PluginResource serves to whom.
TEST_F(PluginEndToEndTest, DispatchChecksRightsAndConfinesResources) {
    Install("probe");
    Install("probe_action");
    home_.Write("Plugin/probe/script.js", "probe();");
    home_.Write("Plugin/secret.txt", "outside");
    std::filesystem::create_symlink(home_ / "Plugin/secret.txt", home_ / "Plugin/probe/link.txt");
    share_.Write("sub/a.txt", "a");
    // Banned here, yet plug-in resources are public.
    Start("ipFilterTable+=127.0.0.*:ban\r\n");
    EXPECT_EQ(Visit("/docs/").status, 403);
    HttpResponse script = Visit("/?action=PluginResource&plugin=probe&file=script.js");
    EXPECT_EQ(script.status, 200);
    EXPECT_EQ(script.body, "probe();");
    EXPECT_EQ(script.Header("Content-Type"), "text/javascript");
    EXPECT_FALSE(script.Header("ETag").empty());
    for (const char* escape : {"../secret.txt", "link.txt", "%2Fetc%2Fpasswd", "", "missing.js"}) {
        std::string target = "/?action=PluginResource&plugin=probe&file=" + std::string(escape);
        EXPECT_EQ(Visit(target).status, 404) << escape;
    }
    EXPECT_EQ(Visit("/?action=PluginResource&plugin=nothing&file=script.js").status, 404);

    // The list right, and what the plug-in asks for besides (the action probe: download).
    Start("authorities+=.anonymous|docs|0\r\n");
    EXPECT_EQ(Visit("/docs/sub/?action=Plugin&plugin=probe").status, 401);
    Start("authorities+=.anonymous|docs|1\r\n");
    EXPECT_EQ(Visit("/docs/sub/?action=Plugin&plugin=probe").status, 200);
    EXPECT_EQ(Visit("/docs/sub/?action=Plugin&plugin=probe_action").status, 401);
    std::string listing = Visit("/docs/sub/").body;
    EXPECT_TRUE(Contains(listing, "plugin=probe\"")) << listing;
    EXPECT_FALSE(Contains(listing, "probe_action"));
    Start();
    EXPECT_TRUE(Contains(Visit("/docs/sub/").body, "probe_action"));
    // An action acts on what was ticked: no other site may make a visitor's browser run it;
    // a view may be linked to from anywhere.
    const std::string elsewhere = "Sec-Fetch-Site: cross-site\r\n";
    EXPECT_EQ(Visit("/docs/sub/?action=Plugin&plugin=probe_action", elsewhere).status, 403);
    EXPECT_EQ(Visit("/docs/sub/?action=Plugin&plugin=probe", elsewhere).status, 200);
    EXPECT_FALSE(Contains(Visit("/").body, "plugin=probe"));  // never at the root
    EXPECT_EQ(Visit("/docs/sub/a.txt?action=Plugin&plugin=probe").status, 404);
    EXPECT_EQ(Visit("/docs/sub/?action=Plugin&plugin=nothing").status, 404);
    EXPECT_EQ(Visit("/docs/sub/?action=Plugin&plugin=probe&selectedFiles=a.txt%0A../x").status,
              301);
    EXPECT_EQ(Visit("/docs/sub/?action=Plugin&plugin=probe&selectedFiles=a.txt%0A/etc").status,
              301);
}

// The example of docs/plugins.md builds with nothing but the public header and runs.
TEST_F(PluginEndToEndTest, TheDocumentedExampleBuildsFromTheHeaderAloneAndAnswers) {
    TempFolder source;
    std::string guide = ReadWholeFile(LUMIDROP_SOURCE_DIR "/docs/plugins.md");
    size_t begin = guide.find("```c\n");
    ASSERT_NE(begin, std::string::npos);
    begin += 5;
    source.Write("hello.c", guide.substr(begin, guide.find("```", begin) - begin));
    std::filesystem::create_directories(home_ / "Plugin");
    std::string build = "cc -std=c99 -Wall -Wextra -pedantic -Werror -shared -fPIC -I" +
                        std::string(LUMIDROP_SOURCE_DIR) + "/include -o " +
                        (home_ / "Plugin/hello.so") + " " + (source / "hello.c");
    ASSERT_EQ(std::system(build.c_str()), 0) << build;
    share_.Write("a&b/x.txt", "x");
    Start();
    HttpResponse hello = Visit("/docs/a%26b/?action=Plugin&plugin=hello");
    EXPECT_EQ(hello.status, 200);
    EXPECT_EQ(hello.Header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_TRUE(Contains(hello.body, "<p>Hello, visitor! This is /docs/a&amp;b/</p>"))
        << hello.body;
}

TEST_F(PluginEndToEndTest, ShippedPluginsComeBackWhenDeletedAndThePlaylistDownloadsEveryFile) {
    share_.Write("song.mp3", "music");
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
    ASSERT_TRUE(home_.Exists("Plugin/gallery/gallery.css"));
    struct stat library {};
    ASSERT_EQ(::stat((home_ / "Plugin/playlist.so").c_str(), &library), 0);
    EXPECT_EQ(library.st_mode & 0777, 0755u);

    // The owner's own change stays; what was deleted is put back.
    home_.Write("Plugin/gallery/gallery.css", "body { color: red; }\n");
    ASSERT_EQ(std::remove((home_ / "Plugin/playlist.so").c_str()), 0);
    Relaunch();
    EXPECT_EQ(home_.Read("Plugin/gallery/gallery.css"), "body { color: red; }\n");
    EXPECT_EQ(home_.Read("Plugin/playlist.so"), *FindEmbeddedResource("Plugin/playlist.so"));
    HttpResponse playlist = Visit("/docs/?action=Plugin&plugin=playlist");
    EXPECT_EQ(playlist.status, 200);
    EXPECT_EQ(playlist.body, "#EXTM3U\n#EXTINF:-1,song\nhttp://test/docs/song.mp3\n");

    if (std::system("curl --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "no curl";

    HttpResponse selected = Playlist(
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
    TempFolder downloads;
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
}  // namespace Zarn::testing
