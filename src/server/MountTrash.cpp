#include "server/MountTrash.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

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

std::filesystem::path TrashPath(const std::string& mount_path) {
    return std::filesystem::path(mount_path) / std::string(MountTrash::kFolderName);
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
    namespace fs = std::filesystem;
    Summary summary;
    std::error_code error;
    fs::path trash = TrashPath(mount_path);
    if (!fs::is_directory(fs::symlink_status(trash, error))) return summary;
    // Links are counted as files and never followed: the trash may hold one that leads
    // anywhere.
    for (fs::recursive_directory_iterator entry(trash, error), end; !error && entry != end;
         entry.increment(error)) {
        fs::file_status status = entry->symlink_status(error);
        if (error || fs::is_directory(status)) continue;
        ++summary.files;
        if (fs::is_regular_file(status)) summary.bytes += entry->file_size(error);
    }
    return summary;
}

bool MountTrash::Empty(const std::string& mount_path) {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::path trash = TrashPath(mount_path);
    fs::file_status status = fs::symlink_status(trash, error);
    if (!fs::exists(status)) return true;
    // A link planted under the trash's name is not the trash: leave what it leads to alone.
    if (!fs::is_directory(status)) return false;
    fs::remove_all(trash, error);
    return !error;
}

}  // namespace Zarn
