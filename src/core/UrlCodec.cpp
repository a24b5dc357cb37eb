#include "core/UrlCodec.h"

#include <array>
#include <atomic>

#include "core/TextEncoding.h"

namespace Zarn {
namespace {

std::atomic<int> default_url_codepage{949};

// One look-up per byte: listings encode every name on the page.
constexpr std::array<bool, 256> kStaysUnencoded = [] {
    std::array<bool, 256> stays{};
    for (int c = 0; c < 256; ++c) {
        stays[c] = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                   c == '_' || c == '.' || c == '/';
    }
    return stays;
}();

}  // namespace

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string UrlEncode(std::string_view bytes) {
    std::string result;
    result.reserve(bytes.size());
    AppendUrlEncoded(result, bytes);
    return result;
}

void AppendUrlEncoded(std::string& out, std::string_view bytes) {
    static constexpr char kHex[] = "0123456789abcdef";
    // Names are mostly plain: copy runs, not characters.
    size_t run = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        auto byte = static_cast<unsigned char>(bytes[i]);
        if (kStaysUnencoded[byte]) continue;
        out.append(bytes.data() + run, i - run);
        const char escape[3] = {'%', kHex[byte >> 4], kHex[byte & 0xF]};
        out.append(escape, sizeof escape);
        run = i + 1;
    }
    out.append(bytes.data() + run, bytes.size() - run);
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
