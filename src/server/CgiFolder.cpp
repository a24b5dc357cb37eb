#include "server/CgiFolder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <climits>
#include <cstdlib>

#include "core/UniqueFd.h"
#include "share/MountManager.h"

namespace Zarn {
namespace {

std::optional<std::string> RealPath(const std::string& path) {
    char resolved[PATH_MAX];
    if (::realpath(path.c_str(), resolved) == nullptr) return std::nullopt;
    return std::string(resolved);
}

bool IsAtOrBelow(const std::string& inner, const std::string& outer) {
    if (outer == "/") return true;
    return inner == outer || (inner.starts_with(outer) && inner[outer.size()] == '/');
}

}  // namespace

std::optional<std::string> CgiFolder::FindProgram(const std::string& folder,
                                                  std::string_view name) {
    if (name.empty() || name.starts_with('.') ||
        name.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos) {
        return std::nullopt;
    }
    UniqueFd directory(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!directory.IsValid()) return std::nullopt;
    struct stat info {};
    std::string file_name(name);
    if (::fstatat(directory.Get(), file_name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(info.st_mode) || (info.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0) {
        return std::nullopt;
    }
    return folder.ends_with('/') ? folder + file_name : folder + "/" + file_name;
}

std::optional<std::string> CgiFolder::FindCoveringMount(const std::string& folder,
                                                        const std::vector<Mount>& mounts) {
    std::optional<std::string> resolved = RealPath(folder);
    if (!resolved) return std::nullopt;
    for (const Mount& mount : mounts) {
        if (!mount.is_folder) continue;
        std::optional<std::string> shared = RealPath(mount.local_path);
        if (shared && IsAtOrBelow(*resolved, *shared)) return mount.name;
    }
    return std::nullopt;
}

}  // namespace Zarn
