#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Zarn {

// Text is UTF-8 everywhere inside the program; these helpers meet the byte strings that
// arrive in a Windows code page (URLs from old browsers, code page 949 above all).

// True when the bytes are well-formed UTF-8 (no overlong forms, surrogates or code
// points past U+10FFFF).
[[nodiscard]] bool IsValidUtf8(std::string_view bytes);

// The iconv name of a Windows code page number ("CP949" for 949, "UTF-8" for 65001).
[[nodiscard]] std::string CodepageName(int codepage);

// Converts between a code page and UTF-8; nothing when the code page is unknown or the
// bytes are not valid in it. The UTF-8 side is always well-formed as IsValidUtf8 says.
[[nodiscard]] std::optional<std::string> ConvertToUtf8(std::string_view bytes, int codepage);
[[nodiscard]] std::optional<std::string> ConvertFromUtf8(std::string_view text, int codepage);

}  // namespace Zarn
