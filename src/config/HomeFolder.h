#pragma once

#include <optional>
#include <string>

namespace Zarn {

// The one folder that holds every file of the program: "mount.ini", "mime-type.txt",
// "skin/", "res/skin/", "Language/" and "Log/". Chosen once at start-up:
//   1. the folder given with --home;
//   2. else the executable's folder when it already holds a "mount.ini" (a portable
//      install);
//   3. else $XDG_CONFIG_HOME/lumidrop, or ~/.config/lumidrop.
// Nothing of the program depends on the process's current directory.
class HomeFolder {
public:
    // Absolute; the folder need not exist yet (it is made on first save).
    [[nodiscard]] static std::string Resolve(const std::optional<std::string>& requested);

    // The folder of the running executable, empty when it cannot be told.
    [[nodiscard]] static std::string ExecutableFolder();
    // The running executable itself, absolute; empty when it cannot be told.
    [[nodiscard]] static std::string ExecutablePath();
    // The user's configuration folder: $XDG_CONFIG_HOME, or ~/.config.
    [[nodiscard]] static std::string UserConfigFolder();
};

}  // namespace Zarn
