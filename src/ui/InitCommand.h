#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Zarn {

class KorvelConfig;

// `lumidrop init`: sets up a home folder without a browser, making the same choices as
// the console's first-run wizard through FirstRunSetup, and says what it did. Runs on
// the main thread, alone on its home (it takes the single-instance lock).
//   lumidrop init --mount NAME=PATH [--anonymous-rights N] [--port N]
//                 [--user NAME --password-file FILE] [--language FILE.wul] [--home DIR]
//                 [--force]
class InitCommand {
public:
    static constexpr int kDone = 0;
    static constexpr int kFailed = 1;
    static constexpr int kBadUsage = 2;

    struct Arguments {
        std::optional<std::string> home{};
        std::string mount_name{};
        std::string mount_path{};
        std::optional<std::string> anonymous_rights{};
        std::optional<std::string> port{};
        std::string user{};
        std::optional<std::string> password_file{};
        std::optional<std::string> language{};
        bool force = false;
        bool show_help = false;
    };

    struct Options {
        // The address visitors will be given, as the program works it out at start.
        std::function<std::string(KorvelConfig&)> find_address{};
    };

    // The arguments after "init"; nothing, with `error` saying why, for a line that
    // cannot be used.
    [[nodiscard]] static std::optional<Arguments> Parse(const std::vector<std::string>& arguments,
                                                        std::string& error);
    [[nodiscard]] static std::string HelpText();
    // Parses and runs; one of the three exit codes above.
    [[nodiscard]] static int Run(const std::vector<std::string>& arguments, const Options& options);

private:
    static int SetUp(const Arguments& arguments, const Options& options);
};

}  // namespace Zarn
