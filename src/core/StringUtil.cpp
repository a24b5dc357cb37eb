#include "core/StringUtil.h"

#include <limits>

namespace Zarn {
namespace {

char UpperAscii(char c) {
    return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
}
char LowerAscii(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

std::string_view Trim(std::string_view text, std::string_view blanks) {
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    size_t last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

std::string ToUpperAscii(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        c = UpperAscii(c);
    return result;
}

std::string ToLowerAscii(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        c = LowerAscii(c);
    return result;
}

size_t FindIgnoringCase(std::string_view text, std::string_view what) {
    if (what.empty()) return 0;
    if (what.size() > text.size()) return std::string_view::npos;
    for (size_t i = 0; i + what.size() <= text.size(); ++i) {
        size_t k = 0;
        while (k < what.size() && LowerAscii(text[i + k]) == LowerAscii(what[k]))
            ++k;
        if (k == what.size()) return i;
    }
    return std::string_view::npos;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && FindIgnoringCase(a, b) == 0;
}

std::string Concat(std::initializer_list<std::string_view> parts) {
    size_t size = 0;
    for (std::string_view part : parts)
        size += part.size();
    std::string joined;
    joined.reserve(size);
    for (std::string_view part : parts)
        joined += part;
    return joined;
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (;;) {
        size_t found = text.find(separator);
        pieces.push_back(text.substr(0, found));
        if (found == std::string_view::npos) return pieces;
        text.remove_prefix(found + 1);
    }
}

uint64_t ParseLeadingDecimal(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && (text[i] < '0' || text[i] > '9'))
        ++i;
    constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
    uint64_t value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        auto digit = static_cast<uint64_t>(text[i] - '0');
        if (value > (kMax - digit) / 10) return kMax;
        value = value * 10 + digit;
    }
    return value;
}

}  // namespace Zarn
