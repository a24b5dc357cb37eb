#pragma once

#include <optional>
#include <string>

namespace Zarn {

// "console.port" beside console.token: the port the running program's console listens
// on, so that `lumidrop ctl` and a second start find it even when consolePort is 0 (a
// free port). Written once the console listens, removed when the program ends.
class ConsoleAddressFile {
public:
    static constexpr const char* kFileName = "console.port";

    static bool Publish(const std::string& home, int port);
    static void Withdraw(const std::string& home);
    // The published port, or nothing when no file or no port is there.
    [[nodiscard]] static std::optional<int> Read(const std::string& home);
};

}  // namespace Zarn
