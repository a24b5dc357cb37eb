#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "support/RunningShare.h"
#include "support/Shell.h"
#include "support/WaitUntil.h"

namespace Zarn::testing {
namespace {

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
};

// Each library in Plugin/ is loaded or refused with its reason, on the Plug-ins page and
// in the log; Initialize and Finalize run as promised.
TEST_F(PluginEndToEndTest, LoadsGoodLibrariesAndRefusesEachBrokenOneWithItsReason) {
    for (const char* variant :
         {"probe", "probe_action", "probe_no_authority", "probe_init_fails", "probe_newer"})
        Install(variant);
    Install("probe", "second_probe");  // another copy of a name already taken
    home_.Write("Plugin/not_a_library.so", "text");
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
    std::filesystem::remove(home_ / "Plugin/probe.so");
    EXPECT_EQ(console_->Post("plugins/reload", "").status, 200);
    EXPECT_EQ(CountEvents("probe finalized"), 2u);
    EXPECT_EQ(status_of("probe.so"), "loaded");  // the list read before the reload
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
    std::filesystem::create_directory_symlink("/etc", share_ / "sub/out");
    StartWithConsole();

    std::string echo = Probe("q=a%20b&selectedFiles=a.txt%0Ab.txt", "X-Probe: here\r\n");
    for (const char* line :
         {"path=docs/sub/\n", "query=a b\n", "missing=(null)\n", "header=here\n",
          "client=127.0.0.1\n", "user=\n", "rights=3\n", "selected=a.txt\nb.txt\n",
          "escaped=&lt;a href=&quot;x&quot;&gt;&amp;&#39;\n", "encoded=a%20b/c\n",
          "translated=probe says hello\n"})
        EXPECT_TRUE(Contains(echo, line)) << line << " in " << echo;
    EXPECT_TRUE(Contains(console_->Get("log").body, "probe echoed"));

    // local_path: inside the mount and the rights, and not hidden; new files may be named.
    struct Case {
        const char* path;
        const char* need;
        bool found;
    };
    for (const Case& each :
         {Case{"docs/sub/a.txt", "2", true}, Case{"docs/sub/new.txt", "0", true},
          Case{"docs/sub/a.txt", "4", false}, Case{"docs/sub/../a.txt", "0", false},
          Case{"docs/sub/out/passwd", "0", false}, Case{"docs/sub/.secret", "0", false},
          Case{"docs/none/new.txt", "0", false}, Case{"/etc/passwd", "0", false},
          Case{"nomount/x", "0", false}}) {
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

// A reload lets a running request finish on the library it began with; Finalize waits.
TEST_F(PluginEndToEndTest, ReloadKeepsARunningRequestAlive) {
    Install("probe");
    share_.Write("sub/a.txt", "a");
    StartWithConsole();
    TCPSocket slow = ConnectTo(port_);
    SendAll(slow,
            "GET /docs/sub/?action=Plugin&plugin=probe&mode=slow HTTP/1.1\r\n"
            "Connection: close\r\n\r\n");
    std::string received;
    char buffer[4096];
    while (!Contains(received, "first half,"))
        received.append(buffer, static_cast<size_t>(slow.Receive(buffer, sizeof buffer)));
    std::filesystem::remove(home_ / "Plugin/probe.so");
    EXPECT_EQ(console_->Post("plugins/reload", "").status, 200);
    EXPECT_EQ(Probe("").find("path="), std::string::npos);  // gone for new requests
    EXPECT_EQ(CountEvents("probe finalized"), 0u);
    home_.Write("Plugin/probe/go", "");
    received += ReadToClose(slow);
    EXPECT_TRUE(Contains(received, "first half, second half")) << received;
    EXPECT_TRUE(WaitUntil([&] { return CountEvents("probe finalized") == 1; }));
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

}  // namespace
}  // namespace Zarn::testing
