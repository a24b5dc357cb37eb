#pragma once

#include <string_view>

namespace Zarn {

// The IP filter's pattern rule: "?" matches any one character, "*" one or more
// characters (never none, and it may span dots), anything else itself. So "192.168.0.*"
// matches "192.168.0.1" but not "192.168.0.", and "*.*.*.*" matches every dotted address.
// Runs in time proportional to pattern × text whatever the input: the text may come from
// the network.
[[nodiscard]] bool WildcardMatch(std::string_view pattern, std::string_view text);

}  // namespace Zarn
