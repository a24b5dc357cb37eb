// A language file the owner dropped into the home folder.
#include <array>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "i18n/LocalizationStringTable.h"

using namespace Zarn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    std::array<std::string, 3> descriptions;
    (void)LocalizationStringTable::ReadHeader(in, descriptions);
    LocalizationStringTable table;
    size_t malformed = 0;
    if (!table.Load(in, &malformed) && malformed == 0) __builtin_trap();
    (void)table.Lookup("key");
    return 0;
}
