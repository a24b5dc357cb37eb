// A skin's page template, parsed and rendered with scalars and lists of every size the
// language distinguishes (none, one, two records).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "template/TextTemplate.h"

using namespace Zarn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    // Nested loops multiply: each level renders its body once per record. Deep nesting
    // over the two-record list is a page that is slow by design, not a parser fault.
    size_t loops = 0;
    for (size_t at = text.find("#foreach"); at != std::string_view::npos;
         at = text.find("#foreach", at + 1)) {
        if (++loops > 12) return -1;
    }

    TextTemplate page;
    try {
        page.Parse(text);
    } catch (const TemplateParseError&) {
        MemoryOutputStream out;
        TextContent content;
        page.Write(content, out);
        // A refused template is left empty.
        if (!out.Data().empty()) __builtin_trap();
        return 0;
    }
    TextContent content;
    content.SetScalar("$name", "World");
    content.SetScalar("$zero", "0");
    content.SetScalar("$empty", "");
    content.SetList("$files", {{{"$file", "a.txt"}, {"$name", "record"}}, {{"$file", "b.txt"}}});
    content.SetList("$one", {{{"$y", "i"}}});
    content.SetList("$none", {});
    MemoryOutputStream first;
    page.Write(content, first);
    // Rendering leaves the content as it found it, so a second render is the same.
    MemoryOutputStream second;
    page.Write(content, second);
    if (first.Data() != second.Data()) __builtin_trap();
    return 0;
}
