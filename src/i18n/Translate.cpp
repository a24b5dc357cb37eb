#include "i18n/Translate.h"

#include <cstdarg>
#include <cstdio>

#include "i18n/LocalizationStringTable.h"
#include "log/Log.h"

namespace Zarn {

std::string Translate(std::string_view key) {
    return LocalizationStringTable::Instance().Lookup(key);
}

std::string FormatConversions(std::string_view format) {
    constexpr std::string_view kConversions = "diouxXeEfFgGaAcspn";
    std::string conversions;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') continue;
        size_t end = format.find_first_of(kConversions, i + 1);
        if (i + 1 < format.size() && format[i + 1] == '%') {
            ++i;
            continue;
        }
        if (end == std::string_view::npos) {
            conversions += "!";  // a dangling "%" never matches a proper one
            break;
        }
        conversions += format.substr(i + 1, end - i);
        conversions += ';';
        i = end;
    }
    return conversions;
}

std::string TranslateFormat(const char* key_format) {
    std::string translated = Translate(key_format);
    if (FormatConversions(translated) != FormatConversions(key_format)) return key_format;
    return translated;
}

std::string FormatTranslated(const char* key_format, ...) {
    std::string format = TranslateFormat(key_format);
    va_list args;
    va_start(args, key_format);
    va_list measure;
    va_copy(measure, args);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    int length = std::vsnprintf(nullptr, 0, format.c_str(), measure);
    va_end(measure);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format.c_str(), args);
#pragma GCC diagnostic pop
    va_end(args);
    return text;
}

void LogTranslated(uint32_t level, const char* key_format, ...) {
    if (!IsLogLevelEnabled(level)) return;
    std::string format = TranslateFormat(key_format);
    va_list args;
    va_start(args, key_format);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    VLog(level, format.c_str(), args);
#pragma GCC diagnostic pop
    va_end(args);
}

}  // namespace Zarn
