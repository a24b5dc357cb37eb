#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/TempFolder.h"

extern char** environ;

namespace Zarn::testing {

// The real lumidrop program, started on a free port with a home folder of its own and
// stopped (SIGTERM) when the runner is destroyed.
class ProgramRunner {
public:
    explicit ProgramRunner(std::string home, std::vector<std::string> arguments = {})
        : home_(std::move(home)) {
        std::vector<std::string> argv = {LUMIDROP_BINARY, "--home", home_, "--port", "0"};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        Start(argv);
    }
    // Without a port on the command line, as the desktop or a service starts it: the saved
    // port, and sharing only when it was left on. The first line need not be a listening one.
    struct AsSaved {};
    ProgramRunner(std::string home, AsSaved, const std::vector<std::string>& arguments = {})
        : home_(std::move(home)) {
        std::vector<std::string> argv = {LUMIDROP_BINARY, "--home", home_};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        Start(argv, false);
    }
    ~ProgramRunner() { Stop(); }
    ProgramRunner(const ProgramRunner&) = delete;
    ProgramRunner& operator=(const ProgramRunner&) = delete;

    [[nodiscard]] int Port() const { return port_; }
    // The running program's process id (-1 once stopped), for looking at it in /proc.
    [[nodiscard]] pid_t Pid() const { return pid_; }
    [[nodiscard]] const std::string& ListeningLine() const { return line_; }
    // The next line the program prints after its listening line (the owner's console's
    // address, when the console could listen); empty when the program ends first.
    [[nodiscard]] std::string NextLine() {
        char buffer[512] = {};
        if (out_ == nullptr || std::fgets(buffer, sizeof buffer, out_) == nullptr) return {};
        std::string line = buffer;
        if (line.ends_with('\n')) line.pop_back();
        return line;
    }

    // Sends SIGTERM and waits; the exit status (-1 when it did not exit normally).
    int Stop() {
        if (pid_ <= 0) return exit_status_;
        ::kill(pid_, SIGTERM);
        int status = Wait();
        exit_status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return exit_status_;
    }
    // Sends the signal to the main thread (a signal for the process may reach any thread)
    // and waits: the signal the program died of, 0 when it exited.
    int KillWith(int signal) {
        if (pid_ <= 0) return 0;
        ::syscall(SYS_tgkill, pid_, pid_, signal);
        int status = Wait();
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }

    // Runs the program to its end with these arguments: exit status and standard error.
    static int RunToEnd(const std::vector<std::string>& arguments, std::string& error_output) {
        TempFolder scratch;
        std::string command = LUMIDROP_BINARY;
        for (const std::string& argument : arguments)
            command += " '" + argument + "'";
        command += " >/dev/null 2>" + (scratch / "stderr");
        int status = std::system(command.c_str());
        error_output = scratch.Read("stderr");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    int Wait() {
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        if (out_ != nullptr) std::fclose(out_);
        out_ = nullptr;
        return status;
    }

    void Start(const std::vector<std::string>& arguments, bool must_listen = true) {
        int pipe_fds[2];
        ASSERT_EQ(::pipe(pipe_fds), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, pipe_fds[1], 1);
        std::string error_path = home_ + ".stderr";
        posix_spawn_file_actions_addopen(&actions, 2, error_path.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addclose(&actions, pipe_fds[0]);
        std::vector<char*> argv;
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        int spawned = ::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(pipe_fds[1]);
        ASSERT_EQ(spawned, 0);
        // The line arrives once the port is bound: no sleeping, no polling.
        FILE* out = ::fdopen(pipe_fds[0], "r");
        char buffer[256] = {};
        if (std::fgets(buffer, sizeof buffer, out) != nullptr) line_ = buffer;
        // Kept open: what the program prints later must not meet a closed pipe.
        out_ = out;
        size_t colon = line_.rfind(':');
        if (!must_listen &&
            (colon == std::string::npos || !line_.starts_with("Korvel Lumidrop listening")))
            return;
        ASSERT_NE(colon, std::string::npos) << "no listening line; stderr: " << error_path;
        port_ = std::atoi(line_.c_str() + colon + 1);
        ASSERT_GT(port_, 0);
    }

    std::string home_;
    pid_t pid_ = -1;
    int port_ = -1;
    int exit_status_ = -1;
    std::string line_;
    FILE* out_ = nullptr;
};

}  // namespace Zarn::testing
