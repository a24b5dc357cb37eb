#include "core/TekoFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "core/PathUtil.h"
#include "core/UniqueFd.h"

namespace Zarn {
namespace {

int OpenFlags(int mode) {
    switch (mode) {
        case TekoFile::kModeRead:
            return O_RDONLY;
        case TekoFile::kModeWrite:  // truncated only once the lock is held, see Open
        case TekoFile::kModeWriteNoTruncate:
            return O_WRONLY | O_CREAT;
        case TekoFile::kModeReadWrite:
            return O_RDWR | O_CREAT;
        default:
            return -1;
    }
}

// Takes the sharing lock. Only a conflicting holder refuses the open: a file system
// without flock support leaves the file unlocked rather than unopenable.
bool LockForSharing(int fd, bool exclusive) {
    int result;
    do {
        result = ::flock(fd, (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    return result == 0 || errno != EWOULDBLOCK;
}

}  // namespace

TekoFile::~TekoFile() {
    if (opened_here_) Close();
}

bool TekoFile::Open(const std::string& path, int mode, bool exclusive) {
    Close();
    int flags = OpenFlags(mode);
    if (flags < 0 || path.empty()) return false;
    std::string full_path = MakeAbsolutePath(path);
    // O_NONBLOCK keeps open(2) from waiting on a FIFO; only regular files pass below.
    UniqueFd fd(::open(full_path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0666));
    return Adopt(std::move(fd), std::move(full_path), mode, exclusive);
}

bool TekoFile::OpenForReading(UniqueFd fd, const std::string& path) {
    Close();
    return Adopt(std::move(fd), MakeAbsolutePath(path), kModeRead, false);
}

bool TekoFile::Adopt(UniqueFd fd, std::string full_path, int mode, bool exclusive) {
    if (!fd.IsValid()) return false;
    struct stat info {};
    if (::fstat(fd.Get(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
    int status = ::fcntl(fd.Get(), F_GETFL);
    if (status < 0 || ::fcntl(fd.Get(), F_SETFL, status & ~O_NONBLOCK) != 0) return false;
    if (!LockForSharing(fd.Get(), exclusive)) return false;
    // Truncating before the lock would destroy a file that another opener still holds.
    if (mode == kModeWrite && ::ftruncate(fd.Get(), 0) != 0) return false;

    fd_ = fd.Release();
    opened_here_ = true;
    full_path_ = std::move(full_path);
    size_t slash = full_path_.rfind('/');
    name_position_ = slash == std::string::npos ? 0 : slash + 1;
    return true;
}

uint32_t TekoFile::Read(void* buffer, uint32_t count) {
    if (fd_ < 0 || count == 0) return 0;
    auto* out = static_cast<char*>(buffer);
    uint32_t total = 0;
    while (total < count) {
        ssize_t got = ::read(fd_, out + total, count - total);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        total += static_cast<uint32_t>(got);
    }
    return total;
}

uint32_t TekoFile::Write(const void* buffer, uint32_t count) {
    if (fd_ < 0 || count == 0) return 0;
    const auto* in = static_cast<const char*>(buffer);
    uint32_t total = 0;
    while (total < count) {
        ssize_t put = ::write(fd_, in + total, count - total);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) break;
        total += static_cast<uint32_t>(put);
    }
    return total;
}

uint64_t TekoFile::GetPosition() {
    return Seek(0, SeekOrigin::kCurrent);
}

uint64_t TekoFile::GetSize() {
    struct stat info {};
    if (fd_ < 0 || ::fstat(fd_, &info) != 0) return kInvalidSize;
    return static_cast<uint64_t>(info.st_size);
}

uint64_t TekoFile::Seek(int64_t offset, SeekOrigin origin) {
    if (fd_ < 0) return kInvalidSize;
    int whence = origin == SeekOrigin::kBegin ? SEEK_SET
                 : origin == SeekOrigin::kEnd ? SEEK_END
                                              : SEEK_CUR;
    off_t position = ::lseek(fd_, static_cast<off_t>(offset), whence);
    return position < 0 ? kInvalidSize : static_cast<uint64_t>(position);
}

void TekoFile::Close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    opened_here_ = false;
    full_path_.clear();
    name_position_ = 0;
}

bool TekoFile::Flush() {
    return fd_ >= 0 && ::fsync(fd_) == 0;
}

bool TekoFile::SetEnd(uint64_t offset) {
    if (offset > static_cast<uint64_t>(LLONG_MAX)) return false;
    if (Seek(static_cast<int64_t>(offset), SeekOrigin::kBegin) != offset) return false;
    return ::ftruncate(fd_, static_cast<off_t>(offset)) == 0;
}

std::string_view TekoFile::GetFileName() const {
    return std::string_view(full_path_).substr(name_position_);
}

uint64_t TekoFile::GetFileSize(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return kInvalidSize;
    return S_ISDIR(info.st_mode) ? 0 : static_cast<uint64_t>(info.st_size);
}

}  // namespace Zarn
