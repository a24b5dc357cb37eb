#include "transfer/SpeedMeter.h"

namespace Zarn {

void SpeedMeter::Add(uint64_t count, uint64_t now_ms) {
    DropExpired(now_ms);
    if (!samples_.empty() && now_ms <= samples_.back().stamp_ms) {
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
    if (samples_.empty()) return 0;
    uint64_t oldest = samples_.front().stamp_ms;
    if (now_ms <= oldest) return 0;
    return sum_ * 1000 / (now_ms - oldest);
}

bool SpeedMeter::IsFasterThan(uint64_t bytes_per_second, uint64_t now_ms) {
    DropExpired(now_ms);
    if (samples_.empty()) return false;
    uint64_t elapsed_ms =
        now_ms > samples_.front().stamp_ms ? now_ms - samples_.front().stamp_ms : 0;
    return sum_ * 1000 > bytes_per_second * elapsed_ms;
}

void SpeedMeter::DropExpired(uint64_t now_ms) {
    while (!samples_.empty() && now_ms >= samples_.front().stamp_ms + kWindowMs) {
        sum_ -= samples_.front().count;
        samples_.pop_front();
    }
}

}  // namespace Zarn
