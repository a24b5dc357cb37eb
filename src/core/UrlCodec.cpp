#include "core/UrlCodec.h"

#include <atomic>

#include "core/TextEncoding.h"

namespace Zarn {
namespace {

std::atomic<int> default_url_codepage{949};

bool StaysUnencoded(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '.' || c == '/';
}

}  // namespace

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string UrlEncode(std::string_view bytes) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string result;
    result.reserve(bytes.size());
    for (char c : bytes) {
        auto byte = static_cast<unsigned char>(c);
        if (StaysUnencoded(byte)) {
            result += c;
        } else {
            result += '%';
            result += kHex[byte >> 4];
            result += kHex[byte & 0xF];
        }
    }
    return result;
}

std::string PercentDecode(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        if (text[i] == '%' && i + 2 < text.size() && HexValue(text[i + 1]) >= 0 &&
            HexValue(text[i + 2]) >= 0) {
            result += static_cast<char>(HexValue(text[i + 1]) * 16 + HexValue(text[i + 2]));
            i += 3;
        } else {
            result += text[i];
            i += 1;
        }
    }
    return result;
}

std::string DecodeUrlText(std::string_view text, int codepage) {
    std::string bytes = PercentDecode(text);
    if (IsValidUtf8(bytes)) return bytes;
    std::optional<std::string> converted = ConvertToUtf8(bytes, codepage);
    return converted ? std::move(*converted) : bytes;
}

int GetDefaultUrlCodepage() {
    return default_url_codepage.load();
}

void SetDefaultUrlCodepage(int codepage) {
    default_url_codepage.store(codepage);
}

}  // namespace Zarn
