#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "core/AThread.h"
#include "log/CrashReporter.h"
#include "support/TempFolder.h"

namespace Zarn {
namespace {

using testing::TempFolder;

// Far deeper than any stack: the limit only keeps the compiler from calling it endless.
volatile int recursion_limit = INT_MAX;

int Recurse(int depth) {
    volatile char frame[512];
    frame[0] = static_cast<char>(depth);
    if (depth == recursion_limit) return 0;
    return Recurse(depth + 1) + frame[0];
}

// What a connection thread would be, with a runaway recursion in its request handling.
class OverflowingThread : public AThread {
public:
    uint32_t Run() override { return static_cast<uint32_t>(Recurse(0)); }
};

[[noreturn]] void CrashOnAThread(const std::string& home) {
    rlimit no_core{0, 0};
    (void)::setrlimit(RLIMIT_CORE, &no_core);
    CrashReporter::Install(home);
    OverflowingThread thread;
    if (thread.Start()) thread.Join();
    std::exit(0);
}

std::string OnlyReport(const std::string& folder) {
    std::string found;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator(folder, missing)) {
        if (!entry.path().filename().string().starts_with("crash-")) continue;
        EXPECT_TRUE(found.empty()) << "more than one report";
        found = testing::ReadWholeFile(entry.path());
    }
    return found;
}

// The case an alternate stack exists for: the thread's own stack is used up, so the handler
// could not run on it at all.
TEST(CrashReporterTest, StackOverflowOnAWorkerThreadIsReported) {
    // Forked, not started anew, so that the child writes into this test's home folder.
    GTEST_FLAG_SET(death_test_style, "fast");
    TempFolder home;
    EXPECT_EXIT(CrashOnAThread(home.Path()), ::testing::KilledBySignal(SIGSEGV),
                "fatal SIGSEGV; crash report: .*/Log/crash-[0-9]{8}-[0-9]{6}\\.txt");
    std::string report = OnlyReport(home / "Log");
    EXPECT_NE(report.find("Signal: SIGSEGV (11), code "), std::string::npos) << report;
    EXPECT_NE(report.find(", address 0x"), std::string::npos) << "a fault has an address";
    EXPECT_EQ(report.find("(main thread)"), std::string::npos) << report;
    size_t frames = 0;
    for (size_t at = report.find("[0x"); at != std::string::npos; at = report.find("[0x", at + 1))
        ++frames;
    EXPECT_GE(frames, 32u) << "the recursion's frames:\n" << report;
}

}  // namespace
}  // namespace Zarn
