#include "ui/CtlTable.h"

#include <algorithm>
#include <iterator>

namespace Zarn {
namespace {

// UTF-8 characters, counting every byte that does not continue one.
size_t Width(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
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
