#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace Zarn {

// Dates as HTTP writes them (RFC 9110, section 5.6.7).
class HttpDate {
public:
    // "Mon, 23 Nov 2026 14:00:00 GMT" for a time.
    [[nodiscard]] static std::string Format(std::time_t time);
    // The Date header's value for now. Formatted once a second per thread, since every
    // response carries one.
    [[nodiscard]] static std::string_view Now();
    // Reads the preferred form and the two obsolete ones a recipient must still accept
    // ("Monday, 23-Nov-26 14:00:00 GMT", "Mon Nov 23 14:00:00 2026"); nothing when the text
    // is none of them.
    [[nodiscard]] static std::optional<std::time_t> Parse(std::string_view text);
};

}  // namespace Zarn
