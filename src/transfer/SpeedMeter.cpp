#include "transfer/SpeedMeter.h"

#include <cstddef>

namespace Zarn {

void SpeedMeter::Add(uint64_t count, uint64_t now_ms) {
    DropExpired(now_ms);
    if (GetSampleCount() > 0 && now_ms <= samples_.back().stamp_ms) {
        // Samples of one millisecond leave the window together, so merging them gives the
        // same speeds and bounds the queue by the window's length in milliseconds.
        samples_.back().count += count;
    } else {
        samples_.push_back({count, now_ms});
    }
    sum_ += count;
}

uint64_t SpeedMeter::Speed(uint64_t now_ms) {
    DropExpired(now_ms);
    if (GetSampleCount() == 0) return 0;
    uint64_t oldest = samples_[first_].stamp_ms;
    if (now_ms <= oldest) return 0;
    return sum_ * 1000 / (now_ms - oldest);
}

void SpeedMeter::DropExpired(uint64_t now_ms) {
    // Fewer expired samples wait: erasing a handful at a time would move the live ones on
    // almost every call.
    constexpr size_t kMinDroppedInBulk = 64;
    while (first_ < samples_.size() && now_ms >= samples_[first_].stamp_ms + kWindowMs) {
        sum_ -= samples_[first_].count;
        ++first_;
    }
    // Dropping once the expired samples outnumber the live ones moves each sample at most
    // once on average.
    if (first_ == samples_.size() ||
        (first_ >= kMinDroppedInBulk && first_ * 2 > samples_.size())) {
        samples_.erase(samples_.begin(), samples_.begin() + static_cast<std::ptrdiff_t>(first_));
        first_ = 0;
    }
}

}  // namespace Zarn
