// Starting the real program the way a desktop session or a service does: one instance
// per home folder, sharing left stopped when the owner stopped it, and SIGHUP reloading
// the data files only when all of them are good.

#include <gtest/gtest.h>
#include <signal.h>

#include "net/TCPServerSocket.h"
#include "support/RunningShare.h"
#include "support/Shell.h"
#include "support/WaitUntil.h"

namespace Zarn::testing {
namespace {

class StartupTest : public RunningShare {
protected:
    void SetUp() override {
        share_.Write("a.txt", "first");
        more_.Write("b.lumi", "second");
    }
    [[nodiscard]] std::string ProgramLog() const { return ReadWholeFile(home_.Path() + ".stderr"); }
    void Reload() const { ASSERT_EQ(::kill(program_->Pid(), SIGHUP), 0); }
    [[nodiscard]] bool LogShows(const std::string& text) const {
        return WaitUntil([&] { return Contains(ProgramLog(), text); });
    }
    [[nodiscard]] std::string MoreMount() const {
        return "mounts+=more|" + more_.Path() + "|x|yes|x|no\r\n";
    }

    TempFolder more_;
};

TEST_F(StartupTest, HangUpTakesGoodDataFilesAndKeepsEverythingWhenOneIsBroken) {
    Start();
    std::string good = home_.Read("mount.ini");
    home_.Write("mount.ini", MoreMount() + "port=eighty\r\n" + good);
    Reload();
    ASSERT_TRUE(LogShows("mount.ini line 2: port cannot be 'eighty'")) << ProgramLog();
    EXPECT_TRUE(LogShows("Nothing was reloaded"));
    EXPECT_EQ(Visit("/docs/a.txt").body, "first");
    EXPECT_EQ(Visit("/more/b.lumi").status, 404);

    home_.Write("mount.ini", good + MoreMount());
    home_.Write("mime-type.txt", "text/x-lumi lumi\n");
    Reload();
    ASSERT_TRUE(LogShows("Reloaded mount.ini")) << ProgramLog();
    HttpResponse added = Visit("/more/b.lumi");
    EXPECT_EQ(added.body, "second");
    EXPECT_EQ(added.Header("Content-Type"), "text/x-lumi");
}

TEST_F(StartupTest, OneProgramPerHomeAndSharingStoppedStaysStoppedAtTheNextLaunch) {
    StartWithConsole("port=0\r\ngetPublicIP=0\r\nuseHostName=1\r\nHostName=files.example.org\r\n");
    EXPECT_EQ(program_->ListeningLine(), "Korvel Lumidrop listening on http://files.example.org:" +
                                             std::to_string(port_) + "/\n");
    auto [status, output] =
        Shell("timeout -k 5 60 " LUMIDROP_BINARY " --home " + Quoted(home_.Path()) + " 2>&1");
    EXPECT_EQ(status, 1);
    EXPECT_TRUE(Contains(output, "already running with the home folder " + home_.Path()));
    EXPECT_TRUE(
        Contains(output, "Owner's console: http://127.0.0.1:" + std::to_string(console_->Port()) +
                             "/?token=" + console_->Token() + "\n"))
        << output;

    EXPECT_EQ(console_->Post("server/stop", "").status, 200);
    EXPECT_TRUE(Contains(home_.Read("mount.ini"), "wasRunning=0\r\n"));
    Stop();
    EXPECT_TRUE(Contains(home_.Read("mount.ini"), "wasRunning=0\r\n"));
    auto program = std::make_unique<ProgramRunner>(home_.Path(), ProgramRunner::AsSaved{});
    EXPECT_TRUE(Contains(program->ListeningLine(), "sharing is stopped"))
        << program->ListeningLine();
    ConsoleSession console(*program);
    HttpResponse started = console.Post("server/start", "");
    EXPECT_TRUE(Contains(started.body, "\"listening\":true")) << started.body;
    EXPECT_TRUE(Contains(home_.Read("mount.ini"), "wasRunning=1\r\n"));
    EXPECT_EQ(program->Stop(), 0);

    // Left running, it shares again at once on the next launch.
    program = std::make_unique<ProgramRunner>(home_.Path(), ProgramRunner::AsSaved{});
    EXPECT_TRUE(Contains(program->ListeningLine(), "listening on http://"));
    EXPECT_GT(program->Port(), 0);
}

// Port 80, a new home's default, is for root alone; a new owner must still reach the
// console's wizard to choose another, so a new home that cannot listen keeps running.
TEST_F(StartupTest, AHomeThatCannotListenOpensTheConsoleWhenNewAndEndsOtherwise) {
    TCPServerSocket holder;
    ASSERT_TRUE(holder.Listen(0));
    std::string held = std::to_string(holder.GetLocalPort());

    TempFolder fresh;
    ProgramRunner program(fresh / "home", ProgramRunner::AsSaved{},
                          {"--port", held, "--console-port", "0"});
    EXPECT_TRUE(Contains(program.ListeningLine(), "not started yet")) << program.ListeningLine();
    ConsoleSession console(program);
    EXPECT_TRUE(Contains(console.Get("setup").body, "\"due\":true"));

    // Any other home that cannot listen says so and ends, as it always did. It needs its
    // settings file: without one it is new, and stays up while the default console port is free.
    home_.Write("mount.ini", "wasRunning=1\r\n");
    std::string error;
    EXPECT_EQ(ProgramRunner::RunToEnd({"--home", home_.Path(), "--port", held}, error), 1);
    EXPECT_TRUE(Contains(error, "cannot listen on port " + held + ": Address already in use"))
        << error;
    EXPECT_EQ(ProgramRunner::RunToEnd({"--bogus"}, error), 2);
    EXPECT_EQ(ProgramRunner::RunToEnd(
                  {"--mount", "x=/no/such/path", "--home", home_.Path(), "--port", "0"}, error),
              2);

    // A new home that can have neither its port nor its console's ends right after
    // start-up, its language chosen by the locale.
    for (auto [locale, expected] : {std::pair{"ko_KR.UTF-8", "uiLanguageFile=\r\n"},
                                    std::pair{"de_DE.UTF-8", "uiLanguageFile=English.wul\r\n"}}) {
        TempFolder home;
        (void)Shell("LC_ALL= LC_MESSAGES= LANG=" + std::string(locale) + " timeout -k 5 60 " +
                    LUMIDROP_BINARY " --home " + home.Path() + " --port " + held +
                    " --console-port " + held + " 2>/dev/null");
        EXPECT_TRUE(Contains(home.Read("mount.ini"), expected)) << locale;
    }

    ASSERT_EQ(holder.Close(), 0);
    HttpResponse started = console.Post("server/start", "");
    EXPECT_TRUE(Contains(started.body, "\"listening\":true")) << started.body;
}

}  // namespace
}  // namespace Zarn::testing
