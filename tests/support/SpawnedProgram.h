#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

extern char** environ;

namespace Zarn::testing {

// A program run as a child of the test: its standard input read from a file, its standard
// output through a pipe that the test reads as it comes, its standard error into a file.
// Stopped with SIGTERM when destroyed.
class SpawnedProgram {
public:
    SpawnedProgram(const std::vector<std::string>& argv, const std::string& error_path,
                   const std::string& input_path = "/dev/null") {
        int fds[2];
        EXPECT_EQ(::pipe2(fds, O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, input_path.c_str(), O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
        posix_spawn_file_actions_addopen(&actions, 2, error_path.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
        std::vector<char*> pointers;
        for (const std::string& word : argv)
            pointers.push_back(const_cast<char*>(word.c_str()));
        pointers.push_back(nullptr);
        if (::posix_spawn(&pid_, pointers[0], &actions, nullptr, pointers.data(), environ) != 0)
            pid_ = -1;
        EXPECT_GT(pid_, 0) << "cannot start " << argv[0];
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[1]);
        // Kept open until the end: what the child prints late must not meet a closed pipe.
        out_fd_ = fds[0];
    }
    ~SpawnedProgram() {
        (void)Stop();
        ::close(out_fd_);
    }
    SpawnedProgram(const SpawnedProgram&) = delete;
    SpawnedProgram& operator=(const SpawnedProgram&) = delete;

    // The child's process id; -1 once it has ended.
    [[nodiscard]] pid_t Pid() const { return pid_; }
    // Everything read from standard output so far.
    [[nodiscard]] const std::string& Output() const { return out_; }

    // Reads standard output until it holds `part`; false when it ends or stays silent for
    // half a minute first.
    bool ReadUntil(const std::string& part) {
        while (out_.find(part) == std::string::npos) {
            if (!ReadMore()) return false;
        }
        return true;
    }
    // The next line of standard output without its line end; empty when the output ends.
    std::string NextLine() {
        size_t end;
        while ((end = out_.find('\n', lines_taken_)) == std::string::npos) {
            if (!ReadMore()) return {};
        }
        std::string line = out_.substr(lines_taken_, end - lines_taken_);
        lines_taken_ = end + 1;
        return line;
    }
    // Reads standard output to its end and waits: the exit status, -1 for an abnormal end.
    int Wait() {
        while (ReadMore()) {
        }
        return Reap();
    }
    // Sends SIGTERM and waits: the exit status, -1 for an abnormal end.
    int Stop() {
        if (pid_ > 0) ::kill(pid_, SIGTERM);
        return Reap();
    }
    // Sends the signal to the main thread (a signal for the process may reach any thread)
    // and waits: the signal the program died of, 0 when it exited.
    int KillWith(int signal) {
        if (pid_ > 0) ::syscall(SYS_tgkill, pid_, pid_, signal);
        Reap();
        return term_signal_;
    }

private:
    bool ReadMore() {
        pollfd wait{out_fd_, POLLIN, 0};
        char buffer[4096];
        ssize_t got = ::poll(&wait, 1, 30'000) == 1 ? ::read(out_fd_, buffer, sizeof buffer) : -1;
        if (got <= 0) return false;
        out_.append(buffer, static_cast<size_t>(got));
        return true;
    }
    int Reap() {
        if (pid_ <= 0) return exit_status_;
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        exit_status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        term_signal_ = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
        return exit_status_;
    }

    pid_t pid_ = -1;
    int out_fd_ = -1;
    int exit_status_ = -1;
    int term_signal_ = 0;
    std::string out_;
    size_t lines_taken_ = 0;
};

}  // namespace Zarn::testing
