// The real program killed by a fault signal: it leaves a crash report the developers can use,
// still dies of that signal, and its next start tells the owner about the report once.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "core/Version.h"
#include "support/ProgramRunner.h"
#include "support/TempFolder.h"

namespace Zarn::testing {
namespace {

std::string LocalStamp() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &local);
    return text;
}

size_t CountOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

class CrashReportTest : public ::testing::Test {
protected:
    void SetUp() override {
        // The children inherit it: a crash must not leave a core file in the build folder.
        rlimit no_core{0, 0};
        ASSERT_EQ(::setrlimit(RLIMIT_CORE, &no_core), 0);
    }

    std::set<std::string> Reports() const {
        std::set<std::string> names;
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(home_ / "Log", ignored)) {
            std::string name = entry.path().filename().string();
            if (name.starts_with("crash-") && name.ends_with(".txt")) names.insert(name);
        }
        return names;
    }

    // Starts the program, kills it with the signal and returns the one new report's name.
    std::string CrashWith(int signal, const std::string& signal_name) {
        std::set<std::string> before = Reports();
        std::string earliest = LocalStamp();
        {
            ProgramRunner program(home_.Path());
            // Start-up's lines reach standard error before the listening line is printed.
            started_log_ = ProgramLog();
            EXPECT_EQ(program.KillWith(signal), signal) << "the program must die of the signal";
        }
        std::string latest = LocalStamp();
        std::vector<std::string> added;
        std::ranges::set_difference(Reports(), before, std::back_inserter(added));
        if (added.size() != 1) {
            ADD_FAILURE() << added.size() << " new reports after " << signal_name;
            return {};
        }
        std::string stamp = added[0].substr(6, 15);  // crash-YYYYMMDD-HHMMSS, local time
        EXPECT_TRUE(earliest <= stamp && stamp <= latest) << added[0] << " " << earliest;
        // Standard error says where the report is.
        EXPECT_TRUE(ProgramLog().find("crash report: " + home_ / ("Log/" + added[0])) !=
                    std::string::npos)
            << ProgramLog();
        return added[0];
    }

    std::string ProgramLog() const { return testing::ReadWholeFile(home_.Path() + ".stderr"); }

    TempFolder home_;
    std::string started_log_;
};

void ExpectUsableReport(const std::string& report, const std::string& signal_line) {
    EXPECT_NE(report.find(signal_line), std::string::npos) << report;
    EXPECT_NE(report.find(std::string(kProductName) + " " + kVersionText + " (revision " +
                          std::to_string(kRevision) + ")"),
              std::string::npos)
        << report;
    size_t trace = report.find("\nBacktrace:\n"), map = report.find("\nMemory map:\n");
    ASSERT_TRUE(trace != std::string::npos && map != std::string::npos) << report;
    std::string frames = report.substr(trace, map - trace);
    // The handler, the signal's return frame, what was interrupted, main and the start.
    EXPECT_GE(CountOf(frames, "[0x"), 5u) << frames;
    EXPECT_NE(report.find("(main thread)"), std::string::npos) << report;
    // The program's own functions are named, not only its addresses.
    EXPECT_NE(frames.find("lumidrop(main+0x"), std::string::npos) << frames;
    // addr2line needs the program's load address, which only the map gives.
    EXPECT_NE(report.find(LUMIDROP_BINARY, map), std::string::npos) << report.substr(map);
}

TEST_F(CrashReportTest, FaultLeavesAReportThatTheNextStartMentionsOnce) {
    std::string segv = CrashWith(SIGSEGV, "SIGSEGV");
    ASSERT_FALSE(segv.empty());
    ExpectUsableReport(home_.Read("Log/" + segv), "Signal: SIGSEGV (11), code -6, sent by process");

    std::string abrt = CrashWith(SIGABRT, "SIGABRT");
    ASSERT_FALSE(abrt.empty());
    // The start after the crash named its report.
    EXPECT_EQ(CountOf(started_log_, home_ / ("Log/" + segv)), 1u) << started_log_;
    ExpectUsableReport(home_.Read("Log/" + abrt), "Signal: SIGABRT (6)");

    ProgramRunner program(home_.Path());
    std::string log = ProgramLog();
    EXPECT_EQ(CountOf(log, home_ / ("Log/" + abrt)), 1u) << log;
    EXPECT_EQ(CountOf(log, segv), 0u) << "a report is mentioned at one start only:\n" << log;
    EXPECT_EQ(program.Stop(), 0);
}

}  // namespace
}  // namespace Zarn::testing
