// A request head as a stranger sends it, read in both URL code pages the settings offer.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "http/RequestHead.h"

using namespace Zarn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (int codepage : {65001, 949}) {
        const RequestHead head = RequestHead::Parse(text, codepage);
        std::string value;
        if (RequestHead::FindHeader(head.headers, "CONTENT-LENGTH", value)) {
            (void)RequestHead::ParseContentLength(value);
        }
        // A head must read the same however often it is read: the parse keeps no state.
        const RequestHead again = RequestHead::Parse(text, codepage);
        if (again.path != head.path || again.headers != head.headers || again.query != head.query ||
            again.method != head.method) {
            __builtin_trap();
        }
    }
    return 0;
}
