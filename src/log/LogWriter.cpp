#include "log/LogWriter.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <system_error>
#include <utility>

#include "core/AlternateSignalStack.h"
#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "core/UniqueFd.h"
#include "core/Version.h"
#include "log/CrashReporter.h"
#include "log/Log.h"
#include "log/LogQueue.h"

namespace Zarn {
namespace {

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";
// A burst can leave a batch's buffer this large; more is given back once written.
constexpr size_t kKeptBufferBytes = 256 * 1024;

bool IsSameDay(const std::tm& a, const std::tm& b) {
    return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday;
}

std::string Stamp(const std::tm& time) {
    char stamp[32];
    std::snprintf(stamp, sizeof stamp, "[%02d/%02d %02d:%02d:%02d] ", time.tm_mon + 1, time.tm_mday,
                  time.tm_hour, time.tm_min, time.tm_sec);
    return stamp;
}

void AppendEscaped(std::string& out, std::string_view text) {
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            char code[5];
            std::snprintf(code, sizeof code, "\\x%02x", byte);
            out += code;
        } else {
            out += c;
        }
    }
}

void ReleaseIfLarge(std::string& buffer) {
    if (buffer.capacity() > kKeptBufferBytes) std::string().swap(buffer);
}

}  // namespace

void LogWriter::Batch::AppendToFile(const std::tm& time, std::string_view line) {
    if (file_runs.empty() || !IsSameDay(file_runs.back().day, time)) {
        file_runs.push_back({.day = time, .bytes = {}});
    }
    std::string& run = file_runs.back().bytes;
    run += line;
    run += '\n';
    bytes += line.size() + 1;
}

void LogWriter::Batch::AppendToError(std::string_view text) {
    error_bytes += text;
    error_bytes += '\n';
    bytes += text.size() + 1;
}

void LogWriter::Batch::Clear() {
    error_bytes.clear();
    ReleaseIfLarge(error_bytes);
    file_runs.clear();
    bytes = 0;
}

LogWriter::LogWriter(Options options) : options_(std::move(options)) {
    StartWriterThread();
}

LogWriter::~LogWriter() {
    if (installed_) InstallLogListener(nullptr, nullptr);
    {
        std::lock_guard lock(queue_mutex_);
        stopping_ = true;
    }
    lines_queued_.notify_one();
    // The thread writes everything still queued before it ends.
    if (thread_.joinable()) thread_.join();
}

void LogWriter::StartWriterThread() {
    // The writer thread takes no signals: SIGINT and SIGTERM belong to the main thread's
    // sigwait, and a standard error whose reader has gone must fail a write with EPIPE, not
    // end the program. Blocking them before the thread exists leaves no moment it could. Faults
    // stay open: one whose signal is blocked ends the process without a crash report.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    CrashReporter::RemoveFatalSignals(all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    try {
        thread_ = std::thread([this] {
            AlternateSignalStack signal_stack;
            RunWriterThread();
        });
        threaded_ = true;
    } catch (const std::system_error&) {
        // No thread to spare: each logging thread then writes the queue itself, as before.
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

void LogWriter::Install() {
    InstallLogListener(&LogWriter::Listen, this);
    installed_ = true;
}

void LogWriter::Listen(void* context, uint32_t level, const char* text) {
    static_cast<LogWriter*>(context)->Write(level, text);
}

std::tm LogWriter::LocalNow() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    return local;
}

std::string LogWriter::EscapeControls(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    AppendEscaped(escaped, text);
    return escaped;
}

std::string LogWriter::FilePathFor(const std::tm& time) const {
    char name[64];
    std::snprintf(name, sizeof name, "Log/Lumidrop.%04d%02d%02d.log", time.tm_year + 1900,
                  time.tm_mon + 1, time.tm_mday);
    return JoinPath(options_.home, name);
}

void LogWriter::Write(uint32_t level, const char* text) noexcept {
    try {
        std::tm time = options_.clock();
        std::string stamped = Stamp(time);
        size_t stamp_length = stamped.size();
        AppendEscaped(stamped, text);
        bool to_file = level != kLogTrace && options_.write_file();
        Enqueue({.level = level,
                 .time = time,
                 .to_file = to_file,
                 .stamped = stamped,
                 .message = std::string_view(stamped).substr(stamp_length)});
        // The console's queue is in memory and bounded already, and the console wants its
        // lines as they happen, so they go there from here rather than from the writer thread.
        if (options_.queue != nullptr) options_.queue->Push(level, std::move(stamped));
    } catch (...) {
        // Out of memory while logging: the line is lost, the caller goes on.
    }
}

void LogWriter::Enqueue(const Line& line) {
    if (!line.to_file && options_.error_fd < 0) return;
    {
        std::unique_lock lock(queue_mutex_);
        if (pending_.bytes >= kMaxQueuedBytes && !WaitForRoom(lock)) {
            ++drops_.count;
            drops_.last_time = line.time;
            drops_.had_file_lines = drops_.had_file_lines || line.to_file;
            return;
        }
        bool was_empty = pending_.IsEmpty();
        Append(pending_, line);
        ++queued_lines_;
        if (was_empty) lines_queued_.notify_one();
    }
    if (!threaded_) WriteQueued();
}

void LogWriter::Append(Batch& batch, const Line& line) const {
    if (line.to_file) batch.AppendToFile(line.time, line.stamped);
    if (options_.error_fd < 0) return;
    batch.AppendToError(line.message);
    if (line.level == kLogFatal) {
        std::string announcement = kProductName;
        announcement += ": ";
        announcement += line.message;
        batch.AppendToError(announcement);
    }
}

bool LogWriter::WaitForRoom(std::unique_lock<std::mutex>& lock) {
    // Once one logger has waited in vain the writer is stuck (a full disk that hangs, a
    // standard error nobody reads); the others must not each wait again.
    if (stalled_) return false;
    if (room_made_.wait_for(lock, kMaxQueueWait,
                            [this] { return pending_.bytes < kMaxQueuedBytes; })) {
        return true;
    }
    stalled_ = true;
    return false;
}

void LogWriter::RunWriterThread() {
    for (;;) {
        {
            std::unique_lock lock(queue_mutex_);
            lines_queued_.wait(lock, [this] { return !pending_.IsEmpty() || stopping_; });
            if (pending_.IsEmpty()) return;
            // Lines come in bursts (several for every request): a moment's wait gathers a
            // burst into one write instead of waking for each line. A stop or a Flush cuts
            // it short.
            (void)lines_queued_.wait_for(lock, kGatherTime,
                                         [this] { return stopping_ || flushes_waiting_ > 0; });
        }
        WriteQueued();
    }
}

void LogWriter::WriteQueued() {
    std::lock_guard write_lock(write_mutex_);
    uint64_t through = 0;
    Drops drops;
    {
        std::lock_guard lock(queue_mutex_);
        std::swap(pending_, writing_);
        through = queued_lines_;
        drops = std::exchange(drops_, {});
        stalled_ = false;
    }
    room_made_.notify_all();
    try {
        if (drops.count > 0) AppendDropNotice(drops);
        for (FileRun& run : writing_.file_runs)
            AppendToFile(run);
    } catch (...) {
        // Out of memory: these lines miss the file, but the writer and Flush go on.
    }
    if (!writing_.error_bytes.empty()) (void)WriteFully(options_.error_fd, writing_.error_bytes);
    writing_.Clear();
    {
        std::lock_guard lock(queue_mutex_);
        written_lines_ = through;
    }
    lines_written_.notify_all();
}

void LogWriter::AppendDropNotice(const Drops& drops) {
    char text[96];
    std::snprintf(text, sizeof text,
                  "%" PRIu64 " log lines were dropped: the log could not be written fast enough",
                  drops.count);
    std::string stamped = Stamp(drops.last_time);
    size_t stamp_length = stamped.size();
    stamped += text;
    Append(writing_, {.level = kLogError,
                      .time = drops.last_time,
                      .to_file = drops.had_file_lines,
                      .stamped = stamped,
                      .message = std::string_view(stamped).substr(stamp_length)});
}

void LogWriter::Flush() {
    std::unique_lock lock(queue_mutex_);
    uint64_t target = queued_lines_;
    ++flushes_waiting_;
    lines_queued_.notify_one();
    lines_written_.wait(lock, [&] { return written_lines_ >= target; });
    --flushes_waiting_;
}

void LogWriter::AppendToFile(FileRun& run) {
    std::string path = FilePathFor(run.day);
    // The day's file stays open between batches; it is opened again for a new day, and when
    // someone has deleted or moved it (a log rotation), so lines never vanish into it.
    struct stat info {};
    struct stat named {};
    bool stale = !file_.IsValid() || path != file_path_ || ::fstat(file_.Get(), &info) != 0 ||
                 ::stat(path.c_str(), &named) != 0 || named.st_ino != info.st_ino ||
                 named.st_dev != info.st_dev;
    if (stale) {
        file_.Reset();
        if (!MakeFolders(FolderOf(path))) return;
        file_.Reset(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
        if (!file_.IsValid()) return;  // these lines are skipped; logging must never log
        file_path_ = path;
        if (::fstat(file_.Get(), &info) != 0) info = {};
    }
    if (info.st_size == 0) run.bytes.insert(0, kByteOrderMark);
    (void)WriteFully(file_.Get(), run.bytes);
}

}  // namespace Zarn
