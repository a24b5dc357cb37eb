#pragma once

#include <cstdint>

namespace Zarn {

// A number that ties rights to accounts and mounts while the program runs: every account
// and mount made in memory takes the next one. Unique within a run, never reused, never
// written to a file. Any thread may draw one.
[[nodiscard]] uint32_t NextObjectIdentifier();

}  // namespace Zarn
