#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

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

const std::string kByteOrderMark = "\xEF\xBB\xBF";

std::tm At(int day, int hour, int minute, int second) {
    std::tm time{};
    time.tm_year = 126;
    time.tm_mon = 10;
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
    std::tm now_ = At(22, 23, 59, 58);
    std::unique_ptr<LogWriter> writer_;
};

TEST_F(LogWriterTest, StartsANewFileEachDayAndAgainWhenItIsRemoved) {
    Log(kLogNotice, "first %d", 1);
    now_ = At(23, 0, 0, 1);
    Log(kLogNotice, "after midnight");
    // A thread that read the clock just before midnight may queue its line just after.
    now_ = At(22, 23, 59, 59);
    Log(kLogNotice, "late");
    EXPECT_EQ(LogFile(), kByteOrderMark + "[11/22 23:59:58] first 1\n[11/22 23:59:59] late\n");
    EXPECT_EQ(LogFile("Log/Lumidrop.20261123.log"),
              kByteOrderMark + "[11/23 00:00:01] after midnight\n");

    std::filesystem::rename(home_ / "Log/Lumidrop.20261122.log", home_ / "rotated.log");
    Log(kLogNotice, "after");
    EXPECT_EQ(LogFile(), kByteOrderMark + "[11/22 23:59:59] after\n");
}

TEST_F(LogWriterTest, MaskAndSwitchDecideWhereALineGoes) {
    Log(kLogTrace, "masked");
    SetLogMask(0xFFFFFFFF);
    Log(kLogTrace, "trace");
    write_file_ = false;
    Log(kLogNotice, "console only");
    writer_->Flush();
    EXPECT_FALSE(home_.Exists("Log/Lumidrop.20261122.log"));
    EXPECT_EQ(StandardError(), "trace\nconsole only\n");
    LogQueue::Entry entry;
    ASSERT_TRUE(queue_.Pop(entry));
    EXPECT_EQ(entry.line, "[11/22 23:59:58] trace");

    // A file where the folder should be: the line still goes everywhere else.
    write_file_ = true;
    home_.Write("Log", "a file");
    Log(kLogError, "still queued");
    EXPECT_EQ(StandardError(), "trace\nconsole only\nstill queued\n");
    EXPECT_EQ(queue_.Size(), 2u);
}

TEST_F(LogWriterTest, EscapesControlCharactersCutsLongLinesAndAnnouncesFatalOnes) {
    Log(kLogProgress, "GET /a\r\n[11/22 00:00:00] forged\x1b[2J");
    std::string escaped = "GET /a\\x0d\\x0a[11/22 00:00:00] forged\\x1b[2J";
    Log(kLogError, "%s", std::string(5000, 'x').c_str());
    Log(kLogFatal, "disk on fire");
    std::string cut(kLogBufferBytes - 1, 'x');
    EXPECT_EQ(LogFile(), kByteOrderMark + "[11/22 23:59:58] " + escaped + "\n[11/22 23:59:58] " +
                             cut + "\n[11/22 23:59:58] disk on fire\n");
    EXPECT_EQ(StandardError(),
              escaped + "\n" + cut + "\ndisk on fire\nKorvel Lumidrop: disk on fire\n");
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
    ASSERT_TRUE(file.starts_with(kByteOrderMark));
    uint64_t written = 0, dropped = 0;
    for (const std::string& line : SplitLines(file.substr(3))) {
        unsigned long long number = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "[11/22 23:59:58] %llu", &number), 1) << line;
        if (line.find(" log lines were dropped") != std::string::npos) {
            dropped += number;
        } else {
            ASSERT_EQ(number, written++ + dropped) << "lines out of order";
        }
    }
    EXPECT_GT(dropped, 0u);
    EXPECT_EQ(written + dropped, static_cast<uint64_t>(kLines));
}

// Destroying the writer right after the lines are queued must still write them all, in
// each thread's order, even with standard error closed under it.
TEST_F(LogWriterTest, ManyThreadsLoseNoLineAndKeepEachThreadsOrder) {
    // A number far above any the writer's own files could take when it opens them.
    int closed = ::fcntl(error_file_.Get(), F_DUPFD_CLOEXEC, 512);
    ASSERT_GE(closed, 512);
    ::close(closed);
    StartWriter(closed);
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
    writer_.reset();
    std::string file = home_.Read("Log/Lumidrop.20261122.log");
    ASSERT_TRUE(file.starts_with(kByteOrderMark));
    std::vector<int> next(kThreads, 0);
    for (const std::string& line : SplitLines(file.substr(3))) {
        int t = -1, i = -1;
        ASSERT_EQ(std::sscanf(line.c_str(), "[11/22 23:59:58] %d %d", &t, &i), 2) << line;
        ASSERT_TRUE(t >= 0 && t < kThreads) << line;
        ASSERT_EQ(i, next[t]++) << "thread " << t << " out of order";
    }
    EXPECT_EQ(next, std::vector<int>(kThreads, kLinesEach));
}

}  // namespace
}  // namespace Zarn
