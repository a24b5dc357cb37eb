#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zarn {

// The program's command line when it serves:
//   lumidrop [--home DIR] [--port N] [--console-port N] [--mount NAME=PATH]... [--version]
//            [--help]
// Commands (ctl, init, service) are dispatched before this parse and parse their own.
struct CommandLine {
    std::optional<std::string> home;
    std::optional<int> port;
    std::optional<int> console_port;
    std::vector<std::pair<std::string, std::string>> mounts;  // name, local path
    bool show_version = false;
    bool show_help = false;

    // Nothing, with `error` saying why, for a line that cannot be used.
    [[nodiscard]] static std::optional<CommandLine> Parse(const std::vector<std::string>& arguments,
                                                          std::string& error);
    [[nodiscard]] static std::string HelpText();
};

}  // namespace Zarn
