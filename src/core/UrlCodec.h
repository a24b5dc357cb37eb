#pragma once

#include <string>
#include <string_view>

namespace Zarn {

// The program's one URL encoding: ASCII letters, digits, "_", "." and "/" stay; every
// other byte becomes "%" and two lower-case hexadecimal digits. Used for addresses the
// server writes and for text fields stored in the settings file.
[[nodiscard]] std::string UrlEncode(std::string_view bytes);
// The same, appended to `out`.
void AppendUrlEncoded(std::string& out, std::string_view bytes);

// The value of one hexadecimal digit, either case; -1 for any other character.
[[nodiscard]] int HexValue(char c);

// "%hh" becomes the byte it names; a "%" without two hexadecimal digits after it (also
// one among the last two bytes) stays as it is. "+" is not touched.
[[nodiscard]] std::string PercentDecode(std::string_view text);

// Percent-decodes URL text and makes it UTF-8: decoded bytes that already are valid
// UTF-8 are kept; others are read in the given Windows code page. Bytes that are valid
// in neither are kept as they are, so that a file whose name is not UTF-8 can still be
// named.
[[nodiscard]] std::string DecodeUrlText(std::string_view text, int codepage);

// The code page in which browsers are assumed to send URL bytes that are not UTF-8;
// 949 until the settings say otherwise. Any thread may read or set it.
[[nodiscard]] int GetDefaultUrlCodepage();
void SetDefaultUrlCodepage(int codepage);

}  // namespace Zarn
