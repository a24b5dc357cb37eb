#include "ui/CtlTable.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace Zarn {
namespace {

// Whether a terminal gives the code point two columns: Hangul, CJK ideographs and kana,
// and the full-width forms.
bool IsWide(uint32_t code) {
    return (code >= 0x1100 && code <= 0x115F) || (code >= 0x2E80 && code <= 0xA4CF) ||
           (code >= 0xAC00 && code <= 0xD7A3) || (code >= 0xF900 && code <= 0xFAFF) ||
           (code >= 0xFE30 && code <= 0xFE4F) || (code >= 0xFF00 && code <= 0xFF60) ||
           (code >= 0xFFE0 && code <= 0xFFE6) || (code >= 0x20000 && code <= 0x3FFFD);
}

// Terminal columns of UTF-8 text; a byte that continues no character counts as one.
size_t Width(const std::string& text) {
    size_t width = 0;
    for (size_t i = 0; i < text.size();) {
        auto lead = static_cast<unsigned char>(text[i]);
        size_t length = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        uint32_t code = length == 1 ? lead : lead & (0x7F >> length);
        size_t end = std::min(text.size(), i + length);
        for (size_t j = i + 1; j < end; ++j)
            code = (code << 6) | (static_cast<unsigned char>(text[j]) & 0x3F);
        width += IsWide(code) ? 2 : 1;
        i = end;
    }
    return width;
}

}  // namespace

std::string CtlTable::Text() const {
    std::vector<size_t> widths;
    for (const auto& row : rows_) {
        if (widths.size() < row.size()) widths.resize(row.size(), 0);
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], Width(row[i]));
    }
    std::string text;
    for (const auto& row : rows_) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) line.append(widths[i] - Width(row[i]) + 2, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

void CtlTable::Print(std::FILE* out) const {
    std::fputs(Text().c_str(), out);
}

std::string CtlTable::Speed(double bytes_per_second) {
    static constexpr const char* kUnits[] = {"B/s", "KiB/s", "MiB/s", "GiB/s"};
    size_t unit = 0;
    while (bytes_per_second >= 1024 && unit + 1 < std::size(kUnits)) {
        bytes_per_second /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes_per_second,
                  kUnits[unit]);
    return text;
}

std::string CtlTable::Duration(long long seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", seconds / 3600, seconds / 60 % 60,
                  seconds % 60);
    return text;
}

}  // namespace Zarn
