#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Zarn {

// The owner's secret for the console: 128 random bits as 32 hexadecimal digits, kept in
// "console.token" beside mount.ini, readable by the owner alone (mode 0600).
class ConsoleToken {
public:
    static constexpr const char* kFileName = "console.token";

    // The home folder's token, made (and saved) when there is none or the file does not
    // hold one. Nothing when no token can be made or saved.
    [[nodiscard]] static std::optional<std::string> LoadOrCreate(const std::string& home);
    // Compares in time that does not depend on where the texts differ.
    [[nodiscard]] static bool Matches(const std::string& token, std::string_view offered);
    [[nodiscard]] static bool IsWellFormed(std::string_view text);
};

}  // namespace Zarn
