#pragma once

#include <string>
#include <string_view>

namespace Zarn {

// The path made absolute against the current directory, with "." and ".." segments and
// repeated slashes resolved as text: like a full-path lookup, it never touches the disk,
// so it works for files that do not exist yet.
[[nodiscard]] std::string MakeAbsolutePath(std::string_view path);

// Joins a folder and a name with exactly one "/" between them.
[[nodiscard]] std::string JoinPath(std::string_view folder, std::string_view name);

}  // namespace Zarn
