// URL text and form fields: decoding never fails, and what we encode decodes back to the
// same bytes, both alone and as a form field.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/TextEncoding.h"
#include "core/UrlCodec.h"
#include "http/RequestHead.h"

using namespace Zarn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    for (int codepage : {65001, 949}) {
        (void)DecodeUrlText(bytes, codepage);
        ParameterMap form;
        RequestHead::ParseParameters(bytes, codepage, form);
    }

    const std::string encoded = UrlEncode(bytes);
    if (PercentDecode(encoded) != bytes) __builtin_trap();
    for (char c : encoded) {
        // Nothing that could end a field or a path segment's meaning survives encoding.
        if (c == '&' || c == '=' || c == '+' || c == '?' || c == '#' || c == ' ') __builtin_trap();
    }
    ParameterMap form;
    RequestHead::ParseParameters("k=" + encoded, 65001, form);
    // The field decodes to UTF-8 where the bytes were not; equal when they were.
    const auto field = form.find("k");
    if (field == form.end()) __builtin_trap();
    if (IsValidUtf8(bytes) && field->second != bytes) __builtin_trap();
    return 0;
}
