#include <gtest/gtest.h>
#include <sys/stat.h>

#include "core/FileAttributes.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::TempFolder;

TEST(FileAttributesTest, DescribesWhatStatReports) {
    TempFolder folder;
    folder.Write("plain", "x");
    folder.Write(".hidden", "x");
    folder.Write("locked", "x");
    ASSERT_EQ(::chmod((folder / "locked").c_str(), 0444), 0);
    ASSERT_EQ(::mkdir((folder / "sub").c_str(), 0755), 0);

    uint32_t missing = GetFileAttributes(folder / "missing");
    EXPECT_EQ(missing, 0xFFFFFFFFu);
    EXPECT_NE(missing & kAttributeOffline, 0u);
    EXPECT_EQ(GetFileAttributes(folder / "plain"), kAttributeNormal);
    EXPECT_EQ(GetFileAttributes(folder / ".hidden"), kAttributeHidden);
    EXPECT_EQ(GetFileAttributes(folder / "locked"), kAttributeReadOnly);
    EXPECT_EQ(GetFileAttributes(folder / "sub"), kAttributeDirectory);
    EXPECT_EQ(GetFileAttributes(folder / "sub/"), kAttributeDirectory);
    EXPECT_EQ(GetFileAttributes(""), kInvalidAttributes);
}

}  // namespace
}  // namespace Zarn
