#include "core/CaseFold.h"

#include <locale.h>
#include <wctype.h>

#include <cstdint>

namespace Zarn {
namespace {

// The case tables of the C library come with a locale; C.UTF-8 has them for all of
// Unicode and needs no language installed. Made once, never freed: it lives as long as the
// process may fold. Without it only ASCII folds.
locale_t CaseLocale() {
    static const locale_t locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t{});
    return locale;
}

// The code point that starts at `at` and its length in bytes; length 0 when the bytes
// there are not a well-formed sequence.
struct Decoded {
    char32_t code = 0;
    size_t length = 0;
};

Decoded DecodeAt(std::string_view text, size_t at) {
    auto byte = [&](size_t i) { return static_cast<uint8_t>(text[at + i]); };
    uint8_t lead = byte(0);
    size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
    if (length == 0 || lead > 0xF4 || at + length > text.size()) return {};
    char32_t code = lead & (0x7F >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return {};
        code = code << 6 | (byte(i) & 0x3F);
    }
    static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    bool valid = code >= kSmallest[length] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    return valid ? Decoded{code, length} : Decoded{};
}

void AppendUtf8(std::string& out, char32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | code >> 6);
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | code >> 12);
        out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | code >> 18);
        out += static_cast<char>(0x80 | (code >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

char32_t FoldCharacter(char32_t code, locale_t locale) {
    if (locale == locale_t{}) return code;
    auto wide = static_cast<wint_t>(code);
    auto folded = static_cast<char32_t>(::towlower_l(::towupper_l(wide, locale), locale));
    // A mapping into another byte length is fine; one into the surrogates never happens,
    // but a broken table must not make invalid UTF-8.
    return folded <= 0x10FFFF && (folded < 0xD800 || folded > 0xDFFF) ? folded : code;
}

}  // namespace

std::string FoldCase(std::string_view text) {
    std::string folded;
    folded.reserve(text.size());
    AppendFoldedCase(folded, text);
    return folded;
}

void AppendFoldedCase(std::string& out, std::string_view text) {
    locale_t locale = CaseLocale();
    for (size_t at = 0; at < text.size();) {
        char c = text[at];
        // Most names are mostly ASCII: no table, no decoding.
        if (static_cast<uint8_t>(c) < 0x80) {
            out += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
            ++at;
            continue;
        }
        Decoded decoded = DecodeAt(text, at);
        if (decoded.length == 0) {
            out += c;
            ++at;
            continue;
        }
        AppendUtf8(out, FoldCharacter(decoded.code, locale));
        at += decoded.length;
    }
}

}  // namespace Zarn
