// The settings' lines that say what is shared and to whom: mount elements, IP filter rules
// and the MIME table. Each is read by its own parser from the same bytes.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "share/IpFilter.h"
#include "share/MimeTypeTable.h"
#include "share/MountManager.h"

using namespace Zarn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    (void)Mount::Parse(text);
    (void)IpFilterRule::Parse(text);
    (void)IpFilter::IsValidPattern(text);
    MimeTypeTable table;
    table.Load(text);
    (void)table.LookupFileName("x.txt");
    return 0;
}
