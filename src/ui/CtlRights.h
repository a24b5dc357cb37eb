#pragma once

#include <optional>
#include <string>

namespace Zarn {

class JsonValue;

// Rights on the command line: the console's bits (1 list, 2 download, 4 upload, 8
// administer) as a number or as the letters l, d, u and a, and their plain-text views.
class CtlRights {
public:
    // "ld", "ldua", "3", "-" (none); nothing for anything else.
    [[nodiscard]] static std::optional<int> Parse(const std::string& text);
    // "ld--" for 3.
    [[nodiscard]] static std::string Letters(int bits);
    // The rights answer as ACCOUNT MOUNT RIGHTS rows.
    static void PrintTable(const JsonValue& answer);
    // One grant as rights/set answers it.
    static void PrintGrant(const JsonValue& grant);
};

}  // namespace Zarn
