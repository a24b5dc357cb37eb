#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/TempFolder.h"
#include "ui/ConsoleToken.h"

namespace Zarn {
namespace {

using testing::TempFolder;

TEST(ConsoleTokenTest, MadeOnceKeptPrivateAndReplacedWhenDamaged) {
    TempFolder home;
    std::optional<std::string> first = ConsoleToken::LoadOrCreate(home.Path());
    ASSERT_TRUE(first);
    EXPECT_TRUE(ConsoleToken::IsWellFormed(*first));
    struct stat info {};
    ASSERT_EQ(::stat((home / "console.token").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(ConsoleToken::LoadOrCreate(home.Path()), first);  // the same on every start

    // Opened up by someone: made the owner's alone again.
    ASSERT_EQ(::chmod((home / "console.token").c_str(), 0644), 0);
    EXPECT_EQ(ConsoleToken::LoadOrCreate(home.Path()), first);
    ASSERT_EQ(::stat((home / "console.token").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    // A file that holds no token gets a new one, never a guessable one.
    home.Write("console.token", "secret\n");
    std::optional<std::string> second = ConsoleToken::LoadOrCreate(home.Path());
    ASSERT_TRUE(second);
    EXPECT_NE(second, first);
    EXPECT_TRUE(ConsoleToken::IsWellFormed(*second));

    EXPECT_TRUE(ConsoleToken::Matches(*second, *second));
    EXPECT_FALSE(ConsoleToken::Matches(*second, *first));
    EXPECT_FALSE(ConsoleToken::Matches(*second, second->substr(1)));
    EXPECT_FALSE(ConsoleToken::Matches("", ""));
}

}  // namespace
}  // namespace Zarn
