#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "core/UniqueFd.h"

namespace Zarn {

class LogQueue;

// The installed log listener. For each accepted message it writes the text to standard
// error, stamps it "[MM/DD hh:mm:ss] ", appends the line to the day's file
// "Log/Lumidrop.YYYYMMDD.log" in the home folder (when writing is on, never for level 1;
// a new file starts with a UTF-8 byte-order mark), and queues it for the owner's console. A
// level-32 message is also announced on standard error as "Korvel Lumidrop: ...". Control
// characters of a message are written escaped ("\x0d"), so that no request path can forge a log
// line or drive a terminal.
//
// Write only formats the line, hands it to the console and queues it; a thread of the writer's
// own takes everything queued at once and writes it with one write per destination, in the
// order Write queued it. A logging thread never waits for the disk or the terminal unless
// kMaxQueuedBytes are already waiting, and then for kMaxQueueWait at most: a writer that makes
// no progress in that time has its new lines dropped, without waiting, until it moves again;
// it then writes how many it lost. Flush and destruction return only once everything queued
// before them is written. Writing never logs and never throws. Any thread may log or flush.
class LogWriter {
public:
    using Clock = std::function<std::tm()>;

    static constexpr size_t kMaxQueuedBytes = 4 << 20;
    static constexpr std::chrono::milliseconds kMaxQueueWait{100};
    // How long the writer waits after the first line of a burst for the rest of it.
    static constexpr std::chrono::milliseconds kGatherTime{20};

    struct Options {
        std::string home;  // the folder that holds "Log/"
        LogQueue* queue = nullptr;
        // Whether lines go to the file ("writeLog"); asked for every line, on the logging thread.
        std::function<bool()> write_file = [] { return true; };
        // The local time of a line, on the logging thread; tests replace it.
        Clock clock = LocalNow;
        int error_fd = 2;
    };

    explicit LogWriter(Options options);
    ~LogWriter();
    LogWriter(const LogWriter&) = delete;
    LogWriter& operator=(const LogWriter&) = delete;

    // Makes this writer the process's log listener until it is destroyed.
    void Install();
    void Write(uint32_t level, const char* text) noexcept;
    // Returns once every line queued before the call has been written out.
    void Flush();

    [[nodiscard]] static std::tm LocalNow();
    [[nodiscard]] static std::string EscapeControls(std::string_view text);
    // "Log/Lumidrop.YYYYMMDD.log" inside the home folder.
    [[nodiscard]] std::string FilePathFor(const std::tm& time) const;

private:
    // Lines for one day's file, in order.
    struct FileRun {
        std::tm day{};
        std::string bytes;
    };

    // Lines waiting to be written, already in the form each destination takes.
    struct Batch {
        std::string error_bytes;
        std::vector<FileRun> file_runs;
        size_t bytes = 0;

        void AppendToFile(const std::tm& time, std::string_view line);
        void AppendToError(std::string_view text);
        [[nodiscard]] bool IsEmpty() const { return bytes == 0; }
        void Clear();
    };

    struct Line {
        uint32_t level = 0;
        std::tm time{};
        bool to_file = false;
        std::string_view stamped;  // "[MM/DD hh:mm:ss] message"
        std::string_view message;
    };

    struct Drops {
        uint64_t count = 0;
        std::tm last_time{};
        bool had_file_lines = false;
    };

    static void Listen(void* context, uint32_t level, const char* text);
    void StartWriterThread();
    void RunWriterThread();
    void Enqueue(const Line& line);
    void Append(Batch& batch, const Line& line) const;
    [[nodiscard]] bool WaitForRoom(std::unique_lock<std::mutex>& lock);
    void WriteQueued();
    void AppendDropNotice(const Drops& drops);
    void AppendToFile(FileRun& run);

    Options options_;

    std::mutex queue_mutex_;  // guards everything from here to the writing side
    std::condition_variable lines_queued_;
    std::condition_variable room_made_;
    std::condition_variable lines_written_;
    Batch pending_;
    uint64_t queued_lines_ = 0;
    uint64_t written_lines_ = 0;
    Drops drops_;
    bool stalled_ = false;  // a logger gave up waiting for room; the next swap clears it
    bool stopping_ = false;
    int flushes_waiting_ = 0;

    // The writing side: the writer thread, or every logging thread in turn when that thread
    // could not start.
    std::mutex write_mutex_;
    Batch writing_;
    UniqueFd file_;
    std::string file_path_;

    bool threaded_ = false;
    bool installed_ = false;
    std::thread thread_;
};

}  // namespace Zarn
