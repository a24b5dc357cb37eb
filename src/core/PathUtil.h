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

// Creates the folder and any missing parents (mode 0755 before the umask). True when it
// exists as a folder afterwards.
[[nodiscard]] bool MakeFolders(const std::string& path);

// The folder part of a path ("." when it has none).
[[nodiscard]] std::string FolderOf(std::string_view path);

// Renames `from` in one folder to `to` in another (descriptors, possibly the same) unless
// something already has that name: never replaces. False with errno set otherwise; EEXIST
// means the name is taken, EINVAL that a folder would go into itself, EXDEV that the two
// lie on different file systems.
[[nodiscard]] bool RenameWithoutReplacing(int from_folder, const std::string& from, int to_folder,
                                          const std::string& to);

}  // namespace Zarn
