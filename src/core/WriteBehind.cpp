#include "core/WriteBehind.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "core/FileContents.h"

namespace Zarn {

bool WriteBehind::Write(int fd, const char* bytes, size_t length) {
    if (!WriteFully(fd, std::string_view(bytes, length))) return false;
    unstarted_ += length;
    // Per megabyte, not per receive, so the disk sees large writes; pages already on their
    // way are passed over.
    if (unstarted_ >= kStartBytes) {
        ::sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
        unstarted_ = 0;
    }
    return true;
}

bool WriteBehind::Sync(int fd) {
    // EINVAL: a file system that cannot sync at all, where waiting gains nothing and
    // refusing every upload would lose them.
    return ::fdatasync(fd) == 0 || errno == EINVAL;
}

}  // namespace Zarn
