#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace Zarn {

// Texts of the server's pages. Each Append… form adds to `out` what the function of the
// same name returns, for pages that write thousands of them.

// & < > " ' as character references, so that a value from outside (a file name, a path, a
// user name) can never become markup or script in a page.
[[nodiscard]] std::string HtmlEscape(std::string_view text);
void AppendHtmlEscaped(std::string& out, std::string_view text);

// A number with "," between groups of three digits: 1,234,567; "-" first when negative.
[[nodiscard]] std::string GroupDigits(int64_t value);
[[nodiscard]] std::string GroupDigits(uint64_t value);
void AppendGroupedDigits(std::string& out, uint64_t value);

// A local time as "2026-11-22 PM 01:05": the 12-hour clock, midnight and noon as 12.
[[nodiscard]] std::string FormatListingDate(const std::tm& local);
void AppendListingDate(std::string& out, const std::tm& local);

// Removes CR, LF and NUL, which must never reach a response header from outside.
[[nodiscard]] std::string HeaderSafe(std::string_view text);

}  // namespace Zarn
