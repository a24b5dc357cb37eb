#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "config/KorvelConfig.h"
#include "skin/SkinManager.h"
#include "support/TempFolder.h"
#include "ui/SettingsCatalog.h"

namespace Zarn {
namespace {

using testing::TempFolder;

class SettingsCatalogTest : public ::testing::Test {
protected:
    void SetUp() override {
        home_.Write("Language/English.wul",
                    "Korvel Lumidrop UI Language File\nEnglish\nus\n1\n\"홈\" = \"Home\"\n");
        home_.Write("Language/Broken.wul", "Not a language file\na\nb\nc\n");
        home_.Write("skin/mine/setting.ini", "skin=skin.html\r\n");
        home_.Write("skin/nosetting/readme.txt", "no setting.ini here");
    }

    TempFolder home_;
    KorvelConfig config_{home_ / "mount.ini"};
};

// Every scalar the store registers is the owner's to set, bar two the program keeps for
// itself; the lists have editors of their own.
TEST_F(SettingsCatalogTest, CoversEveryScalarOfTheSettingsFileAndMapsEachToItsOwnValue) {
    for (const std::string& key : config_.ItemKeys()) {
        // The folder the old desktop dialog remembered, and the wizard's own record.
        if (key == "lastAddMountDirectory" || key == "firstRunDone") continue;
        EXPECT_NE(SettingsCatalog::Find(key), nullptr) << key;
    }
    for (const std::string& key : config_.ListKeys())
        EXPECT_EQ(SettingsCatalog::Find(key), nullptr) << key;

    // A distinct value in each, then the store must read back exactly those: a key bound
    // to another key's member shows here.
    int next = 2;
    for (const SettingsCatalog::Entry& entry : SettingsCatalog::Entries()) {
        if (entry.type == SettingsCatalog::Type::kText) continue;
        std::string current;
        ASSERT_TRUE(config_.GetItem(entry.key, current));
        int number = entry.key == "defaultUrlCodepage" ? 1252 : next++;
        if (entry.type == SettingsCatalog::Type::kBool) number = current == "1" ? 0 : 1;
        const std::string value = std::to_string(number);
        std::string error;
        ASSERT_TRUE(SettingsCatalog::Set(config_, entry.key, value, error)) << entry.key << error;
        std::string stored;
        ASSERT_TRUE(config_.GetItem(entry.key, stored));
        EXPECT_EQ(stored, value) << entry.key;
        EXPECT_EQ(SettingsCatalog::Get(config_, entry.key), value) << entry.key;
    }
}

// The refusals the console's settings end-to-end test makes over a socket are not repeated.
TEST_F(SettingsCatalogTest, ChecksEachValueByTypeBoundsAndWhatItNames) {
    ASSERT_TRUE(SkinManager::Instance().ListNames().empty()) << "no skin loaded in this test";
    const struct {
        const char* key;
        const char* value;
        std::optional<std::string> stored;  // nothing: refused
    } cases[] = {
        {"port", " 8080 ", "8080"},
        {"port", "0", std::nullopt},
        {"port", "80x", std::nullopt},
        {"consolePort", "0", "0"},
        {"showHiddenFiles", "true", "1"},
        {"keepAliveTimeout", "3600", "3600"},
        {"totalUploadSpeedLimit", "-1", "-1"},
        {"totalUploadSpeedLimit", "-2", std::nullopt},
        {"downloadConnectionLimit", "100001", std::nullopt},
        {"defaultUrlCodepage", "949", "949"},
        {"defaultUrlCodepage", "4242", std::nullopt},
        {"HostName", "[::1]", "[::1]"},
        {"HostName", "two words", std::nullopt},
        {"HostName", "<b>x</b>", std::nullopt},
        {"preferredLancardAddress", "10.0.0.5", "10.0.0.5"},
        {"preferredLancardAddress", "10.0.0", std::nullopt},
        {"uiLanguageFile", "English.wul", "English.wul"},
        {"uiLanguageFile", "Broken.wul", std::nullopt},
        {"uiLanguageFile", "../mount.ini", std::nullopt},
        {"defaultSkin", "mine", "mine"},
        {"defaultSkin", "nosetting", std::nullopt},
        {"defaultSkin", "../skin/mine", std::nullopt},
        {"lastAddMountDirectory", "/", std::nullopt},
        {"noSuchKey", "1", std::nullopt},
    };
    for (const auto& c : cases) {
        std::string error;
        std::optional<std::string> stored = SettingsCatalog::Check(config_, c.key, c.value, error);
        EXPECT_EQ(stored, c.stored) << c.key << "=" << c.value;
        EXPECT_EQ(error.empty(), c.stored.has_value()) << c.key << "=" << c.value << ": " << error;
    }
}

// Once the program has loaded its skins, only what was actually registered may be chosen.
TEST_F(SettingsCatalogTest, ASkinMustBeRegisteredOnceSkinsAreLoaded) {
    SkinManager::Instance().LoadAll(home_.Path(), "");
    std::string error;
    EXPECT_EQ(SettingsCatalog::Check(config_, "defaultSkin", ".default", error), ".default");
    // Its folder has a setting.ini but no template, so it never made it into the registry.
    EXPECT_FALSE(SettingsCatalog::Check(config_, "defaultSkin", "mine", error));
}

}  // namespace
}  // namespace Zarn
