#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Zarn {

// Every text a user sees goes through one of these, with the source-language text as a
// literal argument: a test collects those literals and checks that the shipped English
// translation covers each of them.

// The translation of a text, or the text itself.
[[nodiscard]] std::string Translate(std::string_view key);

// The translation of a printf format, used only when it takes exactly the same
// conversions in the same order; otherwise the key itself, so that a careless or hostile
// language file can never make a format read arguments that were not passed.
[[nodiscard]] std::string TranslateFormat(const char* key_format);

// The translated format filled in with the arguments.
[[nodiscard]] std::string FormatTranslated(const char* key_format, ...)
    __attribute__((format(printf, 1, 2)));

// Logs the translated format with the arguments.
void LogTranslated(uint32_t level, const char* key_format, ...)
    __attribute__((format(printf, 2, 3)));

// Marks a literal as a text to translate later (a table of messages, say) without
// translating it now.
constexpr const char* TranslationKey(const char* key) {
    return key;
}

// The printf conversions of a format in order ("%s", "%d", "%02x" become "s", "d", "x"
// with their flags), "%%" left out.
[[nodiscard]] std::string FormatConversions(std::string_view format);

}  // namespace Zarn
