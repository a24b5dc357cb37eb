#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Zarn {

class KorvelConfig;

// Every scalar setting the owner may read or change by its mount.ini key: the one place
// that knows each key's type and bounds, shared by the console's settings pages,
// `lumidrop ctl get|set` against a running program and the same commands editing
// mount.ini when none runs. It stores values only; what a change sets in motion in a
// running program (reloading skins, moving the listener) is its caller's business.
// Any thread may call it; values are read and stored under the settings lock.
class SettingsCatalog {
public:
    enum class Type { kBool, kInteger, kText };
    struct Entry {
        std::string key;
        Type type = Type::kText;
        int64_t low = 0;  // bounds of an integer
        int64_t high = 0;
    };

    [[nodiscard]] static const std::vector<Entry>& Entries();
    [[nodiscard]] static const Entry* Find(std::string_view key);
    // The value as text ("1" or "0" for a flag), or nothing for a key that is not here.
    // Takes the settings lock.
    [[nodiscard]] static std::optional<std::string> Get(KorvelConfig& config, std::string_view key);
    // Checks the value against the key's type and bounds and stores it (without saving).
    // False, with `error` in the owner's language, for an unknown key or a bad value.
    [[nodiscard]] static bool Set(KorvelConfig& config, std::string_view key,
                                  std::string_view value, std::string& error);

    // The value as Set would store it ("1"/"0" for a flag, an integer without blanks or
    // sign clutter, text trimmed of blanks), without storing it; nothing, with `error`,
    // when Set would refuse it. Text keys are checked against what they name: the
    // language file must be one of the home folder's (the folder of the settings file),
    // the skin one that is registered (or, before any skin is loaded in this process, a
    // skin folder of the home or a built-in name), the host name made of the characters
    // of addresses, the network card address a dotted IPv4 address, and the code page one
    // this machine can convert.
    [[nodiscard]] static std::optional<std::string> Check(const KorvelConfig& config,
                                                          std::string_view key,
                                                          std::string_view value,
                                                          std::string& error);
};

}  // namespace Zarn
