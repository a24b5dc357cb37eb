#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <string_view>

#include "core/UniqueFd.h"

namespace Zarn {

// A folder held open by descriptor, below which relative paths are opened without ever
// leaving it: no "..", no absolute link and no link whose target lies outside gets past
// it, and the check and the open are one system call (openat2 with RESOLVE_BENEATH), so a
// link swapped in between cannot race it. A folder opened unconfined follows every link,
// for owners who share links on purpose. Immutable once open; any thread may use it.
class ConfinedFolder {
public:
    // Nothing when the folder cannot be opened (missing, not a folder, no permission).
    // The folder itself may be reached through links: the owner chose it.
    [[nodiscard]] static std::optional<ConfinedFolder> Open(const std::string& path, bool confined);

    // A new descriptor for `relative` below the folder ("" is the folder itself), opened
    // with `flags` (O_CLOEXEC is added). Invalid, with errno set, when the path does not
    // exist or leads out of the folder (EXDEV).
    [[nodiscard]] UniqueFd OpenBelow(std::string_view relative, int flags) const;
    // The status of what `relative` leads to, links followed; false as OpenBelow fails.
    [[nodiscard]] bool StatBelow(std::string_view relative, struct stat& info) const;

    [[nodiscard]] int GetHandle() const { return fd_.Get(); }
    [[nodiscard]] const std::string& GetPath() const { return path_; }
    [[nodiscard]] bool IsConfined() const { return confined_; }

private:
    ConfinedFolder(UniqueFd fd, std::string path, bool confined)
        : fd_(std::move(fd)), path_(std::move(path)), confined_(confined) {}

    UniqueFd fd_;
    std::string path_;
    bool confined_;
};

}  // namespace Zarn
