#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace Zarn {

// What the progress page knows of one upload.
struct UploadProgress {
    static constexpr int kRunning = 0;
    static constexpr int kFinished = 1;
    static constexpr int kFailed = 2;

    int state = kRunning;
    std::string file_name{};
    uint64_t received = 0;
    uint64_t total = 0;
    uint32_t tick = 0;              // when the entry last changed, in milliseconds
    uint64_t bytes_per_second = 0;  // for the display only
};

// The progress of every running upload, keyed by the key its form chose. The upload's
// connection thread writes its entry and the progress page's thread reads it; both meet
// only here, under one lock that is never held across a sleep or a socket write.
class UploadProgressTable {
public:
    // Milliseconds on a monotonic clock; wraps like a 32-bit tick counter.
    using Clock = std::function<uint32_t()>;

    static constexpr uint32_t kStaleMilliseconds = 60000;

    explicit UploadProgressTable(Clock clock = MonotonicTick) : clock_(std::move(clock)) {}

    // Stores the entry under the key, stamped with the current tick.
    void Put(const std::string& key, UploadProgress entry);
    // A copy of the entry, taken under the lock.
    [[nodiscard]] std::optional<UploadProgress> Find(const std::string& key) const;
    // Forgets every entry not updated for more than a minute.
    void Purge();
    [[nodiscard]] uint32_t Now() const { return clock_(); }
    [[nodiscard]] size_t Size() const;

    static uint32_t MonotonicTick();

private:
    Clock clock_;
    mutable std::mutex mutex_;
    std::map<std::string, UploadProgress> entries_;
};

}  // namespace Zarn
