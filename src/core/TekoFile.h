#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "core/UniqueFd.h"

namespace Zarn {

enum class SeekOrigin { kBegin, kCurrent, kEnd };

// A file opened by path, with the four open modes every caller relies on:
//   0 read: the file must exist;
//   1 write: always created anew (truncated);
//   2 read-write: opened if present, else created;
//   4 write without truncation: opened if present, else created; position at the start.
// An exclusive opener shares the file with nobody; a non-exclusive one shares it with
// other non-exclusive openers. Sharing is enforced with advisory flock(2) locks, which
// every opener through this class honours. Only regular files open: a folder, a pipe or
// a device is refused, so that a download can never block on a FIFO.
// One object is used by one thread at a time.
class TekoFile {
public:
    static constexpr int kModeRead = 0;
    static constexpr int kModeWrite = 1;
    static constexpr int kModeReadWrite = 2;
    static constexpr int kModeWriteNoTruncate = 4;
    static constexpr uint64_t kInvalidSize = ~uint64_t{0};

    TekoFile() = default;
    // Wraps a descriptor opened elsewhere; destruction leaves it open (Close does not).
    explicit TekoFile(int fd) : fd_(fd) {}
    virtual ~TekoFile();
    TekoFile(const TekoFile&) = delete;
    TekoFile& operator=(const TekoFile&) = delete;

    // Closes what is open first. False, with nothing open, on any failure.
    [[nodiscard]] virtual bool Open(const std::string& path, int mode, bool exclusive = false);
    // Takes over a descriptor opened for reading elsewhere (with O_NONBLOCK, so that a FIFO
    // could not block the open) as Open(path, kModeRead) would: only a regular file is
    // kept, under a shared lock. `path` names it for GetFullPath.
    [[nodiscard]] bool OpenForReading(UniqueFd fd, const std::string& path);
    // Bytes transferred; fewer than asked only at the end of the file or on failure.
    virtual uint32_t Read(void* buffer, uint32_t count);
    // Bytes written; fewer than asked means failure (a full disk, say).
    virtual uint32_t Write(const void* buffer, uint32_t count);
    [[nodiscard]] virtual uint64_t GetPosition();
    [[nodiscard]] virtual uint64_t GetSize();
    // The new position, or kInvalidSize on failure.
    virtual uint64_t Seek(int64_t offset, SeekOrigin origin);
    virtual void Close();
    // Forces the written bytes to the disk.
    [[nodiscard]] virtual bool Flush();

    // Seeks to the offset and truncates or extends the file there.
    [[nodiscard]] bool SetEnd(uint64_t offset);

    [[nodiscard]] bool IsOpen() const { return fd_ >= 0; }
    [[nodiscard]] int GetHandle() const { return fd_; }
    // The absolute path given at Open and its last component.
    [[nodiscard]] const std::string& GetFullPath() const { return full_path_; }
    [[nodiscard]] std::string_view GetFileName() const;

    // The size of the file at the path, kInvalidSize when it cannot be queried.
    [[nodiscard]] static uint64_t GetFileSize(const std::string& path);

private:
    [[nodiscard]] bool Adopt(UniqueFd fd, std::string full_path, int mode, bool exclusive);

    int fd_ = -1;
    bool opened_here_ = false;
    std::string full_path_;
    size_t name_position_ = 0;
};

}  // namespace Zarn
