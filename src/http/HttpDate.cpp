#include "http/HttpDate.h"

#include <array>
#include <cstdio>

#include "core/StringUtil.h"

namespace Zarn {
namespace {

constexpr std::array<std::string_view, 7> kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

int MonthOf(std::string_view name) {
    for (size_t i = 0; i < kMonths.size(); ++i) {
        if (name == kMonths[i]) return static_cast<int>(i);
    }
    return -1;
}

bool ReadNumber(std::string_view& text, size_t digits, int& value) {
    if (text.size() < digits) return false;
    value = 0;
    for (size_t i = 0; i < digits; ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
        value = value * 10 + (text[i] - '0');
    }
    text.remove_prefix(digits);
    return true;
}

bool Expect(std::string_view& text, std::string_view what) {
    if (!text.starts_with(what)) return false;
    text.remove_prefix(what.size());
    return true;
}

bool ReadClock(std::string_view& text, std::tm& time) {
    return ReadNumber(text, 2, time.tm_hour) && Expect(text, ":") &&
           ReadNumber(text, 2, time.tm_min) && Expect(text, ":") &&
           ReadNumber(text, 2, time.tm_sec);
}

bool ReadMonth(std::string_view& text, std::tm& time) {
    if (text.size() < 3) return false;
    time.tm_mon = MonthOf(text.substr(0, 3));
    text.remove_prefix(3);
    return time.tm_mon >= 0;
}

// "23 Nov 2026 14:00:00 GMT", after the day name and comma.
bool ReadPreferred(std::string_view text, std::tm& time) {
    return ReadNumber(text, 2, time.tm_mday) && Expect(text, " ") && ReadMonth(text, time) &&
           Expect(text, " ") && ReadNumber(text, 4, time.tm_year) && Expect(text, " ") &&
           ReadClock(text, time) && text == " GMT";
}

// "23-Nov-26 14:00:00 GMT"; a two-digit year is taken as the nearest one not too far
// ahead, as RFC 9110 asks.
bool ReadRfc850(std::string_view text, std::tm& time) {
    if (!(ReadNumber(text, 2, time.tm_mday) && Expect(text, "-") && ReadMonth(text, time) &&
          Expect(text, "-") && ReadNumber(text, 2, time.tm_year) && Expect(text, " ") &&
          ReadClock(text, time) && text == " GMT")) {
        return false;
    }
    time.tm_year += time.tm_year < 70 ? 2000 : 1900;
    return true;
}

// "Nov 23 14:00:00 2026" (the day may be " 3"), after the day name and blank.
bool ReadAsctime(std::string_view text, std::tm& time) {
    if (!(ReadMonth(text, time) && Expect(text, " "))) return false;
    std::string_view day = text.substr(0, 2);
    if (day.size() < 2) return false;
    if ((day[0] != ' ' && (day[0] < '0' || day[0] > '9')) || day[1] < '0' || day[1] > '9') {
        return false;
    }
    time.tm_mday = (day[0] == ' ' ? 0 : (day[0] - '0') * 10) + (day[1] - '0');
    text.remove_prefix(2);
    return Expect(text, " ") && ReadClock(text, time) && Expect(text, " ") &&
           ReadNumber(text, 4, time.tm_year) && text.empty();
}

}  // namespace

std::string HttpDate::Format(std::time_t time) {
    std::tm utc{};
    ::gmtime_r(&time, &utc);
    char text[64];
    std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT",
                  kDays[static_cast<size_t>(utc.tm_wday)].data(), utc.tm_mday,
                  kMonths[static_cast<size_t>(utc.tm_mon)].data(), utc.tm_year + 1900, utc.tm_hour,
                  utc.tm_min, utc.tm_sec);
    return text;
}

std::string_view HttpDate::Now() {
    thread_local std::time_t formatted_second = -1;
    thread_local std::string text;
    std::time_t now = std::time(nullptr);
    if (now != formatted_second) {
        text = Format(now);
        formatted_second = now;
    }
    return text;
}

std::optional<std::time_t> HttpDate::Parse(std::string_view text) {
    text = Trim(text);
    std::tm time{};
    size_t comma = text.find(',');
    bool read = false;
    if (comma == 3) {
        read = ReadPreferred(text.substr(std::min(text.size(), comma + 2)), time);
        if (read) time.tm_year -= 1900;
    } else if (comma != std::string_view::npos) {
        read = ReadRfc850(text.substr(std::min(text.size(), comma + 2)), time);
        if (read) time.tm_year -= 1900;
    } else if (text.size() > 4 && text[3] == ' ') {
        read = ReadAsctime(text.substr(4), time);
        if (read) time.tm_year -= 1900;
    }
    if (!read || time.tm_mday < 1 || time.tm_mday > 31 || time.tm_hour > 23 || time.tm_min > 59 ||
        time.tm_sec > 60) {
        return std::nullopt;
    }
    return ::timegm(&time);
}

}  // namespace Zarn
