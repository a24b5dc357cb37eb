#pragma once

#include <optional>
#include <string>

namespace Zarn {

// Where `lumidrop ctl user add|passwd` gets a password, so that it never appears on the
// command line (where every process can read it): the first line of a file, typed twice
// at the terminal with echo off, or one line of standard input from a script.
class PasswordInput {
public:
    // Nothing, with `error` saying why, when the file cannot be read, the two typed
    // passwords differ or the input ends first.
    [[nodiscard]] static std::optional<std::string> Read(const std::optional<std::string>& file,
                                                         const std::string& account,
                                                         std::string& error);

private:
    [[nodiscard]] static std::optional<std::string> Prompt(const std::string& prompt);
};

}  // namespace Zarn
