#include <gtest/gtest.h>

#include "config/KorvelConfig.h"
#include "share/AccountManager.h"
#include "share/MountManager.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

class AccountManagerTest : public ::testing::Test {
protected:
    void Load(const std::string& file) {
        home_.Write("mount.ini", file);
        config_ = std::make_unique<KorvelConfig>(home_ / "mount.ini");
        mounts_ = std::make_unique<MountManager>(*config_);
        accounts_ = std::make_unique<AccountManager>(*config_, *mounts_);
    }
    KorvelConfig Saved() { return KorvelConfig(home_ / "mount.ini"); }

    testing::TempFolder home_;
    std::unique_ptr<KorvelConfig> config_;
    std::unique_ptr<MountManager> mounts_;
    std::unique_ptr<AccountManager> accounts_;
};

TEST_F(AccountManagerTest, ChecksPasswordsExactlyAndTakesRightsFromTheTableOrTheDefault) {
    Load(
        "users+=alice|s%7cecret\r\nusers+=empty|\r\nusers+=bad\r\nusers+=a|b|c\r\n"
        "mounts+=docs|%2fdocs|x|yes|x|no\r\nmounts+=song.mp3|%2fsong.mp3|x|no|x|no\r\n"
        "mounts+=open|%2fopen|x|yes|x|no\r\n"
        "authorities+=alice|docs|15\r\nauthorities+=alice|song.mp3|4\r\n"
        "authorities+=.anonymous|open|0\r\nauthorities+=ghost|docs|15\r\n"
        "authorities+=alice|docs\r\n");
    EXPECT_TRUE(accounts_->CheckPassword("alice", "s|ecret"));
    for (const char* wrong : {"s|ecreT", "s|ecret ", ""})
        EXPECT_FALSE(accounts_->CheckPassword("alice", wrong)) << wrong;
    EXPECT_FALSE(accounts_->CheckPassword("Alice", "s|ecret"));
    EXPECT_TRUE(accounts_->CheckPassword("empty", ""));
    EXPECT_FALSE(accounts_->CheckPassword("empty", "x"));
    EXPECT_TRUE(accounts_->CheckPassword("", "anything"));
    EXPECT_FALSE(accounts_->CheckPassword("bad", ""));
    EXPECT_EQ(accounts_->ListAccounts(),
              (std::vector<std::string>{".anonymous", "alice", "empty"}));

    EXPECT_EQ(accounts_->GetRights("alice", "docs"), 15u);
    EXPECT_EQ(accounts_->GetRights("alice", "open"), kDefaultRights);
    EXPECT_EQ(accounts_->GetRights("alice", "song.mp3"), kRightList);  // bit 0 set, bit 2 cleared
    EXPECT_EQ(accounts_->GetRights(".anonymous", "open"), 0u);
    EXPECT_EQ(accounts_->GetRights(".anonymous", "docs"), kDefaultRights);
    EXPECT_EQ(accounts_->GetRights("ghost", "docs"), std::nullopt);
    EXPECT_EQ(accounts_->GetRights("alice", "missing"), std::nullopt);
}

// Changes, renames and removals as the console makes them are the console's sharing
// end-to-end test's; here, how they are written and grants waiting for their mount.
TEST_F(AccountManagerTest, SavesChangesAndKeepsGrantsItCannotPlaceYet) {
    Load(
        "users+=bob|pw\r\nmounts+=docs|%2fdocs|x|yes|x|no\r\n"
        "authorities+=bob|docs|1\r\nauthorities+=bob|later|7\r\n");
    ASSERT_TRUE(accounts_->SetRights("bob", "docs", 5));
    ASSERT_TRUE(accounts_->SetAccount("new user", "p w"));
    ASSERT_TRUE(accounts_->SetRights(AccountManager::kAnonymous, "docs", 0));
    EXPECT_EQ(Saved().users, (std::vector<std::string>{"bob|pw", "new%20user|p%20w"}));
    EXPECT_EQ(Saved().authorities,
              (std::vector<std::string>{"bob|docs|5", ".anonymous|docs|0", "bob|later|7"}));

    // A grant for a mount added later takes effect once applied.
    ASSERT_TRUE(mounts_->AddMount({.name = "later", .local_path = "/tmp", .is_folder = true}));
    EXPECT_EQ(accounts_->GetRights("bob", "later"), kDefaultRights);
    accounts_->ApplyPendingRights();
    EXPECT_EQ(accounts_->GetRights("bob", "later"), 7u);
}

}  // namespace
}  // namespace Zarn
