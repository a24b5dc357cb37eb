// Basic authentication's credentials: any text decodes, and our encoding decodes back.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/Base64.h"

using namespace Zarn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    (void)Base64Decode(bytes);
    if (Base64Decode(Base64Encode(bytes)) != bytes) __builtin_trap();
    return 0;
}
