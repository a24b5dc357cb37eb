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

// Replaces the file with these bytes so that a reader, or a crash, only ever sees the old
// file or the new one whole: written beside it, flushed to the disk and renamed over it,
// then the folder's entry flushed too. `mode` is the new file's permission bits. False,
// with the old file untouched and errno telling why, when any step fails.
bool WriteFileAtomically(const std::string& path, std::string_view bytes, int mode = 0644);

}  // namespace Zarn
