// The console's settings against the real program over real sockets: each change is seen
// by the next visitor, saved to mount.ini, refused whole when one field is wrong, and the
// skins follow at once. What each value may be is the settings catalogue's own test; the
// language switch and the visitors' address are watched in the browser.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "net/TCPServerSocket.h"
#include "support/RunningShare.h"
#include "support/WaitUntil.h"

namespace Zarn {
namespace {

using testing::Contains;
using testing::HttpResponse;

class ConsoleSettingsEndToEndTest : public testing::RunningShare {
protected:
    void SetUp() override {
        share_.Write("a.txt", "shared");
        share_.Write(".secret", "hidden");
        StartWithConsole();
    }
    HttpResponse Set(const std::string& form) const { return console_->Post("settings/set", form); }
    bool ListsSecret() const { return Contains(Visit("/docs/").body, ".secret"); }
};

TEST_F(ConsoleSettingsEndToEndTest, ChangesReachTheNextVisitorAreSavedAtOnceOrRefusedWhole) {
    const std::string saved = home_.Read("mount.ini");
    TCPServerSocket holder;
    ASSERT_TRUE(holder.Listen(0));
    const struct {
        std::string form, field;
        int status;
    } refusals[] = {
        {"showHiddenFiles=1&port=70000", "port", 400},
        {"showHiddenFiles=maybe", "showHiddenFiles", 400},
        {"showHiddenFiles=1&HostName=a%0d%0aport%3d1", "HostName", 400},
        // A documentation address no machine has as its own.
        {"showHiddenFiles=1&preferredLancardAddress=203.0.113.77", "preferredLancardAddress", 400},
        {"showHiddenFiles=1&mounts=x", "mounts", 400},
        {"", "", 400},
        {"showHiddenFiles=1&port=" + std::to_string(holder.GetLocalPort()), "port", 409},
    };
    for (const auto& refusal : refusals) {
        HttpResponse refused = Set(refusal.form);
        EXPECT_EQ(refused.status, refusal.status) << refusal.form << " " << refused.body;
        EXPECT_TRUE(Contains(refused.body, "\"field\":\"" + refusal.field + "\""))
            << refusal.form << " " << refused.body;
    }
    EXPECT_TRUE(Contains(Set("keepAliveTimeout=0").body, "from 1 to 3600"));
    EXPECT_EQ(console_->Get("settings/set?showHiddenFiles=1").status, 403);
    EXPECT_EQ(console_->Post("settings/set", "showHiddenFiles=1", "").status, 403);
    EXPECT_EQ(home_.Read("mount.ini"), saved);
    EXPECT_FALSE(ListsSecret());
    EXPECT_EQ(Visit("/docs/a.txt").body, "shared");  // the listener stayed where it was

    // Several at once, each in effect and all in the one saved file.
    HttpResponse changed = Set("showHiddenFiles=1&canRootAccess=0&keepAliveTimeout=30");
    EXPECT_TRUE(Contains(changed.body, "\"showHiddenFiles\":true")) << changed.body;
    EXPECT_TRUE(ListsSecret());
    EXPECT_EQ(Visit("/").status, 403);
    for (const char* line : {"showHiddenFiles=1", "canRootAccess=0", "keepAliveTimeout=30"})
        EXPECT_TRUE(Contains(home_.Read("mount.ini"), std::string("\r\n") + line + "\r\n")) << line;

    // Skins: listed with a preview address, and chosen at once.
    const std::string preview = "http://127.0.0.1:" + std::to_string(port_) + "/?skin=.default";
    EXPECT_TRUE(Contains(console_->Get("skins").body,
                         "\"name\":\".default\",\"builtIn\":true,\"preview\":\"" + preview));
    ASSERT_EQ(Set("defaultSkin=.default&skinDevelopersMode=1").status, 200);
    EXPECT_EQ(Visit("/docs/").status, 200);
    EXPECT_TRUE(Contains(console_->Get("skins").body, "\"developersMode\":true"));

    // What was saved is what the next start reads.
    Relaunch();
    EXPECT_TRUE(ListsSecret());
    EXPECT_EQ(Visit("/").status, 403);
}

// Visitors' threads read the settings on every request while the console writes them:
// each listing sees the old value or the new one, never a failure, and the last change
// holds. Under ThreadSanitizer this is the test that catches an unguarded setting.
TEST_F(ConsoleSettingsEndToEndTest, VisitorsKeepBeingServedWhileTheOwnerFlipsSettings) {
    std::atomic<bool> done = false;
    std::atomic<int> listings = 0, failures = 0;
    std::thread visitor([&] {
        for (; !done; ++listings) {
            HttpResponse listing = Visit("/docs/");
            if (listing.status != 200 || !Contains(listing.body, "a.txt")) ++failures;
        }
    });
    for (int i = 0; i < 20; ++i) {
        std::string flag = i % 2 == 0 ? "1" : "0";
        EXPECT_EQ(Set("showHiddenFiles=" + flag + "&keepAliveTimeout=" + std::to_string(10 + i) +
                      "&canRootAccess=" + flag)
                      .status,
                  200);
    }
    ASSERT_TRUE(testing::WaitUntil([&] { return listings >= 5; }));
    done = true;
    visitor.join();
    EXPECT_EQ(failures, 0) << "of " << listings;
    EXPECT_FALSE(ListsSecret());  // the twentieth change turned hidden files off again
}

}  // namespace
}  // namespace Zarn
