#include "ui/SingleInstanceLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include "core/PathUtil.h"

namespace Zarn {

bool SingleInstanceLock::Acquire(const std::string& home) {
    if (!MakeFolders(home)) return false;
    UniqueFd fd(::open(JoinPath(home, kFileName).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!fd.IsValid() || ::flock(fd.Get(), LOCK_EX | LOCK_NB) != 0) return false;
    fd_ = std::move(fd);
    return true;
}

}  // namespace Zarn
