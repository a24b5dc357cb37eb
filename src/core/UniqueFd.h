#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Zarn {

// Sole owner of a POSIX file descriptor; closes it on destruction.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { Reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    [[nodiscard]] int Get() const { return fd_; }
    [[nodiscard]] bool IsValid() const { return fd_ >= 0; }
    [[nodiscard]] int Release() { return std::exchange(fd_, -1); }
    void Reset(int fd = -1) {
        // No EINTR retry: on Linux the descriptor is gone even when close() reports an error.
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

// Whether an open failed for want of a descriptor (the process's limit or the system's)
// rather than for anything about the file: what failed then is likely there, and a retry
// once other descriptors close may succeed.
[[nodiscard]] inline bool IsOutOfDescriptors(int error) {
    return error == EMFILE || error == ENFILE;
}

}  // namespace Zarn
