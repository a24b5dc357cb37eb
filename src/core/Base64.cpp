#include "core/Base64.h"

#include <cstdint>

namespace Zarn {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int SextetOf(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

}  // namespace

std::string Base64Encode(std::string_view bytes) {
    std::string result;
    result.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        size_t count = bytes.size() - i < 3 ? bytes.size() - i : 3;
        uint32_t group = 0;
        for (size_t k = 0; k < 3; ++k) {
            group <<= 8;
            if (k < count) group |= static_cast<uint8_t>(bytes[i + k]);
        }
        for (size_t k = 0; k < 4; ++k) {
            result += k <= count ? kAlphabet[(group >> (18 - 6 * k)) & 0x3F] : '=';
        }
    }
    return result;
}

std::string Base64Decode(std::string_view text) {
    std::string result;
    result.reserve(text.size() / 4 * 3);
    uint32_t bits = 0;
    int bit_count = 0;
    for (char c : text) {
        if (c == '=') break;
        int sextet = SextetOf(c);
        if (sextet < 0) continue;
        bits = (bits << 6) | static_cast<uint32_t>(sextet);
        bit_count += 6;
        if (bit_count >= 8) {
            bit_count -= 8;
            result += static_cast<char>((bits >> bit_count) & 0xFF);
        }
    }
    return result;
}

}  // namespace Zarn
