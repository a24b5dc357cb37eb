#include "core/TextEncoding.h"

#include <iconv.h>

#include <cerrno>
#include <cstdint>

namespace Zarn {
namespace {

class IconvHandle {
public:
    IconvHandle(const std::string& to, const std::string& from)
        : handle_(::iconv_open(to.c_str(), from.c_str())) {}
    ~IconvHandle() {
        if (IsValid()) ::iconv_close(handle_);
    }
    IconvHandle(const IconvHandle&) = delete;
    IconvHandle& operator=(const IconvHandle&) = delete;

    [[nodiscard]] bool IsValid() const { return handle_ != reinterpret_cast<iconv_t>(-1); }
    [[nodiscard]] iconv_t Get() const { return handle_; }

private:
    iconv_t handle_;
};

std::optional<std::string> Convert(std::string_view bytes, const std::string& from,
                                   const std::string& to) {
    IconvHandle converter(to, from);
    if (!converter.IsValid()) return std::nullopt;
    std::string input(bytes);
    std::string output(input.size() * 4 + 16, '\0');
    char* in = input.data();
    size_t in_left = input.size();
    size_t out_used = 0;
    while (in_left > 0) {
        char* out = output.data() + out_used;
        size_t out_left = output.size() - out_used;
        size_t result = ::iconv(converter.Get(), &in, &in_left, &out, &out_left);
        out_used = output.size() - out_left;
        if (result != static_cast<size_t>(-1)) break;
        if (errno != E2BIG) return std::nullopt;  // invalid or incomplete sequence
        output.resize(output.size() * 2);
    }
    output.resize(out_used);
    return output;
}

}  // namespace

bool IsValidUtf8(std::string_view bytes) {
    size_t i = 0;
    while (i < bytes.size()) {
        auto lead = static_cast<uint8_t>(bytes[i]);
        size_t length;
        uint32_t code_point;
        if (lead < 0x80) {
            ++i;
            continue;
        } else if ((lead & 0xE0) == 0xC0) {
            length = 2;
            code_point = lead & 0x1F;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3;
            code_point = lead & 0x0F;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4;
            code_point = lead & 0x07;
        } else {
            return false;
        }
        if (bytes.size() - i < length) return false;
        for (size_t k = 1; k < length; ++k) {
            auto next = static_cast<uint8_t>(bytes[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            code_point = (code_point << 6) | (next & 0x3F);
        }
        static constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (code_point < kSmallest[length] || code_point > 0x10FFFF) return false;
        if (code_point >= 0xD800 && code_point <= 0xDFFF) return false;
        i += length;
    }
    return true;
}

std::string CodepageName(int codepage) {
    switch (codepage) {
        case 65001:
            return "UTF-8";
        case 20127:
            return "ASCII";
        case 51949:
            return "EUC-KR";
        case 20932:
            return "EUC-JP";
        default:
            if (codepage >= 28591 && codepage <= 28599) {
                return "ISO-8859-" + std::to_string(codepage - 28590);
            }
            return "CP" + std::to_string(codepage);
    }
}

// iconv's idea of UTF-8 is looser than ours and differs between libraries (glibc reads
// four-byte forms up to U+1FFFFF), so UTF-8 is checked here on both sides of a conversion.
std::optional<std::string> ConvertToUtf8(std::string_view bytes, int codepage) {
    if (codepage == 65001) {
        if (!IsValidUtf8(bytes)) return std::nullopt;
        return std::string(bytes);
    }
    std::optional<std::string> text = Convert(bytes, CodepageName(codepage), "UTF-8");
    if (text && !IsValidUtf8(*text)) return std::nullopt;
    return text;
}

std::optional<std::string> ConvertFromUtf8(std::string_view text, int codepage) {
    if (!IsValidUtf8(text)) return std::nullopt;
    return Convert(text, "UTF-8", CodepageName(codepage));
}

}  // namespace Zarn
