#include "core/FolderTreeWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <string_view>
#include <vector>

#include "core/UniqueFd.h"

namespace Zarn {
namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// One folder on the way down from the top.
struct Level {
    dev_t device = 0;
    ino_t inode = 0;
    std::vector<std::string> folders{};  // its subfolders, walked in turn
    size_t next = 0;
};

// The names in the folder, read whole and closed before the walk goes down: a stream held
// per level would cost a descriptor per level.
[[nodiscard]] bool ReadFolder(int folder_fd, std::vector<std::string>& folders,
                              std::vector<std::string>& others) {
    UniqueFd own(::openat(folder_fd, ".", kFolderFlags));
    std::unique_ptr<DIR, int (*)(DIR*)> dir(own.IsValid() ? ::fdopendir(own.Get()) : nullptr,
                                            ::closedir);
    if (!dir) return false;
    (void)own.Release();  // the stream owns it now
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(dir.get());
        if (entry == nullptr) return errno == 0;
        std::string_view name = entry->d_name;
        if (name == "." || name == "..") continue;
        bool is_folder = entry->d_type == DT_DIR;
        struct stat info {};
        if (entry->d_type == DT_UNKNOWN &&
            ::fstatat(folder_fd, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0) {
            is_folder = S_ISDIR(info.st_mode);
        }
        (is_folder ? folders : others).emplace_back(name);
    }
}

// Reads the folder now current, tells the hook of its other entries and remembers it as
// the deepest level.
[[nodiscard]] bool Enter(int folder_fd, const FolderTreeWalk::Hooks& hooks,
                         std::vector<Level>& levels) {
    struct stat info {};
    bool whole = ::fstat(folder_fd, &info) == 0;
    Level level{.device = info.st_dev, .inode = info.st_ino};
    std::vector<std::string> others;
    whole = ReadFolder(folder_fd, level.folders, others) && whole;
    levels.push_back(std::move(level));
    if (!hooks.on_entry) return whole;
    for (const std::string& name : others)
        whole = hooks.on_entry(folder_fd, name) && whole;
    return whole;
}

}  // namespace

bool FolderTreeWalk::Walk(int top_fd, const Hooks& hooks) {
    UniqueFd current(::openat(top_fd, ".", kFolderFlags));
    if (!current.IsValid()) return false;
    std::vector<Level> levels;
    bool whole = Enter(current.Get(), hooks, levels);
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next < level.folders.size()) {
            const std::string& name = level.folders[level.next++];
            UniqueFd child(::openat(current.Get(), name.c_str(), kFolderFlags));
            if (!child.IsValid()) {
                whole = false;
                continue;
            }
            current = std::move(child);
            whole = Enter(current.Get(), hooks, levels) && whole;
            continue;
        }
        levels.pop_back();
        if (levels.empty()) break;
        // Back up by "..", checked against the folder remembered there, rather than by a
        // descriptor kept per level (which a deep tree would run out of) or by re-opening
        // the chain from the top (which costs the depth at every step back). Should a
        // folder on the way have been moved meanwhile, ".." leads elsewhere, and the walk
        // stops rather than go on in a folder it was never given.
        UniqueFd parent(::openat(current.Get(), "..", kFolderFlags));
        struct stat info {};
        const Level& up = levels.back();
        if (!parent.IsValid() || ::fstat(parent.Get(), &info) != 0 || info.st_dev != up.device ||
            info.st_ino != up.inode) {
            return false;
        }
        current = std::move(parent);
        if (hooks.on_folder_left) {
            whole = hooks.on_folder_left(current.Get(), up.folders[up.next - 1]) && whole;
        }
    }
    return whole;
}

}  // namespace Zarn
