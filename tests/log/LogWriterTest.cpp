#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <sstream>
#include <thread>
#include <vector>

#include "core/UniqueFd.h"
#include "log/Log.h"
#include "log/LogQueue.h"
#include "log/LogWriter.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::TempFolder;

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

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

std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// Standard error goes to a file of its own unless a test hands the writer another descriptor.
class LogWriterTest : public ::testing::Test {
protected:
    LogWriterTest() {
        error_file_.Reset(
            ::open((scratch_ / "stderr").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
        EXPECT_TRUE(error_file_.IsValid());
        StartWriter(error_file_.Get());
    }
    ~LogWriterTest() override { SetLogMask(kDefaultLogMask); }

    void StartWriter(int error_fd) {
        writer_.reset();
        writer_ = std::make_unique<LogWriter>(LogWriter::Options{
            .home = home_.Path(),
            .queue = &queue_,
            .write_file = [this] { return write_file_.load(); },
            .clock = [this] { return now_; },
            .error_fd = error_fd,
        });
        writer_->Install();
        SetLogMask(kDefaultLogMask);
    }

    std::string LogFile(const std::string& name = "Log/Lumidrop.20261122.log") {
        if (writer_) writer_->Flush();
        return home_.Read(name);
    }

    std::string StandardError() {
        if (writer_) writer_->Flush();
        return scratch_.Read("stderr");
    }

    TempFolder home_;
    TempFolder scratch_;
    UniqueFd error_file_;
    UniqueFd other_error_fd_;
    LogQueue queue_;
    std::atomic<bool> write_file_{true};
    std::tm now_ = At(2026, 11, 22, 23, 59, 58);
    std::unique_ptr<LogWriter> writer_;
};

TEST_F(LogWriterTest, StartsANewFileWithByteOrderMarkEachDay) {
    Log(kLogNotice, "first %d", 1);
    Log(kLogError, "second");
    now_ = At(2026, 11, 23, 0, 0, 1);
    Log(kLogNotice, "after midnight");
    // A thread that read the clock just before midnight may queue its line just after.
    now_ = At(2026, 11, 22, 23, 59, 59);
    Log(kLogNotice, "late");
    EXPECT_EQ(LogFile("Log/Lumidrop.20261122.log"),
              std::string(kByteOrderMark) +
                  "[11/22 23:59:58] first 1\n[11/22 23:59:58] second\n[11/22 23:59:59] late\n");
    EXPECT_EQ(LogFile("Log/Lumidrop.20261123.log"),
              std::string(kByteOrderMark) + "[11/23 00:00:01] after midnight\n");
}

TEST_F(LogWriterTest, ARemovedFileIsCreatedAgain) {
    Log(kLogNotice, "before");
    writer_->Flush();
    std::filesystem::rename(home_ / "Log/Lumidrop.20261122.log", home_ / "rotated.log");
    Log(kLogNotice, "after");
    EXPECT_EQ(LogFile(), std::string(kByteOrderMark) + "[11/22 23:59:58] after\n");
    EXPECT_EQ(home_.Read("rotated.log"), std::string(kByteOrderMark) + "[11/22 23:59:58] before\n");
}

TEST_F(LogWriterTest, TraceAndSwitchedOffLinesStillReachTheQueueButNotTheFile) {
    SetLogMask(0xFFFFFFFF);
    Log(kLogTrace, "trace");
    write_file_ = false;
    Log(kLogNotice, "console only");
    writer_->Flush();
    EXPECT_FALSE(home_.Exists("Log/Lumidrop.20261122.log"));
    EXPECT_EQ(StandardError(), "trace\nconsole only\n");
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
    EXPECT_EQ(StandardError(), "");
    EXPECT_EQ(queue_.Size(), 0u);
    EXPECT_FALSE(home_.Exists("Log"));
}

TEST_F(LogWriterTest, EscapesControlCharactersEverywhere) {
    Log(kLogProgress, "GET /a\r\n[11/22 00:00:00] forged\x1b[2J");
    std::string escaped = "GET /a\\x0d\\x0a[11/22 00:00:00] forged\\x1b[2J";
    EXPECT_EQ(LogFile(), kByteOrderMark + ("[11/22 23:59:58] " + escaped + "\n"));
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
    EXPECT_EQ(StandardError(), "still queued\n");
    EXPECT_EQ(queue_.Size(), 1u);
}

TEST_F(LogWriterTest, ManyThreadsLoseNoLineAndKeepEachThreadsOrder) {
    constexpr int kThreads = 8;
    constexpr int kLinesEach = 5000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kLinesEach; ++i)
                Log(kLogProgress, "%d %d", t, i);
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    auto check = [&](const std::string& text, const std::string& prefix) {
        std::vector<int> next(kThreads, 0);
        for (const std::string& line : SplitLines(text)) {
            ASSERT_EQ(line.compare(0, prefix.size(), prefix), 0) << line;
            int t = -1;
            int i = -1;
            ASSERT_EQ(std::sscanf(line.c_str() + prefix.size(), "%d %d", &t, &i), 2) << line;
            ASSERT_TRUE(t >= 0 && t < kThreads) << line;
            ASSERT_EQ(i, next[t]) << "thread " << t << " out of order";
            ++next[t];
        }
        EXPECT_EQ(next, std::vector<int>(kThreads, kLinesEach));
    };
    std::string file = LogFile();
    ASSERT_EQ(file.compare(0, 3, kByteOrderMark), 0);
    check(file.substr(3), "[11/22 23:59:58] ");
    check(StandardError(), "");
}

TEST_F(LogWriterTest, DestructionWritesEverythingQueued) {
    constexpr int kLines = 20000;
    for (int i = 0; i < kLines; ++i)
        Log(kLogProgress, "line %d", i);
    writer_.reset();
    std::vector<std::string> lines = SplitLines(home_.Read("Log/Lumidrop.20261122.log"));
    ASSERT_EQ(lines.size(), static_cast<size_t>(kLines));
    EXPECT_EQ(lines.back(), "[11/22 23:59:58] line 19999");
    EXPECT_EQ(SplitLines(scratch_.Read("stderr")).size(), static_cast<size_t>(kLines));
}

TEST_F(LogWriterTest, StandardErrorNobodyReadsHoldsNoLoggerPastTheBound) {
    int fds[2];
    ASSERT_EQ(::pipe2(fds, O_CLOEXEC), 0);
    UniqueFd reader(fds[0]);
    other_error_fd_.Reset(fds[1]);
    StartWriter(other_error_fd_.Get());
    // Far more than the queue holds, so that the writer stalls on the full pipe and the
    // queue fills up behind it.
    constexpr int kLines = 40000;
    const std::string filler(200, 'x');
    auto longest_call = std::async(std::launch::async, [&] {
        std::chrono::steady_clock::duration longest{};
        for (int i = 0; i < kLines; ++i) {
            auto start = std::chrono::steady_clock::now();
            Log(kLogNotice, "%d %s", i, filler.c_str());
            longest = std::max(longest, std::chrono::steady_clock::now() - start);
        }
        return longest;
    });
    bool finished = longest_call.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    // The stalled write now fails with EPIPE; a SIGPIPE reaching the process would end the test.
    reader.Reset();
    ASSERT_TRUE(finished) << "a logger waited on the stalled writer without bound";
    EXPECT_LT(longest_call.get(), LogWriter::kMaxQueueWait + std::chrono::seconds(1));

    writer_.reset();
    std::string file = home_.Read("Log/Lumidrop.20261122.log");
    ASSERT_EQ(file.compare(0, 3, kByteOrderMark), 0);
    uint64_t written = 0;
    uint64_t dropped = 0;
    for (const std::string& line : SplitLines(file.substr(3))) {
        unsigned long long number = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "[11/22 23:59:58] %llu", &number), 1) << line;
        if (line.find(" log lines were dropped") != std::string::npos) {
            dropped += number;
        } else {
            ASSERT_EQ(number, written + dropped) << "lines out of order";
            ++written;
        }
    }
    EXPECT_GT(dropped, 0u);
    EXPECT_EQ(written + dropped, static_cast<uint64_t>(kLines));
}

TEST_F(LogWriterTest, ClosedStandardErrorLeavesTheFileWhole) {
    // A number far above any the writer's own files could take when it opens them.
    int closed = ::fcntl(error_file_.Get(), F_DUPFD_CLOEXEC, 512);
    ASSERT_GE(closed, 512);
    ::close(closed);
    StartWriter(closed);
    for (int i = 0; i < 1000; ++i)
        Log(kLogFatal, "line %d", i);
    std::vector<std::string> lines = SplitLines(LogFile());
    ASSERT_EQ(lines.size(), 1000u);
    EXPECT_EQ(lines.back(), "[11/22 23:59:58] line 999");
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
