#pragma once

#include <sys/stat.h>

#include <string>

#include "core/ConfinedFolder.h"
#include "core/UniqueFd.h"

namespace Zarn {

// Where a virtual path leads on disk: the folder of its mount, held open, and the path
// below it. Everything a request reads or writes there is opened through it, so that it
// stays inside the mount unless the owner allowed links out.
struct LocalTarget {
    ConfinedFolder folder;
    std::string relative;    // below the folder; empty for the folder itself
    std::string local_path;  // the same place as one path, for logs and messages

    [[nodiscard]] UniqueFd Open(int flags) const { return folder.OpenBelow(relative, flags); }
    [[nodiscard]] bool Stat(struct stat& info) const { return folder.StatBelow(relative, info); }
    // The path below the folder of an entry inside this target (a folder).
    [[nodiscard]] std::string Below(const std::string& name) const {
        if (relative.empty()) return name;
        return relative.back() == '/' ? relative + name : relative + "/" + name;
    }
};

}  // namespace Zarn
