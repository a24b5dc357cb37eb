#include <gtest/gtest.h>

#include "config/KorvelConfig.h"
#include "share/AccountManager.h"
#include "share/MountManager.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::TempFolder;

class AccountManagerTest : public ::testing::Test {
protected:
    void Load(const std::string& file) {
        home_.Write("mount.ini", file);
        config_ = std::make_unique<KorvelConfig>(home_ / "mount.ini");
        mounts_ = std::make_unique<MountManager>(*config_);
        accounts_ = std::make_unique<AccountManager>(*config_, *mounts_);
    }

    TempFolder home_;
    std::unique_ptr<KorvelConfig> config_;
    std::unique_ptr<MountManager> mounts_;
    std::unique_ptr<AccountManager> accounts_;
};

TEST_F(AccountManagerTest, ChecksPasswordsExactly) {
    Load("users+=alice|s%7cecret\r\nusers+=empty|\r\nusers+=bad\r\nusers+=a|b|c\r\n");
    EXPECT_TRUE(accounts_->CheckPassword("alice", "s|ecret"));
    EXPECT_FALSE(accounts_->CheckPassword("alice", "s|ecreT"));
    EXPECT_FALSE(accounts_->CheckPassword("alice", "s|ecret "));
    EXPECT_FALSE(accounts_->CheckPassword("Alice", "s|ecret"));
    EXPECT_TRUE(accounts_->CheckPassword("empty", ""));
    EXPECT_FALSE(accounts_->CheckPassword("empty", "x"));
    EXPECT_TRUE(accounts_->CheckPassword("", "anything"));
    EXPECT_FALSE(accounts_->CheckPassword("bad", ""));
    EXPECT_EQ(accounts_->GetPassword("alice"), "s|ecret");
    EXPECT_EQ(accounts_->GetPassword("nobody"), std::nullopt);
    EXPECT_EQ(accounts_->ListAccounts(),
              (std::vector<std::string>{".anonymous", "alice", "empty"}));
}

TEST_F(AccountManagerTest, GrantsForAMountAddedLaterTakeEffectWhenApplied) {
    Load("authorities+=.anonymous|later|7\r\n");
    ASSERT_TRUE(mounts_->AddMount({.name = "later", .local_path = "/tmp", .is_folder = true}));
    EXPECT_EQ(accounts_->GetRights(".anonymous", "later"), kDefaultRights);
    accounts_->ApplyPendingRights();
    EXPECT_EQ(accounts_->GetRights(".anonymous", "later"), 7u);
    ASSERT_TRUE(accounts_->SetRights(".anonymous", "later", 7));
    EXPECT_EQ(config_->authorities, std::vector<std::string>{".anonymous|later|7"});
}

TEST_F(AccountManagerTest, RightsComeFromTheTableOrTheDefault) {
    Load(
        "users+=bob|pw\r\n"
        "mounts+=docs|%2fdocs|x|yes|x|no\r\n"
        "mounts+=song.mp3|%2fsong.mp3|x|no|x|no\r\n"
        "mounts+=open|%2fopen|x|yes|x|no\r\n"
        "authorities+=bob|docs|15\r\n"
        "authorities+=bob|song.mp3|4\r\n"
        "authorities+=.anonymous|open|0\r\n"
        "authorities+=ghost|docs|15\r\n"
        "authorities+=bob|docs\r\n");
    EXPECT_EQ(accounts_->GetRights("bob", "docs"), 15u);
    EXPECT_EQ(accounts_->GetRights("bob", "open"), kDefaultRights);
    EXPECT_EQ(accounts_->GetRights("bob", "song.mp3"), kRightList);  // bit 0 set, bit 2 cleared
    EXPECT_EQ(accounts_->GetRights(".anonymous", "open"), 0u);
    EXPECT_EQ(accounts_->GetRights(".anonymous", "docs"), kDefaultRights);
    EXPECT_EQ(accounts_->GetRights("ghost", "docs"), std::nullopt);
    EXPECT_EQ(accounts_->GetRights("bob", "missing"), std::nullopt);
}

TEST_F(AccountManagerTest, FreshInstallServesAnonymousVisitorsWithoutWritingTheAccount) {
    Load("mounts+=docs|%2fdocs|x|yes|x|no\r\n");
    EXPECT_EQ(accounts_->GetRights(AccountManager::kAnonymous, "docs"), kDefaultRights);
    ASSERT_TRUE(accounts_->SetAccount("carol", "pw"));
    KorvelConfig reloaded(home_ / "mount.ini");
    EXPECT_EQ(reloaded.users, (std::vector<std::string>{"carol|pw"}));
}

TEST_F(AccountManagerTest, SavesChangesAndKeepsGrantsItCannotPlace) {
    Load(
        "users+=bob|pw\r\n"
        "mounts+=docs|%2fdocs|x|yes|x|no\r\n"
        "authorities+=bob|docs|1\r\n"
        "authorities+=bob|gone%20away|7\r\n");
    ASSERT_TRUE(accounts_->SetRights("bob", "docs", 5));
    ASSERT_TRUE(accounts_->SetAccount("new user", "p w"));
    ASSERT_TRUE(accounts_->SetRights(AccountManager::kAnonymous, "docs", 0));
    EXPECT_FALSE(accounts_->SetRights("nobody", "docs", 1));
    {
        KorvelConfig reloaded(home_ / "mount.ini");
        EXPECT_EQ(reloaded.users, (std::vector<std::string>{"bob|pw", "new%20user|p%20w"}));
        EXPECT_EQ(reloaded.authorities, (std::vector<std::string>{"bob|docs|5", ".anonymous|docs|0",
                                                                  "bob|gone%20away|7"}));
    }
    ASSERT_TRUE(accounts_->RemoveAccount("bob"));
    EXPECT_FALSE(accounts_->CheckPassword("bob", "pw"));
    KorvelConfig reloaded(home_ / "mount.ini");
    EXPECT_EQ(reloaded.authorities,
              (std::vector<std::string>{".anonymous|docs|0", "bob|gone%20away|7"}));
}

TEST_F(AccountManagerTest, RenamedAccountKeepsItsPasswordAndRights) {
    Load(
        "users+=bob|pw\r\nusers+=carol|c\r\n"
        "mounts+=docs|%2fdocs|x|yes|x|no\r\n"
        "authorities+=bob|docs|13\r\n");
    EXPECT_FALSE(accounts_->RenameAccount("bob", "carol"));
    EXPECT_FALSE(accounts_->RenameAccount("nobody", "dave"));
    EXPECT_FALSE(accounts_->RenameAccount("bob", AccountManager::kAnonymous));
    EXPECT_FALSE(accounts_->RenameAccount(AccountManager::kAnonymous, "dave"));
    ASSERT_TRUE(accounts_->RenameAccount("bob", "robert"));
    EXPECT_FALSE(accounts_->CheckPassword("bob", "pw"));
    EXPECT_TRUE(accounts_->CheckPassword("robert", "pw"));
    EXPECT_EQ(accounts_->GetRights("robert", "docs"), 13u);
    EXPECT_EQ(accounts_->GetRights("bob", "docs"), std::nullopt);
    KorvelConfig reloaded(home_ / "mount.ini");
    EXPECT_EQ(reloaded.users, (std::vector<std::string>{"carol|c", "robert|pw"}));
    EXPECT_EQ(reloaded.authorities, (std::vector<std::string>{"robert|docs|13"}));
}

}  // namespace
}  // namespace Zarn
