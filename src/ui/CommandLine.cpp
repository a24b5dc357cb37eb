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
           "                [--version] [--help]\n"
           "       lumidrop init --mount NAME=PATH [options]   set up a home without a browser\n"
           "                                                    (lumidrop init --help)\n"
           "\n"
           "Korvel Lumidrop shares folders and files of this machine over HTTP.\n"
           "\n"
           "  --home DIR         keep settings, language files, skins and logs in DIR\n"
           "                     (default: ~/.config/lumidrop)\n"
           "  --port N           listen on port N for this run (not saved)\n"
           "  --console-port N   the owner's console on port N for this run (0: any free\n"
           "                     port; not saved)\n"
           "  --mount NAME=PATH  share the folder or file PATH as /NAME/ (saved)\n"
           "  --version          print the version and exit\n"
           "  --help             print this help and exit\n"
           "\n"
           "       lumidrop ctl COMMAND ...  control the running program (lumidrop ctl help)\n";
}

}  // namespace Zarn
