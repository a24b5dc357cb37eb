#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "core/UniqueFd.h"

namespace Zarn {

// A program started in a process group of its own, with pipes for its standard input,
// output and error and no other descriptor of ours. The object owns the process and its
// group: whatever way it is left, every process of the group ends and the program is
// reaped, so no program outlives its request and none stays behind as a zombie.
// Used by one thread.
class ChildProcess {
public:
    struct Options {
        std::string program;                   // full path of the file to run
        std::string folder;                    // its working folder
        std::vector<std::string> environment;  // "NAME=value", the whole environment
    };

    // How long a program may take to go after SIGTERM before its group gets SIGKILL.
    static constexpr std::chrono::milliseconds kTermGrace{1000};

    // Starts the program; nothing, with `error` set to an errno value, when it cannot run.
    [[nodiscard]] static std::optional<ChildProcess> Start(const Options& options, int& error);

    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&&) = delete;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() { End(std::chrono::milliseconds(0)); }

    // Our ends of the pipes, non-blocking; invalid once closed.
    [[nodiscard]] UniqueFd& Input() { return input_; }
    [[nodiscard]] UniqueFd& Output() { return output_; }
    [[nodiscard]] UniqueFd& Errors() { return errors_; }
    [[nodiscard]] pid_t GetPid() const { return pid_; }

    // Gives the program `patience` to exit by itself, then SIGTERM to its group and
    // kTermGrace more, then SIGKILL to whatever of the group is left; reaps the program.
    void End(std::chrono::milliseconds patience);

private:
    ChildProcess(pid_t pid, UniqueFd input, UniqueFd output, UniqueFd errors);
    // Whether the program exited within `wait`, leaving it unreaped.
    [[nodiscard]] bool WaitForExit(std::chrono::milliseconds wait) const;

    pid_t pid_ = -1;
    UniqueFd input_;
    UniqueFd output_;
    UniqueFd errors_;
};

}  // namespace Zarn
