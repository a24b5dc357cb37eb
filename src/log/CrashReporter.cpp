#include "log/CrashReporter.h"

#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <set>
#include <string_view>

#include "core/AlternateSignalStack.h"
#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "core/TekoFileFind.h"
#include "core/UniqueFd.h"
#include "core/Version.h"
#include "log/SignalSafeWriter.h"

namespace Zarn {
namespace {

struct FatalSignal {
    int number;
    const char* name;
};
constexpr FatalSignal kFatalSignals[] = {{SIGSEGV, "SIGSEGV"},
                                         {SIGBUS, "SIGBUS"},
                                         {SIGFPE, "SIGFPE"},
                                         {SIGILL, "SIGILL"},
                                         {SIGABRT, "SIGABRT"}};
constexpr int kMaxFrames = 64;
// How long a thread that faults while another writes its report waits for that one to end
// the process before ending it itself (the first may be stuck, in the loader's lock say).
constexpr time_t kSecondCrashWaitSeconds = 10;

// Everything the handler needs that would take allocation, stdio or the time-zone database to
// work out. Filled by Install before the handlers exist and never changed afterwards.
struct Prepared {
    char folder[PATH_MAX] = {};  // "HOME/Log"
    char version[128] = {};
    // Seconds east of UTC when the program started: a report written after a change to or from
    // daylight saving time is an hour off in its name, never in the UTC time it holds.
    long utc_offset = 0;
    // The report's path, built in the handler; static because alternate stacks are small.
    char report_path[PATH_MAX + 64] = {};
};

Prepared prepared;
std::atomic<pid_t> crashing_thread{0};
static_assert(std::atomic<pid_t>::is_always_lock_free);

struct CivilTime {
    int64_t year;
    int month, day, hour, minute, second;
};

// Seconds since 1970 to the proleptic Gregorian calendar by whole 400-year eras, which needs
// nothing but integer arithmetic.
CivilTime ToCivil(int64_t seconds) {
    int64_t days = seconds / 86400;
    int64_t rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    days += 719468;  // from 1970-01-01 to 0000-03-01
    int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    int64_t day_of_era = days - era * 146097;
    int64_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    int64_t day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    int64_t march_month = (5 * day_of_year + 2) / 153;
    int month = static_cast<int>(march_month < 10 ? march_month + 3 : march_month - 9);
    return {.year = year_of_era + era * 400 + (month <= 2 ? 1 : 0),
            .month = month,
            .day = static_cast<int>(day_of_year - (153 * march_month + 2) / 5 + 1),
            .hour = static_cast<int>(rest / 3600),
            .minute = static_cast<int>(rest / 60 % 60),
            .second = static_cast<int>(rest % 60)};
}

int64_t UtcNow() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

const char* SignalName(int number) {
    for (const FatalSignal& fatal : kFatalSignals) {
        if (fatal.number == number) return fatal.name;
    }
    return "signal";
}

// A bounded string builder for the report's path, in the static buffer.
class PathBuilder {
public:
    explicit PathBuilder(char* buffer, size_t size) : buffer_(buffer), size_(size) {}
    PathBuilder& Text(const char* text) {
        while (*text != '\0' && used_ + 1 < size_)
            buffer_[used_++] = *text++;
        buffer_[used_] = '\0';
        return *this;
    }
    PathBuilder& Digits(int64_t value, int width) {
        char digits[2] = {};
        for (int64_t scale = Power10(width - 1); scale > 0; scale /= 10) {
            digits[0] = static_cast<char>('0' + value / scale % 10);
            Text(digits);
        }
        return *this;
    }

private:
    static int64_t Power10(int exponent) {
        int64_t result = 1;
        while (exponent-- > 0)
            result *= 10;
        return result;
    }

    char* buffer_;
    size_t size_;
    size_t used_ = 0;
};

// Creates "crash-YYYYMMDD-HHMMSS.txt" (local time) in Log/, with "-2" to "-9" before the
// suffix when threads of another program on the same home crashed in the same second.
UniqueFd CreateReportFile() {
    ::mkdir(prepared.folder, 0755);
    CivilTime local = ToCivil(UtcNow() + prepared.utc_offset);
    for (int attempt = 1; attempt <= 9; ++attempt) {
        PathBuilder path(prepared.report_path, sizeof prepared.report_path);
        path.Text(prepared.folder).Text("/").Text(CrashReporter::kReportPrefix);
        path.Digits(local.year, 4).Digits(local.month, 2).Digits(local.day, 2).Text("-");
        path.Digits(local.hour, 2).Digits(local.minute, 2).Digits(local.second, 2);
        if (attempt > 1) path.Text("-").Digits(attempt, 1);
        path.Text(CrashReporter::kReportSuffix);
        int fd = ::open(prepared.report_path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd >= 0 || errno != EEXIST) return UniqueFd(fd);
    }
    return UniqueFd();
}

void WriteHeader(SignalSafeWriter& out, int number, const siginfo_t& info, pid_t thread) {
    out.Text(prepared.version).Char('\n');
    out.Text("Signal: ").Text(SignalName(number)).Text(" (").Decimal(number).Text("), code ");
    out.Decimal(info.si_code);
    // A code of zero or below means another process (or this one) sent the signal.
    if (info.si_code <= 0) {
        out.Text(", sent by process ").Decimal(info.si_pid);
    } else if (number != SIGABRT) {
        out.Text(", address ").Hex(reinterpret_cast<uintptr_t>(info.si_addr));
    }
    char name[17] = {};
    (void)::prctl(PR_GET_NAME, name);
    out.Text("\nThread: ").Decimal(thread).Text(" \"").Text(name).Text("\"");
    if (thread == ::getpid()) out.Text(" (main thread)");
    out.Text("\nProcess: ").Decimal(::getpid());
    CivilTime utc = ToCivil(UtcNow());
    out.Text("\nTime: ").Decimal(utc.year, 4).Char('-').Decimal(utc.month, 2).Char('-');
    out.Decimal(utc.day, 2).Char(' ').Decimal(utc.hour, 2).Char(':').Decimal(utc.minute, 2);
    out.Char(':').Decimal(utc.second, 2).Text(" UTC\n");
}

// The map lets a developer turn the backtrace's addresses into lines with addr2line, even
// for a build whose symbols were stripped and for libraries loaded at random addresses.
void CopyMemoryMap(int report_fd) {
    UniqueFd maps(::open("/proc/self/maps", O_RDONLY | O_CLOEXEC));
    if (maps.Get() < 0) return;
    char chunk[1024];
    for (;;) {
        ssize_t got = ::read(maps.Get(), chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return;
        if (!WriteFully(report_fd, std::string_view(chunk, static_cast<size_t>(got)))) return;
    }
}

void WriteReport(int number, const siginfo_t& info, pid_t thread) {
    UniqueFd report = CreateReportFile();
    SignalSafeWriter error(2);
    error.Text(kProductName).Text(": fatal ").Text(SignalName(number));
    if (report.Get() < 0) {
        error.Text("; no crash report could be written in ").Text(prepared.folder).Char('\n');
        return;
    }
    error.Text("; crash report: ").Text(prepared.report_path).Char('\n').Flush();
    SignalSafeWriter out(report.Get());
    WriteHeader(out, number, info, thread);
    out.Text("\nBacktrace:\n").Flush();
    // Neither is on POSIX's list of safe calls, but once Install has loaded the unwinder they
    // take no lock of the heap: the stack is walked and its addresses named from the loaded
    // objects' symbol tables.
    void* frames[kMaxFrames];
    int count = ::backtrace(frames, kMaxFrames);
    ::backtrace_symbols_fd(frames, count, report.Get());
    out.Text("\nMemory map:\n").Flush();
    CopyMemoryMap(report.Get());
}

// The signal is blocked while its handler runs, so this one arrives as the handler returns
// and meets the default action: a fault ends the process at the faulting instruction (with
// its core dump), and a signal that would not come again by itself (sent with kill, or
// abort's) ends it the same way.
void RaiseWithDefaultAction(int number, pid_t thread) {
    struct sigaction default_action {};
    default_action.sa_handler = SIG_DFL;
    ::sigaction(number, &default_action, nullptr);
    ::syscall(SYS_tgkill, ::getpid(), thread, number);
}

void OnFatalSignal(int number, siginfo_t* info, void* /*context*/) {
    auto thread = static_cast<pid_t>(::syscall(SYS_gettid));
    pid_t writer = 0;
    if (crashing_thread.compare_exchange_strong(writer, thread)) {
        WriteReport(number, *info, thread);
    } else if (writer != thread) {
        // The first report is being written and that thread ends the process; a second report
        // would only garble the first.
        timespec wait{.tv_sec = kSecondCrashWaitSeconds, .tv_nsec = 0};
        while (::nanosleep(&wait, &wait) != 0 && errno == EINTR) {
        }
    }
    RaiseWithDefaultAction(number, thread);
}

}  // namespace

void CrashReporter::Install(const std::string& home) {
    static bool installed = false;
    if (installed) return;
    installed = true;
    // The main thread's, for as long as the program runs.
    static AlternateSignalStack main_thread_stack;
    std::string folder = JoinPath(home, "Log");
    // The handler builds the report's path in a fixed buffer; a home too deep for it gets none.
    if (folder.size() >= sizeof prepared.folder) return;
    std::memcpy(prepared.folder, folder.c_str(), folder.size() + 1);
    std::snprintf(prepared.version, sizeof prepared.version, "%s %s (revision %d)", kProductName,
                  kVersionText, kRevision);
    time_t now = std::time(nullptr);
    std::tm local{};
    if (::localtime_r(&now, &local) != nullptr) prepared.utc_offset = local.tm_gmtoff;
    // The first backtrace loads the unwinder library, which allocates: done here, not in the
    // handler.
    void* frame = nullptr;
    (void)::backtrace(&frame, 1);

    struct sigaction action {};
    action.sa_sigaction = &OnFatalSignal;
    // One report per process: a fault inside the handler meets the default action (the reset,
    // and the kernel's rule for a fault whose signal is blocked) instead of the handler again.
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    for (const FatalSignal& fatal : kFatalSignals)
        sigaddset(&action.sa_mask, fatal.number);
    for (const FatalSignal& fatal : kFatalSignals)
        ::sigaction(fatal.number, &action, nullptr);
}

std::vector<std::string> CrashReporter::MentionReports(const std::string& home) {
    std::string folder = JoinPath(home, "Log");
    std::string mentioned_path = JoinPath(folder, kMentionedFile);
    // A list of names, not a renaming: the path the log line gave the owner stays the
    // report's, and a report the owner deleted simply drops out.
    std::string mentioned = ReadWholeFile(mentioned_path).value_or("");
    std::set<std::string_view> known;
    for (size_t start = 0; start < mentioned.size();) {
        size_t end = std::min(mentioned.find('\n', start), mentioned.size());
        known.insert(std::string_view(mentioned).substr(start, end - start));
        start = end + 1;
    }
    std::vector<std::string> names;
    TekoFileFind find;
    std::string pattern = JoinPath(folder, std::string(kReportPrefix) + "*" + kReportSuffix);
    for (bool found = find.FindFirst(pattern); found; found = find.FindNext()) {
        if (!find.IsDirectory() && !known.contains(find.GetName())) names.push_back(find.GetName());
    }
    if (names.empty()) return {};
    std::sort(names.begin(), names.end());  // the name holds the time
    std::vector<std::string> paths;
    for (const std::string& name : names) {
        mentioned += name + "\n";
        paths.push_back(JoinPath(folder, name));
    }
    (void)WriteFileAtomically(mentioned_path, mentioned);
    return paths;
}

void CrashReporter::RemoveFatalSignals(sigset_t& signals) {
    for (const FatalSignal& fatal : kFatalSignals)
        sigdelset(&signals, fatal.number);
}

}  // namespace Zarn
