#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "support/TempFolder.h"
#include "ui/ServiceCommand.h"

namespace Zarn {
namespace {

// `lumidrop service ...` run for real in an empty environment: a user whose HOME is a
// temporary folder, and a PATH that holds either nothing or a stand-in systemctl that
// writes down how it was called.
class ServiceCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        user_.Write("bin/.keep", "");
        user_.Write("empty/.keep", "");
    }
    void GiveSystemctl() {
        user_.Write("bin/systemctl", "#!/bin/sh\necho \"$*\" >> '" + (user_ / "calls") + "'\n");
        ::chmod((user_ / "bin/systemctl").c_str(), 0755);
        user_.Write("run/systemd/private", "");
    }
    int Service(const std::string& arguments, std::string environment = "") {
        std::string command = "env -i HOME='" + user_.Path() + "' USER=owner PATH='" +
                              (user_ / (user_.Exists("bin/systemctl") ? "bin" : "empty")) +
                              "' XDG_RUNTIME_DIR='" + (user_ / "run") + "' " + environment + " " +
                              LUMIDROP_BINARY + " service " + arguments + " >'" + (user_ / "out") +
                              "' 2>&1";
        int status = std::system(command.c_str());
        output_ = user_.Read("out");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    [[nodiscard]] bool Says(const std::string& text) const {
        return output_.find(text) != std::string::npos;
    }

    testing::TempFolder user_;
    std::string output_;
};

TEST_F(ServiceCommandTest, InstallsStartsReportsAndRemovesTheUserUnit) {
    // Without a user manager the unit is written and the owner told what to run; a relative
    // config folder is no folder at all.
    ASSERT_EQ(Service("install", "XDG_CONFIG_HOME=relative"), 0) << output_;
    std::string unit = user_.Read(".config/systemd/user/lumidrop.service");
    EXPECT_NE(
        unit.find("\nExecStart=" LUMIDROP_BINARY " --home " + user_.Path() + "/.config/lumidrop\n"),
        std::string::npos)
        << unit;
    EXPECT_TRUE(
        Says("  systemctl --user daemon-reload\n  systemctl --user enable --now "
             "lumidrop.service\n"))
        << output_;
    EXPECT_TRUE(Says("loginctl enable-linger owner"));
    EXPECT_EQ(Service("install --home"), 2);
    EXPECT_TRUE(Says("usage: lumidrop service install|uninstall|status"));

    GiveSystemctl();
    std::string home = user_ / "shares 100% $HOME";
    std::string config = "XDG_CONFIG_HOME='" + (user_ / "xdg") + "'";
    ASSERT_EQ(Service("install --home '" + home + "'", config), 0) << output_;
    unit = user_.Read("xdg/systemd/user/lumidrop.service");
    // The packaged unit's test holds the rest of the text; here, a home that needs quoting.
    EXPECT_NE(unit.find("\nExecStart=" LUMIDROP_BINARY " --home \"" + user_.Path() +
                        "/shares 100%% $$HOME\"\n"),
              std::string::npos)
        << unit;
    EXPECT_EQ(user_.Read("calls"), "--user daemon-reload\n--user enable --now lumidrop.service\n");

    EXPECT_EQ(Service("status", config), 0);
    EXPECT_TRUE(Says("Installed: " + (user_ / "xdg/systemd/user/lumidrop.service"))) << output_;
    ASSERT_EQ(Service("uninstall", config), 0) << output_;
    EXPECT_FALSE(user_.Exists("xdg/systemd/user/lumidrop.service"));
    EXPECT_EQ(user_.Read("calls"),
              "--user daemon-reload\n--user enable --now lumidrop.service\n"
              "--user is-active lumidrop.service\n"
              "--user disable --now lumidrop.service\n--user daemon-reload\n");
    EXPECT_EQ(Service("status", config), 1);
    EXPECT_TRUE(Says("Not installed")) << output_;
}

TEST(PackagedUnitTest, IsTheUnitTheCommandWritesForTheInstalledProgram) {
    std::string packaged =
        std::string(LUMIDROP_SOURCE_DIR) + "/packaging/" + ServiceCommand::kUnitName;
    EXPECT_EQ(testing::ReadWholeFile(packaged),
              ServiceCommand::UnitText("/usr/bin/lumidrop", std::nullopt));
}

}  // namespace
}  // namespace Zarn
