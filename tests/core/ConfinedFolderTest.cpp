#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "core/ConfinedFolder.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::TempFolder;

class ConfinedFolderTest : public ::testing::Test {
protected:
    void SetUp() override {
        share_.Write("a.txt", "inside");
        share_.Write("sub/b.txt", "below");
        outside_.Write("secret", "outside");
        namespace fs = std::filesystem;
        fs::create_symlink(outside_ / "secret", share_ / "absolute");
        fs::create_symlink("../" + fs::path(outside_.Path()).filename().string() + "/secret",
                           share_ / "relative");
        fs::create_symlink("../a.txt", share_ / "sub/up");
        fs::create_symlink("sub", share_ / "subling");
        fs::create_symlink("/", share_ / "root");
    }

    static std::string Read(const ConfinedFolder& folder, const std::string& relative) {
        UniqueFd fd = folder.OpenBelow(relative, O_RDONLY);
        if (!fd.IsValid()) return "(refused)";
        char buffer[64];
        ssize_t got = ::read(fd.Get(), buffer, sizeof buffer);
        return std::string(buffer, got > 0 ? static_cast<size_t>(got) : 0);
    }

    TempFolder share_;
    TempFolder outside_;
};

TEST_F(ConfinedFolderTest, NoPathOrLinkEscapesAConfinedFolder) {
    std::optional<ConfinedFolder> folder = ConfinedFolder::Open(share_.Path(), true);
    ASSERT_TRUE(folder);
    struct Case {
        const char* relative;
        const char* expected;
    };
    const Case cases[] = {
        {"a.txt", "inside"},
        {"sub/b.txt", "below"},
        {"sub/up", "inside"},        // a link that climbs but stays inside
        {"subling/b.txt", "below"},  // a link to a folder inside
        {"absolute", "(refused)"},   // an absolute link out
        {"relative", "(refused)"},   // a relative link out
        {"root/etc/passwd", "(refused)"},
        {"../a.txt", "(refused)"},
        {"sub/../../a.txt", "(refused)"},
        {"/etc/passwd", "(refused)"},
        {"missing", "(refused)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.relative);
        EXPECT_EQ(Read(*folder, c.relative), c.expected);
    }
    struct stat info {};
    EXPECT_TRUE(folder->StatBelow("", info));
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_FALSE(folder->StatBelow("absolute", info));
    EXPECT_FALSE(ConfinedFolder::Open(share_ / "a.txt", true));
    EXPECT_FALSE(ConfinedFolder::Open(share_ / "missing", true));
}

}  // namespace
}  // namespace Zarn
