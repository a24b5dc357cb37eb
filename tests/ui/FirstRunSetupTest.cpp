// The first choices of a new home, made on a real settings file and real folders: every
// refused choice names its field and leaves the home unwritten, and accepted choices reach
// the registries and the file as the program reads them at its next start.

#include <gtest/gtest.h>

#include "config/KorvelConfig.h"
#include "i18n/LocalizationStringTable.h"
#include "share/AccountManager.h"
#include "share/MountManager.h"
#include "support/TempFolder.h"
#include "ui/FirstRunSetup.h"

namespace Zarn {
namespace {

using testing::TempFolder;

class FirstRunSetupTest : public ::testing::Test {
protected:
    FirstRunSetupTest() { LocalizationStringTable::InstallShippedLanguages(home_.Path()); }

    // Choices that are all acceptable; each case spoils one of them.
    FirstRunChoices Good() const {
        return {.language = "English.wul",
                .port = 8081,
                .mount_name = "docs",
                .mount_path = share_.Path(),
                .anonymous_rights = kRightList | kRightDownload,
                .account_name = "me",
                .password = "secret"};
    }

    TempFolder home_;
    TempFolder share_;
    KorvelConfig config_{home_ / KorvelConfig::kFileName};
    MountManager mounts_{config_};
    AccountManager accounts_{config_, mounts_};
    FirstRunSetup setup_{config_, mounts_, accounts_, home_.Path()};
};

TEST_F(FirstRunSetupTest, RefusesEachWrongChoiceByItsFieldAndWritesNothing) {
    share_.Write("file.txt", "x");
    struct Case {
        const char* what;
        void (*spoil)(FirstRunChoices&, const std::string& share);
        const char* field;
        int code;
    };
    const Case cases[] = {
        {"language outside", [](auto& c, auto&) { c.language = "../mount.ini"; }, "language", 400},
        {"port zero", [](auto& c, auto&) { c.port = 0; }, "port", 400},
        {"slash in name", [](auto& c, auto&) { c.mount_name = "a/b"; }, "name", 400},
        {"missing folder", [](auto& c, auto& s) { c.mount_path = s + "/gone"; }, "path", 400},
        {"rights 16", [](auto& c, auto&) { c.anonymous_rights = 16; }, "anonymousRights", 400},
        {"reserved account", [](auto& c, auto&) { c.account_name = ".anonymous"; }, "user", 409},
        {"no password", [](auto& c, auto&) { c.password = ""; }, "password", 400},
        {"long password", [](auto& c, auto&) { c.password.assign(2000, 'p'); }, "password", 400},
    };
    for (const Case& test : cases) {
        FirstRunChoices choices = Good();
        test.spoil(choices, share_.Path());
        std::optional<FirstRunSetup::Fault> fault = setup_.Apply(choices);
        ASSERT_TRUE(fault.has_value()) << test.what;
        EXPECT_EQ(fault->field, test.field) << test.what;
        EXPECT_EQ(fault->code, test.code) << test.what;
        EXPECT_FALSE(fault->message.empty()) << test.what;
    }
    EXPECT_FALSE(home_.Exists(KorvelConfig::kFileName));
    EXPECT_TRUE(mounts_.ListNames().empty());
    EXPECT_FALSE(accounts_.GetPassword("me"));
}

}  // namespace
}  // namespace Zarn
