#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zarn {

// Measures the speed of one transfer direction over the last five seconds of byte
// samples. Not locked: its owner (the aggregator) serialises every call.
class SpeedMeter {
public:
    static constexpr uint64_t kWindowMs = 5000;

    // Records bytes moved at now_ms. Stamps must not go back; an earlier one counts as the
    // latest stamp, so the window stays ordered.
    void Add(uint64_t count, uint64_t now_ms);

    // Bytes per second: the sum of the samples younger than the window, over the time
    // since the oldest of them. 0 without samples or when no time has passed since it.
    [[nodiscard]] uint64_t Speed(uint64_t now_ms);

    [[nodiscard]] size_t GetSampleCount() const { return samples_.size() - first_; }

private:
    struct Sample {
        uint64_t count;
        uint64_t stamp_ms;
    };

    void DropExpired(uint64_t now_ms);

    // The window from `first_` on; expired samples in front are dropped in bulk. Not a
    // deque: that allocates two blocks (over half a KiB) as soon as it exists, for every
    // request, and a connection thread keeps such freed blocks cached while it idles.
    std::vector<Sample> samples_;
    size_t first_ = 0;
    // The sum of every sample's count, so that a speed costs no walk over the window.
    uint64_t sum_ = 0;
};

}  // namespace Zarn
