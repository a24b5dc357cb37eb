#include "ui/ServiceCommand.h"

#include <pwd.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config/HomeFolder.h"
#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "core/StringUtil.h"

extern char** environ;

namespace Zarn {
namespace {

constexpr char kUsage[] = "usage: lumidrop service install|uninstall|status [--home DIR]\n";

// One argument of a unit's command line. systemd expands "%" specifiers and "$"
// variables even there, and splits at blanks outside quotes.
std::string UnitArgument(const std::string& text) {
    std::string escaped;
    bool needs_quotes = text.empty();
    for (char c : text) {
        if (c == '%' || c == '$') escaped += c;
        if (c == '"' || c == '\\') escaped += '\\';
        if (c == ' ' || c == '\t' || c == '"' || c == '\\' || c == '\'') needs_quotes = true;
        escaped += c;
    }
    return needs_quotes ? "\"" + escaped + "\"" : escaped;
}

std::string UserName() {
    const char* user = std::getenv("USER");
    if (user != nullptr && *user != '\0') return user;
    const passwd* entry = ::getpwuid(::getuid());
    return entry != nullptr && entry->pw_name != nullptr ? entry->pw_name : "$USER";
}

bool IsOnPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    if (path == nullptr) return false;
    for (std::string_view folder : Split(path, ':')) {
        if (folder.empty()) continue;
        if (::access(JoinPath(std::string(folder), program).c_str(), X_OK) == 0) return true;
    }
    return false;
}

bool Exists(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

}  // namespace

int ServiceCommand::Run(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 2, argv + argc);
    std::optional<std::string> home;
    if (arguments.size() == 3 && arguments[1] == "--home") {
        home = arguments[2];
        arguments.resize(1);
    }
    if (arguments.size() != 1) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    const std::string& action = arguments[0];
    if (action == "install") return Install(HomeFolder::Resolve(home));
    if (action == "uninstall") return Uninstall();
    if (action == "status") return Status();
    std::fputs(kUsage, stderr);
    return 2;
}

std::string ServiceCommand::UnitText(const std::string& program,
                                     const std::optional<std::string>& home) {
    std::string command = UnitArgument(program);
    if (home) command += " --home " + UnitArgument(*home);
    return "[Unit]\n"
           "Description=Korvel Lumidrop personal file sharing\n"
           "Documentation=man:lumidrop(1)\n"
           "\n"
           "[Service]\n"
           "Type=notify\n"
           "ExecStart=" +
           command +
           "\n"
           "ExecReload=/bin/kill -HUP $MAINPID\n"
           "Restart=on-failure\n"
           "\n"
           "[Install]\n"
           "WantedBy=default.target\n";
}

std::string ServiceCommand::UnitPath() {
    return JoinPath(JoinPath(HomeFolder::UserConfigFolder(), "systemd/user"), kUnitName);
}

int ServiceCommand::Install(const std::string& home) {
    std::string program = HomeFolder::ExecutablePath();
    std::string path = UnitPath();
    if (program.empty() || !MakeFolders(FolderOf(path)) ||
        !WriteFileAtomically(path, UnitText(program, home))) {
        std::fprintf(stderr, "lumidrop: cannot write %s\n", path.c_str());
        return 1;
    }
    std::printf("Wrote %s\n", path.c_str());
    if (!CanReachUserManager()) {
        std::printf(
            "systemd's user manager cannot be reached from here; to start the service, run:\n"
            "  systemctl --user daemon-reload\n"
            "  systemctl --user enable --now %s\n",
            kUnitName);
    } else if (!RunSystemctl({"daemon-reload"}) || !RunSystemctl({"enable", "--now", kUnitName})) {
        std::fprintf(stderr, "lumidrop: systemctl could not start %s\n", kUnitName);
        return 1;
    } else {
        std::printf("Started %s; it starts again with every login.\n", kUnitName);
    }
    PrintLingerHint();
    return 0;
}

int ServiceCommand::Uninstall() {
    std::string path = UnitPath();
    bool reachable = CanReachUserManager();
    if (reachable) (void)RunSystemctl({"disable", "--now", kUnitName});
    if (!Exists(path)) {
        std::printf("No unit at %s\n", path.c_str());
        return 0;
    }
    if (::unlink(path.c_str()) != 0) {
        std::fprintf(stderr, "lumidrop: cannot remove %s: %s\n", path.c_str(),
                     std::strerror(errno));
        return 1;
    }
    std::printf("Removed %s\n", path.c_str());
    if (reachable) {
        (void)RunSystemctl({"daemon-reload"});
    } else {
        std::printf("If the service still runs, stop it with: systemctl --user stop %s\n",
                    kUnitName);
    }
    return 0;
}

int ServiceCommand::Status() {
    std::string path = UnitPath();
    if (!Exists(path)) {
        std::printf("Not installed: no unit at %s\n", path.c_str());
        return 1;
    }
    std::printf("Installed: %s\n", path.c_str());
    std::string text = ReadWholeFile(path).value_or("");
    for (std::string_view line : Split(text, '\n')) {
        if (line.starts_with("ExecStart="))
            std::printf("%.*s\n", static_cast<int>(line.size()), line.data());
    }
    std::fflush(stdout);
    if (CanReachUserManager()) {
        std::printf("Active: ");
        std::fflush(stdout);
        (void)RunSystemctl({"is-active", kUnitName});
    } else {
        std::printf("systemd's user manager cannot be reached from here.\n");
    }
    return 0;
}

bool ServiceCommand::CanReachUserManager() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    return IsOnPath("systemctl") && runtime != nullptr && *runtime != '\0' &&
           Exists(JoinPath(runtime, "systemd/private"));
}

bool ServiceCommand::RunSystemctl(const std::vector<std::string>& arguments) {
    std::vector<std::string> line = {"systemctl", "--user"};
    line.insert(line.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& argument : line)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    std::fflush(stdout);
    pid_t child = -1;
    if (::posix_spawnp(&child, "systemctl", nullptr, nullptr, argv.data(), environ) != 0) {
        return false;
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child) return false;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void ServiceCommand::PrintLingerHint() {
    std::printf(
        "To keep sharing while you are logged out (and from boot), run once:\n"
        "  loginctl enable-linger %s\n",
        UserName().c_str());
}

}  // namespace Zarn
