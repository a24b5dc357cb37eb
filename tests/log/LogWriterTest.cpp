#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>

#include "core/UniqueFd.h"
#include "log/Log.h"
#include "log/LogQueue.h"
#include "log/LogWriter.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::TempFolder;

std::tm At(int year, int month, int day, int hour, int minute, int second) {
    std::tm time{};
    time.tm_year = year - 1900;
    time.tm_mon = month - 1;
    time.tm_mday = day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_sec = second;
    return time;
}

class LogWriterTest : public ::testing::Test {
protected:
    LogWriterTest() {
        int fds[2];
        EXPECT_EQ(::pipe(fds), 0);
        error_read_.Reset(fds[0]);
        error_write_.Reset(fds[1]);
        writer_ = std::make_unique<LogWriter>(LogWriter::Options{
            .home = home_.Path(),
            .queue = &queue_,
            .write_file = [this] { return write_file_.load(); },
            .clock = [this] { return now_; },
            .error_fd = error_write_.Get(),
        });
        writer_->Install();
        SetLogMask(kDefaultLogMask);
    }

    std::string StandardError() {
        error_write_.Reset();
        std::string text;
        char buffer[4096];
        ssize_t got;
        while ((got = ::read(error_read_.Get(), buffer, sizeof buffer)) > 0) {
            text.append(buffer, static_cast<size_t>(got));
        }
        return text;
    }

    TempFolder home_;
    LogQueue queue_;
    std::atomic<bool> write_file_{true};
    std::tm now_ = At(2026, 11, 22, 23, 59, 58);
    UniqueFd error_read_;
    UniqueFd error_write_;
    std::unique_ptr<LogWriter> writer_;
};

TEST_F(LogWriterTest, StartsANewFileWithByteOrderMarkEachDay) {
    Log(kLogNotice, "first %d", 1);
    Log(kLogError, "second");
    now_ = At(2026, 11, 23, 0, 0, 1);
    Log(kLogNotice, "after midnight");
    EXPECT_EQ(home_.Read("Log/Lumidrop.20261122.log"),
              "\xEF\xBB\xBF[11/22 23:59:58] first 1\n[11/22 23:59:58] second\n");
    EXPECT_EQ(home_.Read("Log/Lumidrop.20261123.log"),
              "\xEF\xBB\xBF[11/23 00:00:01] after midnight\n");
}

TEST_F(LogWriterTest, ARemovedFileIsCreatedAgain) {
    Log(kLogNotice, "before");
    std::filesystem::rename(home_ / "Log/Lumidrop.20261122.log", home_ / "rotated.log");
    Log(kLogNotice, "after");
    EXPECT_EQ(home_.Read("rotated.log"), "\xEF\xBB\xBF[11/22 23:59:58] before\n");
    EXPECT_EQ(home_.Read("Log/Lumidrop.20261122.log"), "\xEF\xBB\xBF[11/22 23:59:58] after\n");
}

TEST_F(LogWriterTest, TraceAndSwitchedOffLinesStillReachTheQueueButNotTheFile) {
    SetLogMask(0xFFFFFFFF);
    Log(kLogTrace, "trace");
    write_file_ = false;
    Log(kLogNotice, "console only");
    EXPECT_FALSE(home_.Exists("Log/Lumidrop.20261122.log"));
    LogQueue::Entry entry;
    ASSERT_TRUE(queue_.Pop(entry));
    EXPECT_EQ(entry.level, kLogTrace);
    EXPECT_EQ(entry.line, "[11/22 23:59:58] trace");
    ASSERT_TRUE(queue_.Pop(entry));
    EXPECT_EQ(entry.line, "[11/22 23:59:58] console only");
    EXPECT_FALSE(queue_.Pop(entry));
}

TEST_F(LogWriterTest, MaskedLevelsProduceNothingAnywhere) {
    Log(kLogTrace, "invisible");
    EXPECT_EQ(queue_.Size(), 0u);
    EXPECT_FALSE(home_.Exists("Log"));
    EXPECT_EQ(StandardError(), "");
}

TEST_F(LogWriterTest, EscapesControlCharactersEverywhere) {
    Log(kLogProgress, "GET /a\r\n[11/22 00:00:00] forged\x1b[2J");
    std::string escaped = "GET /a\\x0d\\x0a[11/22 00:00:00] forged\\x1b[2J";
    EXPECT_EQ(home_.Read("Log/Lumidrop.20261122.log"),
              "\xEF\xBB\xBF[11/22 23:59:58] " + escaped + "\n");
    EXPECT_EQ(StandardError(), escaped + "\n");
}

TEST_F(LogWriterTest, FatalMessagesAreAnnouncedOnStandardError) {
    Log(kLogFatal, "disk on fire");
    EXPECT_EQ(StandardError(), "disk on fire\nKorvel Lumidrop: disk on fire\n");
    EXPECT_EQ(queue_.Size(), 1u);
}

TEST_F(LogWriterTest, UnwritableLogFolderSkipsTheFileQuietly) {
    home_.Write("Log", "a file where the folder should be");
    Log(kLogError, "still queued");
    EXPECT_EQ(queue_.Size(), 1u);
}

TEST(LogQueueTest, DropsEntriesPastTheCapacityAndNotifiesEachPush) {
    LogQueue queue;
    int notified = 0;
    queue.SetTarget([&] { ++notified; });
    for (size_t i = 0; i <= LogQueue::kCapacity; ++i)
        queue.Push(kLogNotice, std::to_string(i));
    EXPECT_EQ(queue.Size(), LogQueue::kCapacity);
    EXPECT_EQ(notified, static_cast<int>(LogQueue::kCapacity + 1));
    LogQueue::Entry entry;
    std::string last;
    while (queue.Pop(entry))
        last = entry.line;
    EXPECT_EQ(last, std::to_string(LogQueue::kCapacity - 1));  // the 1,025th was dropped
    queue.SetTarget(nullptr);
    queue.Push(kLogNotice, "quiet");
    EXPECT_EQ(notified, static_cast<int>(LogQueue::kCapacity + 1));
}

}  // namespace
}  // namespace Zarn
