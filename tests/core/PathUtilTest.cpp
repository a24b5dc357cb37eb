#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "core/PathUtil.h"

namespace Zarn {
namespace {

TEST(PathUtilTest, MakeAbsolutePathResolvesDotsAndSlashesAsText) {
    struct Case {
        const char* path;
        const char* absolute;
    };
    const Case cases[] = {
        {"/a/./b//c/../d", "/a/b/d"},
        {"/a/b/..", "/a"},
        {"/a/b/../", "/a"},
        {"//x///y/", "/x/y"},
        {"/..", "/"},
        {"/../../etc", "/etc"},
        {"/", "/"},
        {"/a/...", "/a/..."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(MakeAbsolutePath(c.path), c.absolute);
    }
}

TEST(PathUtilTest, RelativePathsStartAtTheCurrentFolder) {
    char buffer[4096];
    ASSERT_NE(::getcwd(buffer, sizeof buffer), nullptr);
    std::string cwd = buffer;
    std::string prefix = cwd == "/" ? "" : cwd;
    EXPECT_EQ(MakeAbsolutePath("x/../y"), prefix + "/y");
    EXPECT_EQ(MakeAbsolutePath("./not-yet-there.txt"), prefix + "/not-yet-there.txt");
    EXPECT_EQ(MakeAbsolutePath(""), cwd);
}

}  // namespace
}  // namespace Zarn
