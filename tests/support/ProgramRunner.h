#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/SpawnedProgram.h"
#include "support/TempFolder.h"

namespace Zarn::testing {

// The real lumidrop program, started on a free port with a home folder of its own and
// stopped (SIGTERM) when the runner is destroyed.
class ProgramRunner {
public:
    explicit ProgramRunner(std::string home, const std::vector<std::string>& arguments = {})
        : ProgramRunner(std::move(home), With({"--port", "0"}, arguments), true) {}
    // Without a port on the command line, as the desktop or a service starts it: the saved
    // port, and sharing only when it was left on. The first line need not be a listening one.
    struct AsSaved {};
    ProgramRunner(std::string home, AsSaved, const std::vector<std::string>& arguments = {})
        : ProgramRunner(std::move(home), arguments, false) {}

    [[nodiscard]] int Port() const { return port_; }
    // The running program's process id (-1 once stopped), for looking at it in /proc.
    [[nodiscard]] pid_t Pid() const { return child_.Pid(); }
    [[nodiscard]] const std::string& ListeningLine() const { return line_; }
    // The next line the program prints after its listening line (the owner's console's
    // address, when the console could listen); empty when the program ends first.
    [[nodiscard]] std::string NextLine() { return child_.NextLine(); }
    // Sends SIGTERM and waits; the exit status (-1 when it did not exit normally).
    int Stop() { return child_.Stop(); }
    int KillWith(int signal) { return child_.KillWith(signal); }

    // Runs the program to its end with these arguments: exit status (124 when it is still
    // running after a minute) and standard error.
    static int RunToEnd(const std::vector<std::string>& arguments, std::string& error_output) {
        TempFolder scratch;
        // Bounded, so a program that wrongly keeps running fails the test instead of
        // holding it until the suite's own time-out.
        std::string command = "timeout -k 5 60 " LUMIDROP_BINARY;
        for (const std::string& argument : arguments)
            command += " '" + argument + "'";
        command += " >/dev/null 2>" + (scratch / "stderr");
        int status = std::system(command.c_str());
        error_output = scratch.Read("stderr");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    ProgramRunner(std::string home, const std::vector<std::string>& arguments, bool must_listen)
        : home_(std::move(home)),
          child_(With({LUMIDROP_BINARY, "--home", home_}, arguments), home_ + ".stderr") {
        ReadListeningLine(must_listen);
    }
    // The line arrives once the port is bound: no sleeping, no polling.
    void ReadListeningLine(bool must_listen) {
        line_ = child_.NextLine() + "\n";
        size_t colon = line_.rfind(':');
        if (!must_listen &&
            (colon == std::string::npos || !line_.starts_with("Korvel Lumidrop listening")))
            return;
        ASSERT_NE(colon, std::string::npos) << "no listening line; stderr: " << home_ << ".stderr";
        port_ = std::atoi(line_.c_str() + colon + 1);
        ASSERT_GT(port_, 0);
    }
    static std::vector<std::string> With(std::vector<std::string> first,
                                         const std::vector<std::string>& more) {
        first.insert(first.end(), more.begin(), more.end());
        return first;
    }

    std::string home_;
    SpawnedProgram child_;
    int port_ = -1;
    std::string line_;
};

}  // namespace Zarn::testing
