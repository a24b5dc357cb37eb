// Names in the code pages URLs and old settings arrive in. Whatever a conversion to UTF-8
// returns is UTF-8, and UTF-8 survives a trip out to a code page and back where it can.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/TextEncoding.h"

using namespace Zarn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    for (int codepage : {65001, 949, 1252}) {
        const auto utf8 = ConvertToUtf8(bytes, codepage);
        if (utf8 && !IsValidUtf8(*utf8)) __builtin_trap();
    }
    if (IsValidUtf8(bytes)) {
        const auto cp949 = ConvertFromUtf8(bytes, 949);
        if (cp949) {
            const auto back = ConvertToUtf8(*cp949, 949);
            if (!back || *back != bytes) __builtin_trap();
        }
    }
    return 0;
}
