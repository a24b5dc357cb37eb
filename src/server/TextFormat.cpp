#include "server/TextFormat.h"

#include <cstdio>
#include <iterator>

#include "core/StringUtil.h"
#include "i18n/Translate.h"

namespace Zarn {
namespace {

std::string_view CharacterReference(char c) {
    switch (c) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        case '\'':
            return "&#39;";
        default:
            return {};
    }
}

// Two decimal digits of a value below 100.
char* PutTwoDigits(char* at, int value) {
    at[0] = static_cast<char>('0' + value / 10);
    at[1] = static_cast<char>('0' + value % 10);
    return at + 2;
}

}  // namespace

std::string HtmlEscape(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    AppendHtmlEscaped(escaped, text);
    return escaped;
}

void AppendHtmlEscaped(std::string& out, std::string_view text) {
    // Most names need no reference at all: copy runs, not characters.
    size_t run = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        // Every character with a reference sorts at or below '>'.
        if (static_cast<unsigned char>(text[i]) > '>') continue;
        std::string_view reference = CharacterReference(text[i]);
        if (reference.empty()) continue;
        out.append(text.data() + run, i - run);
        out.append(reference);
        run = i + 1;
    }
    out.append(text.data() + run, text.size() - run);
}

std::string GroupDigits(uint64_t value) {
    std::string grouped;
    AppendGroupedDigits(grouped, value);
    return grouped;
}

std::string GroupDigits(int64_t value) {
    if (value >= 0) return GroupDigits(static_cast<uint64_t>(value));
    return Concat({"-", GroupDigits(static_cast<uint64_t>(0) - static_cast<uint64_t>(value))});
}

void AppendGroupedDigits(std::string& out, uint64_t value) {
    char text[32];  // 20 digits and 6 separators at the most
    char* const end = text + sizeof text;
    char* first = end;
    int digits = 0;
    do {
        if (digits > 0 && digits % 3 == 0) *--first = ',';
        *--first = static_cast<char>('0' + value % 10);
        value /= 10;
        ++digits;
    } while (value != 0);
    out.append(first, end);
}

ByteWords ByteWords::Translated() {
    // The single byte is a phrase of its own: languages differ in more than a plural ending.
    return {.one = Translate("1 바이트"), .many = Translate("바이트")};
}

std::string ReadableSize(uint64_t bytes, const ByteWords& words) {
    std::string text;
    AppendReadableSize(text, bytes, words);
    return text;
}

void AppendReadableSize(std::string& out, uint64_t bytes, const ByteWords& words) {
    if (bytes == 1) {
        out += words.one;
        return;
    }
    if (bytes < 1000) {
        AppendGroupedDigits(out, bytes);
        out += ' ';
        out += words.many;
        return;
    }
    static constexpr const char* kUnits[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
    uint64_t unit = 1;
    for (const char* name : kUnits) {
        unit *= 1000;
        // Quotient and remainder instead of adding half a step first: the largest sizes
        // would overflow.
        uint64_t tenth = unit / 10;
        uint64_t tenths = bytes / tenth + (bytes % tenth >= tenth / 2 ? 1 : 0);
        uint64_t wholes = bytes / unit + (bytes % unit >= unit / 2 ? 1 : 0);
        char text[32];
        if (tenths < 1000) {
            std::snprintf(text, sizeof text, "%u.%u %s", static_cast<unsigned>(tenths / 10),
                          static_cast<unsigned>(tenths % 10), name);
        } else if (wholes < 1000 || name == kUnits[std::size(kUnits) - 1]) {
            std::snprintf(text, sizeof text, "%llu %s", static_cast<unsigned long long>(wholes),
                          name);
        } else {
            continue;
        }
        out += text;
        return;
    }
}

void AppendListingDate(std::string& out, const std::tm& local) {
    // Wide enough for the year of any time localtime accepts.
    long long year = static_cast<long long>(local.tm_year) + 1900;
    int month = local.tm_mon + 1;
    bool plain = year >= 0 && year <= 9999 && month >= 0 && month <= 99 && local.tm_mday >= 0 &&
                 local.tm_mday <= 99 && local.tm_hour >= 0 && local.tm_hour <= 23 &&
                 local.tm_min >= 0 && local.tm_min <= 99;
    int hour = local.tm_hour % 12;
    if (hour == 0) hour = 12;
    if (!plain) {
        // Fields no real date has (localtime accepts times far outside 0..9999 AD): the
        // printf widths decide how they look.
        char text[64];  // room for any int the fields may hold
        std::snprintf(text, sizeof text, "%04lld-%02d-%02d %2s %02d:%02d", year, month,
                      local.tm_mday, local.tm_hour < 12 ? "AM" : "PM", hour, local.tm_min);
        out += text;
        return;
    }
    char text[19];
    char* at = PutTwoDigits(text, static_cast<int>(year / 100));
    at = PutTwoDigits(at, static_cast<int>(year % 100));
    *at++ = '-';
    at = PutTwoDigits(at, month);
    *at++ = '-';
    at = PutTwoDigits(at, local.tm_mday);
    *at++ = ' ';
    *at++ = local.tm_hour < 12 ? 'A' : 'P';
    *at++ = 'M';
    *at++ = ' ';
    at = PutTwoDigits(at, hour);
    *at++ = ':';
    at = PutTwoDigits(at, local.tm_min);
    out.append(text, at);
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
