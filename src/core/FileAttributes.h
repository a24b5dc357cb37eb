#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace Zarn {

// File attribute bits as the rest of the program tests them. On Linux they come from
// stat(2): a name beginning with "." is hidden, a file without any write permission is
// read-only.
inline constexpr uint32_t kAttributeReadOnly = 0x1;
inline constexpr uint32_t kAttributeHidden = 0x2;
inline constexpr uint32_t kAttributeDirectory = 0x10;
inline constexpr uint32_t kAttributeNormal = 0x80;
inline constexpr uint32_t kAttributeOffline = 0x1000;
// What a path that cannot be queried reads as. It has every bit set, kAttributeOffline
// included, which is how callers tell "missing" apart.
inline constexpr uint32_t kInvalidAttributes = 0xFFFFFFFF;

// The attribute bits for an entry of this name and status.
[[nodiscard]] uint32_t AttributesFromStat(std::string_view name, const struct stat& info);

// The attributes of the file or folder at the path (symbolic links followed), or
// kInvalidAttributes when it does not exist or cannot be queried.
[[nodiscard]] uint32_t GetFileAttributes(const std::string& path);

}  // namespace Zarn
