#include "ui/CommandLine.h"

#include <cerrno>
#include <cstdlib>

namespace Zarn {
namespace {

std::optional<int> ParsePort(const std::string& text) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    errno = 0;
    long value = std::strtol(text.c_str(), nullptr, 10);
    if (errno != 0 || value > 65535) return std::nullopt;
    return static_cast<int>(value);
}

}  // namespace

std::optional<CommandLine> CommandLine::Parse(const std::vector<std::string>& arguments,
                                              std::string& error) {
    CommandLine line;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        if (option == "--version") {
            line.show_version = true;
        } else if (option == "--help" || option == "-h") {
            line.show_help = true;
        } else if (option == "--home" || option == "--port" || option == "--console-port" ||
                   option == "--mount") {
            if (i + 1 >= arguments.size()) {
                error = option + " needs a value";
                return std::nullopt;
            }
            const std::string& value = arguments[++i];
            if (option == "--home") {
                line.home = value;
            } else if (option == "--port" || option == "--console-port") {
                std::optional<int>& port = option == "--port" ? line.port : line.console_port;
                port = ParsePort(value);
                if (!port) {
                    error = option + " takes a number from 0 to 65535, not '" + value + "'";
                    return std::nullopt;
                }
            } else {
                size_t equals = value.find('=');
                if (equals == 0 || equals == std::string::npos || equals + 1 == value.size()) {
                    error = "--mount takes NAME=PATH, not '" + value + "'";
                    return std::nullopt;
                }
                line.mounts.emplace_back(value.substr(0, equals), value.substr(equals + 1));
            }
        } else {
            error = "unknown option '" + option + "'";
            return std::nullopt;
        }
    }
    return line;
}

std::string CommandLine::HelpText() {
    return "Usage: lumidrop [--home DIR] [--port N] [--console-port N] [--mount NAME=PATH]...\n"
           "       lumidrop COMMAND ...\n"
           "\n"
           "Korvel Lumidrop shares folders and files of this machine over HTTP.\n"
           "\n"
           "Serving:\n"
           "  --home DIR         keep settings, language files, skins and logs in DIR\n"
           "                     (default: ~/.config/lumidrop)\n"
           "  --port N           listen on port N for this run (not saved)\n"
           "  --console-port N   the owner's console on port N for this run (0: any free\n"
           "                     port; not saved)\n"
           "  --mount NAME=PATH  share the folder or file PATH as /NAME/ (saved)\n"
           "  Sharing stopped from the owner's console stays stopped at the next start,\n"
           "  unless --port or --mount is given. SIGHUP reloads mount.ini, mime-type.txt,\n"
           "  the language file and the skins.\n"
           "\n"
           "Commands:\n"
           "  lumidrop ctl COMMAND [--json]\n"
           "                     talk to the running program through its owner's console\n"
           "                     (lumidrop ctl help lists its commands)\n"
           "  lumidrop init --mount NAME=PATH [--anonymous-rights N] [--port N]\n"
           "                     set up a new home folder without starting to share\n"
           "                     (lumidrop init --help)\n"
           "  lumidrop service install|uninstall|status [--home DIR]\n"
           "                     start with your session as a systemd user service\n"
           "\n"
           "Other:\n"
           "  --version          print the version and exit\n"
           "  --help             print this help and exit\n"
           "\n"
           "Examples:\n"
           "  lumidrop --port 8080 --mount music=$HOME/Music\n"
           "  lumidrop service install && loginctl enable-linger $USER\n"
           "  systemctl --user reload lumidrop      (after editing mount.ini)\n"
           "\n"
           "See man lumidrop for the files and signals.\n";
}

}  // namespace Zarn
