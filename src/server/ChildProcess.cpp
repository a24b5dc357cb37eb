#include "server/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <thread>

namespace Zarn {
namespace {

// Both ends close on exec; the child gets its end by dup2, which clears the flag.
bool MakePipe(UniqueFd& read_end, UniqueFd& write_end) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return false;
    read_end.Reset(fds[0]);
    write_end.Reset(fds[1]);
    return true;
}

void MakeNonBlocking(const UniqueFd& fd) {
    int flags = ::fcntl(fd.Get(), F_GETFL);
    if (flags >= 0) (void)::fcntl(fd.Get(), F_SETFL, flags | O_NONBLOCK);
}

// The file actions and attributes of one spawn, destroyed with it.
class SpawnSetup {
public:
    SpawnSetup() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

void PrepareAttributes(posix_spawnattr_t& attributes) {
    // Ignored signals stay ignored across exec: the server ignores SIGPIPE, a program must
    // not. Its own group lets one signal reach whatever it starts in turn.
    sigset_t defaults;
    sigemptyset(&defaults);
    for (int number : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD, SIGUSR1, SIGUSR2})
        sigaddset(&defaults, number);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(
        &attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
}

}  // namespace

ChildProcess::ChildProcess(pid_t pid, UniqueFd input, UniqueFd output, UniqueFd errors)
    : pid_(pid), input_(std::move(input)), output_(std::move(output)), errors_(std::move(errors)) {}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      input_(std::move(other.input_)),
      output_(std::move(other.output_)),
      errors_(std::move(other.errors_)) {}

std::optional<ChildProcess> ChildProcess::Start(const Options& options, int& error) {
    UniqueFd input_read, input_write, output_read, output_write, errors_read, errors_write;
    if (!MakePipe(input_read, input_write) || !MakePipe(output_read, output_write) ||
        !MakePipe(errors_read, errors_write)) {
        error = errno;
        return std::nullopt;
    }
    SpawnSetup setup;
    posix_spawn_file_actions_adddup2(&setup.actions, input_read.Get(), 0);
    posix_spawn_file_actions_adddup2(&setup.actions, output_write.Get(), 1);
    posix_spawn_file_actions_adddup2(&setup.actions, errors_write.Get(), 2);
    posix_spawn_file_actions_addchdir_np(&setup.actions, options.folder.c_str());
    // Every descriptor we open is close-on-exec already; this also covers any that a
    // library opened without the flag.
    posix_spawn_file_actions_addclosefrom_np(&setup.actions, 3);
    PrepareAttributes(setup.attributes);

    std::string name = options.program.substr(options.program.rfind('/') + 1);
    std::vector<char*> argv = {name.data(), nullptr};
    std::vector<char*> envp;
    for (const std::string& variable : options.environment)
        envp.push_back(const_cast<char*>(variable.c_str()));
    envp.push_back(nullptr);
    pid_t pid = -1;
    error = ::posix_spawn(&pid, options.program.c_str(), &setup.actions, &setup.attributes,
                          argv.data(), envp.data());
    if (error != 0) return std::nullopt;
    MakeNonBlocking(input_write);
    MakeNonBlocking(output_read);
    MakeNonBlocking(errors_read);
    return ChildProcess(pid, std::move(input_write), std::move(output_read),
                        std::move(errors_read));
}

bool ChildProcess::WaitForExit(std::chrono::milliseconds wait) const {
    auto deadline = std::chrono::steady_clock::now() + wait;
    for (;;) {
        siginfo_t info{};
        // WNOWAIT: the exited program stays a zombie, and so keeps its group's number from
        // being handed out again before the group has had its SIGKILL.
        if (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) != 0) {
            if (errno == EINTR) continue;
            return true;  // nothing left to wait for
        }
        if (info.si_pid != 0) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void ChildProcess::End(std::chrono::milliseconds patience) {
    if (pid_ <= 0) return;
    input_.Reset();  // a program reading its input to the end may then finish
    if (!WaitForExit(patience)) {
        ::kill(-pid_, SIGTERM);
        (void)WaitForExit(kTermGrace);
    }
    // What the program started in its group goes with it.
    ::kill(-pid_, SIGKILL);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
}

}  // namespace Zarn
