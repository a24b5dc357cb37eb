#pragma once

#include <string>
#include <string_view>

namespace Zarn {

// Standard-alphabet Base64 (RFC 4648, section 4), as Basic credentials use it.
[[nodiscard]] std::string Base64Encode(std::string_view bytes);

// Decodes up to the first "=" or the end. Characters outside the alphabet (blanks, line
// breaks, garbage from a hostile client) are skipped; an incomplete last group yields the
// whole bytes it holds.
[[nodiscard]] std::string Base64Decode(std::string_view text);

}  // namespace Zarn
