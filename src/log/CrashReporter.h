#pragma once

#include <signal.h>

#include <string>
#include <vector>

namespace Zarn {

// Writes "Log/crash-YYYYMMDD-HHMMSS.txt" in the home folder when the program dies of a fault
// (SIGSEGV, SIGBUS, SIGFPE, SIGILL or SIGABRT): the signal, the thread, the version, a
// backtrace and the memory map, then lets the signal end the process as it would have (with
// a core dump where the system keeps them). The next start names the reports nobody was told
// about yet. Install and MentionReports are for the main thread at start-up.
class CrashReporter {
public:
    static constexpr const char kReportPrefix[] = "crash-";
    static constexpr const char kReportSuffix[] = ".txt";
    // Inside Log/: the names of the reports already mentioned, one per line.
    static constexpr const char kMentionedFile[] = "crash-reported";

    // Prepares everything the handler needs (it may not allocate or read the time zone) and
    // installs it for the five signals, with an alternate signal stack for the calling
    // thread; other threads get theirs from AlternateSignalStack. Later calls change nothing.
    static void Install(const std::string& home);

    // The full paths of the reports in the home's Log/ not returned by an earlier call, oldest
    // first; they count as mentioned from now on.
    [[nodiscard]] static std::vector<std::string> MentionReports(const std::string& home);

    // Takes the fatal signals out of a set that a thread is about to block: a fault in a thread
    // that blocks its signal ends the process at once, without a report.
    static void RemoveFatalSignals(sigset_t& signals);
};

}  // namespace Zarn
