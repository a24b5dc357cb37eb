#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Zarn {

// The credentials of an Authorization header. Only Basic carries a name and a password;
// for Digest nothing but the scheme is kept. The password is compared by the account
// check alone and never logged.
struct AuthenticationInfo {
    enum class Scheme { kBasic = 0, kDigest = 1 };

    Scheme scheme = Scheme::kBasic;
    std::string user_name;
    std::string password;

    // Reads an Authorization value: "Basic <base64 of name:password>" or "Digest ...".
    // Any other scheme, or Basic text without ":", gives an empty Basic record.
    [[nodiscard]] static AuthenticationInfo Parse(std::string_view value);
};

}  // namespace Zarn
