#include "server/MountTrash.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "core/FolderTreeWalk.h"
#include "core/PathUtil.h"
#include "core/StringUtil.h"
#include "core/UniqueFd.h"

namespace Zarn {
namespace {

// Up to this many deletions of one path in the same second get a stamp of their own.
constexpr int kMaxStampsPerSecond = 100;

std::string StampOf(std::time_t now) {
    std::tm local{};
    ::localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &local);
    return text;
}

// The folder `name` inside `parent`, made private when new. Never through a link: the
// trash must stay where the mount's root is.
UniqueFd OpenOrMakeFolder(int parent, const std::string& name) {
    if (::mkdirat(parent, name.c_str(), 0700) != 0 && errno != EEXIST) return UniqueFd();
    return UniqueFd(::openat(parent, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

UniqueFd OpenMount(const std::string& mount_path) {
    return UniqueFd(::open(mount_path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// Read through descriptors only: a visitor with the right to delete can move a tree into
// the trash that is deeper than any path may be long. A link planted under the trash's
// name is not the trash and fails to open (ELOOP); what it leads to is left alone.
UniqueFd OpenTrash(const UniqueFd& mount) {
    if (!mount.IsValid()) return UniqueFd();
    return UniqueFd(::openat(mount.Get(), std::string(MountTrash::kFolderName).c_str(),
                             O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

}  // namespace

UniqueFd MountTrash::OpenDestination(const std::string& stamp, std::string_view relative) {
    UniqueFd folder = OpenOrMakeFolder(root_fd_, std::string(kFolderName));
    if (folder.IsValid()) folder = OpenOrMakeFolder(folder.Get(), stamp);
    for (std::string_view segment : Split(relative, '/')) {
        if (segment.empty() || !folder.IsValid()) continue;
        folder = OpenOrMakeFolder(folder.Get(), std::string(segment));
    }
    return folder;
}

MountTrash::Outcome MountTrash::Take(int folder_fd, std::string_view folder_relative,
                                     const std::string& name, std::time_t now,
                                     std::string& stored_as) {
    std::string stamp = StampOf(now);
    for (int attempt = 1; attempt <= kMaxStampsPerSecond; ++attempt) {
        std::string stamp_name =
            attempt == 1 ? stamp : Concat({stamp, "-", std::to_string(attempt)});
        UniqueFd destination = OpenDestination(stamp_name, folder_relative);
        if (!destination.IsValid()) return Outcome::kFailed;
        if (RenameWithoutReplacing(folder_fd, name, destination.Get(), name)) {
            stored_as = JoinPath(JoinPath(stamp_name, folder_relative), name);
            return Outcome::kMoved;
        }
        if (errno == EXDEV) return Outcome::kOtherDevice;
        if (errno != EEXIST) return Outcome::kFailed;
    }
    errno = EEXIST;
    return Outcome::kFailed;
}

MountTrash::Summary MountTrash::Measure(const std::string& mount_path) {
    Summary summary;
    UniqueFd trash = OpenTrash(OpenMount(mount_path));
    if (!trash.IsValid()) return summary;
    // Links are counted as files and never followed: the trash may hold one that leads
    // anywhere.
    auto count = [&summary](int folder_fd, const std::string& name) {
        struct stat info {};
        if (::fstatat(folder_fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return false;
        ++summary.files;
        if (S_ISREG(info.st_mode)) summary.bytes += static_cast<uint64_t>(info.st_size);
        return true;
    };
    (void)FolderTreeWalk::Walk(trash.Get(), {.on_entry = count, .on_folder_left = nullptr});
    return summary;
}

bool MountTrash::Empty(const std::string& mount_path) {
    UniqueFd mount = OpenMount(mount_path);
    UniqueFd trash = OpenTrash(mount);
    if (!trash.IsValid()) return errno == ENOENT;
    auto remove = [](int flags) {
        return [flags](int folder_fd, const std::string& name) {
            return ::unlinkat(folder_fd, name.c_str(), flags) == 0 || errno == ENOENT;
        };
    };
    bool emptied = FolderTreeWalk::Walk(
        trash.Get(), {.on_entry = remove(0), .on_folder_left = remove(AT_REMOVEDIR)});
    return emptied && ::unlinkat(mount.Get(), std::string(kFolderName).c_str(), AT_REMOVEDIR) == 0;
}

}  // namespace Zarn
