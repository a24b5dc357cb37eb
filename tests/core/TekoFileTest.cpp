#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "core/TekoFile.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::TempFolder;

TEST(TekoFileTest, SharingFollowsExclusivenessAndARefusedWriterTruncatesNothing) {
    struct Case {
        bool first_exclusive;
        bool second_exclusive;
        bool second_opens;
    };
    const Case cases[] = {
        {true, true, false},
        {false, true, false},
        {true, false, false},
        {false, false, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << "first exclusive " << c.first_exclusive
                                          << ", second exclusive " << c.second_exclusive);
        TempFolder folder;
        folder.Write("f", "x");
        TekoFile first;
        TekoFile second;
        ASSERT_TRUE(first.Open(folder / "f", TekoFile::kModeRead, c.first_exclusive));
        EXPECT_EQ(second.Open(folder / "f", TekoFile::kModeRead, c.second_exclusive),
                  c.second_opens);
        EXPECT_EQ(second.IsOpen(), c.second_opens);
        // A writer refused the file must not have truncated it on the way.
        TekoFile writer;
        if (!c.second_opens) {
            EXPECT_FALSE(writer.Open(folder / "f", TekoFile::kModeWrite, c.second_exclusive));
            EXPECT_EQ(folder.Read("f"), "x");
        }
        first.Close();
        EXPECT_TRUE(second.Open(folder / "f", TekoFile::kModeReadWrite, c.second_exclusive));
    }
}

TEST(TekoFileTest, RefusesFoldersFifosAndDevicesWithoutBlocking) {
    TempFolder folder;
    ASSERT_EQ(::mkdir((folder / "sub").c_str(), 0755), 0);
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0644), 0);
    for (int mode : {TekoFile::kModeRead, TekoFile::kModeWrite, TekoFile::kModeReadWrite,
                     TekoFile::kModeWriteNoTruncate}) {
        SCOPED_TRACE("mode " + std::to_string(mode));
        TekoFile file;
        EXPECT_FALSE(file.Open(folder / "sub", mode));
        EXPECT_FALSE(file.Open(folder / "fifo", mode));
        EXPECT_FALSE(file.IsOpen());
    }
    TekoFile device;
    EXPECT_FALSE(device.Open("/dev/null", TekoFile::kModeRead));
}

}  // namespace
}  // namespace Zarn
