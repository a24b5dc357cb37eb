#include "core/ConfinedFolder.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>

namespace Zarn {
namespace {

int CallOpenat2(int folder, const char* path, int flags) {
    open_how how{};
    how.flags = static_cast<uint64_t>(flags);
    // Magic links (/proc/self/fd/N and the like) could hand out any open file.
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    // EAGAIN: a rename elsewhere in the tree raced the walk; a few tries settle it.
    int fd = -1;
    for (int attempt = 0; attempt < 8; ++attempt) {
        fd = static_cast<int>(::syscall(SYS_openat2, folder, path, &how, sizeof how));
        if (fd >= 0 || (errno != EINTR && errno != EAGAIN)) break;
    }
    return fd;
}

std::string RealPathOf(const std::string& path) {
    std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), std::free);
    return real ? std::string(real.get()) : std::string();
}

// For kernels older than 5.6: resolve the whole path and open it only when it lies below
// the folder. Unlike openat2 this leaves a window between the check and the open, which
// is why it is only the fallback.
int OpenBelowByRealPath(const std::string& folder, std::string_view relative, int flags) {
    std::string root = RealPathOf(folder);
    std::string target = RealPathOf(folder + "/" + std::string(relative));
    if (root.empty() || target.empty()) return -1;
    bool inside =
        target == root || (target.starts_with(root) && (root == "/" || target[root.size()] == '/'));
    if (!inside) {
        errno = EXDEV;
        return -1;
    }
    return ::open(target.c_str(), flags);
}

}  // namespace

std::optional<ConfinedFolder> ConfinedFolder::Open(const std::string& path, bool confined) {
    UniqueFd fd(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!fd.IsValid()) return std::nullopt;
    return ConfinedFolder(std::move(fd), path, confined);
}

UniqueFd ConfinedFolder::OpenBelow(std::string_view relative, int flags) const {
    flags |= O_CLOEXEC;
    std::string path = relative.empty() ? std::string(".") : std::string(relative);
    if (!confined_) return UniqueFd(::openat(fd_.Get(), path.c_str(), flags, 0));
    int fd = CallOpenat2(fd_.Get(), path.c_str(), flags);
    if (fd < 0 && errno == ENOSYS) fd = OpenBelowByRealPath(path_, relative, flags);
    return UniqueFd(fd);
}

bool ConfinedFolder::StatBelow(std::string_view relative, struct stat& info) const {
    UniqueFd fd = OpenBelow(relative, O_PATH);
    return fd.IsValid() && ::fstat(fd.Get(), &info) == 0;
}

}  // namespace Zarn
