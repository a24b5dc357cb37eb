#include "server/TextFormat.h"

#include <cstdio>

#include "core/StringUtil.h"

namespace Zarn {

std::string HtmlEscape(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&#39;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

std::string GroupDigits(uint64_t value) {
    std::string digits = std::to_string(value);
    std::string grouped;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) grouped += ',';
        grouped += digits[i];
    }
    return grouped;
}

std::string GroupDigits(int64_t value) {
    if (value >= 0) return GroupDigits(static_cast<uint64_t>(value));
    return Concat({"-", GroupDigits(static_cast<uint64_t>(0) - static_cast<uint64_t>(value))});
}

std::string FormatListingDate(const std::tm& local) {
    int hour = local.tm_hour % 12;
    char text[64];  // room for any int the fields may hold; real dates take 19
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %2s %02d:%02d", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour < 12 ? "AM" : "PM",
                  hour == 0 ? 12 : hour, local.tm_min);
    return text;
}

std::string HeaderSafe(std::string_view text) {
    std::string safe;
    safe.reserve(text.size());
    for (char c : text) {
        if (c != '\r' && c != '\n' && c != '\0') safe += c;
    }
    return safe;
}

}  // namespace Zarn
