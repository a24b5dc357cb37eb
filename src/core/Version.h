#pragma once

namespace Zarn {

inline constexpr const char kProductName[] = "Korvel Lumidrop";
inline constexpr const char kVersionText[] = "0.952";
inline constexpr int kRevision = 1187;

}  // namespace Zarn
