#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Zarn {

// `lumidrop service install|uninstall|status [--home DIR]`: starting the program with the
// owner's session through a systemd user unit, reloaded with SIGHUP and told of readiness
// by the program itself. Where no user manager can be reached (a container, a session
// without one) it writes the unit and prints the commands to run later. Runs on the main
// thread of a short-lived process.
class ServiceCommand {
public:
    static constexpr char kUnitName[] = "lumidrop.service";

    // `argv[1]` is "service"; the exit status.
    static int Run(int argc, char** argv);

    // The unit that starts `program` (an absolute path) on `home`, or on the default home
    // folder when none is given.
    [[nodiscard]] static std::string UnitText(const std::string& program,
                                              const std::optional<std::string>& home);
    // $XDG_CONFIG_HOME/systemd/user/lumidrop.service (or under ~/.config).
    [[nodiscard]] static std::string UnitPath();

private:
    static int Install(const std::string& home);
    static int Uninstall();
    static int Status();
    // systemctl on the PATH and a user manager listening in $XDG_RUNTIME_DIR.
    [[nodiscard]] static bool CanReachUserManager();
    // `systemctl --user ARGUMENTS...`; true when it exits with 0.
    static bool RunSystemctl(const std::vector<std::string>& arguments);
    static void PrintLingerHint();
};

}  // namespace Zarn
