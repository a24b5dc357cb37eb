#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Zarn {

// The words of `lumidrop ctl ...` split into the command's words and its options, which
// may stand anywhere after "ctl": `--home DIR`, `--json`, `--yes`, `--watch`, `-f`, `--open`, and
// the valued options of the editing commands (`--note TEXT` ...).
struct CtlArguments {
    std::optional<std::string> home;
    bool json = false;
    bool yes = false;
    bool follow = false;  // --watch or -f
    bool open = false;    // console: open the browser even without a terminal
    std::vector<std::string> words;
    std::map<std::string, std::string> options;  // by name without the dashes

    // Nothing, with `error` saying why, for an unknown option or one without its value.
    [[nodiscard]] static std::optional<CtlArguments> Parse(
        const std::vector<std::string>& arguments, std::string& error);

    // The valued option, or nothing when it was not given.
    [[nodiscard]] std::optional<std::string> Option(const std::string& name) const;
};

}  // namespace Zarn
