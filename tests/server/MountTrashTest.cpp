// Measuring and emptying a trash that a path cannot reach: the end-to-end test empties a
// shallow one through the command line.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/UniqueFd.h"
#include "server/MountTrash.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

// A chain of folders whose path is longer than 8 KiB, made by descriptors as a path cannot
// reach its end; `bottom` receives the deepest one.
void MakeDeepChain(const std::string& top, UniqueFd& bottom) {
    const std::string name(200, 'd');
    bottom = UniqueFd(::open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (int level = 0; level < 42 && bottom.IsValid(); ++level) {
        ASSERT_EQ(::mkdirat(bottom.Get(), name.c_str(), 0700), 0);
        bottom = UniqueFd(::openat(bottom.Get(), name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    ASSERT_TRUE(bottom.IsValid());
}

// With far fewer descriptors left than the tree has levels.
[[noreturn]] void MeasureAndEmptyWithFewDescriptors(const std::string& mount) {
    rlimit few{32, 32};
    (void)::setrlimit(RLIMIT_NOFILE, &few);
    MountTrash::Summary summary = MountTrash::Measure(mount);
    bool emptied = MountTrash::Empty(mount);
    std::fprintf(stderr, "files=%llu bytes=%llu emptied=%d\n",
                 static_cast<unsigned long long>(summary.files),
                 static_cast<unsigned long long>(summary.bytes), emptied ? 1 : 0);
    std::exit(0);
}

TEST(MountTrashTest, MeasuresAndEmptiesATreeDeeperThanAnyPathLeavingLinkedFoldersAlone) {
    testing::TempFolder share;
    testing::TempFolder outside;
    outside.Write("keep.txt", "keep");
    share.Write(".lumidrop-trash/top.txt", "abc");
    UniqueFd bottom;
    ASSERT_NO_FATAL_FAILURE(MakeDeepChain(share / ".lumidrop-trash", bottom));
    UniqueFd file(::openat(bottom.Get(), "bottom.txt", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::write(file.Get(), "hello", 5), 5);
    ASSERT_EQ(::symlinkat(outside.Path().c_str(), bottom.Get(), "away"), 0);

    // Forked, so that only the child runs short of descriptors.
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(MeasureAndEmptyWithFewDescriptors(share.Path()), ::testing::ExitedWithCode(0),
                "files=3 bytes=8 emptied=1");
    EXPECT_FALSE(share.Exists(".lumidrop-trash"));
    EXPECT_EQ(outside.Read("keep.txt"), "keep");

    // A link under the trash's name is no trash.
    ASSERT_EQ(::symlink(outside.Path().c_str(), (share / ".lumidrop-trash").c_str()), 0);
    EXPECT_EQ(MountTrash::Measure(share.Path()).files, 0u);
    EXPECT_FALSE(MountTrash::Empty(share.Path()));
    EXPECT_EQ(outside.Read("keep.txt"), "keep");
}

}  // namespace
}  // namespace Zarn
