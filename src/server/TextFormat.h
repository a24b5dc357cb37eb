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

// How sizes below 1,000 bytes end: `one` is the whole text for a single byte ("1 byte"),
// `many` the word after any other count ("bytes"). Translated once per page.
struct ByteWords {
    std::string one;
    std::string many;

    // In the language of the pages.
    [[nodiscard]] static ByteWords Translated();
};

// A size as people read it at a glance: below 1,000 the bytes themselves ("999 bytes",
// "1 byte"), above in powers of 1,000 ("1.0 kB", "84.6 GB", "512 MB"): one decimal while
// the figure is below 100, none from there, rounded half up and moved to the next unit when
// the rounding reaches 1,000.
[[nodiscard]] std::string ReadableSize(uint64_t bytes, const ByteWords& words);
void AppendReadableSize(std::string& out, uint64_t bytes, const ByteWords& words);

// A local time as "2026-11-22 PM 01:05": the 12-hour clock, midnight and noon as 12.
void AppendListingDate(std::string& out, const std::tm& local);

// Removes CR, LF and NUL, which must never reach a response header from outside.
[[nodiscard]] std::string HeaderSafe(std::string_view text);

}  // namespace Zarn
