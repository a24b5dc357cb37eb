#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "core/PathUtil.h"
#include "core/TekoFile.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::TempFolder;

std::string ReadAll(TekoFile& file) {
    std::string bytes(64, '\0');
    bytes.resize(file.Read(bytes.data(), static_cast<uint32_t>(bytes.size())));
    return bytes;
}

TEST(TekoFileTest, OpenModesCreateTruncateOrKeepAsDocumented) {
    struct Case {
        int mode;
        bool file_existed;
        bool opens;
        const char* content_after;  // nullptr: the file must not exist afterwards
    };
    const Case cases[] = {
        {TekoFile::kModeRead, true, true, "hello"},
        {TekoFile::kModeRead, false, false, nullptr},
        {TekoFile::kModeWrite, true, true, ""},
        {TekoFile::kModeWrite, false, true, ""},
        {TekoFile::kModeReadWrite, true, true, "hello"},
        {TekoFile::kModeReadWrite, false, true, ""},
        {TekoFile::kModeWriteNoTruncate, true, true, "hello"},
        {TekoFile::kModeWriteNoTruncate, false, true, ""},
        {3, true, false, "hello"},
        {3, false, false, nullptr},
        {5, false, false, nullptr},
        {-1, true, false, "hello"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("mode " + std::to_string(c.mode) + (c.file_existed ? " existing" : " new"));
        TempFolder folder;
        if (c.file_existed) folder.Write("f", "hello");
        TekoFile file;
        EXPECT_EQ(file.Open(folder / "f", c.mode), c.opens);
        EXPECT_EQ(file.IsOpen(), c.opens);
        if (c.opens) {
            EXPECT_EQ(file.GetPosition(), 0u);
        }
        file.Close();
        ASSERT_EQ(folder.Exists("f"), c.content_after != nullptr);
        if (c.content_after != nullptr) {
            EXPECT_EQ(folder.Read("f"), c.content_after);
        }
    }
}

TEST(TekoFileTest, FailedOpenLeavesNothingOpen) {
    TempFolder folder;
    folder.Write("a", "a");
    TekoFile file;
    ASSERT_TRUE(file.Open(folder / "a", TekoFile::kModeRead));
    EXPECT_FALSE(file.Open(folder / "missing", TekoFile::kModeRead));
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.GetFullPath(), "");
}

TEST(TekoFileTest, SharingFollowsExclusiveness) {
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
        first.Close();
        EXPECT_TRUE(second.Open(folder / "f", TekoFile::kModeReadWrite, c.second_exclusive));
    }
}

TEST(TekoFileTest, RefusedWriterDoesNotTruncateTheHeldFile) {
    for (bool reader_exclusive : {false, true}) {
        SCOPED_TRACE(reader_exclusive ? "exclusive reader" : "shared reader");
        TempFolder folder;
        folder.Write("f", "precious");
        TekoFile reader;
        ASSERT_TRUE(reader.Open(folder / "f", TekoFile::kModeRead, reader_exclusive));
        TekoFile writer;
        EXPECT_FALSE(writer.Open(folder / "f", TekoFile::kModeWrite, !reader_exclusive));
        EXPECT_EQ(ReadAll(reader), "precious");
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
    struct stat info {};
    ASSERT_EQ(::stat((folder / "fifo").c_str(), &info), 0);
    EXPECT_TRUE(S_ISFIFO(info.st_mode));
}

TEST(TekoFileTest, SizesAndSeeksBeyondFourGibibytes) {
    constexpr uint64_t kSize = 5ull << 30;
    TempFolder folder;
    TekoFile file;
    ASSERT_TRUE(file.Open(folder / "big", TekoFile::kModeReadWrite));
    if (!file.SetEnd(kSize)) GTEST_SKIP() << "the file system refuses a 5 GiB sparse file";
    EXPECT_EQ(file.GetSize(), kSize);
    EXPECT_EQ(file.GetPosition(), kSize);
    EXPECT_EQ(file.Seek(-10, SeekOrigin::kEnd), kSize - 10);
    EXPECT_EQ(file.Write("tail", 4), 4u);
    EXPECT_EQ(file.Seek(0, SeekOrigin::kCurrent), kSize - 6);
    EXPECT_EQ(file.Seek(-4, SeekOrigin::kCurrent), kSize - 10);
    char back[4] = {};
    EXPECT_EQ(file.Read(back, 4), 4u);
    EXPECT_EQ(std::string(back, 4), "tail");
    EXPECT_EQ(TekoFile::GetFileSize(folder / "big"), kSize);
    EXPECT_EQ(file.Seek(-1, SeekOrigin::kBegin), TekoFile::kInvalidSize);
}

TEST(TekoFileTest, SetEndTruncatesAndExtendsWithZeros) {
    TempFolder folder;
    TekoFile file;
    ASSERT_TRUE(file.Open(folder / "f", TekoFile::kModeReadWrite));
    ASSERT_EQ(file.Write("hello world", 11), 11u);
    ASSERT_TRUE(file.SetEnd(5));
    EXPECT_EQ(file.GetSize(), 5u);
    EXPECT_EQ(file.GetPosition(), 5u);
    ASSERT_TRUE(file.SetEnd(8));
    EXPECT_EQ(file.GetSize(), 8u);
    file.Close();
    EXPECT_EQ(folder.Read("f"), std::string("hello\0\0\0", 8));
}

}  // namespace
}  // namespace Zarn
