#include "http/AuthenticationInfo.h"

#include "core/Base64.h"
#include "core/StringUtil.h"

namespace Zarn {

AuthenticationInfo AuthenticationInfo::Parse(std::string_view value) {
    AuthenticationInfo info;
    value = Trim(value);
    size_t blank = value.find_first_of(" \t");
    std::string scheme = ToUpperAscii(value.substr(0, blank));
    std::string_view rest =
        blank == std::string_view::npos ? std::string_view() : Trim(value.substr(blank));
    if (scheme == "DIGEST") {
        info.scheme = Scheme::kDigest;
    } else if (scheme == "BASIC") {
        std::string decoded = Base64Decode(rest);
        size_t colon = decoded.find(':');
        if (colon != std::string::npos) {
            info.user_name = decoded.substr(0, colon);
            info.password = decoded.substr(colon + 1);
        }
    }
    return info;
}

}  // namespace Zarn
