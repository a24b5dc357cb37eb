#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Zarn {

// Whole-buffer reads and writes for the small files of the program (settings, tables,
// skins, log lines).

// The bytes of the file, or nothing when it cannot be opened or read.
[[nodiscard]] std::optional<std::string> ReadWholeFile(const std::string& path);

// Writes every byte, going on after short writes and signals; false on an error (a full
// disk, say).
bool WriteFully(int fd, std::string_view bytes);

}  // namespace Zarn
