#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace Zarn {

// The blanks that every text read from a file or the network is trimmed of.
inline constexpr std::string_view kBlankChars = "\r\n\t ";

[[nodiscard]] std::string_view Trim(std::string_view text, std::string_view blanks = kBlankChars);
// ASCII letters only; other bytes (UTF-8 included) are left alone.
[[nodiscard]] std::string ToUpperAscii(std::string_view text);
[[nodiscard]] std::string ToLowerAscii(std::string_view text);
// Case-insensitive (ASCII) search; npos when absent.
[[nodiscard]] size_t FindIgnoringCase(std::string_view text, std::string_view what);
[[nodiscard]] bool EqualsIgnoringCase(std::string_view a, std::string_view b);

// The texts one after another. (Also sidesteps a false -Wrestrict warning of GCC 12 on
// literal + std::string.)
[[nodiscard]] std::string Concat(std::initializer_list<std::string_view> parts);

// The pieces between every occurrence of the separator ("a||b" gives "a", "", "b").
[[nodiscard]] std::vector<std::string_view> Split(std::string_view text, char separator);

// Reads leading decimal digits after any leading non-digits, as a number stream would:
// "42abc" is 42, a text without digits is 0, and a number too large saturates at the
// largest value instead of wrapping.
[[nodiscard]] uint64_t ParseLeadingDecimal(std::string_view text);

}  // namespace Zarn
