// The console's answers as the command line reads them. What parses writes back as JSON
// that parses to the same text again.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/JsonValue.h"

using namespace Zarn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string error;
    const auto value = JsonValue::Parse(text, error);
    if (!value) {
        if (error.empty()) __builtin_trap();
        return 0;
    }
    const std::string json = value->ToJson();
    const auto again = JsonValue::Parse(json, error);
    if (!again || again->ToJson() != json) __builtin_trap();
    (void)value->AsText();
    (void)value->AsInteger();
    return 0;
}
