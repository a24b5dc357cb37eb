// `lumidrop ctl` as the owner runs it: the real program binary as the command line, against
// a running program (whose state is then read through its console and its visitors'
// listener) and against a home on which none runs (the change then seen by a program
// started afterwards), with the exit codes that say what failed.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>

#include "core/Base64.h"
#include "core/JsonValue.h"
#include "support/RunningShare.h"
#include "support/Shell.h"
#include "support/SpawnedProgram.h"
#include "support/WaitUntil.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::TempFolder;

struct CtlResult {
    int code = -1;
    std::string out;
    std::string err;
};

class CtlEndToEndTest : public testing::RunningShare {
protected:
    // The console's port is published just after its line is printed.
    void AwaitConsole() {
        ASSERT_TRUE(testing::WaitUntil([&] { return home_.Exists("console.port"); }));
    }
    // `lumidrop ctl --home HOME WORDS...`, for a command that keeps following the program.
    [[nodiscard]] std::vector<std::string> Argv(const std::vector<std::string>& words) const {
        std::vector<std::string> argv = {LUMIDROP_BINARY, "ctl", "--home", home_.Path()};
        argv.insert(argv.end(), words.begin(), words.end());
        return argv;
    }
    // The same run to its end, with `input` as its standard input.
    CtlResult Ctl(const std::vector<std::string>& words, const std::string& input = "") {
        scratch_.Write("stdin", input);
        std::string command;
        for (const std::string& word : Argv(words))
            command += testing::Quoted(word) + " ";
        testing::CommandResult run =
            testing::Shell(command + "<" + scratch_ / "stdin" + " 2>" + scratch_ / "stderr");
        return {run.status, run.output, scratch_.Read("stderr")};
    }
    // Runs the command and expects it to succeed.
    std::string Ok(const std::vector<std::string>& words, const std::string& input = "") {
        CtlResult result = Ctl(words, input);
        EXPECT_EQ(result.code, 0) << words[0] << " " << (words.size() > 1 ? words[1] : "") << ": "
                                  << result.err;
        return result.out;
    }
    struct Failure {
        std::vector<std::string> words;
        int code;
        std::string says;
    };
    void ExpectFailures(const std::vector<Failure>& failures) {
        for (const Failure& failure : failures) {
            CtlResult result = Ctl(failure.words);
            EXPECT_EQ(result.code, failure.code) << (failure.words.empty() ? "" : failure.words[0]);
            EXPECT_TRUE(!result.err.empty() && Contains(result.err, failure.says)) << result.err;
        }
    }
    // The visitors' answer to GET /TARGET, as the account (or nobody) asks.
    int VisitAs(const std::string& target, const std::string& credentials = "") {
        return Visit(target, credentials.empty()
                                 ? ""
                                 : "Authorization: Basic " + Base64Encode(credentials) + "\r\n")
            .status;
    }

    TempFolder scratch_;
};

TEST_F(CtlEndToEndTest, WatchesTheRunningProgram) {
    share_.Write("big.bin", std::string(1 << 20, 'b'));
    StartWithConsole("totalDownloadSpeedLimit=50\r\n");
    AwaitConsole();
    std::string status = Ok({"status"});
    EXPECT_TRUE(Contains(status, "yes, on port " + std::to_string(port_))) << status;
    std::string error;
    std::optional<JsonValue> json = JsonValue::Parse(Ok({"--json", "status"}), error);
    ASSERT_TRUE(json) << error;
    EXPECT_EQ(json->Integer("port"), port_);
    const std::string url =
        "http://127.0.0.1:" + std::to_string(console_->Port()) + "/?token=" + console_->Token();
    {
        // At a desktop a browser opens for a person, never for a script reading the
        // address: from a terminal, or when the desktop entry asks with --open.
        TempFolder bin;
        bin.Write("xdg-open", "#!/bin/sh\necho \"$1\" >> '" + bin / "opened" + "'\n");
        ASSERT_EQ(::chmod((bin / "xdg-open").c_str(), 0755), 0);
        std::string saved_path = std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin:/bin";
        ::setenv("PATH", (bin.Path() + ":" + saved_path).c_str(), 1);
        ::setenv("DISPLAY", ":99", 1);
        EXPECT_EQ(Ok({"console"}), url + "\n");
        EXPECT_FALSE(bin.Exists("opened"));
        EXPECT_EQ(Ok({"console", "--open"}), url + "\n");
        EXPECT_TRUE(bin.Exists("opened") && bin.Read("opened") == url + "\n");
        ::unsetenv("DISPLAY");
        ::setenv("PATH", saved_path.c_str(), 1);
    }
    EXPECT_TRUE(Contains(Ok({"log"}), "Korvel Lumidrop"));

    // A download paced slowly enough to be seen, followed and kicked.
    testing::SpawnedProgram watch(Argv({"transfers", "--watch"}), scratch_ / "watch.err");
    ASSERT_TRUE(watch.ReadUntil("ID  KIND"));
    testing::SpawnedProgram follow(Argv({"log", "-f"}), scratch_ / "follow.err");
    ASSERT_TRUE(follow.ReadUntil("Korvel Lumidrop"));
    TCPSocket visitor = testing::ConnectTo(port_);
    testing::SendAll(visitor, "GET /docs/big.bin HTTP/1.1\r\nHost: t\r\n\r\n");
    ASSERT_TRUE(watch.ReadUntil("/docs/big.bin")) << watch.Output();
    ASSERT_TRUE(follow.ReadUntil("SendFile started")) << follow.Output();
    std::optional<JsonValue> transfers = JsonValue::Parse(Ok({"transfers", "--json"}), error);
    ASSERT_TRUE(transfers && transfers->Items().size() == 1) << error;
    std::string id = transfers->Items()[0].Text("id");
    EXPECT_TRUE(Contains(Ok({"transfers"}), id + "  download")) << id;
    EXPECT_EQ(Ok({"kick", id}), "");
    EXPECT_TRUE(watch.ReadUntil(id + " ended")) << watch.Output();
    EXPECT_TRUE(follow.ReadUntil("Connection was kicked.")) << follow.Output();
    CtlResult again = Ctl({"kick", id});
    EXPECT_EQ(again.code, 1);
    EXPECT_TRUE(Contains(again.err, "id: ")) << again.err;

    // The program ends: the followers see their stream close and end too.
    Stop();
    EXPECT_EQ(follow.Wait(), 0);
    EXPECT_EQ(watch.Wait(), 0);
}

// One round trip per command family, first on a home where no program runs (the next one
// serves what was saved), then against the running program. What each change does is the
// console interface's own test; here, ctl's arguments, its output and its exit codes.
TEST_F(CtlEndToEndTest, EditsTheSharingModelOfflineAndOnlineAndSaysWhatFailed) {
    // Usage errors (2) and what needs a running program (3) touch nothing.
    ExpectFailures({{{}, 2, ""},
                    {{"frobnicate"}, 2, ""},
                    {{"status", "now"}, 2, ""},
                    {{"mount", "add", "only-a-name"}, 2, ""},
                    {{"rights", "bob", "docs", "xyz"}, 2, ""},
                    {{"rights", "bob", "docs", "16"}, 2, ""},
                    {{"ipfilter", "rm", "0"}, 2, ""},
                    {{"limits", "=3"}, 2, ""},
                    {{"status", "--colour"}, 2, ""},
                    {{"mount", "add", "a", "/tmp", "--note"}, 2, ""},
                    {{"status"}, 3, "not running"},
                    {{"transfers"}, 3, "not running"},
                    {{"kick", "1"}, 3, "not running"},
                    {{"log"}, 3, "not running"},
                    {{"console"}, 3, "not running"}});
    EXPECT_FALSE(home_.Exists("mount.ini"));  // a bad line touches nothing

    home_.Write("mount.ini", "mounts+=docs|" + share_.Path() +
                                 "|x|yes|x|no\r\nuiLanguageFile=English.wul\r\nconsolePort=0\r\n");
    TempFolder pictures;
    pictures.Write("cat.jpg", "meow");
    Ok({"mount", "add", "pics", pictures.Path(), "--note", "holiday"});
    Ok({"mount", "add", "cat", pictures / "cat.jpg"});
    std::string mounts = Ok({"mount", "list"});
    EXPECT_TRUE(Contains(mounts, "cat   file    " + pictures / "cat.jpg") &&
                Contains(mounts, "pics  folder  " + pictures.Path() + " ") &&
                mounts.ends_with("  holiday\n"))
        << mounts;
    EXPECT_EQ(Ok({"user", "add", "eve"}, "pw\n"), "eve\n");  // the password from standard input
    Ok({"rights", ".anonymous", "pics", "-"});
    EXPECT_EQ(Ok({"rights", "eve", "pics", "ldu"}), "eve  pics  ldu-\n");
    Ok({"ipfilter", "add", "10.1.*.*", "ban"});
    EXPECT_TRUE(Contains(Ok({"limits", "perIPdownloadConnectionLimit=4"}),
                         "perIPdownloadConnectionLimit     4\n"));
    Ok({"set", "keepAliveTimeout", "42"});
    EXPECT_EQ(Ok({"get", "keepAliveTimeout"}), "42\n");
    EXPECT_TRUE(Contains(Ok({"get"}), "keepAliveTimeout"));
    // Refusals (1) name what was wrong.
    ExpectFailures({{{"set", "keepAliveTimeout", "forever"}, 1, "keepAliveTimeout"},
                    {{"limits", "downloadConnectionLimit=lots"}, 1, ""},
                    {{"get", "noSuchKey"}, 1, ""},
                    {{"mount", "add", "pics", pictures.Path()}, 1, "name: "},
                    {{"mount", "add", "gone", pictures / "nowhere"}, 1, "path: "}});

    Relaunch();
    AwaitConsole();
    EXPECT_EQ(VisitAs("/pics/cat.jpg"), 401);
    EXPECT_EQ(VisitAs("/pics/cat.jpg", "eve:pw"), 200);
    EXPECT_EQ(Visit("/cat").body, "meow");
    EXPECT_EQ(console_->Get("ipfilter").body, "[{\"rule\":\"10.1.*.*\",\"action\":\"ban\"}]");
    EXPECT_TRUE(Contains(console_->Get("limits").body, "\"perIPdownloadConnectionLimit\":4"));
    EXPECT_TRUE(Contains(home_.Read("mount.ini"), "keepAliveTimeout=42\r\n"));

    // With the program running the same commands go to it, not to the file it holds.
    Ok({"mount", "rm", "cat"});
    EXPECT_EQ(Visit("/cat").status, 404);
    TempFolder secrets;
    secrets.Write("pw", "second\n");
    Ok({"user", "passwd", "eve", "--password-file", secrets / "pw"});
    EXPECT_EQ(VisitAs("/pics/cat.jpg", "eve:pw"), 401);
    EXPECT_EQ(VisitAs("/pics/cat.jpg", "eve:second"), 200);
    EXPECT_EQ(Ok({"--json", "user", "list"}), console_->Get("accounts").body + "\n");
    // Administration is granted only when confirmed; no terminal asks, so --yes must.
    CtlResult unconfirmed = Ctl({"rights", "eve", "pics", "ldua"});
    EXPECT_EQ(unconfirmed.code, 1);
    EXPECT_TRUE(Contains(unconfirmed.err, "confirmAdmin: ")) << unconfirmed.err;
    Ok({"rights", "eve", "pics", "15", "--yes"});
    EXPECT_TRUE(Contains(Ok({"rights"}), "eve         pics   ldua\n")) << Ok({"rights"});
    // The owner counts rules from 1, the console from 0.
    Ok({"ipfilter", "add", "127.0.0.1", "ban"});
    EXPECT_EQ(VisitAs("/pics/"), 403);
    Ok({"ipfilter", "up", "2"});
    EXPECT_EQ(Ok({"ipfilter", "list"}),
              "#  ACTION  RULE\n1  ban     127.0.0.1\n2  ban     10.1.*.*\n");
    Ok({"ipfilter", "rm", "1"});
    share_.Write(".secret", "hidden");
    Ok({"set", "showHiddenFiles", "1"});
    EXPECT_TRUE(Contains(Visit("/docs/").body, ".secret"));

    // A token that is not the running program's, and a console that is gone while the
    // program holds the home.
    const std::string token = home_.Read("console.token");
    home_.Write("console.token", std::string(32, 'a') + "\n");
    CtlResult stranger = Ctl({"mount", "list"});
    EXPECT_EQ(stranger.code, 4);
    EXPECT_TRUE(Contains(stranger.err, "refused the token")) << stranger.err;
    home_.Write("console.token", token);
    const std::string port = home_.Read("console.port");
    home_.Write("console.port", "1\n");
    EXPECT_EQ(Ctl({"status"}).code, 4);
    home_.Write("console.port", port);
    EXPECT_EQ(Ctl({"status"}).code, 0);
}

}  // namespace
}  // namespace Zarn
