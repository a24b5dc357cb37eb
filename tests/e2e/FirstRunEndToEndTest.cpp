// A new home set up by the real program: with `lumidrop init` and no browser, and through
// the console's setup endpoints as the wizard calls them. What was chosen is then served
// (or refused) to real visitors over real sockets.

#include <gtest/gtest.h>

#include <vector>

#include "core/Base64.h"
#include "support/RunningShare.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;
using testing::ProgramRunner;

class FirstRunEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override { share_.Write("a.txt", "shared"); }

    int Init(std::vector<std::string> options, std::string& error_output) {
        std::vector<std::string> arguments = {"init", "--home", home_.Path()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return ProgramRunner::RunToEnd(arguments, error_output);
    }
    std::string Mount() const { return "docs=" + share_.Path(); }
};

TEST_F(FirstRunEndToEndTest, InitRefusesWrongChoicesAndLeavesASetUpOrRunningHomeAlone) {
    struct Case {
        std::vector<std::string> options;
        const char* says;
    };
    const std::vector<Case> cases = {
        {{}, "--mount"},
        {{"--mount", "docs"}, "NAME=PATH"},
        {{"--mount", "docs=/nowhere/at/all"}, "--mount:"},
        {{"--mount", Mount(), "--anonymous-rights", "16"}, "--anonymous-rights"},
        {{"--mount", Mount(), "--port", "0"}, "--port"},
        {{"--mount", Mount(), "--language", "Klingon.wul"}, "--language:"},
        {{"--mount", Mount(), "--user", "me"}, "--password-file"},
        {{"--mount", Mount(), "--user", "me", "--password-file", "/nowhere"}, "cannot read"},
        {{"--mount", Mount(), "--bogus"}, "unknown option"},
    };
    std::string error;
    for (const Case& test : cases) {
        EXPECT_EQ(Init(test.options, error), 2) << error;
        EXPECT_TRUE(Contains(error, test.says)) << error;
        EXPECT_FALSE(home_.Exists("mount.ini")) << error;
    }

    ASSERT_EQ(Init({"--mount", Mount()}, error), 0) << error;
    std::string settings = home_.Read("mount.ini");
    EXPECT_TRUE(Contains(settings, "firstRunDone=1"));
    EXPECT_EQ(Init({"--mount", "more=" + share_.Path()}, error), 1);
    EXPECT_TRUE(Contains(error, "--force")) << error;
    EXPECT_EQ(home_.Read("mount.ini"), settings);
    Relaunch();
    EXPECT_EQ(Init({"--mount", "more=" + share_.Path(), "--force"}, error), 1);
    EXPECT_TRUE(Contains(error, "running")) << error;
    Stop();
    EXPECT_EQ(Init({"--mount", Mount(), "--force"}, error), 2);  // a forced init checks too

    // What was chosen is what visitors get, mount by mount; the owner's account uploads.
    testing::TempFolder secrets;
    secrets.Write("password", "s3cret\n");
    ASSERT_EQ(Init({"--mount", "more=" + share_.Path(), "--force", "--anonymous-rights", "1",
                    "--user", "me", "--password-file", secrets / "password"},
                   error),
              0)
        << error;
    Relaunch();
    EXPECT_EQ(Visit("/docs/a.txt").body, "shared");  // listing and downloading by default
    EXPECT_GE(Upload("/docs/?key=k", "b.txt", "visitor").status, 400);
    EXPECT_FALSE(share_.Exists("b.txt"));
    EXPECT_EQ(Visit("/more/").status, 200);
    EXPECT_NE(Visit("/more/a.txt").status, 200);
    std::string owner = "Authorization: Basic " + Base64Encode("me:s3cret") + "\r\n";
    HttpResponse upload = Upload("/more/?key=k", "mine.txt", "owner's", owner);
    EXPECT_EQ(upload.status, 200) << upload.body;
    EXPECT_EQ(share_.Read("mine.txt"), "owner's") << upload.body;
}

// The console of a program that made its home in this run, as the wizard drives it.
class SetupWizardEndToEndTest : public testing::RunningShare {
protected:
    void StartFresh() {
        Stop();
        program_ = std::make_unique<ProgramRunner>(home_.Path(),
                                                   std::vector<std::string>{"--console-port", "0"});
        port_ = program_->Port();
        console_.emplace(*program_);
    }
    bool Due() const { return Contains(console_->Get("setup").body, "\"due\":true"); }
};

TEST_F(SetupWizardEndToEndTest, IsDueOnANewHomeUntilFinishedAndNeverAgain) {
    share_.Write("a.txt", "shared");
    StartFresh();
    ASSERT_TRUE(Due());

    // A refused choice names its field and finishes nothing; the rules for names and paths
    // are the console's, tested with its sharing forms.
    const std::string good = "name=docs&path=" + share_.Path() + "&anonymousRights=3";
    const struct {
        std::string form, field;
        int status;
    } refusals[] = {
        {"name=docs&path=%2Fnowhere&anonymousRights=3", "path", 400},
        {"name=docs&path=" + share_.Path() + "&anonymousRights=16", "anonymousRights", 400},
        {good + "&user=.anonymous&password=x", "user", 409},
        {good + "&user=me&password=", "password", 400},
        {good + "&user=me&password=" + std::string(2000, 'p'), "password", 400},
    };
    for (const auto& refusal : refusals) {
        HttpResponse refused = console_->Post("setup/finish", refusal.form);
        EXPECT_EQ(refused.status, refusal.status) << refusal.field << ": " << refused.body;
        EXPECT_TRUE(Contains(refused.body, "\"field\":\"" + refusal.field + "\"")) << refused.body;
    }
    EXPECT_TRUE(Due());
    EXPECT_FALSE(Contains(home_.Read("mount.ini"), "docs|"));
    // Only the console's own script may finish it.
    EXPECT_EQ(console_->Post("setup/finish", "skip=1", "").status, 403);

    std::string form = "name=docs&path=" + share_.Path() + "&anonymousRights=7&user=&password=";
    HttpResponse finished = console_->Post("setup/finish", form);
    ASSERT_EQ(finished.status, 200) << finished.body;
    EXPECT_FALSE(Due());
    EXPECT_EQ(console_->Post("setup/finish", "skip=1").status, 409);
    EXPECT_EQ(Upload("/docs/?key=k", "b.txt", "visitor").status, 200);

    StartFresh();
    EXPECT_FALSE(Due());
}

TEST_F(SetupWizardEndToEndTest, SkippingIsRememberedAndAnOlderHomeNeverSeesIt) {
    StartFresh();
    ASSERT_TRUE(Due());
    EXPECT_EQ(console_->Post("setup/finish", "skip=1").status, 200);
    EXPECT_FALSE(Due());
    EXPECT_TRUE(Contains(home_.Read("mount.ini"), "firstRunDone=1"));
    StartWithConsole();
    EXPECT_FALSE(Due());
}

}  // namespace
}  // namespace Zarn
